/**
 * @file Descriptor.h
 * @brief Owner of a file descriptor, and the bell that wakes a thread out of its poll.
 */
#ifndef LINKS_DESCRIPTOR_H
#define LINKS_DESCRIPTOR_H

#include <cstdint>
#include <new>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace links {

/** Closes its descriptor at the end of its life. */
class CDescriptor
{
public:
    CDescriptor() = default;
    explicit CDescriptor(int i_lFd) : m_lFd(i_lFd) {}
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    CDescriptor(CDescriptor&& io_Other) noexcept : m_lFd(std::exchange(io_Other.m_lFd, -1)) {}
    CDescriptor& operator=(CDescriptor&& io_Other) noexcept
    {
        std::swap(m_lFd, io_Other.m_lFd);
        return *this;
    }
    ~CDescriptor()
    {
        if (m_lFd >= 0) {
            close(m_lFd);
        }
    }

    [[nodiscard]] int Get() const { return m_lFd; }
    explicit operator bool() const { return m_lFd >= 0; }

private:
    int m_lFd = -1;
};

/** Rings from any thread; one thread polls it. */
class CBell
{
public:
    /** @throws std::bad_alloc if the process has no descriptor left. */
    CBell() : m_Event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (!m_Event) {
            throw std::bad_alloc();
        }
    }
    void Ring() const { (void)eventfd_write(m_Event.Get(), 1); }
    void Silence() const
    {
        eventfd_t l_ullCount = 0;
        (void)eventfd_read(m_Event.Get(), &l_ullCount);
    }
    /** Waits until it is rung. */
    void Wait() const
    {
        pollfd l_Polled{m_Event.Get(), POLLIN, 0};
        (void)poll(&l_Polled, 1, -1);
        Silence();
    }
    [[nodiscard]] int Fd() const { return m_Event.Get(); }

private:
    CDescriptor m_Event;
};

} // namespace links

#endif // LINKS_DESCRIPTOR_H
