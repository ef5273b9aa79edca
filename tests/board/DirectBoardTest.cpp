// The board driver over a device file: initialisation, measures, uploads, failures.

#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "board/BoardOnDevice.h"

using namespace tornval;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes UploadData(uint32_t i_ulClaimed, const Bytes& i_vCodes)
{
    Bytes l_vData(4);
    wire::WriteLe32(l_vData.data(), i_ulClaimed);
    l_vData.insert(l_vData.end(), i_vCodes.begin(), i_vCodes.end());
    return l_vData;
}

void SetPair(uint32_t i_ulVoie, double i_dA, double i_dB)
{
    COpenBoard::s_dCoefA[i_ulVoie] = i_dA;
    COpenBoard::s_dCoefB[i_ulVoie] = i_dB;
}

std::vector<char> s_vRaw(65544);
std::vector<int32_t> s_vlData(3 + 3 * 65544);

} // namespace

TEST(DirectBoard, InitialisesOnceAndMeasures)
{
    S_BENCH l_Bench("CALIBRATION=1\n");
    l_Bench.pDevice->Answer(Bytes(200), 193);
    EXPECT_EQ(l_Bench.Driver().Init(), Done(BOARD, RESULT));
    EXPECT_TRUE(l_Bench.Driver().IsInitialised());
    EXPECT_EQ(l_Bench.pDevice->vCmdes, (Bytes{210, 0, 208}));
    // The family has its coefficients: nothing goes to the board any more.
    EXPECT_EQ(l_Bench.Driver().Init(), (S_RESULT{}));
    EXPECT_EQ(l_Bench.Board.InitIMB(), Done(BOARD, INIT));
    EXPECT_EQ(l_Bench.Driver().SetMBCalibration(nullptr, nullptr, nullptr, 0),
              Done(BOARD, NO_STEP));
    EXPECT_EQ(l_Bench.pDevice->vCmdes.size(), 3U);

    EXPECT_EQ(l_Bench.Driver().CurrentGeneratorBurst(0x1FE), Done(BOARD, RESULT));
    EXPECT_EQ(l_Bench.pDevice->vFrame[RS_FRAME_CANAL_OFFSET], 3);
    EXPECT_EQ(l_Bench.pDevice->vFrame[RS_FRAME_DATA_OFFSET], 0xFE);
    l_Bench.pDevice->Answer({2, 0, 0, 0, 0x39, 0x30, 0, 0}, 30);
    SetPair(2, 20000, -5);
    for (const auto& [l_ucCompensation, l_lExpected] :
         {std::pair<uint8_t, int32_t>{0, 12345}, {1, 24689}}) { // truncated
        int32_t l_lValue = 0;
        EXPECT_EQ(l_Bench.Driver().GetInstantMeasure(&l_lValue, 2, l_ucCompensation, 0),
                  Done(BOARD, RESULT));
        EXPECT_EQ(l_lValue, l_lExpected);
    }
    EXPECT_EQ(l_Bench.pDevice->vEcho, (Bytes{212, 0}));
}

TEST(DirectBoard, ConvertsWithTruncationAndSaturation)
{
    S_BENCH l_Bench;
    const struct
    {
        double dA, dB;
        uint16_t usSample;
        int32_t lMeasure;
    } l_aCases[] = {{10000, 0, 12345, 12345},
                    {1, -29000, 0, -2},
                    {10000, 0, 0xFFFF, -1},
                    {4294967295.0, 0, 32767, INT32_MAX},
                    {4294967295.0, 0, 0x8000, INT32_MIN},
                    {0, 0, 5, 0}};
    for (const auto& l_Case : l_aCases) {
        SetPair(2, l_Case.dA, l_Case.dB);
        int32_t l_lMeasure = 77;
        l_Bench.Board.ScaleSample(&l_lMeasure, 0, 1, l_Case.usSample);
        EXPECT_EQ(l_lMeasure, l_Case.lMeasure) << l_Case.dA << " " << l_Case.usSample;
    }
    int32_t l_lUntouched = 77;
    l_Bench.Board.ScaleSample(&l_lUntouched, 3, 0, 1);
    l_Bench.Board.ScaleSample(nullptr, 0, 0, 1);
    l_Bench.Board.m_pulVoies[0] = 13;
    l_Bench.Board.ScaleSample(&l_lUntouched, 0, 0, 1);
    EXPECT_EQ(l_lUntouched, 77);

    double l_adA[15] = {}, l_adB[15];
    std::fill_n(l_adB, 15, 9.0);
    SetPair(12, 3, -4);
    EXPECT_EQ(l_Bench.Board.GetMBCalibrationCoeff(l_adA, l_adB, 15), 1U);
    EXPECT_EQ(l_adA[12], 3.0);
    EXPECT_EQ(l_adB[12], -4.0);
    EXPECT_EQ(l_adB[13] + l_adB[14], 0.0);
    EXPECT_EQ(l_Bench.Board.GetMBCalibrationCoeff(nullptr, l_adB, 1), 0U);
    EXPECT_EQ(l_Bench.Board.GetMBCalibrationCoeff(l_adA, l_adB, 0), 0U);
}

