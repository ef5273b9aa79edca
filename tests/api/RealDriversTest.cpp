// The real drivers through the exports, over the virtual link with the emulated instruments behind
// it: traces, failures, threads.

#include <algorithm>
#include <functional>
#include <optional>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "Exchange.h"
#include "TestHome.h"
#include "TestRecord.h"
#include "cecore.h"
#include "support/Trace.h"

namespace {

constexpr const char* k_pszLink = "[IM]\nDRIVER_NAME=" TORNVAL_LINKS "/virtual_link.so\n"
                                  "CHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n";
constexpr const char* k_pszLog = "[LOG]\nENABLE=1\nTYPE=0\nLEVEL=4369\n";

/** A host over the virtual link, its instruments set as a test wants them. */
class CInstrument
{
public:
    explicit CInstrument(const std::string& i_strMore = "", const std::string& i_strBoard = "",
                         const std::string& i_strModule = "")
        : m_Home(k_pszLink + i_strMore)
    {
        setenv("TORNVAL_EMULATOR_BOARD", i_strBoard.c_str(), 1);
        setenv("TORNVAL_EMULATOR_MILLIOHM", i_strModule.c_str(), 1);
        setenv("TORNVAL_EMULATOR_STATE", m_Home.Path("state").c_str(), 1);
        setenv("TORNVAL_EMULATOR_CONTROL", m_Home.Path("").c_str(), 1);
    }
    CInstrument(const CInstrument&) = delete;
    CInstrument& operator=(const CInstrument&) = delete;
    ~CInstrument() { LoadMeasDrivers(0); }

    /** Dials settings into an instrument ("board" or "milliohm"), as of the next call. */
    void Dial(const std::string& i_strName, const std::string& i_strSettings) const
    {
        m_Home.Write("new", i_strSettings);
        std::filesystem::rename(m_Home.Path("new"), m_Home.Path(i_strName));
    }

    CTestHome m_Home;
};

std::vector<char> s_vRaw(65544);
std::vector<int32_t> s_vlData(3 + 3 * 65544);

/** One send with its fetch. */
S_RESULT Exchange(uint32_t i_ulID, uint8_t i_ucCmdeID, int32_t* o_plSize = nullptr,
                  uint32_t i_ulRaw = 65544)
{
    static const uint8_t s_aucPayload[] = {1, 0};
    return Exchange(i_ulID, tornval::MakeCommand(i_ucCmdeID, 0, i_ucCmdeID == 0xA1 ? 6 : 4),
                    s_aucPayload, s_vRaw.data(), o_plSize, s_vlData.data(), i_ulRaw);
}

/** Whether a reason with that text was noted since the last load. */
bool HasReason(const char* i_pszText)
{
    std::vector<CECORE_REASON> l_vReasons(CeGetReasons(nullptr, 0));
    CeGetReasons(l_vReasons.data(), static_cast<uint32_t>(l_vReasons.size()));
    return std::any_of(l_vReasons.begin(), l_vReasons.end(), [&](const CECORE_REASON& i_Reason) {
        return std::string(i_Reason.text) == i_pszText;
    });
}

} // namespace

