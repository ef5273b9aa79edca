// One channel with vectors of 32 bytes. A block of 64 bytes becomes code words, packed; the words of a part
// become values by sums that start anew at each absolute code, and values become measures, eight or
// sixteen at a time.
#include "samples/SampleAvx2.h"

#ifdef __x86_64__

#include <bit>
#include <cmath>
#include <cstring>

#include "samples/SamplePlaces.h"

namespace tornval {
namespace {

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

/** The highest bit of each byte. */
TORNVAL_AVX2_INLINE uint64_t TopsOf(const S_BLOCK& i_Block)
{
    const auto l_ulFirst = static_cast<uint32_t>(_mm256_movemask_epi8(i_Block.First));
    const auto l_ulSecond = static_cast<uint32_t>(_mm256_movemask_epi8(i_Block.Second));
    return l_ulFirst | (uint64_t{l_ulSecond} << 32);
}

TORNVAL_AVX2_INLINE uint64_t ClearOf(const S_BLOCK& i_Block)
{
    return ~TopsOf(i_Block);
}

/** Bit 5 of each byte, which of an absolute code tells the range. */
TORNVAL_AVX2_INLINE uint64_t RangesOf(const S_BLOCK& i_Block)
{
    return TopsOf({_mm256_slli_epi16(i_Block.First, 2), _mm256_slli_epi16(i_Block.Second, 2)});
}

/** Packs the words that start in eight bytes; behind them stand some without a meaning. */
TORNVAL_AVX2_INLINE void PackEight(const uint8_t* i_pucData, uint64_t i_ullStarts,
                                   uint16_t* o_pusWords)
{
    StoreHalf(o_pusWords, _mm_shuffle_epi8(LoadHalf(i_pucData),
                                           LoadHalf(k_aWordPlaces[i_ullStarts & 0xFFU].data())));
}

/** Packs the words of a block. @return the end of them. */
TORNVAL_AVX2_INLINE uint16_t* PackWords(const uint8_t* i_pucData, uint64_t i_ullStarts,
                                        uint16_t* o_pusWords)
{
    // Each place is counted from the start of the block: no eight waits for the one before.
    PackEight(i_pucData, i_ullStarts, o_pusWords);
#pragma GCC unroll 8
    for (unsigned l_ul = 1; l_ul < 8; ++l_ul) {
        PackEight(i_pucData + 8 * static_cast<size_t>(l_ul), i_ullStarts >> (8 * l_ul),
                  o_pusWords + __builtin_popcountll(i_ullStarts << (64 - 8 * l_ul)));
    }
    return o_pusWords + __builtin_popcountll(i_ullStarts);
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
        const S_BLOCK l_Block = LoadBlock(l_Rest.pucData);
        const auto l_Masks = l_Rest.Starts.Next(ClearOf(l_Block));
        l_Rest.ullHigh |= l_Masks.ullAbsolute & RangesOf(l_Block);
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
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE void DecodeSteps(__m256i i_Bytes, __m256i& io_Value, const S_LANES& i_Lanes,
                                     int32_t* o_plMeasures)
{
    const __m256i l_Size = _mm256_and_si256(i_Bytes, _mm256_set1_epi8(0x3F));
    // Bit 6 becomes the sign; without any bit it is a step of zero.
    const __m256i l_Steps = _mm256_sign_epi8(l_Size, _mm256_add_epi8(i_Bytes, i_Bytes));
    // Every other value is a sum of pairs, and the one before it is less by a step.
    const __m256i l_Pairs = _mm256_maddubs_epi16(_mm256_set1_epi8(1), l_Steps);
    const __m256i l_Sums = SumEights(_mm256_add_epi16(l_Pairs, _mm256_bslli_epi128(l_Pairs, 2)));
    const __m256i l_Last = LastOfEights(l_Sums);
    const __m256i l_Middle =
        _mm256_add_epi16(io_Value, _mm256_permute2x128_si256(l_Last, l_Last, 0x00));
    const __m256i l_Odd = _mm256_add_epi16(l_Sums, _mm256_blend_epi32(io_Value, l_Middle, 0xF0));
    const __m256i l_Even = _mm256_sub_epi16(l_Odd, _mm256_srai_epi16(l_Steps, 8));
    io_Value = _mm256_add_epi16(l_Middle, _mm256_permute2x128_si256(l_Last, l_Last, 0x11));
    // Eights 0 and 2, then 1 and 3.
    const __m256i l_First = _mm256_unpacklo_epi16(l_Even, l_Odd);
    const __m256i l_Second = _mm256_unpackhi_epi16(l_Even, l_Odd);
    MeasureEights<i_eKind>(l_First, l_First, i_Lanes, o_plMeasures, o_plMeasures + 16);
    MeasureEights<i_eKind>(l_Second, l_Second, i_Lanes, o_plMeasures + 8, o_plMeasures + 24);
}

// One bit for each of sixteen words lies in bytes 0 and 2 of a mask: each half of a vector gathers
// into bytes of its own, and nothing has to be put together.
constexpr uint32_t k_ulFirstEight = 0xFF;
constexpr int k_lSecondEight = 16;
constexpr uint32_t k_ulBothEights = 0x00FF00FF;

/** Two kinds of bits of sixteen words: those of the second stand in bytes 1 and 3. */
TORNVAL_AVX2_INLINE uint32_t GatherBits(__m256i i_First, __m256i i_Second)
{
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_packs_epi16(i_First, i_Second)));
}

/** Spreads sixteen bits over sixteen words. */
TORNVAL_AVX2_INLINE __m256i SpreadBits(uint32_t i_ulBits)
{
    const __m128i l_Bit = _mm_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128);
    const __m256i l_Bits = _mm256_broadcastsi128_si256(l_Bit);
    const __m256i l_Own =
        _mm256_shuffle_epi8(_mm256_set1_epi32(static_cast<int>(i_ulBits)),
                            _mm256_set_m128i(_mm_set1_epi16(0x0302), _mm_set1_epi16(0x0100)));
    return _mm256_cmpeq_epi16(_mm256_and_si256(l_Own, l_Bits), l_Bits);
}

