// Memory, down to the C library: the host-level road of a command takes none from the heap, and a
// road that finds none ends in its own record.

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <utility>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Exchange.h"
#include "TestHome.h"
#include "TestRecord.h"
#include "board/IntMeasDriverSerial.h"
#include "probes/BTProbeDriver.h"
#include "samples/SampleCode.h"
#include "simulation/IntMeasDriverSimu.h"
#include "support/Trace.h"

static std::atomic<uint32_t> g_ulHeapBlocks{0};
/** How many more blocks this thread is given before one is refused; below 0: all. */
static thread_local int64_t t_llGiven = -1;

static bool IsRefused()
{
    ++g_ulHeapBlocks;
    return t_llGiven >= 0 && t_llGiven-- == 0;
}

#pragma GCC visibility push(default) // those of the libraries, too
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void* __libc_memalign(size_t, size_t);
extern "C" void* malloc(size_t i_ulSize)
{
    return IsRefused() ? nullptr : __libc_malloc(i_ulSize);
}
extern "C" void* calloc(size_t i_ulCount, size_t i_ulSize)
{
    return IsRefused() ? nullptr : __libc_calloc(i_ulCount, i_ulSize);
}
extern "C" void* realloc(void* io_pBlock, size_t i_ulSize)
{
    return IsRefused() ? nullptr : __libc_realloc(io_pBlock, i_ulSize);
}
extern "C" void* aligned_alloc(size_t i_ulAlignment, size_t i_ulSize)
{
    return IsRefused() ? nullptr : __libc_memalign(i_ulAlignment, i_ulSize);
}
#pragma GCC visibility pop

namespace {

/** A board whose link is part of the test, so that nothing but the driver is counted. */
class CQuietBoard : public tornval::CIntMeasDriverSerial
{
public:
    CQuietBoard()
    {
        m_Kind.Transport.pfnControl = static_cast<tornval::PFN_CONTROL>(&CQuietBoard::Answer);
        m_pKind = &m_Kind;
        already_init = 0;
    }
    /** What the configuration left: name, inputs, stores. */
    [[nodiscard]] std::string Settings() const
    {
        std::string l_strSettings = m_szDriverName;
        for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
            l_strSettings += " " + std::to_string(m_pulVoies[i]);
        }
        return l_strSettings + (m_ppVoieData == nullptr ? ", no stores" : "");
    }

private:
    bool Answer(const tornval::S_CONTROL& i_Control)
    {
        auto* l_pucOut = static_cast<uint8_t*>(i_Control.pOut);
        if (i_Control.ulCode == IOCTL_RS_SEND_COMMAND) {
            wire::WriteLe32(l_pucOut, 0);
            return ::SetEvent(wire::ReadLe32(static_cast<const uint8_t*>(i_Control.pIn) +
                                             RS_BLOCK_EVENT_OFFSET)) != 0;
        }
        std::memset(l_pucOut, 0, 64);
        l_pucOut[16] = 1;
        *i_Control.pulReturned = 200;
        return true;
    }

    tornval::S_WIRE_KIND m_Kind = *m_pKind;
};

void TraceErrors()
{
    tornval::SetTraceLog(
        std::make_unique<tornval::CTraceLogFile>("\\hd00\\log_tornval.txt", tornval::ERROR_LEVEL));
}

/** A road, and what it tells: its record, what is left behind, its lines behind slashes. */
struct S_ROAD
{
    const char* pszName;
    std::function<S_RESULT()> fnRun;
    std::string strGood;
    std::string strRefused; /**< pattern: without memory */
    std::function<void()> fnPrepare = [] {};
    std::function<std::string()> fnTell = [] { return ""; };
};

/** An exchange finds no memory for its blocks; in the link's send; for its event; in its fetch. */
constexpr const char* k_pszNoExchange =
    "[34] 0 0 0 1|"
    "[34] 2 8 0 1 / \\w+::SendCommand> ERROR echec du DeviceIO( / API::SendMeasBoardCmd> Error)?|"
    "[34] 5 0 0 1 / \\w+::GetResult> ERROR:  timeout ou event detruit \\(cmdeid=..\\)|"
    "[34] 5 8 2 1 / \\w+::GetResult> (ERROR: )?device io error\\(cmdeid=..\\) / "
    "\\w+::GetResult> ERROR \\(cmdeid=\\d+\\)( / API::GetMeasBoardResult> Error)?";