TEST(RealDrivers, TraceEveryStepOfABoardMeasure)
{
    const CInstrument l_Instrument(k_pszLog);
    LoadMeasDrivers(0x10);
    tornval::ResetTraceLog();
    int32_t l_lValue = 0;
    EXPECT_EQ(GetInstantMeasure(&l_lValue, 2), Done(BOARD, RESULT));
    EXPECT_EQ(l_lValue, 3002);
    // 500 bytes of the frame; the head tells enough here.
    constexpr size_t k_ulDump = 1500, k_ulHead = size_t{3} * 17;
    std::string l_strTrace = l_Instrument.m_Home.MaskedTrace();
    const size_t l_ulBytes = l_strTrace.find("Data: ") + 6;
    EXPECT_EQ(l_strTrace.substr(l_ulBytes + k_ulDump, 14), " [INFO_LEVEL]\n");
    l_strTrace.erase(l_ulBytes + k_ulHead, k_ulDump - k_ulHead);
    EXPECT_EQ(l_strTrace, R"(CIntMeasDriver::CmdeBloquanteSynchrone> [INFO_LEVEL]
CIntMeasDriverSerial::SendCommand> cmde=D4 [INFO_GENERAL_LEVEL]
SIntMeasDriver::PrepareCmdeMesureInterne> canal: 0 voie: 2 [INFO_LEVEL]
Time before IOCTL_RS_SEND_COMMAND: # [INFO_LEVEL]
Data: 0B BF D4 00 08 00 00 00 00 D4 00 00 02 00 00 00 FF  [INFO_LEVEL]
Time after IOCTL_RS_SEND_COMMAND: # (duration: #) [INFO_LEVEL]
CIntMeasDriverSerial::SendCommand> OK [INFO_LEVEL]
CIntMeasDriverSerial::GetResult> [INFO_LEVEL]
Time after HSYNC: # [INFO_LEVEL]
Time before IOCTL_RS_GET_RESULT: # [INFO_LEVEL]
Time after IOCTL_RS_GET_RESULT: # (duration: #) [INFO_LEVEL]
IOCTL_RS_GET_RESULT taille: 30 [INFO_LEVEL]
CIntMeasDriver> FW returned code: 1 [FW_LEVEL]
CIntMeasDriver> FW error code: 0 [FW_LEVEL]
CIntMeasDriver::CheckFirmwareError> OK  [INFO_LEVEL]
CIntMeasDriverSerial::GetResult> CmdeID: D4 [INFO_GENERAL_LEVEL]
CIntMeasDriver::GetResult_MEASURE_INTERNE> ADC=3002.000000 a=10000.000000 b=0.000000 [INFO_LEVEL]
CIntMeasDriver::GetResult_MEASURE_INTERNE> Data=3002 [INFO_LEVEL]
)");
}

TEST(RealDrivers, TraceEveryStepOfALoadAMeasureAndAClose)
{
    const CInstrument l_Instrument(k_pszLog);
    LoadMeasDrivers(0x01);
    int32_t l_alValues[3];
    EXPECT_EQ(GetAllMicroOhmMeasure(&l_alValues[0], &l_alValues[1], &l_alValues[2]),
              Done(MODULE, RESULT));
    EXPECT_TRUE(l_alValues[0] == 123456 && l_alValues[1] == -2345 && l_alValues[2] == 67);
    EXPECT_EQ(ResetMeasBoard(5001), Done(MODULE, CLOSE));
    EXPECT_EQ(ResetMeasBoard(5001), Done(MODULE, CLOSE));
    EXPECT_EQ(GetMicroOhmMeasure(l_alValues), Failed(MODULE, SEND, {.ulError = 6}));
    EXPECT_EQ(
        std::regex_replace(l_Instrument.m_Home.MaskedTrace(), std::regex("CRouter::.*\n"), ""),
        R"(C_MilliOhmDriverSerial::CreateDriverInstance> START [INFO_LEVEL]
CIntMeasDriverSerial::InitModule> Use Extended API: 1 SerialDriver: # DllWrapperInit=0 [INFO_LEVEL]
CSerialDriver::RS_Init_Ex> fct: # [INFO_LEVEL]
CIntMeasDriverSerial::InitModule> END status: 0 [INFO_LEVEL]
C_MilliOhmDriverSerial::CreateDriverInstance> STOP status:0 [INFO_LEVEL]
C_MilliOhmDriverSerial::GetMicroOhmMeasure> [INFO_LEVEL]
C_MilliOhmDriverSerial::SendCommand> (canal: 0) [INFO_LEVEL]
C_MilliOhmDriverSerial::SendCommand> cmde=A1 [INFO_LEVEL]
Time before IOCTL_RS_SEND_COMMAND: # [INFO_LEVEL]
Time after IOCTL_RS_SEND_COMMAND: # (duration: #) [INFO_LEVEL]
C_MilliOhmDriverSerial::SendCommand> OK [INFO_LEVEL]
C_MilliOhmDriverSerial::GetResult> [INFO_LEVEL]
Time after HSYNC: # [INFO_LEVEL]
Time before IOCTL_RS_GET_RESULT: # [INFO_LEVEL]
Time after IOCTL_RS_GET_RESULT: # (duration: #) [INFO_LEVEL]
IOCTL_RS_GET_RESULT taille: 34 [INFO_LEVEL]
C_MilliOhmDriverSerial> FW status code=
0x01 0x00 [FW_LEVEL]
C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE> Cmde Status=
00000000 (OK) [FW_LEVEL]
CIntMeasDriverSerial::Close> [INFO_GENERAL_LEVEL]
CIntMeasDriverSerial::Close> OK close done  [INFO_LEVEL]
CIntMeasDriverSerial::Close> OK init not be done [INFO_LEVEL]
C_MilliOhmDriverSerial::GetMicroOhmMeasure> [INFO_LEVEL]
C_MilliOhmDriverSerial::SendCommand> (canal: 0) [INFO_LEVEL]
C_MilliOhmDriverSerial::SendCommand> cmde=A1 [INFO_LEVEL]
Time before IOCTL_RS_SEND_COMMAND: # [INFO_LEVEL]
Time after IOCTL_RS_SEND_COMMAND: # (duration: #) [INFO_LEVEL]
C_MilliOhmDriverSerial::SendCommand> ERROR echec du DeviceIO [ERROR_LEVEL]
)");
}

