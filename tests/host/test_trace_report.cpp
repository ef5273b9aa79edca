#include "Configuration.h"
#include "LoadProbe.h"
#include "TraceReport.h"

#include <gtest/gtest.h>

namespace {

/** A log as the library writes it: the first line of each entry has date, tick and thread. */
std::string Log(std::initializer_list<const char*> i_Entries)
{
    std::string l_strLog;
    for (const char* l_pszEntry : i_Entries) {
        l_strLog += std::string("7/4/2026 AT 24:05:09: [123456] [th0000a1b2] ") + l_pszEntry + "\n";
    }
    return l_strLog;
}

TEST(TraceReport, TellsEachDriverItsOwnFailures)
{
    // NOLINTBEGIN(bugprone-suspicious-missing-comma): long entries are written in two pieces.
    const auto l_vLoads = host::ReadLoads(host::ParseTrace(Log({
        "CRouter::LoadMeasDriver> START [INFO_LEVEL]",
        "CRouter::LoadMODriver> START [INFO_LEVEL]",
        "CSerialDriver::LoadDriver> LoadLibrary: rs (last error: 1).so (last error: 126)\n "
        "[ERROR_LEVEL]",
        "C_MilliOhmDriverSerial::CreateDriverInstance> ERROR LoadDriver: rs (last error: 1).so "
        "(last error: 126)\n [ERROR_LEVEL]",
        "CRouter::InitAndAddDriverToMap> ERROR Driver is NULL [INFO_LEVEL]",
        "CRouter::LoadMODriver> STOP status=0 [INFO_LEVEL]",
        "CRouter::LoadIMBDriver> START [INFO_LEVEL]",
        "CIntMeasDriverSerial::GetResult> ERROR:  timeout ou event detruit (cmdeid=D0) "
        "[ERROR_LEVEL]",
        "CRouter::LoadIMBDriver> STOP status=0 [INFO_LEVEL]",
        "CRouter::LoadBTDriver> START [INFO_LEVEL]",
        "CBTProbeDriver::CUSBProbeDriver> Create Driver probe BT error [ERROR_LEVEL]",
        "CRouter::InitAndAddDriverToMap> add driver to the map: id=2000 [INFO_LEVEL]",
        "CRouter::LoadBTDriver> STOP status=1 [INFO_LEVEL]",
        "CRouter::LoadMeasDriver> STOP status=1 [INFO_LEVEL]",
        "CSome::Other> ERROR after it [ERROR_LEVEL]",
    })));
    // NOLINTEND(bugprone-suspicious-missing-comma)
    ASSERT_EQ(l_vLoads.size(), 3U);
    const struct
    {
        const char* pszLinkType;
        bool bUp, bLibraryFailed;
        const char* pszLibrary;
    } l_aExpected[] = {{"MO", false, true, "rs (last error: 1).so"},
                       {"IM", false, false, ""},
                       {"BT", true, true, ""}};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(l_vLoads[i].strLinkType, l_aExpected[i].pszLinkType);
        EXPECT_EQ(l_vLoads[i].bUp, l_aExpected[i].bUp);
        EXPECT_EQ(l_vLoads[i].bLibraryFailed, l_aExpected[i].bLibraryFailed);
        EXPECT_EQ(l_vLoads[i].strLibrary, l_aExpected[i].pszLibrary);
    }
    EXPECT_EQ(l_vLoads[0].vLines.size(), 3U);
    ASSERT_EQ(l_vLoads[0].vReasons.size(), 1U) << "sums of what was said are no reasons";
    EXPECT_NE(l_vLoads[0].vReasons[0].find("library not found"), std::string::npos);
    ASSERT_EQ(l_vLoads[1].vReasons.size(), 1U);
    EXPECT_EQ(l_vLoads[1].vReasons[0],
              "no answer to command 208 (0xD0, initialisation and coefficients) came in time");
}

