// The real drivers through the exports, over serial_link.so and pseudo terminals, and the
// instrument as a program of its own.

#include "Exchange.h"
#include "SerialLine.h"
#include "TestRecord.h"

#include "emulator/Recording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

namespace {

const std::string k_strDrivers =
    "[IM]\nDRIVER_NAME=" SERIAL_LINK "\nCHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n";

/** A host with both drivers loaded; it unloads them before the lines go. */
class CHost
{
public:
    explicit CHost(const std::string& i_strSection) : m_Home(k_strDrivers + i_strSection)
    {
        EXPECT_EQ(Load().ulStatus, 0U);
    }
    CHost(const CHost&) = delete;
    CHost& operator=(const CHost&) = delete;
    ~CHost() { LoadMeasDrivers(0); }

    S_RESULT Load()
    {
        const S_RESULT l_Result = LoadMeasDrivers(0x11);
        std::array<S_DRIVER_INFO, 2> l_aInfo{};
        uint32_t l_ulCount = 0;
        EnumMeasDrivers(l_aInfo.data(), 2, &l_ulCount);
        m_ulBoard = l_aInfo[0].ulDriverID; // the board's numbers are the lower ones
        return l_Result;
    }

    /** A send with its fetch on the board. */
    S_RESULT Exchange(uint8_t i_ucCmdeID)
    {
        return ::Exchange(m_ulBoard,
                          tornval::MakeCommand(i_ucCmdeID, 0, i_ucCmdeID == 208 ? 24 : 4), nullptr,
                          m_vRaw.data(), &m_lSize, m_vlData.data());
    }

    const CTestHome m_Home;
    uint32_t m_ulBoard = 0;
    int32_t m_lSize = 0;
    std::vector<char> m_vRaw = std::vector<char>(65544);
    std::vector<int32_t> m_vlData = std::vector<int32_t>(3 + 3 * 65544);
};

/** The value of the converter behind an input. */
int32_t Converter(uint32_t i_ulVoie)
{
    return static_cast<int32_t>(1000 * (i_ulVoie + 1) + i_ulVoie);
}

constexpr S_RESULT k_Good = Done(BOARD, RESULT);
constexpr S_RESULT k_TimedOut = Failed(BOARD, RESULT);

/** tornval-instrument as a child. Killed at the end, if it still runs. */
class CProgram
{
public:
    explicit CProgram(std::vector<std::string> i_vstrArguments)
    {
        int l_alOut[2], l_alError[2];
        EXPECT_EQ(pipe2(l_alOut, O_CLOEXEC) | pipe2(l_alError, O_CLOEXEC), 0);
        posix_spawn_file_actions_t l_Actions;
        posix_spawn_file_actions_init(&l_Actions);
        posix_spawn_file_actions_adddup2(&l_Actions, l_alOut[1], 1);
        posix_spawn_file_actions_adddup2(&l_Actions, l_alError[1], 2);
        i_vstrArguments.insert(i_vstrArguments.begin(), INSTRUMENT);
        std::vector<char*> l_vpszArguments;
        for (std::string& l_strArgument : i_vstrArguments) {
            l_vpszArguments.push_back(l_strArgument.data());
        }
        l_vpszArguments.push_back(nullptr);
        EXPECT_EQ(
            posix_spawn(&m_lPid, INSTRUMENT, &l_Actions, nullptr, l_vpszArguments.data(), environ),
            0);
        posix_spawn_file_actions_destroy(&l_Actions);
        close(l_alOut[1]);
        close(l_alError[1]);
        m_pOut = fdopen(l_alOut[0], "r");
        m_pError = fdopen(l_alError[0], "r");
    }
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;
    ~CProgram()
    {
        End(SIGKILL);
        (void)fclose(m_pOut);
        (void)fclose(m_pError);
    }

