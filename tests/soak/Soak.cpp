// A campaign over bad lines: boards and modules behind pseudo terminals whose answers are damaged,
// lost, late, doubled, split and flooded; instruments that are killed, ports that go and come back.
//
// soak [--exchanges N] [--stage NAME] [--lines N]
//
// Every answer that the link delivers is compared with what a second instrument, asked the same in the
// same order, answers. Fails if one differs, or if descriptors, threads or memory grew.

#include "SerialLine.h"

#include "emulator/Recording.h"

#include <atomic>
#include <malloc.h>
#include <random>
#include <thread>

namespace {

enum class E_EVENT : uint8_t
{
    None,
    Killed,  // the instrument goes in the middle of something, and another one comes to its port
    Replaced // its port goes with it, and comes back
};

struct S_STAGE
{
    const char* pszName;
    emulator::S_TROUBLE Trouble;
    E_EVENT eEvent = E_EVENT::None;
};

const S_STAGE k_aStages[] = {
    {"clean", {}},
    {"noise", {.dNoise = 0.05}},
    {"loss", {.dLoss = 0.03}},
    {"delay", {.dDelay = 0.3, .DelayMost = 150ms}},
    {"duplication", {.dTwice = 0.3}},
    {"reordering", {.dLoss = 0.01, .dDelay = 0.1, .dTwice = 0.3, .DelayMost = 150ms}},
    {"split", {.dSplit = 0.5}},
    {"flood", {.dFlood = 0.02}},
    {"killed", {}, E_EVENT::Killed},
    {"replaced", {}, E_EVENT::Replaced},
};

struct S_SCORE
{
    std::atomic<uint64_t> ullRight{0}, ullMissed{0}, ullWrong{0}, ullByChance{0};
};

/** One board and one module behind bad lines, their like beside them, and the link in front. */
class CLine
{
public:
    CLine(const S_STAGE& i_Stage, uint32_t i_ulSeed, S_SCORE& io_Score)
        : m_Stage(i_Stage), m_Random(i_ulSeed), m_Score(io_Score)
    {
        m_Line.Trouble.ulSeed = i_ulSeed;
        Connect();
        m_Home.Write("TornvalC63.ini", "[SERIAL_LINK]\nPORT_1=" + m_Home.Path("board") +
                                           "\nPORT_2=" + m_Home.Path("module") +
                                           "\nANSWER_TIMEOUT=100\nSILENCE=20\n");
        m_bOpen = m_Link.Open(k_OpenBoard) == 1 && m_Link.OpenEx(k_OpenModule, &m_ulModule) == 1;
        SetUp();
    }

    [[nodiscard]] bool IsOpen() const { return m_bOpen; }

    void Exchange()
    {
        const uint32_t l_ulKind = Roll(10);
        ++m_ulValue;
        if (l_ulKind == 0) {
            for (emulator::CMilliOhmFirmware* l_pModule : {&m_Module, &m_ModuleLike}) {
                l_pModule->SetValues({static_cast<int32_t>(m_ulValue), -5, 7});
            }
            Ask(Request(wire::COMMAND_MICROOHM_MEASURE, {1}), m_ModuleLike, m_ulModule);
        } else if (l_ulKind == 1) {
            Ask(Request(wire::ACQUISITION_UPLOAD), m_BoardLike, 0);
        } else if (l_ulKind == 2 && Roll(4) == 0) {
            Ask(Request(wire::ACQUISITION_START), m_BoardLike, 0);
        } else {
            const uint32_t l_ulVoie = l_ulKind < 8 ? 2 : l_ulKind;
            m_Board.SetAdc(l_ulVoie, m_ulValue);
            m_BoardLike.SetAdc(l_ulVoie, m_ulValue);
            Ask(Request(wire::MEASURE_INTERNE, {l_ulVoie}), m_BoardLike, 0);
        }
    }

    void AddChances() { m_Score.ullByChance += Chances(); }

private:
    uint32_t Roll(uint32_t i_ulLimit) { return static_cast<uint32_t>(m_Random()) % i_ulLimit; }

