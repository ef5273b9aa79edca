#include "links/line/LineStream.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace links {

CLineStream::CLineStream(int i_lFd, const CBell& i_Bell, CFrameReader& io_Reader,
                         std::chrono::milliseconds i_Silence, uint32_t i_ulPace)
    : m_lFd(i_lFd), m_Bell(i_Bell), m_Reader(io_Reader), m_Silence(i_Silence), m_ulPace(i_ulPace)
{
}

void CLineStream::Write(std::span<const uint8_t> i_Bytes)
{
    if (!IsWriting()) {
        m_vOut.clear();
        m_ulWritten = 0;
        m_OutStart = S_CLOCK::now();
    }
    m_vOut.insert(m_vOut.end(), i_Bytes.begin(), i_Bytes.end());
    // What goes at once need not wait for the next step; a line that has hung up shows itself there.
    (void)WriteSome();
}

void CLineStream::Abandon()
{
    m_vOut.clear();
    m_ulWritten = 0;
    (void)tcflush(m_lFd, TCOFLUSH);
}

/** Bytes that may go out by now. */
size_t CLineStream::Allowance(S_CLOCK::time_point i_Now) const
{
    if (m_ulPace == 0) {
        return m_vOut.size() - m_ulWritten;
    }
    const std::chrono::duration<double> l_Elapsed = i_Now - m_OutStart;
    const auto l_ulPassed = static_cast<size_t>(l_Elapsed.count() * m_ulPace / 10.0);
    return std::min(l_ulPassed, m_vOut.size()) - std::min(m_ulWritten, l_ulPassed);
}

/** When a paced line has another millisecond's worth of bytes, or the last one. */
S_CLOCK::time_point CLineStream::NextAllowance() const
{
    const size_t l_ulChunk = std::max<size_t>(m_ulPace / 10'000, 1);
    const size_t l_ulNext = std::min(m_ulWritten + l_ulChunk, m_vOut.size());
    return m_OutStart + LineTime(l_ulNext, m_ulPace) + std::chrono::microseconds(1);
}

bool CLineStream::Step(std::optional<S_CLOCK::time_point> i_oUntil,
                       const CFrameReader::FN_FRAME& i_fnFrame)
{
    const auto l_Before = [&](S_CLOCK::time_point i_Time) {
        i_oUntil = std::min(i_oUntil.value_or(i_Time), i_Time);
    };
    const S_CLOCK::time_point l_SilentAt = m_LastByte + m_Silence;
    if (!m_Reader.AtStart()) {
        l_Before(l_SilentAt);
    }
    const S_CLOCK::time_point l_Start = S_CLOCK::now();
    const bool l_bMayWrite = IsWriting() && Allowance(l_Start) > 0;
    if (IsWriting() && !l_bMayWrite) {
        l_Before(NextAllowance());
    }
    std::array<pollfd, 2> l_aPolled{
        {{m_lFd, static_cast<short>(l_bMayWrite ? POLLIN | POLLOUT : POLLIN), 0},
         {m_Bell.Fd(), POLLIN, 0}}};
    timespec l_Wait{};
    if (i_oUntil && *i_oUntil > l_Start) {
        const auto l_Nanoseconds = std::chrono::nanoseconds(*i_oUntil - l_Start).count();
        l_Wait = {static_cast<time_t>(l_Nanoseconds / 1'000'000'000),
                  static_cast<long>(l_Nanoseconds % 1'000'000'000)};
    }
    if (ppoll(l_aPolled.data(), l_aPolled.size(), i_oUntil ? &l_Wait : nullptr, nullptr) < 0) {
        return errno == EINTR;
    }
    if (l_aPolled[1].revents != 0) {
        m_Bell.Silence();
    }
    const int l_lSeen = l_aPolled[0].revents;
    const bool l_bHungUp = (l_lSeen & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    if ((l_lSeen & POLLIN) != 0 || l_bHungUp) {
        if (!Read(l_bHungUp, i_fnFrame)) {
            return false;
        }
    } else if (!m_Reader.AtStart() && l_Start >= l_SilentAt) {
        // The time was over and yet nothing was there: the silence was the line's and not ours.
        m_Reader.Silence();
    }
    return !IsWriting() || WriteSome();
}

bool CLineStream::Read(bool i_bHungUp, const CFrameReader::FN_FRAME& i_fnFrame)
{
    std::array<uint8_t, 8192> l_aucBytes;
    const ssize_t l_lCount = read(m_lFd, l_aucBytes.data(), l_aucBytes.size());
    if (l_lCount > 0) {
        m_LastByte = S_CLOCK::now();
        m_Reader.Feed(std::span(l_aucBytes).first(static_cast<size_t>(l_lCount)), i_fnFrame);
        return true;
    }
    return l_lCount < 0 && (errno == EINTR || (errno == EAGAIN && !i_bHungUp));
}

bool CLineStream::WriteSome()
{
    const size_t l_ulAllowed = Allowance(S_CLOCK::now());
    if (l_ulAllowed == 0) {
        return true;
    }
    const ssize_t l_lCount = write(m_lFd, m_vOut.data() + m_ulWritten, l_ulAllowed);
    if (l_lCount < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    m_ulWritten += static_cast<size_t>(l_lCount);
    return true;
}

} // namespace links
