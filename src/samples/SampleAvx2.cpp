// The decoder with vectors of 32 bytes. A block of 64 bytes becomes code words, packed; the words of
// a part become values, for one channel by sums that start anew at each absolute code, for several
// round by round; values become measures, eight or sixteen at a time.
//
// Every function that has vectors is compiled for this target alone and chosen at run time.
#include "samples/SampleForms.h"

#ifdef __x86_64__

#include <bit>
#include <cmath>
#include <cstring>

#include <immintrin.h>

#include "samples/SamplePlaces.h"

#define TORNVAL_AVX2 __attribute__((target("avx2,popcnt")))
#define TORNVAL_AVX2_INLINE __attribute__((target("avx2,popcnt"), always_inline)) inline

namespace tornval {
namespace {

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

/** 64 bytes. */
struct S_BLOCK
{
    __m256i First;
    __m256i Second;
};

TORNVAL_AVX2_INLINE S_BLOCK LoadBlock(const uint8_t* i_pucData)
{
    return {Load(i_pucData), Load(i_pucData + 32)};
}

TORNVAL_AVX2_INLINE uint64_t ClearOf(const S_BLOCK& i_Block)
{
    const auto l_ulFirst = static_cast<uint32_t>(_mm256_movemask_epi8(i_Block.First));
    const auto l_ulSecond = static_cast<uint32_t>(_mm256_movemask_epi8(i_Block.Second));
    return ~(l_ulFirst | (uint64_t{l_ulSecond} << 32));
}

/** Packs the words that start in eight bytes; behind them stand some without a meaning. */
TORNVAL_AVX2_INLINE uint16_t* PackEight(const uint8_t* i_pucData, unsigned i_ulStarts,
                                        uint16_t* o_pusWords)
{
    StoreHalf(o_pusWords,
              _mm_shuffle_epi8(LoadHalf(i_pucData), LoadHalf(k_aWordPlaces[i_ulStarts].data())));
    return o_pusWords + __builtin_popcount(i_ulStarts);
}

/** Packs the words of a block. @return the end of them. */
TORNVAL_AVX2_INLINE uint16_t* PackWords(const uint8_t* i_pucData, uint64_t i_ullStarts,
                                        uint16_t* o_pusWords)
{
    for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 32, i_ullStarts >>= 32) {
        const auto l_ulStarts = static_cast<uint32_t>(i_ullStarts);
        o_pusWords = PackEight(i_pucData + l_ul, l_ulStarts & 0xFFU, o_pusWords);
        o_pusWords = PackEight(i_pucData + l_ul + 8, (l_ulStarts >> 8) & 0xFFU, o_pusWords);
        o_pusWords = PackEight(i_pucData + l_ul + 16, (l_ulStarts >> 16) & 0xFFU, o_pusWords);
        o_pusWords = PackEight(i_pucData + l_ul + 24, l_ulStarts >> 24, o_pusWords);
    }
    return o_pusWords;
}

TORNVAL_AVX2_INLINE void WidenSteps(const uint8_t* i_pucData, uint16_t* o_pusWords)
{
    for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 16) {
        Store(o_pusWords + l_ul,
              _mm256_slli_epi16(_mm256_cvtepu8_epi16(LoadHalf(i_pucData + l_ul)), 8));
    }
}

// A block reads eight bytes past its own.
constexpr size_t k_ulReadAhead = k_ulMaskBytes + 8;