    void Connect()
    {
        m_oBoardEnd.reset();
        m_oModuleEnd.reset();
        if (m_Stage.eEvent != E_EVENT::Killed || !m_oBoardPty) {
            for (const auto& [l_poPty, l_pszName] :
                 {std::pair(&m_oBoardPty, "board"), std::pair(&m_oModulePty, "module")}) {
                std::filesystem::remove(m_Home.Path(l_pszName));
                l_poPty->reset();
                *l_poPty = emulator::CPty::Make();
                std::filesystem::create_symlink((*l_poPty)->Name(), m_Home.Path(l_pszName));
            }
        }
        m_oBoardEnd.emplace(m_Board, m_oBoardPty->Fd(), m_Line);
        m_oModuleEnd.emplace(m_Module, m_oModulePty->Fd(), m_Line);
    }

    /** Brings both boards to the same state, whatever has reached the one of them. */
    void SetUp()
    {
        for (emulator::CBoardFirmware* l_pBoard : {&m_Board, &m_BoardLike}) {
            l_pBoard->Restart();
            l_pBoard->SetRows(m_Stage.eEvent == E_EVENT::None ? 40 : 3000);
            (void)l_pBoard->Handle(Request(wire::ACQUSITION_INIT, {1, 3, 0, 1, 2}));
        }
    }

    /** One exchange, from the send until the link has delivered the answer or given it up. */
    void Ask(const Bytes& i_vCommand, emulator::CFirmware& io_Like, uint32_t i_ulHandle)
    {
        const uint32_t l_ulPort = i_ulHandle == 0 ? 1 : 2;
        const auto l_fnOver = [&] {
            const links::S_PORT_COUNTERS l_Seen = m_Link.Counters(l_ulPort);
            return l_Seen.Conversation.ullAnswered + l_Seen.Conversation.ullUnanswered +
                   l_Seen.ullHangUps;
        };
        const bool l_bEvent = m_Stage.eEvent != E_EVENT::None && Roll(50) == 0;
        const auto l_Before = std::chrono::microseconds(Roll(1500));
        const uint64_t l_ullOver = l_fnOver();
        const Bytes l_vWanted = io_Like.Handle(i_vCommand).vFrame;
        links::CRsLink& l_Link = m_Link;
        S_LINK_EXCHANGE l_Exchange{l_Link, i_ulHandle};
        const bool l_bSent = l_Exchange.Send(i_vCommand) == 0;
        if (l_bEvent) {
            std::this_thread::sleep_for(l_Before);
            m_ullChances = Chances();
            Connect();
        }
        bool l_bSignalled = false;
        for (bool l_bOver = !l_bSent; !l_bSignalled && !l_bOver;) {
            l_bOver = l_fnOver() != l_ullOver;
            l_bSignalled = l_Exchange.Wait(l_bOver ? 0ms : 2ms);
        }
        const Bytes l_vAnswer = l_bSignalled ? l_Exchange.Fetch() : Bytes();
        ++(l_vAnswer.empty()        ? m_Score.ullMissed
           : l_vAnswer == l_vWanted ? m_Score.ullRight
                                    : m_Score.ullWrong);
        if (l_bEvent) {
            SetUp();
        }
    }

    uint64_t Chances() const
    {
        return m_ullChances + m_oBoardEnd->Counters().Noise.ullMatching +
               m_oModuleEnd->Counters().Noise.ullMatching;
    }

    const S_STAGE& m_Stage;
    std::mt19937 m_Random;
    S_SCORE& m_Score;
    uint32_t m_ulValue = 0;
    uint64_t m_ullChances = 0; // of ends that are gone
    const CTestHome m_Home;
    emulator::S_LINE m_Line{15ms, 0, m_Stage.Trouble};
    emulator::CBoardFirmware m_Board, m_BoardLike;
    emulator::CMilliOhmFirmware m_Module, m_ModuleLike;
    std::optional<emulator::CPty> m_oBoardPty, m_oModulePty;
    std::optional<emulator::CLineEnd> m_oBoardEnd, m_oModuleEnd;
    links::CSerialLink m_Link;
    uint32_t m_ulModule = 0;
    bool m_bOpen = false;
};

/** What must not grow. */
struct S_USE
{
    size_t ulDescriptors, ulThreads, ulHeap;

