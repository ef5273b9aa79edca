// Several channels with vectors of 32 bytes: the words of a part become values round by round, and rounds
// are turned into channels.
#include "samples/SampleAvx2.h"

#ifdef __x86_64__

#include <cstring>

namespace tornval {
namespace {

// A thread has little stack: where the ranges of samples take as much again as their values, half as many
// words are decoded at a time.
template <bool i_bRanges>
constexpr size_t k_ulMostWords = i_bRanges ? k_ulPartWords / 2 : k_ulWordRoom;

/** Rounds of the channels stand in rows of 4, 8 or 16 words, and eight rows are turned at a time. */
template <bool i_bRanges>
struct S_ROWS
{
    static_assert(k_ulMostWords<i_bRanges> / 9 * 16 + 128 <= k_ulMostWords<i_bRanges> / 2 * 4 + 32);
    alignas(32) uint16_t ausWords[k_ulMostWords<i_bRanges> / 2 * 4 + 32];
};

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

/** Turns eight rows into the measures of up to eight channels. */
template <size_t i_ulWidth, E_KIND i_eKind>
TORNVAL_AVX2_INLINE void MeasureRows(const uint16_t* i_pusValues, const uint16_t* i_pusIsHigh,
                                     uint32_t i_ulFirst, uint32_t i_ulNbChannel,
                                     const S_LANES (&i_aLanes)[8], __m256i (&o_aMeasures)[8])
{
    __m128i l_aValues[8];
    __m128i l_aIsHigh[8]{};
    Turn<i_ulWidth>(i_pusValues, i_ulFirst, l_aValues);
    if constexpr (i_eKind == KIND_RANGES) {
        Turn<i_ulWidth>(i_pusIsHigh, i_ulFirst, l_aIsHigh);
    }
    // Unrolled, columns stay in registers.
#pragma GCC unroll 8
    for (uint32_t l_ul = 0; l_ul < (i_ulWidth == 4 ? 4U : 8U); ++l_ul) {
        if (l_ul == i_ulNbChannel) {
            break;
        }
        o_aMeasures[l_ul] = Measure<i_eKind>(l_aValues[l_ul], l_aIsHigh[l_ul], i_aLanes[l_ul]);
    }
}

/** Turns rows into the measures of each channel. Never inlined: what one kind has on the stack is not there
 *  while another one runs. */
template <size_t i_ulWidth, E_KIND i_eKind>
TORNVAL_AVX2 __attribute__((noinline)) void StoreRows(const uint16_t* i_pusValues,
                                                      const uint16_t* i_pusIsHigh, size_t i_ulCount,
                                                      S_CHANNELS& io_Channels)
{
    const size_t l_ulWhole = i_ulCount / io_Channels.ulNbChannel;
    const size_t l_ulMore = i_ulCount % io_Channels.ulNbChannel; // channels that have one more
    for (uint32_t l_ulFirst = 0; l_ulFirst < io_Channels.ulNbChannel; l_ulFirst += 8) {
        const uint32_t l_ulNbChannel = std::min(io_Channels.ulNbChannel - l_ulFirst, 8U);
        int32_t** const l_pplNext = io_Channels.aplNext.data() + l_ulFirst;
        S_LANES l_aLanes[8];
        for (uint32_t l_ul = 0; l_ul < l_ulNbChannel; ++l_ul) {
            l_aLanes[l_ul] = Spread<i_eKind>(io_Channels.Scaling.aChannels[l_ulFirst + l_ul]);
        }
        __m256i l_aMeasures[8];
        size_t l_ulRow = 0;
        const auto l_fnMeasure = [&]() TORNVAL_AVX2 {
            MeasureRows<i_ulWidth, i_eKind>(i_pusValues + l_ulRow * i_ulWidth,
                                            i_pusIsHigh + l_ulRow * i_ulWidth, l_ulFirst,
                                            l_ulNbChannel, l_aLanes, l_aMeasures);
        };
        for (; l_ulRow + 8 <= l_ulWhole; l_ulRow += 8) {
            l_fnMeasure();
            for (uint32_t l_ul = 0; l_ul < l_ulNbChannel; ++l_ul) {
                if (l_pplNext[l_ul] != nullptr) {
                    Store(l_pplNext[l_ul] + l_ulRow, l_aMeasures[l_ul]);
                }
            }
        }
        l_fnMeasure();
        for (uint32_t l_ul = 0; l_ul < l_ulNbChannel; ++l_ul) {
            const size_t l_ulRows = l_ulWhole + (l_ulFirst + l_ul < l_ulMore ? 1 : 0);
            if (l_pplNext[l_ul] != nullptr) {
                int32_t l_alLast[8];
                Store(l_alLast, l_aMeasures[l_ul]);
                std::memcpy(l_pplNext[l_ul] + l_ulRow, l_alLast,
                            (l_ulRows - l_ulRow) * sizeof(int32_t));
                l_pplNext[l_ul] += l_ulRows;
            }
        }
    }
}

/** The words of a round, and what lies between them and the width of a row. */
template <size_t i_ulWidth>
TORNVAL_AVX2_INLINE auto LoadRow(const uint16_t* i_pusWords)
{
    if constexpr (i_ulWidth == 4) {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(i_pusWords));
    } else if constexpr (i_ulWidth == 8) {
        return LoadHalf(i_pusWords);
    } else {
        return Load(i_pusWords);
    }
}

template <size_t i_ulWidth, typename V>
TORNVAL_AVX2_INLINE void StoreRow(uint16_t* o_pusWords, V i_Words)
{
    if constexpr (i_ulWidth == 4) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(o_pusWords), i_Words);
    } else if constexpr (i_ulWidth == 8) {
        StoreHalf(o_pusWords, i_Words);
    } else {
        Store(o_pusWords, i_Words);
    }
}