TORNVAL_AVX2 size_t ReadWordsAvx2(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount)
{
    // Kept here while vectors are stored, which might be anything of the caller's.
    S_REST l_Rest = io_Rest;
    uint16_t* l_pusNext = o_pusWords + i_ulCount;
    uint16_t* const l_pusEnough = o_pusWords + k_ulPartWords;
    while (l_pusNext < l_pusEnough && l_Rest.Size() >= k_ulReadAhead) {
        const bool l_bInside = l_Rest.Starts.IsInside();
        const auto l_Masks = l_Rest.Starts.Next(ClearOf(LoadBlock(l_Rest.pucData)));
        if (l_Masks.ullAbsolute == 0 && !l_bInside) {
            WidenSteps(l_Rest.pucData, l_pusNext);
            l_pusNext += k_ulMaskBytes;
        } else {
            l_pusNext = PackWords(l_Rest.pucData, l_Masks.ullStarts, l_pusNext);
        }
        l_Rest.pucData += k_ulMaskBytes;
    }
    io_Rest = l_Rest;
    i_ulCount = static_cast<size_t>(l_pusNext - o_pusWords);
    // Fewer than a block and its reach are left: at most 71 words.
    return i_ulCount < k_ulPartWords ? ReadLastWords(io_Rest, o_pusWords, i_ulCount) : i_ulCount;
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

/** The scale of one channel, in every lane. */
struct S_LANES
{
    __m256i Low;
    __m256i High;
    __m256d A;
    __m256d B;
};

TORNVAL_AVX2_INLINE S_LANES Spread(const S_CHANNEL_SCALE& i_Scale)
{
    return {_mm256_set1_epi32(i_Scale.lLow), _mm256_set1_epi32(i_Scale.lHigh),
            _mm256_set1_pd(i_Scale.dA), _mm256_set1_pd(i_Scale.dB)};
}

/** How values become measures, as kinds that the loops are compiled for. */
enum EKind
{
    KIND_LOW,        /**< by the coefficient of low range, no sample is of high range */
    KIND_RANGES,     /**< by the coefficient of each one's range */
    KIND_CALIBRATED, /**< by the calibration, which fits into 32 bits for every value */
    KIND_SATURATED   /**< by the calibration */
};

/** Four values, calibrated; no value is not-a-number. */
template <EKind i_eKind>
TORNVAL_AVX2_INLINE __m128i CalibrateFour(__m128i i_Values, const S_LANES& i_Lanes)
{
    __m256d l_Measure = _mm256_mul_pd(
        _mm256_add_pd(_mm256_mul_pd(_mm256_cvtepi32_pd(i_Values), i_Lanes.A), i_Lanes.B),
        _mm256_set1_pd(0.0001));
    if constexpr (i_eKind == KIND_SATURATED) {
        l_Measure = _mm256_min_pd(_mm256_max_pd(l_Measure, _mm256_set1_pd(-2147483648.0)),
                                  _mm256_set1_pd(2147483647.0));
    }
    return _mm256_cvttpd_epi32(l_Measure);
}

/** Eight values, measured. i_IsHigh: all bits of those of high range. */
template <EKind i_eKind>
TORNVAL_AVX2_INLINE __m256i Measure(__m128i i_Values, __m128i i_IsHigh, const S_LANES& i_Lanes)
{
    const __m256i l_Values = _mm256_cvtepi16_epi32(i_Values);
    if constexpr (i_eKind == KIND_CALIBRATED || i_eKind == KIND_SATURATED) {
        return _mm256_set_m128i(CalibrateFour<i_eKind>(High(l_Values), i_Lanes),
                                CalibrateFour<i_eKind>(Low(l_Values), i_Lanes));
    } else if constexpr (i_eKind == KIND_RANGES) {
        return _mm256_mullo_epi32(l_Values, _mm256_blendv_epi8(i_Lanes.Low, i_Lanes.High,
                                                               _mm256_cvtepi16_epi32(i_IsHigh)));
    } else {
        return _mm256_mullo_epi32(l_Values, i_Lanes.Low);
    }
}

template <EKind i_eKind>
TORNVAL_AVX2_INLINE void MeasureSixteen(__m256i i_Values, __m256i i_IsHigh, const S_LANES& i_Lanes,
                                        int32_t* o_plMeasures)
{
    Store(o_plMeasures, Measure<i_eKind>(Low(i_Values), Low(i_IsHigh), i_Lanes));
    Store(o_plMeasures + 8, Measure<i_eKind>(High(i_Values), High(i_IsHigh), i_Lanes));
}

/** Each half of the vector has sums of its own eight words. */
TORNVAL_AVX2_INLINE __m256i SumEights(__m256i i_Pairs)
{
    i_Pairs = _mm256_add_epi16(i_Pairs, _mm256_bslli_epi128(i_Pairs, 4));
    return _mm256_add_epi16(i_Pairs, _mm256_bslli_epi128(i_Pairs, 8));
}

/** The last word of each half, in all of its words. */
TORNVAL_AVX2_INLINE __m256i LastOfEights(__m256i i_Words)
{
    return _mm256_shuffle_epi8(i_Words, _mm256_set1_epi16(0x0F0E));
}

/** One channel's state, in every word of a vector. */
struct S_ONLY
{
    __m128i Value;
    unsigned ulHigh; /**< 1: high range */
};

/** 32 steps of one channel, with no other code among them, all of the range of before. */
template <EKind i_eKind>
TORNVAL_AVX2_INLINE void DecodeSteps(__m256i i_Bytes, __m256i& io_Value, const S_LANES& i_Lanes,
                                     int32_t* o_plMeasures)
{
    const __m256i l_Size = _mm256_and_si256(i_Bytes, _mm256_set1_epi8(0x3F));
    const __m256i l_Sign = _mm256_or_si256(_mm256_add_epi8(i_Bytes, i_Bytes), _mm256_set1_epi8(1));
    const __m256i l_Steps = _mm256_sign_epi8(l_Size, l_Sign);
    // Two steps fit into a byte, more do not.
    const __m256i l_Pairs = _mm256_add_epi8(l_Steps, _mm256_slli_epi64(l_Steps, 8));
    const __m256i l_Even = SumEights(_mm256_srai_epi16(_mm256_unpacklo_epi8(l_Pairs, l_Pairs), 8));
    __m256i l_Odd = SumEights(_mm256_srai_epi16(_mm256_unpackhi_epi8(l_Pairs, l_Pairs), 8));
    // Eights 0 and 2, then 1 and 3.
    l_Odd = _mm256_add_epi16(l_Odd, LastOfEights(l_Even));
    const __m256i l_Last = LastOfEights(l_Odd);
    const __m256i l_FirstHalf =
        _mm256_add_epi16(_mm256_permute2x128_si256(l_Even, l_Odd, 0x20), io_Value);
    const __m256i l_Middle =
        _mm256_add_epi16(io_Value, _mm256_permute2x128_si256(l_Last, l_Last, 0x00));
    const __m256i l_SecondHalf =
        _mm256_add_epi16(_mm256_permute2x128_si256(l_Even, l_Odd, 0x31), l_Middle);
    io_Value = _mm256_add_epi16(l_Middle, _mm256_permute2x128_si256(l_Last, l_Last, 0x11));
    MeasureSixteen<i_eKind>(l_FirstHalf, l_FirstHalf, i_Lanes, o_plMeasures);
    MeasureSixteen<i_eKind>(l_SecondHalf, l_SecondHalf, i_Lanes, o_plMeasures + 16);
}

/** Spreads sixteen bits over sixteen words. */
TORNVAL_AVX2_INLINE __m256i SpreadBits(unsigned i_ulBits)
{
    const __m256i l_Bits = _mm256_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048,
                                             4096, 8192, 16384, static_cast<int16_t>(0x8000));
    return _mm256_cmpeq_epi16(
        _mm256_and_si256(_mm256_set1_epi16(static_cast<int16_t>(i_ulBits)), l_Bits), l_Bits);
}

