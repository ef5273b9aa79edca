// A stream of the compact sample code. The first byte gives the number of channels (bit 0) and how
// many samples a channel takes.
#include "Fuzz.h"

#include <array>
#include <vector>

#include "emulator/SampleEncoder.h"
#include "probes/BareProbe.h"
#include "samples/SampleCode.h"

namespace {

using Samples = std::vector<emulator::S_SAMPLE>;

Samples Decode(const std::vector<uint8_t>& i_vCodes, uint32_t i_ulNbChannel)
{
    std::array<tornval::S_SAMPLE_STATE, 2> l_aStates{};
    std::array<int32_t, 2> l_alCounts{};
    Samples l_vSamples;
    tornval::DecodeChannels(
        i_vCodes.data(), i_vCodes.size(), l_aStates.data(), l_alCounts.data(), i_ulNbChannel,
        0xFFFFFFFF, [&](uint32_t, uint32_t, const tornval::S_SAMPLE_STATE& i_State) {
            l_vSamples.push_back({static_cast<int16_t>(i_State.usValue), i_State.ucRange != 0});
        });
    return l_vSamples;
}

/** What was decoded can be encoded, and decodes to the same. */
void CheckRoundTrip(const std::vector<uint8_t>& i_vCodes, uint32_t i_ulNbChannel)
{
    const Samples l_vSamples = Decode(i_vCodes, i_ulNbChannel);
    const emulator::S_ENCODED l_Encoded = emulator::EncodeSamples(l_vSamples, i_ulNbChannel);
    Require(l_Encoded.ulSamples == l_vSamples.size());
    Require(l_Encoded.vCodes.size() <= i_vCodes.size());
    const Samples l_vAgain = Decode(l_Encoded.vCodes, i_ulNbChannel);
    Require(l_vAgain.size() == l_vSamples.size());
    for (size_t l_ul = 0; l_ul < l_vAgain.size(); ++l_ul) {
        Require(l_vAgain[l_ul].sValue == l_vSamples[l_ul].sValue);
        Require(l_vAgain[l_ul].bHighRange == l_vSamples[l_ul].bHighRange);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    if (i_ulSize == 0) {
        return 0;
    }
    const uint32_t l_ulNbChannel = 1 + (i_pucData[0] & 1U);
    const uint32_t l_ulMaxSamples = i_pucData[0] >> 1;
    const std::vector<uint8_t> l_vCodes(i_pucData + 1, i_pucData + i_ulSize);
    CheckRoundTrip(l_vCodes, l_ulNbChannel);

    CBareProbe l_Probe(l_ulNbChannel);
    std::vector<int32_t> l_vlOne(l_vCodes.size() + 2);
    const uint32_t l_ulOne = l_Probe.DecompressSamplesOneChannel(
        l_vCodes.data(), static_cast<int32_t>(l_vCodes.size()), l_vlOne.data());
    Require(l_ulOne <= l_vCodes.size());

    std::vector<int32_t> l_avlChannels[2] = {std::vector<int32_t>(l_ulMaxSamples),
                                             std::vector<int32_t>(l_ulMaxSamples)};
    int32_t* l_aplChannels[2] = {l_avlChannels[0].data(), l_avlChannels[1].data()};
    int32_t l_alCounts[2] = {};
    const uint32_t l_ulTotal = l_Probe.DecompressSamplesMultiChannel(
        l_vCodes.data(), static_cast<uint32_t>(l_vCodes.size()), l_aplChannels, l_ulNbChannel,
        l_alCounts, l_ulMaxSamples);
    Require(static_cast<int64_t>(l_ulTotal) == int64_t{l_alCounts[0]} + l_alCounts[1]);
    for (const int32_t l_lCount : l_alCounts) {
        Require(l_lCount >= 0 && static_cast<uint32_t>(l_lCount) <= l_ulMaxSamples);
    }
    // One channel by either road.
    for (uint32_t l_ul = 0; l_ulNbChannel == 1 && l_ul < l_ulTotal; ++l_ul) {
        Require(l_avlChannels[0][l_ul] == l_vlOne[l_ul + 2]);
    }
    return 0;
}
