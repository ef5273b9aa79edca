#include "Frames.h"
#include "TestHome.h"

#include "emulator/BoardFirmware.h"
#include "emulator/MilliOhmFirmware.h"
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

TEST(BoardFirmware, AnswersAMeasureInItsFrame)
{
    CBoardFirmware l_Board;
    l_Board.SetAdc(2, 0x12345678);
    const Bytes l_vRequest{0x0B, 0xBF, 0xD4, 0, 8, 0, 0, 0, 0, 0xD4, 0, 0, 2, 0, 0, 0};
    const S_REPLY l_Reply = l_Board.Handle(l_vRequest);
    ASSERT_TRUE(l_Reply.bAnswered);
    const Bytes l_vExpected{0xD4, 0, 18, 0, 0, 0, 0, 0xD4, 0,    0,    1,    0,
                            0,    0, 0,  0, 2, 0, 0, 0,    0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(Bytes(l_Reply.vFrame.begin() + 2, l_Reply.vFrame.end()), l_vExpected);
    EXPECT_TRUE(IsSealed(l_Reply.vFrame));
}

TEST(BoardFirmware, JudgesCommands)
{
    CBoardFirmware l_Board;
    struct
    {
        Bytes vRequest;
        uint32_t ulError;
    } const l_aCases[] = {
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
    };
    for (const auto& l_Case : l_aCases) {
        EXPECT_EQ(ErrorOf(l_Board, l_Case.vRequest), l_Case.ulError)
            << "command " << unsigned{l_Case.vRequest[k_ulCmdeOffset]} << ", "
            << l_Case.vRequest.size() << " bytes";
    }
    const S_BOARD_STATE l_State = l_Board.State();
    EXPECT_EQ(l_State.ucCalibration, 7);
    EXPECT_EQ(l_State.ucBurst, 9);
    EXPECT_EQ(l_State.ulPeriod, 3000U);
    EXPECT_EQ(l_State.vulVoies, (std::vector<uint32_t>{4, 12}));
}

TEST(BoardFirmware, DropsSpoiltFrames)
{
    CBoardFirmware l_Board;
    Bytes l_vBadCrc = Request(210);
    l_vBadCrc.back() ^= 1;
    Bytes l_vLong = Request(210);
    l_vLong.push_back(0);
    const Bytes l_aFrames[] = {l_vBadCrc, l_vLong, {}, Bytes(5), Bytes(8), Bytes(11)};
    for (const Bytes& l_vFrame : l_aFrames) {
        EXPECT_FALSE(l_Board.Handle(l_vFrame).bAnswered) << l_vFrame.size();
    }
    EXPECT_EQ(l_Board.Counters().ulBadCrc, 1U);
    EXPECT_EQ(l_Board.Counters().ulMalformed, 5U);
    EXPECT_EQ(l_Board.Counters().ulFramesOut, 0U);
}

TEST(BoardFirmware, CalibrationComesIntoForceAtARestartAndIsKept)
{
    const CTestHome l_Home;
    const std::string l_strStore = l_Home.Path("store");
    const auto l_PairOf = [](CBoardFirmware& io_Board, size_t i_ulVoie) {
        const Bytes l_vFrame = io_Board.Handle(Request(208, {1, 0})).vFrame;
        return S_PAIR{At(l_vFrame, k_ulData + 8 * i_ulVoie),
                      static_cast<int32_t>(At(l_vFrame, k_ulData + 8 * i_ulVoie + 4))};
    };
    std::string l_strError;
    CBoardFirmware l_Board;
    ASSERT_TRUE(l_Board.SetStore(l_strStore, l_strError)) << l_strError;
    const S_PAIR l_New{20000, -29000};
    for (const Bytes& l_vRequest :
         {Request(215), Request(213, {12, 20000, 0U - 29000U}), Request(214)}) {
        ASSERT_EQ(ErrorOf(l_Board, l_vRequest), 0U);
    }
    EXPECT_EQ(ErrorOf(l_Board, Request(214)), k_ulErrorLocked);
    EXPECT_EQ(l_PairOf(l_Board, 12), S_PAIR{});
    l_Board.Restart();
    EXPECT_EQ(l_PairOf(l_Board, 12), l_New);
    EXPECT_EQ(l_PairOf(l_Board, 11), S_PAIR{});
    // The answer is long enough for every host.
    EXPECT_GE(l_Board.Handle(Request(208, {1, 0})).vFrame.size() + 4, 193U);

    // Staged and never stored: forgotten.
    ASSERT_EQ(ErrorOf(l_Board, Request(215)), 0U);
    ASSERT_EQ(ErrorOf(l_Board, Request(213, {0, 1, 1})), 0U);
    l_Board.Restart();
    EXPECT_EQ(l_PairOf(l_Board, 0), S_PAIR{});

    CBoardFirmware l_Other;
    ASSERT_TRUE(l_Other.SetStore(l_strStore, l_strError)) << l_strError;
    EXPECT_EQ(l_PairOf(l_Other, 12), l_New);
    l_Home.Write("store", "something else");
    EXPECT_FALSE(l_Other.SetStore(l_strStore, l_strError));
    EXPECT_EQ(l_PairOf(l_Other, 12), S_PAIR{});
}

TEST(BoardFirmware, UploadsTheRecordingBlockByBlock)
{
    std::string l_strError;
    const auto l_pRecording = CRecording::Load(RECORDING, l_strError);
    ASSERT_NE(l_pRecording, nullptr) << l_strError;
    CBoardFirmware l_Board;
    l_Board.SetRecording(l_pRecording);
    ASSERT_EQ(ErrorOf(l_Board, Request(208, {1, 3, 0, 1, 2})), 0U);
    const auto l_Expected = [&](size_t i_ulFirst, size_t i_ulRows) {
        std::vector<S_SAMPLE> l_vSamples;
        for (size_t i = 0; i < 3 * i_ulRows; ++i) {
            l_vSamples.push_back(
                {static_cast<int16_t>(l_pRecording->Counts(i_ulFirst + i / 3, i % 3))});
        }
        return EncodeSamples(l_vSamples, 3).vCodes;
    };
    // 15 blocks of 300 rows: the last one starts the recording over.
    for (size_t l_ulFirst = 0; l_ulFirst < 4500; l_ulFirst += 300) {
        const Bytes l_vFrame = l_Board.Handle(Request(211)).vFrame;
        const Bytes l_vStream(l_vFrame.begin() + 22, l_vFrame.end());
        ASSERT_EQ(At(l_vFrame, k_ulData), l_vStream.size());
        ASSERT_EQ(l_vStream, l_Expected(l_ulFirst, 300)) << l_ulFirst;
    }
    ASSERT_EQ(ErrorOf(l_Board, Request(209)), 0U);
    ASSERT_EQ(l_Board.State().ulRow, 0U);
    // More rows than a frame takes: whole rows up to its end, and the next block goes on there.
    ASSERT_TRUE(l_Board.Configure("rows=65521", l_strError)) << l_strError;
    const Bytes l_vFrame = l_Board.Handle(Request(211)).vFrame;
    const size_t l_ulRows = l_Board.State().ulRow;
    EXPECT_LE(l_vFrame.size(), k_ulMaxFrame);
    EXPECT_GT(l_vFrame.size() + 6, k_ulMaxFrame);
    EXPECT_EQ(Bytes(l_vFrame.begin() + 22, l_vFrame.end()), l_Expected(0, l_ulRows));
}

TEST(MilliOhmFirmware, MeasuresAndTellsItsVersion)
{
    CMilliOhmFirmware l_Module;
    std::string l_strError;
    ASSERT_TRUE(l_Module.Configure("values=1/-2/3, version=V 1.2", l_strError)) << l_strError;
    const Bytes l_vRequest{0xBA, 0x99, 0, 0, 6, 0, 0x32, 0, 0, 0xA1, 0, 0, 1, 0};
    const Bytes l_vMeasure = l_Module.Handle(l_vRequest).vFrame;
    const Bytes l_vExpected{0, 0, 22, 0, 0, 0, 0,    0xA1, 0,    0,    1, 0, 0, 0,
                            0, 0, 1,  0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0};
    EXPECT_EQ(Bytes(l_vMeasure.begin() + 2, l_vMeasure.end()), l_vExpected);
    const Bytes l_vVersion = l_Module.Handle(Request(0xFF)).vFrame;
    EXPECT_EQ(std::string(l_vVersion.begin() + 14, l_vVersion.end()), std::string("V 1.2\0", 6));
    EXPECT_EQ(At(l_Module.Handle(Request(0xA0)).vFrame, k_ulReturn, 2), k_usReturnUnknownCommand);
    EXPECT_EQ(At(l_Module.Handle(Request(0xA1)).vFrame, k_ulReturn, 2), k_usReturnLength);
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

TEST(Faults, EachOneSpoilsItsFieldOnce)
{
    struct
    {
        const char* pszFault;
        size_t ulOffset;
        size_t ulWidth;
        uint32_t ulValue;
        bool bSealed;
    } const l_aCases[] = {
        {"return-code=7*1", k_ulReturn, 2, 7, true},
        {"error-code=2006*1", k_ulError, 4, 2006, true},
        {"voie=13*1", k_ulData, 4, 13, true},
        {"frame-size=9*1", k_ulSizeOffset, 2, 9, true},
        {"short=20*1", k_ulData, 4, 0xEEEEEEEE, false},
        {"corrupt=4*1", k_ulData + 4, 4, 1000 ^ 0x55555555, false},
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
    std::string l_strError;
    ASSERT_TRUE(l_Board.Configure("no-answer*1, # a remark\n late=200*1", l_strError));
    EXPECT_FALSE(l_Board.Handle(Request(212, {0})).bAnswered);
    EXPECT_EQ(l_Board.Handle(Request(212, {0})).ulDelayMs, 200U);
    EXPECT_EQ(l_Board.Handle(Request(212, {0})).ulDelayMs, 0U);
}
