#include "links/replay/Replay.h"

#include "TornvalLinks.h"
#include "links/common/Configuration.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <csignal>
#include <cstring>

namespace links {

using wire::E_CAPTURE_FUNCTION;
using wire::E_CAPTURE_LIBRARY;
using wire::S_CAPTURE_RECORD;

namespace {

constexpr size_t k_uMaxSent = 4096;
/** Longest time that one call or announcement is kept: a file may say anything. */
constexpr std::chrono::nanoseconds k_LongestWait = std::chrono::minutes(10);

std::chrono::nanoseconds Pause(uint64_t i_ullTime)
{
    return std::min(k_LongestWait, std::chrono::nanoseconds(static_cast<int64_t>(std::min<uint64_t>(
                                       i_ullTime, static_cast<uint64_t>(INT64_MAX)))));
}

} // namespace

CReplay::CReplay()
{
    const wire::CConfigText l_Config = ReadConfiguration();
    const std::string l_strFile(l_Config.FindText("REPLAY", "FILE").value_or(""));
    m_bPace = l_Config.GetInt("REPLAY", "PACE", 1) != 0;
    m_strError =
        l_strFile.empty() ? "[REPLAY] FILE names no captured session" : m_Session.Load(l_strFile);
    sigset_t l_All{}, l_Before{};
    sigfillset(&l_All); // signals are the host's
    pthread_sigmask(SIG_SETMASK, &l_All, &l_Before);
    try {
        m_Thread = std::thread([this] { Run(); });
    } catch (...) {
        m_strError = "no thread for the announcements could be started";
    }
    pthread_sigmask(SIG_SETMASK, &l_Before, nullptr);
}

CReplay::~CReplay()
{
    {
        const wire::CLock l_Lock(m_Mutex);
        m_bEnding = true;
    }
    m_Changed.NotifyAll();
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
}

uint32_t CReplay::Refuse(const char* i_pszWhat)
{
    const std::string l_strText =
        m_strError.empty()
            ? std::string("replay: the captured session has no such ") + i_pszWhat + ", or no more"
            : "replay: " + m_strError;
    ::CeNoteReason(CECORE_ERROR_NOT_READY, l_strText.c_str());
    return Fail(CECORE_ERROR_NOT_READY);
}

/** Waits as long as the call took, and leaves what it left. */
uint32_t CReplay::Finish(size_t i_uCall, S_CLOCK::time_point i_Begin)
{
    const S_REPLAY_CALL& l_Call = m_Session.At(i_uCall); // calls stay where they are
    if (m_bPace) {
        std::this_thread::sleep_until(i_Begin + Pause(l_Call.ullDuration));
    }
    ::SetLastError(l_Call.Return.Word(wire::CaptureReturnError));
    return l_Call.Return.Word(wire::CaptureReturnResult);
}

uint32_t CReplay::Call(E_CAPTURE_LIBRARY i_eLibrary, E_CAPTURE_FUNCTION i_eFunction,
                       std::vector<uint32_t> i_vWords, std::vector<uint8_t> i_vData,
                       uint32_t* o_pulHandle)
{
    const auto l_Begin = S_CLOCK::now();
    const bool l_bClose =
        i_eFunction == E_CAPTURE_FUNCTION::Close || i_eFunction == E_CAPTURE_FUNCTION::CloseEx;
    S_CAPTURE_RECORD l_Call{wire::E_CAPTURE_KIND::Call, i_eLibrary,        i_eFunction, 0, 0, 0,
                            std::move(i_vWords),        std::move(i_vData)};
    std::optional<size_t> l_ouCall;
    {
        const wire::CLock l_Lock(m_Mutex);
        l_ouCall = m_Session.Take(l_Call);
    }
    if (!l_ouCall) {
        return l_bClose ? 1 : Refuse("open of a link");
    }
    if (o_pulHandle != nullptr && !l_bClose) {
        *o_pulHandle = m_Session.At(*l_ouCall).Return.Word(wire::CaptureReturnCount);
    }
    return Finish(*l_ouCall, l_Begin);
}

uint32_t CReplay::Control(E_CAPTURE_LIBRARY i_eLibrary, E_CAPTURE_FUNCTION i_eFunction,
                          const S_CONTROL& i_Control, uint32_t i_ulDevice, uint32_t i_ulZero,
                          uint32_t i_ulHandle)
{
    const auto l_Begin = S_CLOCK::now();
    const auto* l_pucIn = static_cast<const uint8_t*>(i_Control.pIn);
    if (l_pucIn == nullptr || i_Control.pOut == nullptr || i_Control.pulCount == nullptr) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    S_CAPTURE_RECORD l_Call{wire::E_CAPTURE_KIND::Call,
                            i_eLibrary,
                            i_eFunction,
                            0,
                            0,
                            0,
                            {i_ulDevice, i_Control.ulConstant, i_Control.ulCode, i_Control.ulInSize,
                             i_Control.ulOutSize, i_ulZero, 7, i_ulHandle},
                            {}};
    size_t l_uLength = i_Control.ulInSize;
    uint32_t l_ulEvent = 0;
    if (i_Control.ulCode == IOCTL_RS_SEND_COMMAND && l_uLength == RS_BLOCK_SIZE) {
        l_uLength = size_t{RS_FRAME_OUTER_HEAD} + wire::ReadLe16(l_pucIn + RS_FRAME_SIZE_OFFSET);
        l_ulEvent = wire::ReadLe32(l_pucIn + RS_BLOCK_EVENT_OFFSET);
    }
    l_Call.vData.assign(l_pucIn, l_pucIn + l_uLength);

    std::optional<size_t> l_ouCall;
    {
        const wire::CLock l_Lock(m_Mutex);
        l_ouCall = IsFetch(l_Call) ? FindFetch(l_Call) : m_Session.Take(l_Call);
        if (l_ouCall && IsSend(l_Call)) {
            m_Sent.push_back({*l_ouCall, std::this_thread::get_id()});
            if (m_Sent.size() > k_uMaxSent) {
                m_Sent.pop_front();
            }
        }
    }
    if (!l_ouCall) {
        return Refuse(IsFetch(l_Call) ? "answer" : "command");
    }
    const S_REPLAY_CALL& l_Recorded = m_Session.At(*l_ouCall);
    Announce(l_Recorded, l_ulEvent, l_Begin);
    const uint32_t l_ulResult = Finish(*l_ouCall, l_Begin);
    std::copy_n(l_Recorded.Return.vData.begin(),
                std::min<size_t>(i_Control.ulOutSize, l_Recorded.Return.vData.size()),
                static_cast<uint8_t*>(i_Control.pOut));
    *i_Control.pulCount = l_Recorded.Return.Word(wire::CaptureReturnCount);
    return l_ulResult;
}

/** The fetch that took the answer to the newest send of this thread, or to the oldest of any. */
std::optional<size_t> CReplay::FindFetch(const S_CAPTURE_RECORD& i_Fetch)
{
    const bool l_bSerial = i_Fetch.eLibrary == E_CAPTURE_LIBRARY::Serial;
    auto l_itFound = m_Sent.end();
    for (auto l_it = m_Sent.begin(); l_it != m_Sent.end(); ++l_it) {
        const S_CAPTURE_RECORD& l_Send = m_Session.At(l_it->uCall).Call;
        if (l_Send.eLibrary == i_Fetch.eLibrary && CommandOf(l_Send) == CommandOf(i_Fetch) &&
            l_Send.Word(wire::CaptureControlHandle) == i_Fetch.Word(wire::CaptureControlHandle) &&
            (l_itFound == m_Sent.end() || l_it->Sender == std::this_thread::get_id() ||
             !l_bSerial)) {
            l_itFound = l_it;
        }
    }
    if (l_itFound == m_Sent.end()) {
        return m_Session.Take(i_Fetch);
    }
    const std::vector<size_t>& l_vFetches = m_Session.At(l_itFound->uCall).vFetches;
    std::optional<size_t> l_ouFetch;
    if (l_itFound->uFetched < l_vFetches.size()) {
        l_ouFetch = l_vFetches[l_itFound->uFetched++];
    }
    if (l_bSerial) {
        m_Sent.erase(l_itFound);
    }
    return l_ouFetch;
}

void CReplay::Announce(const S_REPLAY_CALL& i_Send, uint32_t i_ulEvent, S_CLOCK::time_point i_Begin)
{
    for (const uint64_t l_ullDelay : i_Send.vEventDelays) {
        if (!m_bPace) {
            (void)SetEvent(i_ulEvent);
            continue;
        }
        const wire::CLock l_Lock(m_Mutex);
        m_mapDue.emplace(i_Begin + Pause(l_ullDelay), i_ulEvent);
        m_Changed.NotifyAll();
    }
}

void CReplay::Run()
{
    const wire::CLock l_Lock(m_Mutex);
    while (!m_bEnding) {
        if (m_mapDue.empty()) {
            m_Changed.Wait(m_Mutex);
        } else if (m_mapDue.begin()->first > S_CLOCK::now()) {
            m_Changed.WaitUntil(m_Mutex, m_mapDue.begin()->first);
        } else {
            (void)SetEvent(m_mapDue.begin()->second);
            m_mapDue.erase(m_mapDue.begin());
        }
    }
}

} // namespace links
