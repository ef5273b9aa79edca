/**
 * @file ProbeFirmware.h
 * @brief Firmware of an emulated probe: a command record in, an acknowledgement and a reply out.
 *
 * | command  | payload       | reply                                                              |
 * | -------- | ------------- | ------------------------------------------------------------------ |
 * | 16 to 23 | the host's    | the payload, or the command alone without one; 22 in the headed
 * form| | 32       | 4 bytes       | headed, no data; the first channel runs, from the start | |
 * 33, 1    | none          | headed: the samples collected, in the compact code                  |
 * | 34       | none          | headed, no data; nothing runs any more | | 64       | 8 bytes |
 * headed, no data; both channels run, from the start                  |
 *
 * The headed form is command (8 bits), data size (16 bits), status (8 bits, 0 good), data, and one
 * more byte 0. A read gives the codes of one channel while only the first one runs, those of both
 * channels in turn once command 64 was seen, and no data while nothing runs.
 *
 * Channels 0 and 1 play the same channels of the recording. A value within -4096 to 4095 counts
 * goes out in the low range, any other in the high range, as counts divided by 16, rounded to the
 * nearest.
 */
#pragma once

#include "emulator/Instrument.h"
#include "emulator/SampleEncoder.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace emulator {

/** Status bytes of the probe's own replies. */
enum E_PROBE_STATUS : uint8_t
{
    k_ucProbeGood = 0,
    k_ucProbeUnknownCommand = 1,
    k_ucProbeLength = 2 /**< the payload of a start is too short */
};

/** What comes back of one command. */
struct S_PROBE_REPLY
{
    bool bAnswered = false;      /**< false: silent, the rest is empty */
    uint32_t ulDelayMs = 0;      /**< the reply is ready this many milliseconds from now */
    uint32_t ulAnswer = 0;       /**< first word of the acknowledgement: the command */
    uint32_t ulNbReturnByte = 0; /**< second word: number of reply bytes to fetch */
    std::vector<uint8_t> vReply; /**< the reply; shorter than announced if a fault wants it */
};

/**
 * The probe. Options of its own for Configure():
 *  - "rows=N": rows of one read, 0 to 16000; 50 at first;
 *  - "scale=X": counts for a signal of 1.0; 1000 at first.
 */
class CProbeFirmware final : public CInstrument
{
public:
    /** Rows of one read at first. */
    static constexpr uint32_t k_ulRows = 50;
    /** Most rows of one read: two channels of two bytes each still fit the data size. */
    static constexpr uint32_t k_ulMaxRows = 16000;
    /** Bytes of a command record. */
    static constexpr size_t k_ulRecordSize = 12;

    CProbeFirmware();

    /**
     * Takes one command.
     *
     * @param i_Command the 12-byte record and its payload; what lies behind the payload does not
     *                  count. Shorter than the record says: no answer.
     */
    S_PROBE_REPLY Handle(std::span<const uint8_t> i_Command);

    void SetRows(uint32_t i_ulRows);
    void SetScale(double i_dScale);

    void Restart() override;

protected:
    bool SetOption(std::string_view i_Name, std::string_view i_Value,
                   std::string& o_strError) override;

private:
    std::vector<uint8_t> Execute(uint8_t i_ucCmdeID, std::span<const uint8_t> i_Payload);
    std::vector<uint8_t> Collect();
    S_SAMPLE Sample(size_t i_ulRow, size_t i_ulChannel) const;

    size_t m_ulRunning = 0; // channels that run: 0 to 2
    size_t m_ulRow = 0;
    uint32_t m_ulRows = k_ulRows;
    double m_dScale = 1000.0;
};

} // namespace emulator