    [[nodiscard]] std::string Line() const { return Read(m_pOut); }
    [[nodiscard]] std::string ErrorLine() const { return Read(m_pError); }
    /** @param i_lSignal 0: waits for the end. @return the exit code; -1 when a signal ended it. */
    int End(int i_lSignal)
    {
        int l_lStatus = 0;
        if (m_lPid > 0) {
            kill(m_lPid, i_lSignal);
            waitpid(std::exchange(m_lPid, -1), &l_lStatus, 0);
        }
        return WIFEXITED(l_lStatus) ? WEXITSTATUS(l_lStatus) : -1;
    }
    void Signal(int i_lSignal) const { kill(m_lPid, i_lSignal); }

private:
    static std::string Read(FILE* i_pFile)
    {
        std::array<char, 512> l_acLine{};
        return std::fgets(l_acLine.data(), l_acLine.size(), i_pFile) == nullptr ? ""
                                                                                : l_acLine.data();
    }

    pid_t m_lPid = -1;
    FILE* m_pOut = nullptr;
    FILE* m_pError = nullptr;
};

std::string Named(const CTestHome& i_Home)
{
    return "[SERIAL_LINK]\nPORT_1=" + i_Home.Path("board") + "\nPORT_2=" + i_Home.Path("milliohm") +
           "\n";
}

} // namespace

