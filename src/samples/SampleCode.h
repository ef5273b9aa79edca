/**
 * @file SampleCode.h
 * @brief The compact sample code of board and probes, as pure functions over bytes.
 *
 * A stream is a run of codes. Bit 7 of a code's first byte tells its form:
 *  - set, one byte: a step of 0 to 63 (bits 5 to 0), up or (bit 6 set) down, from the previous
 * value of the same channel, whose range stays;
 *  - clear, two bytes: an absolute value, 13-bit two's complement, high bits first (bit 4 the sign,
 *    bits 3 to 0 and the second byte the rest), of high range if bit 5 is set. Bit 6 is not read.
 *
 * Values wrap at 16 bits. Channels take turns code by code, and every stream starts from the value
 * 0 in low range. A stream that ends within a code has one sample less; nothing behind it is read.
 */
#pragma once

#include <cstddef>
#include <cstdint>

namespace tornval {

/** Running state of one channel. */
struct S_SAMPLE_STATE
{
    uint16_t usValue = 0; /**< to be read as 16-bit two's complement */
    uint8_t ucRange = 0;  /**< 0 low, 1 high */
};

/**
 * Decodes one code.
 *
 * @param i_pucCode     its first byte; a second one is read only if the first announces it.
 * @param io_State      the channel's state; becomes the sample.
 * @return length of the code, 1 or 2.
 */
inline size_t DecodeSample(const uint8_t* i_pucCode, S_SAMPLE_STATE& io_State)
{
    const unsigned l_ulFirst = i_pucCode[0];
    if ((l_ulFirst & 0x80U) != 0) {
        const unsigned l_ulStep = l_ulFirst & 0x3FU;
        const unsigned l_ulPrevious = io_State.usValue;
        io_State.usValue = static_cast<uint16_t>(
            (l_ulFirst & 0x40U) != 0 ? l_ulPrevious - l_ulStep : l_ulPrevious + l_ulStep);
        return 1;
    }
    io_State.usValue = static_cast<uint16_t>(((l_ulFirst & 0x0FU) << 8) | i_pucCode[1] |
                                             ((l_ulFirst & 0x10U) != 0 ? 0xF000U : 0U));
    io_State.ucRange = static_cast<uint8_t>((l_ulFirst >> 5) & 1U);
    return 2;
}

/**
 * A sample as a measure: its value as a signed number, times the coefficient of its range.
 *
 * In unsigned arithmetic: a coefficient is 256 at most, but the product may not overflow for any.
 */
inline int32_t ScaleSampleValue(uint16_t i_usValue, int32_t i_lCoef)
{
    const int32_t l_lValue = static_cast<int16_t>(i_usValue);
    return static_cast<int32_t>(static_cast<uint32_t>(l_lValue) * static_cast<uint32_t>(i_lCoef));
}

/** Whether a whole code stands at the head of that many bytes. */
inline bool HoldsWholeCode(const uint8_t* i_pucCode, size_t i_ulSize)
{
    return i_ulSize >= 2 || (i_ulSize == 1 && (i_pucCode[0] & 0x80U) != 0);
}

/**
 * Decodes a stream of one channel and scales it by a coefficient for each range.
 *
 * @param[out] o_plSamples room for i_ulSize samples: a code takes at least one byte.
 * @return number of samples.
 */
size_t DecodeOneChannel(const uint8_t* i_pucData, size_t i_ulSize, int32_t i_lCoefLow,
                        int32_t i_lCoefHigh, int32_t* o_plSamples);

/**
 * Decodes a stream of interleaved channels.
 *
 * @param io_pStates    i_ulNbChannel states, cleared by the caller; at least one channel.
 * @param io_plCounts   i_ulNbChannel counts, cleared by the caller.
 * @param i_ulMaxSamples decoding ends at the turn of a channel that has as many.
 * @param i_fnStore     called as (channel, index in the channel, state) for each sample.
 * @return number of samples in all.
 */
template <typename Store>
size_t DecodeChannels(const uint8_t* i_pucData, size_t i_ulSize, S_SAMPLE_STATE* io_pStates,
                      int32_t* io_plCounts, uint32_t i_ulNbChannel, uint32_t i_ulMaxSamples,
                      Store&& i_fnStore)
{
    size_t l_ulUsed = 0;
    size_t l_ulTotal = 0;
    uint32_t l_ulChannel = 0;
    while (HoldsWholeCode(i_pucData + l_ulUsed, i_ulSize - l_ulUsed)) {
        const auto l_ulIndex = static_cast<uint32_t>(io_plCounts[l_ulChannel]);
        if (l_ulIndex >= i_ulMaxSamples) {
            break;
        }
        l_ulUsed += DecodeSample(i_pucData + l_ulUsed, io_pStates[l_ulChannel]);
        i_fnStore(l_ulChannel, l_ulIndex, io_pStates[l_ulChannel]);
        ++io_plCounts[l_ulChannel];
        ++l_ulTotal;
        l_ulChannel = l_ulChannel + 1 == i_ulNbChannel ? 0 : l_ulChannel + 1;
    }
    return l_ulTotal;
}

} // namespace tornval
