// The simulated board and module: replay of data files, constants, refusals.

#include <memory>

#include <unistd.h>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "platform/Memory.h"
#include "simulation/IntMeasDriverSimu.h"
#include "simulation/MilliOhmDriverSerialSimu.h"

using namespace tornval;

namespace {

constexpr int32_t k_lUntouched = 424242;
constexpr const char* k_pszNoBuffer = "Error allocation: LastError=0 [ERROR_LEVEL]";

/** A simulated board over a data file, and what its uploads deliver. */
class CReplay
{
public:
    CReplay(const std::string& i_strData, const std::string& i_strMore = "",
            const std::string& i_strFile = "data.txt")
    {
        m_Home.Write("data.txt", i_strData);
        m_Home.Write("TornvalC63.ini", "[LOG]\n[IM]\nDAT_SIMU_FILE=" +
                                           (i_strFile.starts_with('/') || i_strFile.empty()
                                                ? i_strFile
                                                : m_Home.Path(i_strFile)) +
                                           "\n" + i_strMore);
        SetTraceLog(std::make_unique<CTraceLogFile>("\\hd00\\log_tornval.txt", 0x1111));
        m_pBoard = std::make_unique<CIntMeasDriverSimu>();
    }

    S_RESULT Send(uint8_t i_ucCmdeID)
    {
        S_SEND_STRUCT l_Cmde = MakeCommand(i_ucCmdeID, 0, 4);
        return Driver().SendCommand(&l_Cmde, &m_Receive, nullptr, 0);
    }
    S_RESULT Upload()
    {
        EXPECT_EQ(Send(211).ulStatus, 0U);
        EXPECT_EQ(GetNbReturnByte(m_Receive), 900U);
        std::fill_n(m_vlData.begin(), m_vlData.size(), k_lUntouched);
        m_lSize = -1;
        return Driver().GetResult(900, m_acRaw, &m_lSize, m_vlData.data(), 0, 1);
    }
    [[nodiscard]] int32_t At(size_t i_ulChannel, size_t i_ulRow) const
    {
        return m_vlData[3 + i_ulChannel * 300 + i_ulRow];
    }
    /** A fetch of what was sent last, without room for samples. */
    S_RESULT Fetch(char* o_pcRaw)
    {
        return Driver().GetResult(900, o_pcRaw, nullptr, nullptr, 0, 1);
    }
    CMeasDriver& Driver() { return *m_pBoard; }

    CTestHome m_Home;
    std::unique_ptr<CIntMeasDriverSimu> m_pBoard;
    S_RECEIVE_STRUCT m_Receive{};
    char m_acRaw[900] = {1};
    std::vector<int32_t> m_vlData = std::vector<int32_t>(904);
    int32_t m_lSize = 0;
};

std::string Rows(int i_lCount)
{
    std::string l_strText;
    for (int i = 0; i < i_lCount; ++i) {
        l_strText +=
            std::to_string(i) + " " + std::to_string(i) + " -" + std::to_string(i) + " 0\n";
    }
    return l_strText;
}

} // namespace

