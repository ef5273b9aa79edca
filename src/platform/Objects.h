/**
 * @file Objects.h
 * @brief The table of kernel objects behind the handles. Inner header of the core services.
 *
 * Every handle has a slot, and slots stay where they are until the library is unloaded. The state of
 * a slot is one word: kind and generation of the handle that is open there, and below them what a
 * mutex or an event is. So taking a mutex is one change of that word, which fails by itself when the
 * handle is stale; no lock of the table, and nothing to keep alive. Kinds with more to them hang an
 * object on their slot.
 *
 * At the end of a process threads may still be inside, so nothing here is destroyed then.
 */
#pragma once

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include <pthread.h>

#include "Api.h"

namespace cecore {

/** Kinds of objects; the value stands in the handle. 0 and 15 stay free: no handle is 0 or -1. */
enum class E_OBJECT_KIND : uint8_t
{
    MUTEX = 1,
    EVENT,
    PROCESS,
    FILE,
    DEVICE,
    REGISTRY_KEY
};

/** Base of what a handle stands for, where its slot alone is not enough. */
class CKernelObject
{
public:
    explicit CKernelObject(E_OBJECT_KIND i_Kind) : m_Kind(i_Kind) {}
    CKernelObject(const CKernelObject&) = delete;
    CKernelObject& operator=(const CKernelObject&) = delete;
    virtual ~CKernelObject() = default;

    [[nodiscard]] E_OBJECT_KIND GetKind() const { return m_Kind; }
    /** Waits for the object; WAIT_FAILED where there is nothing to wait for. */
    virtual uint32_t Wait(uint32_t i_ulMilliseconds);
    /** The handle was closed: whoever waits is let go. */
    virtual void OnClosed() {}

private:
    E_OBJECT_KIND m_Kind;
};

// A handle from its low end: 14 bits of slot, 14 bits of generation, 4 bits of kind.
inline constexpr uint32_t k_ulSlotBits = 14;
inline constexpr uint32_t k_ulGenerationBits = 14;
inline constexpr uint32_t k_ulMaxSlots = 1U << k_ulSlotBits;
inline constexpr uint32_t k_ulSlotMask = k_ulMaxSlots - 1;

/** What a handle and the state of its slot have in common: kind and generation. */
constexpr uint32_t IdentityOf(Handle i_hObject)
{
    return i_hObject & ~k_ulSlotMask;
}
constexpr uint32_t KindOf(Handle i_hObject)
{
    return i_hObject >> (k_ulSlotBits + k_ulGenerationBits);
}

// Below the identity in the state of a slot.
/** The mutex is held; the event is set. */
inline constexpr uint32_t k_ulTaken = 1;
/** A thread sleeps in the slot's waiting room: whoever changes the state wakes it. */
inline constexpr uint32_t k_ulParked = 2;
/** The event stays set until it is reset. */
inline constexpr uint32_t k_ulManual = 4;

/** One slot; on cache lines of its own, so that threads with different locks do not meet. */
struct alignas(64) S_SLOT
{
    /** Identity of the handle that is open here (kind 0: none), and the bits above. */
    std::atomic<uint32_t> ulState{0};
    /** Mutex: how often its holder has taken it. Its holder alone writes here. */
    std::atomic<uint32_t> ulHolds{0};
    /** Mutex: the thread that holds it; nobody's value when it is free. */
    std::atomic<pthread_t> Holder{};
    /** The slot that was closed after this one. */
    uint32_t ulNextFree = 0;
    std::shared_ptr<CKernelObject> pObject;
};

/** The slot that a handle names, whether it is open there or not; null if there is no such slot. */
S_SLOT* SlotOf(Handle i_hObject);

/** A place to sleep in until the state of a slot changes. Several slots share one. */
struct S_WAITING_ROOM
{
    pthread_mutex_t Mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t Changed = PTHREAD_COND_INITIALIZER;
};
S_WAITING_ROOM& WaitingRoomOf(Handle i_hObject);
void WakeWaitingRoom(Handle i_hObject);

/**
 * Opens a handle.
 *
 * @param i_ulState bits below the identity that it begins with.
 * @return 0 with error 4 when the table is full, 8 when there is no memory.
 */
Handle OpenHandle(E_OBJECT_KIND i_Kind, uint32_t i_ulState,
                  std::shared_ptr<CKernelObject> i_pObject);

/** The object of an open handle; null, with error 6, if it is not open or has none. */
std::shared_ptr<CKernelObject> FindObject(Handle i_hObject);

/** As above, for one class. */
template <typename T>
std::shared_ptr<T> FindObject(Handle i_hObject, E_OBJECT_KIND i_Kind)
{
    if (KindOf(i_hObject) != static_cast<uint32_t>(i_Kind)) {
        ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return std::static_pointer_cast<T>(FindObject(i_hObject));
}

/** An object that has nothing of its own but what it holds for its handle. */
template <E_OBJECT_KIND Kind, typename T>
class CHolder final : public CKernelObject
{
public:
    explicit CHolder(T i_Held) : CKernelObject(Kind), m_Held(std::move(i_Held)) {}
    [[nodiscard]] const T& Get() const { return m_Held; }

private:
    T m_Held;
};

/** A name as devices and registry compare it: without case. */
std::wstring FoldCase(std::wstring i_strName);

/** Makes an object and its handle. @return 0 with the last error set on failure. */
template <typename T, typename... Args>
Handle CreateObject(Args&&... i_Args)
{
    try {
        auto l_pObject = std::make_shared<T>(std::forward<Args>(i_Args)...);
        const E_OBJECT_KIND l_Kind = l_pObject->GetKind();
        return OpenHandle(l_Kind, 0, std::move(l_pObject));
    } catch (const std::bad_alloc&) {
        ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}

/** The one object of its class, made at its first use and never destroyed: see above. */
template <typename T>
T& Resident()
{
    alignas(T) static unsigned char s_aucPlace[sizeof(T)];
    static T& s_Object = *new (s_aucPlace) T();
    return s_Object;
}

} // namespace cecore
