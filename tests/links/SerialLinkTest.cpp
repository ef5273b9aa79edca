// The serial link by its entry points, over pseudo terminals: framing, faults of the line, time-outs,
// hang-ups, the port itself.

#include "SerialLine.h"

#include "links/serial/Settings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>

using namespace links;

TEST(SerialFrames, AreFoundByTheirSizeAndDroppedWhole)
{
    const std::string l_strCheck = "123456789";
    EXPECT_EQ(FrameCrc(Bytes(l_strCheck.begin(), l_strCheck.end())), 0x4B37);
    const Bytes l_vGood = Request(212, {2});
    Bytes l_vBad = Request(212, {3});
    l_vBad.back() ^= 1;
    const Bytes l_vNoSize{1, 2, 3, 4, 3, 0};
    Bytes l_vLongest(wire::k_ulMaxFrame);
    wire::PutNumber(l_vLongest, 4, 2, 0xFFFF);
    emulator::SealFrame(l_vLongest);
    struct S_CASE
    {
        std::vector<Bytes> vIn; // an empty one is a silence
        size_t ulGood, ulBadCrc, ulBroken, ulDropped;
    };
    const S_CASE l_aCases[] = {
        {{l_vGood, l_vGood}, 2, 0, 0, 0},
        {{l_vLongest, l_vGood}, 2, 0, 0, 0},
        {{l_vBad, {}, l_vGood}, 1, 1, 0, l_vBad.size()},
        // Behind a bad frame nothing counts before a silence.
        {{l_vBad, l_vGood, {}, l_vGood}, 1, 1, 0, l_vBad.size() + l_vGood.size()},
        {{l_vNoSize, l_vGood, {}, l_vGood}, 1, 0, 1, l_vNoSize.size() + l_vGood.size()},
        {{{0x55}, {}, l_vGood}, 1, 0, 1, 1},
        {{Bytes(l_vGood.begin(), l_vGood.end() - 1), {}, l_vGood}, 1, 0, 1, l_vGood.size() - 1},
        {{{}, {}, l_vGood, {}}, 1, 0, 0, 0},
    };
    for (const size_t l_ulPiece : {1U, 5U, 100'000U}) {
        for (const S_CASE& l_Case : l_aCases) {
            CFrameReader l_Reader;
            size_t l_ulGood = 0;
            const auto l_fnGood = [&](const Bytes& i_vFrame) {
                l_ulGood += i_vFrame == l_vGood || i_vFrame == l_vLongest ? 1 : 100;
            };
            for (const Bytes& l_vIn : l_Case.vIn) {
                if (l_vIn.empty()) {
                    l_Reader.Silence();
                    EXPECT_TRUE(l_Reader.AtStart());
                }
                for (size_t i = 0; i < l_vIn.size(); i += l_ulPiece) {
                    l_Reader.Feed(
                        std::span(l_vIn).subspan(i, std::min(l_ulPiece, l_vIn.size() - i)),
                        l_fnGood);
                }
            }
            const S_READER_COUNTERS l_Counters = l_Reader.Counters();
            EXPECT_EQ(l_ulGood, l_Case.ulGood);
            EXPECT_EQ(l_Counters.ullBadCrc, l_Case.ulBadCrc);
            EXPECT_EQ(l_Counters.ullBroken, l_Case.ulBroken);
            EXPECT_EQ(l_Counters.ullDropped, l_Case.ulDropped);
        }
    }
}

TEST(SerialLink, NeverTakesADamagedAnswerForAGoodOne)
{
    constexpr size_t k_ulLinks = 4;
    constexpr size_t k_ulExchanges = 1350; // on each of four lines
    const CTestHome l_Home;
    // 210 rewinds, so that each upload is the same; an answer to each stands ready for comparison.
    const std::vector<Bytes> l_vvCommands{Request(208, {1, 3, 0, 1, 2}), Request(210), Request(211),
                                          Request(212, {7})};
    std::vector<Bytes> l_vvAnswers;
    emulator::CBoardFirmware l_Reference;
    l_Reference.SetRows(30);
    for (const Bytes& l_vCommand : l_vvCommands) {
        l_vvAnswers.push_back(l_Reference.Handle(l_vCommand).vFrame);
    }
    std::array<std::optional<S_FAR_ENDS>, k_ulLinks> l_aoFar;
    std::array<CSerialLink, k_ulLinks> l_aLinks;
    for (size_t i = 0; i < k_ulLinks; ++i) {
        l_aoFar[i].emplace(emulator::S_LINE{5ms, 0, 0.96, static_cast<uint32_t>(i + 1)});
        l_aoFar[i]->Board.SetRows(30);
        l_Home.Write("TornvalC63.ini", l_aoFar[i]->Section(8, 6));
        ASSERT_EQ(l_aLinks[i].Open(k_OpenBoard), 1U);
    }
    std::atomic<uint64_t> l_ullIntact{0}, l_ullOther{0};
    const auto l_fnSweep = [&](CSerialLink& io_Link) {
        for (size_t i = 0; i < k_ulExchanges; ++i) {
            const size_t l_ulKind = i % l_vvCommands.size();
            S_LINK_EXCHANGE l_Exchange{io_Link};
            ASSERT_EQ(l_Exchange.Send(l_vvCommands[l_ulKind]), 0U);
            bool l_bSignalled = false;
            for (bool l_bOver = false; !l_bSignalled && !l_bOver;) {
                const auto l_Seen = io_Link.Counters(1).Conversation;
                l_bOver = l_Seen.ullAnswered + l_Seen.ullUnanswered > i;
                l_bSignalled = l_Exchange.Wait(l_bOver ? 0ms : 2ms);
            }
            if (l_bSignalled) {
                ++(l_Exchange.Fetch() == l_vvAnswers[l_ulKind] ? l_ullIntact : l_ullOther);
            }
        }
    };
    std::vector<std::thread> l_vThreads;
    for (CSerialLink& l_Link : l_aLinks) {
        l_vThreads.emplace_back(l_fnSweep, std::ref(l_Link));
    }
    for (std::thread& l_Thread : l_vThreads) {
        l_Thread.join();
    }
    emulator::S_NOISE_COUNTERS l_Noise;
    uint64_t l_ullBadCrc = 0, l_ullBroken = 0;
    for (size_t i = 0; i < k_ulLinks; ++i) {
        const emulator::S_NOISE_COUNTERS l_Each = l_aoFar[i]->BoardEnd.Counters().Noise;
        l_Noise.ullDamaged += l_Each.ullDamaged;
        l_Noise.ullIntact += l_Each.ullIntact;
        l_Noise.ullMatching += l_Each.ullMatching;
        const S_PORT_COUNTERS l_Port = l_aLinks[i].Counters(1);
        l_ullBadCrc += l_Port.Reader.ullBadCrc;
        l_ullBroken += l_Port.Reader.ullBroken;
        // The line is none the worse for it.
        EXPECT_EQ(l_aLinks[i].Close(0), 1U);
    }
    std::printf("%llu damaged answers: %llu with a matching CRC, %llu of those delivered; %llu "
                "whole with something behind; %llu dropped for the CRC, %llu broken. %llu answers "
                "delivered as they were made\n",
                static_cast<unsigned long long>(l_Noise.ullDamaged),
                static_cast<unsigned long long>(l_Noise.ullMatching),
                static_cast<unsigned long long>(l_ullOther),
                static_cast<unsigned long long>(l_Noise.ullIntact),
                static_cast<unsigned long long>(l_ullBadCrc),
                static_cast<unsigned long long>(l_ullBroken),
                static_cast<unsigned long long>(l_ullIntact));
    EXPECT_GE(l_Noise.ullDamaged, 5000U);
    EXPECT_LE(l_ullOther, l_Noise.ullMatching);
    EXPECT_LE(l_Noise.ullMatching, 3U);
    // Between the damaged ones the good ones come through.
    EXPECT_GT(l_ullIntact, l_Noise.ullIntact);
}

TEST(SerialLink, TellsALateAnswerFromTheOneThatIsDue)
{
    const CTestHome l_Home;
    S_FAR_ENDS l_Far;
    l_Home.Write("TornvalC63.ini", l_Far.Section(1000));
    CSerialLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    struct S_CASE
    {
        const char* pszFault; // of the first command
        uint8_t ucSecond;
        uint64_t ullLate; // answers dropped as late
    };
    for (const S_CASE& l_Case : {S_CASE{"late=1300*1", 212, 1}, S_CASE{"no-answer*1", 212, 0},
                                 S_CASE{"late=1300*1", 210, 1}, S_CASE{"no-answer*1", 210, 0},
                                 S_CASE{"late=50*1", 212, 0}}) {
        SCOPED_TRACE(std::string(l_Case.pszFault) + ", then " + std::to_string(l_Case.ucSecond));
        std::string l_strError;
        ASSERT_TRUE(l_Far.Board.Configure(l_Case.pszFault, l_strError)) << l_strError;
        const S_CONVERSATION_COUNTERS l_Before = l_Link.Counters(1).Conversation;
        const bool l_bInTime = std::string(l_Case.pszFault) == "late=50*1";
        S_LINK_EXCHANGE l_First{l_Link}, l_Second{l_Link};
        ASSERT_EQ(l_First.Send(Request(212, {1})), 0U);
        ASSERT_EQ(l_Second.Send(Request(l_Case.ucSecond, {9})), 0U);
        // The second one gets its own answer...
        ASSERT_TRUE(l_Second.Wait());
        const Bytes l_vAnswer = l_Second.Fetch();
        if (l_bInTime) {
            EXPECT_EQ(l_First.Value(), 2001U);
        }
        EXPECT_EQ(l_vAnswer.empty() ? 0 : l_vAnswer[RS_FRAME_CMDE_OFFSET], l_Case.ucSecond);
        if (l_Case.ucSecond == 212) {
            EXPECT_EQ(At(l_vAnswer, 22), 10009U);
        }
        // ...and the first one nothing, not even later.
        std::this_thread::sleep_for(400ms);
        EXPECT_FALSE(l_First.Wait(0ms));
        const S_CONVERSATION_COUNTERS l_After = l_Link.Counters(1).Conversation;
        EXPECT_EQ(l_After.ullLate - l_Before.ullLate, l_Case.ullLate);
        EXPECT_EQ(l_After.ullUnanswered - l_Before.ullUnanswered, l_bInTime ? 0U : 1U);
        EXPECT_EQ(l_After.ullStray, 0U);
    }
    // The right answer is still coming in when the time of the held one is over.
    std::string l_strError;
    {
        const CTestHome l_Slow;
        S_FAR_ENDS l_SlowFar(emulator::S_LINE{400ms, 460800});
        l_Slow.Write("TornvalC63.ini", l_SlowFar.Section(1000));
        CSerialLink l_SlowLink;
        ASSERT_EQ(l_SlowLink.Open(k_OpenBoard), 1U);
        // No divisor of the recording: each block is another.
        emulator::CBoardFirmware l_Reference;
        for (emulator::CBoardFirmware* l_pBoard : {&l_SlowFar.Board, &l_Reference}) {
            l_pBoard->SetRecording(emulator::CRecording::Load(RECORDING, l_strError));
            l_pBoard->SetRows(20'500);
            (void)l_pBoard->Handle(Request(208, {1, 3, 0, 1, 2}));
        }
        S_LINK_EXCHANGE l_First{l_SlowLink}, l_Second{l_SlowLink};
        ASSERT_TRUE(l_SlowFar.Board.Configure("late=1500*1", l_strError));
        ASSERT_EQ(l_First.Send(Request(211)), 0U);
        ASSERT_EQ(l_Second.Send(Request(211)), 0U);
        ASSERT_TRUE(l_Second.Wait(9s));
        EXPECT_FALSE(l_First.Wait(0ms));
        (void)l_Reference.Handle(Request(211));
        EXPECT_EQ(l_Second.Fetch(), l_Reference.Handle(Request(211)).vFrame);
    }
    // An event that is gone: the answer goes nowhere, and nothing is left to be fetched.
    ASSERT_TRUE(l_Far.Board.Configure("late=200*1", l_strError));
    S_LINK_EXCHANGE l_Gone{l_Link};
    ASSERT_EQ(l_Gone.Send(Request(212, {4})), 0U);
    l_Gone.Event.Reset();
    EXPECT_TRUE(l_Gone.Fetch().empty());
    EXPECT_EQ(cecore::GetLastError(), 21U);
}

TEST(SerialLink, GivesAnInstrumentTheTimeThatItsFrameGrants)
{
    const CTestHome l_Home;
    S_FAR_ENDS l_Far(emulator::S_LINE{800ms, 115200});
    l_Home.Write("TornvalC63.ini", l_Far.Section(1000, 1000));
    CSerialLink l_Link;
    uint32_t l_ulHandle = 0;
    ASSERT_EQ(l_Link.OpenEx(k_OpenModule, &l_ulHandle), 1U);
    l_Far.Module.Faults().Dial(emulator::E_FAULT::Late, 1500, 1);
    S_LINK_EXCHANGE l_Granted{l_Link, l_ulHandle};
    Bytes l_vFrame = Request(0xA1, {1});
    wire::PutNumber(l_vFrame, RS_FRAME_TIMEOUT_OFFSET, 2, 50);
    emulator::SealFrame(l_vFrame);
    ASSERT_EQ(l_Granted.Send(l_vFrame), 0U);
    EXPECT_TRUE(l_Granted.Wait());
    EXPECT_EQ(At(l_Granted.Fetch(), 18), 123456U);
    // An answer that takes its 1300 ms to come in is not given up on the way.
    l_Far.Module.SetVersion(std::string(15'000, 'v'));
    S_LINK_EXCHANGE l_Long{l_Link, l_ulHandle};
    ASSERT_EQ(l_Long.Send(Request(0xFF)), 0U);
    EXPECT_TRUE(l_Long.Wait());
    EXPECT_EQ(l_Long.Fetch().size(), 15'015U);
    // A head that cannot be.
    Bytes l_vShort = Request(0xFF);
    wire::PutNumber(l_vShort, RS_FRAME_SIZE_OFFSET, 2, 3);
    EXPECT_EQ(S_LINK_EXCHANGE({l_Link, l_ulHandle}).Send(l_vShort), 87U);
}

TEST(SerialLink, HoldsItsPortAloneAndGivesItBackAsItWas)
{
    const CTestHome l_Home;
    const S_FAR_ENDS l_Far;
    const int l_lFd = open(l_Far.BoardPty.Name().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_GE(l_lFd, 0);
    const wire::CDescriptor l_Keep(l_lFd);
    termios l_Before{}, l_Now{};
    ASSERT_EQ(tcgetattr(l_lFd, &l_Before), 0);
    l_Before.c_lflag |= ECHO | ICANON;
    l_Before.c_iflag |= IXON | ICRNL;
    cfsetspeed(&l_Before, B9600);
    ASSERT_EQ(tcsetattr(l_lFd, TCSANOW, &l_Before), 0);
    l_Home.Write("TornvalC63.ini", l_Far.Section());
    {
        CSerialLink l_Link, l_Other;
        ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
        tcgetattr(l_lFd, &l_Now);
        EXPECT_EQ(cfgetospeed(&l_Now), static_cast<speed_t>(B460800));
        EXPECT_EQ(l_Now.c_lflag & (ECHO | ICANON | ISIG), 0U);
        EXPECT_EQ(l_Now.c_iflag & (IXON | ICRNL), 0U);
        EXPECT_NE(flock(l_lFd, LOCK_EX | LOCK_NB), 0);
        EXPECT_EQ(l_Link.Open(k_OpenBoard), 0U);
        EXPECT_EQ(cecore::GetLastError(), 170U);
        EXPECT_EQ(l_Other.Open(k_OpenBoard), 0U);
        EXPECT_EQ(cecore::GetLastError(), 170U);
        EXPECT_EQ(l_Link.Close(0), 1U);
        EXPECT_EQ(l_Link.Close(0), 0U);
        EXPECT_EQ(cecore::GetLastError(), 6U);
        EXPECT_EQ(l_Other.Open(k_OpenBoard), 1U);
    }
    tcgetattr(l_lFd, &l_Now);
    EXPECT_EQ(cfgetospeed(&l_Now), static_cast<speed_t>(B9600));
    EXPECT_EQ(l_Now.c_lflag, l_Before.c_lflag);
    EXPECT_EQ(l_Now.c_iflag, l_Before.c_iflag);
    EXPECT_EQ(l_Now.c_cflag, l_Before.c_cflag);
    EXPECT_EQ(flock(l_lFd, LOCK_EX | LOCK_NB), 0);
}

TEST(SerialLink, SaysWhyAPortDoesNotOpen)
{
    const CTestHome l_Home;
    const S_FAR_ENDS l_Far;
    struct S_CASE
    {
        std::string strSection;
        CRsLink::S_OPEN Open;
        uint32_t ulError;
        std::string strTold;
    };
    const std::string l_strPort = "[SERIAL_LINK]\nPORT_1=";
    for (const S_CASE& l_Case :
         {S_CASE{l_strPort + "/dev/no-such-port", k_OpenBoard, 2, "/dev/no-such-port: No such"},
          S_CASE{l_strPort + "/dev/null", k_OpenBoard, 87, "/dev/null: Inappropriate"},
          S_CASE{l_Far.Section(), {1, RS_LINK_CONSTANT, 460801, 8}, 87, "does not take 460801"},
          S_CASE{l_Far.Section(), {1, RS_LINK_CONSTANT, 460800, 9}, 87, "9 data bits"},
          S_CASE{l_Far.Section(), {1, RS_LINK_CONSTANT, 0, 8}, 87, ""},
          S_CASE{l_Far.Section(), {1, 4999, 460800, 8}, 87, ""},
          S_CASE{l_Far.Section(), {3, RS_LINK_CONSTANT, 460800, 8}, 2, ""},
          S_CASE{"[SERIAL_LINK]\nSILENCE=0", k_OpenBoard, 13, "SILENCE=0: not a number from 1"},
          S_CASE{"[SERIAL_LINK]\nANSWER_TIMEOUT=2 s", k_OpenBoard, 13, "ANSWER_TIMEOUT=2 s"}}) {
        l_Home.Write("TornvalC63.ini", l_Case.strSection);
        CSerialLink l_Link;
        testing::internal::CaptureStderr();
        EXPECT_EQ(l_Link.Open(l_Case.Open), 0U) << l_Case.strSection;
        EXPECT_EQ(cecore::GetLastError(), l_Case.ulError) << l_Case.strSection;
        EXPECT_NE(testing::internal::GetCapturedStderr().find(l_Case.strTold), std::string::npos);
    }
}

TEST(SerialLink, ReadsItsSection)
{
    const CTestHome l_Home;
    S_SERIAL_SETTINGS l_Settings;
    std::string l_strError;
    EXPECT_TRUE(ReadSettings(l_Settings, l_strError));
    EXPECT_EQ(l_Settings.astrPorts[0], "/dev/ttyS0");
    EXPECT_EQ(l_Settings.astrPorts[1], "/dev/ttyS1");
    EXPECT_EQ(l_Settings.AnswerTimeout, 2000ms);
    EXPECT_EQ(l_Settings.Silence, 500ms);
    // As the measurement library reads the same file: indented keys, quotes, no case, the first key
    // and the first section count, and a semicolon belongs to the value.
    l_Home.Write("TornvalC63.ini", "PORT_1=/dev/a\r\n[IM]\r\nPORT_1=/dev/b\r\nCHANNEL_1=1\r\n"
                                   "no equals sign\r\n[Serial_Link]\r\n; PORT_1=/dev/c\r\n"
                                   "  port_1 = \"/dev/by-path/pci ;0:14.0:1\" \r\n"
                                   "\tPORT_1=/dev/d\r\nSILENCE=30\r\nANSWER_TIMEOUT=20\r\n"
                                   "[LOG]\r\nPORT_2=/dev/e\r\n"
                                   "[SERIAL_LINK]\r\nPORT_2=/dev/f\r\n");
    EXPECT_TRUE(ReadSettings(l_Settings, l_strError)) << l_strError;
    EXPECT_EQ(l_Settings.astrPorts[0], "/dev/by-path/pci ;0:14.0:1");
    EXPECT_EQ(l_Settings.astrPorts[1], "/dev/ttyS1");
    EXPECT_EQ(l_Settings.Silence, 30ms);
    EXPECT_EQ(l_Settings.AnswerTimeout, 30ms); // never below the silence
}

TEST(SerialLink, WaitsForAQuietLineButNotForEver)
{
    const CTestHome l_Home;
    S_FAR_ENDS l_Far;
    l_Home.Write("TornvalC63.ini", l_Far.Section(1500));
    CSerialLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    const auto l_fnBabble = [&] { ASSERT_EQ(write(l_Far.BoardPty.Fd(), "\x55\x55\x55", 3), 3); };
    for (uint64_t i = 1; i <= 3; ++i) {
        // What comes in before a command shall not stand in front of its answer.
        l_fnBabble();
        while (l_Link.Counters(1).Reader.ullBroken + 1 < i) {
            std::this_thread::sleep_for(1ms);
        }
        std::this_thread::sleep_for(5ms);
        S_LINK_EXCHANGE l_Exchange{l_Link};
        ASSERT_EQ(l_Exchange.Send(Request(212, {2})), 0U);
        EXPECT_EQ(l_Exchange.Value(), 3002U);
    }
    const uint64_t l_ullHeard = l_Far.BoardEnd.Counters().In.ullFrames;
    const auto l_End = S_CLOCK::now() + 10s;
    l_fnBabble();
    S_LINK_EXCHANGE l_Exchange{l_Link};
    ASSERT_EQ(l_Exchange.Send(Request(212, {2})), 0U);
    while (l_Far.BoardEnd.Counters().In.ullFrames == l_ullHeard && S_CLOCK::now() < l_End) {
        l_fnBabble();
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(l_Far.BoardEnd.Counters().In.ullFrames, l_ullHeard + 1);
}

TEST(SerialLink, ComesBackWithALineThatHungUp)
{
    const CTestHome l_Home;
    const std::filesystem::path l_Name = l_Home.Path("port");
    l_Home.Write("TornvalC63.ini", "[SERIAL_LINK]\nPORT_1=" + l_Name.string() + "\n");
    emulator::CBoardFirmware l_Board;
    CSerialLink l_Link;
    std::deque<S_LINK_EXCHANGE> l_Cut; // exchanges that a hang-up ended
    for (uint64_t i = 0; i < 4; ++i) {
        auto l_oPty = emulator::CPty::Make();
        std::filesystem::create_symlink(l_oPty->Name(), l_Name);
        if (i == 0) {
            ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
        }
        {
            const emulator::CLineEnd l_End(l_Board, l_oPty->Fd(), {});
            S_LINK_EXCHANGE l_Exchange{l_Link};
            ASSERT_EQ(l_Exchange.Send(Request(212, {2})), 0U);
            EXPECT_EQ(l_Exchange.Value(), 3002U);
        }
        // In the middle of an answer, with another command behind it.
        for (int j = 0; j < 2; ++j) {
            l_Cut.push_back(S_LINK_EXCHANGE{l_Link});
            ASSERT_EQ(l_Cut.back().Send(Request(212, {2})), 0U);
        }
        EXPECT_EQ(write(l_oPty->Fd(), Request(212, {2}).data(), 9), 9);
        std::filesystem::remove(l_Name);
        l_oPty.reset();
        // Down: a send says so at once.
        EXPECT_EQ(S_LINK_EXCHANGE{l_Link}.Send(Request(212, {2})), 21U);
        EXPECT_EQ(l_Link.Counters(1).ullHangUps, i + 1);
    }
    for (const S_LINK_EXCHANGE& l_Exchange : l_Cut) {
        EXPECT_FALSE(l_Exchange.Wait(0ms));
    }
}

/** A command longer than a terminal takes while nobody reads it. */
static Bytes LongCommand()
{
    Bytes l_vLong(60'000);
    wire::PutNumber(l_vLong, RS_FRAME_SIZE_OFFSET, 2, 59'992);
    return l_vLong;
}

TEST(SerialLink, GivesUpACommandThatTheLineDoesNotTake)
{
    const CTestHome l_Home;
    const auto l_oPty = emulator::CPty::Make();
    l_Home.Write("TornvalC63.ini",
                 "[SERIAL_LINK]\nPORT_1=" + l_oPty->Name() + "\nANSWER_TIMEOUT=50\nSILENCE=50\n");
    CSerialLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    S_LINK_EXCHANGE l_Long{l_Link}, l_Next{l_Link};
    const Bytes l_vNext = Request(212, {2});
    ASSERT_EQ(l_Long.Send(LongCommand()), 0U);
    ASSERT_EQ(l_Next.Send(l_vNext), 0U);
    const auto l_End = S_CLOCK::now() + 10s;
    while (l_Link.Counters(1).Conversation.ullUnanswered == 0 && S_CLOCK::now() < l_End) {
        std::this_thread::sleep_for(1ms);
    }
    std::string l_strRead;
    while (!l_strRead.ends_with(std::string(l_vNext.begin(), l_vNext.end())) &&
           S_CLOCK::now() < l_End) {
        char l_acPiece[4096];
        const ssize_t l_lCount = read(l_oPty->Fd(), l_acPiece, sizeof(l_acPiece));
        l_strRead.append(l_acPiece, static_cast<size_t>(std::max<ssize_t>(l_lCount, 0)));
    }
    EXPECT_LT(S_CLOCK::now(), l_End);
    EXPECT_LT(l_strRead.size(), 60'000U);
}

TEST(SerialLink, ClosesInBoundedTime)
{
    const CTestHome l_Home;
    const auto l_oPty = emulator::CPty::Make();
    l_Home.Write("TornvalC63.ini", "[SERIAL_LINK]\nPORT_1=" + l_oPty->Name() + "\n");
    CSerialLink l_Link;
    sigset_t l_Signal{};
    sigaddset(&l_Signal, SIGTERM);
    for (const bool l_bHalfAnswer : {false, true}) {
        ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
        S_LINK_EXCHANGE l_Exchange{l_Link};
        ASSERT_EQ(l_Exchange.Send(l_bHalfAnswer ? Request(212, {1}) : LongCommand()), 0U);
        // The host's signals are the host's: no thread of the link takes one that it holds back.
        pthread_sigmask(SIG_BLOCK, &l_Signal, nullptr);
        EXPECT_EQ(kill(getpid(), SIGTERM), 0);
        EXPECT_EQ(sigwaitinfo(&l_Signal, nullptr), SIGTERM);
        std::thread l_Fetcher([&] { EXPECT_TRUE(l_Exchange.Fetch().empty()); });
        std::this_thread::sleep_for(20ms);
        if (l_bHalfAnswer) {
            EXPECT_EQ(write(l_oPty->Fd(), Request(212, {2}).data(), 9), 9);
            std::this_thread::sleep_for(10ms);
        }
        const auto l_Start = std::chrono::steady_clock::now();
        EXPECT_EQ(l_Link.Close(0), 1U);
        EXPECT_LT(std::chrono::steady_clock::now() - l_Start, 2s);
        l_Fetcher.join();
        EXPECT_FALSE(l_Exchange.Wait(0ms));
        Bytes l_vRest(100'000);
        while (read(l_oPty->Fd(), l_vRest.data(), l_vRest.size()) > 0) {
        }
    }
}
