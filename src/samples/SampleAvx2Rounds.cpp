// Several channels with vectors of 32 bytes: the words of a part become values round by round, and rounds
// are turned into channels.
#include "samples/SampleAvx2.h"

#ifdef __x86_64__

#include <cstring>

namespace tornval {
namespace {

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
template <size_t i_ulWidth, E_KIND i_eKind>
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

} // namespace

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

} // namespace tornval

#endif
