/**
 * @file SerialPort.h
 * @brief One open port of the serial link: a terminal, and the thread that talks over it.
 */
#pragma once

#include "links/common/ExchangeBook.h"
#include "links/common/RsLink.h"
#include "links/line/FrameReader.h"
#include "links/line/LineStream.h"
#include "links/line/Tty.h"
#include "links/serial/Conversation.h"
#include "wire/Guarded.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace links {

/** Stands in front of what the link says on standard error. */
inline constexpr const char* k_pszLibrary = "serial_link";

/** What has passed a port since it was opened. */
struct S_PORT_COUNTERS
{
    S_CONVERSATION_COUNTERS Conversation;
    S_READER_COUNTERS Reader;
    uint64_t ullHangUps = 0;
};

/**
 * Puts one command on the line at a time, in the order of the sends; the next one follows when its
 * answer is in or its time is over.
 *
 * A line that hangs up ends the commands under way without an answer. The next send opens the port
 * anew, by its name, and fails with 21 if that cannot be done.
 */
class CSerialPort final : public CRsPort
{
public:
    struct S_SETUP
    {
        std::string strPath;
        S_PORT_SETTINGS Settings;
        std::chrono::milliseconds AnswerTimeout;
        std::chrono::milliseconds Silence;
    };

    /** Starts the thread. @param i_pTty the port, open. */
    CSerialPort(S_SETUP i_Setup, std::unique_ptr<CTty> i_pTty);
    /** As Stop(). */
    ~CSerialPort() override;

    /** Fails with 87 for a frame without a whole head, with 21 while the line is down. */
    uint32_t Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent,
                  uint32_t& o_ulStatus) override;
    uint32_t Fetch(uint16_t i_usCmdeID, std::span<uint8_t> o_Block, uint32_t& o_ulCount) override;
    /** Ends the thread, in the middle of a frame if need be, and gives the port back. Tells on the
     *  standard error output what went wrong on the line, if anything did. */
    void Stop() override;

    [[nodiscard]] S_PORT_COUNTERS Counters() const;

private:
    uint32_t RaiseLine(std::string& o_strTrouble) WIRE_REQUIRES(m_TtyMutex);
    void Run();
    bool Talk(int i_lFd);
    void TakeNext(CLineStream& io_Stream);
    void Report() const;

    const S_SETUP m_Setup;
    CExchangeBook m_Book;
    CBell m_Bell;
    CFrameReader m_Reader;        // of the thread, but for its counters
    CConversation m_Conversation; // likewise
    const S_CLOCK::duration m_LongestNoise;
    std::optional<S_CLOCK::time_point> m_oNoisySince; // of the thread
    std::optional<S_CLOCK::time_point>
        m_oNotBefore;                             // of the thread: no command goes out until then
    std::optional<S_CLOCK::time_point> m_oTwinAt; // of the thread: the next one waits for this

    mutable wire::CMutex m_TtyMutex;
    // Null: the line is down. Used by the thread alone while it is up.
    std::unique_ptr<CTty> m_pTty WIRE_GUARDED_BY(m_TtyMutex);
    bool m_bComplained WIRE_GUARDED_BY(m_TtyMutex) = false;
    uint64_t m_ullHangUps WIRE_GUARDED_BY(m_TtyMutex) = 0;
    wire::CCondition m_Down; // the thread has seen that the line hung up

    wire::CMutex m_JoinMutex;
    std::thread m_Thread WIRE_GUARDED_BY(m_JoinMutex);
};

} // namespace links
