/**
 * @file SignalBook.h
 * @brief Whose signal the next one of an event is.
 */
#pragma once

#include <atomic>

#include "platform/Sync.h"

namespace tornval {

/**
 * The event of host-level commands serves one after the other, so the late signal of a command whose
 * wait was given up would end the wait of the next. This book knows when there may be such a signal,
 * and takes it away before a send; but never while a command that was accepted still waits to be
 * fetched, for then the signal is that command's.
 *
 * Atomic, since a wait ends outside the driver's lock.
 */
class CSignalBook
{
public:
    /** Right before a send. @return what SendRefused wants. */
    bool BeforeSend(cecore::Handle i_hEvent)
    {
        if (m_bGivenUp && !m_bAwaited &&
            cecore::WaitForSingleObject(i_hEvent, 0) == cecore::WAIT_OBJECT_0) {
            m_bGivenUp = false;
        }
        return m_bAwaited.exchange(true);
    }
    /** No signal will come of that send; those of earlier ones may. */
    void SendRefused(bool i_bAwaitedBefore) { m_bAwaited = i_bAwaitedBefore; }

    void Signalled()
    {
        if (!m_bAwaited.exchange(false)) {
            m_bGivenUp = false; // the late one, to a fetch that was tried again
        }
    }
    void GivenUp()
    {
        m_bAwaited = false;
        m_bGivenUp = true;
    }

private:
    std::atomic<bool> m_bAwaited{false};
    std::atomic<bool> m_bGivenUp{false};
};

} // namespace tornval
