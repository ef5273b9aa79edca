/**
 * @file SampleAvx2.h
 * @brief Vectors of 32 bytes for the decoder: what words say, and how values become measures.
 *
 * Every function that has vectors is compiled for this target alone and chosen at run time.
 */
#pragma once

#ifdef __x86_64__

#include <immintrin.h>

#include "samples/SampleForms.h"

#define TORNVAL_AVX2 __attribute__((target("avx2,popcnt")))
#define TORNVAL_AVX2_INLINE __attribute__((target("avx2,popcnt"), always_inline)) inline

namespace tornval {

TORNVAL_AVX2_INLINE __m256i Load(const void* i_pData)
{
    return _mm256_loadu_si256(static_cast<const __m256i*>(i_pData));
}
TORNVAL_AVX2_INLINE void Store(void* o_pData, __m256i i_Vector)
{
    _mm256_storeu_si256(static_cast<__m256i*>(o_pData), i_Vector);
}
TORNVAL_AVX2_INLINE __m128i LoadHalf(const void* i_pData)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(i_pData));
}
TORNVAL_AVX2_INLINE void StoreHalf(void* o_pData, __m128i i_Vector)
{
    _mm_storeu_si128(static_cast<__m128i*>(o_pData), i_Vector);
}
TORNVAL_AVX2_INLINE __m128i Low(__m256i i_Vector)
{
    return _mm256_castsi256_si128(i_Vector);
}
TORNVAL_AVX2_INLINE __m128i High(__m256i i_Vector)
{
    return _mm256_extracti128_si256(i_Vector, 1);
}

/** What sixteen words say. */
struct S_SAID
{
    __m256i Number; /**< the step, or the value of an absolute code */
    __m256i IsStep; /**< all bits of a step */
};

TORNVAL_AVX2_INLINE S_SAID Understand(__m256i i_Words)
{
    const __m256i l_IsStep = _mm256_srai_epi16(i_Words, 15);
    const __m256i l_Size = _mm256_srli_epi16(_mm256_slli_epi16(i_Words, 2), 10);
    // Bit 14 becomes the sign. A word without any other bit is a step of zero, whatever its sign.
    const __m256i l_Step = _mm256_sign_epi16(l_Size, _mm256_slli_epi16(i_Words, 1));
    const __m256i l_Value = _mm256_srai_epi16(_mm256_slli_epi16(i_Words, 3), 3);
    return {_mm256_blendv_epi8(l_Value, l_Step, l_IsStep), l_IsStep};
}

/** All bits of the words that are absolute codes of high range. */
TORNVAL_AVX2_INLINE __m256i HighOf(__m256i i_Words, __m256i i_IsStep)
{
    return _mm256_andnot_si256(i_IsStep, _mm256_srai_epi16(_mm256_slli_epi16(i_Words, 2), 15));
}

/** How values become measures, as kinds that the loops are compiled for. */
enum E_KIND
{
    KIND_LOW,    /**< by the coefficient of low range, no sample is of high range */
    KIND_RANGES, /**< by the coefficient of each one's range */
    KIND_WHOLE,  /**< by a calibration of each sort */
    KIND_FITS,
    KIND_SATURATES
};

/** The scale of one channel, in every lane. Coefficients and a whole factor have 16 bits: a value and the
 *  bits of its sign, times one of them and zero, are the product. */
struct S_LANES
{
    __m256i Low;
    __m256i High;
    __m256i Factor;
    __m256i Offset;
    __m256d A;
    __m256d B;
};

/** What the loops of a kind use of a scale. */
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE S_LANES Spread(const S_CHANNEL_SCALE& i_Scale)
{
    S_LANES l_Lanes{};
    if constexpr (i_eKind == KIND_LOW || i_eKind == KIND_RANGES) {
        l_Lanes.Low = _mm256_set1_epi32(i_Scale.lLow & 0xFFFF);
        l_Lanes.High = _mm256_set1_epi32(i_Scale.lHigh & 0xFFFF);
    } else if constexpr (i_eKind == KIND_WHOLE) {
        l_Lanes.Factor = _mm256_set1_epi32(static_cast<int32_t>(i_Scale.dA) & 0xFFFF);
        l_Lanes.Offset = _mm256_set1_epi32(static_cast<int32_t>(i_Scale.dB));
    } else {
        l_Lanes.A = _mm256_set1_pd(i_Scale.dA);
        l_Lanes.B = _mm256_set1_pd(i_Scale.dB);
    }
    return l_Lanes;
}