/** One bit for each of sixteen words of all bits or none. */
TORNVAL_AVX2_INLINE unsigned GatherBits(__m256i i_Words)
{
    const auto l_ulBits = static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_packs_epi16(i_Words, _mm256_setzero_si256())));
    return (l_ulBits & 0xFFU) | ((l_ulBits >> 8) & 0xFF00U);
}

/** Sixteen words of one channel: values, and the range of each. */
template <EKind i_eKind>
TORNVAL_AVX2_INLINE void DecodeSixteen(__m256i i_Words, S_ONLY& io_Only, const S_LANES& i_Lanes,
                                       int32_t* o_plMeasures)
{
    const S_SAID l_Said = Understand(i_Words);
    const __m256i l_Sums =
        SumEights(_mm256_add_epi16(l_Said.Number, _mm256_bslli_epi128(l_Said.Number, 2)));
    const unsigned l_ulAbsolute = ~GatherBits(l_Said.IsStep) & 0xFFFFU;
    const __m256i l_Places =
        _mm256_set_m128i(LoadHalf(k_aExcessPlaces[l_ulAbsolute >> 8].data()),
                         LoadHalf(k_aExcessPlaces[l_ulAbsolute & 0xFFU].data()));
    const __m256i l_NoneYet = _mm256_cmpeq_epi16(l_Places, _mm256_set1_epi16(-1));
    const __m256i l_Own = _mm256_sub_epi16(l_Sums, _mm256_shuffle_epi8(l_Sums, l_Places));
    // What comes in from before runs on to the end of an eight if it has no absolute code.
    const __m256i l_Last = LastOfEights(l_Own);
    const __m256i l_Through = LastOfEights(l_NoneYet);
    const __m128i l_Middle =
        _mm_add_epi16(Low(l_Last), _mm_and_si128(Low(l_Through), io_Only.Value));
    const __m256i l_Before = _mm256_set_m128i(l_Middle, io_Only.Value);
    io_Only.Value = _mm_add_epi16(High(l_Last), _mm_and_si128(High(l_Through), l_Middle));
    const __m256i l_Values = _mm256_add_epi16(l_Own, _mm256_and_si256(l_NoneYet, l_Before));
    __m256i l_IsHigh = _mm256_setzero_si256();
    if constexpr (i_eKind == KIND_RANGES) {
        // High range runs on through steps as a carry does, and ends at an absolute code of low.
        const unsigned l_ulHigh = GatherBits(HighOf(i_Words, l_Said.IsStep));
        const unsigned l_ulThrough = ~(l_ulAbsolute & ~l_ulHigh) & 0xFFFFU;
        const unsigned l_ulCarries =
            (l_ulHigh + l_ulThrough + io_Only.ulHigh) ^ l_ulHigh ^ l_ulThrough;
        io_Only.ulHigh = (l_ulCarries >> 16) & 1U;
        l_IsHigh = SpreadBits(l_ulCarries >> 1);
    }
    MeasureSixteen<i_eKind>(l_Values, l_IsHigh, i_Lanes, o_plMeasures);
}

