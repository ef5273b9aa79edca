/**
 * @file Bell.h
 * @brief The bell that wakes a thread out of its poll.
 */
#pragma once

#include <cstdint>
#include <new>

#include <poll.h>
#include <sys/eventfd.h>

#include "wire/Descriptor.h"

namespace links {

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
    wire::CDescriptor m_Event;
};

} // namespace links
