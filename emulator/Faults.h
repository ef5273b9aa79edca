/**
 * @file Faults.h
 * @brief Faults that a test or a command line dials into an emulated instrument.
 *
 * A fault is a kind, a value whose meaning goes with the kind, the number of exchanges that it
 * spoils and, where wanted, the one command that it waits for. As a text:
 *
 *     name[=value][@command][*times]
 *
 * as in "no-answer*3", "late=200", "error-code=17@212*1", "measure-status=0x81". Values and
 * commands are decimal, or hexadecimal behind 0x. Without "*times" the fault lasts until it is
 * cleared.
 */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

/** The kinds of instrument, as a mask. */
enum class E_INSTRUMENT : uint8_t
{
    Board = 1,
    MilliOhm = 2,
    Probe = 4
};

/** What can go wrong. The comment gives the name in a text and the meaning of the value. */
enum class E_FAULT : uint8_t
{
    // Made by the firmware: they reach whatever carries its frames.
    NoAnswer,       /**< no-answer: the command is not heard */
    Late,           /**< late=MS: the answer comes that much later */
    ReturnCode,     /**< return-code=N: firmware return code; 1 is the good one */
    ErrorCode,      /**< error-code=N: firmware error code of the board */
    Short,          /**< short=N: the answer frame, or a probe's reply, ends after N bytes */
    Corrupt,        /**< corrupt=N: N bytes of the answer are flipped, behind the CRC's back */
    FrameSize,      /**< frame-size=N: the size field of the answer frame lies */
    CompressedSize, /**< compressed-size=N: the stream size of an upload lies */
    Voie,           /**< voie=N: the measuring input that a measure names */
    MeasureStatus,  /**< measure-status=N: status byte of a milliohm measure */
    ProbeStatus,    /**< status=N: status byte of a probe's headed replies */
    DataSize,       /**< data-size=N: the data size of a probe's headed replies lies */
    // Made by an in-process link.
    SendFails,  /**< send-fails=ERROR: the send call fails with that last error */
    SendStatus, /**< send-status=N: the send is refused with that status word */
    FetchFails, /**< fetch-fails=ERROR: the fetch call fails with that last error */
    LinkStatus, /**< link-status=N: status word in front of the answer */
    Count,      /**< count=N: the byte count of the fetch lies */
    Ack,        /**< ack=N: a probe's send is acknowledged with N bytes */
    NoOpen,     /**< no-open=ERROR: the link refuses to open */
    CloseFails, /**< close-fails=ERROR: the link refuses to close */
};
inline constexpr size_t k_ulFaults = static_cast<size_t>(E_FAULT::CloseFails) + 1;

/** The faults of one instrument. Safe to use from any thread, also while the instrument runs. */
class CFaults
{
public:
    /** Number of times of a fault that lasts until it is cleared. */
    static constexpr uint32_t k_ulAlways = 0xFFFFFFFF;

    /**
     * Adds a fault. Faults of one kind are used up one after the other, the oldest first.
     *
     * @param i_ulTimes   number of exchanges; 0 adds nothing.
     * @param i_oucCmdeID the command that it waits for; none: any.
     */
    void Dial(E_FAULT i_eFault, uint32_t i_ulValue, uint32_t i_ulTimes = k_ulAlways,
              std::optional<uint8_t> i_oucCmdeID = std::nullopt);

    /**
     * Adds the fault that a text names, in the form at the head of this file. A value left out
     * takes its default, which not every fault has.
     *
     * @param      i_eInstrument an instrument that must know this fault.
     * @param[out] o_strError    what is wrong with the text, if the result is false.
     */
    bool Dial(std::string_view i_Text, E_INSTRUMENT i_eInstrument, std::string& o_strError);

    /** Removes all faults. The hits stay. */
    void Clear();

    /**
     * Asks whether a fault strikes now, and uses it up once if it does.
     *
     * @param i_oucCmdeID the command in hand; none where there is no command, as at an open.
     * @return the fault's value, or none.
     */
    std::optional<uint32_t> Take(E_FAULT i_eFault,
                                 std::optional<uint8_t> i_oucCmdeID = std::nullopt);

    /** How often faults of this kind have struck. */
    uint32_t Hits(E_FAULT i_eFault) const;

    /** True if the text begins with the name of a fault, whether or not it is well formed. */
    static bool IsFault(std::string_view i_Text);

private:
    struct S_FAULT
    {
        E_FAULT eFault;
        uint32_t ulValue;
        uint32_t ulTimes;
        std::optional<uint8_t> oucCmdeID;
    };

    mutable std::mutex m_Mutex;
    std::vector<S_FAULT> m_vFaults;
    std::array<uint32_t, k_ulFaults> m_aulHits{};
};

} // namespace emulator