/** The words of one channel. */
template <EKind i_eKind>
TORNVAL_AVX2 void DecodeOnlyWords(const uint16_t* i_pusWords, size_t i_ulCount, S_ONLY& io_Only,
                                  const S_LANES& i_Lanes, int32_t* o_plMeasures)
{
    // Kept here while vectors are stored, which might be anything of the caller's.
    S_ONLY l_Only = io_Only;
    const S_LANES l_Lanes = i_Lanes;
    size_t l_ul = 0;
    for (; l_ul + 16 <= i_ulCount; l_ul += 16) {
        DecodeSixteen<i_eKind>(Load(i_pusWords + l_ul), l_Only, l_Lanes, o_plMeasures + l_ul);
    }
    if (l_ul < i_ulCount) {
        int32_t l_alLast[16];
        DecodeSixteen<i_eKind>(Load(i_pusWords + l_ul), l_Only, l_Lanes, l_alLast);
        std::memcpy(o_plMeasures + l_ul, l_alLast, (i_ulCount - l_ul) * sizeof(int32_t));
    }
    io_Only = l_Only;
}

/** Whether any of the words is an absolute code of high range. */
TORNVAL_AVX2 bool HasHigh(const uint16_t* i_pusWords, size_t i_ulCount)
{
    __m256i l_Any = _mm256_setzero_si256();
    for (size_t l_ul = 0; l_ul < i_ulCount; l_ul += 16) {
        const __m256i l_Words = Load(i_pusWords + l_ul);
        l_Any = _mm256_or_si256(l_Any, _mm256_andnot_si256(l_Words, _mm256_slli_epi16(l_Words, 2)));
    }
    // Bit 15 of a word: a step there, and the range moved up.
    return (static_cast<uint32_t>(_mm256_movemask_epi8(l_Any)) & 0xAAAAAAAAU) != 0;
}

