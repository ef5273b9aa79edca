// Frames byte by byte, and what a send makes of a device's word.

#include <gtest/gtest.h>

#include "board/BoardOnDevice.h"
#include "emulator/Crc.h"

using namespace tornval;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr S_RESULT k_Sent = Done(BOARD, SEND);
constexpr S_RESULT k_Refused = Failed(BOARD, SEND);

} // namespace

TEST(Crc16, AgreesWithTheCatalogue)
{
    const wire::CCrc16 l_Crc;
    EXPECT_EQ(l_Crc.ComputeCrc16("", 0), 0xFFFF);
    EXPECT_EQ(l_Crc.ComputeCrc16("abc", 3), 0x5749);
    EXPECT_EQ(l_Crc.ComputeCrc16("123456789", 9), 0x4B37);
}

TEST(Frame, OfEachCommandByteForByte)
{
    S_BENCH l_Bench("CALIBRATION=257\nACQUISITION_PERIOD=3001\n");
    l_Bench.Board.m_ucBurst = 0x5A;
    static const uint8_t s_aucPayload[] = {9, 8, 7, 6};
    const struct
    {
        uint8_t ucCmdeID, ucCanal, ucParam;
        uint32_t ulTimeout, ulSize;
        const void* pcData;
        Bytes vFromSize; // offset 2 on
    } l_aCases[] = {
        {212, 0, 9, 10, 8, s_aucPayload, {212, 0, 8, 0, 0, 0, 0, 212, 0, 0, 9, 8, 7, 6}},
        {209, 0, 9, 1000, 4, s_aucPayload, {209, 0, 4, 0, 10, 0, 0, 209, 0, 9, 0xFF, 0xFF}},
        {210, 0, 0, 0xFFFFFFFF, 4, nullptr, {210, 0, 4, 0, 0x28, 0x5C, 0, 210, 0, 0, 0xFF}},
        {213, 0, 0, 99, 7, s_aucPayload, {213, 0, 7, 0, 0, 0, 0, 213, 0, 0, 9, 8, 7, 0xFF}},
        {0, 0, 9, 0, 5, nullptr, {0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF}},
        {0, 3, 9, 0, 5, nullptr, {0, 0, 5, 0, 0, 0, 3, 0, 0, 0, 0x5A, 0xFF}},
        {3, 3, 0, 0, 5, nullptr, {3, 0, 5, 0, 0, 0, 3, 3, 0, 0, 0x5A, 0xFF}},
        {208, 3, 0, 0, 5, nullptr, {208, 0, 5, 0, 0, 0, 3, 208, 0, 0, 0x5A, 0xFF}},
        {208, 0, 0, 0, 24, nullptr, {208, 0, 24, 0, 0, 0, 0,    208,  0,    0,   0xB8, 0x0B,
                                     0,   0, 3,  0, 0, 0, 2,    0,    0,    0,   0,    0,
                                     0,   0, 12, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.ucCmdeID);
        EXPECT_EQ(l_Bench.Send(l_Case.ucCmdeID, l_Case.ulTimeout, l_Case.ulSize, l_Case.pcData,
                               l_Case.ucCanal, l_Case.ucParam),
                  k_Sent);
        ASSERT_EQ(l_Bench.pDevice->vFrame.size(), 65548U);
        const uint8_t* l_pucFrame = l_Bench.pDevice->vFrame.data();
        EXPECT_EQ(Bytes(l_pucFrame + 2, l_pucFrame + 2 + l_Case.vFromSize.size()),
                  l_Case.vFromSize);
        EXPECT_EQ(wire::ReadLe16(l_pucFrame),
                  emulator::ComputeCrc({l_pucFrame + 2, l_Case.ulSize + 6}));
        EXPECT_EQ(wire::ReadLe32(l_pucFrame + 65544), l_Bench.Board.m_hSync);
        EXPECT_EQ(GetNbReturnByte(l_Bench.Receive), 65544U);
    }
}

TEST(Frame, RefusesWhatHasNone)
{
    S_BENCH l_Bench;
    for (unsigned l_ulCmde = 0; l_ulCmde < 256; ++l_ulCmde) {
        for (const uint8_t l_ucCanal : std::initializer_list<uint8_t>{0, 1, 2, 3, 4, 255}) {
            const bool l_bKnown = l_ulCmde == 0 || (l_ulCmde >= 208 && l_ulCmde <= 214);
            const bool l_bAllowed =
                l_bKnown ? l_ucCanal == 0 || l_ucCanal == 3 : l_ulCmde == 3 && l_ucCanal == 3;
            l_Bench.pDevice->vFrame.clear();
            EXPECT_EQ(l_Bench.Send(static_cast<uint8_t>(l_ulCmde), 0, 24, nullptr, l_ucCanal),
                      l_bAllowed ? k_Sent : k_Refused)
                << l_ulCmde << " canal " << unsigned{l_ucCanal};
            EXPECT_EQ(l_Bench.pDevice->vFrame.empty(), !l_bAllowed);
        }
    }
}

TEST(Frame, HoldsTheLargestSizeAndRefusesMore)
{
    S_BENCH l_Bench("[LOG]\nENABLE=1\n");
    const Bytes l_vPayload(65528, 0x77);
    const uint32_t l_ulEvent = l_Bench.Board.m_hSync;
    EXPECT_EQ(l_Bench.Send(211, 0, 65532, l_vPayload.data()), k_Sent);
    EXPECT_EQ(l_Bench.pDevice->vFrame[65539], 0x77);
    EXPECT_EQ(wire::ReadLe16(l_Bench.pDevice->vFrame.data()),
              emulator::ComputeCrc({l_Bench.pDevice->vFrame.data() + 2, 65538}));
    for (const uint32_t l_ulSize : {65533U, 65535U, 65536U, 70000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        l_Bench.pDevice->vFrame.clear();
        EXPECT_EQ(l_Bench.Send(211, 0, l_ulSize, l_vPayload.data()), k_Refused) << l_ulSize;
        EXPECT_TRUE(l_Bench.pDevice->vFrame.empty());
        EXPECT_EQ(wire::ReadLe32(l_Bench.Board.m_Frame->aucBytes + 65544), l_ulEvent);
    }
    for (const uint32_t l_ulSize : {0U, 1U, 3U}) {
        EXPECT_EQ(l_Bench.Send(211, 0, l_ulSize, l_vPayload.data()), k_Sent) << l_ulSize;
    }
}

TEST(Frame, TellsWhatTheDeviceSaid)
{
    S_BENCH l_Bench;
    l_Bench.pDevice->ulStatusWord = 0x12345678;
    EXPECT_EQ(l_Bench.Send(210), Failed(BOARD, REFUSED, {.ulFirmware = 0x12345678}));
    EXPECT_EQ(wire::ReadLe32(reinterpret_cast<const uint8_t*>(&l_Bench.Receive)), 0x56785678U);
    l_Bench.pDevice->ulStatusWord = 0;
    l_Bench.pDevice->bSucceeds = false;
    l_Bench.pDevice->ulLastError = 31;
    l_Bench.Board.m_ulCmdeStatus = 0x1234ABCD;
    EXPECT_EQ(l_Bench.Send(210), Failed(BOARD, SEND, {.ulError = 31}));
    EXPECT_EQ(GetNbReturnByte(l_Bench.Receive), 65544U);
    // A call that failed leaves the word as it stood.
    EXPECT_EQ(wire::ReadLe32(reinterpret_cast<const uint8_t*>(&l_Bench.Receive)), 0xABCDABCDU);
    // No record, nowhere to write, no device.
    CMeasDriver& l_Driver = l_Bench.Board;
    EXPECT_EQ(l_Driver.SendCommand(nullptr, &l_Bench.Receive, nullptr, 0), k_Refused);
    S_SEND_STRUCT l_Cmde = MakeCommand(210, 0, 4);
    EXPECT_EQ(l_Driver.SendCommand(&l_Cmde, nullptr, nullptr, 0), k_Refused);
    EXPECT_EQ(l_Driver.Close(), Done(BOARD, CLOSE));
    EXPECT_EQ(l_Driver.Close(), Failed(BOARD, CLOSE));
    EXPECT_EQ(l_Driver.SendCommand(&l_Cmde, &l_Bench.Receive, nullptr, 0), k_Refused);
}
