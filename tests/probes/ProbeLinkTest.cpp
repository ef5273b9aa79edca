#include <functional>
#include <new>

#include <dlfcn.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include "RecordingLink.h"
#include "TestHome.h"
#include "TestRecord.h"
#include "probes/BTProbeDriver.h"
#include "probes/USBProbeDriver.h"

using namespace tornval;

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

/** Allocations that may fail: the one that does, counted down; 0: none. */
uint32_t g_ulFailingAllocation = 0;

} // namespace

void* operator new[](size_t i_ulSize, const std::nothrow_t&) noexcept
{
    if (g_ulFailingAllocation != 0 && --g_ulFailingAllocation == 0) {
        return nullptr;
    }
    try {
        return ::operator new[](i_ulSize);
    } catch (...) {
        return nullptr;
    }
}

namespace {

/** What tells the two drivers apart. */
struct S_KIND
{
    const char* pszWord;
    uint32_t ulType;
    uint32_t ulID;
    const char* pszLibrary;
    const char* pszPrefix;
    uint32_t ulSendCode;
    uint32_t ulFetchCode;
    std::string strRefused;
    std::string strCreateError;
    std::function<std::unique_ptr<CMeasDriver>()> fnMake;
};

std::ostream& operator<<(std::ostream& io_Stream, const S_KIND& i_Kind)
{
    return io_Stream << i_Kind.pszWord;
}

const S_KIND k_aKinds[] = {
    {"BT", 1, 2000, "zondebtc6.dll", "PBT", 0x222010, 0x222014, "Bad",
     "CBTProbeDriver::CUSBProbeDriver> Create Driver probe BT error [ERROR_LEVEL]",
     [] { return std::make_unique<CBTProbeDriver>(); }},
    {"USB", 2, 3000, "zondeusbc6.dll", "PUSB", 0x22200C, 0x222010, "bad",
     "CUSBProbeDriver::CUSBProbeDriver> Create Driver probe USB error [ERROR_LEVEL]",
     [] { return std::make_unique<CUSBProbeDriver>(); }}};

/** A probe in front of the recording library, which has the default name. */
class ProbeLink : public testing::TestWithParam<S_KIND>
{
public:
    ProbeLink()
        : m_hLink(dlopen(TEST_LINKS "test/recording_link.dll", RTLD_NOW)),
          m_Link(*reinterpret_cast<PFN_RECORDING_LINK>(dlsym(m_hLink, "RecordingLink"))())
    {
        std::filesystem::create_symlink(TEST_LINKS "test/recording_link.dll",
                                        m_Home.Path(m_Kind.pszLibrary));
        Log(ERROR_LEVEL);
        Make(nullptr);
    }
    ~ProbeLink() override
    {
        SetTraceLog(nullptr);
        m_pProbe.reset();
        dlclose(m_hLink);
    }