TEST(RealDrivers, LoadWithoutTheirLink)
{
    // A link that does not open leaves the module loaded; the board fails at its first exchange.
    const CInstrument l_Instrument(k_pszLog, "no-open=5", "no-open=5");
    EXPECT_EQ(LoadMeasDrivers(0x11), Failed(ROUTER, LOAD));
    S_DRIVER_INFO l_aInfo[2]{};
    uint32_t l_ulCount = 0;
    EnumMeasDrivers(l_aInfo, 2, &l_ulCount);
    EXPECT_EQ(l_ulCount, 1U);
    EXPECT_EQ(l_aInfo[0].ulDriverID, 5001U);
    // The places that failed left their reasons.
    for (const char* l_pszReason :
         {"port 2 did not open at 115200 baud", "port 1 did not open at 460800 baud",
          "the link did not take command 208"}) {
        EXPECT_TRUE(HasReason(l_pszReason)) << l_pszReason;
    }
    int32_t l_lValue = 7;
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue), Failed(MODULE, SEND, {.ulError = 6}));
    EXPECT_EQ(l_lValue, 0);
    // The link may be there at the next load.
    setenv("TORNVAL_EMULATOR_BOARD", "", 1);
    setenv("TORNVAL_EMULATOR_MILLIOHM", "", 1);
    EXPECT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue).ulStatus, 0U);
    EnumMeasDrivers(l_aInfo, 2, &l_ulCount);
    EXPECT_EQ(l_aInfo[0].ulDriverID, 4003U);
    EXPECT_EQ(l_aInfo[1].ulDriverID, 5003U);
}

TEST(RealDrivers, RefuseALinkThatLacksAnEntryPoint)
{
    const std::string l_strLink = TORNVAL_LINKS "/test/lacking_RS_Close_Ex.so";
    const CTestHome l_Home("[IM]\nDRIVER_NAME=" + l_strLink + "\n" + k_pszLog);
    EXPECT_EQ(LoadMeasDrivers(0x11), Failed(ROUTER, LOAD));
    const std::string l_strTrace = l_Home.Read("log_tornval.txt");
    for (const std::string& l_strLine :
         {std::string("CSerialDriver::LoadDriver GetProcAddress: (last error: 127)"),
          "C_MilliOhmDriverSerial::CreateDriverInstance> ERROR LoadDriver: " + l_strLink}) {
        EXPECT_NE(l_strTrace.find(l_strLine), std::string::npos) << l_strLine;
    }
}

