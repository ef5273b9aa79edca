#include "instrument/LineEnd.h"

#include <algorithm>
#include <utility>

namespace emulator {

CLineEnd::CLineEnd(CFirmware& io_Firmware, int i_lFd, const S_LINE& i_Line)
    : m_Firmware(io_Firmware), m_lFd(i_lFd), m_Line(i_Line), m_Noise(i_Line.Trouble)
{
    m_Thread = std::thread([this] { Run(); });
}

CLineEnd::~CLineEnd()
{
    m_bStop = true;
    m_Bell.Ring();
    m_Thread.join();
}

void CLineEnd::Run()
{
    links::CLineStream l_Stream(m_lFd, m_Bell, m_Reader, m_Line.Silence, m_Line.ulPace);
    while (!m_bStop) {
        std::optional<links::S_CLOCK::time_point> l_oDue;
        if (!m_Answers.empty() && !l_Stream.IsWriting()) {
            l_oDue = m_Answers.front().Due;
        }
        if (!l_Stream.Step(l_oDue, [&](const std::vector<uint8_t>& i_vFrame) {
                Handle(i_vFrame);
                AnswerDue(l_Stream);
            })) {
            const wire::CLock l_Lock(m_Mutex);
            m_bHungUp = true;
            return;
        }
        AnswerDue(l_Stream);
    }
}

void CLineEnd::Handle(const std::vector<uint8_t>& i_vCommand)
{
    S_REPLY l_Reply = m_Firmware.Handle(i_vCommand);
    if (!l_Reply.bAnswered) {
        return;
    }
    // On a line with a pace the command has not come in all at once either.
    const auto l_Delay = std::chrono::milliseconds(l_Reply.ulDelayMs) +
                         (m_Line.ulPace == 0 ? std::chrono::nanoseconds(0)
                                             : links::LineTime(i_vCommand.size(), m_Line.ulPace));
    // The instrument answers in the order of the commands; what the line does comes on top.
    m_LastAnswer = std::max(m_LastAnswer, links::S_CLOCK::now() + l_Delay);
    const wire::CLock l_Lock(m_Mutex);
    bool l_bCounts = true;
    for (CLineNoise::S_PIECE& l_Piece : m_Noise.Carry(std::move(l_Reply.vFrame))) {
        const auto l_Due = m_LastAnswer + l_Piece.Delay;
        const auto l_itBehind = std::upper_bound(
            m_Answers.begin(), m_Answers.end(), l_Due,
            [](auto i_Due, const S_ANSWER& i_Other) { return i_Due < i_Other.Due; });
        m_Answers.insert(l_itBehind,
                         {l_Due, std::move(l_Piece.vBytes), std::exchange(l_bCounts, false)});
    }
}

/** Lets the next answer out when it is due and the line is free. */
void CLineEnd::AnswerDue(links::CLineStream& io_Stream)
{
    while (!m_Answers.empty() && !io_Stream.IsWriting() &&
           m_Answers.front().Due <= links::S_CLOCK::now()) {
        const S_ANSWER l_Answer = std::move(m_Answers.front());
        m_Answers.pop_front();
        {
            // Before the bytes go: who has the answer finds it counted.
            const wire::CLock l_Lock(m_Mutex);
            m_ullOut += l_Answer.bCounts ? 1 : 0;
        }
        io_Stream.Write(l_Answer.vFrame);
    }
}

S_LINE_COUNTERS CLineEnd::Counters() const
{
    const wire::CLock l_Lock(m_Mutex);
    return {m_Reader.Counters(), m_ullOut, m_Noise.Counters(), m_bHungUp};
}

} // namespace emulator
