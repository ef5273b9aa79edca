/**
 * @file LineEnd.h
 * @brief An emulated instrument at the far end of a serial line.
 */
#pragma once

#include "emulator/Firmware.h"
#include "instrument/LineNoise.h"
#include "links/line/Bell.h"
#include "links/line/FrameReader.h"
#include "links/line/LineStream.h"
#include "wire/Guarded.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

namespace emulator {

/** How a line carries the frames. */
struct S_LINE
{
    /** Without a byte for that long, a command that is not whole is dropped. */
    std::chrono::milliseconds Silence{400};
    /** Baud rate that commands and answers take their time by; 0: none. */
    uint32_t ulPace = 0;
    S_TROUBLE Trouble{};
};

/** What has passed a line. */
struct S_LINE_COUNTERS
{
    links::S_READER_COUNTERS In;
    uint64_t ullOut = 0; /**< answers */
    S_NOISE_COUNTERS Noise;
    bool bHungUp = false;
};

/**
 * Runs a firmware on a terminal, on a thread of its own. Answers go out in the order of their
 * commands, one at a time, as far as the line's own trouble lets them.
 */
class CLineEnd
{
public:
    /**
     * Starts the thread.
     *
     * @param io_Firmware must live longer.
     * @param i_lFd       terminal, raw and non-blocking; must stay open longer.
     */
    CLineEnd(CFirmware& io_Firmware, int i_lFd, const S_LINE& i_Line);
    CLineEnd(const CLineEnd&) = delete;
    CLineEnd& operator=(const CLineEnd&) = delete;
    /** Ends the thread, in the middle of an answer if need be. */
    ~CLineEnd();

    [[nodiscard]] S_LINE_COUNTERS Counters() const;

private:
    struct S_ANSWER
    {
        links::S_CLOCK::time_point Due;
        std::vector<uint8_t> vFrame;
        bool bCounts; // the first piece of an answer
    };

    void Run();
    void Handle(const std::vector<uint8_t>& i_vCommand);
    void AnswerDue(links::CLineStream& io_Stream);

    CFirmware& m_Firmware;
    const int m_lFd;
    const S_LINE m_Line;
    links::CBell m_Bell;
    links::CFrameReader m_Reader;   // of the thread, but for its counters
    std::deque<S_ANSWER> m_Answers; // in the order in which they are due
    links::S_CLOCK::time_point m_LastAnswer;
    std::atomic<bool> m_bStop{false};
    mutable wire::CMutex m_Mutex;
    CLineNoise m_Noise WIRE_GUARDED_BY(m_Mutex);
    uint64_t m_ullOut WIRE_GUARDED_BY(m_Mutex) = 0;
    bool m_bHungUp WIRE_GUARDED_BY(m_Mutex) = false;
    std::thread m_Thread;
};

} // namespace emulator
