#include "Sync.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <shared_mutex>

#include <sys/single_threaded.h>

#include "EventWatch.h"
#include "Objects.h"

namespace cecore {
namespace {

constexpr uint32_t k_ulMutexKind = static_cast<uint32_t>(E_OBJECT_KIND::MUTEX);
constexpr uint32_t k_ulEventKind = static_cast<uint32_t>(E_OBJECT_KIND::EVENT);

uint32_t Fail(uint32_t i_ulError)
{
    ::SetLastError(i_ulError);
    return WAIT_FAILED;
}

/** Puts the next state in the place of the one that is expected. @return false if another one is there, which
 *  is expected then. A process of one thread need not keep others out meanwhile, which is most of the cost. */
[[gnu::always_inline]] inline bool Replace(std::atomic<uint32_t>& io_ulState,
                                           uint32_t& io_ulExpected, uint32_t i_ulNext)
{
    if (__libc_single_threaded == 0) {
        return io_ulState.compare_exchange_weak(io_ulExpected, i_ulNext, std::memory_order_acq_rel,
                                                std::memory_order_relaxed);
    }
    const uint32_t l_ulState = io_ulState.load(std::memory_order_relaxed);
    const bool l_bSame = l_ulState == io_ulExpected;
    if (l_bSame) {
        io_ulState.store(i_ulNext, std::memory_order_relaxed);
    }
    io_ulExpected = l_ulState;
    return l_bSame;
}

/** A mutex or an event by its handle. */
class CWaitable
{
public:
    CWaitable(Handle i_hObject, S_SLOT& io_Slot)
        : m_hObject(i_hObject), m_ulIdentity(IdentityOf(i_hObject)), m_Slot(io_Slot)
    {
    }

    /** Takes it if that can be done at once. @return WAIT_TIMEOUT if it cannot. */
    uint32_t Try()
    {
        uint32_t l_ulState = m_Slot.ulState.load(std::memory_order_relaxed);
        while (IdentityOf(l_ulState) == m_ulIdentity) {
            const bool l_bTaken = (l_ulState & k_ulTaken) != 0;
            uint32_t l_ulNext = l_ulState;
            if (KindOf(m_hObject) == k_ulMutexKind) {
                if (l_bTaken && IsHeldHere()) {
                    SetHolds(Holds() + 1);
                    return WAIT_OBJECT_0;
                }
                if (l_bTaken) {
                    return WAIT_TIMEOUT;
                }
                l_ulNext |= k_ulTaken;
            } else {
                if (!l_bTaken) {
                    return WAIT_TIMEOUT;
                }
                l_ulNext &= (l_ulState & k_ulManual) != 0 ? ~0U : ~k_ulTaken;
            }
            if (Replace(m_Slot.ulState, l_ulState, l_ulNext)) {
                if (KindOf(m_hObject) == k_ulMutexKind) {
                    SetHolds(1);
                    m_Slot.Holder.store(pthread_self(), std::memory_order_relaxed);
                }
                return WAIT_OBJECT_0;
            }
        }
        return Fail(CECORE_ERROR_INVALID_HANDLE);
    }

    /** Takes it, and sleeps in the waiting room as long as that cannot be done. */
    uint32_t Wait(uint32_t i_ulMilliseconds)
    {
        using std::chrono::steady_clock;
        const auto l_End = steady_clock::now() + std::chrono::milliseconds(i_ulMilliseconds);
        const auto l_lEnd =
            std::chrono::duration_cast<std::chrono::nanoseconds>(l_End.time_since_epoch()).count();
        timespec l_Until{};
        l_Until.tv_sec = static_cast<time_t>(l_lEnd / 1000000000);
        l_Until.tv_nsec = static_cast<long>(l_lEnd % 1000000000);
        S_WAITING_ROOM& l_Room = WaitingRoomOf(m_hObject);
        const CRoomLock l_Lock(l_Room);
        while (true) {
            const uint32_t l_ulResult = Try();
            if (l_ulResult != WAIT_TIMEOUT) {
                return l_ulResult;
            }
            if (!Park()) {
                continue;
            }
            if (i_ulMilliseconds == INFINITE) {
                pthread_cond_wait(&l_Room.Changed, &l_Room.Mutex);
            } else if (steady_clock::now() >= l_End) {
                return WAIT_TIMEOUT;
            } else {
                pthread_cond_clockwait(&l_Room.Changed, &l_Room.Mutex, CLOCK_MONOTONIC, &l_Until);
            }
        }
    }