TORNVAL_AVX2_INLINE __m128i And(__m128i i_A, __m128i i_B)
{
    return _mm_and_si128(i_A, i_B);
}
TORNVAL_AVX2_INLINE __m256i And(__m256i i_A, __m256i i_B)
{
    return _mm256_and_si256(i_A, i_B);
}
TORNVAL_AVX2_INLINE __m128i Onto(__m128i i_Before, __m128i i_Number, __m128i i_Keep)
{
    return _mm_add_epi16(i_Number, _mm_and_si128(i_Before, i_Keep));
}
TORNVAL_AVX2_INLINE __m256i Onto(__m256i i_Before, __m256i i_Number, __m256i i_Keep)
{
    return _mm256_add_epi16(i_Number, _mm256_and_si256(i_Before, i_Keep));
}

/** Which words of a round keep the value of the round before; of steps alone, all. */
template <size_t i_ulWidth, bool i_bSteps>
TORNVAL_AVX2_INLINE auto LoadKeep(const uint16_t* i_pusKeep)
{
    if constexpr (!i_bSteps) {
        return LoadRow<i_ulWidth>(i_pusKeep);
    } else if constexpr (i_ulWidth <= 8) {
        return _mm_set1_epi16(-1);
    } else {
        return _mm256_set1_epi16(-1);
    }
}

/** Runs the rounds: each value is its number, on top of the round before where it is a step.
 *  @tparam i_bSteps whether all are. */
template <size_t i_ulWidth, bool i_bSteps>
TORNVAL_AVX2_INLINE void RunRounds(const uint16_t* i_pusNumbers, const uint16_t* i_pusKeep,
                                   size_t i_ulCount, size_t i_ulNbChannel, uint16_t* io_pusState,
                                   uint16_t* o_pusRows)
{
    uint16_t* l_pusRow = o_pusRows;
    auto l_State = LoadRow<i_ulWidth>(io_pusState);
    size_t l_ul = 0;
    // Two at a time: the second does not wait for the first.
    for (; l_ul + i_ulNbChannel < i_ulCount; l_ul += 2 * i_ulNbChannel) {
        const auto l_Number = LoadRow<i_ulWidth>(i_pusNumbers + l_ul);
        const auto l_Keep = LoadKeep<i_ulWidth, i_bSteps>(i_pusKeep + l_ul);
        const auto l_NextKeep = LoadKeep<i_ulWidth, i_bSteps>(i_pusKeep + l_ul + i_ulNbChannel);
        const auto l_Both =
            Onto(l_Number, LoadRow<i_ulWidth>(i_pusNumbers + l_ul + i_ulNbChannel), l_NextKeep);
        StoreRow<i_ulWidth>(l_pusRow, Onto(l_State, l_Number, l_Keep));
        l_State = Onto(l_State, l_Both, And(l_Keep, l_NextKeep));
        StoreRow<i_ulWidth>(l_pusRow + i_ulWidth, l_State);
        l_pusRow += 2 * i_ulWidth;
    }
    if (l_ul < i_ulCount) {
        l_State = Onto(l_State, LoadRow<i_ulWidth>(i_pusNumbers + l_ul),
                       LoadKeep<i_ulWidth, i_bSteps>(i_pusKeep + l_ul));
        StoreRow<i_ulWidth>(l_pusRow, l_State);
    }
    StoreRow<i_ulWidth>(io_pusState, l_State);
}

