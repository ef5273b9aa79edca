// Every form of the kernels against the plain loops, and the emulator's encoder against every form.
// The first three bytes choose channels, room and scaling; the rest is the stream.
#include "Fuzz.h"

#include <algorithm>
#include <bit>
#include <vector>

#include "emulator/SampleEncoder.h"
#include "samples/PlainLoops.h"
#include "wire/Crc16.h"

namespace {

using Bytes = std::vector<uint8_t>;

template <typename Decode>
S_DECODED Run(Decode&& i_fnDecode, const Bytes& i_vCodes, uint32_t i_ulChannels,
              uint32_t i_ulMaxSamples, const tornval::S_SCALING& i_Scaling)
{
    S_DECODED l_Decoded;
    l_Decoded.vvlArrays.assign(i_ulChannels, std::vector<int32_t>(i_ulMaxSamples));
    std::vector<int32_t*> l_vplArrays;
    for (auto& l_vlArray : l_Decoded.vvlArrays) {
        l_vplArrays.push_back(l_vlArray.data());
    }
    l_Decoded.ulTotal =
        i_fnDecode(tornval::S_STREAM{i_vCodes.data(), i_vCodes.size(), i_ulChannels, i_ulMaxSamples,
                                     l_vplArrays.data(), i_Scaling});
    return l_Decoded;
}

void CheckForms(const Bytes& i_vCodes, uint32_t i_ulChannels, uint32_t i_ulMaxSamples,
                const tornval::S_SCALING& i_Scaling)
{
    const S_DECODED l_Expected =
        Run(PlainDecode, i_vCodes, i_ulChannels, i_ulMaxSamples, i_Scaling);
    for (const tornval::S_SAMPLE_FORM& l_Form : tornval::SampleForms()) {
        Require(!l_Form.pfnRuns() || Run(l_Form.pfnDecode, i_vCodes, i_ulChannels, i_ulMaxSamples,
                                         i_Scaling) == l_Expected);
    }
    const uint16_t l_usCrc = PlainCrc(i_vCodes.data(), i_vCodes.size());
    for (const wire::S_CRC_FORM& l_Form : wire::CrcForms()) {
        Require(!l_Form.pfnRuns() ||
                l_Form.pfnCompute(i_vCodes.data(), i_vCodes.size()) == l_usCrc);
    }
}

/** The bytes as samples, encoded, are what each form decodes. */
void CheckEncoder(const Bytes& i_vBytes, uint32_t i_ulChannels)
{
    std::vector<emulator::S_SAMPLE> l_vSamples;
    for (size_t l_ul = 0; l_ul + 1 < i_vBytes.size(); l_ul += 2) {
        const int l_lWord = i_vBytes[l_ul] << 8 | i_vBytes[l_ul + 1];
        l_vSamples.push_back(
            {static_cast<int16_t>((l_lWord & 0x1FFF) - 4096), (l_lWord & 0x2000) != 0});
    }
    const emulator::S_ENCODED l_Encoded = emulator::EncodeSamples(l_vSamples, i_ulChannels);
    Require(l_Encoded.ulSamples == l_vSamples.size());
    tornval::S_SCALING l_Scaling;
    for (tornval::S_CHANNEL_SCALE& l_Scale : l_Scaling.aChannels) {
        l_Scale.lHigh = 100'000;
    }
    for (const tornval::S_SAMPLE_FORM& l_Form : tornval::SampleForms()) {
        if (!l_Form.pfnRuns()) {
            continue;
        }
        const S_DECODED l_Decoded = Run(l_Form.pfnDecode, l_Encoded.vCodes, i_ulChannels,
                                        static_cast<uint32_t>(l_vSamples.size()), l_Scaling);
        Require(l_Decoded.ulTotal == l_vSamples.size());
        for (size_t l_ul = 0; l_ul < l_vSamples.size(); ++l_ul) {
            const emulator::S_SAMPLE& l_Sample = l_vSamples[l_ul];
            Require(l_Decoded.vvlArrays[l_ul % i_ulChannels][l_ul / i_ulChannels] ==
                    l_Sample.sValue * (l_Sample.bHighRange ? 100'000 : 1));
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    if (i_ulSize < 3) {
        return 0;
    }
    const uint32_t l_ulChannels = 1 + i_pucData[0] % tornval::k_ulMaxScaledChannels;
    const Bytes l_vCodes(i_pucData + 3, i_pucData + i_ulSize);
    // No more room than a stream can use, or, for some, less.
    const auto l_ulFull =
        static_cast<uint32_t>((l_vCodes.size() + l_ulChannels - 1) / l_ulChannels);
    const uint32_t l_ulMaxSamples =
        i_pucData[1] < 128 ? l_ulFull : std::min<uint32_t>(l_ulFull, i_pucData[1] - 128U);
    tornval::S_SCALING l_Scaling;
    l_Scaling.bCalibrated = (i_pucData[2] & 1U) != 0;
    for (uint32_t l_ul = 0; l_ul < l_Scaling.aChannels.size(); ++l_ul) {
        const auto l_lSeed = static_cast<int32_t>((i_pucData[2] + 1U) * (l_ul + 1) * 2654435761U);
        // Wild numbers for some, some of them not numbers at all.
        l_Scaling.aChannels[l_ul] = {
            l_lSeed >> (i_pucData[2] % 24), l_lSeed,
            (i_pucData[2] & 2U) != 0
                ? std::bit_cast<double>(uint64_t{static_cast<uint32_t>(l_lSeed)} << 32)
                : l_lSeed % 30000,
            static_cast<double>(l_lSeed)};
    }
    CheckForms(l_vCodes, l_ulChannels, l_ulMaxSamples, l_Scaling);
    CheckEncoder(l_vCodes, l_ulChannels);
    return 0;
}
