#include "Clock.h"

#include <chrono>
#include <ctime>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace cecore {

S_SYSTEMTIME GetSystemTime()
{
    // Not gmtime_r: it looks for the time zone, and reads files and takes memory for that.
    const auto l_Now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const auto l_Day = std::chrono::floor<std::chrono::days>(l_Now);
    const std::chrono::year_month_day l_Date(l_Day);
    const std::chrono::hh_mm_ss l_Time(l_Now - l_Day);
    return {static_cast<uint16_t>(static_cast<int>(l_Date.year())),
            static_cast<uint16_t>(static_cast<unsigned>(l_Date.month())),
            static_cast<uint16_t>(static_cast<unsigned>(l_Date.day())),
            static_cast<uint16_t>(l_Time.hours().count()),
            static_cast<uint16_t>(l_Time.minutes().count()),
            static_cast<uint16_t>(l_Time.seconds().count())};
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
