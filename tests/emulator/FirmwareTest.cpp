#include "Frames.h"
#include "TestHome.h"

#include "emulator/BoardFirmware.h"
#include "emulator/MilliOhmFirmware.h"
#include "emulator/Recording.h"
#include "emulator/SampleEncoder.h"

#include <gtest/gtest.h>

using namespace emulator;

namespace {

constexpr size_t k_ulReturn = 12;
constexpr size_t k_ulError = 14;
constexpr size_t k_ulData = 18;

uint32_t ErrorOf(CFirmware& io_Firmware, const Bytes& i_vRequest)
{
    return At(io_Firmware.Handle(i_vRequest).vFrame, k_ulError);
}

} // namespace

TEST(Firmware, AnswersInItsFrame)
{
    CBoardFirmware l_Board;
    l_Board.SetAdc(2, 0x12345678);
    CMilliOhmFirmware l_Module;
    std::string l_strError;
    ASSERT_TRUE(l_Module.Configure("values=1/-2/3, version=V12", l_strError)) << l_strError;
    const struct
    {
        CFirmware& Firmware;
        Bytes vRequest, vFromId; // offset 2 on
    } l_aCases[] = {
        {l_Board,
         {0x0B, 0xBF, 0xD4, 0, 8, 0, 0, 0, 0, 0xD4, 0, 0, 2, 0, 0, 0},
         {0xD4, 0, 18, 0, 0, 0, 0, 0xD4, 0,    0,    1,    0,
          0,    0, 0,  0, 2, 0, 0, 0,    0x78, 0x56, 0x34, 0x12}},
        {l_Module,
         {0xBA, 0x99, 0, 0, 6, 0, 0x32, 0, 0, 0xA1, 0, 0, 1, 0},
         {0, 0, 22, 0, 0, 0, 0,    0xA1, 0,    0,    1, 0, 0, 0,
          0, 0, 1,  0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0}},
        {l_Module, Request(0xFF), {0, 0, 10, 0, 0, 0, 0, 0xFF, 0, 0, 1, 0, 'V', '1', '2', 0}},
    };
    for (const auto& l_Case : l_aCases) {
        const Bytes l_vFrame = l_Case.Firmware.Handle(l_Case.vRequest).vFrame;
        ASSERT_TRUE(IsSealed(l_vFrame));
        EXPECT_EQ(Bytes(l_vFrame.begin() + 2, l_vFrame.end()), l_Case.vFromId);
    }
    EXPECT_EQ(At(l_Module.Handle(Request(0xA0)).vFrame, k_ulReturn, 2), k_usReturnUnknownCommand);
    EXPECT_EQ(At(l_Module.Handle(Request(0xA1)).vFrame, k_ulReturn, 2), k_usReturnLength);
}

TEST(BoardFirmware, JudgesCommands)
{
    CBoardFirmware l_Board;
    const std::pair<Bytes, uint32_t> l_aCases[] = {
        {Request(211), k_ulErrorNotConfigured},
        {Request(216), k_ulErrorUnknownCommand},
        {Request(3), k_ulErrorUnknownCommand},
        {Request(212, {0}, 1), k_ulErrorUnknownCommand},
        {Request(212), k_ulErrorLength},
        {Request(212, {13}), k_ulErrorParameter},
        {Request(212, {12}), 0},
        {Request(208, {1, 3, 0, 1}), k_ulErrorLength},
        {Request(208, {0, 0}), k_ulErrorParameter},
        {Request(208, {3001, 0}), k_ulErrorParameter},
        {Request(208, {1, 0xFFFFFFFF}), k_ulErrorParameter},
        {Request(208, {1, 1, 13}), k_ulErrorParameter},
        {Request(213, {0, 1, 2}), k_ulErrorLocked},
        {Request(214), k_ulErrorLocked},
        {Request(0), k_ulErrorLength},
        {Request(0, {7}), 0},
        {Request(3, {9}, 3), 0},
        {Request(208, {3000, 2, 4, 12}), 0},
        {Request(211), 0},
        {Request(209), 0}};
    for (const auto& [l_vRequest, l_ulError] : l_aCases) {
        EXPECT_EQ(ErrorOf(l_Board, l_vRequest), l_ulError)
            << "command " << unsigned{l_vRequest[wire::k_ulCmdeOffset]} << ", "
            << l_vRequest.size();
    }
    const S_BOARD_STATE l_State = l_Board.State();
    EXPECT_EQ(l_State.ucCalibration, 7);
    EXPECT_EQ(l_State.ucBurst, 9);
    EXPECT_EQ(l_State.ulPeriod, 3000U);
    EXPECT_EQ(l_State.ulRow, 0U) << "an acquisition starts at the first row again";
    EXPECT_EQ(l_State.vulVoies, (std::vector<uint32_t>{4, 12}));
}