    bool ReleaseMutex()
    {
        uint32_t l_ulState = m_Slot.ulState.load(std::memory_order_relaxed);
        if (IdentityOf(l_ulState) == m_ulIdentity) {
            if ((l_ulState & k_ulTaken) == 0 || !IsHeldHere()) {
                ::SetLastError(ERROR_NOT_OWNER);
                return false;
            }
            const uint32_t l_ulLeft = Holds() - 1;
            SetHolds(l_ulLeft);
            if (l_ulLeft > 0) {
                return true;
            }
            m_Slot.Holder.store({}, std::memory_order_relaxed);
        }
        return Change(l_ulState, [](uint32_t i_ul) { return i_ul & ~(k_ulTaken | k_ulParked); });
    }

    bool SetEvent()
    {
        return Change(m_Slot.ulState.load(std::memory_order_relaxed),
                      [](uint32_t i_ul) { return (i_ul | k_ulTaken) & ~k_ulParked; });
    }

private:
    /** Holds a waiting room; a thread that is cancelled in its sleep leaves it as well. */
    class CRoomLock
    {
    public:
        explicit CRoomLock(S_WAITING_ROOM& io_Room) : m_Room(io_Room)
        {
            pthread_mutex_lock(&m_Room.Mutex);
        }
        CRoomLock(const CRoomLock&) = delete;
        CRoomLock& operator=(const CRoomLock&) = delete;
        ~CRoomLock() { pthread_mutex_unlock(&m_Room.Mutex); }

    private:
        S_WAITING_ROOM& m_Room;
    };

    // Its holder alone counts, so neither needs to be one step with the other.
    [[nodiscard]] uint32_t Holds() const { return m_Slot.ulHolds.load(std::memory_order_relaxed); }
    void SetHolds(uint32_t i_ulHolds)
    {
        m_Slot.ulHolds.store(i_ulHolds, std::memory_order_relaxed);
    }

    [[nodiscard]] bool IsHeldHere() const
    {
        return pthread_equal(m_Slot.Holder.load(std::memory_order_relaxed), pthread_self()) != 0;
    }

    /** Leaves word in the state that somebody sleeps. @return false if it has changed meanwhile. */
    bool Park()
    {
        uint32_t l_ulState = m_Slot.ulState.load(std::memory_order_relaxed);
        const bool l_bBlocks =
            IdentityOf(l_ulState) == m_ulIdentity &&
            ((l_ulState & k_ulTaken) != 0) == (KindOf(m_hObject) == k_ulMutexKind);
        return l_bBlocks && m_Slot.ulState.compare_exchange_strong(
                                l_ulState, l_ulState | k_ulParked, std::memory_order_relaxed);
    }

    /** Brings the state to another one and wakes who waits for that. */
    template <typename F>
    bool Change(uint32_t i_ulState, F&& i_fnNext)
    {
        do {
            if (IdentityOf(i_ulState) != m_ulIdentity) {
                ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
                return false;
            }
        } while (!Replace(m_Slot.ulState, i_ulState, i_fnNext(i_ulState)));
        if ((i_ulState & k_ulParked) != 0) {
            WakeWaitingRoom(m_hObject);
        }
        return true;
    }

