/**
 * @file Guarded.h
 * @brief A mutex that clang knows of: what it guards is touched under it alone, or does not pass lint.
 */
#pragma once

#include <chrono>
#include <condition_variable>
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
    friend class CCondition;
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

/** Something under a mutex that one can sleep for. A sleep may end without cause, as the standard's may, and
 *  a thread that is cancelled in it holds the mutex. */
class CCondition
{
public:
    void NotifyAll() { m_Condition.notify_all(); }

    void Wait(CMutex& io_Mutex) WIRE_REQUIRES(io_Mutex)
    {
        CHeld l_Held(io_Mutex);
        m_Condition.wait(l_Held.Lock);
    }

    /** @return false if the time is over. */
    bool WaitUntil(CMutex& io_Mutex, std::chrono::steady_clock::time_point i_Until)
        WIRE_REQUIRES(io_Mutex)
    {
        CHeld l_Held(io_Mutex);
        return m_Condition.wait_until(l_Held.Lock, i_Until) == std::cv_status::no_timeout;
    }

private:
    /** The caller's hold, lent for a wait. */
    struct CHeld
    {
        explicit CHeld(CMutex& io_Mutex) : Lock(io_Mutex.m_Mutex, std::adopt_lock) {}
        CHeld(const CHeld&) = delete;
        CHeld& operator=(const CHeld&) = delete;
        ~CHeld() { Lock.release(); }
        std::unique_lock<std::mutex> Lock;
    };

    std::condition_variable m_Condition;
};

} // namespace wire
