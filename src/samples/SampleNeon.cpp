// The decoder with vectors of 16 bytes, for 64-bit Arm, where every processor has them. Code words are
// packed eight bytes at a time; the words of a part become values by sums that start anew at each
// absolute code for one channel, round by round for several; values become measures eight at a time.
#include "samples/SampleForms.h"

#ifdef __aarch64__

#include <bit>
#include <cstring>

#include <arm_neon.h>

#include "samples/SamplePlaces.h"

namespace tornval {
namespace {

/** Bytes of the next 64 with bit 7 clear, the first one in bit 0. */
inline uint64_t ClearOf(const uint8_t* i_pucData)
{
    const uint8x16_t l_Bits = vreinterpretq_u8_u64(vdupq_n_u64(0x8040201008040201U));
    uint8x16_t l_aClear[4];
    for (size_t l_ul = 0; l_ul < 4; ++l_ul) {
        l_aClear[l_ul] =
            vandq_u8(vcltq_u8(vld1q_u8(i_pucData + 16 * l_ul), vdupq_n_u8(0x80)), l_Bits);
    }
    // Neighbours are added until each eight bytes are one.
    const uint8x16_t l_Pairs =
        vpaddq_u8(vpaddq_u8(l_aClear[0], l_aClear[1]), vpaddq_u8(l_aClear[2], l_aClear[3]));
    return vgetq_lane_u64(vreinterpretq_u64_u8(vpaddq_u8(l_Pairs, l_Pairs)), 0);
}

// A block reads eight bytes past its own.
constexpr size_t k_ulReadAhead = k_ulMaskBytes + 8;

size_t ReadWordsNeon(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount)
{
    while (i_ulCount < k_ulPartWords && io_Rest.Size() >= k_ulReadAhead) {
        uint64_t l_ullStarts = io_Rest.Starts.Next(ClearOf(io_Rest.pucData)).ullStarts;
        for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 8, l_ullStarts >>= 8) {
            const auto l_ulMask = static_cast<unsigned>(l_ullStarts & 0xFFU);
            const uint8x16_t l_Words = vqtbl1q_u8(vld1q_u8(io_Rest.pucData + l_ul),
                                                  vld1q_u8(k_aWordPlaces[l_ulMask].data()));
            vst1q_u16(o_pusWords + i_ulCount, vreinterpretq_u16_u8(l_Words));
            i_ulCount += static_cast<size_t>(std::popcount(l_ulMask));
        }
        io_Rest.pucData += k_ulMaskBytes;
    }
    return i_ulCount < k_ulPartWords ? ReadLastWords(io_Rest, o_pusWords, i_ulCount) : i_ulCount;
}

/** What eight words say. */
struct S_SAID
{
    int16x8_t Number;  /**< the step, or the value of an absolute code */
    uint16x8_t IsStep; /**< all bits of a step */
};

inline S_SAID Understand(uint16x8_t i_Words)
{
    const int16x8_t l_Words = vreinterpretq_s16_u16(i_Words);
    const uint16x8_t l_IsStep = vcltzq_s16(l_Words);
    const int16x8_t l_Size = vreinterpretq_s16_u16(vshrq_n_u16(vshlq_n_u16(i_Words, 2), 10));
    const uint16x8_t l_IsDown = vcltzq_s16(vshlq_n_s16(l_Words, 1));
    const int16x8_t l_Step = vbslq_s16(l_IsDown, vnegq_s16(l_Size), l_Size);
    const int16x8_t l_Value = vshrq_n_s16(vshlq_n_s16(l_Words, 3), 3);
    return {vbslq_s16(l_IsStep, l_Step, l_Value), l_IsStep};
}

/** All bits of the words that are absolute codes of high range. */
inline uint16x8_t HighOf(uint16x8_t i_Words, uint16x8_t i_IsStep)
{
    return vbicq_u16(vcltzq_s16(vreinterpretq_s16_u16(vshlq_n_u16(i_Words, 2))), i_IsStep);
}

/** Two values, calibrated. The conversion saturates, and makes 0 of not-a-number. */
inline int32x2_t CalibrateTwo(int32x2_t i_Values, const S_CHANNEL_SCALE& i_Scale)
{
    const float64x2_t l_Value = vcvtq_f64_s64(vmovl_s32(i_Values));
    const float64x2_t l_Sum =
        vaddq_f64(vmulq_f64(l_Value, vdupq_n_f64(i_Scale.dA)), vdupq_n_f64(i_Scale.dB));
    return vqmovn_s64(vcvtq_s64_f64(vmulq_f64(l_Sum, vdupq_n_f64(0.0001))));
}

inline int32x4_t MeasureFour(int16x4_t i_Values, uint16x4_t i_IsHigh, bool i_bCalibrated,
                             const S_CHANNEL_SCALE& i_Scale)
{
    const int32x4_t l_Values = vmovl_s16(i_Values);
    if (i_bCalibrated) {
        return vcombine_s32(CalibrateTwo(vget_low_s32(l_Values), i_Scale),
                            CalibrateTwo(vget_high_s32(l_Values), i_Scale));
    }
    const uint32x4_t l_IsHigh = vreinterpretq_u32_s32(vmovl_s16(vreinterpret_s16_u16(i_IsHigh)));
    return vmulq_s32(l_Values,
                     vbslq_s32(l_IsHigh, vdupq_n_s32(i_Scale.lHigh), vdupq_n_s32(i_Scale.lLow)));
}

/** Eight values, measured and stored, or as many of them as are left. */
inline void StoreEight(int16x8_t i_Values, uint16x8_t i_IsHigh, bool i_bCalibrated,
                       const S_CHANNEL_SCALE& i_Scale, size_t i_ulLeft, int32_t*& io_plNext)
{
    const int32x4_t l_First =
        MeasureFour(vget_low_s16(i_Values), vget_low_u16(i_IsHigh), i_bCalibrated, i_Scale);
    const int32x4_t l_Second =
        MeasureFour(vget_high_s16(i_Values), vget_high_u16(i_IsHigh), i_bCalibrated, i_Scale);
    if (i_ulLeft >= 8) {
        vst1q_s32(io_plNext, l_First);
        vst1q_s32(io_plNext + 4, l_Second);
        io_plNext += 8;
    } else {
        int32_t l_alLast[8];
        vst1q_s32(l_alLast, l_First);
        vst1q_s32(l_alLast + 4, l_Second);
        std::memcpy(io_plNext, l_alLast, i_ulLeft * sizeof(int32_t));
        io_plNext += i_ulLeft;
    }
}

/** The state of one channel comes in with the word before, and sums run on from it. */
void DecodeOnlyWords(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    const int16x8_t l_Zero = vdupq_n_s16(0);
    const uint16x8_t l_Bits = {1, 2, 4, 8, 16, 32, 64, 128};
    int16x8_t l_Before = vdupq_n_s16(static_cast<int16_t>(io_Channels.ausValues[0]));
    unsigned l_ulHigh = io_Channels.ausRanges[0] & 1U;
    const S_CHANNEL_SCALE l_Scale = io_Channels.Scaling.aChannels[0];
    const bool l_bCalibrated = io_Channels.Scaling.bCalibrated;
    int32_t* l_plNext = io_Channels.aplNext[0];
    for (size_t l_ul = 0; l_ul < i_ulCount; l_ul += 8) {
        const uint16x8_t l_Words = vld1q_u16(i_pusWords + l_ul);
        const S_SAID l_Said = Understand(l_Words);
        int16x8_t l_Sums = vaddq_s16(l_Said.Number, vextq_s16(l_Zero, l_Said.Number, 7));
        l_Sums = vaddq_s16(l_Sums, vextq_s16(l_Zero, l_Sums, 6));
        l_Sums = vaddq_s16(l_Sums, vextq_s16(l_Zero, l_Sums, 4));
        const unsigned l_ulAbsolute = vaddvq_u16(vbicq_u16(l_Bits, l_Said.IsStep));
        const uint8x16_t l_Places = vld1q_u8(k_aExcessPlaces[l_ulAbsolute].data());
        const uint16x8_t l_NoneYet = vceqq_u16(vreinterpretq_u16_u8(l_Places), vdupq_n_u16(0xFFFF));
        const int16x8_t l_Excess =
            vreinterpretq_s16_u8(vqtbl1q_u8(vreinterpretq_u8_s16(l_Sums), l_Places));
        const int16x8_t l_Values = vaddq_s16(vsubq_s16(l_Sums, l_Excess),
                                             vandq_s16(vreinterpretq_s16_u16(l_NoneYet), l_Before));
        l_Before = vdupq_laneq_s16(l_Values, 7);
        // High range runs on through steps as a carry does, and ends at an absolute code of low.
        const unsigned l_ulIsHigh = vaddvq_u16(vandq_u16(l_Bits, HighOf(l_Words, l_Said.IsStep)));
        const unsigned l_ulThrough = ~(l_ulAbsolute & ~l_ulIsHigh) & 0xFFU;
        const unsigned l_ulCarries =
            (l_ulIsHigh + l_ulThrough + l_ulHigh) ^ l_ulIsHigh ^ l_ulThrough;
        l_ulHigh = (l_ulCarries >> 8) & 1U;
        const uint16x8_t l_IsHigh =
            vtstq_u16(vdupq_n_u16(static_cast<uint16_t>(l_ulCarries >> 1)), l_Bits);
        StoreEight(l_Values, l_IsHigh, l_bCalibrated, l_Scale, i_ulCount - l_ul, l_plNext);
    }
    io_Channels.aplNext[0] = l_plNext;
    io_Channels.ausValues[0] = static_cast<uint16_t>(vgetq_lane_s16(l_Before, 0));
    io_Channels.ausRanges[0] = static_cast<uint16_t>(0U - l_ulHigh);
}

/** Rounds of the channels as rows of sixteen words: each is its numbers, on top of the row before
 *  where they are steps. */
void DecodeRounds(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    constexpr size_t k_ulWidth = 16;
    constexpr size_t k_ulRows = k_ulWordRoom / 2 + 8;
    uint16_t l_ausValues[k_ulRows * k_ulWidth];
    uint16_t l_ausHigh[k_ulRows * k_ulWidth];
    const size_t l_ulNbChannel = io_Channels.ulNbChannel;
    for (size_t l_ulHalf = 0; l_ulHalf < l_ulNbChannel; l_ulHalf += 8) {
        uint16x8_t l_Values = vld1q_u16(io_Channels.ausValues.data() + l_ulHalf);
        uint16x8_t l_IsHigh = vld1q_u16(io_Channels.ausRanges.data() + l_ulHalf);
        size_t l_ulAt = l_ulHalf;
        for (size_t l_ul = 0; l_ul < i_ulCount; l_ul += l_ulNbChannel, l_ulAt += k_ulWidth) {
            const uint16x8_t l_Words = vld1q_u16(i_pusWords + l_ul + l_ulHalf);
            const S_SAID l_Said = Understand(l_Words);
            l_Values =
                vaddq_u16(vreinterpretq_u16_s16(l_Said.Number), vandq_u16(l_Values, l_Said.IsStep));
            l_IsHigh =
                vorrq_u16(HighOf(l_Words, l_Said.IsStep), vandq_u16(l_IsHigh, l_Said.IsStep));
            vst1q_u16(l_ausValues + l_ulAt, l_Values);
            vst1q_u16(l_ausHigh + l_ulAt, l_IsHigh);
        }
        vst1q_u16(io_Channels.ausValues.data() + l_ulHalf, l_Values);
        vst1q_u16(io_Channels.ausRanges.data() + l_ulHalf, l_IsHigh);
    }
    for (uint32_t l_ulChannel = 0; l_ulChannel < l_ulNbChannel; ++l_ulChannel) {
        int32_t*& l_plNext = io_Channels.aplNext[l_ulChannel];
        const size_t l_ulRows = CountOfChannel(i_ulCount, io_Channels.ulNbChannel, l_ulChannel);
        for (size_t l_ulRow = 0; l_plNext != nullptr && l_ulRow < l_ulRows; l_ulRow += 8) {
            uint16_t l_ausColumn[8], l_ausHighColumn[8];
            for (size_t l_ul = 0; l_ul < 8; ++l_ul) {
                const size_t l_ulAt =
                    std::min(l_ulRow + l_ul, l_ulRows - 1) * k_ulWidth + l_ulChannel;
                l_ausColumn[l_ul] = l_ausValues[l_ulAt];
                l_ausHighColumn[l_ul] = l_ausHigh[l_ulAt];
            }
            StoreEight(vreinterpretq_s16_u16(vld1q_u16(l_ausColumn)), vld1q_u16(l_ausHighColumn),
                       io_Channels.Scaling.bCalibrated, io_Channels.Scaling.aChannels[l_ulChannel],
                       l_ulRows - l_ulRow, l_plNext);
        }
    }
}

void DecodeWordsNeon(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    if (io_Channels.ulNbChannel > 1) {
        DecodeRounds(io_pusWords, i_ulCount, io_Channels);
    } else if (io_Channels.aplNext[0] != nullptr) {
        DecodeOnlyWords(io_pusWords, i_ulCount, io_Channels);
    }
}

} // namespace

size_t DecodeStreamNeon(const S_STREAM& i_Stream)
{
    return DecodeInParts(i_Stream, ReadWordsNeon, DecodeWordsNeon);
}

} // namespace tornval

#endif
