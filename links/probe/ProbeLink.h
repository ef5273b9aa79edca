/**
 * @file ProbeLink.h
 * @brief A probe link with an emulated probe behind it: what the Bluetooth and the USB library are
 *        but for their names and codes.
 */
#pragma once

#include "emulator/Environment.h"
#include "emulator/ProbeFirmware.h"
#include "links/LinkCall.h"
#include "wire/Guarded.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace links {

/**
 * All operations may be called from any thread. They give 0 on a failure and leave the reason as
 * the last error: 13 settings that are not understood (told on the standard error output), 21 the
 * link is not open or there is no reply to fetch, 87 a bad argument, 1460 the probe is silent.
 */
class CProbeLink
{
public:
    /** What tells one library from the other. */
    struct S_TRAITS
    {
        const char* pszLibrary; /**< name in what it tells */
        const char* pszName;    /**< name of the probe in the environment */
        uint32_t ulSendCode;
        uint32_t ulFetchCode;
    };

    explicit CProbeLink(const S_TRAITS& i_Traits);

    emulator::CProbeFirmware& Probe() { return m_Probe; }

    /** Opens the link, also when it is open. The probe starts anew. */
    uint32_t Open();

    /**
     * A send or a fetch. A send makes the reply, which stays to be fetched, as often as the caller
     * wants, until the next send. A fetch delivers as many bytes as are asked for and there.
     */
    uint32_t Control(const S_CONTROL& i_Control);

    uint32_t Close();

private:
    using S_CLOCK = std::chrono::steady_clock;

    struct S_WAITING
    {
        uint8_t ucCmdeID;
        std::vector<uint8_t> vReply;
        S_CLOCK::time_point Due;
    };

    uint32_t Send(const S_CONTROL& i_Control);
    uint32_t Fetch(const S_CONTROL& i_Control);
    void ReadControl();

    const S_TRAITS m_Traits;
    emulator::CProbeFirmware m_Probe;
    emulator::CEnvironment m_Environment;
    wire::CMutex m_Mutex;
    bool m_bOpen WIRE_GUARDED_BY(m_Mutex) = false;
    std::optional<S_WAITING> m_oWaiting WIRE_GUARDED_BY(m_Mutex);
};

} // namespace links