    static S_USE Now()
    {
        const auto l_fnEntries = [](const char* i_pszFolder) {
            return static_cast<size_t>(
                std::distance(std::filesystem::directory_iterator(i_pszFolder),
                              std::filesystem::directory_iterator()));
        };
        return {l_fnEntries("/proc/self/fd"), l_fnEntries("/proc/self/task"), mallinfo2().uordblks};
    }
};

bool Run(const S_STAGE& i_Stage, uint64_t i_ullExchanges, uint32_t i_ulLines)
{
    S_SCORE l_Score;
    const auto l_Start = std::chrono::steady_clock::now();
    {
        // One after the other: each points the environment at its own configuration.
        std::vector<std::unique_ptr<CLine>> l_vLines;
        std::vector<std::thread> l_vThreads;
        for (uint32_t l_ulLine = 0; l_ulLine < i_ulLines; ++l_ulLine) {
            l_vLines.push_back(std::make_unique<CLine>(i_Stage, l_ulLine + 1, l_Score));
            if (!l_vLines.back()->IsOpen()) {
                std::printf("%s: a port does not open\n", i_Stage.pszName);
                return false;
            }
        }
        for (uint32_t l_ulLine = 0; l_ulLine < i_ulLines; ++l_ulLine) {
            const uint64_t l_ullShare = (i_ullExchanges + l_ulLine) / i_ulLines;
            l_vThreads.emplace_back([l_pLine = l_vLines[l_ulLine].get(), l_ullShare] {
                for (uint64_t i = 0; i < l_ullShare; ++i) {
                    l_pLine->Exchange();
                }
            });
        }
        for (uint32_t l_ulLine = 0; l_ulLine < i_ulLines; ++l_ulLine) {
            l_vThreads[l_ulLine].join();
            l_vLines[l_ulLine]->AddChances();
        }
    }
    const std::chrono::duration<double> l_Time = std::chrono::steady_clock::now() - l_Start;
    std::printf("%-12s %9llu %9llu %9llu %9llu %9llu %8.1f\n", i_Stage.pszName,
                static_cast<unsigned long long>(i_ullExchanges),
                static_cast<unsigned long long>(l_Score.ullRight),
                static_cast<unsigned long long>(l_Score.ullMissed),
                static_cast<unsigned long long>(l_Score.ullWrong),
                static_cast<unsigned long long>(l_Score.ullByChance), l_Time.count());
    (void)std::fflush(stdout);
    return l_Score.ullWrong <= l_Score.ullByChance && l_Score.ullRight >= i_ullExchanges / 2;
}

} // namespace

int main(int i_lArguments, char** i_ppszArguments)
{
    uint64_t l_ullExchanges = 100'000;
    uint32_t l_ulLines = 32;
    std::string l_strStage;
    for (int i = 1; i + 1 < i_lArguments; i += 2) {
        const std::string l_strOption = i_ppszArguments[i];
        if (l_strOption == "--exchanges") {
            l_ullExchanges = std::stoull(i_ppszArguments[i + 1]);
        } else if (l_strOption == "--lines") {
            l_ulLines = static_cast<uint32_t>(std::stoul(i_ppszArguments[i + 1]));
        } else if (l_strOption == "--stage") {
            l_strStage = i_ppszArguments[i + 1];
        }
    }
    // What is told of each line at its close is counted here anyway.
    if (std::freopen("/dev/null", "w", stderr) == nullptr) {
        return 2;
    }
    std::printf("stage        exchanges     right    missed     wrong by chance  seconds\n");
    const uint64_t l_ullEach =
        l_strStage.empty() ? l_ullExchanges / std::size(k_aStages) : l_ullExchanges;
    bool l_bGood = Run(k_aStages[0], 100, l_ulLines); // what is made once is made now
    const S_USE l_Before = S_USE::Now();
    size_t l_ulRun = 0;
    for (const S_STAGE& l_Stage : k_aStages) {
        if (l_strStage.empty() || l_strStage == l_Stage.pszName) {
            l_bGood = Run(l_Stage, l_ullEach, l_ulLines) && l_bGood;
            ++l_ulRun;
        }
    }
    const S_USE l_After = S_USE::Now();
    std::printf("descriptors %zu, then %zu; threads %zu, then %zu; heap %zu KB, then %zu KB\n",
                l_Before.ulDescriptors, l_After.ulDescriptors, l_Before.ulThreads,
                l_After.ulThreads, l_Before.ulHeap / 1024, l_After.ulHeap / 1024);
    l_bGood = l_bGood && l_ulRun != 0 && l_After.ulDescriptors == l_Before.ulDescriptors &&
              l_After.ulThreads == l_Before.ulThreads &&
              l_After.ulHeap < l_Before.ulHeap + (256U << 10);
    std::printf("%s\n", l_bGood ? "good" : "FAILED");
    return l_bGood ? 0 : 1;
}
