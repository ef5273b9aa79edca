#include <random>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "emulator/SampleEncoder.h"
#include "probes/BareProbe.h"
#include "support/Trace.h"

using namespace tornval;
using emulator::S_SAMPLE;

namespace {

using Bytes = std::vector<uint8_t>;
using Values = std::vector<int32_t>;

constexpr int32_t k_lUntouched = 0x5AA55AA5;

bool Manage(CBareProbe& io_Probe, const Bytes& i_vReply, int32_t* o_plSize, int32_t* o_plProcessed,
            S_RESULT& io_Result)
{
    return io_Probe.RollingCmdeResultManagement(static_cast<uint32_t>(i_vReply.size()),
                                                reinterpret_cast<const char*>(i_vReply.data()),
                                                o_plSize, o_plProcessed, io_Result);
}

} // namespace

TEST(ProbeCore, RollingReply)
{
    const std::string l_strRolling = "CProbeDriver::RollingCmdeResultManagement> ";
    const Bytes l_vOne{33, 10, 0, 0, 0x12, 0x34, 0x85, 0xC3, 0x20, 0x10, 0x81, 0x45, 0x67, 0xFF};
    const Values l_vlOne{7, 0, -14128, -14108, -14120, 1024, 1088, 5532, 5280};
    const Bytes l_vTwo{33, 8, 0, 0, 1, 0, 0x2F, 0xFF, 0x81, 0xC1, 0x81, 0x81};
    const Values l_vlTwo{3, 3, 1024, 1028, 1032, 1048320, 1048064, 1048320};
    struct
    {
        uint32_t ulNbChannel;
        Bytes vReply;
        uint32_t ulFwStatus, ulStatus;
        Values vlProcessed;  // empty: untouched
        std::string strLine; // empty: none
    } const l_aCases[] = {
        {1, l_vOne, 0, 0, l_vlOne, ""},
        {2, l_vTwo, 0, 0, l_vlTwo, ""},
        {2, {33, 3, 0, 0, 0x81, 0x82, 0x83}, 0, 0, {2, 1, 4, 16, 32}, ""},
        // A byte behind the data, no data, a last code that is cut.
        {1, {33, 1, 0, 0, 0x81, 0x81}, 0, 0, {1, 0, 4}, ""},
        {1, {33, 0, 0, 0}, 0, 0, {0, 0}, ""},
        {2, {33, 0, 0, 0}, 0, 0, {0, 0}, ""},
        {1, {33, 2, 0, 0, 0x81, 0x12}, 0, 0, {1, 0, 4}, ""},
        {2, {33, 2, 0, 0, 0x81, 0x12}, 0, 0, {1, 0, 4}, ""},
        {1, {33, 1, 0, 44, 0x81}, 44, 1, {1, 0, 4}, "status error: 44 (2C)"},
        {2, {33, 1, 0, 48, 0x81}, 48, 1, {1, 0, 4}, "status error: 48 (30)"},
        {1, {33, 1, 0, 1, 0x81}, 1, 1, {}, "status error: 1 (01)"},
        {2, {33, 1, 0, 255, 0x81}, 255, 1, {}, "status error: 255 (FF)"},
        {1, {33, 2, 0, 0, 0x81}, 0, 1, {}, "data size error: 2 in a reply of 5"},
        {2, {33, 0xFF, 0xFF, 0}, 0, 1, {}, "data size error: 65535 in a reply of 4"},
        {1, {33, 1, 0}, 0, 1, {}, "reply size error: 3"},
        {2, {33}, 0, 1, {}, "reply size error: 1"},
        {1, {}, 0, 1, {}, "parameter error"},
    };
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(&l_Case - l_aCases);
        const CTestHome l_Home;
        SetTraceLog(std::make_unique<CTraceLogFile>("\\hd00\\log_tornval.txt", ERROR_LEVEL));
        CBareProbe l_Probe(l_Case.ulNbChannel);
        Bytes l_vReply = l_Case.vReply;
        l_vReply.reserve(1);
        // As much room as the contract asks for, and a fence.
        Values l_vlProcessed(l_vReply.size() + 3, k_lUntouched);
        int32_t l_lSize = 0;
        S_RESULT l_Result{1, 5, 0, 0, 0};
        EXPECT_EQ(Manage(l_Probe, l_vReply, &l_lSize, l_vlProcessed.data(), l_Result),
                  l_Case.ulStatus == 0);
        EXPECT_EQ(l_Result, (S_RESULT{1, 5, 0, l_Case.ulFwStatus, l_Case.ulStatus}));
        EXPECT_EQ(l_lSize, static_cast<int32_t>(l_Case.vlProcessed.size()));
        Values l_vlExpected = l_Case.vlProcessed;
        l_vlExpected.resize(l_vlProcessed.size(), k_lUntouched);
        EXPECT_EQ(l_vlProcessed, l_vlExpected);
        std::vector<std::string> l_vstrLines;
        if (!l_Case.strLine.empty()) {
            l_vstrLines.push_back(l_strRolling + l_Case.strLine + " [ERROR_LEVEL]");
        }
        EXPECT_EQ(l_Home.TraceLines(), l_vstrLines);
        SetTraceLog(nullptr);
    }
}