    /** Makes a probe with that configuration; null: without a file. */
    void Make(const char* i_pszKeys)
    {
        if (i_pszKeys != nullptr) {
            m_Home.Write("TornvalC63.ini", "[" + std::string(m_Kind.pszWord) + "]\n" + i_pszKeys);
        }
        m_pProbe = m_Kind.fnMake();
    }
    static void Log(uint16_t i_usLevel)
    {
        SetTraceLog(std::make_unique<CTraceLogFile>("\\hd00\\log_tornval.txt", i_usLevel));
    }
    /** The lines traced so far, which are gone with it. */
    [[nodiscard]] Lines Taken() const
    {
        Lines l_vstrLines = m_Home.TraceLines();
        ResetTraceLog();
        return l_vstrLines;
    }
    /** A record of this kind of probe. */
    [[nodiscard]] S_RESULT Record(uint32_t i_ulStep, uint32_t i_ulStatus,
                                  uint32_t i_ulLastError = 0, uint32_t i_ulFwStatus = 0) const
    {
        return {m_Kind.ulType, i_ulStep, i_ulLastError, i_ulFwStatus, i_ulStatus};
    }
    /** A line of this kind of probe; P stands for the prefix of its entry points. */
    [[nodiscard]] Lines Line(const std::string& i_strText) const
    {
        std::string l_strLine = "C" + std::string(m_Kind.pszWord) + "ProbeDriver::" + i_strText;
        const size_t l_ulPrefix = l_strLine.find("_P_");
        if (l_ulPrefix != std::string::npos) {
            l_strLine.replace(l_ulPrefix + 1, 2, m_Kind.pszPrefix);
        }
        return {l_strLine + " [ERROR_LEVEL]"};
    }
    S_RESULT Send(uint8_t i_ucCmdeID, const Bytes& i_vPayload = {})
    {
        m_Cmde = MakeCommand(i_ucCmdeID, 0x11223344, static_cast<uint32_t>(i_vPayload.size()));
        return m_pProbe->SendCommand(&m_Cmde, &m_Receive,
                                     i_vPayload.empty() ? nullptr : i_vPayload.data(), 0);
    }
    S_RESULT Fetch(uint32_t i_ulSize)
    {
        m_vRaw.assign(i_ulSize, 0x55);
        m_vRaw.reserve(1);
        m_vlProcessed.assign(i_ulSize + 2, 0);
        m_lSize = 0;
        return m_pProbe->GetResult(i_ulSize, reinterpret_cast<char*>(m_vRaw.data()), &m_lSize,
                                   m_vlProcessed.data(), 0, 1);
    }
    S_RESULT Measure(uint32_t i_ulVoie, const Bytes& i_vReply)
    {
        m_Link.vReply = i_vReply;
        m_Link.ulNbReturnByte = static_cast<uint32_t>(i_vReply.size());
        m_lValue = 77;
        return m_pProbe->GetInstantMeasure(&m_lValue, i_ulVoie, 1, 100);
    }

protected:
    const S_KIND& m_Kind = GetParam();
    const CTestHome m_Home;
    void* m_hLink;
    S_RECORDING_LINK& m_Link;
    std::unique_ptr<CMeasDriver> m_pProbe;
    S_SEND_STRUCT m_Cmde{};
    S_RECEIVE_STRUCT m_Receive{};
    Bytes m_vRaw;
    std::vector<int32_t> m_vlProcessed;
    int32_t m_lSize = 0;
    int32_t m_lValue = 0;
};

INSTANTIATE_TEST_SUITE_P(Kinds, ProbeLink, testing::ValuesIn(k_aKinds),
                         [](const auto& i_Info) { return std::string(i_Info.param.pszWord); });

} // namespace

TEST_P(ProbeLink, ConfigurationReachesTheLibrary)
{
    const std::string l_strLong(300, '9');
    const std::string l_strLibrary = TEST_LINKS "test/recording_link.dll";
    const std::string l_strKeys = "BAUD_RATE=" + l_strLong + "\nDRIVER_NAME=" + l_strLibrary;
    struct
    {
        const char* pszKeys; // null: no file
        std::string strBT;
        std::string strUSB;
    } const l_aCases[] = {
        {nullptr, "PBT_Init 1 460800 10000", "PUSB_Init 0"},
        {"", "PBT_Init 1 460800 10000", "PUSB_Init 1"},
        {"PORT_NUMBER=300\nBAUD_RATE=115200\nINIT_TIMEOUT=7\n", "PBT_Init 44 115200 7",
         "PUSB_Init 44"},
        {"PORT_NUMBER=3\nBAUD_RATE='fast'\n", "PBT_Init 3 fast 10000", "PUSB_Init 3"},
        {l_strKeys.c_str(), "PBT_Init 1 " + l_strLong.substr(0, 254) + " 10000", "PUSB_Init 1"},
    };
    for (const auto& l_Case : l_aCases) {
        Make(l_Case.pszKeys);
        EXPECT_FALSE(m_pProbe->IsInitialised());
        EXPECT_EQ(m_pProbe->Init(), Record(3, 0));
        EXPECT_TRUE(m_pProbe->IsInitialised());
        EXPECT_EQ(m_Link.vstrOpenings.back(), m_Kind.ulType == 1 ? l_Case.strBT : l_Case.strUSB);
    }
    char l_aszName[260];
    m_pProbe->GetDriverName(l_aszName);
    EXPECT_EQ(l_aszName, l_strLibrary);
    EXPECT_EQ(m_Home.TraceLines(), Lines{});
}

