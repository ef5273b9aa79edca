#include "Clock.h"

#include <chrono>
#include <ctime>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace cecore {

S_SYSTEMTIME GetSystemTime()
{
    const std::time_t l_lNow = std::time(nullptr);
    std::tm l_Time = {};
    gmtime_r(&l_lNow, &l_Time);
    return {static_cast<uint16_t>(l_Time.tm_year + 1900), static_cast<uint16_t>(l_Time.tm_mon + 1),
            static_cast<uint16_t>(l_Time.tm_mday),        static_cast<uint16_t>(l_Time.tm_hour),
            static_cast<uint16_t>(l_Time.tm_min),         static_cast<uint16_t>(l_Time.tm_sec)};
}

uint32_t GetTickCount()
{
    timespec l_Now = {};
    clock_gettime(CLOCK_MONOTONIC, &l_Now);
    return static_cast<uint32_t>(static_cast<uint64_t>(l_Now.tv_sec) * 1000 +
                                 static_cast<uint64_t>(l_Now.tv_nsec) / 1000000);
}

void Sleep(uint32_t i_ulMilliseconds)
{
    if (i_ulMilliseconds == 0) {
        std::this_thread::yield();
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(i_ulMilliseconds));
    }
}

uint32_t GetCurrentThreadId()
{
    static thread_local const auto t_ulId = static_cast<uint32_t>(syscall(SYS_gettid));
    return t_ulId;
}

} // namespace cecore
