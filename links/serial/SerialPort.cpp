#include "links/serial/SerialPort.h"

#include "TornvalLinks.h"

#include <algorithm>
#include <new>
#include <utility>

namespace links {

namespace {

/** How long a send waits until the thread has seen what the send sees: that the line hung up. */
constexpr std::chrono::seconds k_MostNotice{1};

} // namespace

CSerialPort::CSerialPort(S_SETUP i_Setup, std::unique_ptr<CTty> i_pTty)
    : m_Setup(std::move(i_Setup)),
      m_Conversation(m_Book, m_Setup.AnswerTimeout, m_Setup.Silence, m_Setup.Settings.ulBaudRate),
      m_LongestNoise(m_Setup.AnswerTimeout +
                     LineTime(wire::k_ulMaxFrame, m_Setup.Settings.ulBaudRate)),
      m_pTty(std::move(i_pTty))
{
    m_Thread = StartThread([this] { Run(); });
}

CSerialPort::~CSerialPort()
{
    Stop();
}

uint32_t CSerialPort::Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent,
                           uint32_t& /*o_ulStatus*/)
{
    if (i_Frame.size() < RS_FRAME_DATA_OFFSET) {
        return CECORE_ERROR_INVALID_PARAMETER;
    }
    std::string l_strTrouble;
    uint32_t l_ulError = 0;
    {
        // The lock keeps a hang-up of the line before from dropping this command.
        const wire::CLock l_Lock(m_TtyMutex);
        l_ulError = RaiseLine(l_strTrouble);
        if (l_ulError == 0 && !m_Book.Add(i_Frame, i_ucCmdeID, i_ulEvent)) {
            l_ulError = CECORE_ERROR_INVALID_HANDLE;
        }
    }
    if (!l_strTrouble.empty()) {
        Complain(k_pszLibrary, l_strTrouble);
    }
    m_Bell.Ring();
    return l_ulError;
}

/** Sees to it that the port is open: once more by its name, if it hung up. 0, or an error, with its
 *  reason once for each time that the line goes down. */
uint32_t CSerialPort::RaiseLine(std::string& o_strTrouble)
{
    if (m_pTty && m_pTty->HasHungUp()) {
        // The thread will know in a moment. A command that was taken before that would be lost.
        const S_CLOCK::time_point l_Until = S_CLOCK::now() + k_MostNotice;
        while (m_pTty && m_Down.WaitUntil(m_TtyMutex, l_Until)) {
        }
    }
    if (m_Book.IsClosed()) {
        return CECORE_ERROR_INVALID_HANDLE;
    }
    if (!m_pTty) {
        S_TTY_ERROR l_Error;
        m_pTty = CTty::Open(m_Setup.strPath, m_Setup.Settings, l_Error);
        if (!m_pTty && !m_bComplained) {
            o_strTrouble = l_Error.strText;
        }
        m_bComplained = !m_pTty;
    }
    return m_pTty ? 0 : CECORE_ERROR_NOT_READY;
}

uint32_t CSerialPort::Fetch(uint16_t i_usCmdeID, std::span<uint8_t> o_Block, uint32_t& o_ulCount)
{
    const auto l_ovAnswer = m_Book.Fetch(i_usCmdeID);
    if (!l_ovAnswer) {
        return CECORE_ERROR_NOT_READY;
    }
    o_ulCount = FillBlock(0, *l_ovAnswer, o_Block);
    return 0;
}

void CSerialPort::Run()
{
    while (!m_Book.IsClosed()) {
        int l_lFd = -1;
        {
            const wire::CLock l_Lock(m_TtyMutex);
            l_lFd = m_pTty ? m_pTty->Fd() : -1;
        }
        if (l_lFd < 0) {
            m_Bell.Wait();
        } else if (!Talk(l_lFd)) {
            const wire::CLock l_Lock(m_TtyMutex);
            m_pTty.reset();
            ++m_ullHangUps;
            m_Reader.Silence();
            m_Conversation.Forget();
            m_Book.DropUnanswered();
            m_Down.NotifyAll();
        }
    }
}

/** Talks until the port is stopped; false: until the line hung up. A line that there is no memory
 *  for counts as hung up: nothing may be thrown out of a thread. */