TEST_P(ProbeLink, OpensAndClosesAtWillAndCountsItsDrivers)
{
    EXPECT_EQ(m_pProbe->Close(), Record(4, 0));
    m_Link.ulResult = 0;
    EXPECT_EQ(m_pProbe->Init(), Record(3, 1));
    EXPECT_EQ(m_Home.TraceLines(),
              Line(m_Kind.ulType == 1 ? "Init> m_pFn_P_Init return FALSE (port: 01)"
                                      : "Init> m_pFn_P_Init return FALSE (port: 00)"));
    std::array<CECORE_REASON, 64> l_aReasons{};
    const uint32_t l_ulReasons = CeGetReasons(l_aReasons.data(), 64);
    ASSERT_GT(l_ulReasons, 0U);
    EXPECT_EQ(std::string(l_aReasons[l_ulReasons - 1].text),
              std::string(m_Kind.pszPrefix) + "_Init of " + m_Kind.pszLibrary +
                  " does not open port " + (m_Kind.ulType == 1 ? "1" : "0"));
    m_Link.ulResult = 1;
    m_pProbe->Init();
    m_Link.ulResult = 0;
    EXPECT_EQ(m_pProbe->Close(), Record(4, 1));
    EXPECT_TRUE(m_pProbe->IsInitialised());
    m_Link.ulResult = 1;
    EXPECT_EQ(m_pProbe->Close(), Record(4, 0));
    EXPECT_FALSE(m_pProbe->IsInitialised());
    const size_t l_ulCalls = m_Link.vstrOpenings.size();

    const std::unique_ptr<CMeasDriver> l_pSecond = m_Kind.fnMake();
    EXPECT_EQ(m_pProbe->GetDriverID(), m_Kind.ulID);
    EXPECT_EQ(l_pSecond->GetDriverID(), m_Kind.ulID + 1);
    EXPECT_EQ(k_aKinds[2 - m_Kind.ulType].fnMake()->GetDriverID(), 5000 - m_Kind.ulID);
    m_pProbe = m_Kind.fnMake();
    Send(34);
    EXPECT_EQ(m_Link.vCalls.back().ulDevice, 2U);
    m_pProbe.reset();
    EXPECT_EQ(m_Link.vstrOpenings.size(), l_ulCalls) << "the destructor closed the link";
}