/** Sixteen words of one channel: values, and the range of each. */
template <E_KIND i_eKind>
TORNVAL_AVX2_INLINE void DecodeSixteen(__m256i i_Words, S_ONLY& io_Only, const S_LANES& i_Lanes,
                                       int32_t* o_plMeasures)
{
    const S_SAID l_Said = Understand(i_Words);
    const __m256i l_Sums =
        SumEights(_mm256_add_epi16(l_Said.Number, _mm256_bslli_epi128(l_Said.Number, 2)));
    const uint32_t l_ulBits =
        GatherBits(l_Said.IsStep, i_eKind == KIND_RANGES ? HighOf(i_Words, l_Said.IsStep)
                                                         : _mm256_setzero_si256());
    const uint32_t l_ulAbsolute = ~l_ulBits & k_ulBothEights;
    const __m256i l_Places =
        _mm256_set_m128i(LoadHalf(k_aExcessPlaces[l_ulAbsolute >> k_lSecondEight].data()),
                         LoadHalf(k_aExcessPlaces[l_ulAbsolute & k_ulFirstEight].data()));
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
        // It runs through the byte between the eights, too.
        const uint32_t l_ulHigh = (l_ulBits >> 8) & k_ulBothEights;
        const uint32_t l_ulThrough = ~(l_ulAbsolute & ~l_ulHigh) & 0x00FFFFFFU;
        const uint32_t l_ulCarries =
            (l_ulHigh + l_ulThrough + io_Only.ulHigh) ^ l_ulHigh ^ l_ulThrough;
        io_Only.ulHigh = l_ulCarries >> 24;
        l_IsHigh = SpreadBits(l_ulCarries >> 1);
    }
    MeasureEights<i_eKind>(l_Values, l_IsHigh, i_Lanes, o_plMeasures, o_plMeasures + 8);
}

