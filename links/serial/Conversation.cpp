#include "links/serial/Conversation.h"

#include "links/line/LineStream.h"
#include "wire/Bytes.h"
#include "wire/Frame.h"

#include <algorithm>
#include <utility>

namespace links {

namespace {

/** Commands that are remembered at once; of more, the oldest are forgotten. */
constexpr size_t k_ulMaxPast = 64;

/** 0 and 2006 both mean success. */
constexpr uint32_t k_ulAlsoSuccess = 2006;

/** Tells frames apart, nearly always. */
uint32_t FaceOf(std::span<const uint8_t> i_Frame)
{
    return wire::ReadLe16(i_Frame.data()) |
           static_cast<uint32_t>(wire::ReadLe16(&i_Frame[wire::k_ulSizeOffset])) << 16;
}

template <typename T_PAST>
void Remember(std::deque<T_PAST>& io_Past, T_PAST i_Past)
{
    if (io_Past.size() >= k_ulMaxPast) {
        io_Past.pop_front();
    }
    io_Past.push_back(std::move(i_Past));
}

} // namespace

CConversation::CConversation(CExchangeBook& io_Book, std::chrono::milliseconds i_AnswerTimeout,
                             std::chrono::milliseconds i_Silence, uint32_t i_ulBaudRate)
    : m_Book(io_Book), m_AnswerTimeout(i_AnswerTimeout), m_Silence(i_Silence),
      m_ulBaudRate(i_ulBaudRate)
{
}

bool CConversation::S_KEY::Fits(const S_KEY& i_Other) const
{
    return ucCanal == i_Other.ucCanal && ucCmdeID == i_Other.ucCmdeID &&
           oulVoie.value_or(0) == (oulVoie ? i_Other.oulVoie.value_or(*oulVoie) : 0);
}

CConversation::S_KEY CConversation::KeyOfCommand(std::span<const uint8_t> i_Frame)
{
    S_KEY l_Key{i_Frame[wire::k_ulCanalOffset], i_Frame[wire::k_ulCmdeOffset], std::nullopt};
    if (l_Key.ucCanal == wire::k_ucCanalBoard && l_Key.ucCmdeID == wire::MEASURE_INTERNE &&
        i_Frame.size() >= wire::k_ulDataOffset + 4) {
        l_Key.oulVoie = wire::ReadLe32(&i_Frame[wire::k_ulDataOffset]);
    }
    return l_Key;
}

CConversation::S_KEY CConversation::KeyOfAnswer(std::span<const uint8_t> i_Frame)
{
    S_KEY l_Key{i_Frame[wire::k_ulCanalOffset], i_Frame[wire::k_ulCmdeOffset], std::nullopt};
    if (l_Key.ucCanal == wire::k_ucCanalBoard && l_Key.ucCmdeID == wire::MEASURE_INTERNE &&
        i_Frame.size() >= wire::k_ulBoardDataOffset + 4) {
        const uint32_t l_ulError = wire::ReadLe32(&i_Frame[wire::k_ulErrorCodeOffset]);
        // An answer that tells of an error need not name an input behind it.
        if (wire::ReadLe16(&i_Frame[wire::k_ulReturnCodeOffset]) == 1 &&
            (l_ulError == 0 || l_ulError == k_ulAlsoSuccess)) {
            l_Key.oulVoie = wire::ReadLe32(&i_Frame[wire::k_ulBoardDataOffset]);
        }
    }
    return l_Key;
}

CConversation::S_CLOCK::time_point
CConversation::EarliestFor(std::span<const uint8_t> i_Command) const
{
    const S_KEY l_Key = KeyOfCommand(i_Command);
    S_CLOCK::time_point l_Earliest{};
    for (const S_PAST& l_Past : m_Owed) {
        if (l_Past.Key.Fits(l_Key)) {
            l_Earliest = std::max(l_Earliest, l_Past.When + m_AnswerTimeout);
        }
    }
    for (const S_PAST& l_Past : m_Answered) {
        if (m_ulCareful != 0 && l_Past.Key.Fits(l_Key) && !IsKnownByItsBytes(l_Past.ulFace)) {
            l_Earliest = std::max(l_Earliest, l_Past.When + m_EchoTime);
        }
    }
    return l_Earliest;
}

void CConversation::Begin(const CExchangeBook::S_COMMAND& i_Command)
{
    const std::chrono::milliseconds l_Granted(
        100 * wire::ReadLe16(&i_Command.vFrame[wire::k_ulTimeoutOffset]));
    const auto l_Time = std::max(m_AnswerTimeout, std::min(l_Granted, k_MostTime));
    if (m_ulCareful != 0 && --m_ulCareful == 0) {
        m_bEchoes = m_bStrange = false;
        m_EchoTime = k_EchoTime;
    }
    m_oCurrent = {i_Command.ullNumber, KeyOfCommand(i_Command.vFrame), {}, {}, std::nullopt, {}};
    SetDeadline(S_CLOCK::now() + l_Time + LineTime(i_Command.vFrame.size(), m_ulBaudRate));
}

void CConversation::SetDeadline(S_CLOCK::time_point i_Deadline)
{
    m_oCurrent->Deadline = i_Deadline;
    m_oCurrent->LastDeadline =
        i_Deadline + m_AnswerTimeout + LineTime(wire::k_ulMaxFrame, m_ulBaudRate);
}

void CConversation::Answer(std::vector<uint8_t> i_vFrame)
{
    const S_KEY l_Key = KeyOfAnswer(i_vFrame);
    const bool l_bMayBeCurrent = m_oCurrent && m_oCurrent->Key.Fits(l_Key);
    if (l_bMayBeCurrent && m_oCurrent->ovHeld == i_vFrame) {
        // The same once more shows nothing: it may be a second copy.
        return;
    }
    const auto l_itOwed = std::find_if(
        m_Owed.begin(), m_Owed.end(), [&](const S_PAST& i_Past) { return i_Past.Key.Fits(l_Key); });
    const bool l_bOwed = l_itOwed != m_Owed.end();
    if (l_bOwed) {
        m_Owed.erase(l_itOwed);
    }
    if (l_bMayBeCurrent) {
        if (m_oCurrent->ovHeld) {
            // It came before this one, and so was late, or a copy.
            const uint32_t l_ulFace = FaceOf(*m_oCurrent->ovHeld);
            if (l_bOwed || m_bEchoes || !LearnEcho(l_Key, l_ulFace, m_oCurrent->HeldAt)) {
                DropLate(l_Key, *m_oCurrent->ovHeld);
            }
        }
        if (l_bOwed) {
            Hold(std::move(i_vFrame), std::min(k_HoldTime, m_AnswerTimeout));
        } else if (!m_oCurrent->ovHeld && MayBeCopy(i_vFrame, l_Key)) {
            Hold(std::move(i_vFrame), m_bEchoes ? m_EchoTime : k_HoldTime);
        } else {
            Deliver(std::move(i_vFrame));
        }
    } else if (l_bOwed) {
        DropLate(l_Key, i_vFrame);
    } else {
        ++m_ullStray;
        if (!LearnEcho(l_Key, FaceOf(i_vFrame), S_CLOCK::now())) {
            BeCareful();
        }
    }
}

/** Keeps an answer back, for another one to come. */
void CConversation::Hold(std::vector<uint8_t> i_vFrame, S_CLOCK::duration i_Time)
{
    m_oCurrent->ovHeld = std::move(i_vFrame);
    m_oCurrent->HeldAt = S_CLOCK::now();
    SetDeadline(m_oCurrent->HeldAt + i_Time);
}

/** Drops an answer to a command that was given up; a second copy of it may come yet. */
void CConversation::DropLate(const S_KEY& i_Key, const std::vector<uint8_t>& i_vFrame)
{
    ++m_ullLate;
    BeCareful();
    Remember(m_Answered, {i_Key, S_CLOCK::now(), FaceOf(i_vFrame)});
}

/** For a few exchanges. */
void CConversation::BeCareful()
{
    m_bStrange = true;
    m_ulCareful = std::max(m_ulCareful, k_ulUnknown);
}

/** Whether a copy of an answer with that face would be known, on a line of which nothing is known. */
bool CConversation::IsKnownByItsBytes(uint32_t i_ulFace) const
{
    return !m_bEchoes && !m_bStrange && i_ulFace >> 16 >= k_ulLong;
}

/** Whether an answer before was the same byte for byte, on a line that may deliver answers twice. */
bool CConversation::MayBeCopy(const std::vector<uint8_t>& i_vFrame, const S_KEY& i_Key) const
{
    const bool l_bAsked = m_bEchoes || (m_ulCareful != 0 && IsKnownByItsBytes(FaceOf(i_vFrame)));
    return l_bAsked && std::any_of(m_Answered.begin(), m_Answered.end(), [&](const S_PAST& i_Past) {
               return i_Past.Key.Fits(i_Key) && i_Past.ulFace == FaceOf(i_vFrame);
           });
}

/** A frame that answers nothing. Where it is an answer once more, the line delivers answers twice,
 *  and this late. @return whether it is. */
bool CConversation::LearnEcho(const S_KEY& i_Key, uint32_t i_ulFace, S_CLOCK::time_point i_When)
{
    const auto l_itFirst =
        std::find_if(m_Answered.rbegin(), m_Answered.rend(), [&](const S_PAST& i_Past) {
            return i_Past.ulFace == i_ulFace && i_Past.Key.Fits(i_Key);
        });
    if (l_itFirst == m_Answered.rend()) {
        return false;
    }
    const S_CLOCK::duration l_Lag = i_When - l_itFirst->When;
    const S_CLOCK::duration l_Most = std::min(k_HoldTime, m_AnswerTimeout);
    m_EchoTime = std::max(m_EchoTime, std::min(l_Lag + l_Lag / 2, l_Most));
    m_bEchoes = true;
    m_ulCareful = k_ulEchoing;
    return true;
}

void CConversation::Deliver(std::vector<uint8_t> i_vFrame)
{
    const S_CLOCK::time_point l_Now = S_CLOCK::now();
    const uint32_t l_ulFace = FaceOf(i_vFrame);
    m_Book.Deliver(m_oCurrent->ullNumber, std::move(i_vFrame));
    std::erase_if(m_Answered,
                  [&](const S_PAST& i_Past) { return i_Past.When + m_AnswerTimeout < l_Now; });
    Remember(m_Answered, {m_oCurrent->Key, l_Now, l_ulFace});
    // An answer to this one shows that those before it will not be answered any more, but for a line
    // that delivers in another order; it has had its time to do so with the older ones.
    std::erase_if(m_Owed,
                  [&](const S_PAST& i_Past) { return i_Past.When + m_AnswerTimeout <= l_Now; });
    m_oCurrent.reset();
    ++m_ullAnswered;
}

std::optional<CConversation::S_CLOCK::time_point> CConversation::Deadline() const
{
    return m_oCurrent ? std::optional(m_oCurrent->Deadline) : std::nullopt;
}

void CConversation::Expire(bool i_bInFrame)
{
    const S_CLOCK::time_point l_Now = S_CLOCK::now();
    if (!m_oCurrent || l_Now < m_oCurrent->Deadline) {
        return;
    }
    if (i_bInFrame && l_Now < m_oCurrent->LastDeadline) {
        m_oCurrent->Deadline = std::min(l_Now + m_Silence, m_oCurrent->LastDeadline);
        return;
    }
    if (m_oCurrent->ovHeld) {
        m_bStrange = true; // no copy: the next one may be the same, too
        Deliver(std::move(*m_oCurrent->ovHeld));
        return;
    }
    Remember(m_Owed, {m_oCurrent->Key, l_Now, 0});
    m_Book.Drop(m_oCurrent->ullNumber);
    m_oCurrent.reset();
    ++m_ullUnanswered;
}

void CConversation::Forget()
{
    m_oCurrent.reset();
    m_Owed.clear();
    m_Answered.clear();
    m_bStrange = false;
    m_ulCareful = std::max(m_ulCareful, k_ulUnknown);
}

S_CONVERSATION_COUNTERS CConversation::Counters() const
{
    return {m_ullAnswered, m_ullUnanswered, m_ullLate, m_ullStray};
}

} // namespace links