TEST_P(ProbeLink, InstantMeasureByteForByte)
{
    const Bytes l_vReply{33, 8, 0, 0, 1, 0, 0x2F, 0xFF, 0x81, 0xC1, 0x81, 0x81, 0};
    EXPECT_EQ(Measure(1, l_vReply), Record(5, 0));
    EXPECT_EQ(m_lValue, (1048320 + 1048064 + 1048320) / 3);
    const Bytes l_vStop{0, 0x22, 0, 0, 0xE8, 3, 0, 0, 0, 0, 0, 0, 0};
    const Bytes l_vStart{0, 0x40, 0, 0, 0x88, 0x13, 0, 0, 8, 0, 0, 0, 100, 0, 0, 0, 3, 0, 0, 0, 0};
    const Bytes l_vRead{0, 0x21, 0, 0, 0x88, 0x13, 0, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(m_Link.vCalls.size(), 8U);
    for (size_t l_ul = 0; l_ul < 8; ++l_ul) {
        const S_LINK_CALL& l_Call = m_Link.vCalls[l_ul];
        const bool l_bSend = l_ul % 2 == 0;
        EXPECT_EQ(l_Call.vIn, !l_bSend    ? (Bytes{13, 0, 0, 0})
                              : l_ul == 2 ? l_vStart
                              : l_ul == 4 ? l_vRead
                                          : l_vStop);
        EXPECT_EQ(l_Call.ulCode, l_bSend ? m_Kind.ulSendCode : m_Kind.ulFetchCode);
        EXPECT_EQ(l_Call.ulOutSize, l_bSend ? 8U : 13U);
        EXPECT_EQ(l_Call.ulDevice, 0U);
        EXPECT_EQ(l_Call.ulConstant, 1000U);
        EXPECT_EQ(l_Call.ulZero, 0U);
    }
    // The driver has read both channels once: a read of the first is split too.
    EXPECT_EQ(Measure(0, l_vReply), Record(5, 0));
    EXPECT_EQ(m_lValue, 1028);
    EXPECT_EQ(m_Link.vCalls[10].vIn,
              (Bytes{0, 0x20, 0, 0, 0x88, 0x13, 0, 0, 4, 0, 0, 0, 100, 0, 0, 0, 0}));
}

TEST_P(ProbeLink, InstantMeasureMeansAndFailures)
{
    struct
    {
        const char* pszWhat;
        uint32_t ulVoie;
        Bytes vReply;
        S_RESULT Result;
        int32_t lValue;
        size_t ulCalls;
    } const l_aCases[] = {
        {"100, 200, 400", 0, {33, 4, 0, 0, 0x99, 0x99, 0x00, 0x64, 0}, Record(5, 0), 233, 8},
        {"towards zero", 0, {33, 3, 0, 0, 0xC1, 0x80, 0xC1, 0}, Record(5, 0), -5, 8},
        {"no sample", 0, {33, 0, 0, 0, 0}, Record(5, 1), 0, 8},
        {"status 44", 0, {33, 1, 0, 44, 0x81, 0}, Record(5, 1, 0, 44), 0, 8},
        {"a size that lies", 0, {33, 9, 0, 0, 0x81, 0}, Record(5, 1), 0, 8},
        {"half a header", 0, {33, 9}, Record(5, 1), 0, 8},
        {"no channel", 2, {33, 1, 0, 0, 0x81}, Failed(ROUTER, NO_STEP), 0, 2},
        {"the other channel alone", 1, {33, 1, 0, 0, 0x81, 0}, Record(5, 1), 0, 8},
    };
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.pszWhat);
        m_Link.vCalls.clear();
        EXPECT_EQ(Measure(l_Case.ulVoie, l_Case.vReply), l_Case.Result);
        EXPECT_EQ(m_lValue, l_Case.lValue);
        EXPECT_EQ(m_Link.vCalls.size(), l_Case.ulCalls);
    }
    EXPECT_EQ(m_pProbe->GetInstantMeasure(nullptr, 0, 1, 100).ulStatus, 1U);
    // A link that promises more than a reply can have: nothing is allocated for it, or fetched.
    m_Link.vCalls.clear();
    m_Link.ulNbReturnByte = 0xFFFFFFFF;
    EXPECT_EQ(m_pProbe->GetInstantMeasure(&m_lValue, 0, 1, 100), Record(2, 1));
    EXPECT_EQ(m_Link.vCalls.size(), 2U);
    EXPECT_EQ(m_Home.TraceLines().back(),
              "CProbeDriver::SendRollingCmde> reply size error: 4294967295 [ERROR_LEVEL]");
}

TEST_P(ProbeLink, EveryCommandID)
{
    m_Link.vReply = {0, 1, 0, 0, 0x81};
    for (unsigned l_ulID = 0; l_ulID < 256; ++l_ulID) {
        SCOPED_TRACE(l_ulID);
        const bool l_bKnown = l_ulID == 1 || (l_ulID >= 16 && l_ulID <= 23) ||
                              (l_ulID >= 32 && l_ulID <= 34) || l_ulID == 64;
        m_Link.vCalls.clear();
        EXPECT_EQ(Send(static_cast<uint8_t>(l_ulID), {1, 2}), Record(2, l_bKnown ? 0 : 1));
        EXPECT_EQ(m_Cmde.CmdeID, l_ulID == 1 ? 33 : l_ulID);
        EXPECT_EQ(Fetch(5), Record(5, l_bKnown ? 0 : 1));
        if (!l_bKnown) {
            EXPECT_EQ(m_Link.vCalls.size(), 0U);
            EXPECT_EQ(Taken(), Line("SendCommand> " + m_Kind.strRefused + " command"));
            continue;
        }
        ASSERT_EQ(m_Link.vCalls.size(), 2U);
        EXPECT_EQ(m_Link.vCalls[0].vIn,
                  (Bytes{0, m_Cmde.CmdeID, 0, 0, 0x44, 0x33, 0x22, 0x11, 2, 0, 0, 0, 1, 2, 0}));
        EXPECT_EQ(m_lSize, l_ulID == 1 || l_ulID == 33 ? 3 : 0);
        EXPECT_EQ(m_vRaw, l_ulID == 22 ? (Bytes{0x81, 0, 0, 0, 0}) : m_Link.vReply);
    }
}

