/**
 * @file Memory.h
 * @brief The system's memory, as the target reports it.
 */
#pragma once

#include "Api.h"

namespace cecore {

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