TEST(SimuBoard, ReadsNumbersWhateverSeparatesThem)
{
    const struct
    {
        const char* pszText; // what is no number in front of the first one reads as 0
        bool bDelivers;
        int32_t l0, l1, l2; // first sample of each channel, correction 2
    } l_aCases[] = {{"0 1.5 2.5 3\n", true, 2500, 1500, 1228},
                    {"0 1.5 2.5 3", false, 0, 0, 0},
                    {"0,1.5;2.5\r\n\r\n3\xE9", true, 2500, 1500, 1228},
                    {"1 2 -1.2345 0\n", true, -1234, 2000, 1234},
                    {" 0 1.5 2.5 3\n", true, 1500, 0, 1229},
                    {"0 1.5e3 2.5 3\n", true, 3000, 1500, 1229},
                    {"0 - . 1.2.3\n", true, 0, 0, 1231},
                    {"0 --5 5-3 -.5 x", true, 5000, 0, 1235},
                    {"0 999999999999 -999999999999 0\n", true, INT32_MIN, INT32_MAX, 1234},
                    {"1 2 3\n", false, 0, 0, 0},
                    {"no number at all\n", false, 0, 0, 0},
                    {"", false, 0, 0, 0}};
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.pszText);
        CReplay l_Replay(l_Case.pszText, "SIMU_KELNOR_PROBE_CORRECTION=2\n");
        EXPECT_EQ(l_Replay.Upload().ulStatus, 0U);
        EXPECT_EQ(l_Replay.m_acRaw[0], 0);
        EXPECT_EQ(l_Replay.m_lSize, l_Case.bDelivers ? 900 : 0);
        if (l_Case.bDelivers) {
            EXPECT_EQ(l_Replay.m_vlData[0] + l_Replay.m_vlData[1] + l_Replay.m_vlData[2], 900);
            for (const size_t l_ulRow : {0U, 299U}) {
                EXPECT_EQ(l_Replay.At(0, l_ulRow), l_Case.l0);
                EXPECT_EQ(l_Replay.At(1, l_ulRow), l_Case.l1);
                EXPECT_EQ(l_Replay.At(2, l_ulRow), l_Case.l2);
            }
            EXPECT_EQ(l_Replay.m_vlData[903], k_lUntouched);
        } else {
            EXPECT_EQ(l_Replay.m_vlData[0], k_lUntouched);
        }
    }
    // Infinite, and not a number any more without a correction.
    CReplay l_Infinite("0 0 0 " + std::string(400, '9') + "\n");
    l_Infinite.Upload();
    EXPECT_EQ(l_Infinite.At(2, 0), 0);
}

TEST(SimuBoard, WrapsAtTheEndAndRewinds)
{
    CReplay l_Replay(Rows(1000));
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(l_Replay.Upload().ulStatus, 0U);
        EXPECT_EQ(l_Replay.At(1, 0), i * 300 * 1000);
        EXPECT_EQ(l_Replay.At(0, 299), -((i * 300 + 299) % 1000) * 1000);
    }
    // Without room for samples nothing moves on; the raw buffer is filled all the same.
    EXPECT_EQ(l_Replay.Fetch(l_Replay.m_acRaw).ulStatus, 0U);
    EXPECT_EQ(l_Replay.Upload().ulStatus, 0U);
    EXPECT_EQ(l_Replay.At(1, 0), 200 * 1000);
    for (const uint8_t l_ucRewind : std::initializer_list<uint8_t>{209, 210}) {
        EXPECT_EQ(l_Replay.Send(l_ucRewind).ulStatus, 0U);
        EXPECT_EQ(l_Replay.Upload().ulStatus, 0U);
        EXPECT_EQ(l_Replay.At(1, 1), 1000);
    }
}