/** Runs a road with its first block refused, then with its second, until it needs no more. */
void RefuseEach(const CTestHome& i_Home, const S_ROAD& i_Road)
{
    SCOPED_TRACE(i_Road.pszName);
    bool l_bRefused = true;
    const auto l_fnRun = [&](int64_t i_llGiven) {
        i_Road.fnPrepare();
        tornval::ResetTraceLog();
        t_llGiven = i_llGiven;
        const S_RESULT l_Result = i_Road.fnRun();
        l_bRefused = std::exchange(t_llGiven, -1) < 0;
        std::ostringstream l_Told;
        l_Told << l_Result.ulDriverType << ' ' << l_Result.ulStep << ' ' << l_Result.ulLastError
               << ' ' << l_Result.ulFwStatus << ' ' << l_Result.ulStatus << i_Road.fnTell();
        for (const std::string& l_strLine : i_Home.TraceLines()) {
            l_Told << " / " << l_strLine.substr(0, l_strLine.find(" [ERROR_LEVEL]"));
        }
        return l_Told.str();
    };
    size_t l_ulFailed = 0;
    for (int64_t l_llBlock = 0; l_bRefused && l_llBlock < 5000; ++l_llBlock) {
        const std::string l_strTold = l_fnRun(l_llBlock);
        const bool l_bFailed = l_bRefused && l_strTold != i_Road.strGood;
        l_ulFailed += l_bFailed ? 1 : 0;
        EXPECT_TRUE(l_bFailed ? std::regex_match(l_strTold, std::regex(i_Road.strRefused))
                              : l_strTold == i_Road.strGood)
            << l_llBlock << ": " << l_strTold;
    }
    EXPECT_GT(l_ulFailed, 0U);
    EXPECT_EQ(l_fnRun(-1), i_Road.strGood) << "the next one is right";
}

} // namespace

TEST(Allocation, NoneOnTheRoadOfAHostLevelCommand)
{
    const CTestHome l_Home("[IM]\n");
    tornval::SetTraceLog(
        std::make_unique<tornval::CTraceLogFile>("\\hd00\\log_tornval.txt", uint16_t{0x1111}));
    CQuietBoard l_Board;
    tornval::CMeasDriver& l_Driver = l_Board;
    l_Board.ReadConfiguration();
    const uint8_t l_aucCodes[] = {0x81, 0x81};
    char l_cRaw = 0;
    int32_t l_lSize = 0, l_alValues[2] = {};
    const auto l_fnBlocks = [](const auto& i_fnCall) {
        const uint32_t l_ulBefore = g_ulHeapBlocks;
        i_fnCall();
        return g_ulHeapBlocks - l_ulBefore;
    };
    const auto l_fnCommand = [&] {
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(212, 0, 8);
        S_RECEIVE_STRUCT l_Receive{};
        ASSERT_EQ(l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0).ulStatus, 0U);
        ASSERT_EQ(l_Driver.GetResult(1, &l_cRaw, &l_lSize, l_alValues, 0, 1).ulStatus, 0U);
        ASSERT_EQ(tornval::DecodeOneChannel(l_aucCodes, 2, 4, 64, l_alValues), 2U);
    };
    l_fnCommand();
    EXPECT_EQ(l_fnBlocks(l_fnCommand), 0U);
    EXPECT_GT(l_Home.TraceLines().size(), 20U);
    // The count is real: a blocking command has blocks of its own.
    EXPECT_GT(l_fnBlocks([&] { l_Driver.GetInstantMeasure(l_alValues, 0, 1, 0); }), 0U);
}

