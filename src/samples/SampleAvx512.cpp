// Up to three channels with vectors of 64 bytes. A block is packed into two planes: the first bytes of its
// codes, and the bytes behind those. Sixteen samples of one channel, a quarter of a vector's bytes, are then
// summed at once, and each takes what its sum lacks from the last absolute code before it.
#include "samples/SampleAvx512.h"

#ifdef __x86_64__

#include <cstring>
#include <utility>

namespace tornval {
namespace {

constexpr size_t k_ulQuarter = 16;

/** Codes that are decoded together: whole quarters of every channel. */
constexpr size_t TogetherOf(uint32_t i_ulNbChannel)
{
    return i_ulNbChannel == 3 ? 48 : 64;
}

/** Codes in their order. */
struct S_PLANES
{
    // A block behind one word less than enough, and what a vector reads or stores behind it.
    static_assert(k_ulPartWords - 1 + 2 * k_ulMaskBytes <= k_ulWordRoom);
    alignas(64) uint8_t aucFirst[k_ulWordRoom];
    alignas(64) uint8_t aucBehind[k_ulWordRoom];
};

TORNVAL_AVX512_INLINE __m512i Load(const void* i_pData)
{
    return _mm512_loadu_si512(i_pData);
}
TORNVAL_AVX512_INLINE void Store(void* o_pData, __m512i i_Vector)
{
    _mm512_storeu_si512(o_pData, i_Vector);
}
TORNVAL_AVX512_INLINE __m512i Bytes(int i_lByte)
{
    return _mm512_set1_epi8(static_cast<char>(i_lByte));
}

/** Packs the codes of a block. @return how many. */
TORNVAL_AVX512_INLINE size_t PackBlock(__m512i i_Bytes, __m512i i_Behind, uint64_t i_ullStarts,
                                       S_PLANES& io_Planes, size_t i_ulCount)
{
    Store(io_Planes.aucFirst + i_ulCount, _mm512_maskz_compress_epi8(i_ullStarts, i_Bytes));
    Store(io_Planes.aucBehind + i_ulCount, _mm512_maskz_compress_epi8(i_ullStarts, i_Behind));
    return static_cast<size_t>(_mm_popcnt_u64(i_ullStarts));
}

/** Reads codes; see ReadWords. */
TORNVAL_AVX512_INLINE size_t ReadPlanes(S_REST& io_Rest, S_PLANES& io_Planes, size_t i_ulCount)
{
    while (i_ulCount < k_ulPartWords && io_Rest.Size() > k_ulMaskBytes) {
        const __m512i l_Bytes = Load(io_Rest.pucData);
        const auto l_Masks = io_Rest.Starts.Next(~_mm512_movepi8_mask(l_Bytes));
        i_ulCount +=
            PackBlock(l_Bytes, Load(io_Rest.pucData + 1), l_Masks.ullStarts, io_Planes, i_ulCount);
        io_Rest.pucData += k_ulMaskBytes;
    }
    const size_t l_ulSize = io_Rest.Size();
    if (i_ulCount < k_ulPartWords && l_ulSize > 0) {
        const uint64_t l_ullRead = ~uint64_t{0} >> (k_ulMaskBytes - l_ulSize);
        const __m512i l_Bytes = _mm512_maskz_loadu_epi8(l_ullRead, io_Rest.pucData);
        const __m512i l_Behind = _mm512_maskz_loadu_epi8(l_ullRead >> 1, io_Rest.pucData + 1);
        const auto l_Masks = io_Rest.Starts.Next(~_mm512_movepi8_mask(l_Bytes));
        // A code that is cut off gives none.
        const uint64_t l_ullWhole = l_ullRead & ~(l_Masks.ullAbsolute & ~(l_ullRead >> 1));
        i_ulCount +=
            PackBlock(l_Bytes, l_Behind, l_Masks.ullStarts & l_ullWhole, io_Planes, i_ulCount);
        io_Rest.pucData = io_Rest.pucEnd;
    }
    return i_ulCount;
}

using Places64 = std::array<uint8_t, 64>;

/**
 * Brings codes of that many channels into quarters of one channel each, by turns.
 *
 * @param i_bWords places for bytes that become words: two vectors that are interleaved lane by lane then
 *                 give a quarter behind the other.
 */
constexpr Places64 MakeQuarters(size_t i_ulNbChannel, bool i_bWords)
{
    Places64 l_aPlaces{};
    for (size_t l_ulQuarter = 0; l_ulQuarter < 4; ++l_ulQuarter) {
        for (size_t l_ul = 0; l_ul < k_ulQuarter; ++l_ul) {
            const size_t l_ulPlace = i_bWords ? 32 * (l_ulQuarter % 2) + 16 * (l_ul / 8) +
                                                    8 * (l_ulQuarter / 2) + l_ul % 8
                                              : k_ulQuarter * l_ulQuarter + l_ul;
            const size_t l_ulRound = k_ulQuarter * (l_ulQuarter / i_ulNbChannel) + l_ul;
            // The fourth quarter of three channels is none of the codes that are decoded together.
            l_aPlaces[l_ulPlace] = static_cast<uint8_t>(
                (i_ulNbChannel * l_ulRound + l_ulQuarter % i_ulNbChannel) % 64);
        }
    }
    return l_aPlaces;
}

alignas(64) constexpr Places64 k_aQuarters[] = {MakeQuarters(1, false), MakeQuarters(2, false),
                                                MakeQuarters(3, false)};
alignas(64) constexpr Places64 k_aWordQuarters[] = {MakeQuarters(1, true), MakeQuarters(2, true),
                                                    MakeQuarters(3, true)};

/** One channel as decoding goes on. */
struct S_WIDE_CHANNEL
{
    __m512i Values;      /**< the last sixteen; the lower half of each lane counts */
    __m512i Coefficient; /**< of its range */
    uint32_t ulHigh;     /**< 1: high range */
    int32_t* plNext;
};

/** The numbers of steps; of what is no step, zero. */
TORNVAL_AVX512_INLINE __m512i StepsOf(__m512i i_First, uint64_t i_ullStep)
{
    const uint64_t l_ullDown = _mm512_cmpge_epu8_mask(i_First, Bytes(0xC0));
    return _mm512_mask_sub_epi8(_mm512_maskz_sub_epi8(l_ullDown, Bytes(0xC0), i_First),
                                i_ullStep & ~l_ullDown, i_First, Bytes(0x80));
}

/** The sum of each four. */
TORNVAL_AVX512_INLINE __m512i SumFours(__m512i i_Steps)
{
    return _mm512_dpbusd_epi32(_mm512_setzero_si512(), Bytes(1), i_Steps);
}

/** Codes that are decoded together, in quarters. They lie in memory: from there a part is spread over a vector
 *  as it is loaded, where a register would take a shuffle. */
struct S_QUARTERS
{
    alignas(64) int8_t acSteps[64];
    alignas(64) int32_t alBefore[16]; /**< for each four of steps, the sum that it adds to */
    alignas(64) int16_t asValues[64]; /**< values of absolute codes */
    /** Absolute codes, a bit each, and the upper half of them once more: every quarter's sixteen are the lower
     *  end of 32 bits that lie in one of the two, and so are loaded before they have reached the cache. */
    uint64_t aullAbsolute[2];
    uint64_t ullHigh; /**< those of high range */

