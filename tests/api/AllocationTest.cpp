// Memory, down to the C library: the host-level road of a command takes none from the heap, and a
// road that finds none ends in its own record.

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "board/IntMeasDriverSerial.h"
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

namespace {

/** A board whose link is part of the test, so that nothing but the driver is counted. */
class CQuietBoard : public tornval::CIntMeasDriverSerial
{
public:
    CQuietBoard()
    {
        m_Kind.Transport.pfnControl = static_cast<tornval::PFN_CONTROL>(&CQuietBoard::Answer);
        m_pKind = &m_Kind;
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
        *i_Control.pulReturned = 30;
        return true;
    }

    tornval::S_WIRE_KIND m_Kind = *m_pKind;
};

/** Runs a call with its first block refused, then with its second, until it needs no more. */
template <typename Call, typename Check>
void RefuseEach(Call&& i_fnCall, Check&& i_fnCheck)
{
    for (int64_t l_llBlock = 0; l_llBlock < 5000; ++l_llBlock) {
        SCOPED_TRACE(l_llBlock);
        t_llGiven = l_llBlock;
        const S_RESULT l_Result = i_fnCall();
        const bool l_bRefused = t_llGiven < 0;
        t_llGiven = -1;
        i_fnCheck(l_Result, l_bRefused);
        if (!l_bRefused) {
            return;
        }
    }
    FAIL() << "it needs block after block";
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

namespace {

/** Refuses one block to a road. @return whether the road came so far. */
template <typename Road>
bool Refuse(uint32_t i_ulBlock, const Road& i_fnRoad)
{
    t_llGiven = int64_t{i_ulBlock} - 1;
    i_fnRoad();
    return std::exchange(t_llGiven, -1) < 0;
}

/** No more pages for this process. */
class CNoPages
{
public:
    CNoPages()
    {
        getrlimit(RLIMIT_AS, &m_Before);
        const rlimit l_None{1 << 20, m_Before.rlim_max};
        setrlimit(RLIMIT_AS, &l_None);
    }
    CNoPages(const CNoPages&) = delete;
    CNoPages& operator=(const CNoPages&) = delete;
    ~CNoPages() { setrlimit(RLIMIT_AS, &m_Before); }

private:
    rlimit m_Before{};
};

} // namespace

TEST(Allocation, RefusedEndsABlockingMeasureInItsOwnRecord)
{
    const CTestHome l_Home("[IM]\n");
    CQuietBoard l_Board;
    l_Board.ReadConfiguration();
    int32_t l_lValue = 0;
    {
        const CNoPages l_NoPages;
        EXPECT_EQ(l_Board.GetInstantMeasure(&l_lValue, 0, 1, 0), Failed(BOARD, NO_STEP));
    }
    // No blocks: nothing was sent. No event: sent, and the fetch fails.
    bool l_bRefused = true;
    for (uint32_t l_ulBlock = 1; l_bRefused; ++l_ulBlock) {
        S_RESULT l_Result{};
        l_bRefused =
            Refuse(l_ulBlock, [&] { l_Result = l_Board.GetInstantMeasure(&l_lValue, 0, 1, 0); });
        EXPECT_TRUE(!l_bRefused
                        ? l_Result == Done(BOARD, RESULT)
                        : l_Result == Failed(BOARD, NO_STEP) || l_Result == Failed(BOARD, RESULT))
            << l_ulBlock << ": " << l_Result;
    }
    EXPECT_EQ(l_Board.GetInstantMeasure(&l_lValue, 0, 1, 0), Done(BOARD, RESULT));
}

TEST(Allocation, RefusedEndsAReplayInAnEmptyUploadAndItsLine)
{
    const CTestHome l_Home("[IM]\nDAT_SIMU_FILE=" + std::string("\\hd00\\data.txt\n"));
    l_Home.Write("data.txt", "0 1 2 3\n4 5 6 7\n");
    std::vector<char> l_vRaw(900);
    std::vector<int32_t> l_vlData(903);
    uint32_t l_ulBlock = 1;
    for (bool l_bRefused = true; l_bRefused; ++l_ulBlock) {
        SCOPED_TRACE(l_ulBlock);
        tornval::SetTraceLog(
            std::make_unique<tornval::CTraceLogFile>("\\hd00\\log_tornval.txt", uint16_t{0x10}));
        tornval::CIntMeasDriverSimu l_Board;
        tornval::CMeasDriver& l_Driver = l_Board;
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
        S_RECEIVE_STRUCT l_Receive{};
        l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0);
        int32_t l_lSize = -1;
        const auto l_fnUpload = [&] {
            EXPECT_EQ(l_Driver.GetResult(900, l_vRaw.data(), &l_lSize, l_vlData.data(), 0, 1),
                      Done(BOARD, RESULT));
        };
        l_bRefused = Refuse(l_ulBlock, l_fnUpload);
        EXPECT_EQ(l_lSize, l_bRefused ? 0 : 900);
        const std::vector<std::string> l_vstrLines = l_Home.TraceLines();
        ASSERT_EQ(l_vstrLines.size(), l_bRefused ? 1U : 0U);
        if (l_bRefused) {
            EXPECT_NE(l_vstrLines[0].find("LastError=8 "), std::string::npos) << l_vstrLines[0];
            l_fnUpload(); // tries again
            EXPECT_EQ(l_lSize, 900);
        }
    }
    EXPECT_GT(l_ulBlock, 6U); // the file, the text, four columns
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

TEST(Allocation, OfEachRoadIsRefusedOnceEach)
{
    const CTestHome l_Home("[IM]\nDRIVER_NAME=" TORNVAL_LINKS "/virtual_link.so\n"
                           "[LOG]\nENABLE=1\nLEVEL=16\n");
    ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    RefuseEach([] { return LoadMeasDrivers(0x11); },
               [](const S_RESULT& i_Result, bool i_bRefused) {
                   EXPECT_TRUE(i_Result == Done(ROUTER, LOAD) ||
                               (i_bRefused && i_Result == Failed(ROUTER, LOAD)))
                       << i_Result;
               });
    S_DRIVER_INFO l_aInfo[2]{};
    uint32_t l_ulCount = 0;
    int32_t l_alValues[3]{};
    double l_adA[13], l_adB[13];
    ASSERT_EQ(LoadMeasDrivers(0x11).ulStatus, 0U);
    ASSERT_EQ(EnumMeasDrivers(l_aInfo, 2, &l_ulCount), 1U);
    static std::vector<char> s_vRaw(65544);
    static std::vector<int32_t> s_vlData(3 + 3 * 65544);
    const auto l_fnUpload = [&] {
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
        S_RECEIVE_STRUCT l_Receive{};
        int32_t l_lSize = 0;
        const S_RESULT l_Sent =
            SendMeasBoardCmd(l_aInfo[0].ulDriverID, &l_Cmde, &l_Receive, nullptr);
        return l_Sent.ulStatus != 0
                   ? l_Sent
                   : GetMeasBoardResult(l_aInfo[0].ulDriverID, 65544, s_vRaw.data(), &l_lSize,
                                        s_vlData.data(), 0);
    };
    const struct
    {
        const char* pszName;
        uint32_t ulDriver;
        std::function<S_RESULT()> fnCall;
    } l_aRoads[] = {
        {"measure", BOARD, [&] { return GetInstantMeasure(l_alValues, 1); }},
        {"milliohm", MODULE, [&] { return GetMicroOhmMeasure(l_alValues); }},
        {"upload", BOARD, l_fnUpload},
        {"initialise", BOARD, [&] { return InitialiseMeasBoard(l_aInfo[0].ulDriverID, 1); }},
        {"enumerate", BOARD,
         [&] {
             return EnumMeasDrivers(l_aInfo, 2, &l_ulCount) == 1 &&
                            GetMBCalibrationCoeff(l_adA, l_adB, 13) == 1
                        ? Done(BOARD, RESULT)
                        : S_RESULT{};
         }},
    };
    for (const auto& l_Road : l_aRoads) {
        SCOPED_TRACE(l_Road.pszName);
        RefuseEach(l_Road.fnCall, [&](const S_RESULT& i_Result, bool i_bRefused) {
            // The blocks of the call itself, or those of the link at its send or its fetch.
            EXPECT_TRUE(i_Result.ulStatus == 0 ||
                        (i_bRefused && (i_Result == Failed(l_Road.ulDriver, NO_STEP) ||
                                        i_Result == Failed(l_Road.ulDriver, SEND, {.ulError = 8}) ||
                                        i_Result == Failed(l_Road.ulDriver, RESULT,
                                                           {.ulError = 8, .ulFirmware = 2}))))
                << i_Result;
            EXPECT_EQ(l_Road.fnCall().ulStatus, 0U) << "the next one is right";
        });
    }
    LoadMeasDrivers(0);
}