TEST(Allocation, RefusedEndsEachRoadOfADriverInItsOwnRecordAndLine)
{
    const std::string l_strProbe = TORNVAL_LINKS "/zondebtc6.dll";
    const CTestHome l_Home("[IM]\nDRIVER_NAME=link\nCHANNEL_1=2\nCHANNEL_2=5\nCHANNEL_3=7\n"
                           "SET_RESET_EXEC=/none\nDAT_SIMU_FILE=\\hd00\\data.txt\n"
                           "[BT]\nDRIVER_NAME=" +
                           l_strProbe + "\n");
    l_Home.Write("data.txt", "0 1 2 3\n4 5 6 7\n");
    TraceErrors();
    std::unique_ptr<CQuietBoard> l_pBoard;
    std::unique_ptr<tornval::CMeasDriver> l_pDriver;
    int32_t l_lValue = 0;
    std::vector<char> l_vRaw(900);
    std::vector<int32_t> l_vlData(903);
    const auto l_fnMakeBoard = [&] { l_pBoard = std::make_unique<CQuietBoard>(); };
    const auto l_fnConfigure = [&] {
        l_fnMakeBoard();
        l_pBoard->ReadConfiguration();
    };
    const auto l_fnMakeReplay = [&] {
        l_pDriver = std::make_unique<tornval::CIntMeasDriverSimu>();
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
        S_RECEIVE_STRUCT l_Receive{};
        l_pDriver->SendCommand(&l_Cmde, &l_Receive, nullptr, 0);
    };
    const auto l_fnName = [&] {
        char l_aszName[260] = "none";
        if (l_pDriver != nullptr) {
            l_pDriver->GetDriverName(l_aszName);
        }
        return std::string(" ") + l_aszName;
    };
    const S_ROAD l_aRoads[] = {
        // The list of channels, the file, the stores.
        {"ReadConfiguration",
         [&] {
             l_pBoard->ReadConfiguration();
             return S_RESULT{};
         },
         "0 0 0 0 0 link 2 5 7", "0 0 0 0 0 (IM, no stores|VCI 0 1 0|link 2 5 7, no stores)",
         l_fnMakeBoard, [&] { return " " + l_pBoard->Settings(); }},
        {"InitIMB", [&] { return l_pBoard->InitIMB(); }, "3 5 0 0 0",
         "3 2 0 0 1( / CIntMeasDriverSerial::InitIMB> ERROR allocation)?", l_fnConfigure},
        {"SetMBCalibration",
         [&] {
             uint32_t l_ulIndex = 0;
             double l_dA = 1, l_dB = 1;
             return l_pBoard->SetMBCalibration(&l_ulIndex, &l_dA, &l_dB, 1);
         },
         "3 5 2 0 1 / CIntMeasDriver::TGPIO> cmde_line=/none lastError=2",
         "3 0 0 0 1|3 5 8 0 1 / CIntMeasDriver::TGPIO> cmde_line=/none lastError=8", l_fnConfigure},
        {"probe",
         [&] {
             l_pDriver.reset(new (std::nothrow) tornval::CBTProbeDriver());
             return S_RESULT{};
         },
         "0 0 0 0 0 " + l_strProbe,
         "0 0 0 0 0 none|0 0 0 0 0 (zondebtc6.dll|" + l_strProbe +
             ") / CBTProbeDriver::CUSBProbeDriver> Create Driver probe BT error",
         [] {}, l_fnName},
        {"replay",
         [&] { return l_pDriver->GetResult(900, l_vRaw.data(), &l_lValue, l_vlData.data(), 0, 1); },
         "3 5 0 0 0, 900", "3 5 0 0 0, 0 / (Could not open file|Error allocation:) LastError=8",
         l_fnMakeReplay, [&] { return ", " + std::to_string(l_lValue); }},
    };
    for (const S_ROAD& l_Road : l_aRoads) {
        // One ends at a program that cannot be started.
        if (!OnEmulatedProcessor() || std::string(l_Road.pszName) != "SetMBCalibration") {
            RefuseEach(l_Home, l_Road);
        }
    }
    if (OnEmulatedProcessor()) {
        return;
    }
    l_fnConfigure();
    // No more pages for this process.
    const rlimit l_None{1 << 20, RLIM_INFINITY}, l_All{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &l_None);
    const S_RESULT l_Result = l_pBoard->GetInstantMeasure(&l_lValue, 0, 1, 0);
    setrlimit(RLIMIT_AS, &l_All);
    EXPECT_EQ(l_Result, Failed(BOARD, NO_STEP));
}