TEST(SerialDrivers, MissNothingInTenThousandExchanges)
{
    const S_FAR_ENDS l_Far;
    CHost l_Host(l_Far.Section());
    const auto l_fnBoard = [](uint32_t i_ulVoie) {
        for (int i = 0; i < 5000; ++i) {
            int32_t l_lValue = 0;
            ASSERT_EQ(GetInstantMeasure(&l_lValue, i_ulVoie), k_Good);
            // Each thread gets its own input's value, never the other's.
            ASSERT_EQ(l_lValue, Converter(i_ulVoie));
        }
    };
    std::thread l_First(l_fnBoard, 2), l_Second(l_fnBoard, 9);
    for (int i = 0; i < 3000; ++i) {
        int32_t l_lValue = 0;
        ASSERT_EQ(GetMicroOhmMeasure(&l_lValue), Done(MODULE, RESULT));
        ASSERT_EQ(l_lValue, 123456);
    }
    l_First.join();
    l_Second.join();
    for (const auto& [l_pEnd, l_ullFrames] :
         {std::pair(&l_Far.BoardEnd, 10'002U), std::pair(&l_Far.ModuleEnd, 3000U)}) {
        EXPECT_EQ(l_pEnd->Counters().In.ullFrames, l_ullFrames);
        EXPECT_EQ(l_pEnd->Counters().ullOut, l_ullFrames);
        EXPECT_EQ(l_pEnd->Counters().In.ullDropped, 0U);
    }
}

TEST(SerialDrivers, UploadTheWholeRecordingSampleForSample)
{
    S_FAR_ENDS l_Far;
    std::string l_strError;
    const auto l_pRecording = emulator::CRecording::Load(RECORDING, l_strError);
    ASSERT_NE(l_pRecording, nullptr) << l_strError;
    l_Far.Board.SetRecording(l_pRecording);
    CHost l_Host(l_Far.Section());
    // In blocks that fit into a terminal's buffer, and in one that does not.
    for (const uint32_t l_ulRows : {300U, 21'000U}) {
        l_Far.Board.SetRows(l_ulRows);
        EXPECT_EQ(l_Host.Exchange(209), k_Good);
        size_t l_ulRow = 0;
        while (l_ulRow < l_pRecording->Rows()) {
            ASSERT_EQ(l_Host.Exchange(211), k_Good);
            const auto l_ulCount = static_cast<size_t>(l_Host.m_vlData[0]);
            ASSERT_EQ(l_Host.m_lSize, static_cast<int32_t>(3 + 3 * l_ulCount));
            ASSERT_GE(l_ulCount, std::min<size_t>(l_ulRows, 10'000));
            for (size_t l_ulChannel = 0; l_ulChannel < 3; ++l_ulChannel) {
                for (size_t i = 0; i < l_ulCount; ++i) {
                    ASSERT_EQ(l_Host.m_vlData[3 + l_ulChannel * l_ulCount + i],
                              l_pRecording->Counts(l_ulRow + i, l_ulChannel));
                }
            }
            l_ulRow += l_ulCount;
        }
    }
}

TEST(SerialDrivers, WorkAgainWhenAKilledInstrumentIsBack)
{
    const CTestHome l_Names;
    const std::vector<std::string> l_vstrArguments{"--pty",  "--names", l_Names.Path(""),  "--pace",
                                                   "460800", "--set",   "board:rows=21000"};
    std::optional<CProgram> l_oProgram(std::in_place, l_vstrArguments);
    EXPECT_TRUE(l_oProgram->Line().starts_with("board: /dev/pts/"));
    EXPECT_TRUE(l_oProgram->Line().starts_with("milliohm: /dev/pts/"));
    CHost l_Host(Named(l_Names));
    ASSERT_EQ(l_Host.Exchange(211), k_Good);
    const int32_t l_lRows = l_Host.m_vlData[0];
    std::thread l_Upload([&] { EXPECT_EQ(l_Host.Exchange(211), k_TimedOut); });
    std::this_thread::sleep_for(300ms); // the answer takes 1400
    l_oProgram->End(SIGKILL);
    // Down: a command fails at once, with error 21 at the send.
    int32_t l_lValue = 0;
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue), Failed(MODULE, SEND, {.ulError = 21}));
    EXPECT_EQ(GetInstantMeasure(&l_lValue, 2), Failed(BOARD, SEND, {.ulError = 21}));
    l_oProgram.emplace(l_vstrArguments);
    EXPECT_TRUE(l_oProgram->Line().starts_with("board: "));
    EXPECT_TRUE(l_oProgram->Line().starts_with("milliohm: "));
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue), Done(MODULE, RESULT));
    EXPECT_EQ(GetInstantMeasure(&l_lValue, 2), k_Good);
    EXPECT_EQ(l_lValue, Converter(2));
    l_Upload.join();
    // A new instrument wants its acquisition set up; then it goes on as if nothing had been.
    EXPECT_EQ(l_Host.Exchange(211), Failed(BOARD, RESULT, {.ulFirmware = 1005}));
    EXPECT_EQ(l_Host.Exchange(208), k_Good);
    EXPECT_EQ(l_Host.Exchange(211), k_Good);
    EXPECT_EQ(l_Host.m_vlData[0], l_lRows);
    // Switched off and on by the reset line: the acquisition is forgotten once more.
    l_oProgram->Signal(SIGHUP);
    for (int i = 0;
         i < 1000 && l_Host.Exchange(209).ulStatus == 0 && l_Host.Exchange(211).ulFwStatus != 1005;
         ++i) {
    }
    EXPECT_EQ(l_Host.Exchange(211), Failed(BOARD, RESULT, {.ulFirmware = 1005}));
    EXPECT_EQ(l_oProgram->End(SIGTERM), 0);
    EXPECT_NE(l_oProgram->ErrorLine().find("milliohm: in 1, out 1, bad CRC 0"), std::string::npos);
}

TEST(SerialDrivers, NeverTakeTheAnswerOfAnother)
{
    S_FAR_ENDS l_Far;
    int32_t l_lValue = 0;
    {
        CHost l_Host(l_Far.Section());
        // A measure between a send and its fetch, before the answer to the first has come in and
        // after it.
        for (const bool l_bAfter : {false, true}) {
            std::string l_strError;
            ASSERT_TRUE(l_Far.Board.Configure("late=100@212*1", l_strError)) << l_strError;
            S_SEND_STRUCT l_Cmde = tornval::MakeCommand(212, 0, 8);
            S_RECEIVE_STRUCT l_Receive{};
            const uint32_t l_ulVoie = 2;
            ASSERT_EQ(SendMeasBoardCmd(l_Host.m_ulBoard, &l_Cmde, &l_Receive, &l_ulVoie).ulStatus,
                      0U);
            std::this_thread::sleep_for(l_bAfter ? 300ms : 0ms);
            EXPECT_EQ(GetInstantMeasure(&l_lValue, 9), k_Good);
            EXPECT_EQ(l_lValue, Converter(9));
            EXPECT_EQ(GetMeasBoardResult(l_Host.m_ulBoard, l_Receive.ulNbReturnByte,
                                         l_Host.m_vRaw.data(), &l_Host.m_lSize,
                                         l_Host.m_vlData.data(), 0),
                      k_Good);
            EXPECT_EQ(l_Host.m_vlData[0], Converter(l_ulVoie));
        }
    }
    // A module whose port does not open has no way to the board's.
    const CTestHome l_Home(k_strDrivers + "[SERIAL_LINK]\nPORT_1=" + l_Far.BoardPty.Name() +
                           "\nPORT_2=/dev/no-such-port\n");
    LoadMeasDrivers(0x11);
    const uint64_t l_ullBefore = l_Far.BoardEnd.Counters().In.ullFrames;
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue), Failed(MODULE, SEND, {.ulError = 6}));
    EXPECT_EQ(GetInstantMeasure(&l_lValue, 2), k_Good);
    EXPECT_EQ(l_Far.BoardEnd.Counters().In.ullFrames, l_ullBefore + 1);
    LoadMeasDrivers(0);
}

