#include "emulator/Crc.h"
#include "emulator/Recording.h"
#include "emulator/SampleEncoder.h"

#include <gtest/gtest.h>

#include <string_view>

using namespace emulator;

namespace {

using Bytes = std::vector<uint8_t>;

uint16_t CrcOf(std::string_view i_Text)
{
    return ComputeCrc({reinterpret_cast<const uint8_t*>(i_Text.data()), i_Text.size()});
}

} // namespace

TEST(Crc, MatchesKnownValues)
{
    EXPECT_EQ(CrcOf("123456789"), 0x4B37);
    EXPECT_EQ(CrcOf("abc"), 0x5749);
    EXPECT_EQ(CrcOf(""), 0xFFFF);
}

TEST(SampleEncoder, WorkedExamples)
{
    struct
    {
        const char* pszWhat;
        std::vector<S_SAMPLE> vSamples;
        size_t ulChannels;
        Bytes vCodes;
    } const l_aCases[] = {
        {"one channel, both ranges",
         {{-3532}, {-3527}, {-3530}, {16, true}, {17, true}, {1383}, {1320}},
         1,
         {0x12, 0x34, 0x85, 0xC3, 0x20, 0x10, 0x81, 0x05, 0x67, 0xFF}},
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

TEST(SampleEncoder, StepsWrapAtSixteenBits)
{
    CSampleEncoder l_Encoder(1, E_UNREACHABLE::Refuse);
    for (int32_t l_lValue = 0; l_lValue < 32767; l_lValue += 63) {
        ASSERT_TRUE(l_Encoder.Append({static_cast<int16_t>(l_lValue)})) << l_lValue;
    }
    ASSERT_TRUE(l_Encoder.Append({32767}));
    ASSERT_TRUE(l_Encoder.Append({-32768}));
    EXPECT_EQ(l_Encoder.Codes().back(), 0x81);
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

TEST(Recording, PlaysItsColumnsAndStartsOver)
{
    std::string l_strError;
    const auto l_pRecording = CRecording::Load(RECORDING, l_strError);
    ASSERT_NE(l_pRecording, nullptr) << l_strError;
    ASSERT_EQ(l_pRecording->Rows(), 4200U);
    // The first row reads 0 0.013106 -0.502676 -0.231946.
    EXPECT_EQ(l_pRecording->Counts(0, 0), -503);
    EXPECT_EQ(l_pRecording->Counts(0, 1), 13);
    EXPECT_EQ(l_pRecording->Counts(4200, 2), -232);
    EXPECT_EQ(l_pRecording->Counts(0, 3), 0);
    EXPECT_EQ(CRecording::Load("/nowhere", l_strError), nullptr);
    EXPECT_NE(l_strError.find("/nowhere"), std::string::npos);
}
