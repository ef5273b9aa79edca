/**
 * @file Descriptor.h
 * @brief Owner of a file descriptor that is never one of the three standard ones.
 */
#pragma once

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace wire {

/**
 * Closes its descriptor at the end of its life.
 *
 * A host that was started with a closed standard output would get the next file as descriptor 1, and
 * its results would be written there. So 0, 1 and 2 are left free: what comes as one of them is moved.
 */
class CDescriptor
{
public:
    CDescriptor() = default;
    /**
     * Takes a descriptor over.
     *
     * @param i_lFd below 0: none. Where none above 2 is left, the descriptor is closed and errno set.
     */
    explicit CDescriptor(int i_lFd) : m_lFd(i_lFd)
    {
        if (m_lFd >= 0 && m_lFd <= STDERR_FILENO) {
            m_lFd = fcntl(i_lFd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            const int l_lError = errno;
            Close(i_lFd);
            errno = l_lError;
        }
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    CDescriptor(CDescriptor&& io_Other) noexcept : m_lFd(io_Other.Release()) {}
    CDescriptor& operator=(CDescriptor&& io_Other) noexcept
    {
        std::swap(m_lFd, io_Other.m_lFd);
        return *this;
    }
    ~CDescriptor()
    {
        if (m_lFd >= 0) {
            Close(m_lFd);
        }
    }

    [[nodiscard]] int Get() const { return m_lFd; }
    int Release() { return std::exchange(m_lFd, -1); }
    explicit operator bool() const { return m_lFd >= 0; }

private:
    /** The system would let a cancelling begin in there, which must not go through a destructor. */
    static void Close(int i_lFd)
    {
        int l_lState = PTHREAD_CANCEL_ENABLE;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &l_lState);
        close(i_lFd);
        pthread_setcancelstate(l_lState, nullptr);
    }

    int m_lFd = -1;
};

} // namespace wire
