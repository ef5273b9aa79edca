#include <gtest/gtest.h>

#include "TestRecord.h"
#include "simulation/ProbeDriverSimu.h"

using namespace tornval;

namespace {

S_RESULT Send(CMeasDriver& io_Probe, uint8_t i_ucCmdeID, S_RECEIVE_STRUCT* o_pReceive)
{
    S_SEND_STRUCT l_Cmde = MakeCommand(i_ucCmdeID, 5000, 0);
    const S_RESULT l_Result = io_Probe.SendCommand(&l_Cmde, o_pReceive, nullptr, 0);
    EXPECT_EQ(l_Cmde.CmdeID, i_ucCmdeID);
    return l_Result;
}

} // namespace

TEST(ProbeSimu, NumbersNamesAndFlags)
{
    CBTProbeDriverSimu l_BT;
    CUSBProbeDriverSimu l_aUSB[2];
    CBTProbeDriverSimu l_Later;
    EXPECT_EQ(l_BT.GetDriverID(), 2000U);
    EXPECT_EQ(l_aUSB[0].GetDriverID(), 3000U);
    EXPECT_EQ(l_aUSB[1].GetDriverID(), 3001U);
    EXPECT_EQ(l_Later.GetDriverID(), 2003U);
    char l_aszName[260];
    l_BT.GetDriverName(l_aszName);
    EXPECT_STREQ(l_aszName, "BT");
    EXPECT_EQ(l_aUSB[0].Close(), Done(BT_PROBE, CLOSE));
    EXPECT_FALSE(l_aUSB[0].IsInitialised());
    EXPECT_EQ(l_aUSB[0].Init(), Done(BT_PROBE, INIT));
    EXPECT_TRUE(l_aUSB[0].IsInitialised());
}

TEST(ProbeSimu, CommandsAndTheirResults)
{
    CBTProbeDriverSimu l_Probe;
    char l_acRaw[803] = {};
    EXPECT_EQ(l_Probe.GetResult(803, l_acRaw, nullptr, nullptr, 0, 1), Failed(BT_PROBE, RESULT));
    for (unsigned l_ulID = 0; l_ulID < 256; ++l_ulID) {
        const bool l_bRead = l_ulID == 1 || l_ulID == 0x21;
        const bool l_bKnown = l_bRead || l_ulID == 0x20 || l_ulID == 0x22 || l_ulID == 0x40;
        S_RECEIVE_STRUCT l_Receive{7, 7};
        EXPECT_EQ(Send(l_Probe, static_cast<uint8_t>(l_ulID), &l_Receive),
                  l_bKnown ? Done(BT_PROBE, SEND) : Failed(BT_PROBE, SEND))
            << l_ulID;
        EXPECT_EQ(l_Receive.ulAnswer, l_bKnown ? 0U : 7U);
        EXPECT_EQ(l_Receive.ulNbReturnByte, l_bRead ? 803U : l_bKnown ? 0U : 7U);
        l_acRaw[0] = 'x';
        EXPECT_EQ(l_Probe.GetResult(803, l_acRaw, nullptr, nullptr, 0, 1),
                  l_bKnown ? Done(BT_PROBE, RESULT) : Failed(BT_PROBE, RESULT));
        EXPECT_EQ(l_acRaw[0], l_bRead ? 0x21 : 'x');
    }
    EXPECT_EQ(Send(l_Probe, 0x22, nullptr).ulStatus, 1U);
    EXPECT_EQ(l_Probe.GetResult(0, nullptr, nullptr, nullptr, 0, 1), Failed(BT_PROBE, RESULT));
    S_RECEIVE_STRUCT l_Receive{};
    EXPECT_EQ(l_Probe.SendCommand(nullptr, &l_Receive, nullptr, 0), Failed(BT_PROBE, SEND));
    EXPECT_EQ(l_Probe.GetResult(0, l_acRaw, nullptr, nullptr, 0, 1).ulStatus, 0U);
}

TEST(ProbeSimu, CannedReplyStaysInTheRoomThatItGets)
{
    CUSBProbeDriverSimu l_Probe;
    S_RECEIVE_STRUCT l_Receive{};
    Send(l_Probe, 1, &l_Receive);
    for (uint32_t l_ulRoom : {0U, 4U, 5U, 100U, 801U, 802U, 803U, 900U}) {
        SCOPED_TRACE(l_ulRoom);
        const bool l_bFits = l_ulRoom >= 5;
        const uint32_t l_ulCount = std::min(l_ulRoom - 4, 798U);
        std::vector<uint8_t> l_vRaw(l_ulRoom);
        l_vRaw.reserve(1);
        std::vector<int32_t> l_vlProcessed(801, 1);
        int32_t l_lSize = 99;
        EXPECT_EQ(l_Probe.GetResult(l_ulRoom, reinterpret_cast<char*>(l_vRaw.data()), &l_lSize,
                                    l_vlProcessed.data(), 0, 1),
                  l_bFits ? Done(BT_PROBE, RESULT) : Failed(BT_PROBE, RESULT));
        EXPECT_EQ(l_lSize, l_bFits ? static_cast<int32_t>(l_ulCount + 2) : 99);
        std::vector<uint8_t> l_vExpectedRaw(l_ulRoom, l_bFits ? 0x80 : 0);
        std::vector<int32_t> l_vlExpected(801, 1);
        if (l_bFits) {
            std::copy_n(std::initializer_list<uint8_t>{0x21, 0x1E, 3, 0x1F, 0xFF}.begin(), 5,
                        l_vExpectedRaw.begin());
            l_vlExpected[0] = static_cast<int32_t>(l_ulCount);
            l_vlExpected[1] = 0;
            std::fill_n(l_vlExpected.begin() + 2, l_ulCount, -252);
        }
        EXPECT_EQ(l_vRaw, l_vExpectedRaw);
        EXPECT_EQ(l_vlProcessed, l_vlExpected);
    }
    char l_acRaw[803];
    int32_t l_alProcessed[800] = {};
    EXPECT_EQ(l_Probe.GetResult(803, l_acRaw, nullptr, l_alProcessed, 0, 1).ulStatus, 1U);
}
