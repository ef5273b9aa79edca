#include "links/replay/Session.h"

#include "TornvalLinks.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace links {

using wire::E_CAPTURE_FUNCTION;
using wire::E_CAPTURE_KIND;
using wire::E_CAPTURE_LIBRARY;
using wire::S_CAPTURE_RECORD;

namespace {

/** Sends without a fetch that are remembered: as many as a link of ours keeps answers. */
constexpr size_t k_uMaxOpen = 64;

bool HasCode(const S_CAPTURE_RECORD& i_Call, uint32_t i_ulSerial, uint32_t i_ulBluetooth,
             uint32_t i_ulUsb)
{
    if (i_Call.eFunction != E_CAPTURE_FUNCTION::Control &&
        i_Call.eFunction != E_CAPTURE_FUNCTION::ControlEx) {
        return false;
    }
    return i_Call.Word(wire::CaptureControlCode) ==
           (i_Call.eLibrary == E_CAPTURE_LIBRARY::Serial      ? i_ulSerial
            : i_Call.eLibrary == E_CAPTURE_LIBRARY::Bluetooth ? i_ulBluetooth
                                                              : i_ulUsb);
}

std::string LinkOf(const S_CAPTURE_RECORD& i_Call)
{
    return std::to_string(static_cast<int>(i_Call.eLibrary)) + "/" +
           std::to_string(i_Call.Word(wire::CaptureControlHandle)) + "/" +
           std::to_string(CommandOf(i_Call));
}

} // namespace

bool IsSend(const S_CAPTURE_RECORD& i_Call)
{
    return HasCode(i_Call, IOCTL_RS_SEND_COMMAND, IOCTL_PBT_SEND_COMMAND, IOCTL_PUSB_SEND_COMMAND);
}

bool IsFetch(const S_CAPTURE_RECORD& i_Call)
{
    return HasCode(i_Call, IOCTL_RS_GET_RESULT, IOCTL_PBT_GET_RESULT, IOCTL_PUSB_GET_RESULT);
}

uint16_t CommandOf(const S_CAPTURE_RECORD& i_Call)
{
    if (i_Call.eLibrary != E_CAPTURE_LIBRARY::Serial) {
        return 0;
    }
    if (IsSend(i_Call)) {
        return i_Call.vData.size() > RS_FRAME_CMDE_OFFSET ? i_Call.vData[RS_FRAME_CMDE_OFFSET] : 0;
    }
    return i_Call.vData.size() >= 2 ? wire::ReadLe16(i_Call.vData.data()) : 0;
}

std::string CSession::KeyOf(const S_CAPTURE_RECORD& i_Call)
{
    std::string l_strKey{static_cast<char>(i_Call.eLibrary), static_cast<char>(i_Call.eFunction)};
    std::vector<uint32_t> l_vWords = i_Call.vWords;
    size_t l_uData = i_Call.vData.size();
    // Each process has its own handles of events, and a probe's last byte of a send carries nothing.
    l_vWords.resize(std::min<size_t>(l_vWords.size(), wire::CaptureControlEvent));
    if (i_Call.eLibrary != E_CAPTURE_LIBRARY::Serial && IsSend(i_Call) && l_uData > 0) {
        --l_uData;
    }
    for (const uint32_t l_ulWord : l_vWords) {
        l_strKey += std::to_string(l_ulWord) + ",";
    }
    return l_strKey.append(i_Call.vData.begin(),
                           i_Call.vData.begin() + static_cast<std::ptrdiff_t>(l_uData));
}

std::string CSession::Load(const std::string& i_strPath)
{
    wire::CCaptureReader l_Reader;
    if (!l_Reader.Open(i_strPath)) {
        return i_strPath + ": " + std::strerror(errno);
    }
    std::map<uint32_t, size_t> l_mapCalls; // of this section, by their number
    S_OPEN_SENDS l_Open;
    using E_FOUND = wire::CCaptureReader::E_FOUND;
    E_FOUND l_eFound = E_FOUND::End;
    while ((l_eFound = l_Reader.Next()) == E_FOUND::Record || l_eFound == E_FOUND::Section) {
        if (l_eFound == E_FOUND::Section) {
            l_mapCalls.clear();
            l_Open.clear();
            continue;
        }
        const S_CAPTURE_RECORD& l_Record = l_Reader.Record();
        if (l_Record.eKind == E_CAPTURE_KIND::Call) {
            l_mapCalls[l_Record.ulCall] = m_vCalls.size();
            m_vCalls.emplace_back().Call = l_Record;
            if (IsSend(l_Record)) {
                std::deque<size_t>& l_Sends = l_Open[LinkOf(l_Record)];
                l_Sends.push_back(m_vCalls.size() - 1);
                if (l_Sends.size() > k_uMaxOpen) {
                    l_Sends.pop_front();
                }
            }
            continue;
        }
        const auto l_itCall = l_mapCalls.find(l_Record.ulCall);
        if (l_itCall == l_mapCalls.end()) {
            continue;
        }
        S_REPLAY_CALL& l_Call = m_vCalls[l_itCall->second];
        const uint64_t l_ullSince =
            l_Record.ullTime - std::min(l_Record.ullTime, l_Call.Call.ullTime);
        if (l_Record.eKind == E_CAPTURE_KIND::Event) {
            l_Call.vEventDelays.push_back(l_ullSince);
        } else if (!l_Call.bReturned) {
            l_Call.Return = l_Record;
            l_Call.ullDuration = l_ullSince;
            l_Call.bReturned = true;
            if (IsFetch(l_Call.Call)) {
                Pair(l_itCall->second, l_Open);
            } else {
                m_mapWaiting[KeyOf(l_Call.Call)].push_back(l_itCall->second);
            }
        }
    }
    return m_vCalls.empty() ? i_strPath + ": " +
                                  (l_Reader.Error().empty() ? "no call is in it" : l_Reader.Error())
                            : std::string();
}

/** Finds the send whose answer a fetch took: the newest of its thread, or the oldest of any. */
void CSession::Pair(size_t i_uFetch, S_OPEN_SENDS& io_Open)
{
    const S_CAPTURE_RECORD& l_Fetch = m_vCalls[i_uFetch].Call;
    std::deque<size_t>& l_Sends = io_Open[LinkOf(l_Fetch)];
    const auto l_itOwn = std::find_if(l_Sends.rbegin(), l_Sends.rend(), [&](size_t i_uSend) {
        return m_vCalls[i_uSend].Call.ulThread == l_Fetch.ulThread;
    });
    if (l_Sends.empty()) {
        m_mapWaiting[KeyOf(l_Fetch)].push_back(i_uFetch);
        return;
    }
    const bool l_bOwn = l_itOwn != l_Sends.rend();
    m_vCalls[l_bOwn ? *l_itOwn : l_Sends.front()].vFetches.push_back(i_uFetch);
    // The answer of a probe can be fetched again.
    if (l_Fetch.eLibrary == E_CAPTURE_LIBRARY::Serial) {
        l_Sends.erase(l_bOwn ? std::next(l_itOwn).base() : l_Sends.begin());
    }
}

std::optional<size_t> CSession::Take(const S_CAPTURE_RECORD& i_Call)
{
    const auto l_itCalls = m_mapWaiting.find(KeyOf(i_Call));
    if (l_itCalls == m_mapWaiting.end() || l_itCalls->second.empty()) {
        return std::nullopt;
    }
    const size_t l_uCall = l_itCalls->second.front();
    l_itCalls->second.pop_front();
    return l_uCall;
}

} // namespace links