TEST(DirectBoard, RefusesHostileUploadsAndKeepsTheRawBlock)
{
    S_BENCH l_Bench;
    const Bytes l_vCodes = {0x01, 0x00, 0x81, 0xC1, 0x85};
    SetPair(2, 10000, 0);
    SetPair(0, 10000, 0);
    SetPair(12, 10000, 0);
    const struct
    {
        uint32_t ulClaimed, ulReturned, ulStatus;
        int32_t lSize; // half a code is no sample; -1: as many as there are
    } l_aCases[] = {{5, 31, 0, 7},
                    {5, 27, 0, 7},
                    {5, 26, 1, 0},
                    {0, 22, 0, 3},
                    {1, 65548, 0, 3},
                    {65522, 65548, 0, -1},
                    {65523, 65548, 1, 0},
                    {65535, 0xFFFFFFFF, 1, 0},
                    {65541, 0xFFFFFFFF, 1, 0},
                    {0xFFFFFFFF, 0xFFFFFFFF, 1, 0},
                    {0xFFFFFFE9, 0xFFFFFFFF, 1, 0}};
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.ulClaimed);
        l_Bench.pDevice->Answer(UploadData(l_Case.ulClaimed, l_vCodes), l_Case.ulReturned);
        int32_t l_lSize = 99;
        std::fill(s_vRaw.begin(), s_vRaw.end(), 0);
        EXPECT_EQ(l_Bench.Fetch(ACQUISITION_UPLOAD, s_vRaw.data(), &l_lSize, s_vlData.data()),
                  l_Case.ulStatus == 0 ? Done(BOARD, RESULT) : Failed(BOARD, RESULT));
        if (l_Case.lSize >= 0) {
            EXPECT_EQ(l_lSize, l_Case.lSize);
        }
        EXPECT_EQ(s_vRaw[12], 1);
        EXPECT_EQ(static_cast<uint8_t>(s_vRaw[26]), l_vCodes[4]);
    }
    l_Bench.pDevice->Answer(UploadData(5, l_vCodes), 31);
    int32_t l_lSize = 99;
    // A short raw buffer is filled and not overrun; without room for samples nothing is decoded.
    const std::unique_ptr<char[]> l_pcShort(new char[3]);
    EXPECT_EQ(l_Bench.Fetch(211, l_pcShort.get(), &l_lSize, s_vlData.data(), 3).ulStatus, 0U);
    EXPECT_EQ(l_Bench.Fetch(211, s_vRaw.data(), nullptr, s_vlData.data()).ulStatus, 1U);
    EXPECT_EQ(l_Bench.Fetch(211, s_vRaw.data(), &l_lSize, nullptr).ulStatus, 1U);
    // The samples end where they end, however many there are.
    for (uint32_t l_ulCodes = 0; l_ulCodes < 150; ++l_ulCodes) {
        l_Bench.pDevice->Answer(UploadData(l_ulCodes, Bytes(l_ulCodes, 0x81)), 22 + l_ulCodes);
        std::fill_n(s_vlData.begin(), 200, 77);
        EXPECT_EQ(l_Bench.Fetch(211, s_vRaw.data(), &l_lSize, s_vlData.data()).ulStatus, 0U);
        EXPECT_EQ(l_lSize, static_cast<int32_t>(3 + l_ulCodes));
        EXPECT_EQ(std::count(s_vlData.begin() + l_lSize, s_vlData.begin() + 200, 77),
                  200 - l_lSize);
    }
    l_Bench.pDevice->Answer(UploadData(5, l_vCodes), 31);
    // A channel on an input that the board does not have; a channel without a store; raw data only.
    l_Bench.Board.m_pulVoies[1] = 13;
    EXPECT_EQ(l_Bench.Fetch(211, s_vRaw.data(), &l_lSize, s_vlData.data()).ulStatus, 1U);
    l_Bench.Board.m_pulVoies[1] = 0;
    l_Bench.Board.m_ppVoieData[0] = cecore::CZeroed<int32_t>();
    EXPECT_EQ(l_Bench.Fetch(211, s_vRaw.data(), &l_lSize, s_vlData.data()).ulStatus, 0U);
    EXPECT_TRUE(s_vlData[0] == 2 && s_vlData[1] == 1 && s_vlData[2] == 1);
    EXPECT_EQ(s_vlData[3], 1); // the first channel adds nothing, the second follows at once
    l_Bench.Board.m_bDecompressData = 0;
    EXPECT_EQ(l_Bench.Fetch(211, s_vRaw.data(), &l_lSize, s_vlData.data()).ulStatus, 1U);
    EXPECT_EQ(l_lSize, 0);
}