/** Four values, calibrated; no value is not-a-number. */
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE __m128i CalibrateFour(__m128i i_Values, const S_LANES& i_Lanes)
{
    __m256d l_Measure = _mm256_mul_pd(
        _mm256_add_pd(_mm256_mul_pd(_mm256_cvtepi32_pd(i_Values), i_Lanes.A), i_Lanes.B),
        _mm256_set1_pd(0.0001));
    if constexpr (i_eKind == KIND_SATURATES) {
        l_Measure = _mm256_min_pd(_mm256_max_pd(l_Measure, _mm256_set1_pd(-2147483648.0)),
                                  _mm256_set1_pd(2147483647.0));
    }
    return _mm256_cvttpd_epi32(l_Measure);
}

/** Eight quotients, truncated: the number times 2^44 / 10,000, over 2^44, and one more where it is
 *  negative. */
TORNVAL_AVX2_INLINE __m256i DivideByTenThousand(__m256i i_Numbers)
{
    const __m256i l_Factor = _mm256_set1_epi32(0x68DB8BAD);
    const __m256i l_Even = _mm256_mul_epi32(i_Numbers, l_Factor);
    const __m256i l_Odd = _mm256_mul_epi32(_mm256_srli_epi64(i_Numbers, 32), l_Factor);
    const __m256i l_High = _mm256_blend_epi32(_mm256_srli_epi64(l_Even, 32), l_Odd, 0xAA);
    return _mm256_sub_epi32(_mm256_srai_epi32(l_High, 12), _mm256_srai_epi32(i_Numbers, 31));
}

/**
 * Eight values, measured.
 *
 * @param i_Values each in the lower half of its lane; the upper half holds any bits that are times zero,
 *                 and is not read by the doubles.
 * @param i_IsHigh all bits of the lanes of high range.
 */
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE __m256i MeasureLanes(__m256i i_Values, __m256i i_IsHigh, const S_LANES& i_Lanes)
{
    if constexpr (i_eKind == KIND_WHOLE) {
        return DivideByTenThousand(
            _mm256_add_epi32(_mm256_madd_epi16(i_Values, i_Lanes.Factor), i_Lanes.Offset));
    } else if constexpr (i_eKind == KIND_FITS || i_eKind == KIND_SATURATES) {
        const __m256i l_Values = _mm256_srai_epi32(_mm256_slli_epi32(i_Values, 16), 16);
        return _mm256_set_m128i(CalibrateFour<i_eKind>(High(l_Values), i_Lanes),
                                CalibrateFour<i_eKind>(Low(l_Values), i_Lanes));
    } else if constexpr (i_eKind == KIND_RANGES) {
        return _mm256_madd_epi16(i_Values, _mm256_blendv_epi8(i_Lanes.Low, i_Lanes.High, i_IsHigh));
    } else {
        return _mm256_madd_epi16(i_Values, i_Lanes.Low);
    }
}

/** Eight values side by side, measured. */
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE __m256i Measure(__m128i i_Values, __m128i i_IsHigh, const S_LANES& i_Lanes)
{
    return MeasureLanes<i_eKind>(_mm256_cvtepi16_epi32(i_Values), _mm256_cvtepi16_epi32(i_IsHigh),
                                 i_Lanes);
}

/** The measures of eight values of each half of a vector, the first eight and the others where they are
 *  told to. */
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE void MeasureEights(__m256i i_Values, __m256i i_IsHigh, const S_LANES& i_Lanes,
                                       int32_t* o_plFirst, int32_t* o_plSecond)
{
    const __m256i l_Fours =
        MeasureLanes<i_eKind>(_mm256_unpacklo_epi16(i_Values, i_Values),
                              _mm256_unpacklo_epi16(i_IsHigh, i_IsHigh), i_Lanes);
    const __m256i l_Others =
        MeasureLanes<i_eKind>(_mm256_unpackhi_epi16(i_Values, i_Values),
                              _mm256_unpackhi_epi16(i_IsHigh, i_IsHigh), i_Lanes);
    StoreHalf(o_plFirst, Low(l_Fours));
    StoreHalf(o_plFirst + 4, Low(l_Others));
    StoreHalf(o_plSecond, High(l_Fours));
    StoreHalf(o_plSecond + 4, High(l_Others));
}

/** Words that begin with the first of several channels; see DecodeWords. */
void DecodeWordsAvx2(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels);

} // namespace tornval

#endif