TEST(RealDrivers, ReportEachFaultOfEachOperationAndWorkAfterIt)
{
    const CInstrument l_Instrument;
    ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    const uint32_t l_ulBoard = 4001, l_ulModule = 5001; // they count together, the module first
    int32_t l_lValue = 0, l_lSize = 0, l_alValues[3];
    struct S_OPERATION
    {
        const char* pszName;
        uint32_t ulType;
        std::function<S_RESULT()> fnRun;
        std::function<void()> fnCheckFailed = [] {}; // the outputs as a failure leaves them
    };
    const S_OPERATION l_aOperations[] = {
        {"GetInstantMeasure", 3, [&] { return GetInstantMeasure(&l_lValue, 1); },
         [&] { EXPECT_TRUE(l_lValue == 2001 || l_lValue == 0); }},
        {"GetInstantMeasureWithoutCompensation", 3,
         [&] { return GetInstantMeasureWithoutCompensation(&l_lValue, 1); }},
        {"GetInstantMeasureOnDevice", 3,
         [&] { return GetInstantMeasureOnDevice(l_ulBoard, &l_lValue, 1, 0); }},
        {"upload", 3,
         [&] {
             l_lSize = -1;
             return Exchange(l_ulBoard, 211, &l_lSize);
         },
         [&] { EXPECT_LE(l_lSize, 0); }},
        {"210", 3, [&] { return Exchange(l_ulBoard, 210); }},
        {"GetMicroOhmMeasure", 4, [&] { return GetMicroOhmMeasure(&l_lValue); },
         [&] { EXPECT_EQ(l_lValue, 0); }},
        {"GetAllMicroOhmMeasure", 4,
         [&] { return GetAllMicroOhmMeasure(&l_alValues[0], &l_alValues[1], &l_alValues[2]); },
         [&] { EXPECT_EQ(l_alValues[0] | l_alValues[1] | l_alValues[2], 0); }},
        {"milliohm command", 4, [&] { return Exchange(l_ulModule, 0xA1, &l_lSize); }},
        {"version", 4, [&] { return Exchange(l_ulModule, 0xFF, &l_lSize); }},
    };
    struct S_FAULT
    {
        const char* pszFault;
        S_RESULT Board;                   // ulDriverType is the operation's
        std::optional<S_RESULT> Module{}; // where it is another
    };
    const S_FAULT l_aFaults[] = {
        {"send-fails=31*1", Failed(ROUTER, SEND, {.ulError = 31})},
        {"send-status=9*1", Failed(ROUTER, REFUSED, {.ulFirmware = 9})},
        {"fetch-fails=1460*1", Failed(ROUTER, RESULT, {.ulError = 1460, .ulFirmware = 2})},
        {"link-status=3*1", Failed(ROUTER, RESULT, {.ulFirmware = 5})},
        {"count=11*1", Failed(ROUTER, RESULT)},
        {"return-code=7*1", Failed(ROUTER, RESULT, {.ulFirmware = 7}), Failed(ROUTER, RESULT)},
        {"return-code=0x101*1", Failed(ROUTER, RESULT, {.ulFirmware = 0x101}),
         Failed(ROUTER, RESULT)},
        {"late=50*1", Done(ROUTER, RESULT)},
    };
    for (const S_OPERATION& l_Operation : l_aOperations) {
        for (const S_FAULT& l_Fault : l_aFaults) {
            SCOPED_TRACE(std::string(l_Operation.pszName) + " with " + l_Fault.pszFault);
            l_Instrument.Dial(l_Operation.ulType == 3 ? "board" : "milliohm", l_Fault.pszFault);
            S_RESULT l_Expected =
                l_Operation.ulType == 3 ? l_Fault.Board : l_Fault.Module.value_or(l_Fault.Board);
            l_Expected.ulDriverType = l_Operation.ulType;
            EXPECT_EQ(l_Operation.fnRun(), l_Expected);
            if (l_Expected.ulStatus != 0) {
                l_Operation.fnCheckFailed();
            }
            EXPECT_EQ(l_Operation.fnRun(), Done(l_Operation.ulType, RESULT));
        }
    }
    // What only one of the two can meet.
    const std::pair<const char*, S_RESULT> l_aBoardFaults[] = {
        {"error-code=1004*1", Failed(BOARD, RESULT, {.ulFirmware = 1004})},
        {"error-code=2006*1", Done(BOARD, RESULT)},
        {"return-code=0*1", Failed(BOARD, RESULT)},
        {"voie=13*1", Failed(BOARD, RESULT)},
        {"voie=12*1", Done(BOARD, RESULT)},
        {"count=23*1", Failed(BOARD, RESULT)},
        {"count=24*1", Done(BOARD, RESULT)},
        {"count=0xFFFFFFFF*1", Done(BOARD, RESULT)},
    };
    for (const auto& [l_pszFault, l_Record] : l_aBoardFaults) {
        l_Instrument.Dial("board", l_pszFault);
        EXPECT_EQ(GetInstantMeasure(&l_lValue, 1), l_Record) << l_pszFault;
    }
    l_Instrument.Dial("board", "compressed-size=65535*1");
    EXPECT_EQ(Exchange(l_ulBoard, 211, &l_lSize), Failed(BOARD, RESULT));
    EXPECT_EQ(CurrentGeneratorBurst(1), Failed(BOARD, SEND));
    for (const uint8_t l_ucRefused : std::initializer_list<uint8_t>{0, 3, 207, 216, 255}) {
        EXPECT_EQ(Exchange(l_ulBoard, l_ucRefused), Failed(BOARD, SEND));
    }
    EXPECT_EQ(Exchange(l_ulBoard, 215), Done(BOARD, RESULT));
    EXPECT_EQ(Exchange(l_ulModule, 0xA0), Failed(MODULE, SEND));
    for (const auto& [l_ulID, l_ulType, l_pszName] :
         {std::tuple(l_ulBoard, 3U, "board"), std::tuple(l_ulModule, 4U, "milliohm")}) {
        l_Instrument.Dial(l_pszName, "close-fails=31*1");
        EXPECT_EQ(ResetMeasBoard(l_ulID), Failed(l_ulType, CLOSE));
        EXPECT_EQ(ResetMeasBoard(l_ulID), Done(l_ulType, CLOSE));
    }
}

