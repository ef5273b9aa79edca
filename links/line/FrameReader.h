/**
 * @file FrameReader.h
 * @brief Finds the frames in the bytes of a serial line.
 *
 * A frame says its own length: 8 bytes and as many more as its size field counts (16 bits at offset
 * 4, at least 4). Its first two bytes are the CRC-16/MODBUS of all the others, low byte first. There
 * is no mark at its start, so whoever has lost the thread waits for the line to fall silent.
 */
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "wire/Frame.h"

namespace links {

/** What a reader has seen since it was made. */
struct S_READER_COUNTERS
{
    uint64_t ullFrames = 0;  /**< good frames */
    uint64_t ullBadCrc = 0;  /**< whole frames dropped for their CRC */
    uint64_t ullBroken = 0;  /**< frames that stalled, or whose size cannot be */
    uint64_t ullDropped = 0; /**< bytes that belong to no good frame */
};

/** CRC-16/MODBUS: polynomial 0xA001 (reflected), initial value 0xFFFF; 0x4B37 for 123456789. */
uint16_t FrameCrc(std::span<const uint8_t> i_Bytes);

/**
 * After a frame that is not good everything is dropped up to the next silence of the line: its size
 * field may be what is damaged.
 *
 * Belongs to one thread; the counters may be read by any.
 */
class CFrameReader
{
public:
    /** Takes a whole, good frame. */
    using FN_FRAME = std::function<void(std::vector<uint8_t>)>;

    /** Takes bytes as they come in. */
    void Feed(std::span<const uint8_t> i_Bytes, const FN_FRAME& i_fnFrame);

    /** The line has been silent: what is not whole by now is dropped, and the next byte begins a
     *  frame. */
    void Silence();

    /** Whether the next byte begins a frame. */
    [[nodiscard]] bool AtStart() const { return !m_bSkipping && m_vFrame.empty(); }

    /** Whether a frame has begun and is not whole. */
    [[nodiscard]] bool InFrame() const { return !m_bSkipping && !m_vFrame.empty(); }

    [[nodiscard]] S_READER_COUNTERS Counters() const;

private:
    void Skip();

    std::vector<uint8_t> m_vFrame;
    bool m_bSkipping = false;
    std::atomic<uint64_t> m_ullFrames{0};
    std::atomic<uint64_t> m_ullBadCrc{0};
    std::atomic<uint64_t> m_ullBroken{0};
    std::atomic<uint64_t> m_ullDropped{0};
};

} // namespace links