TEST(SimuBoard, RefusesAFileThatItCannotHold)
{
    const cecore::S_MEMORYSTATUS l_Idle{32, 50, 0, 1000000};
    const struct
    {
        const char* pszFile;
        cecore::S_MEMORYSTATUS Memory;
        std::vector<std::string> vstrLines;
    } l_aCases[] = {
        {"missing.txt", l_Idle, {"Could not open file LastError=2 [ERROR_LEVEL]"}},
        {"", l_Idle, {"Could not open file LastError=2 [ERROR_LEVEL]"}},
        {"/dev/zero", l_Idle, {"Could not open file LastError=5 [ERROR_LEVEL]"}},
        {"/tmp", l_Idle, {"Could not open file LastError=5 [ERROR_LEVEL]"}},
        {"data.txt",
         {32, 91, 0, 1000000},
         {"Out of memory (<91% memory Load) [ERROR_LEVEL]",
          "Simu file refused: 12 bytes, limit 0 [ERROR_LEVEL]", k_pszNoBuffer}},
        {"data.txt",
         {32, 10, 0, 1000000},
         {"Simu file refused: 12 bytes, limit 0 [ERROR_LEVEL]", k_pszNoBuffer}},
        {"data.txt",
         {32, 5, 0, 1000000},
         {"Simu file refused: 12 bytes, limit -50000 [ERROR_LEVEL]", k_pszNoBuffer}},
        {"data.txt",
         {32, 50, 0, 40},
         {"Simu file refused: 12 bytes, limit 16 [ERROR_LEVEL]", k_pszNoBuffer}},
        {"data.txt", {32, 50, 0, 100}, {}},
    };
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.pszFile);
        CReplay l_Replay("0 1.5 2.5 3\n", "", l_Case.pszFile);
        cecore::OverrideMemoryStatus(&l_Case.Memory);
        ::SetLastError(0);
        EXPECT_EQ(l_Replay.Upload(), Done(BOARD, RESULT));
        EXPECT_EQ(l_Replay.m_lSize, l_Case.vstrLines.empty() ? 900 : 0);
        EXPECT_EQ(l_Replay.m_Home.TraceLines(), l_Case.vstrLines);
    }
    cecore::OverrideMemoryStatus(&l_Idle);
    EXPECT_EQ(CIntMeasDriverSimu::GetMemoryLimit(), 400000);
    const cecore::S_MEMORYSTATUS l_aMore[] = {{32, 90, 0, 1000000}, {32, 50, 0, 256U << 20}};
    cecore::OverrideMemoryStatus(&l_aMore[0]);
    EXPECT_EQ(CIntMeasDriverSimu::GetMemoryLimit(), 800000);
    cecore::OverrideMemoryStatus(&l_aMore[1]);
    EXPECT_EQ(CIntMeasDriverSimu::GetMemoryLimit(), 134217728 - 26843545);
    cecore::OverrideMemoryStatus(nullptr);
}

TEST(SimuBoard, AnswersItsCommandsAndNoOthers)
{
    CReplay l_Replay(Rows(5));
    EXPECT_EQ(l_Replay.Driver().CreateDriverInstance(), Done(BOARD, NO_STEP));
    EXPECT_EQ(l_Replay.Fetch(l_Replay.m_acRaw), Failed(BOARD, RESULT));
    EXPECT_EQ(l_Replay.Driver().GetDriverID(), 4000U);
    const std::string l_strSent = "\x03\xD1\xD2\xD3\xD4\xD5\xD6";
    const std::string l_strFetched = l_strSent + "\xD0";
    for (unsigned l_ulCmde = 0; l_ulCmde < 256; ++l_ulCmde) {
        SCOPED_TRACE(l_ulCmde);
        const char l_cCmde = static_cast<char>(l_ulCmde);
        const bool l_bSent = l_ulCmde != 0 && l_strSent.find(l_cCmde) != std::string::npos;
        const bool l_bFetched = l_ulCmde != 0 && l_strFetched.find(l_cCmde) != std::string::npos;
        l_Replay.m_Receive.ulAnswer = 99;
        EXPECT_EQ(l_Replay.Send(static_cast<uint8_t>(l_ulCmde)),
                  l_bSent ? Done(BOARD, SEND) : Failed(BOARD, SEND));
        EXPECT_EQ(l_Replay.m_Receive.ulAnswer, l_bSent ? 0U : 99U);
        int32_t l_lSize = -1;
        EXPECT_EQ(l_Replay.Driver().GetResult(900, l_Replay.m_acRaw, &l_lSize,
                                              l_Replay.m_vlData.data(), 0, 1),
                  l_bFetched ? Done(BOARD, RESULT) : Failed(BOARD, RESULT));
        if (l_ulCmde == 212) {
            EXPECT_EQ(l_Replay.m_vlData[0], 1234);
            EXPECT_EQ(l_lSize, -1);
        }
    }
    // A null record changes nothing: the last good command is still fetched.
    EXPECT_EQ(l_Replay.Send(213).ulStatus, 0U);
    EXPECT_EQ(l_Replay.Driver().SendCommand(nullptr, &l_Replay.m_Receive, nullptr, 0),
              Failed(BOARD, SEND));
    EXPECT_EQ(l_Replay.Fetch(l_Replay.m_acRaw).ulStatus, 0U);
    EXPECT_EQ(l_Replay.Fetch(nullptr).ulStatus, 1U);
    EXPECT_EQ(PowerOfTen(-3), 0.0010000000000000002);
    EXPECT_EQ(PowerOfTen(0), 1.0);
    EXPECT_EQ(PowerOfTen(2), 100.0);
}

