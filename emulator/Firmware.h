/**
 * @file Firmware.h
 * @brief The seam of the framed instruments, board and milliohm module: a frame in, a frame out.
 *
 * The same firmware stands behind an in-process link and at the far end of a serial line. Whoever
 * carries the frames calls CFirmware::Handle() with each frame that came in, waits
 * S_REPLY::ulDelayMs and passes S_REPLY::vFrame on. The layout is that of wire/Frame.h; what it
 * leaves to the instrument is 0 in an answer, but for the board's command at offset 2.
 */
#pragma once

#include "emulator/Instrument.h"
#include "wire/Frame.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace emulator {

/** What comes back of one frame. */
struct S_REPLY
{
    bool bAnswered = false; /**< false: the instrument stays silent, the rest is empty */
    uint32_t ulDelayMs = 0; /**< the answer is ready this many milliseconds from now */
    std::vector<uint8_t>
        vFrame; /**< the answer frame, CRC first; as spoilt as the faults want it */
};

/** Traffic since construction. */
struct S_COUNTERS
{
    uint32_t ulFramesIn = 0;  /**< calls of Handle() */
    uint32_t ulFramesOut = 0; /**< answers */
    uint32_t ulBadCrc = 0;    /**< frames dropped for their CRC */
    uint32_t ulMalformed = 0; /**< frames dropped since their length denies their size field */
    uint32_t ulRefused = 0;   /**< answers that refused the command */
};

/**
 * A framed instrument. Handle() may be called from several threads; commands are run one at a time.
 */
class CFirmware : public CInstrument
{
public:
    using CInstrument::CInstrument;

    /**
     * Takes one frame and gives the answer.
     *
     * A frame whose length is not 8 plus its size field, whose size field is below 4, or whose CRC
     * does not match is dropped without an answer and counted. A command that is unknown or whose
     * payload does not fit is answered with an error of the firmware.
     *
     * @param i_Frame the frame proper, without anything behind it.
     */
    S_REPLY Handle(std::span<const uint8_t> i_Frame);

    S_COUNTERS Counters() const;

protected:
    /** A frame that has passed its checks. */
    struct S_REQUEST
    {
        uint8_t ucCmdeID;
        uint8_t ucCanal;
        uint8_t ucParam;
        std::span<const uint8_t> Payload; /**< from offset 12 on; lives as long as the frame */
    };

    /** The body of an answer: what stands from offset 12 on. */
    struct S_BODY
    {
        bool bRefused = false;      /**< counted as a refusal */
        std::vector<uint8_t> vData; /**< return code, and what follows it */
    };

    /** Runs one command. Called with m_Mutex held. */
    virtual S_BODY Execute(const S_REQUEST& i_Request) = 0;

    /** Value of the ID field at offset 2 of an answer. */
    virtual uint16_t AnswerId(uint8_t i_ucCmdeID) const = 0;

private:
    bool Accept(std::span<const uint8_t> i_Frame);
    void Spoil(std::vector<uint8_t>& io_vFrame, uint8_t i_ucCmdeID);

    S_COUNTERS m_Counters;
};

/** Length that the size field of a frame asks for; 0 with fewer than 6 bytes at hand. */
size_t FrameLength(std::span<const uint8_t> i_Bytes);

/** Writes the CRC at the front of a frame of at least 2 bytes. */
void SealFrame(std::span<uint8_t> io_Frame);

/** True if the CRC at the front of the frame matches the rest of it. */
bool IsSealed(std::span<const uint8_t> i_Frame);

} // namespace emulator
