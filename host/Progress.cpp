#include "Progress.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>
#include <thread>
#include <unistd.h>

namespace host {

namespace {

volatile std::sig_atomic_t s_lStopSignal = 0;

void NoteStop(int i_lSignal)
{
    s_lStopSignal = i_lSignal;
}

} // namespace

CProgress::CProgress(bool i_bForced, const std::string& i_strLabel, uint64_t i_uTotal)
{
    if (!i_bForced && isatty(STDERR_FILENO) == 0) {
        return;
    }
    std::vector<std::string> l_vArguments = {"pv",         "--line-mode", "--progress", "--timer",
                                             "--interval", "0.1",         "--name",     i_strLabel};
    if (i_uTotal != 0) {
        l_vArguments.insert(l_vArguments.end(), {"--eta", "--size", std::to_string(i_uTotal)});
    }
    if (i_bForced) {
        l_vArguments.insert(l_vArguments.end(), {"--force", "--width", "79"});
    }
    // A bar that cannot be drawn is no reason to fail.
    m_Bar.Start(l_vArguments);
}

void CProgress::Advance(uint64_t i_uSteps)
{
    // Only line ends count, so their number is all that is piped.
    constexpr uint64_t k_uChunk = 4096;
    while (i_uSteps != 0 && m_Bar.IsRunning()) {
        const uint64_t l_uNow = std::min(i_uSteps, k_uChunk);
        if (!m_Bar.Write(std::string(static_cast<size_t>(l_uNow), '\n'))) {
            return;
        }
        i_uSteps -= l_uNow;
    }
}

void RunWithProgress(bool i_bForced, const std::string& i_strLabel,
                     const std::function<void()>& i_fnOperation)
{
    CProgress l_Progress(i_bForced, i_strLabel, 0);
    std::future<void> l_Operation = std::async(std::launch::async, i_fnOperation);
    while (l_Operation.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        l_Progress.Advance();
    }
    l_Progress.Finish();
    l_Operation.get();
}

void CatchStopSignals()
{
    struct sigaction l_Action
    {
    };
    l_Action.sa_handler = NoteStop;
    sigemptyset(&l_Action.sa_mask);
    // The library's own calls must not fail because of a signal; our sleeps look at the flag.
    l_Action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &l_Action, nullptr);
    sigaction(SIGTERM, &l_Action, nullptr);
}

int StopSignal()
{
    return s_lStopSignal;
}

void SleepUnlessStopped(std::chrono::milliseconds i_Time)
{
    constexpr std::chrono::milliseconds k_Slice{20};
    const auto l_End = std::chrono::steady_clock::now() + i_Time;
    while (StopSignal() == 0 && std::chrono::steady_clock::now() < l_End) {
        std::this_thread::sleep_until(std::min(l_End, std::chrono::steady_clock::now() + k_Slice));
    }
}

} // namespace host
