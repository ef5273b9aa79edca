/**
 * @file SampleAvx512.h
 * @brief Vectors of 64 bytes for the decoder: how values become measures.
 *
 * Every function that has vectors is compiled for this target alone and chosen at run time.
 */
#pragma once

#ifdef __x86_64__

// g++ 12 takes the undefined vectors that these functions begin with for a fault.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "samples/SampleForms.h"

#define TORNVAL_AVX512                                                                             \
    __attribute__((                                                                                \
        target("avx512f,avx512bw,avx512cd,avx512vl,avx512vbmi,avx512vbmi2,avx512vnni,popcnt")))
#define TORNVAL_AVX512_ALWAYS TORNVAL_AVX512 __attribute__((always_inline))
#define TORNVAL_AVX512_INLINE TORNVAL_AVX512_ALWAYS inline

namespace tornval {

/** The scale of one channel, in every lane. Coefficients and a whole factor have 16 bits. */
struct S_WIDE_LANES
{
    __m512i Low;
    __m512i High;
    __m512i Factor;
    __m512i Offset;
    __m512d A;
    __m512d B;
};

/** What a calibration uses of a scale. */
template <E_CALIBRATION i_eCalibration>
TORNVAL_AVX512_INLINE S_WIDE_LANES SpreadWide(const S_CHANNEL_SCALE& i_Scale)
{
    S_WIDE_LANES l_Lanes{};
    if constexpr (i_eCalibration == E_CALIBRATION::NONE) {
        l_Lanes.Low = _mm512_set1_epi32(i_Scale.lLow & 0xFFFF);
        l_Lanes.High = _mm512_set1_epi32(i_Scale.lHigh & 0xFFFF);
    } else if constexpr (i_eCalibration == E_CALIBRATION::WHOLE) {
        l_Lanes.Factor = _mm512_set1_epi32(static_cast<int32_t>(i_Scale.dA) & 0xFFFF);
        l_Lanes.Offset = _mm512_set1_epi32(static_cast<int32_t>(i_Scale.dB));
    } else {
        l_Lanes.A = _mm512_set1_pd(i_Scale.dA);
        l_Lanes.B = _mm512_set1_pd(i_Scale.dB);
    }
    return l_Lanes;
}

TORNVAL_AVX512_INLINE __m256i CalibrateEight(__m256i i_Values, const S_WIDE_LANES& i_Lanes)
{
    return _mm512_cvttpd_epi32(_mm512_mul_pd(
        _mm512_add_pd(_mm512_mul_pd(_mm512_cvtepi32_pd(i_Values), i_Lanes.A), i_Lanes.B),
        _mm512_set1_pd(0.0001)));
}

/** Sixteen quotients, truncated: the number times 2^44 / 10,000, over 2^44, and one more where it is
 *  negative. */
TORNVAL_AVX512_INLINE __m512i DivideByTenThousand(__m512i i_Numbers)
{
    const __m512i l_Factor = _mm512_set1_epi32(0x68DB8BAD);
    const __m512i l_Even = _mm512_mul_epi32(i_Numbers, l_Factor);
    const __m512i l_Odd = _mm512_mul_epi32(_mm512_srli_epi64(i_Numbers, 32), l_Factor);
    const __m512i l_High = _mm512_mask_shuffle_epi32(l_Odd, 0x5555, l_Even, _MM_PERM_DDBB);
    return _mm512_sub_epi32(_mm512_srai_epi32(l_High, 12), _mm512_srai_epi32(i_Numbers, 31));
}

/** Sixteen values, of which the lower half of each lane counts, measured. */
template <E_CALIBRATION i_eCalibration>
TORNVAL_AVX512_INLINE __m512i MeasureSixteen(__m512i i_Values, __m512i i_Coefficients,
                                             const S_WIDE_LANES& i_Lanes)
{
    if constexpr (i_eCalibration == E_CALIBRATION::NONE) {
        return _mm512_madd_epi16(i_Values, i_Coefficients);
    } else if constexpr (i_eCalibration == E_CALIBRATION::WHOLE) {
        return DivideByTenThousand(_mm512_dpwssd_epi32(i_Lanes.Offset, i_Values, i_Lanes.Factor));
    } else {
        const __m512i l_Values = _mm512_srai_epi32(_mm512_slli_epi32(i_Values, 16), 16);
        return _mm512_inserti64x4(
            _mm512_castsi256_si512(CalibrateEight(_mm512_castsi512_si256(l_Values), i_Lanes)),
            CalibrateEight(_mm512_extracti64x4_epi64(l_Values, 1), i_Lanes), 1);
    }
}

} // namespace tornval

#endif
