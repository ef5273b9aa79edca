#include "samples/SampleCode.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

using namespace tornval;

namespace {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<int32_t>;

/** Decodes from and into blocks of exactly the size: a step behind one is a fault. */
Samples Decode(const Bytes& i_vucData, int32_t i_lLow, int32_t i_lHigh)
{
    const size_t l_ulSize = i_vucData.size();
    const auto l_pucData = std::make_unique<uint8_t[]>(l_ulSize);
    const auto l_plSamples = std::make_unique<int32_t[]>(l_ulSize);
    std::copy(i_vucData.begin(), i_vucData.end(), l_pucData.get());
    const size_t l_ulCount =
        DecodeOneChannel(l_pucData.get(), l_ulSize, i_lLow, i_lHigh, l_plSamples.get());
    return {l_plSamples.get(), l_plSamples.get() + l_ulCount};
}

} // namespace

TEST(SampleCode, DecodesOneChannel)
{
    const std::pair<Bytes, Samples> l_aCases[] = {
        {{}, {}},
        {{0x12, 0x34, 0x85, 0xC3, 0x20, 0x10, 0x81, 0x45, 0x67, 0xFF},
         {-14128, -14108, -14120, 1024, 1088, 5532, 5280}},
        {{0xFF}, {-252}}, // a step first: from 0
        {{0x20, 0x02, 0x80, 0xC0, 0x00, 0x02, 0x81}, {128, 128, 128, 8, 12}}, // the range stays
        // The first half of a code at the end gives no sample.
        {{0x81, 0x12}, {4}},
        {{0x12}, {}},
        {{0x12, 0x34, 0x00}, {-14128}}};
    for (const auto& [l_vucData, l_vlSamples] : l_aCases) {
        EXPECT_EQ(Decode(l_vucData, 4, 64), l_vlSamples);
    }
    // Past the range of an absolute code, and around the end of 16 bits.
    Bytes l_vucData{0x0F, 0xFF};
    l_vucData.insert(l_vucData.end(), 455, 0xBF); // 4095 + 455 * 63 = 32760
    l_vucData.insert(l_vucData.end(), {0x87, 0x81, 0xC1});
    const Samples l_vlSamples = Decode(l_vucData, 1, 1);
    EXPECT_EQ(Samples(l_vlSamples.end() - 4, l_vlSamples.end()),
              (Samples{32760, 32767, -32768, 32767}));
    // A product that no coefficient of a probe reaches is no fault either.
    EXPECT_EQ(ScaleSampleValue(0x8000, 0x10000), INT32_MIN);
    EXPECT_EQ(ScaleSampleValue(0x7FFF, INT32_MAX), INT32_MAX - 0x7FFE);
}

TEST(SampleCode, DecodesEveryCodeFromEveryNeighbourhood)
{
    // Against the meaning of the bits, read another way: numbers, not masks.
    for (int l_lFirst = 0; l_lFirst < 256; ++l_lFirst) {
        for (const int l_lSecond : {0, 1, 127, 128, 255}) {
            for (const int l_lPrevious : {0, 1, 4095, 32767, -32768, -1}) {
                S_SAMPLE_STATE l_State{static_cast<uint16_t>(l_lPrevious), 1};
                const uint8_t l_aucCode[2] = {static_cast<uint8_t>(l_lFirst),
                                              static_cast<uint8_t>(l_lSecond)};
                const bool l_bStep = l_lFirst >= 128;
                ASSERT_EQ(DecodeSample(l_aucCode, l_State), l_bStep ? 1U : 2U);
                const int l_lValue =
                    l_bStep ? l_lPrevious + (l_lFirst >= 192 ? -1 : 1) * (l_lFirst % 64)
                            : l_lFirst % 16 * 256 + l_lSecond - l_lFirst / 16 % 2 * 4096;
                ASSERT_EQ(l_State.usValue, static_cast<uint16_t>(l_lValue)) << l_lFirst;
                ASSERT_EQ(l_State.ucRange, l_bStep ? 1 : l_lFirst / 32 % 2) << l_lFirst;
            }
        }
    }
}

TEST(SampleCode, LetsChannelsTakeTurns)
{
    const Bytes l_vucSteps(7, 0x81);
    const std::tuple<Bytes, uint32_t, std::vector<Samples>> l_aCases[] = {
        {{0x01, 0, 0x2F, 0xFF, 0x81, 0xC1, 0x81, 0x81}, 9, {{256, 257, 258}, {4095, 4094, 4095}}},
        {l_vucSteps, 100, {{1, 2, 3, 4}, {1, 2, 3}}}, // one more on the first
        {l_vucSteps, 2, {{1, 2}, {1, 2}}},            // ends at the turn of a full one
        {l_vucSteps, 0, {{}, {}}},
        {l_vucSteps, 2, {{1, 2}}},
        {{0x81, 0x01, 0x02, 0x81, 0x03}, 100, {{1, 2}, {258}}}}; // a half code at the end
    for (const auto& [l_vucData, l_ulMaxSamples, l_vvlExpected] : l_aCases) {
        S_SAMPLE_STATE l_aStates[2];
        int32_t l_alCounts[2] = {};
        std::vector<Samples> l_vvlSamples(l_vvlExpected.size());
        const size_t l_ulTotal = DecodeChannels(
            l_vucData.data(), l_vucData.size(), l_aStates, l_alCounts,
            static_cast<uint32_t>(l_vvlExpected.size()), l_ulMaxSamples,
            [&](uint32_t i_ulChannel, uint32_t i_ulIndex, const S_SAMPLE_STATE& i_State) {
                EXPECT_EQ(i_ulIndex, l_vvlSamples[i_ulChannel].size());
                l_vvlSamples[i_ulChannel].push_back(ScaleSampleValue(i_State.usValue, 1));
            });
        EXPECT_EQ(l_vvlSamples, l_vvlExpected);
        EXPECT_EQ(l_ulTotal, static_cast<size_t>(l_alCounts[0] + l_alCounts[1]));
    }
}