TEST(ProbeCore, TwoChannelsAddToTheSizeAndNullPointersFail)
{
    CBareProbe l_Probe(2);
    const Bytes l_vReply{33, 1, 0, 0, 0x81};
    int32_t l_alProcessed[5] = {};
    int32_t l_lSize = std::numeric_limits<int32_t>::max();
    S_RESULT l_Result{};
    EXPECT_TRUE(Manage(l_Probe, l_vReply, &l_lSize, l_alProcessed, l_Result));
    EXPECT_EQ(l_lSize, std::numeric_limits<int32_t>::min() + 2);
    l_lSize = 100;
    EXPECT_TRUE(Manage(l_Probe, l_vReply, &l_lSize, l_alProcessed, l_Result));
    EXPECT_EQ(l_lSize, 103);
    EXPECT_FALSE(Manage(l_Probe, l_vReply, nullptr, l_alProcessed, l_Result));
    EXPECT_FALSE(Manage(l_Probe, l_vReply, &l_lSize, nullptr, l_Result));
    EXPECT_EQ(l_Result, (S_RESULT{0, 0, 0, 0, 1}));
}

TEST(ProbeCore, StripResultHeader)
{
    const std::tuple<Bytes, uint32_t, Bytes> l_aCases[] = {
        {{22, 0, 0, 0}, 0, {22, 0, 0, 0}},
        {{22, 1, 0, 0, 7}, 0, {7, 0, 0, 0, 0}},
        {{22, 6, 0, 0, 1, 2, 3, 4, 5, 6}, 0, {1, 2, 3, 4, 5, 6, 0, 0, 0, 0}},
        {{22, 1, 0, 0xFF, 7}, 0xFFFFFFFF, {22, 1, 0, 0xFF, 7}},
        {{22, 1, 0, 0x7F, 7}, 0x7F, {22, 1, 0, 0x7F, 7}},
    };
    CBareProbe l_Probe;
    S_RESULT l_Result{};
    for (auto [l_vReply, l_ulFwStatus, l_vAfter] : l_aCases) {
        const bool l_bRefused = l_vReply == l_vAfter;
        l_Result = {};
        l_Probe.StripResultHeader(reinterpret_cast<char*>(l_vReply.data()),
                                  static_cast<uint32_t>(l_vReply.size()), l_Result);
        EXPECT_EQ(l_Result, (S_RESULT{0, 0, 0, l_ulFwStatus, l_bRefused ? 1U : 0U}));
        EXPECT_EQ(l_vReply, l_vAfter);
    }
    EXPECT_EQ(l_Probe.StripResultHeader(nullptr, 8, l_Result).ulStatus, 1U);
}