TEST(RealDrivers, JudgeAMilliohmMeasureByItsStatus)
{
    const CInstrument l_Instrument;
    LoadMeasDrivers(0x01);
    for (const auto& [l_pszStatus, l_ulFwStatus] :
         std::initializer_list<std::pair<const char*, uint32_t>>{
             {"0", 0}, {"1", 0}, {"0x10", 0}, {"0x80", 0}, {"0x81", 0xFFFFFF81}, {"2", 2}}) {
        l_Instrument.Dial("milliohm", std::string("measure-status=") + l_pszStatus + "*1");
        int32_t l_lValue = 7;
        EXPECT_EQ(GetMicroOhmMeasure(&l_lValue),
                  l_ulFwStatus == 0 ? Done(MODULE, RESULT)
                                    : Failed(MODULE, RESULT, {.ulFirmware = l_ulFwStatus}));
        EXPECT_EQ(l_lValue, l_ulFwStatus == 0 ? 123456 : 0);
    }
    // Too few bytes, another return code; and nowhere to put the values.
    for (const char* l_pszFault : {"count=11*1", "return-code=2*1"}) {
        l_Instrument.Dial("milliohm", l_pszFault);
        int32_t l_lValue = 7;
        EXPECT_EQ(GetMicroOhmMeasure(&l_lValue), Failed(MODULE, RESULT)) << l_pszFault;
        EXPECT_EQ(l_lValue, 0);
    }
    EXPECT_EQ(Exchange(5001, 0xA1, nullptr), Failed(MODULE, RESULT));
    // The version text at the edge of the caller's buffer: 4 + 14 + 28 + 1 bytes are delivered.
    l_Instrument.Dial("milliohm", "version=1.2");
    int32_t l_lSize = 0;
    EXPECT_EQ(Exchange(5001, 0xFF, &l_lSize, 9).ulStatus, 1U);
    std::fill(s_vRaw.begin(), s_vRaw.end(), '#');
    EXPECT_EQ(Exchange(5001, 0xFF, &l_lSize, 10).ulStatus, 0U);
    EXPECT_STREQ(s_vRaw.data(), "1.2");
    EXPECT_EQ(s_vRaw[10], '#');
    l_Instrument.Dial("milliohm", "count=0xFFFFFFFF*1");
    EXPECT_EQ(Exchange(5001, 0xFF, &l_lSize, 0xFFFFFFFF).ulStatus, 1U);
}

TEST(RealDrivers, RefuseAnAnswerTo208ThatIsTooShort)
{
    const CInstrument l_Instrument("", "count=123@208*1");
    EXPECT_EQ(LoadMeasDrivers(0x10).ulStatus, 1U);
    EXPECT_TRUE(HasReason("the board's coefficients have 123 bytes of at least 124"));
    setenv("TORNVAL_EMULATOR_BOARD", "count=124@208*1", 1);
    EXPECT_EQ(LoadMeasDrivers(0x10).ulStatus, 0U);
}