/** Decodes a stream of one channel. */
TORNVAL_AVX2 size_t DecodeOnly(const S_STREAM& i_Stream, int32_t* o_plSamples)
{
    alignas(32) uint16_t l_ausWords[k_ulWordRoom];
    S_REST l_Rest{i_Stream.pucData, i_Stream.pucData + i_Stream.ulSize, {}};
    const bool l_bCalibrated = i_Stream.Scaling.bCalibrated;
    const bool l_bFits = NeverSaturates(i_Stream.Scaling, 1);
    const S_LANES l_Lanes = Spread(i_Stream.Scaling.aChannels[0]);
    const size_t l_ulRoom = RoomOf(i_Stream);
    S_ONLY l_Only{_mm_setzero_si128(), 0};
    size_t l_ulTotal = 0;
    for (;;) {
        // Blocks of steps alone go straight through.
        __m256i l_Value = _mm256_broadcastsi128_si256(l_Only.Value);
        S_LANES l_Uniform = l_Lanes;
        l_Uniform.Low = l_Only.ulHigh != 0 ? l_Lanes.High : l_Lanes.Low;
        while (l_Rest.Size() >= k_ulReadAhead && l_ulRoom - l_ulTotal >= k_ulMaskBytes &&
               !l_Rest.Starts.IsInside()) {
            const S_BLOCK l_Block = LoadBlock(l_Rest.pucData);
            if (ClearOf(l_Block) != 0) {
                break;
            }
            int32_t* l_plNext = o_plSamples + l_ulTotal;
            if (l_bCalibrated) {
                DecodeSteps<KIND_SATURATED>(l_Block.First, l_Value, l_Lanes, l_plNext);
                DecodeSteps<KIND_SATURATED>(l_Block.Second, l_Value, l_Lanes, l_plNext + 32);
            } else {
                DecodeSteps<KIND_LOW>(l_Block.First, l_Value, l_Uniform, l_plNext);
                DecodeSteps<KIND_LOW>(l_Block.Second, l_Value, l_Uniform, l_plNext + 32);
            }
            l_Rest.pucData += k_ulMaskBytes;
            l_ulTotal += k_ulMaskBytes;
        }
        l_Only.Value = Low(l_Value);
        const size_t l_ulRead = ReadWordsAvx2(l_Rest, l_ausWords, 0);
        PadWords(l_ausWords + l_ulRead);
        const size_t l_ulPart = std::min(l_ulRead, l_ulRoom - l_ulTotal);
        int32_t* l_plNext = o_plSamples + l_ulTotal;
        if (l_bCalibrated && l_bFits) {
            DecodeOnlyWords<KIND_CALIBRATED>(l_ausWords, l_ulPart, l_Only, l_Lanes, l_plNext);
        } else if (l_bCalibrated) {
            DecodeOnlyWords<KIND_SATURATED>(l_ausWords, l_ulPart, l_Only, l_Lanes, l_plNext);
        } else if (l_Only.ulHigh == 0 && !HasHigh(l_ausWords, l_ulPart)) {
            DecodeOnlyWords<KIND_LOW>(l_ausWords, l_ulPart, l_Only, l_Lanes, l_plNext);
        } else {
            DecodeOnlyWords<KIND_RANGES>(l_ausWords, l_ulPart, l_Only, l_Lanes, l_plNext);
        }
        l_ulTotal += l_ulPart;
        if (l_Rest.Size() == 0 || l_ulTotal == l_ulRoom) {
            return l_ulTotal;
        }
    }
}

// Rounds of the channels stand in rows of 4, 8 or 16 words, and eight rows are turned at a time.
constexpr size_t k_ulRowsRoom = 2048;
struct S_ROWS
{
    alignas(32) uint16_t ausWords[k_ulRowsRoom];
};
static_assert(k_ulWordRoom / 2 * 4 + 32 <= k_ulRowsRoom);

