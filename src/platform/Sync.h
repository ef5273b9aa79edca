/**
 * @file Sync.h
 * @brief Mutexes, events, waits.
 */
#pragma once

#include "Api.h"
#include "wire/Guarded.h"

namespace cecore {

inline constexpr uint32_t INFINITE = 0xFFFFFFFFU;
inline constexpr uint32_t WAIT_OBJECT_0 = 0;
inline constexpr uint32_t WAIT_TIMEOUT = 258;
inline constexpr uint32_t WAIT_FAILED = 0xFFFFFFFFU;

/** Unnamed mutex that its holder may take again. @return its handle; 0 on failure. */
CECORE_API Handle CreateMutexW(bool i_bInitialOwner);

/** Unnamed event. @return its handle; 0 on failure. */
CECORE_API Handle CreateEventW(bool i_bManualReset, bool i_bInitialState);

/**
 * Waits for a mutex (and takes it), an event (and consumes it if it resets itself) or the end of a
 * process.
 *
 * @param i_ulMilliseconds bound of the wait, or INFINITE.
 * @return WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED when the handle is none of these or was
 * closed meanwhile (error 6).
 */
CECORE_API uint32_t WaitForSingleObject(Handle i_hObject, uint32_t i_ulMilliseconds);

/** Gives a mutex back. @return false if the caller does not hold it (error 288) or it is none. */
CECORE_API bool ReleaseMutex(Handle i_hMutex);

/** A mutex by its handle, which it closes. clang sees to it that what it guards is touched under it. */
class WIRE_THREAD_SAFETY(capability("mutex")) CMutex : public CUniqueHandle
{
public:
    using CUniqueHandle::CUniqueHandle;
};

/** Holds a mutex for a scope. A handle of 0 holds nothing. */
class WIRE_THREAD_SAFETY(scoped_lockable) CMutexGuard
{
public:
    explicit CMutexGuard(const CMutex& i_Mutex) WIRE_THREAD_SAFETY(acquire_capability(i_Mutex))
        WIRE_THREAD_SAFETY(no_thread_safety_analysis)
        : m_hMutex(i_Mutex && WaitForSingleObject(i_Mutex.Get(), INFINITE) == WAIT_OBJECT_0
                       ? i_Mutex.Get()
                       : 0)
    {
    }
    CMutexGuard(const CMutexGuard&) = delete;
    CMutexGuard& operator=(const CMutexGuard&) = delete;
    ~CMutexGuard() WIRE_THREAD_SAFETY(release_capability())
        WIRE_THREAD_SAFETY(no_thread_safety_analysis)
    {
        if (m_hMutex != 0) {
            ReleaseMutex(m_hMutex);
        }
    }

private:
    Handle m_hMutex;
};

} // namespace cecore
