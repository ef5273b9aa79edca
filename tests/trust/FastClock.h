/**
 * @file FastClock.h
 * @brief A clock that is put forward instead of waited for.
 */
#pragma once

#include <cstdint>

/**
 * Bounds the waits on conditions in this process: one that would last longer is over after that time,
 * and the monotonic clock is put forward by the rest. Sleeps take no time at all.
 *
 * @param i_llLongestWait nanoseconds; below 0: clock and waits are the system's again.
 */
void HurryClock(int64_t i_llLongestWait);
