/**
 * @file Clock.h
 * @brief Time, sleep, the calling thread's ID.
 */
#pragma once

#include "Api.h"

namespace cecore {

/** A point of time in UTC, as the system gives it. */
struct S_SYSTEMTIME
{
    uint16_t usYear, usMonth, usDay, usHour, usMinute, usSecond;
};

CECORE_API S_SYSTEMTIME GetSystemTime();

/** Milliseconds since the machine was started, wrapping at 32 bits. */
CECORE_API uint32_t GetTickCount();

/** Sleeps at least that many milliseconds; 0 gives the processor away once. */
CECORE_API void Sleep(uint32_t i_ulMilliseconds);

CECORE_API uint32_t GetCurrentThreadId();

} // namespace cecore