TEST(TraceReport, PutsTheKnownFailureLinesIntoWords)
{
    const std::pair<const char*, const char*> k_aLines[] = {
        {"CSerialDriver::LoadDriver GetProcAddress: (last error: 127)\n", "lacks an entry point"},
        {"CIntMeasDriverSerial::InitModule> m_pFn_RS_Init return FALSE", "did not open"},
        {"CBTProbeDriver::Init> m_pFn_PBTInit return FALSE (port: 0A)", "port 0A"},
        {"CIntMeasDriverSerial::SendCommand> ERROR echec de la cmde avec status: 9",
         "status word 9"},
        {"CIntMeasDriverSerial::GetResult> device io error(cmdeid=D2)", "command 210 (0xD2"},
        {"C_MilliOhmDriverSerial::GetResult> ERROR: cmde error avec status: 0007 (cmdeid=A1)",
         "status 0007"},
        {"X> taille entete insuffisante (taille: 11  attendue: 12) (cmdeid=D0)",
         "11 bytes, at least 12"},
        {"CIntMeasDriver::CheckFirmwareError> ERROR code de retour du firmware: 0", "code 0"},
        {"CIntMeasDriver::CheckFirmwareError> error code du firmware: 2001", "error 2001"},
        {"X> getCmdOutBuff is NULL or size error: 123 (sizeof(S_DATA) = 12)", "123 bytes"},
    };
    for (const auto& [l_pszLine, l_pszWords] : k_aLines) {
        const std::string l_strText = host::TraceLineInWords(l_pszLine);
        EXPECT_NE(l_strText.find(l_pszWords), std::string::npos) << l_pszLine << ": " << l_strText;
    }
    EXPECT_EQ(host::TraceLineInWords("CNew::Thing> nobody knows"), "");
}

TEST(TraceReport, SurvivesAnyLog)
{
    EXPECT_TRUE(host::ParseTrace("").empty());
    EXPECT_TRUE(host::ParseTrace("no prefix\n [ERROR_LEVEL]\n").empty());
    const auto l_vLines =
        host::ParseTrace("1/1/2026 AT 01:00:00: [1] [th00000001] ent\xEAte [ERROR_LEVEL]\n"
                         "1/1/2026 AT 01:00:00: [1] [th00000001] cut");
    ASSERT_EQ(l_vLines.size(), 2U);
    EXPECT_EQ(l_vLines[0].strText, "entête");
    EXPECT_EQ(l_vLines[0].strLevel, "ERROR_LEVEL");
    EXPECT_EQ(l_vLines[1].strText, "cut");
    EXPECT_EQ(host::ToUtf8("entête"), "entête");
}

TEST(Configuration, FindsKeysAsTheLibraryDoes)
{
    const char* const k_pszText = "DRIVER_NAME=before any section\n[im]\n; DRIVER_NAME=comment\r\n"
                                  " driver_name = \"a b.so\" \r\nDRIVER_NAME=second\nEMPTY=\nBARE\n"
                                  "[IM]\nLATE=1\n[ BT ]\nX=1\n";
    EXPECT_EQ(host::FindKey(k_pszText, "IM", "DRIVER_NAME"), "a b.so");
    EXPECT_EQ(host::FindKey(k_pszText, "IM", "EMPTY"), "");
    EXPECT_EQ(host::FindKey(k_pszText, "IM", "BARE"), "");
    EXPECT_EQ(host::FindKey(k_pszText, "IM", "LATE"), std::nullopt);
    EXPECT_EQ(host::FindKey(k_pszText, "BT", "X"), std::nullopt);
    EXPECT_EQ(host::FindKey("", "IM", "X"), std::nullopt);
}

TEST(ExamineLibrary, NamesEachPlaceAndEachMissingEntryPoint)
{
    const auto l_vFound = host::ExamineLibrary("libm.so.6", "/nowhere", {"cos", "RS_Close"});
    ASSERT_EQ(l_vFound.size(), 3U);
    EXPECT_NE(l_vFound[1].find("loaded"), std::string::npos);
    EXPECT_NE(l_vFound[2].find("RS_Close"), std::string::npos);
    EXPECT_EQ(host::ExamineLibrary("\\nowhere\\x.so", "/h", {}).size(), 1U);
    EXPECT_NE(host::ExamineLibrary("", "/h", {})[0].find("DRIVER_NAME"), std::string::npos);
}

} // namespace