// AddressSanitizer takes what unwinds a cancelled thread for null, and its stack for no stack.
#ifndef __SANITIZE_ADDRESS__
TEST(SerialDrivers, LetACancelledThreadGoAndMeasureOn)
{
    S_FAR_ENDS l_Far;
    const std::string l_strLinks = std::filesystem::path(SERIAL_LINK).parent_path().string();
    // A reply that is there at once is fetched without a wait, and a thread may go only in one.
    setenv("TORNVAL_EMULATOR_BT", "late=1", 1);
    setenv("TORNVAL_EMULATOR_USB", "late=1", 1);
    const CHost l_Host(l_Far.Section() + "[BT]\nLOAD=1\nDRIVER_NAME=" + l_strLinks +
                       "/zondebtc6.dll\n[USB]\nLOAD=1\nDRIVER_NAME=" + l_strLinks +
                       "/zondeusbc6.dll\n");
    std::array<S_DRIVER_INFO, 4> l_aInfo{};
    uint32_t l_ulCount = 0;
    EnumMeasDrivers(l_aInfo.data(), 4, &l_ulCount);
    for (const std::string l_strType : {"IM", "BT", "USB"}) {
        const auto l_itInfo =
            std::find_if(l_aInfo.begin(), l_aInfo.end(), [&](const S_DRIVER_INFO& i_Info) {
                return i_Info.szLinkType == l_strType;
            });
        ASSERT_NE(l_itInfo, l_aInfo.end()) << l_strType;
        const auto l_fnMeasure = [l_ulID = l_itInfo->ulDriverID](int32_t& o_lValue,
                                                                 uint32_t i_ulVoie) {
            return GetInstantMeasureOnDevice(l_ulID, &o_lValue, i_ulVoie, 100).ulStatus;
        };
        // A probe that was once asked for both channels answers in that way for good.
        const uint32_t l_ulOther = l_strType == "IM" ? 4 : 0;
        std::string l_strError;
        int32_t l_lFirst = 0;
        ASSERT_EQ(l_fnMeasure(l_lFirst, 0), 0U);
        for (int i = 0; i < 40; ++i) {
            // Before the send, in the link, in the wait, in the fetch: wherever it is by then.
            ASSERT_TRUE(l_Far.Board.Configure(i % 3 == 0 ? "late=20*1" : "late=1*1", l_strError));
            std::thread l_Cancelled([&] {
                for (int32_t l_lIgnored = 0;;) {
                    l_fnMeasure(l_lIgnored, l_ulOther);
                }
            });
            std::this_thread::sleep_for(std::chrono::microseconds(150 * i));
            pthread_cancel(l_Cancelled.native_handle());
            l_Cancelled.join();
            int32_t l_lValue = 0;
            ASSERT_EQ(l_fnMeasure(l_lValue, 0), 0U) << l_strType;
            ASSERT_EQ(l_lValue, l_lFirst) << l_strType;
        }
    }
    unsetenv("TORNVAL_EMULATOR_BT");
    unsetenv("TORNVAL_EMULATOR_USB");
}
#endif