TEST(RealDrivers, WriteACalibrationThatTheNextLoadSees)
{
    const CInstrument l_Instrument("SET_RESET_EXEC=\\hd00\\reset\n");
    l_Instrument.m_Home.Write("reset",
                              "#!/bin/sh\necho \"$@\" >>\"$(dirname \"$0\")/pins\"\nexit 3\n");
    std::filesystem::permissions(l_Instrument.m_Home.Path("reset"),
                                 std::filesystem::perms::owner_all);
    ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    uint32_t l_aulIndex[] = {3, 12};
    double l_adA[] = {12345.9, 1e30}, l_adB[] = {-77.9, -1e30};
    EXPECT_EQ(SetMBCalibration(nullptr, l_adA, l_adB, 2), Failed(BOARD, NO_STEP));
    EXPECT_EQ(SetMBCalibration(l_aulIndex, l_adA, l_adB, 0), Failed(BOARD, NO_STEP));
    EXPECT_EQ(SetMBCalibration(l_aulIndex, l_adA, l_adB, 2), Done(BOARD, RESULT));
    EXPECT_EQ(l_Instrument.m_Home.Read("pins"), "162 0\n162 1\n");
    double l_adReadA[13], l_adReadB[13];
    EXPECT_EQ(GetMBCalibrationCoeff(l_adReadA, l_adReadB, 13), 1U);
    EXPECT_EQ(l_adReadA[3], 10000.0);
    ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    EXPECT_EQ(GetMBCalibrationCoeff(l_adReadA, l_adReadB, 13), 1U);
    EXPECT_EQ(l_adReadA[3], 12345.0);
    EXPECT_EQ(l_adReadB[3], -77.0);
    EXPECT_EQ(l_adReadA[12], 2147483647.0);
    EXPECT_EQ(l_adReadB[12], -2147483648.0);
    // The program is not there; or none is named, and then no call of the system failed.
    for (const auto& [l_pszProgram, l_ulError] :
         {std::pair("\\hd00\\no-such-program", 2U), std::pair("", 0U)}) {
        l_Instrument.m_Home.Write("TornvalC63.ini",
                                  std::string(k_pszLink) + "SET_RESET_EXEC=" + l_pszProgram + "\n");
        ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
        ::SetLastError(77);
        const S_RESULT l_Result = SetMBCalibration(l_aulIndex, l_adA, l_adB, 1);
        if (l_ulError == 0 || !OnEmulatedProcessor()) {
            EXPECT_EQ(l_Result, Failed(BOARD, RESULT, {.ulError = l_ulError}));
        }
    }
    // An input that the board does not have: the firmware refuses, and no reset follows.
    l_aulIndex[0] = 13;
    const S_RESULT l_Refused = SetMBCalibration(l_aulIndex, l_adA, l_adB, 1);
    EXPECT_EQ(l_Refused.ulStatus, 1U);
    EXPECT_NE(l_Refused.ulFwStatus, 0U);
    EXPECT_EQ(l_Instrument.m_Home.Read("pins"), "162 0\n162 1\n");
}

TEST(RealDrivers, WorkBesideProbesFromThreadsOfTheirOwn)
{
    const CInstrument l_Instrument(
        std::string("[BT]\nLOAD=1\nDRIVER_NAME=" TORNVAL_LINKS "/zondebtc6.dll\n"
                    "[USB]\nLOAD=1\nDRIVER_NAME=" TORNVAL_LINKS "/zondeusbc6.dll\n") +
            k_pszLog,
        "late=1");
    ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    struct S_MEASURE
    {
        std::function<S_RESULT(int32_t*)> fnRun;
        int32_t lAlone = 0; // its value when nobody else measures
    };
    S_MEASURE l_aMeasures[] = {
        {[](int32_t* o_pl) { return GetInstantMeasureOnDevice(2000, o_pl, 0, 1); }},
        {[](int32_t* o_pl) { return GetInstantMeasureOnDevice(3000, o_pl, 1, 1); }},
        {[](int32_t* o_pl) { return GetInstantMeasure(o_pl, 2); }},
        {[](int32_t* o_pl) { return GetInstantMeasure(o_pl, 9); }},
        {[](int32_t* o_pl) { return GetMicroOhmMeasure(o_pl); }}};
    for (S_MEASURE& l_Measure : l_aMeasures) {
        ASSERT_EQ(l_Measure.fnRun(&l_Measure.lAlone).ulStatus, 0U);
    }
    EXPECT_EQ(l_aMeasures[3].lAlone, 10009);
    std::vector<std::thread> l_vThreads;
    for (const S_MEASURE& l_Measure : l_aMeasures) {
        l_vThreads.emplace_back([&l_Measure] {
            for (int i = 0; i < 200; ++i) {
                int32_t l_lValue = 0;
                ASSERT_EQ(l_Measure.fnRun(&l_lValue).ulStatus, 0U);
                // Each thread gets its own input's value, never another's.
                ASSERT_EQ(l_lValue, l_Measure.lAlone);
            }
        });
    }
    for (std::thread& l_Thread : l_vThreads) {
        l_Thread.join();
    }
}