TEST_P(ProbeLink, SendFailures)
{
    m_Link.ulAckCount = 7;
    EXPECT_EQ(Send(34), Record(2, 1));
    EXPECT_EQ(Taken(), Line("SendCommand> m_pFn_P_DeviceIoControl size error"));
    m_Link.ulAckCount = 8;
    m_Link.ulNbReturnByte = 0x01020304;
    EXPECT_EQ(Send(34), Record(2, 0));
    EXPECT_EQ(m_Receive.ulNbReturnByte, 0x01020304U);
    m_Link.ulResult = 0;
    m_Link.ulLastError = 1460;
    EXPECT_EQ(Send(1), Record(2, 1, 1460));
    EXPECT_EQ(Taken(), Line("SendCommand> m_pFn_P_DeviceIoControl error: 1460"));

    m_Link.ulResult = 1;
    Send(34);
    m_Link.vCalls.clear();
    // Sizes that leave no room for the record.
    for (uint32_t l_ulSize : {0xFFFFFFFFU, 0xFFFFFFF3U}) {
        m_Cmde = MakeCommand(20, 0, l_ulSize);
        EXPECT_EQ(m_pProbe->SendCommand(&m_Cmde, &m_Receive, "x", 0), Record(2, 1));
        EXPECT_EQ(Taken(),
                  Line("SendCommand> " + m_Kind.strRefused + " size: " + std::to_string(l_ulSize)));
    }
    m_Cmde = MakeCommand(1, 0, 0);
    EXPECT_EQ(m_pProbe->SendCommand(&m_Cmde, nullptr, nullptr, 0), Record(2, 1));
    EXPECT_EQ(Taken(), Line("SendCommand> o_pReceiveStruct allocation error"));
    EXPECT_EQ(m_Cmde.CmdeID, 33);
    int32_t l_lScaled = 0;
    m_pProbe->ScaleSample(&l_lScaled, 1, 0, 1);
    EXPECT_EQ(l_lScaled, 16) << "the second channel is there from the first such command on";
    EXPECT_EQ(m_pProbe->SendCommand(nullptr, &m_Receive, nullptr, 0), Record(2, 1));
    EXPECT_EQ(m_Link.vCalls.size(), 0U);
    EXPECT_EQ(Fetch(0), Record(5, 1)) << "the last command is still the rolling one";
    EXPECT_EQ(m_Link.vCalls.size(), 1U);
    EXPECT_EQ(Taken(),
              Lines{"CProbeDriver::RollingCmdeResultManagement> parameter error [ERROR_LEVEL]"});
    // One of the two says what it is asked to send.
    Log(INFO_GENERAL_LEVEL);
    Send(34);
    m_pProbe->SendCommand(nullptr, &m_Receive, nullptr, 0);
    const std::string l_strEntry = "CBTProbeDriver::SendCommand> DriverID:2000 CMID:";
    EXPECT_EQ(Taken(), m_Kind.ulType == 1 ? (Lines{l_strEntry + "22 [INFO_GENERAL_LEVEL]",
                                                   l_strEntry + " NULL [INFO_GENERAL_LEVEL]"})
                                          : Lines{});
}

TEST_P(ProbeLink, FetchFailures)
{
    EXPECT_EQ(Fetch(5), Record(5, 1)) << "before any command";
    m_Link.ulNbReturnByte = 5;
    for (const uint8_t l_ucCmdeID : Bytes{33, 16, 22}) {
        m_Link.ulResult = 1;
        Send(l_ucCmdeID);
        m_Link.vCalls.clear();
        EXPECT_EQ(m_pProbe->GetResult(5, nullptr, &m_lSize, nullptr, 0, 1), Record(5, 1));
        EXPECT_EQ(m_Link.vCalls.size(), 0U);
        m_Link.ulResult = 0;
        m_Link.ulLastError = 31;
        EXPECT_EQ(Fetch(5), Record(5, 1, 31));
        EXPECT_EQ(m_lSize, 0);
        EXPECT_EQ(Taken(), l_ucCmdeID == 33
                               ? Line("GetResultGetRollingCmde> m_pFn_P_DeviceIoControl "
                                      "error (last error 31)")
                               : Lines{});
    }
}

