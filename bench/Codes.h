/**
 * @file Codes.h
 * @brief Streams of the sample code to measure with.
 */
#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "emulator/SampleEncoder.h"

/** A random walk: steps to that many of 100 samples, jumps to the others. */
inline std::vector<emulator::S_SAMPLE> MakeSamples(size_t i_ulCount, unsigned i_ulSteps,
                                                   size_t i_ulNbChannel)
{
    std::mt19937 l_Random(42);
    std::vector<emulator::S_SAMPLE> l_vSamples(i_ulNbChannel);
    while (l_vSamples.size() < i_ulCount) {
        const int l_lPrevious = l_vSamples[l_vSamples.size() - i_ulNbChannel].sValue;
        const bool l_bStep = l_Random() % 100 < i_ulSteps;
        const int l_lStep = static_cast<int>(l_Random() % 127) - 63;
        const int l_lValue =
            l_bStep ? l_lPrevious + l_lStep : static_cast<int>(l_Random() % 8000) - 4000;
        l_vSamples.push_back({static_cast<int16_t>(std::clamp(l_lValue, -4096, 4095)), false});
    }
    l_vSamples.resize(i_ulCount);
    return l_vSamples;
}

/** The same as codes, of that many bytes. */
inline std::vector<uint8_t> MakeCodes(size_t i_ulBytes, unsigned i_ulSteps, size_t i_ulNbChannel)
{
    std::vector<uint8_t> l_vCodes =
        emulator::EncodeSamples(MakeSamples(i_ulBytes, i_ulSteps, i_ulNbChannel), i_ulNbChannel)
            .vCodes;
    l_vCodes.resize(i_ulBytes);
    return l_vCodes;
}
