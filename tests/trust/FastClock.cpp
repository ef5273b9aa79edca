#include "FastClock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <dlfcn.h>
#include <pthread.h>

namespace {

constinit std::atomic<int64_t> s_llLongestWait{-1};
constinit std::atomic<int64_t> s_llForward{0};

int64_t Nanoseconds(const timespec& i_Time)
{
    return int64_t{i_Time.tv_sec} * 1'000'000'000 + i_Time.tv_nsec;
}

timespec Time(int64_t i_llNanoseconds)
{
    timespec l_Time{};
    l_Time.tv_sec = static_cast<time_t>(i_llNanoseconds / 1'000'000'000);
    l_Time.tv_nsec = static_cast<decltype(l_Time.tv_nsec)>(i_llNanoseconds % 1'000'000'000);
    return l_Time;
}

template <typename F>
F* Next(F* /*i_pfnType*/, const char* i_pszName)
{
    void* l_pAddress = dlsym(RTLD_NEXT, i_pszName);
    F* l_pfn = nullptr;
    std::memcpy(&l_pfn, &l_pAddress, sizeof(l_pfn));
    return l_pfn;
}

} // namespace

void HurryClock(int64_t i_llLongestWait)
{
    s_llLongestWait = i_llLongestWait;
}

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t i_lClock, timespec* o_pTime) noexcept
{
    static const auto s_pfnNext = Next(&clock_gettime, "clock_gettime");
    const int l_lResult = s_pfnNext(i_lClock, o_pTime);
    if (i_lClock == CLOCK_MONOTONIC) {
        *o_pTime = Time(Nanoseconds(*o_pTime) + s_llForward);
    }
    return l_lResult;
}

int pthread_cond_clockwait(pthread_cond_t* io_pCondition, pthread_mutex_t* io_pMutex,
                           clockid_t i_lClock, const timespec* i_pUntil)
{
    static const auto s_pfnNext = Next(&pthread_cond_clockwait, "pthread_cond_clockwait");
    timespec l_Now{};
    clock_gettime(CLOCK_MONOTONIC, &l_Now);
    const int64_t l_llUntil = Nanoseconds(*i_pUntil);
    const int64_t l_llCut =
        s_llLongestWait < 0 ? l_llUntil : std::min(l_llUntil, Nanoseconds(l_Now) + s_llLongestWait);
    const timespec l_Until = Time(l_llCut - s_llForward);
    const int l_lResult = s_pfnNext(io_pCondition, io_pMutex, i_lClock, &l_Until);
    s_llForward += l_lResult == ETIMEDOUT ? l_llUntil - l_llCut : 0;
    return l_lResult;
}

int clock_nanosleep(clockid_t i_lClock, int i_lFlags, const timespec* i_pTime, timespec* o_pRest)
{
    static const auto s_pfnNext = Next(&clock_nanosleep, "clock_nanosleep");
    return s_llLongestWait < 0 ? s_pfnNext(i_lClock, i_lFlags, i_pTime, o_pRest) : 0;
}

int nanosleep(const timespec* i_pTime, timespec* o_pRest)
{
    errno = clock_nanosleep(CLOCK_REALTIME, 0, i_pTime, o_pRest);
    return errno == 0 ? 0 : -1;
}

} // extern "C"
#pragma GCC visibility pop