/** Eight rows of four words, turned: a vector for each channel. */
TORNVAL_AVX2_INLINE void TurnFours(const uint16_t* i_pusRows, __m128i (&o_aColumns)[8])
{
    const __m128i l_Pair = _mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    const __m128i l_A = _mm_shuffle_epi8(LoadHalf(i_pusRows), l_Pair);
    const __m128i l_B = _mm_shuffle_epi8(LoadHalf(i_pusRows + 8), l_Pair);
    const __m128i l_C = _mm_shuffle_epi8(LoadHalf(i_pusRows + 16), l_Pair);
    const __m128i l_D = _mm_shuffle_epi8(LoadHalf(i_pusRows + 24), l_Pair);
    const __m128i l_LowAB = _mm_unpacklo_epi32(l_A, l_B);
    const __m128i l_LowCD = _mm_unpacklo_epi32(l_C, l_D);
    const __m128i l_HighAB = _mm_unpackhi_epi32(l_A, l_B);
    const __m128i l_HighCD = _mm_unpackhi_epi32(l_C, l_D);
    o_aColumns[0] = _mm_unpacklo_epi64(l_LowAB, l_LowCD);
    o_aColumns[1] = _mm_unpackhi_epi64(l_LowAB, l_LowCD);
    o_aColumns[2] = _mm_unpacklo_epi64(l_HighAB, l_HighCD);
    o_aColumns[3] = _mm_unpackhi_epi64(l_HighAB, l_HighCD);
}

/** Eight rows, of which eight words each are turned. */
TORNVAL_AVX2_INLINE void TurnEights(const uint16_t* i_pusRows, size_t i_ulWidth,
                                    __m128i (&o_aColumns)[8])
{
    __m128i l_aPairs[8];
    for (size_t l_ul = 0; l_ul < 4; ++l_ul) {
        const __m128i l_First = LoadHalf(i_pusRows + l_ul * 2 * i_ulWidth);
        const __m128i l_Second = LoadHalf(i_pusRows + (l_ul * 2 + 1) * i_ulWidth);
        l_aPairs[l_ul] = _mm_unpacklo_epi16(l_First, l_Second);
        l_aPairs[4 + l_ul] = _mm_unpackhi_epi16(l_First, l_Second);
    }
    for (size_t l_ul = 0; l_ul < 8; l_ul += 4) {
        const __m128i l_LowAB = _mm_unpacklo_epi32(l_aPairs[l_ul], l_aPairs[l_ul + 1]);
        const __m128i l_LowCD = _mm_unpacklo_epi32(l_aPairs[l_ul + 2], l_aPairs[l_ul + 3]);
        const __m128i l_HighAB = _mm_unpackhi_epi32(l_aPairs[l_ul], l_aPairs[l_ul + 1]);
        const __m128i l_HighCD = _mm_unpackhi_epi32(l_aPairs[l_ul + 2], l_aPairs[l_ul + 3]);
        o_aColumns[l_ul] = _mm_unpacklo_epi64(l_LowAB, l_LowCD);
        o_aColumns[l_ul + 1] = _mm_unpackhi_epi64(l_LowAB, l_LowCD);
        o_aColumns[l_ul + 2] = _mm_unpacklo_epi64(l_HighAB, l_HighCD);
        o_aColumns[l_ul + 3] = _mm_unpackhi_epi64(l_HighAB, l_HighCD);
    }
}

/** Turns eight rows, whatever their width, from channel i_ulFirst on. */
template <size_t i_ulWidth>
TORNVAL_AVX2_INLINE void Turn(const uint16_t* i_pusRows, uint32_t i_ulFirst,
                              __m128i (&o_aColumns)[8])
{
    if constexpr (i_ulWidth == 4) {
        TurnFours(i_pusRows, o_aColumns);
    } else {
        TurnEights(i_pusRows + i_ulFirst, i_ulWidth, o_aColumns);
    }
}

