// The host-level road of a command takes no memory from the heap.

#include <gtest/gtest.h>

#include "HeapCount.h"
#include "TestHome.h"
#include "board/IntMeasDriverSerial.h"

namespace {

/** A board whose link is part of the test, so that nothing but the driver is counted. */
class CQuietBoard : public tornval::CIntMeasDriverSerial
{
protected:
    bool DeviceIo(uint32_t i_ulCode, const void* i_pIn, uint32_t, void* o_pOut, uint32_t,
                  uint32_t* o_pulReturned) override
    {
        auto* l_pucOut = static_cast<uint8_t*>(o_pOut);
        if (i_ulCode == IOCTL_RS_SEND_COMMAND) {
            tornval::WriteLe32(l_pucOut, 0);
            return ::SetEvent(tornval::ReadLe32(static_cast<const uint8_t*>(i_pIn) +
                                                RS_BLOCK_EVENT_OFFSET)) != 0;
        }
        std::memset(l_pucOut, 0, 64);
        l_pucOut[16] = 1;
        *o_pulReturned = 30;
        return true;
    }
};

} // namespace

TEST(Allocation, NoneOnTheRoadOfAHostLevelCommand)
{
    const CTestHome l_Home("[IM]\n");
    CQuietBoard l_Board;
    tornval::CMeasDriver& l_Driver = l_Board;
    l_Board.ReadConfiguration();
    S_SEND_STRUCT l_Cmde = tornval::MakeCommand(212, 0, 8);
    S_RECEIVE_STRUCT l_Receive{};
    char l_cRaw = 0;
    int32_t l_lSize = 0, l_lValue = 0;
    const auto l_fnExchange = [&] {
        ASSERT_EQ(l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0).ulStatus, 0U);
        ASSERT_EQ(l_Driver.GetResult(1, &l_cRaw, &l_lSize, &l_lValue, 0, 1).ulStatus, 0U);
    };
    l_fnExchange();
    EXPECT_EQ(CountBlocks(l_fnExchange), 0U);
    // The count is real: a blocking command has blocks of its own.
    EXPECT_GT(CountBlocks([&] { l_Driver.GetInstantMeasure(&l_lValue, 0, 1, 0); }), 0U);
}
