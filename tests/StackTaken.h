/**
 * @file StackTaken.h
 * @brief How much of its thread's stack a call takes.
 */
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>

#include <pthread.h>

// A library that is not optimised, or that is watched, takes more.
#if defined(TORNVAL_OPTIMISED) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TORNVAL_TELLS_STACK 1
#endif

/** @return bytes that the call takes on a thread of its own, beyond those of the thread itself. */
template <typename Call>
ptrdiff_t StackTaken(Call i_fnCall)
{
    alignas(64) static unsigned char s_aucStack[256 * 1024];
    const auto l_fnFirstUsed = [](void* (*i_pfnStart)(void*), void* i_pArgument) {
        std::memset(s_aucStack, 0x5A, sizeof(s_aucStack));
        pthread_attr_t l_Attributes{};
        pthread_t l_Thread{};
        pthread_attr_init(&l_Attributes);
        pthread_attr_setstack(&l_Attributes, s_aucStack, sizeof(s_aucStack));
        pthread_create(&l_Thread, &l_Attributes, i_pfnStart, i_pArgument);
        pthread_join(l_Thread, nullptr);
        pthread_attr_destroy(&l_Attributes);
        return std::find_if(std::begin(s_aucStack), std::end(s_aucStack),
                            [](unsigned char i_uc) { return i_uc != 0x5A; });
    };
    const auto l_fnRun = [](void* i_pCall) -> void* {
        (*static_cast<Call*>(i_pCall))();
        return nullptr;
    };
    l_fnFirstUsed(l_fnRun, &i_fnCall); // The first time, a call also binds what it calls.
    return l_fnFirstUsed([](void*) -> void* { return nullptr; }, nullptr) -
           l_fnFirstUsed(l_fnRun, &i_fnCall);
}