    [[nodiscard]] int32_t AbsoluteUp(size_t i_ulQuarter) const
    {
        int32_t l_lBits = 0;
        std::memcpy(&l_lBits,
                    reinterpret_cast<const uint8_t*>(aullAbsolute) +
                        (i_ulQuarter == 3 ? 10 : 2 * i_ulQuarter),
                    sizeof(l_lBits));
        return l_lBits;
    }
};

/** A quarter of 64 bytes, in every lane. */
TORNVAL_AVX512_INLINE __m512i SpreadQuarter(const void* i_pBytes, size_t i_ulQuarter)
{
    return _mm512_broadcast_i32x4(
        _mm_load_si128(static_cast<const __m128i*>(i_pBytes) + i_ulQuarter));
}

/** The sums of a quarter, up to each of its steps. */
TORNVAL_AVX512_INLINE __m512i SumQuarter(const S_QUARTERS& i_Quarters, size_t i_ulQuarter)
{
    // Each lane sums up to the same step of all four fours.
    const __m512i l_Sums = _mm512_dpbusd_epi32(
        SpreadQuarter(i_Quarters.alBefore, i_ulQuarter),
        _mm512_set_epi64(0x0101010101010101, 0x0101010101010101, 0x0001010100010101,
                         0x0001010100010101, 0x0000010100000101, 0x0000010100000101,
                         0x0000000100000001, 0x0000000100000001),
        SpreadQuarter(i_Quarters.acSteps, i_ulQuarter));
    return _mm512_permutexvar_epi32(
        _mm512_set_epi32(15, 11, 7, 3, 14, 10, 6, 2, 13, 9, 5, 1, 12, 8, 4, 0), l_Sums);
}

/** What there is among the codes, beside steps. */
enum E_AMONG
{
    AMONG_NOTHING,
    AMONG_ABSOLUTE, /**< absolute codes, but no sample is of high range */
    AMONG_RANGES    /**< absolute codes of both ranges */
};

/** Decodes a quarter. */
template <size_t i_ulQuarter, E_AMONG i_eAmong, E_CALIBRATION i_eCalibration>
TORNVAL_AVX512_INLINE void DecodeQuarter(const S_QUARTERS& i_Quarters, S_WIDE_CHANNEL& io_Channel,
                                         const S_WIDE_LANES& i_Lanes, __m512i i_Last,
                                         size_t i_ulOffset)
{
    const __m512i l_Sums = SumQuarter(i_Quarters, i_ulQuarter);
    __m512i l_Lacks = io_Channel.Values;
    if constexpr (i_eAmong == AMONG_NOTHING) {
        l_Lacks = _mm512_permutexvar_epi32(i_Last, l_Lacks);
    } else {
        const __m512i l_UpTo = _mm512_set_epi32(0xFFFF, 0x7FFF, 0x3FFF, 0x1FFF, 0xFFF, 0x7FF, 0x3FF,
                                                0x1FF, 0xFF, 0x7F, 0x3F, 0x1F, 0xF, 0x7, 0x3, 0x1);
        const __m512i l_Own = _mm512_sub_epi32(
            _mm512_cvtepi16_epi32(_mm256_load_si256(
                reinterpret_cast<const __m256i*>(i_Quarters.asValues) + i_ulQuarter)),
            l_Sums);
        // The highest bit up to a sample is the last absolute code; its place counts from 16, in the second
        // table. Where there is none, 32 comes to the last place of the first.
        const __m512i l_Place =
            _mm512_xor_si512(_mm512_lzcnt_epi32(_mm512_and_si512(
                                 _mm512_set1_epi32(i_Quarters.AbsoluteUp(i_ulQuarter)), l_UpTo)),
                             i_Last);
        l_Lacks = _mm512_permutex2var_epi32(l_Lacks, l_Place, l_Own);
    }
    __m512i l_Coefficients = io_Channel.Coefficient;
    if constexpr (i_eAmong == AMONG_RANGES) {
        // High range runs on through steps as a carry does, and ends at an absolute code of low.
        constexpr unsigned k_ulShift = k_ulQuarter * i_ulQuarter;
        const auto l_ulHigh = static_cast<uint32_t>(i_Quarters.ullHigh >> k_ulShift) & 0xFFFFU;
        const auto l_ulLow =
            static_cast<uint32_t>((i_Quarters.aullAbsolute[0] & ~i_Quarters.ullHigh) >> k_ulShift);
        const uint32_t l_ulThrough = ~l_ulLow & 0xFFFFU;
        const uint32_t l_ulCarries =
            (l_ulHigh + l_ulThrough + io_Channel.ulHigh) ^ l_ulHigh ^ l_ulThrough;
        io_Channel.ulHigh = l_ulCarries >> 16;
        const auto l_fnChoose = [&](uint32_t i_ulHigh) TORNVAL_AVX512_ALWAYS {
            return _mm512_mask_blend_epi32(static_cast<__mmask16>(i_ulHigh), i_Lanes.Low,
                                           i_Lanes.High);
        };
        l_Coefficients = l_fnChoose(l_ulCarries >> 1);
        io_Channel.Coefficient = l_fnChoose(0 - io_Channel.ulHigh);
    }
    io_Channel.Values = _mm512_add_epi32(l_Sums, l_Lacks);
    Store(io_Channel.plNext + i_ulOffset,
          MeasureSixteen<i_eCalibration>(io_Channel.Values, l_Coefficients, i_Lanes));
}

/** The quarters of codes that are decoded together, by turns. */
template <E_AMONG i_eAmong, E_CALIBRATION i_eCalibration, uint32_t i_ulNbChannel>
TORNVAL_AVX512_INLINE void
DecodeQuarters(const S_QUARTERS& i_Quarters, S_WIDE_CHANNEL (&io_aChannels)[i_ulNbChannel],
               const S_WIDE_LANES (&i_aLanes)[i_ulNbChannel], __m512i i_Last, size_t i_ulOffset)
{
    const auto l_fnDecode = [&]<size_t i_ulQuarter>() TORNVAL_AVX512_ALWAYS {
        if constexpr (i_ulQuarter < TogetherOf(i_ulNbChannel) / k_ulQuarter) {
            DecodeQuarter<i_ulQuarter, i_eAmong, i_eCalibration>(
                i_Quarters, io_aChannels[i_ulQuarter % i_ulNbChannel],
                i_aLanes[i_ulQuarter % i_ulNbChannel], i_Last,
                i_ulOffset + i_ulQuarter / i_ulNbChannel * k_ulQuarter);
        }
    };
    l_fnDecode.template operator()<0>();
    l_fnDecode.template operator()<1>();
    l_fnDecode.template operator()<2>();
    l_fnDecode.template operator()<3>();
}

/** Lane 15, for shuffles. Kept in its register: made anew in a loop it would take as long as a shuffle. */
TORNVAL_AVX512_INLINE __m512i LastLane()
{
    __m512i l_Last = _mm512_set1_epi32(15);
    asm("" : "+v"(l_Last));
    return l_Last;
}

/** Decodes codes of the planes, and up to TogetherOf - 1 behind i_ulTo: whole quarters. */
template <E_CALIBRATION i_eCalibration, uint32_t i_ulNbChannel>
TORNVAL_AVX512 __attribute__((noinline)) void
DecodePlanes(const S_PLANES& i_Planes, size_t i_ulFrom, size_t i_ulTo,
             S_WIDE_CHANNEL (&io_aChannels)[i_ulNbChannel],
             const S_WIDE_LANES (&i_aLanes)[i_ulNbChannel])
{
    constexpr size_t k_ulTogether = TogetherOf(i_ulNbChannel);
    const __m512i l_Places = Load(k_aQuarters[i_ulNbChannel - 1].data());
    const __m512i l_WordPlaces = Load(k_aWordQuarters[i_ulNbChannel - 1].data());
    const __m512i l_Last = LastLane();
    S_QUARTERS l_Quarters;
    // Kept here while vectors are stored, which might be anything of the caller's.
    S_WIDE_CHANNEL l_aChannels[i_ulNbChannel];
    std::copy_n(io_aChannels, i_ulNbChannel, l_aChannels);
    size_t l_ulOffset = 0;
    for (; i_ulFrom < i_ulTo; i_ulFrom += k_ulTogether) {
        const __m512i l_InTurn = Load(i_Planes.aucFirst + i_ulFrom);
        const __m512i l_First =
            i_ulNbChannel == 1 ? l_InTurn : _mm512_permutexvar_epi8(l_Places, l_InTurn);
        const uint64_t l_ullStep = _mm512_movepi8_mask(l_First);
        const __m512i l_Steps = StepsOf(l_First, l_ullStep);
        const __m512i l_Fours = SumFours(l_Steps);
        Store(l_Quarters.acSteps, l_Steps);
        Store(l_Quarters.alBefore,
              _mm512_add_epi32(_mm512_add_epi32(_mm512_bslli_epi128(l_Fours, 4),
                                                _mm512_bslli_epi128(l_Fours, 8)),
                               _mm512_bslli_epi128(l_Fours, 12)));
        asm("" : "+m"(l_Quarters.acSteps), "+m"(l_Quarters.alBefore));
        const uint64_t l_ullAbsolute = ~l_ullStep & (~uint64_t{0} >> (64 - k_ulTogether));
        if (l_ullAbsolute == 0) {
            DecodeQuarters<AMONG_NOTHING, i_eCalibration>(l_Quarters, l_aChannels, i_aLanes, l_Last,
                                                          l_ulOffset);
        } else {
            const __m512i l_Upper = _mm512_permutexvar_epi8(l_WordPlaces, l_InTurn);
            const __m512i l_Lower =
                _mm512_permutexvar_epi8(l_WordPlaces, Load(i_Planes.aucBehind + i_ulFrom));
            // (upper & 0x1F) ^ 0x10, less 0x10: the sign is spread.
            const __m512i l_Signed = _mm512_sub_epi8(
                _mm512_ternarylogic_epi32(l_Upper, Bytes(0x1F), Bytes(0x10), 0x6A), Bytes(0x10));
            Store(l_Quarters.asValues, _mm512_unpacklo_epi8(l_Lower, l_Signed));
            Store(l_Quarters.asValues + 32, _mm512_unpackhi_epi8(l_Lower, l_Signed));
            l_Quarters.aullAbsolute[0] = l_ullAbsolute;
            l_Quarters.aullAbsolute[1] = l_ullAbsolute >> 32;
            asm("" : "+m"(l_Quarters.asValues), "+m"(l_Quarters.aullAbsolute));
            uint64_t l_ullAnyHigh = 0;
            if constexpr (i_eCalibration == E_CALIBRATION::NONE) {
                l_Quarters.ullHigh = _mm512_test_epi8_mask(l_First, Bytes(0x20)) & l_ullAbsolute;
                l_ullAnyHigh = l_Quarters.ullHigh | l_aChannels[0].ulHigh |
                               l_aChannels[i_ulNbChannel > 1 ? 1 : 0].ulHigh |
                               l_aChannels[i_ulNbChannel - 1].ulHigh;
            }
            if (l_ullAnyHigh == 0) {
                DecodeQuarters<AMONG_ABSOLUTE, i_eCalibration>(l_Quarters, l_aChannels, i_aLanes,
                                                               l_Last, l_ulOffset);
            } else {
                DecodeQuarters<AMONG_RANGES, i_eCalibration>(l_Quarters, l_aChannels, i_aLanes,
                                                             l_Last, l_ulOffset);
            }
        }
        l_ulOffset += k_ulTogether / i_ulNbChannel;
    }
    for (uint32_t l_ul = 0; l_ul < i_ulNbChannel; ++l_ul) {
        io_aChannels[l_ul] = l_aChannels[l_ul];
        io_aChannels[l_ul].plNext += l_ulOffset;
    }
}

/** Blocks of one channel that are steps alone go straight through. @return samples. */
template <E_CALIBRATION i_eCalibration>
TORNVAL_AVX512 size_t DecodeSteps(S_REST& io_Rest, size_t i_ulRoom, S_WIDE_CHANNEL& io_Channel,
                                  const S_WIDE_LANES& i_Lanes)
{
    const __m512i l_Last = LastLane();
    const __m512i l_None = _mm512_setzero_si512();
    const uint8_t* l_pucData = io_Rest.pucData;
    int32_t* const l_plNext = io_Channel.plNext;
    __m512i l_Value = _mm512_permutexvar_epi32(l_Last, io_Channel.Values);
    const __m512i l_Coefficient = io_Channel.Coefficient;
    size_t l_ulCount = 0;
    while (io_Rest.pucEnd - l_pucData >= static_cast<ptrdiff_t>(k_ulMaskBytes) &&
           i_ulRoom - l_ulCount >= k_ulMaskBytes) {
        const __m512i l_Bytes = Load(l_pucData);
        if (_mm512_movepi8_mask(l_Bytes) != ~uint64_t{0}) {
            break;
        }
        const __m512i l_Steps = StepsOf(l_Bytes, ~uint64_t{0});
        const __m512i l_Fours = SumFours(l_Steps);
        __m512i l_Sums = _mm512_add_epi32(l_Fours, _mm512_alignr_epi32(l_Fours, l_None, 15));
        l_Sums = _mm512_add_epi32(l_Sums, _mm512_alignr_epi32(l_Sums, l_None, 14));
        l_Sums = _mm512_add_epi32(l_Sums, _mm512_alignr_epi32(l_Sums, l_None, 12));
        l_Sums = _mm512_add_epi32(l_Sums, _mm512_alignr_epi32(l_Sums, l_None, 8));
        S_QUARTERS l_Quarters;
        Store(l_Quarters.acSteps, l_Steps);
        Store(l_Quarters.alBefore, _mm512_add_epi32(_mm512_sub_epi32(l_Sums, l_Fours), l_Value));
        asm("" : "+m"(l_Quarters.acSteps), "+m"(l_Quarters.alBefore));
        l_Value = _mm512_add_epi32(l_Value, _mm512_permutexvar_epi32(l_Last, l_Sums));
#pragma GCC unroll 4
        for (size_t l_ul = 0; l_ul < 4; ++l_ul) {
            Store(l_plNext + l_ulCount + k_ulQuarter * l_ul,
                  MeasureSixteen<i_eCalibration>(SumQuarter(l_Quarters, l_ul), l_Coefficient,
                                                 i_Lanes));
        }
        l_pucData += k_ulMaskBytes;
        l_ulCount += k_ulMaskBytes;
    }
    io_Channel.Values = l_Value;
    io_Channel.plNext = l_plNext + l_ulCount;
    io_Rest.pucData = l_pucData;
    return l_ulCount;
}

/** Decodes codes that may end within a quarter; for several channels, the last of a stream. */
template <E_CALIBRATION i_eCalibration, uint32_t i_ulNbChannel>
TORNVAL_AVX512 void DecodeRemains(S_PLANES& io_Planes, size_t i_ulFrom, size_t i_ulTo,
                                  S_WIDE_CHANNEL (&io_aChannels)[i_ulNbChannel],
                                  const S_WIDE_LANES (&i_aLanes)[i_ulNbChannel])
{
    int32_t l_aalMeasures[i_ulNbChannel][TogetherOf(i_ulNbChannel) / i_ulNbChannel];
    int32_t* l_aplNext[i_ulNbChannel];
    for (uint32_t l_ul = 0; l_ul < i_ulNbChannel; ++l_ul) {
        l_aplNext[l_ul] = std::exchange(io_aChannels[l_ul].plNext, l_aalMeasures[l_ul]);
    }
    Store(io_Planes.aucFirst + i_ulTo, Bytes(0x80)); // steps of zero, which leave the value
    DecodePlanes<i_eCalibration>(io_Planes, i_ulFrom, i_ulTo, io_aChannels, i_aLanes);
    for (uint32_t l_ul = 0; l_ul < i_ulNbChannel; ++l_ul) {
        const uint32_t l_ulCount = CountOfChannel(i_ulTo - i_ulFrom, i_ulNbChannel, l_ul);
        io_aChannels[l_ul].plNext = std::copy_n(l_aalMeasures[l_ul], l_ulCount, l_aplNext[l_ul]);
    }
}

template <E_CALIBRATION i_eCalibration, uint32_t i_ulNbChannel>
TORNVAL_AVX512 size_t DecodeWide(const S_STREAM& i_Stream)
{
    S_PLANES l_Planes;
    S_WIDE_CHANNEL l_aChannels[i_ulNbChannel];
    S_WIDE_LANES l_aLanes[i_ulNbChannel];
    for (uint32_t l_ul = 0; l_ul < i_ulNbChannel; ++l_ul) {
        l_aLanes[l_ul] = SpreadWide<i_eCalibration>(i_Stream.Scaling.aChannels[l_ul]);
        l_aChannels[l_ul] = {_mm512_setzero_si512(), l_aLanes[l_ul].Low, 0,
                             i_Stream.pplArrays[l_ul]};
    }
    S_REST l_Rest{i_Stream.pucData, i_Stream.pucData + i_Stream.ulSize, {}};
    const size_t l_ulRoom = RoomOf(i_Stream);
    size_t l_ulTotal = 0;
    size_t l_ulRead = 0;
    for (;;) {
        if constexpr (i_ulNbChannel == 1) {
            if (l_Rest.Size() >= k_ulMaskBytes && !l_Rest.Starts.IsInside() &&
                _mm512_movepi8_mask(Load(l_Rest.pucData)) == ~uint64_t{0}) {
                DecodeRemains<i_eCalibration>(l_Planes, 0, l_ulRead, l_aChannels, l_aLanes);
                l_ulTotal += l_ulRead;
                l_ulRead = 0;
                l_ulTotal += DecodeSteps<i_eCalibration>(l_Rest, l_ulRoom - l_ulTotal,
                                                         l_aChannels[0], l_aLanes[0]);
            }
        }
        l_ulRead = ReadPlanes(l_Rest, l_Planes, l_ulRead);
        const size_t l_ulPart = std::min(l_ulRead, l_ulRoom - l_ulTotal);
        const size_t l_ulWhole = l_ulPart - l_ulPart % TogetherOf(i_ulNbChannel);
        DecodePlanes<i_eCalibration>(l_Planes, 0, l_ulWhole, l_aChannels, l_aLanes);
        if (l_Rest.Size() == 0 || l_ulTotal + l_ulPart == l_ulRoom) {
            DecodeRemains<i_eCalibration>(l_Planes, l_ulWhole, l_ulPart, l_aChannels, l_aLanes);
            return l_ulTotal + l_ulPart;
        }
        l_ulTotal += l_ulWhole;
        l_ulRead -= l_ulWhole;
        Store(l_Planes.aucFirst, Load(l_Planes.aucFirst + l_ulWhole));
        Store(l_Planes.aucBehind, Load(l_Planes.aucBehind + l_ulWhole));
    }
}

template <uint32_t i_ulNbChannel>
size_t DecodeCalibrated(const S_STREAM& i_Stream)
{
    switch (CalibrationOf(i_Stream.Scaling, i_ulNbChannel)) {
    case E_CALIBRATION::NONE:
        return DecodeWide<E_CALIBRATION::NONE, i_ulNbChannel>(i_Stream);
    case E_CALIBRATION::WHOLE:
        return DecodeWide<E_CALIBRATION::WHOLE, i_ulNbChannel>(i_Stream);
    case E_CALIBRATION::FITS:
        return DecodeWide<E_CALIBRATION::FITS, i_ulNbChannel>(i_Stream);
    default:
        return DecodeStreamAvx2(i_Stream);
    }
}

} // namespace

bool RunsDecodeAvx512()
{
    return RunsDecodeAvx2() && __builtin_cpu_supports("avx512f") != 0 &&
           __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512cd") != 0 &&
           __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512vbmi") != 0 &&
           __builtin_cpu_supports("avx512vbmi2") != 0 && __builtin_cpu_supports("avx512vnni") != 0;
}

size_t DecodeStreamAvx512(const S_STREAM& i_Stream)
{
    if (i_Stream.ulNbChannel > 3) {
        return DecodeStreamAvx2(i_Stream);
    }
    for (uint32_t l_ul = 0; l_ul < i_Stream.ulNbChannel; ++l_ul) {
        if (i_Stream.pplArrays[l_ul] == nullptr ||
            !HasLanes(i_Stream.Scaling.aChannels[l_ul], i_Stream.Scaling.bCalibrated)) {
            return DecodeStreamAvx2(i_Stream);
        }
    }
    return i_Stream.ulNbChannel == 1   ? DecodeCalibrated<1>(i_Stream)
           : i_Stream.ulNbChannel == 2 ? DecodeCalibrated<2>(i_Stream)
                                       : DecodeCalibrated<3>(i_Stream);
}

} // namespace tornval

#endif