TEST_P(ProbeLink, LibrariesThatAreMissingOrShort)
{
    Make("DRIVER_NAME=absent.dll");
    EXPECT_EQ(Taken(), Lines{m_Kind.strCreateError});
    EXPECT_EQ(m_pProbe->Init(), Record(3, 1));
    EXPECT_EQ(m_pProbe->Close(), Record(4, 1));
    EXPECT_EQ(Send(34), Record(2, 1));
    EXPECT_EQ(Fetch(5), Record(5, 1));
    EXPECT_EQ(Measure(0, {}), Record(2, 1));
    EXPECT_EQ(m_lValue, 0);
    EXPECT_EQ(Taken(), Lines{});
    // Without its open the emulated link refuses the other calls.
    struct
    {
        std::string strLacking;
        uint32_t ulInit, ulSend, ulClose;
    } const l_aCases[] = {{"Init", 1, 1, 1}, {"Close", 0, 0, 1}, {"DeviceIoControl", 0, 1, 0}};
    for (const auto& l_Case : l_aCases) {
        const std::string l_strLibrary =
            TEST_LINKS "test/lacking_" + std::string(m_Kind.pszPrefix) + "_" + l_Case.strLacking;
        Make(("DRIVER_NAME=" + l_strLibrary + ".dll").c_str());
        EXPECT_EQ(Taken(), Lines{m_Kind.strCreateError});
        EXPECT_EQ(m_pProbe->Init(), Record(3, l_Case.ulInit));
        EXPECT_EQ(Send(34).ulStatus, l_Case.ulSend);
        EXPECT_EQ(m_pProbe->Close(), Record(4, l_Case.ulClose));
        ResetTraceLog();
    }
}

TEST_P(ProbeLink, MemoryThatIsRefused)
{
    const Bytes l_vReply{33, 2, 0, 0, 0x81, 0x81};
    const std::string l_strRolling = "CProbeDriver::RollingCmdeResultManagement> ";
    const std::string l_strVoie = "Extended command o_plProcessedData_Voie";
    // A read of both channels, after the stop (1 block) and the start (1 block).
    const Lines l_vstrLines{"",
                            "",
                            "",
                            "",
                            l_strRolling + "l_lProcessedDataSize allocation error",
                            l_strRolling + l_strVoie + " allocation error",
                            l_strRolling + l_strVoie + "[0] allocation error",
                            l_strRolling + l_strVoie + "[1] allocation error"};
    for (uint32_t l_ul = 1; l_ul <= l_vstrLines.size(); ++l_ul) {
        SCOPED_TRACE(l_ul);
        g_ulFailingAllocation = l_ul;
        const S_RESULT l_Result = Measure(1, l_vReply);
        EXPECT_EQ(g_ulFailingAllocation, 0U);
        // The first stop may fail.
        EXPECT_EQ(l_Result.ulStatus, l_ul == 1 ? 0U : 1U);
        EXPECT_EQ(m_lValue, l_ul == 1 ? 16 : 0);
        const std::string& l_strLine = l_vstrLines[l_ul - 1];
        EXPECT_EQ(Taken(), l_strLine.empty() ? Lines{} : Lines{l_strLine + " [ERROR_LEVEL]"});
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    if (OnEmulatedProcessor()) {
        return;
    }
    // The largest buffer that a size can ask for; the address space of a sanitizer has no bound.
    const rlimit l_Limit{1U << 31, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &l_Limit), 0);
    m_Cmde = MakeCommand(20, 0, 0xFFFFFFF2);
    EXPECT_EQ(m_pProbe->SendCommand(&m_Cmde, &m_Receive, nullptr, 0), Record(2, 1));
    EXPECT_EQ(m_Home.TraceLines(), Line("SendCommand> TempSendStruc allocation error"));
#endif
}
