// The host-level road of a command takes no memory from the heap, down to the C library.

#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "board/IntMeasDriverSerial.h"
#include "samples/SampleCode.h"
#include "support/Trace.h"

static std::atomic<uint32_t> g_ulHeapBlocks{0};

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* malloc(size_t i_ulSize)
{
    ++g_ulHeapBlocks;
    return __libc_malloc(i_ulSize);
}
extern "C" void* calloc(size_t i_ulCount, size_t i_ulSize)
{
    ++g_ulHeapBlocks;
    return __libc_calloc(i_ulCount, i_ulSize);
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