TEST(Allocation, RefusedEndsEachExportInItsOwnRecordAndLine)
{
    const CTestHome l_Home("[IM]\nDRIVER_NAME=" TORNVAL_LINKS "/virtual_link.so\n"
                           "[LOG]\nENABLE=1\nLEVEL=16\n");
    static std::vector<char> s_vRaw(65544);
    static std::vector<int32_t> s_vlData(3 + 3 * 65544);
    S_DRIVER_INFO l_aInfo[2]{};
    uint32_t l_ulCount = 0;
    int32_t l_alValues[3]{};
    const auto l_fnID = [&] { return l_aInfo[0].ulDriverID; };
    const S_ROAD l_aRoads[] = {
        {"load", [] { return LoadMeasDrivers(0x11); }, "0 6 0 0 0",
         // Neither a link that does not open or close nor the first command, 210, fails a load.
         "0 6 0 0 1.*|0 6 0 0 0 / CIntMeasDriverSerial::.*"},
        {"measure", [&] { return GetInstantMeasure(l_alValues, 1); }, "3 5 0 0 0", k_pszNoExchange},
        {"raw", [&] { return GetInstantMeasureWithoutCompensation(l_alValues, 1); }, "3 5 0 0 0",
         k_pszNoExchange},
        {"on device", [&] { return GetInstantMeasureOnDevice(l_fnID(), l_alValues, 1, 0); },
         "3 5 0 0 0", k_pszNoExchange},
        {"ohm", [&] { return GetMicroOhmMeasure(l_alValues); }, "4 5 0 0 0", k_pszNoExchange},
        {"ohms", [&] { return GetAllMicroOhmMeasure(l_alValues, l_alValues + 1, l_alValues + 2); },
         "4 5 0 0 0", k_pszNoExchange},
        {"upload",
         [&] {
             return Exchange(l_fnID(), tornval::MakeCommand(211, 0, 4), nullptr, s_vRaw.data(),
                             l_alValues, s_vlData.data());
         },
         "3 5 0 0 0", k_pszNoExchange},
    };
    ASSERT_EQ(LoadMeasDrivers(0x11), Done(ROUTER, LOAD));
    for (const S_ROAD& l_Road : l_aRoads) {
        RefuseEach(l_Home, l_Road);
        // These take none.
        t_llGiven = 0;
        const uint32_t l_ulListed = EnumMeasDrivers(l_aInfo, 2, &l_ulCount);
        t_llGiven = -1;
        EXPECT_EQ(l_ulListed, 1U);
    }
    LoadMeasDrivers(0);
}

TEST(Allocation, OfTheFirstCallIsRefusedOnceEach)
{
    enum : int
    {
        LOADED = 10,
        LOADED_ALL_THE_SAME,
        LOADED_WITHOUT_TRACE,
        WITHOUT_CONFIGURATION,
        FAILED_ONCE
    };
    std::map<int, int> l_mapOutcomes;
    for (int64_t l_llBlock = 0; l_mapOutcomes[LOADED] == 0 && l_llBlock < 500; ++l_llBlock) {
        const CTestHome l_Home("[IM]\nSIMU=1\n[LOG]\nENABLE=1\nLEVEL=4369\n");
        const pid_t l_lPid = fork();
        if (l_lPid == 0) {
            t_llGiven = l_llBlock;
            const S_RESULT l_First = LoadMeasDrivers(0x11);
            const bool l_bRefused = t_llGiven < 0;
            t_llGiven = -1;
            CECORE_REASON l_Reason{};
            const uint32_t l_ulReasons = CeGetReasons(&l_Reason, 1);
            const S_RESULT l_Second = LoadMeasDrivers(0x11);
            const bool l_bTrace = !l_Home.TraceLines().empty();
            if (l_First.ulStatus == 0) {
                _exit(l_Second.ulStatus != 0 ? 1
                      : !l_bTrace            ? LOADED_WITHOUT_TRACE
                      : l_bRefused           ? LOADED_ALL_THE_SAME
                                             : LOADED);
            }
            if (l_First != Failed(ROUTER, LOAD) || l_ulReasons == 0) {
                _exit(2);
            }
            _exit(l_Second.ulStatus == 0 ? FAILED_ONCE
                  : l_Reason.code == 8   ? WITHOUT_CONFIGURATION
                                         : 3);
        }
        int l_lStatus = 0;
        ASSERT_EQ(waitpid(l_lPid, &l_lStatus, 0), l_lPid);
        ASSERT_TRUE(WIFEXITED(l_lStatus) && WEXITSTATUS(l_lStatus) >= LOADED)
            << l_llBlock << ": " << l_lStatus;
        ++l_mapOutcomes[WEXITSTATUS(l_lStatus)];
    }
    EXPECT_EQ(l_mapOutcomes[LOADED], 1);
    EXPECT_GE(l_mapOutcomes[LOADED_WITHOUT_TRACE], 2) << "the logger or its path";
    EXPECT_GE(l_mapOutcomes[WITHOUT_CONFIGURATION], 1);
    EXPECT_GE(l_mapOutcomes[FAILED_ONCE], 2) << "one of the drivers";
}