TEST(DirectBoard, FetchesOnlyWhatWasAnswered)
{
    S_BENCH l_Bench;
    l_Bench.pDevice->Answer(Bytes(200), 193);
    EXPECT_EQ(l_Bench.Fetch(208, s_vRaw.data(), nullptr, nullptr), Done(BOARD, RESULT));
    EXPECT_EQ(COpenBoard::already_init, 1);
    for (const uint32_t l_ulTooFew : {192U, 11U, 0U}) {
        l_Bench.pDevice->ulReturned = l_ulTooFew;
        EXPECT_EQ(l_Bench.Fetch(208, s_vRaw.data()), Failed(BOARD, RESULT));
    }
    l_Bench.pDevice->ulReturned = 192;
    for (const uint8_t l_ucPlain : std::initializer_list<uint8_t>{0, 209, 210, 213, 214}) {
        EXPECT_EQ(l_Bench.Fetch(l_ucPlain, s_vRaw.data(), nullptr, nullptr).ulStatus, 0U);
    }
    EXPECT_EQ(l_Bench.Fetch(212, s_vRaw.data(), nullptr, nullptr).ulStatus, 1U);
    // A null raw buffer consumes the signal, so the next fetch finds none (the wait is cut short by
    // closing the event).
    EXPECT_EQ(l_Bench.Fetch(210, nullptr, nullptr, nullptr), Failed(BOARD, RESULT));
    std::thread l_Closer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        cecore::CloseHandle(l_Bench.Board.m_hSync);
    });
    EXPECT_EQ(l_Bench.Driver().GetResult(1, s_vRaw.data(), nullptr, nullptr, 0xFFFFFFFF, 1),
              Failed(BOARD, RESULT));
    l_Closer.join();
    l_Bench.Board.m_hSync = 0;
    std::memset(l_Bench.Board.m_Frame->aucBytes + 65544, 0, 4);
    EXPECT_EQ(l_Bench.Driver().GetResult(1, s_vRaw.data(), nullptr, nullptr, 0, 1),
              Failed(BOARD, RESULT));
}

TEST(DirectBoard, GivesAWaitUpWhileAnotherSendIsStuck)
{
    S_BENCH l_Bench;
    l_Bench.pDevice->bSignal = false;
    EXPECT_EQ(l_Bench.Send(210), Done(BOARD, SEND));
    std::unique_lock l_Stuck(l_Bench.pDevice->Stuck);
    std::thread l_Sender([&] { EXPECT_EQ(l_Bench.Send(209), Done(BOARD, SEND)); });
    while (l_Bench.pDevice->ulSends < 2) {
        std::this_thread::yield();
    }
    std::future<S_RESULT> l_Fetched = std::async(std::launch::async, [&] {
        return l_Bench.Driver().GetResult(1, s_vRaw.data(), nullptr, nullptr, 0, 1);
    });
    // The wait is cut short by closing the event.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    cecore::CloseHandle(l_Bench.Board.m_hSync);
    EXPECT_EQ(l_Fetched.wait_for(std::chrono::seconds(2)), std::future_status::ready);
    l_Stuck.unlock();
    l_Sender.join();
    EXPECT_EQ(l_Fetched.get(), Failed(BOARD, RESULT));
    l_Bench.Board.m_hSync = 0;
}

TEST(DirectBoard, FindsTheAnswerOfAnAcceptedSendBehindARefusedOne)
{
    S_BENCH l_Bench;
    l_Bench.pDevice->Answer({}, 22);
    const auto l_fnFetch = [&] {
        return l_Bench.Driver().GetResult(1, s_vRaw.data(), nullptr, nullptr, 0, 1);
    };
    for (const bool l_bCallFails : {false, true}) {
        EXPECT_EQ(l_Bench.Send(210), Done(BOARD, SEND));
        l_Bench.pDevice->bSignal = false;
        l_Bench.pDevice->bSucceeds = !l_bCallFails;
        l_Bench.pDevice->ulStatusWord = 9;
        EXPECT_EQ(l_Bench.Send(210).ulStatus, 1U);
        l_Bench.pDevice->bSignal = l_Bench.pDevice->bSucceeds = true;
        l_Bench.pDevice->ulStatusWord = 0;
        EXPECT_EQ(l_fnFetch(), Done(BOARD, RESULT));
    }
}

