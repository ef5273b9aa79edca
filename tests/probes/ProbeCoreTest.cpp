#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "probes/BareProbe.h"
#include "support/Trace.h"

using namespace tornval;

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
        EXPECT_EQ(l_Result, l_Case.ulStatus == 0
                                ? Done(BT_PROBE, RESULT)
                                : Failed(BT_PROBE, RESULT, {.ulFirmware = l_Case.ulFwStatus}));
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
    EXPECT_EQ(l_Result, Failed(ROUTER, NO_STEP));
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
        EXPECT_EQ(l_Result, l_bRefused ? Failed(ROUTER, NO_STEP, {.ulFirmware = l_ulFwStatus})
                                       : Done(ROUTER, NO_STEP));
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