TEST(BoardFirmware, DropsSpoiltFrames)
{
    CBoardFirmware l_Board;
    Bytes l_vBadCrc = Request(210), l_vLong = l_vBadCrc;
    l_vBadCrc.back() ^= 1;
    l_vLong.push_back(0);
    for (const Bytes& l_vFrame : {l_vBadCrc, l_vLong, Bytes(), Bytes(5), Bytes(8), Bytes(11)}) {
        EXPECT_FALSE(l_Board.Handle(l_vFrame).bAnswered) << l_vFrame.size();
    }
    EXPECT_EQ(l_Board.Counters().ulBadCrc, 1U);
    EXPECT_EQ(l_Board.Counters().ulMalformed, 5U);
}

TEST(BoardFirmware, KeepsWhatWasStoredAndNothingElse)
{
    const CTestHome l_Home;
    const auto l_PairOf = [](CBoardFirmware& io_Board, size_t i_ulVoie) {
        const Bytes l_vFrame = io_Board.Handle(Request(208, {1, 0})).vFrame;
        return S_PAIR{At(l_vFrame, k_ulData + 8 * i_ulVoie),
                      static_cast<int32_t>(At(l_vFrame, k_ulData + 8 * i_ulVoie + 4))};
    };
    std::string l_strError;
    CBoardFirmware l_Board, l_Other;
    ASSERT_TRUE(l_Board.SetStore(l_Home.Path("store"), l_strError)) << l_strError;
    ASSERT_TRUE(l_Board.Configure("coef=5/7/-8", l_strError)) << l_strError;
    for (const Bytes& l_vRequest :
         {Request(215), Request(213, {12, 20000, 0U - 29000U}), Request(214)}) {
        ASSERT_EQ(ErrorOf(l_Board, l_vRequest), 0U);
    }
    EXPECT_EQ(ErrorOf(l_Board, Request(214)), k_ulErrorLocked);
    EXPECT_EQ(l_PairOf(l_Board, 12), S_PAIR{}) << "in force from a restart on";
    // Staged, and never stored.
    ErrorOf(l_Board, Request(215));
    EXPECT_EQ(ErrorOf(l_Board, Request(213, {0, 1, 1})), 0U);
    l_Board.Restart();
    ASSERT_TRUE(l_Other.SetStore(l_Home.Path("store"), l_strError)) << l_strError;
    for (CBoardFirmware* l_pBoard : {&l_Board, &l_Other}) {
        EXPECT_EQ(l_PairOf(*l_pBoard, 12), (S_PAIR{20000, -29000}));
        EXPECT_EQ(l_PairOf(*l_pBoard, 5), (S_PAIR{7, -8}));
        EXPECT_EQ(l_PairOf(*l_pBoard, 0), S_PAIR{});
    }
    l_Home.Write("store", "something else");
    EXPECT_FALSE(l_Other.SetStore(l_Home.Path("store"), l_strError));
    EXPECT_EQ(l_PairOf(l_Other, 12), S_PAIR{});
    EXPECT_EQ(CRecording::Load("/nowhere", l_strError), nullptr);
    EXPECT_NE(l_strError.find("/nowhere"), std::string::npos);
}

