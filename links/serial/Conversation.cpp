#include "links/serial/Conversation.h"

#include "links/line/LineStream.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <utility>

namespace links {

namespace {

/** Answers that can be owed at once; of more, the oldest are forgotten. */
constexpr size_t k_ulMaxOwed = 64;

} // namespace

CConversation::CConversation(CExchangeBook& io_Book, std::chrono::milliseconds i_AnswerTimeout,
                             std::chrono::milliseconds i_Silence, uint32_t i_ulBaudRate)
    : m_Book(io_Book), m_AnswerTimeout(i_AnswerTimeout), m_Silence(i_Silence),
      m_ulBaudRate(i_ulBaudRate)
{
}

CConversation::S_KEY CConversation::KeyOf(const std::vector<uint8_t>& i_vFrame)
{
    return {i_vFrame[wire::k_ulCanalOffset], i_vFrame[wire::k_ulCmdeOffset]};
}

void CConversation::Begin(const CExchangeBook::S_COMMAND& i_Command)
{
    const std::chrono::milliseconds l_Granted(
        100 * wire::ReadLe16(&i_Command.vFrame[wire::k_ulTimeoutOffset]));
    const auto l_Time = std::max(m_AnswerTimeout, std::min(l_Granted, k_MostTime));
    m_oCurrent = {i_Command.ullNumber, KeyOf(i_Command.vFrame), {}, {}, std::nullopt};
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
    const S_KEY l_Key = KeyOf(i_vFrame);
    const auto l_itOwed = std::find(m_Owed.begin(), m_Owed.end(), l_Key);
    const bool l_bOwed = l_itOwed != m_Owed.end();
    const bool l_bMayBeCurrent = m_oCurrent && m_oCurrent->Key == l_Key;
    if (!l_bOwed && l_bMayBeCurrent) {
        m_ullLate += m_oCurrent->ovHeld ? 1 : 0;
        Deliver(std::move(i_vFrame));
        return;
    }
    if (!l_bOwed) {
        ++m_ullStray;
        return;
    }
    // An answer to this one tells that those before it will not be answered any more; and one that
    // was held back came before it, and so was late.
    m_Owed.erase(m_Owed.begin(), l_itOwed + 1);
    if (m_oCurrent && m_oCurrent->ovHeld) {
        ++m_ullLate;
        m_oCurrent->ovHeld.reset();
    }
    if (l_bMayBeCurrent) {
        m_oCurrent->ovHeld = std::move(i_vFrame);
        SetDeadline(S_CLOCK::now() + m_AnswerTimeout);
    } else {
        ++m_ullLate;
    }
}

void CConversation::Deliver(std::vector<uint8_t> i_vFrame)
{
    m_Book.Deliver(m_oCurrent->ullNumber, std::move(i_vFrame));
    m_oCurrent.reset();
    m_Owed.clear();
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
        Deliver(std::move(*m_oCurrent->ovHeld));
        return;
    }
    if (m_Owed.size() >= k_ulMaxOwed) {
        m_Owed.pop_front();
    }
    m_Owed.push_back(m_oCurrent->Key);
    m_Book.Drop(m_oCurrent->ullNumber);
    m_oCurrent.reset();
    ++m_ullUnanswered;
}

void CConversation::Forget()
{
    m_oCurrent.reset();
    m_Owed.clear();
}

S_CONVERSATION_COUNTERS CConversation::Counters() const
{
    return {m_ullAnswered, m_ullUnanswered, m_ullLate, m_ullStray};
}

} // namespace links
