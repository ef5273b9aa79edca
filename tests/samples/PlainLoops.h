/**
 * @file PlainLoops.h
 * @brief The work of the kernels as plain loops: what every form is compared with, and timed against.
 */
#pragma once

#include <vector>

#include "samples/SampleCode.h"

/** What a decoder made of a stream. */
struct S_DECODED
{
    size_t ulTotal = 0;
    std::vector<std::vector<int32_t>> vvlArrays;

    bool operator==(const S_DECODED&) const = default;
};

/** CRC-16/MODBUS, bit by bit. */
inline uint16_t PlainCrc(const uint8_t* i_pucData, size_t i_ulLength)
{
    uint32_t l_ulCrc = 0xFFFF;
    for (; i_ulLength > 0; --i_ulLength) {
        l_ulCrc ^= *i_pucData++;
        for (int l_lBit = 0; l_lBit < 8; ++l_lBit) {
            l_ulCrc = (l_ulCrc & 1U) != 0 ? (l_ulCrc >> 1) ^ 0xA001U : l_ulCrc >> 1;
        }
    }
    return static_cast<uint16_t>(l_ulCrc);
}

/** A sample as the scaling has it. */
inline int32_t PlainScale(const tornval::S_SCALING& i_Scaling, uint32_t i_ulChannel,
                          uint16_t i_usValue, uint8_t i_ucRange)
{
    const tornval::S_CHANNEL_SCALE& l_Scale = i_Scaling.aChannels[i_ulChannel];
    const auto l_sValue = static_cast<int16_t>(i_usValue);
    if (i_Scaling.bCalibrated) {
        const double l_dMeasure = (l_sValue * l_Scale.dA + l_Scale.dB) * 0.0001;
        return l_dMeasure != l_dMeasure      ? 0
               : l_dMeasure <= -2147483648.0 ? INT32_MIN
               : l_dMeasure >= 2147483647.0  ? INT32_MAX
                                             : static_cast<int32_t>(l_dMeasure);
    }
    const int64_t l_llCoef = i_ucRange != 0 ? l_Scale.lHigh : l_Scale.lLow;
    return static_cast<int32_t>(static_cast<uint64_t>(l_sValue * l_llCoef));
}

/** A stream, code by code. @return number of samples. */
inline size_t PlainDecode(const tornval::S_STREAM& i_Stream)
{
    uint16_t l_ausValues[tornval::k_ulMaxScaledChannels] = {};
    uint8_t l_aucRanges[tornval::k_ulMaxScaledChannels] = {};
    uint32_t l_aulCounts[tornval::k_ulMaxScaledChannels] = {};
    size_t l_ulUsed = 0, l_ulTotal = 0;
    uint32_t l_ulChannel = 0;
    while (l_ulUsed < i_Stream.ulSize && l_aulCounts[l_ulChannel] < i_Stream.ulMaxSamples) {
        const uint8_t l_ucFirst = i_Stream.pucData[l_ulUsed];
        uint16_t& l_usValue = l_ausValues[l_ulChannel];
        if ((l_ucFirst & 0x80) != 0) {
            const int l_lStep = l_ucFirst & 0x3F;
            l_usValue = static_cast<uint16_t>((l_ucFirst & 0x40) != 0 ? l_usValue - l_lStep
                                                                      : l_usValue + l_lStep);
            l_ulUsed += 1;
        } else {
            if (l_ulUsed + 1 == i_Stream.ulSize) {
                break;
            }
            l_usValue =
                static_cast<uint16_t>((l_ucFirst & 0x0F) * 256 + i_Stream.pucData[l_ulUsed + 1]);
            if ((l_ucFirst & 0x10) != 0) {
                l_usValue |= 0xF000;
            }
            l_aucRanges[l_ulChannel] = (l_ucFirst & 0x20) != 0 ? 1 : 0;
            l_ulUsed += 2;
        }
        int32_t* l_plArray = i_Stream.pplArrays[l_ulChannel];
        if (l_plArray != nullptr) {
            l_plArray[l_aulCounts[l_ulChannel]] =
                PlainScale(i_Stream.Scaling, l_ulChannel, l_usValue, l_aucRanges[l_ulChannel]);
        }
        ++l_aulCounts[l_ulChannel];
        ++l_ulTotal;
        l_ulChannel = l_ulChannel + 1 == i_Stream.ulNbChannel ? 0 : l_ulChannel + 1;
    }
    return l_ulTotal;
}
