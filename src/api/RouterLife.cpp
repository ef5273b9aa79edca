// The life of the router, by these rules:
//
// - The first call of an exported function builds it, whichever function that is and whichever thread;
//   the load of the library builds nothing.
// - It ends once: at the end of the process or when the library is unloaded, whatever comes first. From
//   then on calls are refused. It waits a second at most for those that are inside; if one does not
//   come out, the drivers are left as they are, and a line of the trace says so.
// - It has one entry in the exit list. The list runs backwards, and the drivers have to go while the
//   link libraries, which came later, are still whole. So each load moves the entry to the end: behind
//   the links that it brought, and before, when those of the last load are gone, to where the list is
//   free again, so that it does not grow from load to load.
// - Its place is never taken away: a thread that nobody joined may look at it to the very end.
// - The logger outlives it. At the end of a process nobody releases it; at an unloading, when nobody
//   may call any more, it goes last.
// - A forked child has none of the threads of the links, and its locks may be held by nobody. Its calls
//   are refused, the first of them with a line, and nothing is given back there.

#include "api/Router.h"

#include <atomic>
#include <new>

#include <cxxabi.h>
#include <pthread.h>

#include "platform/Clock.h"
#include "platform/Reason.h"
#include "support/Trace.h"

namespace tornval {
namespace {

/** How long an end waits for calls that are still inside, in milliseconds. */
constexpr uint32_t k_ulWaitForCalls = 1000;

/** Whether calls are let in, and how many are inside. */
constinit std::atomic<bool> s_bOpen{true};
constinit std::atomic<uint32_t> s_ulCalls{0};
constinit std::atomic<bool> s_bForked{false};

/** Our entry in the exit list goes by this address; the thread that moves it is no end. */
char s_cExitKey;
constinit std::atomic<pthread_t> s_Mover{};

void OnFork()
{
    s_bForked = true;
    s_bOpen = false;
    KeepTraceLogInChild();
    cecore::RenewReasonsInChild();
}

/** Says once why a forked child is refused. */
void TellChild()
{
    static constinit std::atomic<bool> s_bTold{false};
    if (!s_bTold.exchange(true)) {
        Trace(ERROR_LEVEL, L"CRouter> refused in a forked process: the drivers are its parent's");
        cecore::NoteReason(0, "this process is forked from the one that called the library first; "
                              "the drivers are the parent's: load the library after the fork");
    }
}

[[gnu::destructor]] void OnUnload()
{
    if (!cecore::IsProcessEnding()) {
        abi::__cxa_finalize(&s_cExitKey);
        SetTraceLog(nullptr);
    }
}

} // namespace

CRouter::CCall::CCall()
{
    ++s_ulCalls;
    try {
        if (s_bOpen) {
            m_pRouter = &Instance();
        } else if (s_bForked) {
            TellChild();
        }
    } catch (...) {
        --s_ulCalls;
        throw;
    }
}

CRouter::CCall::~CCall()
{
    --s_ulCalls;
}

CRouter& CRouter::Instance()
{
    alignas(CRouter) static unsigned char s_aucPlace[sizeof(CRouter)];
    static CRouter& s_Router = *new (s_aucPlace) CRouter();
    return s_Router;
}

CRouter::CRouter() : m_hMutex(cecore::CreateMutexW(false))
{
    PutExitEntryLast();
    static_cast<void>(pthread_atfork(nullptr, nullptr, &OnFork));
    try {
        ReadConfiguration();
    } catch (const std::bad_alloc&) {
        // As without a file: the modes are 0, and nothing can be loaded.
        m_ulBTMode = m_ulUSBMode = m_ulIMMode = MODE_NONE;
        m_bLoadBT = m_bLoadUSB = false;
        m_ulConfigurationError = CECORE_ERROR_NOT_ENOUGH_MEMORY;
    }
}

CRouter::~CRouter()
{
    UnloadMeasDrivers();
}

void CRouter::PutExitEntryLast()
{
    s_Mover = pthread_self();
    abi::__cxa_finalize(&s_cExitKey);
    s_Mover = pthread_t{};
    static_cast<void>(abi::__cxa_atexit(&OnExit, nullptr, &s_cExitKey));
}

void CRouter::OnExit(void*)
{
    if (pthread_equal(s_Mover, pthread_self()) != 0) {
        return;
    }
    s_bOpen = false;
    for (uint32_t l_ulWaited = 0; s_ulCalls != 0 && !s_bForked && l_ulWaited < k_ulWaitForCalls;
         ++l_ulWaited) {
        cecore::Sleep(1);
    }
    if (s_bForked) {
        return;
    }
    if (s_ulCalls != 0) {
        Trace(ERROR_LEVEL, L"CRouter> ends with %u calls inside: the drivers are left as they are",
              s_ulCalls.load());
        return;
    }
    Instance().~CRouter();
}

} // namespace tornval