TEST(SampleEncoder, StepsAsFarAsItCanAndRefusesOrClampsTheRest)
{
    // 63 up and down are steps, also past the end of the absolute codes.
    const std::vector<S_SAMPLE> l_vSamples{{63}, {0}, {4095}, {4158}, {-5000, true}};
    const S_ENCODED l_Refused = EncodeSamples(l_vSamples, 1);
    EXPECT_EQ(l_Refused.ulSamples, 4U);
    EXPECT_EQ(l_Refused.vCodes, (Bytes{0xBF, 0xFF, 0x0F, 0xFF, 0xBF}));
    const S_ENCODED l_Clamped = EncodeSamples(l_vSamples, 1, E_UNREACHABLE::Clamp);
    EXPECT_EQ(l_Clamped.ulSamples, 5U);
    EXPECT_EQ(l_Clamped.ulClamped, 1U);
    EXPECT_EQ(l_Clamped.vCodes, (Bytes{0xBF, 0xFF, 0x0F, 0xFF, 0xBF, 0x30, 0x00}));
}

TEST(Faults, TextsAreUnderstoodOrRefused)
{
    CFaults l_Faults;
    std::string l_strError;
    for (const char* l_pszBad :
         {"nothing", "late", "late=", "late=x", "no-answer*", "error-code=1@256", "no-open@212",
          "ack", "late=4294967296", "measure-status", "error-code=1*2@212", "=3", ""}) {
        EXPECT_FALSE(l_Faults.Dial(l_pszBad, E_INSTRUMENT::Board, l_strError)) << l_pszBad;
    }
    ASSERT_TRUE(l_Faults.Dial("error-code=0x11@212*2", E_INSTRUMENT::Board, l_strError));
    ASSERT_TRUE(l_Faults.Dial("error-code=5", E_INSTRUMENT::Board, l_strError));
    EXPECT_EQ(l_Faults.Take(E_FAULT::ErrorCode, 211), 5U);
    EXPECT_EQ(l_Faults.Take(E_FAULT::ErrorCode, 212), 0x11U);
    EXPECT_EQ(l_Faults.Take(E_FAULT::ErrorCode, 212), 0x11U);
    EXPECT_EQ(l_Faults.Take(E_FAULT::ErrorCode, 212), 5U);
    EXPECT_EQ(l_Faults.Hits(E_FAULT::ErrorCode), 4U);
    l_Faults.Clear();
    EXPECT_EQ(l_Faults.Take(E_FAULT::ErrorCode, 212), std::nullopt);
}

TEST(Faults, SpoilAFrameOnce)
{
    const struct
    {
        const char* pszFault;
        size_t ulOffset, ulWidth;
        uint32_t ulValue;
        bool bSealed;
    } l_aCases[] = {
        {"frame-size=9*1", wire::k_ulSizeOffset, 2, 9, true},
        {"short=20*1", k_ulData, 4, 0xEEEEEEEE, false},
        {"corrupt=4*1, # a remark", k_ulData + 4, 4, 1000 ^ 0x55555555, false},
    };
    CBoardFirmware l_Board;
    const Bytes l_vGood = l_Board.Handle(Request(212, {0})).vFrame;
    for (const auto& l_Case : l_aCases) {
        std::string l_strError;
        ASSERT_TRUE(l_Board.Configure(l_Case.pszFault, l_strError)) << l_strError;
        const Bytes l_vFrame = l_Board.Handle(Request(212, {0})).vFrame;
        EXPECT_EQ(At(l_vFrame, l_Case.ulOffset, l_Case.ulWidth), l_Case.ulValue) << l_Case.pszFault;
        EXPECT_EQ(IsSealed(l_vFrame), l_Case.bSealed) << l_Case.pszFault;
        EXPECT_EQ(l_Board.Handle(Request(212, {0})).vFrame, l_vGood) << l_Case.pszFault;
    }
}