    Handle m_hObject;
    uint32_t m_ulIdentity;
    S_SLOT& m_Slot;
};

/** The slot of a handle of that kind; null, with error 6, if it is of another or there is none. */
S_SLOT* SlotOfKind(Handle i_hObject, uint32_t i_ulKind)
{
    S_SLOT* l_pSlot = KindOf(i_hObject) == i_ulKind ? SlotOf(i_hObject) : nullptr;
    if (l_pSlot == nullptr) {
        ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
    }
    return l_pSlot;
}

// What takes long anyhow stays out of the way of what does not.
[[gnu::noinline]] uint32_t WaitLong(Handle i_hObject, S_SLOT& io_Slot, uint32_t i_ulMilliseconds)
{
    return CWaitable(i_hObject, io_Slot).Wait(i_ulMilliseconds);
}

[[gnu::noinline]] uint32_t WaitForOther(Handle i_hObject, uint32_t i_ulMilliseconds)
{
    const std::shared_ptr<CKernelObject> l_pObject = FindObject(i_hObject);
    return l_pObject == nullptr ? WAIT_FAILED : l_pObject->Wait(i_ulMilliseconds);
}

} // namespace

Handle CreateMutexW(bool i_bInitialOwner)
{
    const Handle l_hMutex = OpenHandle(E_OBJECT_KIND::MUTEX, 0, nullptr);
    if (l_hMutex != 0 && i_bInitialOwner) {
        WaitForSingleObject(l_hMutex, INFINITE);
    }
    return l_hMutex;
}

Handle CreateEventW(bool i_bManualReset, bool i_bInitialState)
{
    return OpenHandle(E_OBJECT_KIND::EVENT,
                      (i_bManualReset ? k_ulManual : 0) | (i_bInitialState ? k_ulTaken : 0),
                      nullptr);
}

uint32_t WaitForSingleObject(Handle i_hObject, uint32_t i_ulMilliseconds)
{
    if (KindOf(i_hObject) != k_ulMutexKind && KindOf(i_hObject) != k_ulEventKind) {
        return WaitForOther(i_hObject, i_ulMilliseconds);
    }
    S_SLOT* l_pSlot = SlotOf(i_hObject);
    if (l_pSlot == nullptr) {
        return Fail(CECORE_ERROR_INVALID_HANDLE);
    }
    const uint32_t l_ulResult = CWaitable(i_hObject, *l_pSlot).Try();
    return l_ulResult != WAIT_TIMEOUT || i_ulMilliseconds == 0
               ? l_ulResult
               : WaitLong(i_hObject, *l_pSlot, i_ulMilliseconds);
}

bool ReleaseMutex(Handle i_hMutex)
{
    S_SLOT* l_pSlot = SlotOfKind(i_hMutex, k_ulMutexKind);
    return l_pSlot != nullptr && CWaitable(i_hMutex, *l_pSlot).ReleaseMutex();
}

namespace {

std::atomic<SetEventWatcher> s_pFnWatcher{nullptr};
constinit std::shared_mutex s_WatcherMutex; // shared: in the watcher; alone: changing it

int SetEventUnwatched(uint32_t i_ulHandle)
{
    S_SLOT* l_pSlot = SlotOfKind(i_ulHandle, k_ulEventKind);
    return l_pSlot != nullptr && CWaitable(i_ulHandle, *l_pSlot).SetEvent() ? 1 : 0;
}

} // namespace

void WatchSetEvent(SetEventWatcher i_pFnWatcher)
{
    const std::lock_guard l_Lock(s_WatcherMutex);
    s_pFnWatcher.store(i_pFnWatcher, std::memory_order_relaxed);
}

} // namespace cecore

int SetEvent(uint32_t handle)
{
    using namespace cecore;
    if (s_pFnWatcher.load(std::memory_order_relaxed) == nullptr) {
        return SetEventUnwatched(handle);
    }
    const std::shared_lock l_Lock(s_WatcherMutex);
    const SetEventWatcher l_pFnWatcher = s_pFnWatcher.load(std::memory_order_relaxed);
    return l_pFnWatcher == nullptr ? SetEventUnwatched(handle)
                                   : l_pFnWatcher(handle, SetEventUnwatched);
}
