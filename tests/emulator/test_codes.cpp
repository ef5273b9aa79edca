#include "Frames.h"
#include "emulator/SampleEncoder.h"

#include <gtest/gtest.h>

using namespace emulator;

TEST(SampleEncoder, WorkedExamples)
{
    const struct
    {
        const char* pszWhat;
        std::vector<S_SAMPLE> vSamples;
        size_t ulChannels;
        Bytes vCodes;
    } l_aCases[] = {
        {"two channels in turn",
         {{256}, {4095, true}, {257}, {4094, true}, {258}, {4095, true}},
         2,
         {0x01, 0x00, 0x2F, 0xFF, 0x81, 0xC1, 0x81, 0x81}},
        {"a first step from 0, a repeat, a range change at the same value",
         {{-63}, {-63}, {-63, true}, {0, true}},
         1,
         {0xFF, 0x80, 0x3F, 0xC1, 0xBF}},
        {"one more than a step", {{64}, {0}}, 1, {0x00, 0x40, 0x00, 0x00}},
        {"ends of the absolute code, and a step past one",
         {{-4096}, {4095}, {4158}},
         1,
         {0x10, 0x00, 0x0F, 0xFF, 0xBF}},
        {"nothing", {}, 3, {}},
    };
    for (const auto& l_Case : l_aCases) {
        const S_ENCODED l_Encoded = EncodeSamples(l_Case.vSamples, l_Case.ulChannels);
        EXPECT_EQ(l_Encoded.vCodes, l_Case.vCodes) << l_Case.pszWhat;
        EXPECT_EQ(l_Encoded.ulSamples, l_Case.vSamples.size()) << l_Case.pszWhat;
    }
}

TEST(SampleEncoder, UnreachableIsRefusedOrClamped)
{
    const std::vector<S_SAMPLE> l_vSamples{{5}, {4096}, {-5000, true}};
    const S_ENCODED l_Refused = EncodeSamples(l_vSamples, 1);
    EXPECT_EQ(l_Refused.ulSamples, 1U);
    EXPECT_EQ(l_Refused.vCodes, Bytes{0x85});
    const S_ENCODED l_Clamped = EncodeSamples(l_vSamples, 1, E_UNREACHABLE::Clamp);
    EXPECT_EQ(l_Clamped.ulSamples, 3U);
    EXPECT_EQ(l_Clamped.ulClamped, 2U);
    EXPECT_EQ(l_Clamped.vCodes, (Bytes{0x85, 0x0F, 0xFF, 0x30, 0x00}));
}
