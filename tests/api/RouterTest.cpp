// What the configuration makes of a load: real or simulated, probes, files that cannot be read.

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "cecore.h"

namespace {

struct S_CASE
{
    std::string strName;
    std::string strConfiguration;
    int32_t lMask;
    uint32_t ulStatus;
    std::string strLinks;    // link types of the loaded drivers, in order of their IDs
    std::string strReason{}; // the first one: who it is about, and a part of its text
};

/** The case's name stands for it. */
void PrintTo(const S_CASE& i_Case, std::ostream* o_pStream)
{
    *o_pStream << i_Case.strName;
}

class Configuration : public testing::TestWithParam<S_CASE>
{
};

} // namespace

TEST_P(Configuration, DecidesWhatALoadBuilds)
{
    const CTestHome l_Home(GetParam().strConfiguration);
    EXPECT_EQ(LoadMeasDrivers(GetParam().lMask),
              GetParam().ulStatus == 0 ? Done(ROUTER, LOAD) : Failed(ROUTER, LOAD));
    S_DRIVER_INFO l_aInfo[8];
    uint32_t l_ulCount = 0;
    EXPECT_EQ(EnumMeasDrivers(l_aInfo, 8, &l_ulCount), 1U);
    std::string l_strLinks;
    for (uint32_t i = 0; i < l_ulCount; ++i) {
        l_strLinks += std::string(l_aInfo[i].szLinkType) + " ";
    }
    EXPECT_EQ(l_strLinks, GetParam().strLinks);
    CECORE_REASON l_Reason{};
    EXPECT_EQ(CeGetReasons(&l_Reason, 1) != 0,
              GetParam().ulStatus != 0 || !GetParam().strReason.empty());
    const std::string l_strReason = std::string(l_Reason.about) + ": " + l_Reason.text;
    EXPECT_NE(l_strReason.find(GetParam().strReason), std::string::npos) << l_strReason;
}

INSTANTIATE_TEST_SUITE_P(
    Router, Configuration,
    testing::Values(
        S_CASE{"none", "", 0x11, 1, "", "MO: configuration /"}, S_CASE{"noneMask0", "", 0, 0, ""},
        S_CASE{"empty", "\n", 0x11, 1, ""}, S_CASE{"simu", "[IM]\nSIMU=1", 0x11, 0, "IM MO "},
        S_CASE{"simuModule", "[IM]\nSIMU=1", 0x01, 0, "MO "},
        S_CASE{"simuBoard", "[IM]\nSIMU=1", 0x10, 0, "IM "},
        S_CASE{"simuAll", "[IM]\nSIMU=1", -1, 0, "IM MO "},
        S_CASE{"simuNeither", "[IM]\nSIMU=1", ~0x11, 0, "", ": the mask 0xffffffee asks"},
        S_CASE{"simuWord", "[IM]\nSIMU=yes", 0x10, 1, ""},
        S_CASE{"simuNegative", "[IM]\nSIMU=-1", 0x10, 1, ""},
        S_CASE{"simuElsewhere", "[MO]\nSIMU=1\n[IM]\n", 0x01, 1, ""},
        S_CASE{"noLibrary", "[IM]\nDRIVER_NAME=no_such_library.so", 0x11, 1, ""},
        S_CASE{"noLibraryFile", "[IM]\nDRIVER_NAME=TornvalC63.ini", 0x11, 1, ""},
        S_CASE{"longName", "[IM]\nDRIVER_NAME=" + std::string(4000, 'x'), 0x11, 1, ""},
        S_CASE{"binary", std::string("\0\x01[IM]\n\xFF\xFESIMU=\n", 14), 0x11, 1, ""},
        S_CASE{"probes", "[IM]\nSIMU=1\n[BT]\nSIMU=1\nLOAD=1\n[USB]\nSIMU=1\nLOAD=1", 0x10, 0,
               "BT USB IM "},
        S_CASE{"probesOnly", "[BT]\nSIMU=1\nLOAD=1\n[USB]\nSIMU=1\nLOAD=0", 0x02, 0, "BT "},
        S_CASE{"probesMask0", "[BT]\nSIMU=1\nLOAD=1", 0, 0, ""},
        S_CASE{"probesWithoutKey", "[BT]\nSIMU=1\n[USB]\nSIMU=1", -1, 1, ""},
        S_CASE{"probeFails", "[IM]\nSIMU=1\n[BT]\nLOAD=1\nDRIVER_NAME=none", 0x11, 1, "IM MO "}),
    [](const testing::TestParamInfo<S_CASE>& i_Info) { return i_Info.param.strName; });

TEST(Router, ReadsItsKeysOnce)
{
    const CTestHome l_Home("[IM]\nSIMU=1");
    EXPECT_EQ(LoadMeasDrivers(0x10).ulStatus, 0U);
    l_Home.Write("TornvalC63.ini", "[IM]\nSIMU=0\n[LOG]\nENABLE=1");
    EXPECT_EQ(LoadMeasDrivers(0x10).ulStatus, 0U);
    EXPECT_EQ(l_Home.Read("log_tornval.txt"), "");
}
