#include "Objects.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include <cwctype>
#include <cxxabi.h>

#include "Sync.h"
#include "wire/Guarded.h"

/** What the exit list knows this library by; the compiler makes it. */
extern "C" void* __dso_handle;

namespace cecore {
namespace {

constexpr uint32_t k_ulGenerationStep = 1U << k_ulSlotBits;
constexpr uint32_t k_ulGenerationMask = ((1U << k_ulGenerationBits) - 1) << k_ulSlotBits;
// Closed slots rest in a queue this long before one is used again, so that a generation comes round
// only after a very large number of handles.
constexpr uint32_t k_ulMinResting = 256;
constexpr uint32_t k_ulChunkSlots = 64;
constexpr uint32_t k_ulMaxChunks = k_ulMaxSlots / k_ulChunkSlots;

thread_local uint32_t t_ulLastError = 0;

/** Set when the process ends, before the libraries are taken down. */
constinit std::atomic<bool> s_bProcessEnding{false};

/** The slots by chunks, which stay where they are; a lookup takes no lock. */
constinit std::array<std::atomic<S_SLOT*>, k_ulMaxChunks> s_apChunks{};

/** What an opening and a closing change. */
struct S_TABLE
{
    wire::CMutex Mutex;
    uint32_t ulNbSlots WIRE_GUARDED_BY(Mutex) = 0;
    // Closed slots are chained in the order of their closing: a close allocates nothing, so it cannot
    // fail in a destructor.
    uint32_t ulFirstFree WIRE_GUARDED_BY(Mutex) = 0;
    uint32_t ulLastFree WIRE_GUARDED_BY(Mutex) = 0;
    uint32_t ulNbFree WIRE_GUARDED_BY(Mutex) = 0;
    uint32_t ulCount WIRE_GUARDED_BY(Mutex) = 0;
};
constinit S_TABLE s_Table;
static_assert(std::is_trivially_destructible_v<wire::CMutex>, "it stays when the process ends");

constinit std::array<S_WAITING_ROOM, 64> s_aWaitingRooms{};

/** A slot that is free. The table is locked. @return false with the last error set. */
bool TakeSlot(uint32_t& o_ulSlot) WIRE_REQUIRES(s_Table.Mutex)
{
    if (s_Table.ulNbFree > k_ulMinResting ||
        (s_Table.ulNbSlots == k_ulMaxSlots && s_Table.ulNbFree > 0)) {
        o_ulSlot = s_Table.ulFirstFree;
        s_Table.ulFirstFree = SlotOf(o_ulSlot)->ulNextFree;
        --s_Table.ulNbFree;
        return true;
    }
    if (s_Table.ulNbSlots == k_ulMaxSlots) {
        ::SetLastError(ERROR_TOO_MANY_OPEN_FILES);
        return false;
    }
    o_ulSlot = s_Table.ulNbSlots;
    if (o_ulSlot % k_ulChunkSlots == 0) {
        auto* l_pChunk = new (std::nothrow) S_SLOT[k_ulChunkSlots];
        if (l_pChunk == nullptr) {
            ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
            return false;
        }
        s_apChunks[o_ulSlot / k_ulChunkSlots].store(l_pChunk, std::memory_order_release);
    }
    ++s_Table.ulNbSlots;
    return true;
}

[[gnu::constructor]] void OnLoad()
{
    // Of all entries of the exit list one of the first, so it runs when the others are through.
    // By this library's own handle: a sanitizer's atexit knows of none and would call an entry that
    // has gone with the library.
    static_cast<void>(
        abi::__cxa_atexit([](void*) { s_bProcessEnding = true; }, nullptr, &__dso_handle));
}

[[gnu::destructor]] void OnUnload()
{
    // At the end of a process the threads that still run keep their handles.
    if (!s_bProcessEnding) {
        for (auto& l_pChunk : s_apChunks) {
            delete[] l_pChunk.exchange(nullptr);
        }
    }
}

} // namespace

bool IsProcessEnding()
{
    return s_bProcessEnding;
}

uint32_t GetLastError()
{
    return t_ulLastError;
}

uint32_t CKernelObject::Wait(uint32_t)
{
    ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

std::wstring FoldCase(std::wstring i_strName)
{
    std::ranges::transform(i_strName, i_strName.begin(), [](wchar_t i_c) {
        return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(i_c)));
    });
    return i_strName;
}

