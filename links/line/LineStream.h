/**
 * @file LineStream.h
 * @brief Frames in and bytes out over a terminal, one step at a time.
 */
#pragma once

#include "links/line/Bell.h"
#include "links/line/FrameReader.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace links {

using S_CLOCK = std::chrono::steady_clock;

/** Time that bytes take on a line: 10 bits each. */
inline std::chrono::nanoseconds LineTime(size_t i_ulBytes, uint32_t i_ulBaudRate)
{
    return std::chrono::nanoseconds(10ULL * i_ulBytes * 1'000'000'000ULL / i_ulBaudRate);
}

/**
 * One end of a line. Belongs to the thread that calls Step(); the reader's counters may be read and
 * the bell rung by any.
 */
class CLineStream
{
public:
    /**
     * @param i_lFd     terminal, raw and non-blocking; must stay open.
     * @param i_Bell    ends a Step(); must live longer.
     * @param io_Reader takes the bytes; must live longer.
     * @param i_Silence time without a byte after which a frame that is not whole is given up.
     * @param i_ulPace  baud rate at which the bytes go out; 0: as fast as the terminal takes them.
     */
    CLineStream(int i_lFd, const CBell& i_Bell, CFrameReader& io_Reader,
                std::chrono::milliseconds i_Silence, uint32_t i_ulPace = 0);

    /** Queues bytes to go out. */
    void Write(std::span<const uint8_t> i_Bytes);

    /** Throws away what did not go out yet. */
    void Abandon();

    /** Whether bytes wait to go out. */
    [[nodiscard]] bool IsWriting() const { return m_ulWritten < m_vOut.size(); }

    /**
     * Waits until bytes come or go, the bell rings, or the time has come; reads and writes what can
     * be without waiting.
     *
     * @param i_oUntil  no time: without end.
     * @param i_fnFrame takes each good frame; may call Write().
     * @return false if the line has hung up.
     */
    bool Step(std::optional<S_CLOCK::time_point> i_oUntil, const CFrameReader::FN_FRAME& i_fnFrame);

private:
    bool Read(bool i_bHungUp, const CFrameReader::FN_FRAME& i_fnFrame);
    bool WriteSome();
    [[nodiscard]] size_t Allowance(S_CLOCK::time_point i_Now) const;
    [[nodiscard]] S_CLOCK::time_point NextAllowance() const;

    const int m_lFd;
    const CBell& m_Bell;
    CFrameReader& m_Reader;
    const std::chrono::milliseconds m_Silence;
    const uint32_t m_ulPace;
    S_CLOCK::time_point m_LastByte;
    std::vector<uint8_t> m_vOut;
    size_t m_ulWritten = 0;
    S_CLOCK::time_point m_OutStart; // when the first byte of m_vOut began
};

} // namespace links
