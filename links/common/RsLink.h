/**
 * @file RsLink.h
 * @brief What every serial link library of ours has: numbered ports, handles, checked control calls.
 */
#pragma once

#include "links/LinkCall.h"
#include "wire/Guarded.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <thread>
#include <vector>

namespace links {

/** One open port. Its operations give 0 or the error that the call shall leave. */
class CRsPort
{
public:
    CRsPort() = default;
    CRsPort(const CRsPort&) = delete;
    CRsPort& operator=(const CRsPort&) = delete;
    virtual ~CRsPort() = default;

    /**
     * Takes a command.
     *
     * @param      i_Frame    the frame proper.
     * @param      i_ulEvent  handle of the event that announces the answer.
     * @param[out] o_ulStatus word that the send gives back; 0 accepted. 0 beforehand.
     */
    virtual uint32_t Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent,
                          uint32_t& o_ulStatus) = 0;

    /**
     * Hands an answer out.
     *
     * @param[out] o_Block   answer block; what the answer does not fill is left alone.
     * @param[out] o_ulCount bytes delivered.
     */
    virtual uint32_t Fetch(uint16_t i_usCmdeID, std::span<uint8_t> o_Block,
                           uint32_t& o_ulCount) = 0;

    /** Whether the port may be closed. */
    virtual uint32_t AllowClose() { return 0; }

    /** Drops everything under way and ends the port's thread. Bounded. */
    virtual void Stop() = 0;

protected:
    /** Writes status word and answer frame; gives the bytes written. */
    static uint32_t FillBlock(uint32_t i_ulStatus, std::span<const uint8_t> i_Frame,
                              std::span<uint8_t> o_Block);

    /** Starts the thread of a port. It takes no signal: those are the host's. */
    static std::thread StartThread(std::function<void()> i_fnRun);
};

/**
 * The six operations of a serial link library. All may be called from any thread. Sends and fetches
 * on different ports do not wait for each other. They give 0 on a failure and leave the reason as
 * the last error, among them: 2 no such port, 6 no such link, 87 a bad argument, 170 the port is
 * open already.
 */
class CRsLink
{
public:
    /** How a port is opened. */
    struct S_OPEN
    {
        uint32_t ulPort; /**< from 1 on */
        uint32_t ulConstant;
        uint32_t ulBaudRate;
        uint32_t ulDataBits;
    };

    explicit CRsLink(size_t i_ulPorts) : m_vPorts(i_ulPorts) {}
    CRsLink(const CRsLink&) = delete;
    CRsLink& operator=(const CRsLink&) = delete;
    virtual ~CRsLink();

    /** Opens a port as the link with the handle 0. */
    uint32_t Open(const S_OPEN& i_Open);

    /** Opens a port as a link with a handle of its own, which is never 0 and never used again. */
    uint32_t OpenEx(const S_OPEN& i_Open, uint32_t* o_pulHandle);

    /**
     * A send or a fetch on a link. A fetch writes as many bytes of the answer block as there are,
     * and leaves the rest of it alone.
     */
    uint32_t Control(const S_CONTROL& i_Control, uint32_t i_ulHandle);

    /** Closes a link; its commands under way are dropped. */
    uint32_t Close(uint32_t i_ulHandle);

protected:
    /** Looks at an open of a port before anything else does. 0, or an error. */
    virtual uint32_t Prepare(const S_OPEN&) { return 0; }

    /** Makes an open port. 0, or an error. */
    virtual uint32_t MakePort(const S_OPEN& i_Open, std::shared_ptr<CRsPort>& o_pPort) = 0;

    /** Closes all links. A class whose ports use its own members calls it in its destructor. */
    void CloseAll() WIRE_THREAD_SAFETY(no_thread_safety_analysis); // nobody else is inside any more

private:
    struct S_PORT
    {
        uint32_t ulHandle = 0;
        std::shared_ptr<CRsPort> pOpen; // null: closed
    };

    uint32_t OpenAs(const S_OPEN& i_Open, uint32_t i_ulHandle) WIRE_REQUIRES(m_Mutex);
    S_PORT* FindOpen(uint32_t i_ulHandle) WIRE_REQUIRES(m_Mutex);

    wire::CMutex m_Mutex;
    std::vector<S_PORT> m_vPorts WIRE_GUARDED_BY(m_Mutex);
    uint32_t m_ulNextHandle WIRE_GUARDED_BY(m_Mutex) = 1;
};

/** The link behind the entry points of a library. It goes, and its threads with it, when the
 *  library is unloaded. Each library brings its own. */
CRsLink& TheLink();

} // namespace links