S_SLOT* SlotOf(Handle i_hObject)
{
    const uint32_t l_ulSlot = i_hObject & k_ulSlotMask;
    S_SLOT* l_pChunk = s_apChunks[l_ulSlot / k_ulChunkSlots].load(std::memory_order_acquire);
    return l_pChunk == nullptr ? nullptr : l_pChunk + l_ulSlot % k_ulChunkSlots;
}

S_WAITING_ROOM& WaitingRoomOf(Handle i_hObject)
{
    return s_aWaitingRooms[i_hObject % s_aWaitingRooms.size()];
}

void WakeWaitingRoom(Handle i_hObject)
{
    S_WAITING_ROOM& l_Room = WaitingRoomOf(i_hObject);
    // Who has looked at the state and found it unchanged sleeps by the time that this is had.
    pthread_mutex_lock(&l_Room.Mutex);
    pthread_mutex_unlock(&l_Room.Mutex);
    pthread_cond_broadcast(&l_Room.Changed);
}

Handle OpenHandle(E_OBJECT_KIND i_Kind, uint32_t i_ulState,
                  std::shared_ptr<CKernelObject> i_pObject)
{
    const wire::CLock l_Lock(s_Table.Mutex);
    uint32_t l_ulSlot = 0;
    if (!TakeSlot(l_ulSlot)) {
        return 0;
    }
    S_SLOT& l_Slot = *SlotOf(l_ulSlot);
    l_Slot.pObject = std::move(i_pObject);
    l_Slot.Holder.store({}, std::memory_order_relaxed);
    l_Slot.ulHolds.store(0, std::memory_order_relaxed);
    const uint32_t l_ulIdentity =
        (static_cast<uint32_t>(i_Kind) << (k_ulSlotBits + k_ulGenerationBits)) |
        l_Slot.ulState.load(std::memory_order_relaxed);
    l_Slot.ulState.store(l_ulIdentity | i_ulState, std::memory_order_release);
    ++s_Table.ulCount;
    return l_ulIdentity | l_ulSlot;
}

std::shared_ptr<CKernelObject> FindObject(Handle i_hObject)
{
    std::shared_ptr<CKernelObject> l_pObject;
    if (const S_SLOT* l_pSlot = SlotOf(i_hObject)) {
        const wire::CLock l_Lock(s_Table.Mutex);
        if (IdentityOf(l_pSlot->ulState.load(std::memory_order_relaxed)) == IdentityOf(i_hObject)) {
            l_pObject = l_pSlot->pObject;
        }
    }
    if (l_pObject == nullptr) {
        ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
    }
    return l_pObject;
}

bool CloseHandle(Handle i_hObject)
{
    std::shared_ptr<CKernelObject> l_pObject;
    uint32_t l_ulState = 0;
    {
        S_SLOT* l_pSlot = SlotOf(i_hObject);
        const wire::CLock l_Lock(s_Table.Mutex);
        if (l_pSlot == nullptr || KindOf(i_hObject) == 0 ||
            IdentityOf(l_pSlot->ulState.load(std::memory_order_relaxed)) != IdentityOf(i_hObject)) {
            ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
            return false;
        }
        l_ulState = l_pSlot->ulState.exchange((i_hObject + k_ulGenerationStep) & k_ulGenerationMask,
                                              std::memory_order_acq_rel);
        l_pObject = std::move(l_pSlot->pObject);
        const uint32_t l_ulSlot = i_hObject & k_ulSlotMask;
        (s_Table.ulNbFree == 0 ? s_Table.ulFirstFree : SlotOf(s_Table.ulLastFree)->ulNextFree) =
            l_ulSlot;
        s_Table.ulLastFree = l_ulSlot;
        ++s_Table.ulNbFree;
        --s_Table.ulCount;
    }
    // Outside the lock: the object may have something to tear down.
    if ((l_ulState & k_ulParked) != 0) {
        WakeWaitingRoom(i_hObject);
    }
    if (l_pObject != nullptr) {
        l_pObject->OnClosed();
    }
    return true;
}

uint32_t GetOpenHandleCount()
{
    const wire::CLock l_Lock(s_Table.Mutex);
    return s_Table.ulCount;
}

} // namespace cecore

void SetLastError(uint32_t code)
{
    cecore::t_ulLastError = code;
}
