/**
 * @file Conversation.h
 * @brief Who is answered by a frame that comes in.
 */
#pragma once

#include "links/common/ExchangeBook.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace links {

/** What became of the commands that were put on the line. */
struct S_CONVERSATION_COUNTERS
{
    uint64_t ullAnswered = 0;   /**< answers delivered */
    uint64_t ullUnanswered = 0; /**< commands given up after their time */
    uint64_t ullLate = 0;       /**< answers to commands that had been given up: dropped */
    uint64_t ullStray = 0;      /**< good frames that answer nothing: dropped */
};

/**
 * One command is on the line at a time. A frame carries no number, only canal and command, which
 * the answer repeats; and an instrument answers in the order in which it was asked. So:
 *
 *  - a frame of another canal or command than the one on the line is never its answer;
 *  - a command that was given up still owes an answer, until an answer to a later one shows that it
 *    will not come any more;
 *  - while a command of the same canal and command owes one, the first answer may be the late one.
 *    It is held back for the answer time-out. If another comes, the first was late and is dropped.
 *
 * Belongs to the port's thread; the counters may be read by any.
 */
class CConversation
{
public:
    using S_CLOCK = std::chrono::steady_clock;

    /** Most time that a frame can give its instrument. */
    static constexpr std::chrono::milliseconds k_MostTime{60'000};

    /**
     * @param io_Book         where the commands come from.
     * @param i_AnswerTimeout time for an answer; a frame whose own time-out field gives the
     *                        instrument more has that, at most k_MostTime.
     * @param i_Silence       how long a frame that has begun may pause.
     */
    CConversation(CExchangeBook& io_Book, std::chrono::milliseconds i_AnswerTimeout,
                  std::chrono::milliseconds i_Silence, uint32_t i_ulBaudRate);

    /** Whether a command is on the line. */
    [[nodiscard]] bool IsBusy() const { return m_oCurrent.has_value(); }

    /** A command of at least 12 bytes goes on the line now. */
    void Begin(const CExchangeBook::S_COMMAND& i_Command);

    /** A good frame of at least 12 bytes has come in. */
    void Answer(std::vector<uint8_t> i_vFrame);

    /** When Expire() wants to be called. */
    [[nodiscard]] std::optional<S_CLOCK::time_point> Deadline() const;

    /** Gives up what has had its time, delivers what was held back long enough.
     *  @param i_bInFrame whether a frame has begun to come in: it may be the answer. */
    void Expire(bool i_bInFrame);

    /** The line has hung up: who answers next knows of nothing. */
    void Forget();

    [[nodiscard]] S_CONVERSATION_COUNTERS Counters() const;

private:
    /** Canal and command. */
    using S_KEY = std::pair<uint8_t, uint8_t>;

    struct S_CURRENT
    {
        uint64_t ullNumber;
        S_KEY Key;
        S_CLOCK::time_point Deadline;
        S_CLOCK::time_point LastDeadline; // for a frame that is coming in
        std::optional<std::vector<uint8_t>> ovHeld;
    };

    static S_KEY KeyOf(const std::vector<uint8_t>& i_vFrame);
    void SetDeadline(S_CLOCK::time_point i_Deadline);
    void Deliver(std::vector<uint8_t> i_vFrame);

    CExchangeBook& m_Book;
    const std::chrono::milliseconds m_AnswerTimeout;
    const std::chrono::milliseconds m_Silence;
    const uint32_t m_ulBaudRate;
    std::optional<S_CURRENT> m_oCurrent;
    std::deque<S_KEY> m_Owed; // in the order of the commands
    std::atomic<uint64_t> m_ullAnswered{0};
    std::atomic<uint64_t> m_ullUnanswered{0};
    std::atomic<uint64_t> m_ullLate{0};
    std::atomic<uint64_t> m_ullStray{0};
};

} // namespace links
