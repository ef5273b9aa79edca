/**
 * @file Memory.h
 * @brief The system's memory, as the target reports it.
 */
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "Api.h"

namespace cecore {

/**
 * Zeroed memory in whole pages. A page takes memory of the machine when it is first written, and not
 * before: large blocks that may never be used cost nothing.
 *
 * @return null, with error 8, if there is none.
 */
CECORE_API void* VirtualAlloc(size_t i_ulSize);

/** Gives memory of VirtualAlloc back; null: nothing. @param i_ulSize the size it was asked for. */
CECORE_API void VirtualFree(void* i_pMemory, size_t i_ulSize);

/** Owner of zeroed memory for a number of plain objects; null where there was no memory. */
template <typename T>
class CZeroed
{
    static_assert(std::is_trivial_v<T>);

public:
    CZeroed() = default;
    explicit CZeroed(size_t i_ulCount)
        : m_pFirst(static_cast<T*>(VirtualAlloc(i_ulCount * sizeof(T)))),
          m_ulSize(i_ulCount * sizeof(T))
    {
    }
    CZeroed(const CZeroed&) = delete;
    CZeroed& operator=(const CZeroed&) = delete;
    CZeroed(CZeroed&& io_Other) noexcept
        : m_pFirst(std::exchange(io_Other.m_pFirst, nullptr)), m_ulSize(io_Other.m_ulSize)
    {
    }
    CZeroed& operator=(CZeroed&& io_Other) noexcept
    {
        std::swap(m_pFirst, io_Other.m_pFirst);
        std::swap(m_ulSize, io_Other.m_ulSize);
        return *this;
    }
    ~CZeroed() { VirtualFree(m_pFirst, m_ulSize); }

    [[nodiscard]] T* Get() const { return m_pFirst; }
    T& operator*() const { return *m_pFirst; }
    T* operator->() const { return m_pFirst; }

private:
    T* m_pFirst = nullptr;
    size_t m_ulSize = 0;
};

struct S_MEMORYSTATUS
{
    uint32_t dwLength;     /**< size of the target's record, 32; set by the caller */
    uint32_t dwMemoryLoad; /**< memory in use, per cent */
    uint32_t dwTotalPhys;  /**< bytes */
    uint32_t dwAvailPhys;  /**< bytes */
};

/**
 * Fills the record at the target's scale, whose memory is at most 512 MiB: the total is the smaller
 * of the machine's and that, at most half of it counts as available, and the load is what is left
 * of 100. An idle machine thus shows a load of 50, and one in real need shows it.
 */
CECORE_API void GlobalMemoryStatus(S_MEMORYSTATUS* io_pStatus);

/** The same from given figures in bytes: the rule without the machine. */
CECORE_API void ScaleMemoryStatus(uint64_t i_ullTotal, uint64_t i_ullAvailable,
                                  S_MEMORYSTATUS* io_pStatus);

/** Makes GlobalMemoryStatus report these figures from now on; null ends that. For tests. */
CECORE_API void OverrideMemoryStatus(const S_MEMORYSTATUS* i_pStatus);

} // namespace cecore