/** Turns rows into the measures of each channel. */
template <size_t i_ulWidth, EKind i_eKind>
TORNVAL_AVX2_INLINE void StoreRows(const S_ROWS& i_Values, const S_ROWS& i_IsHigh, size_t i_ulCount,
                                   S_CHANNELS& io_Channels)
{
    const uint32_t l_ulNbChannel = io_Channels.ulNbChannel;
    for (uint32_t l_ulFirst = 0; l_ulFirst < l_ulNbChannel; l_ulFirst += 8) {
        const uint32_t l_ulEnd = std::min(l_ulNbChannel, l_ulFirst + 8);
        const size_t l_ulRows = CountOfChannel(i_ulCount, l_ulNbChannel, l_ulFirst);
        for (size_t l_ulRow = 0; l_ulRow < l_ulRows; l_ulRow += 8) {
            __m128i l_aValues[8];
            __m128i l_aIsHigh[8];
            Turn<i_ulWidth>(i_Values.ausWords + l_ulRow * i_ulWidth, l_ulFirst, l_aValues);
            if constexpr (i_eKind == KIND_RANGES) {
                Turn<i_ulWidth>(i_IsHigh.ausWords + l_ulRow * i_ulWidth, l_ulFirst, l_aIsHigh);
            } else {
                l_aIsHigh[0] = _mm_setzero_si128();
            }
            for (uint32_t l_ul = l_ulFirst; l_ul < l_ulEnd; ++l_ul) {
                int32_t* l_plNext = io_Channels.aplNext[l_ul];
                if (l_plNext == nullptr) {
                    continue;
                }
                const uint32_t l_ulColumn = l_ul - l_ulFirst;
                const __m256i l_Measures = Measure<i_eKind>(
                    l_aValues[l_ulColumn], l_aIsHigh[i_eKind == KIND_RANGES ? l_ulColumn : 0],
                    Spread(io_Channels.Scaling.aChannels[l_ul]));
                const size_t l_ulLeft = CountOfChannel(i_ulCount, l_ulNbChannel, l_ul) - l_ulRow;
                if (l_ulLeft >= 8) {
                    Store(l_plNext, l_Measures);
                    io_Channels.aplNext[l_ul] = l_plNext + 8;
                } else {
                    int32_t l_alLast[8];
                    Store(l_alLast, l_Measures);
                    std::memcpy(l_plNext, l_alLast, l_ulLeft * sizeof(int32_t));
                    io_Channels.aplNext[l_ul] = l_plNext + l_ulLeft;
                }
            }
        }
    }
}

/** Runs the rounds: each value is its number, on top of the round before where it is a step. */
template <size_t i_ulWidth>
TORNVAL_AVX2_INLINE void RunRounds(const uint16_t* i_pusNumbers, const uint16_t* i_pusKeep,
                                   size_t i_ulCount, size_t i_ulNbChannel, uint16_t* io_pusState,
                                   S_ROWS& o_Rows)
{
    uint16_t* l_pusRow = o_Rows.ausWords;
    if constexpr (i_ulWidth <= 8) {
        __m128i l_State = LoadHalf(io_pusState);
        for (size_t l_ul = 0; l_ul < i_ulCount; l_ul += i_ulNbChannel, l_pusRow += i_ulWidth) {
            l_State = _mm_add_epi16(LoadHalf(i_pusNumbers + l_ul),
                                    _mm_and_si128(l_State, LoadHalf(i_pusKeep + l_ul)));
            if constexpr (i_ulWidth == 4) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(l_pusRow), l_State);
            } else {
                StoreHalf(l_pusRow, l_State);
            }
        }
        StoreHalf(io_pusState, l_State);
    } else {
        __m256i l_State = Load(io_pusState);
        for (size_t l_ul = 0; l_ul < i_ulCount; l_ul += i_ulNbChannel, l_pusRow += i_ulWidth) {
            l_State = _mm256_add_epi16(Load(i_pusNumbers + l_ul),
                                       _mm256_and_si256(l_State, Load(i_pusKeep + l_ul)));
            Store(l_pusRow, l_State);
        }
        Store(io_pusState, l_State);
    }
}

