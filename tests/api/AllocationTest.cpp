// Memory, down to the C library: the host-level road of a command takes none from the heap, and a
// road that finds none ends in its own record.

#include <atomic>
#include <cstdlib>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "board/IntMeasDriverSerial.h"
#include "samples/SampleCode.h"
#include "simulation/IntMeasDriverSimu.h"
#include "support/Trace.h"

static std::atomic<uint32_t> g_ulHeapBlocks{0};
/** The block from here on that is refused, counted down; 0: none. */
static std::atomic<uint32_t> g_ulRefused{0};

static bool CountBlock()
{
    ++g_ulHeapBlocks;
    return g_ulRefused == 0 || --g_ulRefused != 0;
}

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* malloc(size_t i_ulSize)
{
    return CountBlock() ? __libc_malloc(i_ulSize) : nullptr;
}
extern "C" void* calloc(size_t i_ulCount, size_t i_ulSize)
{
    return CountBlock() ? __libc_calloc(i_ulCount, i_ulSize) : nullptr;
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
    bool Answer(uint32_t i_ulCode, const void* i_pIn, uint32_t, void* o_pOut, uint32_t,
                uint32_t* o_pulReturned)
    {
        auto* l_pucOut = static_cast<uint8_t*>(o_pOut);
        if (i_ulCode == IOCTL_RS_SEND_COMMAND) {
            wire::WriteLe32(l_pucOut, 0);
            return ::SetEvent(wire::ReadLe32(static_cast<const uint8_t*>(i_pIn) +
                                             RS_BLOCK_EVENT_OFFSET)) != 0;
        }
        std::memset(l_pucOut, 0, 64);
        l_pucOut[16] = 1;
        *o_pulReturned = 30;
        return true;
    }

    tornval::S_WIRE_KIND m_Kind = *m_pKind;
};

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
    g_ulRefused = i_ulBlock;
    i_fnRoad();
    return g_ulRefused.exchange(0) == 0;
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
