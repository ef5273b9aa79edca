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
#include <span>
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
 * One command is on the line at a time. A frame carries no number, only what the answer repeats:
 * canal, command, and the input of a measure. Two commands with the same of these are twins: nothing
 * in an answer tells which of them it belongs to. So:
 *
 *  - a frame that repeats something else than the command on the line is never its answer;
 *  - a command that was given up may still be answered. Its twin goes on the line when that answer
 *    has come and was dropped, or when it has been waited for as long as for the first;
 *  - behind that, and for as long as nothing sent later was answered, the first answer to a twin may
 *    still be the late one. It is held back for a moment, for another to come and show that;
 *  - on a line that has delivered an answer twice, a twin waits until a second copy of the answer
 *    before would have come; and an answer that is one of those before, byte for byte, is held back as
 *    long;
 *  - a line that is not known yet is taken for one that does, for a few exchanges. There a copy of a
 *    long answer, of samples say, is known by its bytes: its twin goes out at once, and only an answer
 *    that is the same byte for byte is held back. Where that is the instrument's own way, or anything
 *    else is strange, such a twin waits, too.
 *
 * Belongs to the port's thread; the counters may be read by any.
 */
class CConversation
{
public:
    using S_CLOCK = std::chrono::steady_clock;

    /** Most time that a frame can give its instrument. */
    static constexpr std::chrono::milliseconds k_MostTime{60'000};
    /** How long an answer is held back that may be a late one. */
    static constexpr std::chrono::milliseconds k_HoldTime{250};
    /** How long a twin waits at least, where answers come twice. */
    static constexpr std::chrono::milliseconds k_EchoTime{20};
    /** Exchanges for which a twin waits on a line of which nothing is known, and on one that has
     *  delivered an answer twice. */
    static constexpr uint32_t k_ulUnknown = 16;
    /** Size of an answer, in its own field, from which on two are hardly ever the same by chance. */
    static constexpr uint32_t k_ulLong = 64;
    static constexpr uint32_t k_ulEchoing = 100'000;

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

    /** When a command of at least 12 bytes may go on the line, as far as is known by now. */
    [[nodiscard]] S_CLOCK::time_point EarliestFor(std::span<const uint8_t> i_Command) const;

    /** A command goes on the line now. */
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
    /** What an answer repeats of its command. */
    struct S_KEY
    {
        uint8_t ucCanal;
        uint8_t ucCmdeID;
        std::optional<uint32_t> oulVoie; // none: any, as in an answer that tells of an error

        [[nodiscard]] bool Fits(const S_KEY& i_Other) const;
    };

    struct S_CURRENT
    {
        uint64_t ullNumber;
        S_KEY Key;
        S_CLOCK::time_point Deadline;
        S_CLOCK::time_point LastDeadline; // for a frame that is coming in
        std::optional<std::vector<uint8_t>> ovHeld;
        S_CLOCK::time_point HeldAt;
    };

    /** A command that is over: answered, or given up. */
    struct S_PAST
    {
        S_KEY Key;
        S_CLOCK::time_point When;
        uint32_t ulFace = 0; // CRC and size of its answer
    };

    static S_KEY KeyOfCommand(std::span<const uint8_t> i_Frame);
    static S_KEY KeyOfAnswer(std::span<const uint8_t> i_Frame);
    void SetDeadline(S_CLOCK::time_point i_Deadline);
    void Deliver(std::vector<uint8_t> i_vFrame);
    [[nodiscard]] bool IsKnownByItsBytes(uint32_t i_ulFace) const;
    [[nodiscard]] bool MayBeCopy(const std::vector<uint8_t>& i_vFrame, const S_KEY& i_Key) const;
    void BeCareful();
    void DropLate(const S_KEY& i_Key, const std::vector<uint8_t>& i_vFrame);
    void Hold(std::vector<uint8_t> i_vFrame, S_CLOCK::duration i_Time);
    bool LearnEcho(const S_KEY& i_Key, uint32_t i_ulFace, S_CLOCK::time_point i_When);

    CExchangeBook& m_Book;
    const std::chrono::milliseconds m_AnswerTimeout;
    const std::chrono::milliseconds m_Silence;
    const uint32_t m_ulBaudRate;
    std::optional<S_CURRENT> m_oCurrent;
    std::deque<S_PAST> m_Owed;          // given up and not answered since
    std::deque<S_PAST> m_Answered;      // of the last m_AnswerTimeout
    uint32_t m_ulCareful = k_ulUnknown; // exchanges for which a twin waits for a second copy
    bool m_bEchoes = false;             // answers have come twice
    bool m_bStrange = false;            // a twin waits behind a long answer, too
    S_CLOCK::duration m_EchoTime = k_EchoTime;
    std::atomic<uint64_t> m_ullAnswered{0};
    std::atomic<uint64_t> m_ullUnanswered{0};
    std::atomic<uint64_t> m_ullLate{0};
    std::atomic<uint64_t> m_ullStray{0};
};

} // namespace links
