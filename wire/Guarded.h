/**
 * @file Guarded.h
 * @brief A mutex that clang knows of: what it guards is touched under it alone, or does not pass lint.
 */
#pragma once

#include <mutex>

#if defined(__clang__)
#define WIRE_THREAD_SAFETY(x) __attribute__((x))
#else
#define WIRE_THREAD_SAFETY(x)
#endif

/** Behind a member or a variable: the mutex that guards it. */
#define WIRE_GUARDED_BY(x) WIRE_THREAD_SAFETY(guarded_by(x))
/** Behind a function: the mutex that its caller holds. */
#define WIRE_REQUIRES(x) WIRE_THREAD_SAFETY(requires_capability(x))

namespace wire {

/** The standard mutex. */
class WIRE_THREAD_SAFETY(capability("mutex")) CMutex
{
public:
    // The names that the language's library asks for.
    void lock() WIRE_THREAD_SAFETY(acquire_capability()) { m_Mutex.lock(); }     // NOLINT
    void unlock() WIRE_THREAD_SAFETY(release_capability()) { m_Mutex.unlock(); } // NOLINT

private:
    std::mutex m_Mutex;
};

/** Holds a mutex for its life. */
class WIRE_THREAD_SAFETY(scoped_lockable) CLock
{
public:
    explicit CLock(CMutex& io_Mutex) WIRE_THREAD_SAFETY(acquire_capability(io_Mutex))
        : m_Mutex(io_Mutex)
    {
        m_Mutex.lock();
    }
    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;
    ~CLock() WIRE_THREAD_SAFETY(release_capability()) { m_Mutex.unlock(); }

private:
    CMutex& m_Mutex;
};

} // namespace wire