TEST(SignalBook, TakesAwayOnlyWhatAGivenUpWaitLeft)
{
    const cecore::CUniqueHandle l_hEvent(cecore::CreateEventW(false, false));
    const auto l_fnIsSet = [&] {
        return cecore::WaitForSingleObject(l_hEvent.Get(), 0) == cecore::WAIT_OBJECT_0;
    };
    CSignalBook l_Book;
    // Nothing was given up: what is there belongs to the command that was accepted.
    l_Book.BeforeSend(l_hEvent.Get());
    ::SetEvent(l_hEvent.Get());
    l_Book.SendRefused(l_Book.BeforeSend(l_hEvent.Get()));
    EXPECT_TRUE(l_fnIsSet());
    l_Book.Signalled();
    // Given up, answered late: the next send takes it away, a refused one before it as well.
    l_Book.BeforeSend(l_hEvent.Get());
    l_Book.GivenUp();
    ::SetEvent(l_hEvent.Get());
    l_Book.SendRefused(l_Book.BeforeSend(l_hEvent.Get()));
    EXPECT_FALSE(l_fnIsSet());
    // Answered only after the next send, whose wait it ends: the signal of that one is now late, and
    // is taken away before the third.
    l_Book.BeforeSend(l_hEvent.Get());
    l_Book.GivenUp();
    l_Book.BeforeSend(l_hEvent.Get());
    l_Book.Signalled();
    ::SetEvent(l_hEvent.Get());
    l_Book.BeforeSend(l_hEvent.Get());
    EXPECT_FALSE(l_fnIsSet());
    l_Book.Signalled();
    // Given up, then fetched after all: there is nothing left to take away.
    l_Book.BeforeSend(l_hEvent.Get());
    l_Book.GivenUp();
    l_Book.Signalled();
    ::SetEvent(l_hEvent.Get());
    l_Book.BeforeSend(l_hEvent.Get());
    EXPECT_TRUE(l_fnIsSet());
}

TEST(DirectBoard, WaitsTenSecondsForItsDevice)
{
    CTestHome l_Home(k_pszBoardSection);
    const auto l_pDevice = std::make_shared<CScriptedDevice>();
    l_pDevice->ulRefusedOpens = 1;
    PutDevice(l_pDevice);
    COpenBoard l_Board, l_Other;
    EXPECT_EQ(l_Board.CreateDriverInstance(), Done(BOARD, NO_STEP));
    EXPECT_EQ(l_pDevice->ulOpens, 2U);
    cecore::UnregisterDevice(L"DEV7:");
    const auto l_Start = std::chrono::steady_clock::now();
    EXPECT_EQ(l_Other.CreateDriverInstance(), Failed(BOARD, NO_STEP, {.ulError = 2}));
    EXPECT_GE(std::chrono::steady_clock::now() - l_Start, std::chrono::seconds(9));
    EXPECT_EQ(l_Other.InitIMB(), Failed(BOARD, INIT));
}

TEST(DirectBoard, KeepsItsDefaultsWithoutAFileAndItsFamilysCoefficients)
{
    CTestHome l_Home;
    {
        COpenBoard l_Board;
        l_Board.ReadConfiguration();
        char l_aszName[260];
        l_Board.GetDriverName(l_aszName);
        EXPECT_STREQ(l_aszName, "IM");
        EXPECT_EQ(l_Board.m_ulTimeout, 10U);
        S_DATA l_Frame;
        S_SEND_STRUCT l_Cmde = MakeCommand(ACQUSITION_INIT, 0, 24);
        l_Board.PrepareCommandeInit({.pCmde = &l_Cmde, .pFrame = &l_Frame});
        EXPECT_EQ(Bytes(l_Frame.aucBytes + 12, l_Frame.aucBytes + 22),
                  (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF}));
        {
            COpenBoard l_Second;
            COpenBoard::already_init = 1;
            SetPair(3, 8, 9);
        }
        EXPECT_EQ(COpenBoard::already_init, 1);
    }
    EXPECT_EQ(COpenBoard::already_init, 0);
    EXPECT_EQ(COpenBoard::s_dCoefA[3], 8.0);
}