TEST(ProbeCore, ScaleSample)
{
    CBareProbe l_One(1), l_Two(2);
    int32_t l_lValue = k_lUntouched;
    l_One.ScaleSample(&l_lValue, 1, 0, 1);
    l_Two.ScaleSample(&l_lValue, 2, 0, 1);
    l_Two.ScaleSample(nullptr, 0, 0, 1);
    EXPECT_EQ(l_lValue, k_lUntouched);
    l_Two.ScaleSample(&l_lValue, 1, 7, 0x8000);
    EXPECT_EQ(l_lValue, -8388608);
}

TEST(ProbeCore, EncoderAndDecoderAgreeOnRandomWalks)
{
    constexpr uint32_t k_ulSeed = 20240611;
    SCOPED_TRACE("seed " + std::to_string(k_ulSeed));
    std::mt19937 l_Random(k_ulSeed);
    const auto l_fnDraw = [&](int i_lFrom, int i_lTo) {
        return std::uniform_int_distribution<int>(i_lFrom, i_lTo)(l_Random);
    };
    size_t l_ulWraps = 0;
    for (uint32_t l_ulWalk = 0; l_ulWalk < 20; ++l_ulWalk) {
        const uint32_t l_ulNbChannel = 1 + l_ulWalk % 2;
        std::vector<S_SAMPLE> l_vWalk, l_vLast(l_ulNbChannel);
        Values l_avlMeasures[2];
        int l_lDrift = 0;
        while (l_vWalk.size() < 60000) {
            const size_t l_ulChannel = l_vWalk.size() % l_ulNbChannel;
            S_SAMPLE& l_Sample = l_vLast[l_ulChannel];
            // Long drifts lead past both ends of the 16 bits, which only steps reach.
            l_lDrift = l_fnDraw(0, 4000) == 0 ? l_fnDraw(-50, 50) : l_lDrift;
            if (l_fnDraw(0, 2000) == 0) {
                l_Sample = {static_cast<int16_t>(l_fnDraw(-4096, 4095)), l_fnDraw(0, 1) != 0};
            } else {
                const int l_lNext = l_Sample.sValue + l_lDrift + l_fnDraw(-13, 13);
                l_ulWraps += l_lNext != static_cast<int16_t>(l_lNext) ? 1 : 0;
                l_Sample.sValue = static_cast<int16_t>(l_lNext);
            }
            l_vWalk.push_back(l_Sample);
            l_avlMeasures[l_ulChannel].push_back(l_Sample.sValue * (l_Sample.bHighRange ? 16 : 1) *
                                                 (l_ulChannel == 0 ? 4 : 16));
        }
        const emulator::S_ENCODED l_Encoded = emulator::EncodeSamples(l_vWalk, l_ulNbChannel);
        ASSERT_EQ(l_Encoded.ulSamples, l_vWalk.size());
        Bytes l_vReply{33, 0, 0, 0};
        wire::WriteLe16(l_vReply.data() + 1, static_cast<uint16_t>(l_Encoded.vCodes.size()));
        l_vReply.insert(l_vReply.end(), l_Encoded.vCodes.begin(), l_Encoded.vCodes.end());
        CBareProbe l_Probe(l_ulNbChannel);
        Values l_vlProcessed(l_vReply.size());
        int32_t l_lSize = 0;
        S_RESULT l_Result{};
        ASSERT_TRUE(Manage(l_Probe, l_vReply, &l_lSize, l_vlProcessed.data(), l_Result));
        l_vlProcessed.resize(static_cast<size_t>(l_lSize));
        Values l_vlExpected;
        for (const Values& l_vlMeasures : l_avlMeasures) {
            l_vlExpected.push_back(static_cast<int32_t>(l_vlMeasures.size()));
        }
        for (const Values& l_vlMeasures : l_avlMeasures) {
            l_vlExpected.insert(l_vlExpected.end(), l_vlMeasures.begin(), l_vlMeasures.end());
        }
        // Not as an equality that prints: a difference would print all numbers.
        ASSERT_TRUE(l_vlProcessed == l_vlExpected) << l_ulWalk;
    }
    EXPECT_GT(l_ulWraps, 20U);
}
