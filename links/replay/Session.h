/**
 * @file Session.h
 * @brief A captured session, laid out for being run again.
 */
#pragma once

#include "wire/Capture.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace links {

/** One call of the session. A call that never returned is not among them. */
struct S_REPLAY_CALL
{
    wire::S_CAPTURE_RECORD Call;
    wire::S_CAPTURE_RECORD Return;
    uint64_t ullDuration = 0;           /**< nanoseconds */
    std::vector<uint64_t> vEventDelays; /**< from the begin of a send to each announcement */
    std::vector<size_t> vFetches;       /**< of a send: the fetches of its answer */
    bool bReturned = false;
};

/** Whether a call sends a command, and whether it fetches an answer. */
bool IsSend(const wire::S_CAPTURE_RECORD& i_Call);
bool IsFetch(const wire::S_CAPTURE_RECORD& i_Call);

/** CmdeID of a send or of a fetch on the serial link; 0 of a probe, whose fetch names none. */
uint16_t CommandOf(const wire::S_CAPTURE_RECORD& i_Call);

/** All calls of a file. What hangs together is found here once: which fetch belongs to which send, and
 *  which calls are alike, so that they answer for each other in the order of the file. */
class CSession
{
public:
    /** @return empty, or why the file cannot be used; a file that ends in damage is used up to it. */
    std::string Load(const std::string& i_strPath);

    [[nodiscard]] const S_REPLAY_CALL& At(size_t i_uCall) const { return m_vCalls[i_uCall]; }

    /** Takes the first call like this one that was not taken yet. Fetches that belong to a send are
     *  not among them. */
    std::optional<size_t> Take(const wire::S_CAPTURE_RECORD& i_Call);

private:
    /** The last sends on a link whose answers were not fetched. */
    using S_OPEN_SENDS = std::map<std::string, std::deque<size_t>>;

    static std::string KeyOf(const wire::S_CAPTURE_RECORD& i_Call);
    void Pair(size_t i_uFetch, S_OPEN_SENDS& io_Open);

    std::vector<S_REPLAY_CALL> m_vCalls;
    std::map<std::string, std::deque<size_t>> m_mapWaiting;
};

} // namespace links
