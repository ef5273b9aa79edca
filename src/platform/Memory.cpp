#include "Memory.h"

#include <algorithm>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>

#include <unistd.h>

namespace cecore {
namespace {

constexpr uint64_t k_ullTargetMemory = 512ULL << 20;

std::mutex s_Mutex;
std::optional<S_MEMORYSTATUS> s_Override;

/** A figure of the kernel's table, in bytes; 0 if it is not there. */
uint64_t ReadMemInfo(const std::string& i_strName)
{
    std::ifstream l_File("/proc/meminfo");
    std::string l_strWord;
    uint64_t l_ullKilobytes = 0;
    while (l_File >> l_strWord) {
        if (l_strWord == i_strName && l_File >> l_ullKilobytes) {
            return l_ullKilobytes * 1024;
        }
    }
    return 0;
}

} // namespace

void ScaleMemoryStatus(uint64_t i_ullTotal, uint64_t i_ullAvailable, S_MEMORYSTATUS* io_pStatus)
{
    const uint64_t l_ullTotal = std::clamp<uint64_t>(i_ullTotal, 1, k_ullTargetMemory);
    const uint64_t l_ullAvailable = std::min(i_ullAvailable, l_ullTotal / 2);
    io_pStatus->dwTotalPhys = static_cast<uint32_t>(l_ullTotal);
    io_pStatus->dwAvailPhys = static_cast<uint32_t>(l_ullAvailable);
    io_pStatus->dwMemoryLoad = static_cast<uint32_t>(100 - l_ullAvailable * 100 / l_ullTotal);
}

void GlobalMemoryStatus(S_MEMORYSTATUS* io_pStatus)
{
    {
        const std::lock_guard l_Lock(s_Mutex);
        if (s_Override) {
            *io_pStatus = *s_Override;
            return;
        }
    }
    uint64_t l_ullTotal = ReadMemInfo("MemTotal:");
    uint64_t l_ullAvailable = ReadMemInfo("MemAvailable:");
    if (l_ullTotal == 0 || l_ullAvailable == 0) {
        // No such table here: what the C library knows.
        const auto l_ullPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
        l_ullTotal = static_cast<uint64_t>(std::max(sysconf(_SC_PHYS_PAGES), 0L)) * l_ullPage;
        l_ullAvailable = static_cast<uint64_t>(std::max(sysconf(_SC_AVPHYS_PAGES), 0L)) * l_ullPage;
    }
    ScaleMemoryStatus(l_ullTotal, l_ullAvailable, io_pStatus);
}

void OverrideMemoryStatus(const S_MEMORYSTATUS* i_pStatus)
{
    const std::lock_guard l_Lock(s_Mutex);
    s_Override = i_pStatus == nullptr ? std::nullopt : std::optional(*i_pStatus);
}

} // namespace cecore
