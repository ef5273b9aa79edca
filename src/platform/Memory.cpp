#include "Memory.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "wire/Descriptor.h"
#include "wire/Guarded.h"

namespace cecore {
namespace {

constexpr uint64_t k_ullTargetMemory = 512ULL << 20;

wire::CMutex s_Mutex;
std::optional<S_MEMORYSTATUS> s_Override WIRE_GUARDED_BY(s_Mutex);

/** The kernel's table as text, read without taking memory; empty if it is not there. */
std::string_view ReadMemInfo(char* o_pcText, size_t i_ulSize)
{
    const wire::CDescriptor l_File(open("/proc/meminfo", O_RDONLY | O_CLOEXEC));
    const ssize_t l_lRead = l_File ? read(l_File.Get(), o_pcText, i_ulSize) : 0;
    return {o_pcText, static_cast<size_t>(std::max<ssize_t>(l_lRead, 0))};
}

/** A figure of that table, in bytes; 0 if it is not there. */
uint64_t FindFigure(std::string_view i_strTable, std::string_view i_strName)
{
    size_t l_ulAt = i_strTable.find(i_strName);
    if (l_ulAt == std::string_view::npos) {
        return 0;
    }
    l_ulAt = std::min(i_strTable.find_first_of("0123456789", l_ulAt), i_strTable.size());
    uint64_t l_ullKilobytes = 0;
    std::from_chars(i_strTable.data() + l_ulAt, i_strTable.data() + i_strTable.size(),
                    l_ullKilobytes);
    return l_ullKilobytes * 1024;
}

} // namespace

void* VirtualAlloc(size_t i_ulSize)
{
    void* l_pMemory =
        mmap(nullptr, i_ulSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (l_pMemory == MAP_FAILED) {
        ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return l_pMemory;
}

void VirtualFree(void* i_pMemory, size_t i_ulSize)
{
    if (i_pMemory != nullptr) {
        munmap(i_pMemory, i_ulSize);
    }
}

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
        const wire::CLock l_Lock(s_Mutex);
        if (s_Override) {
            *io_pStatus = *s_Override;
            return;
        }
    }
    // Both figures stand in the first lines.
    char l_acTable[512];
    const std::string_view l_strTable = ReadMemInfo(l_acTable, sizeof(l_acTable));
    uint64_t l_ullTotal = FindFigure(l_strTable, "MemTotal:");
    uint64_t l_ullAvailable = FindFigure(l_strTable, "MemAvailable:");
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
    const wire::CLock l_Lock(s_Mutex);
    s_Override = i_pStatus == nullptr ? std::nullopt : std::optional(*i_pStatus);
}

} // namespace cecore
