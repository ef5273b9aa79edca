/**
 * @file ExchangeBook.h
 * @brief The exchanges of one open port: commands under way, answers that wait to be fetched.
 */
#pragma once

#include "wire/Guarded.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <thread>
#include <vector>

namespace links {

/**
 * Keeps the exchanges of a port, in the order of their sends, and announces the answers.
 *
 * Several commands may be under way at once. Three rules keep an answer from reaching the wrong
 * command, since a fetch names no more than the CmdeID:
 *  - a fetch takes the newest answer with its CmdeID to a send of the same thread, so that a measure
 *    between a send and its fetch leaves them alone; a thread that has no such exchange takes the
 *    oldest of any;
 *  - an answer whose event is gone is dropped: whoever sent the command has given up;
 *  - a send drops the earlier exchange that has its event.
 *
 * All operations may be called from any thread.
 */
class CExchangeBook
{
public:
    using S_CLOCK = std::chrono::steady_clock;

    /** Most exchanges at once. One more drops the oldest. */
    static constexpr size_t k_ulMaxExchanges = 64;
    /** How long a fetch waits for an answer that is under way. */
    static constexpr std::chrono::milliseconds k_FetchWait{500};

    /** A command that a carrier has taken. */
    struct S_COMMAND
    {
        uint64_t ullNumber; /**< names the exchange, never used again */
        std::vector<uint8_t> vFrame;
    };

    /**
     * Enters a command, to be taken by the port's carrier.
     *
     * @param i_Frame   the frame proper.
     * @param i_ulEvent handle of its event; 0: nothing is signalled, and the answer can be fetched.
     * @return false if the book is closed.
     */
    bool Add(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent);

    /** Takes the oldest command that nobody has taken; none if there is none, or if the function
     *  says of its frame that it may not go yet. */
    std::optional<S_COMMAND> Take(const std::function<bool(std::span<const uint8_t>)>& i_fnMayGo);

    /** Takes the oldest command; waits for one until the given time or the close; no time: without end. */
    std::optional<S_COMMAND> WaitAndTake(std::optional<S_CLOCK::time_point> i_oUntil);

    /** Stores the answer frame of a command that was taken and signals its event. Nothing happens
     *  if the exchange was dropped meanwhile. */
    void Deliver(uint64_t i_ullNumber, std::vector<uint8_t> i_vAnswer);

    /** Drops one exchange: its event is never signalled. */
    void Drop(uint64_t i_ullNumber);

    /** Drops every exchange that is not answered yet. */
    void DropUnanswered();

    /**
     * Takes the answer frame to a command. Waits for it if it is under way, at most k_FetchWait.
     *
     * @return none if there is no such answer.
     */
    std::optional<std::vector<uint8_t>> Fetch(uint16_t i_usCmdeID);

    /** Drops everything, for good. Whoever waits is let go. */
    void Close();
    [[nodiscard]] bool IsClosed() const;

private:
    enum class E_STATE : uint8_t
    {
        Sent,
        Taken,
        Ready
    };

    struct S_EXCHANGE
    {
        uint64_t ullNumber;
        std::thread::id Sender;
        uint32_t ulEvent;
        uint8_t ucCmdeID;
        E_STATE eState;
        std::vector<uint8_t> vFrame; // Sent: the command; Ready: its answer
    };

    using S_ITERATOR = std::deque<S_EXCHANGE>::iterator;

    S_ITERATOR FindSent() WIRE_REQUIRES(m_Mutex);
    S_ITERATOR FindReady(uint16_t i_usCmdeID) WIRE_REQUIRES(m_Mutex);
    S_ITERATOR FindNumber(uint64_t i_ullNumber) WIRE_REQUIRES(m_Mutex);
    std::optional<S_COMMAND> TakeSent() WIRE_REQUIRES(m_Mutex);

    mutable wire::CMutex m_Mutex;
    wire::CCondition m_Changed;
    std::deque<S_EXCHANGE> m_Exchanges WIRE_GUARDED_BY(m_Mutex); // in the order of the sends
    uint64_t m_ullNextNumber WIRE_GUARDED_BY(m_Mutex) = 0;
    bool m_bClosed WIRE_GUARDED_BY(m_Mutex) = false;
};

} // namespace links