/** @tparam i_bRanges whether the range of a sample counts. */
template <size_t i_ulWidth, bool i_bRanges>
TORNVAL_AVX2_INLINE void DecodeRounds(const uint16_t* i_pusWords, size_t i_ulCount,
                                      S_CHANNELS& io_Channels)
{
    constexpr size_t k_ulRoom = k_ulMostWords<i_bRanges> + 32;
    alignas(32) uint16_t l_ausNumbers[k_ulRoom];
    alignas(32) uint16_t l_ausKeep[k_ulRoom];
    alignas(32) uint16_t l_ausHigh[i_bRanges ? k_ulRoom : 16];
    __m256i l_AnyHigh = Load(io_Channels.ausRanges.data());
    __m256i l_AllSteps = _mm256_set1_epi16(-1);
    // Sixteen more: the last rounds reach into them.
    for (size_t l_ul = 0; l_ul < i_ulCount + 16; l_ul += 16) {
        const __m256i l_Words = Load(i_pusWords + l_ul);
        const S_SAID l_Said = Understand(l_Words);
        Store(l_ausNumbers + l_ul, l_Said.Number);
        Store(l_ausKeep + l_ul, l_Said.IsStep);
        l_AllSteps = _mm256_and_si256(l_AllSteps, l_Said.IsStep);
        if constexpr (i_bRanges) {
            const __m256i l_IsHigh = HighOf(l_Words, l_Said.IsStep);
            Store(l_ausHigh + l_ul, l_IsHigh);
            l_AnyHigh = _mm256_or_si256(l_AnyHigh, l_IsHigh);
        }
    }
    const size_t l_ulNbChannel = io_Channels.ulNbChannel;
    S_ROWS<i_bRanges> l_Values;
    if (_mm256_movemask_epi8(l_AllSteps) == -1) {
        RunRounds<i_ulWidth, true>(l_ausNumbers, l_ausKeep, i_ulCount, l_ulNbChannel,
                                   io_Channels.ausValues.data(), l_Values.ausWords);
    } else {
        RunRounds<i_ulWidth, false>(l_ausNumbers, l_ausKeep, i_ulCount, l_ulNbChannel,
                                    io_Channels.ausValues.data(), l_Values.ausWords);
    }
    if constexpr (!i_bRanges) {
        if (io_Channels.eCalibration == E_CALIBRATION::WHOLE) {
            StoreRows<i_ulWidth, KIND_WHOLE>(l_Values.ausWords, l_Values.ausWords, i_ulCount,
                                             io_Channels);
        } else if (io_Channels.eCalibration == E_CALIBRATION::FITS) {
            StoreRows<i_ulWidth, KIND_FITS>(l_Values.ausWords, l_Values.ausWords, i_ulCount,
                                            io_Channels);
        } else {
            StoreRows<i_ulWidth, KIND_SATURATES>(l_Values.ausWords, l_Values.ausWords, i_ulCount,
                                                 io_Channels);
        }
    } else if (_mm256_testz_si256(l_AnyHigh, l_AnyHigh) != 0) {
        StoreRows<i_ulWidth, KIND_LOW>(l_Values.ausWords, l_Values.ausWords, i_ulCount,
                                       io_Channels);
    } else {
        S_ROWS<i_bRanges> l_IsHigh;
        RunRounds<i_ulWidth, false>(l_ausHigh, l_ausKeep, i_ulCount, l_ulNbChannel,
                                    io_Channels.ausRanges.data(), l_IsHigh.ausWords);
        StoreRows<i_ulWidth, KIND_RANGES>(l_Values.ausWords, l_IsHigh.ausWords, i_ulCount,
                                          io_Channels);
    }
}

template <size_t i_ulWidth, bool i_bRanges>
TORNVAL_AVX2 void DecodeAll(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    // Whole rounds, but for the last.
    const size_t l_ulMost =
        k_ulMostWords<i_bRanges> - k_ulMostWords<i_bRanges> % io_Channels.ulNbChannel;
    for (; i_ulCount > 0;) {
        const size_t l_ulPart = std::min(i_ulCount, l_ulMost);
        DecodeRounds<i_ulWidth, i_bRanges>(i_pusWords, l_ulPart, io_Channels);
        i_pusWords += l_ulPart;
        i_ulCount -= l_ulPart;
    }
}

template <bool i_bRanges>
void DecodeWide(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    if (io_Channels.ulNbChannel <= 4) {
        DecodeAll<4, i_bRanges>(i_pusWords, i_ulCount, io_Channels);
    } else if (io_Channels.ulNbChannel <= 8) {
        DecodeAll<8, i_bRanges>(i_pusWords, i_ulCount, io_Channels);
    } else {
        DecodeAll<16, i_bRanges>(i_pusWords, i_ulCount, io_Channels);
    }
}

} // namespace

void DecodeWordsAvx2(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    if (io_Channels.eCalibration == E_CALIBRATION::NONE) {
        DecodeWide<true>(io_pusWords, i_ulCount, io_Channels);
    } else {
        DecodeWide<false>(io_pusWords, i_ulCount, io_Channels);
    }
}

} // namespace tornval

#endif
