// Frames byte by byte, and what a send makes of a device's word.

#include <algorithm>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "board/BoardOnDevice.h"
#include "emulator/Crc.h"

using namespace tornval;

namespace {

using Bytes = std::vector<uint8_t>;

class Frame : public testing::Test
{
protected:
    void Start(const std::string& i_strMore = "")
    {
        m_pHome = std::make_unique<CTestHome>(k_pszBoardSection + i_strMore);
        PutDevice(m_pDevice);
        m_pBoard = std::make_unique<COpenBoard>();
        ASSERT_EQ(m_pBoard->CreateDriverInstance(), (S_RESULT{3, 0, 0, 0, 0}));
    }
    S_RESULT Send(uint8_t i_ucCmdeID, uint32_t i_ulTimeout, uint32_t i_ulSize,
                  const void* i_pcData = nullptr, uint8_t i_ucCanal = 0, uint8_t i_ucParam = 0)
    {
        S_SEND_STRUCT l_Cmde = MakeCommand(i_ucCmdeID, i_ulTimeout, i_ulSize);
        l_Cmde.ucCmdeParam = i_ucParam;
        m_pDevice->vFrame.clear();
        return static_cast<CMeasDriver&>(*m_pBoard).SendCommand(&l_Cmde, &m_Receive, i_pcData,
                                                                i_ucCanal);
    }
    [[nodiscard]] Bytes Head(size_t i_ulSize) const
    {
        return {m_pDevice->vFrame.begin(),
                m_pDevice->vFrame.begin() + static_cast<std::ptrdiff_t>(i_ulSize)};
    }

    std::shared_ptr<CScriptedDevice> m_pDevice = std::make_shared<CScriptedDevice>();
    std::unique_ptr<CTestHome> m_pHome;
    std::unique_ptr<COpenBoard> m_pBoard;
    S_RECEIVE_STRUCT m_Receive{};
};

const S_RESULT k_Sent{3, 2, 0, 0, 0};
const S_RESULT k_Refused{3, 2, 0, 0, 1};

} // namespace

TEST(Crc16, AgreesWithTheCatalogueAndWithTheEmulator)
{
    const CCrc16 l_Crc;
    EXPECT_EQ(l_Crc.ComputeCrc16("", 0), 0xFFFF);
    EXPECT_EQ(l_Crc.ComputeCrc16("abc", 3), 0x5749);
    EXPECT_EQ(l_Crc.ComputeCrc16("123456789", 9), 0x4B37);
    Bytes l_vBytes(300);
    uint32_t l_ulSeed = 1;
    for (uint8_t& l_ucByte : l_vBytes) {
        l_ulSeed = l_ulSeed * 1664525 + 1013904223;
        l_ucByte = static_cast<uint8_t>(l_ulSeed >> 24);
    }
    for (uint32_t l_ulLength = 0; l_ulLength < 280; ++l_ulLength) {
        const size_t l_ulStart = l_ulLength % 17;
        EXPECT_EQ(l_Crc.ComputeCrc16(l_vBytes.data() + l_ulStart, l_ulLength),
                  emulator::ComputeCrc({l_vBytes.data() + l_ulStart, l_ulLength}))
            << l_ulLength;
    }
}

TEST_F(Frame, OfEachCommandByteForByte)
{
    Start("CALIBRATION=257\nACQUISITION_PERIOD=3001\n");
    m_pBoard->m_ucBurst = 0x5A;
    static const uint8_t s_aucPayload[] = {9, 8, 7, 6};
    struct S_CASE
    {
        uint8_t ucCmdeID, ucCanal, ucParam;
        uint32_t ulTimeout, ulSize;
        const void* pcData;
        Bytes vFromSize; // offset 2 on
    };
    const S_CASE l_aCases[] = {
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
    for (const S_CASE& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.ucCmdeID);
        EXPECT_EQ(Send(l_Case.ucCmdeID, l_Case.ulTimeout, l_Case.ulSize, l_Case.pcData,
                       l_Case.ucCanal, l_Case.ucParam),
                  k_Sent);
        ASSERT_EQ(m_pDevice->vFrame.size(), 65548U);
        const Bytes l_vFrame = Head(2 + l_Case.vFromSize.size());
        EXPECT_EQ(Bytes(l_vFrame.begin() + 2, l_vFrame.end()), l_Case.vFromSize);
        EXPECT_EQ(ReadLe16(l_vFrame.data()),
                  emulator::ComputeCrc({m_pDevice->vFrame.data() + 2, l_Case.ulSize + 6}));
        EXPECT_EQ(ReadLe32(m_pDevice->vFrame.data() + 65544), m_pBoard->m_hSync);
        EXPECT_EQ(GetNbReturnByte(m_Receive), 65544U);
    }
}

