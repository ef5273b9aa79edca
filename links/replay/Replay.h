/**
 * @file Replay.h
 * @brief A link library that answers from a captured session.
 */
#pragma once

#include "links/LinkCall.h"
#include "links/replay/Session.h"
#include "wire/Guarded.h"

#include <chrono>
#include <list>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace links {

/**
 * Gives each call what the like call of the session got: result, last-error value, bytes, count,
 * announcements, and the time that it took. Like calls answer in the order of the file, whatever
 * threads and other calls came between. What the session does not hold, or holds no more, fails with
 * 21, as a link does whose other end is gone; closing always works.
 *
 * Configured by the section REPLAY: FILE, and PACE, 0 for as fast as possible. All operations may be
 * called from any thread.
 */
class CReplay
{
public:
    CReplay();
    CReplay(const CReplay&) = delete;
    CReplay& operator=(const CReplay&) = delete;
    ~CReplay();

    /** An open or a close. @param o_pulHandle handle of the link; may be null. */
    uint32_t Call(wire::E_CAPTURE_LIBRARY i_eLibrary, wire::E_CAPTURE_FUNCTION i_eFunction,
                  std::vector<uint32_t> i_vWords, std::vector<uint8_t> i_vData = {},
                  uint32_t* o_pulHandle = nullptr);

    /** A control call; the arguments as the capture has them. */
    uint32_t Control(wire::E_CAPTURE_LIBRARY i_eLibrary, wire::E_CAPTURE_FUNCTION i_eFunction,
                     const S_CONTROL& i_Control, uint32_t i_ulDevice, uint32_t i_ulZero,
                     uint32_t i_ulHandle);

private:
    using S_CLOCK = std::chrono::steady_clock;
    /** A command that was sent and may be fetched. */
    struct S_SENT
    {
        size_t uCall;
        std::thread::id Sender;
        size_t uFetched = 0;
    };

    std::optional<size_t> FindFetch(const wire::S_CAPTURE_RECORD& i_Fetch) WIRE_REQUIRES(m_Mutex);
    uint32_t Finish(size_t i_uCall, S_CLOCK::time_point i_Begin);
    uint32_t Refuse(const char* i_pszWhat);
    void Announce(const S_REPLAY_CALL& i_Send, uint32_t i_ulEvent, S_CLOCK::time_point i_Begin);
    void Run();

    std::string m_strError;
    bool m_bPace = true;

    wire::CMutex m_Mutex;
    CSession m_Session; // what was taken of it stays as it is, and is read without the mutex
    std::list<S_SENT> m_Sent WIRE_GUARDED_BY(m_Mutex);
    // Events to announce.
    std::multimap<S_CLOCK::time_point, uint32_t> m_mapDue WIRE_GUARDED_BY(m_Mutex);
    wire::CCondition m_Changed;
    bool m_bEnding WIRE_GUARDED_BY(m_Mutex) = false;
    std::thread m_Thread;
};

} // namespace links