bool CSerialPort::Talk(int i_lFd)
try {
    CLineStream l_Stream(i_lFd, m_Bell, m_Reader, m_Setup.Silence);
    m_oNoisySince.reset();
    m_oNotBefore.reset();
    m_oTwinAt.reset();
    while (!m_Book.IsClosed()) {
        TakeNext(l_Stream);
        auto l_oUntil = m_Conversation.Deadline();
        for (const auto& l_oTime : {m_oNotBefore, m_oTwinAt}) {
            l_oUntil = l_oUntil && l_oTime ? std::min(*l_oUntil, *l_oTime)
                                           : (l_oTime ? l_oTime : l_oUntil);
        }
        if (!l_Stream.Step(l_oUntil, [this](std::vector<uint8_t> i_vFrame) {
                m_Conversation.Answer(std::move(i_vFrame));
            })) {
            return false;
        }
        m_Conversation.Expire(m_Reader.InFrame());
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

/** Puts the next command on the line, if the line is free and quiet. */
void CSerialPort::TakeNext(CLineStream& io_Stream)
{
    m_oTwinAt.reset();
    if (m_Conversation.IsBusy()) {
        return;
    }
    const S_CLOCK::time_point l_Now = S_CLOCK::now();
    if (io_Stream.IsWriting()) {
        // The command before is done with, and the line has not even taken all of it. The far end
        // needs a silence to see that the rest does not come.
        io_Stream.Abandon();
        m_oNotBefore = l_Now + m_Setup.Silence;
    }
    if (m_oNotBefore && l_Now < *m_oNotBefore) {
        return;
    }
    m_oNotBefore.reset();
    if (!m_Reader.AtStart()) {
        // Something that is no answer to the next command comes in: it shall not stand before it.
        m_oNoisySince = m_oNoisySince.value_or(l_Now);
        if (l_Now - *m_oNoisySince < m_LongestNoise) {
            return;
        }
        m_Reader.Silence();
    }
    m_oNoisySince.reset();
    const auto l_fnMayGo = [&](std::span<const uint8_t> i_Command) {
        const S_CLOCK::time_point l_Earliest = m_Conversation.EarliestFor(i_Command);
        m_oTwinAt = l_Earliest > l_Now ? std::optional(l_Earliest) : std::nullopt;
        return !m_oTwinAt;
    };
    if (const auto l_oCommand = m_Book.Take(l_fnMayGo)) {
        io_Stream.Write(l_oCommand->vFrame);
        m_Conversation.Begin(*l_oCommand);
    }
}

void CSerialPort::Stop()
{
    m_Book.Close();
    m_Bell.Ring();
    const wire::CLock l_JoinLock(m_JoinMutex);
    if (!m_Thread.joinable()) {
        return;
    }
    m_Thread.join();
    {
        const wire::CLock l_Lock(m_TtyMutex);
        m_pTty.reset();
    }
    Report();
}

S_PORT_COUNTERS CSerialPort::Counters() const
{
    const wire::CLock l_Lock(m_TtyMutex);
    return {m_Conversation.Counters(), m_Reader.Counters(), m_ullHangUps};
}

void CSerialPort::Report() const
{
    const S_PORT_COUNTERS l_Counters = Counters();
    const std::pair<uint64_t, const char*> l_aTold[] = {
        {l_Counters.Conversation.ullUnanswered, "commands without an answer"},
        {l_Counters.Conversation.ullLate, "late answers"},
        {l_Counters.Conversation.ullStray, "frames that answer nothing"},
        {l_Counters.Reader.ullBadCrc, "frames with a bad CRC"},
        {l_Counters.Reader.ullBroken, "broken frames"},
        {l_Counters.Reader.ullDropped, "bytes dropped"},
        {l_Counters.ullHangUps, "hang-ups"}};
    std::string l_strText;
    for (const auto& [l_ullNumber, l_pszWhat] : l_aTold) {
        if (l_ullNumber != 0) {
            l_strText +=
                (l_strText.empty() ? "" : ", ") + std::to_string(l_ullNumber) + " " + l_pszWhat;
        }
    }
    if (!l_strText.empty()) {
        Complain(k_pszLibrary, m_Setup.strPath + ": " +
                                   std::to_string(l_Counters.Conversation.ullAnswered) +
                                   " answers, " + l_strText);
    }
}

} // namespace links