/** The words of one channel. */
template <E_KIND i_eKind>
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

/** Decodes a stream of one channel. i_eSteps: how a sample of low range becomes a measure; i_eKind: how one
 *  does whose range is not known. */
template <E_KIND i_eSteps, E_KIND i_eKind>
TORNVAL_AVX2 size_t DecodeOnly(const S_STREAM& i_Stream, int32_t* o_plSamples)
{
    alignas(32) uint16_t l_ausWords[k_ulWordRoom];
    S_REST l_Rest{i_Stream.pucData, i_Stream.pucData + i_Stream.ulSize, {}};
    const S_LANES l_Lanes = Spread<i_eKind>(i_Stream.Scaling.aChannels[0]);
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
            if (_mm256_movemask_epi8(_mm256_and_si256(l_Block.First, l_Block.Second)) != -1) {
                break;
            }
            int32_t* l_plNext = o_plSamples + l_ulTotal;
            DecodeSteps<i_eSteps>(l_Block.First, l_Value, l_Uniform, l_plNext);
            DecodeSteps<i_eSteps>(l_Block.Second, l_Value, l_Uniform, l_plNext + 32);
            l_Rest.pucData += k_ulMaskBytes;
            l_ulTotal += k_ulMaskBytes;
        }
        l_Only.Value = Low(l_Value);
        l_Rest.ullHigh = l_Only.ulHigh;
        const size_t l_ulRead = ReadWordsAvx2(l_Rest, l_ausWords, 0);
        PadWords(l_ausWords + l_ulRead);
        const size_t l_ulPart = std::min(l_ulRead, l_ulRoom - l_ulTotal);
        int32_t* const l_plNext = o_plSamples + l_ulTotal;
        auto* l_pfnDecode = &DecodeOnlyWords<i_eKind>;
        if constexpr (i_eSteps != i_eKind) {
            if (l_Rest.ullHigh == 0) {
                l_pfnDecode = &DecodeOnlyWords<i_eSteps>;
            }
        }
        l_pfnDecode(l_ausWords, l_ulPart, l_Only, l_Lanes, l_plNext);
        l_ulTotal += l_ulPart;
        if (l_Rest.Size() == 0 || l_ulTotal == l_ulRoom) {
            return l_ulTotal;
        }
    }
}

size_t DecodeOnly(const S_STREAM& i_Stream, int32_t* o_plSamples)
{
    switch (CalibrationOf(i_Stream.Scaling, 1)) {
    case E_CALIBRATION::NONE:
        return DecodeOnly<KIND_LOW, KIND_RANGES>(i_Stream, o_plSamples);
    case E_CALIBRATION::WHOLE:
        return DecodeOnly<KIND_WHOLE, KIND_WHOLE>(i_Stream, o_plSamples);
    case E_CALIBRATION::FITS:
        return DecodeOnly<KIND_FITS, KIND_FITS>(i_Stream, o_plSamples);
    default:
        return DecodeOnly<KIND_SATURATES, KIND_SATURATES>(i_Stream, o_plSamples);
    }
}

} // namespace

bool HasLanes(const S_CHANNEL_SCALE& i_Scale, bool i_bCalibrated)
{
    const auto l_fnIsShort = [](int32_t i_lCoef) {
        return static_cast<int16_t>(i_lCoef) == i_lCoef;
    };
    return i_bCalibrated ? std::isfinite(i_Scale.dA) && std::isfinite(i_Scale.dB)
                         : l_fnIsShort(i_Scale.lLow) && l_fnIsShort(i_Scale.lHigh);
}

bool RunsDecodeAvx2()
{
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("popcnt") != 0;
}

size_t DecodeStreamAvx2(const S_STREAM& i_Stream)
{
    for (uint32_t l_ul = 0; l_ul < i_Stream.ulNbChannel; ++l_ul) {
        if (!HasLanes(i_Stream.Scaling.aChannels[l_ul], i_Stream.Scaling.bCalibrated)) {
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
