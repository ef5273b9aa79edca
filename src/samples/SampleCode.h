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
#include <span>

#include "samples/Scaling.h"

namespace tornval {

/** Running state of one channel. */
struct S_SAMPLE_STATE
{
    uint16_t usValue = 0; /**< to be read as 16-bit two's complement */
    uint8_t ucRange = 0;  /**< 0 low, 1 high */
};

/** Decodes one code of which the first byte is read already; a second one stands at its place. */
constexpr size_t DecodeSample(unsigned i_ulFirst, const uint8_t* i_pucSecond,
                              S_SAMPLE_STATE& io_State)
{
    if ((i_ulFirst & 0x80U) != 0) {
        const unsigned l_ulStep = i_ulFirst & 0x3FU;
        const unsigned l_ulPrevious = io_State.usValue;
        io_State.usValue = static_cast<uint16_t>(
            (i_ulFirst & 0x40U) != 0 ? l_ulPrevious - l_ulStep : l_ulPrevious + l_ulStep);
        return 1;
    }
    io_State.usValue = static_cast<uint16_t>(((i_ulFirst & 0x0FU) << 8) | *i_pucSecond |
                                             ((i_ulFirst & 0x10U) != 0 ? 0xF000U : 0U));
    io_State.ucRange = static_cast<uint8_t>((i_ulFirst >> 5) & 1U);
    return 2;
}

/**
 * Decodes one code.
 *
 * @param i_pucCode     its first byte; a second one is read only if the first announces it.
 * @param io_State      the channel's state; becomes the sample.
 * @return length of the code, 1 or 2.
 */
inline size_t DecodeSample(const uint8_t* i_pucCode, S_SAMPLE_STATE& io_State)
{
    return DecodeSample(i_pucCode[0], i_pucCode + 1, io_State);
}

/**
 * Decodes the code at the head of that many bytes. The first byte is read once: what was tested is
 * what is decoded, whoever writes to the bytes meanwhile.
 *
 * @return its length; 0 if no whole code is left.
 */
inline size_t NextSample(const uint8_t* i_pucCode, size_t i_ulSize, S_SAMPLE_STATE& io_State)
{
    if (i_ulSize == 0) {
        return 0;
    }
    const unsigned l_ulFirst = *static_cast<const volatile uint8_t*>(i_pucCode);
    return i_ulSize == 1 && (l_ulFirst & 0x80U) == 0
               ? 0
               : DecodeSample(l_ulFirst, i_pucCode + 1, io_State);
}

/**
 * Decodes a stream of one channel and scales it by a coefficient for each range.
 *
 * @param[out] o_plSamples room for i_ulSize samples: a code takes at least one byte.
 * @return number of samples.
 */
size_t DecodeOneChannel(const uint8_t* i_pucData, size_t i_ulSize, int32_t i_lCoefLow,
                        int32_t i_lCoefHigh, int32_t* o_plSamples);

/** A stream of interleaved channels, and where its measures go. */
struct S_STREAM
{
    const uint8_t* pucData;
    size_t ulSize;
    uint32_t ulNbChannel;  /**< 1 to k_ulMaxScaledChannels */
    uint32_t ulMaxSamples; /**< room in each channel's array; a full one ends the decoding */
    int32_t* const*
        pplArrays; /**< one for each channel, none twice; a null one is counted, not filled */
    const S_SCALING& Scaling;
};

/**
 * Decodes a stream whose scaling is known beforehand, with the fastest form.
 *
 * @return number of samples in all. A channel's turns come round as in DecodeChannels, so its count
 *         follows: CountOfChannel.
 */
size_t DecodeStream(const S_STREAM& i_Stream);

/** Samples of one channel, counted from 0, among that many in all. */
inline uint32_t CountOfChannel(size_t i_ulTotal, uint32_t i_ulNbChannel, uint32_t i_ulChannel)
{
    return static_cast<uint32_t>((i_ulTotal + i_ulNbChannel - 1 - i_ulChannel) / i_ulNbChannel);
}

/** One way to decode a stream. All store the same; they differ in what they ask of the processor. */
struct S_SAMPLE_FORM
{
    const char* pszName;
    bool (*pfnRuns)(); /**< whether this processor has what it takes */
    size_t (*pfnDecode)(const S_STREAM& i_Stream);
};

/** Every form that was compiled, the best first; the last one is portable and always runs. */
std::span<const S_SAMPLE_FORM> SampleForms();

/** Makes DecodeStream use that form, which must run; null: the best again. For tests and benches. */
void UseSampleForm(const S_SAMPLE_FORM* i_pForm);

/**
 * Decodes a stream of interleaved channels, sample by sample.
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
    for (;;) {
        const auto l_ulIndex = static_cast<uint32_t>(io_plCounts[l_ulChannel]);
        const size_t l_ulLength =
            l_ulIndex >= i_ulMaxSamples
                ? 0
                : NextSample(i_pucData + l_ulUsed, i_ulSize - l_ulUsed, io_pStates[l_ulChannel]);
        if (l_ulLength == 0) {
            break;
        }
        l_ulUsed += l_ulLength;
        i_fnStore(l_ulChannel, l_ulIndex, io_pStates[l_ulChannel]);
        ++io_plCounts[l_ulChannel];
        ++l_ulTotal;
        l_ulChannel = l_ulChannel + 1 == i_ulNbChannel ? 0 : l_ulChannel + 1;
    }
    return l_ulTotal;
}

} // namespace tornval
