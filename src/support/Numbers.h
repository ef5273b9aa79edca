/**
 * @file Numbers.h
 * @brief Conversions of numbers that hold for every value.
 */
#pragma once

#include <cfloat>
#include <cstdint>
#include <limits>

namespace tornval {

static_assert(FLT_EVAL_METHOD == 0, "wider intermediates would change truncated measures; on a "
                                    "32-bit x86 build with -msse2 -mfpmath=sse");

/** Truncates towards zero; saturates outside the range of 32 bits, and not-a-number gives 0. */
inline int32_t TruncateToInt32(double i_dValue)
{
    if (!(i_dValue > -2147483649.0)) {
        return i_dValue != i_dValue ? 0 : std::numeric_limits<int32_t>::min();
    }
    if (i_dValue >= 2147483648.0) {
        return std::numeric_limits<int32_t>::max();
    }
    return static_cast<int32_t>(i_dValue);
}

} // namespace tornval