TEST(SimuMilliOhm, AnswersItsTwoCommands)
{
    CTestHome l_Home;
    SetTraceLog(std::make_unique<CTraceLogFile>("\\hd00\\log_tornval.txt", 0x1111));
    C_MilliOhmDriverSerialSimu l_Module;
    CMeasDriver& l_Driver = l_Module;
    EXPECT_EQ(l_Driver.CreateDriverInstance(), Done(MODULE, NO_STEP));
    EXPECT_EQ(l_Driver.Init(), (S_RESULT{}));
    S_RECEIVE_STRUCT l_Receive{};
    char l_acText[16] = "###############";
    int32_t l_lSize = -1;
    int32_t l_alData[2] = {1, 2};
    const auto l_fnSend = [&](uint8_t i_ucCmdeID) {
        S_SEND_STRUCT l_Cmde = MakeCommand(i_ucCmdeID, 0, 4);
        return l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0);
    };
    const auto l_fnFetch = [&](uint32_t i_ulSize, char* o_pcText) {
        return l_Driver.GetResult(i_ulSize, o_pcText, &l_lSize, l_alData, 0, 1);
    };
    EXPECT_EQ(l_fnSend(COMMAND_VERSION), Done(MODULE, SEND));
    EXPECT_EQ(GetNbReturnByte(l_Receive), 65544U);
    EXPECT_EQ(l_fnFetch(14, l_acText), Failed(MODULE, RESULT));
    EXPECT_EQ(l_acText[0], '#');
    // The steps of an exchange, up to its failure.
    EXPECT_EQ(l_Home.TraceLines(),
              (std::vector<std::string>{
                  "C_MilliOhmDriverSerialSimu::CreateDriverInstance> [INFO_LEVEL]",
                  "C_MilliOhmDriverSerialSimu::SendCommand> (canal: 0) [INFO_LEVEL]",
                  "C_MilliOhmDriverSerialSimu::SendCommand> cmde=FF [INFO_LEVEL]",
                  "C_MilliOhmDriverSerialSimu::SendCommand> OK [INFO_LEVEL]",
                  "CIntMeasDriver::GetResult (general)> [INFO_LEVEL]",
                  "C_MilliOhmDriverSerialSimu::GetResult> [INFO_LEVEL]",
                  "C_MilliOhmDriverSerialSimu::GetResult> ERROR Allocation [ERROR_LEVEL]"}));
    EXPECT_EQ(l_fnFetch(15, l_acText), Done(MODULE, RESULT));
    EXPECT_STREQ(l_acText, "Version Simule");
    EXPECT_EQ(l_fnFetch(15, nullptr).ulStatus, 1U);
    EXPECT_EQ(l_fnSend(COMMAND_MICROOHM_MEASURE).ulStatus, 0U);
    EXPECT_EQ(l_fnFetch(0, nullptr), Done(MODULE, RESULT));
    EXPECT_TRUE(l_lSize == 1 && l_alData[0] == 3333 && l_alData[1] == 2);
    EXPECT_EQ(l_fnSend(0xA0), Failed(MODULE, SEND));
    EXPECT_EQ(l_fnFetch(15, l_acText), Failed(MODULE, RESULT));
    EXPECT_EQ(l_Home.TraceLines().back(),
              "C_MilliOhmDriverSerialSimu::GetResult> ERROR unknown command [ERROR_LEVEL]");
    EXPECT_EQ(l_Driver.GetMicroOhmMeasure(&l_lSize, nullptr, &l_lSize), Failed(MODULE, NO_STEP));
    EXPECT_EQ(GetNbReturnByte(l_Receive), 0U);
    EXPECT_EQ(l_Driver.Close(), Done(MODULE, CLOSE));
    EXPECT_EQ(l_Home.TraceLines().back(),
              "CIntMeasDriverSerial::Close> OK init not be done [INFO_LEVEL]");
}