TEST_F(Frame, RefusesWhatHasNone)
{
    Start();
    for (unsigned l_ulCmde = 0; l_ulCmde < 256; ++l_ulCmde) {
        for (const uint8_t l_ucCanal : std::initializer_list<uint8_t>{0, 1, 2, 3, 4, 255}) {
            const bool l_bKnown = l_ulCmde == 0 || (l_ulCmde >= 208 && l_ulCmde <= 214);
            const bool l_bAllowed =
                l_bKnown ? l_ucCanal == 0 || l_ucCanal == 3 : l_ulCmde == 3 && l_ucCanal == 3;
            EXPECT_EQ(Send(static_cast<uint8_t>(l_ulCmde), 0, 24, nullptr, l_ucCanal),
                      l_bAllowed ? k_Sent : k_Refused)
                << l_ulCmde << " canal " << unsigned{l_ucCanal};
            EXPECT_EQ(m_pDevice->vFrame.empty(), !l_bAllowed);
        }
    }
}

TEST_F(Frame, HoldsTheLargestSizeAndRefusesMore)
{
    Start("[LOG]\nENABLE=1\n");
    const Bytes l_vPayload(65528, 0x77);
    const uint32_t l_ulEvent = m_pBoard->m_hSync;
    EXPECT_EQ(Send(211, 0, 65532, l_vPayload.data()), k_Sent);
    EXPECT_EQ(m_pDevice->vFrame[65539], 0x77);
    EXPECT_EQ(ReadLe16(m_pDevice->vFrame.data()),
              emulator::ComputeCrc({m_pDevice->vFrame.data() + 2, 65538}));
    for (const uint32_t l_ulSize : {65533U, 65535U, 65536U, 70000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        EXPECT_EQ(Send(211, 0, l_ulSize, l_vPayload.data()), k_Refused) << l_ulSize;
        EXPECT_TRUE(m_pDevice->vFrame.empty());
        EXPECT_EQ(ReadLe32(m_pBoard->m_Frame.aucBytes + 65544), l_ulEvent);
    }
    for (const uint32_t l_ulSize : {0U, 1U, 3U}) {
        EXPECT_EQ(Send(211, 0, l_ulSize, l_vPayload.data()), k_Sent) << l_ulSize;
    }
}

TEST_F(Frame, TellsWhatTheDeviceSaid)
{
    Start();
    m_pDevice->ulStatusWord = 0x12345678;
    EXPECT_EQ(Send(210, 0, 4), (S_RESULT{3, 7, 0, 0x12345678, 1}));
    EXPECT_EQ(ReadLe32(reinterpret_cast<const uint8_t*>(&m_Receive)), 0x56785678U);
    m_pDevice->ulStatusWord = 0;
    m_pDevice->bSucceeds = false;
    m_pDevice->ulLastError = 31;
    EXPECT_EQ(Send(210, 0, 4), (S_RESULT{3, 2, 31, 0, 1}));
    EXPECT_EQ(GetNbReturnByte(m_Receive), 65544U);
    // No record, nowhere to write, no device.
    CMeasDriver& l_Driver = *m_pBoard;
    EXPECT_EQ(l_Driver.SendCommand(nullptr, &m_Receive, nullptr, 0), k_Refused);
    S_SEND_STRUCT l_Cmde = MakeCommand(210, 0, 4);
    EXPECT_EQ(l_Driver.SendCommand(&l_Cmde, nullptr, nullptr, 0), k_Refused);
    EXPECT_EQ(l_Driver.Close(), (S_RESULT{3, 4, 0, 0, 0}));
    EXPECT_EQ(l_Driver.Close(), (S_RESULT{3, 4, 0, 0, 1}));
    EXPECT_EQ(l_Driver.SendCommand(&l_Cmde, &m_Receive, nullptr, 0), k_Refused);
}
