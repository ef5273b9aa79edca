#include "Stop.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace host {

namespace {

/** How long a call may go on once a signal asks to stop. Two of them make less than half a second: the
 *  one that was running, and the one that stops the device. */
constexpr std::chrono::milliseconds k_Grace{180};
constexpr std::chrono::milliseconds k_Slice{20};
constexpr std::chrono::milliseconds k_Tick{100};

std::atomic<int> s_lStopSignal = 0;
std::atomic<int> s_lSignals = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes them");
std::atomic<bool> s_bCallLeft = false;

void NoteStop(int i_lSignal)
{
    s_lStopSignal = i_lSignal;
    ++s_lSignals;
}

/** A thread that runs one operation after another. */
struct S_WORKER
{
    std::mutex Mutex;
    std::condition_variable Changed;
    std::function<void()> fnOperation;
    std::exception_ptr pThrown;
    bool bBusy = false;
};

void Work(const std::shared_ptr<S_WORKER>& i_pWorker)
{
    std::unique_lock l_Lock(i_pWorker->Mutex);
    for (;;) {
        i_pWorker->Changed.wait(l_Lock, [&] { return i_pWorker->bBusy; });
        std::function<void()> l_fnOperation = std::move(i_pWorker->fnOperation);
        l_Lock.unlock();
        std::exception_ptr l_pThrown;
        try {
            l_fnOperation();
        } catch (...) {
            l_pThrown = std::current_exception();
        }
        l_fnOperation = {};
        l_Lock.lock();
        i_pWorker->pThrown = l_pThrown;
        i_pWorker->bBusy = false;
        i_pWorker->Changed.notify_all();
    }
}

/** The worker at hand: always the same one, unless it was left with a call. */
std::shared_ptr<S_WORKER>& Worker()
{
    static std::shared_ptr<S_WORKER> s_pWorker;
    if (s_pWorker == nullptr) {
        s_pWorker = std::make_shared<S_WORKER>();
        // It waits for work until the process ends; signals are the main thread's affair.
        sigset_t l_All;
        sigset_t l_Before;
        sigfillset(&l_All);
        pthread_sigmask(SIG_BLOCK, &l_All, &l_Before);
        std::thread(Work, s_pWorker).detach();
        pthread_sigmask(SIG_SETMASK, &l_Before, nullptr);
    }
    return s_pWorker;
}

/** @param i_lSignals how many signals it takes to leave the operation. */
void RunUntil(int i_lSignals, const std::function<void()>& i_fnOperation,
              const std::function<void()>& i_fnTick)
{
    const std::shared_ptr<S_WORKER> l_pWorker = Worker();
    std::unique_lock l_Lock(l_pWorker->Mutex);
    l_pWorker->fnOperation = i_fnOperation;
    l_pWorker->bBusy = true;
    l_pWorker->Changed.notify_all();
    auto l_NextTick = std::chrono::steady_clock::now() + k_Tick;
    auto l_End = std::chrono::steady_clock::time_point::max();
    while (!l_pWorker->Changed.wait_for(l_Lock, k_Slice, [&] { return !l_pWorker->bBusy; })) {
        const auto l_Now = std::chrono::steady_clock::now();
        if (s_lSignals >= i_lSignals) {
            l_End = std::min(l_End, l_Now + k_Grace);
        }
        if (l_Now >= l_End) {
            s_bCallLeft = true;
            Worker() = nullptr;
            throw S_STOPPED{};
        }
        if (i_fnTick && l_Now >= l_NextTick) {
            l_NextTick = l_Now + k_Tick;
            i_fnTick();
        }
    }
    if (l_pWorker->pThrown != nullptr) {
        std::rethrow_exception(std::exchange(l_pWorker->pThrown, nullptr));
    }
}

} // namespace

void CatchStopSignals()
{
    struct sigaction l_Action
    {
    };
    l_Action.sa_handler = NoteStop;
    sigemptyset(&l_Action.sa_mask);
    // The library's own calls must not fail because of a signal; our waits look at the flag.
    l_Action.sa_flags = SA_RESTART;
    for (const int l_lSignal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction l_Before
        {
        };
        // Who starts us with a hang-up ignored, as nohup does, means it. A shell that puts us in the
        // background ignores the others for us, and a kill from there is meant.
        if (sigaction(l_lSignal, nullptr, &l_Before) == 0 &&
            (l_lSignal != SIGHUP || l_Before.sa_handler != SIG_IGN)) {
            sigaction(l_lSignal, &l_Action, nullptr);
        }
    }
}

int StopSignal()
{
    return s_lStopSignal;
}

int StopSignals()
{
    return s_lSignals;
}

void SleepUnlessStopped(std::chrono::milliseconds i_Time)
{
    const auto l_End = std::chrono::steady_clock::now() + i_Time;
    while (StopSignal() == 0 && std::chrono::steady_clock::now() < l_End) {
        std::this_thread::sleep_until(std::min(l_End, std::chrono::steady_clock::now() + k_Slice));
    }
}

void Call(const std::function<void()>& i_fnOperation, const std::function<void()>& i_fnTick)
{
    RunUntil(1, i_fnOperation, i_fnTick);
}

void CallToTheEnd(const std::function<void()>& i_fnOperation, const std::function<void()>& i_fnTick)
{
    RunUntil(2, i_fnOperation, i_fnTick);
}

void CallAfterStop(const std::function<void()>& i_fnOperation)
{
    RunUntil(s_lSignals + 1, i_fnOperation, {});
}

void LeaveCalls()
{
    ++s_lSignals;
}

bool IsCallLeft()
{
    return s_bCallLeft;
}

} // namespace host
