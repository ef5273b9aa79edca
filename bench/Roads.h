/**
 * @file Roads.h
 * @brief Whole roads that users travel, each measured in a process of its own.
 */
#pragma once

#include <ctime>
#include <span>

/** Time that this thread has run: what others do on the machine meanwhile does not count. */
inline double ThreadNanoseconds()
{
    timespec l_Time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &l_Time);
    return 1e9 * static_cast<double>(l_Time.tv_sec) + static_cast<double>(l_Time.tv_nsec);
}

/** One road. A measure throws std::runtime_error if the road does not end well. */
struct S_ROAD
{
    const char* pszName;
    const char* pszUnit;
    const char* pszWork; /**< for a reader, and whether it is the first use in a process */
    double (*pfnMeasure)();
};

std::span<const S_ROAD> Roads();
