/**
 * @file HeapCount.h
 * @brief Counts the blocks that this program takes from the heap, down to the C library.
 *
 * For one source file of a program, and not under a sanitizer, which brings a malloc of its own.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>

inline std::atomic<uint32_t> g_ulHeapBlocks{0};

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* malloc(size_t i_ulSize)
{
    ++g_ulHeapBlocks;
    return __libc_malloc(i_ulSize);
}
extern "C" void* calloc(size_t i_ulCount, size_t i_ulSize)
{
    ++g_ulHeapBlocks;
    return __libc_calloc(i_ulCount, i_ulSize);
}

/** Blocks taken while a call runs. */
template <typename F>
uint32_t CountBlocks(F&& i_fnCall)
{
    const uint32_t l_ulBefore = g_ulHeapBlocks;
    i_fnCall();
    return g_ulHeapBlocks - l_ulBefore;
}
