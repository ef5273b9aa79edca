/**
 * @file HostileLink.h
 * @brief What the link library hostile_link does at each call.
 */
#pragma once

#include <cstdint>

/** One call of an entry point. */
struct S_HOSTILE_STEP
{
    uint32_t ulResult = 1;
    uint32_t ulError = 0; /**< last error that it leaves */
    bool bCount = true;   /**< whether the count of bytes is written */
    uint32_t ulCount = 0;
    bool bSignal = true; /**< a send: whether the event is signalled */
    bool bThrow = false; /**< whether it throws an int instead of returning */
    const uint8_t* pucBytes = nullptr;
    uint32_t ulSize = 0; /**< bytes that go into the out buffer, at most its size */
};

/** The symbol g_HostileScript of the library. */
struct S_HOSTILE_SCRIPT
{
    S_HOSTILE_STEP (*pfnNext)(void* i_pContext) = nullptr;
    void* pContext = nullptr;
};