TEST(SerialDrivers, UnloadWithAnswersInFlight)
{
    for (const char* l_pszFault : {"late=60000*1", "no-answer*1", "late=1*1"}) {
        S_FAR_ENDS l_Far;
        CHost l_Host(l_Far.Section());
        std::string l_strError;
        ASSERT_TRUE(l_Far.Board.Configure(l_pszFault, l_strError));
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
        S_RECEIVE_STRUCT l_Receive{};
        ASSERT_EQ(SendMeasBoardCmd(l_Host.m_ulBoard, &l_Cmde, &l_Receive, nullptr).ulStatus, 0U);
        while (l_Far.BoardEnd.Counters().In.ullFrames < 3) { // 210 and 208 of the loading, and this
            std::this_thread::sleep_for(1ms);
        }
        const auto l_Start = std::chrono::steady_clock::now();
        EXPECT_EQ(LoadMeasDrivers(0).ulStatus, 0U);
        EXPECT_LT(std::chrono::steady_clock::now() - l_Start, 1s);
        // Really gone: nobody has the library loaded any more. And it comes back.
        EXPECT_EQ(dlopen(SERIAL_LINK, RTLD_NOW | RTLD_NOLOAD), nullptr);
        if (std::string(l_pszFault) == "no-answer*1") {
            EXPECT_EQ(l_Host.Load().ulStatus, 0U);
            EXPECT_EQ(l_Host.Exchange(211), k_Good);
        }
    }
}

TEST(SerialInstrument, FindsBackFromGarbageAndFromItsOwnDeath)
{
    const auto l_oPty = emulator::CPty::Make();
    links::CBell l_Bell;
    links::CFrameReader l_Reader;
    links::CLineStream l_Stream(l_oPty->Fd(), l_Bell, l_Reader, 1000ms);
    const auto l_fnAsk = [&](const Bytes& i_vBytes, std::chrono::milliseconds i_Time) {
        Bytes l_vAnswer;
        l_Stream.Write(i_vBytes);
        const auto l_End = links::S_CLOCK::now() + i_Time;
        while (l_vAnswer.empty() && links::S_CLOCK::now() < l_End) {
            l_Stream.Step(l_End, [&](Bytes i_vFrame) { l_vAnswer = std::move(i_vFrame); });
        }
        return l_vAnswer.empty() ? 0 : At(l_vAnswer, 22);
    };
    const std::vector<std::string> l_vstrArguments{
        "--board", l_oPty->Name(), "--silence", "100", "--set", "adc=4/44", "--fault", "late=1"};
    Bytes l_vDamaged = Request(212, {4});
    l_vDamaged[13] ^= 1;
    for (const bool l_bKill : {true, false}) {
        CProgram l_Program(l_vstrArguments);
        EXPECT_EQ(l_Program.Line(), "board: " + l_oPty->Name() + "\n");
        EXPECT_EQ(l_fnAsk(Request(212, {4}), 5000ms), 44U);
        for (const Bytes& l_vGarbage :
             {Bytes{1, 2, 3}, Bytes(100, 0xFF), Bytes(40, 0), l_vDamaged}) {
            EXPECT_EQ(l_fnAsk(l_vGarbage, 500ms), 0U);
            EXPECT_EQ(l_fnAsk(Request(212, {4}), 5000ms), 44U);
        }
        EXPECT_EQ(l_Program.End(l_bKill ? SIGKILL : SIGINT), l_bKill ? -1 : 0);
        if (!l_bKill) {
            EXPECT_NE(l_Program.ErrorLine().find("bad CRC 1, dropped 159 bytes"),
                      std::string::npos);
        }
    }
    for (const auto& [l_vstrBad, l_pszTold] :
         std::initializer_list<std::pair<std::vector<std::string>, const char*>>{
             {{"--board", "/dev/null"}, "/dev/null: Inappropriate"},
             {{"--pty", "--fault", "no-such-fault"}, "no-such-fault"},
             {{"--pty", "--fault", "milliohm:rows=3"}, "rows=3"},
             {{"--pty", "--recording", "/dev/null"}, "holds no row"}}) {
        CProgram l_Program(l_vstrBad);
        EXPECT_NE(l_Program.ErrorLine().find(l_pszTold), std::string::npos);
        EXPECT_EQ(l_Program.End(0), 1);
    }
}