template <size_t i_ulWidth>
TORNVAL_AVX2_INLINE void DecodeRounds(uint16_t* io_pusWords, size_t i_ulCount,
                                      S_CHANNELS& io_Channels)
{
    alignas(32) uint16_t l_ausNumbers[k_ulWordRoom + 16];
    alignas(32) uint16_t l_ausKeep[k_ulWordRoom + 16];
    alignas(32) uint16_t l_ausHigh[k_ulWordRoom + 16];
    __m256i l_AnyHigh = Load(io_Channels.ausRanges.data());
    // Sixteen more: the last rounds reach into them.
    for (size_t l_ul = 0; l_ul < i_ulCount + 16; l_ul += 16) {
        const __m256i l_Words = Load(io_pusWords + l_ul);
        const S_SAID l_Said = Understand(l_Words);
        Store(l_ausNumbers + l_ul, l_Said.Number);
        Store(l_ausKeep + l_ul, l_Said.IsStep);
        const __m256i l_IsHigh = HighOf(l_Words, l_Said.IsStep);
        Store(l_ausHigh + l_ul, l_IsHigh);
        l_AnyHigh = _mm256_or_si256(l_AnyHigh, l_IsHigh);
    }
    const size_t l_ulNbChannel = io_Channels.ulNbChannel;
    S_ROWS l_Values;
    RunRounds<i_ulWidth>(l_ausNumbers, l_ausKeep, i_ulCount, l_ulNbChannel,
                         io_Channels.ausValues.data(), l_Values);
    const bool l_bCalibrated = io_Channels.Scaling.bCalibrated;
    if (l_bCalibrated && NeverSaturates(io_Channels.Scaling, io_Channels.ulNbChannel)) {
        StoreRows<i_ulWidth, KIND_CALIBRATED>(l_Values, l_Values, i_ulCount, io_Channels);
    } else if (l_bCalibrated) {
        StoreRows<i_ulWidth, KIND_SATURATED>(l_Values, l_Values, i_ulCount, io_Channels);
    } else if (_mm256_testz_si256(l_AnyHigh, l_AnyHigh) != 0) {
        StoreRows<i_ulWidth, KIND_LOW>(l_Values, l_Values, i_ulCount, io_Channels);
    } else {
        S_ROWS l_IsHigh;
        RunRounds<i_ulWidth>(l_ausHigh, l_ausKeep, i_ulCount, l_ulNbChannel,
                             io_Channels.ausRanges.data(), l_IsHigh);
        StoreRows<i_ulWidth, KIND_RANGES>(l_Values, l_IsHigh, i_ulCount, io_Channels);
    }
}

TORNVAL_AVX2 void DecodeWordsAvx2(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    if (io_Channels.ulNbChannel <= 4) {
        DecodeRounds<4>(io_pusWords, i_ulCount, io_Channels);
    } else if (io_Channels.ulNbChannel <= 8) {
        DecodeRounds<8>(io_pusWords, i_ulCount, io_Channels);
    } else {
        DecodeRounds<16>(io_pusWords, i_ulCount, io_Channels);
    }
}

} // namespace

bool RunsDecodeAvx2()
{
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("popcnt") != 0;
}

size_t DecodeStreamAvx2(const S_STREAM& i_Stream)
{
    // The vectors know no not-a-number; a calibration of numbers gives none.
    for (uint32_t l_ul = 0; i_Stream.Scaling.bCalibrated && l_ul < i_Stream.ulNbChannel; ++l_ul) {
        const S_CHANNEL_SCALE& l_Scale = i_Stream.Scaling.aChannels[l_ul];
        if (!std::isfinite(l_Scale.dA) || !std::isfinite(l_Scale.dB)) {
            return DecodeStreamPortable(i_Stream);
        }
    }
    int32_t* l_plOnly = i_Stream.pplArrays[0];
    if (i_Stream.ulNbChannel > 1) {
        return DecodeInParts(i_Stream, ReadWordsAvx2, DecodeWordsAvx2);
    }
    return l_plOnly != nullptr ? DecodeOnly(i_Stream, l_plOnly) : DecodeStreamPortable(i_Stream);
}

} // namespace tornval

#endif
