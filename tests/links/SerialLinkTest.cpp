// The serial link by its entry points, over pseudo terminals: framing, faults of the line, time-outs,
// hang-ups, the port itself.

#include "SerialLine.h"

#include "links/serial/Conversation.h"
#include "links/serial/Settings.h"

#include <gtest/gtest.h>

#include <csignal>
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

/** Uploads of one conversation, the link and its line left out. */
class CUploads
{
public:
    bool MayGo() const
    {
        return m_Talk.EarliestFor(k_vCommand) <= std::chrono::steady_clock::now();
    }
    bool Begin()
    {
        m_Book.Add(k_vCommand, 211, 0);
        m_Talk.Begin(*m_Book.Take([](const auto&) { return true; }));
        return m_Talk.IsBusy();
    }
    /** @return whether nothing is waited for any more. */
    bool Answer(const Bytes& i_vFrame)
    {
        m_Talk.Answer(i_vFrame);
        return !m_Talk.IsBusy();
    }
    bool Expire()
    {
        std::this_thread::sleep_until(*m_Talk.Deadline());
        m_Talk.Expire(false);
        return !m_Talk.IsBusy();
    }
    Bytes Fetch() { return m_Book.Fetch(211).value_or(Bytes()); }

private:
    const Bytes k_vCommand = Request(211);
    links::CExchangeBook m_Book;
    links::CConversation m_Talk{m_Book, 1000ms, 100ms, 460800};
};

TEST(SerialLink, KnowsACopyOfALongAnswerByItsBytes)
{
    const auto l_fnLong = [](uint32_t i_ul) {
        return Request(211, {i_ul, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    };
    const Bytes l_vFirst = l_fnLong(1), l_vSecond = l_fnLong(2);
    CUploads l_Uploads;
    ASSERT_TRUE(l_Uploads.Begin());
    EXPECT_TRUE(l_Uploads.Answer(l_vFirst));
    EXPECT_EQ(l_Uploads.Fetch(), l_vFirst);
    // The next one goes at once. A copy of the answer before is held back until its own comes.
    EXPECT_TRUE(l_Uploads.MayGo() && l_Uploads.Begin());
    EXPECT_FALSE(l_Uploads.Answer(l_vFirst) || l_Uploads.Answer(l_vFirst));
    EXPECT_TRUE(l_Uploads.Answer(l_vSecond));
    EXPECT_EQ(l_Uploads.Fetch(), l_vSecond);
    EXPECT_FALSE(l_Uploads.MayGo()) << "a line that doubles answers";

    // An instrument that gives the same twice is believed, and from then on waited for.
    CUploads l_Constant;
    ASSERT_TRUE(l_Constant.Begin() && l_Constant.Answer(l_vFirst));
    ASSERT_TRUE(l_Constant.MayGo() && l_Constant.Begin());
    EXPECT_FALSE(l_Constant.Answer(l_vFirst));
    EXPECT_TRUE(l_Constant.Expire());
    EXPECT_EQ(l_Constant.Fetch(), l_vFirst);
    EXPECT_FALSE(l_Constant.MayGo());
}

TEST(SerialLink, DropsAnAnswerWhoseEventIsGone)
{
    const CTestHome l_Home;
    S_FAR_ENDS l_Far;
    l_Home.Write("TornvalC63.ini", l_Far.Section(1000));
    CSerialLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    l_Far.Board.Faults().Dial(emulator::E_FAULT::Late, 200, 1);
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

TEST(SerialLink, LeavesTheStandardDescriptorsToTheHost)
{
    const CTestHome l_Home;
    std::array<int, 3> l_alKept{};
    for (int i = 0; i < 3; ++i) {
        l_alKept[static_cast<size_t>(i)] = fcntl(i, F_DUPFD_CLOEXEC, 10);
        close(i);
    }
    bool l_bFree = true;
    uint32_t l_ulValue = 0;
    {
        const S_FAR_ENDS l_Far;
        l_Home.Write("TornvalC63.ini", l_Far.Section());
        CSerialLink l_Link;
        S_LINK_EXCHANGE l_Exchange{l_Link};
        if (l_Link.Open(k_OpenBoard) == 1 && l_Exchange.Send(Request(212, {2})) == 0) {
            l_ulValue = l_Exchange.Value();
        }
        for (int i = 0; i < 3; ++i) {
            l_bFree = l_bFree && fcntl(i, F_GETFD) < 0;
        }
    }
    for (int i = 0; i < 3; ++i) {
        dup2(l_alKept[static_cast<size_t>(i)], i);
        close(l_alKept[static_cast<size_t>(i)]);
    }
    EXPECT_TRUE(l_bFree);
    EXPECT_EQ(l_ulValue, 3002U);
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
