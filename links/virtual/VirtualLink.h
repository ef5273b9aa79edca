/**
 * @file VirtualLink.h
 * @brief The virtual serial link: the six operations of a serial link library, with the emulated
 *        board on port 1 and the emulated milliohm module on port 2.
 *
 * The library virtual_link.so is this class behind its entry points. A test that wants the
 * instruments in its hands links the class itself.
 */
#ifndef LINKS_VIRTUAL_LINK_H
#define LINKS_VIRTUAL_LINK_H

#include "emulator/BoardFirmware.h"
#include "emulator/Environment.h"
#include "emulator/MilliOhmFirmware.h"
#include "links/LinkCall.h"
#include "links/virtual/LinkPort.h"

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>

namespace links {

/**
 * All operations may be called from any thread; those on different ports do not wait for each
 * other. They give 0 on a failure and leave the reason as the last error: 2 no such port, 6 no such
 * link, 13 settings that are not understood (told on the standard error output), 21 no answer to
 * fetch, 87 a bad argument, 170 the port is open already.
 */
class CVirtualLink
{
public:
    CVirtualLink();
    /** Closes all links. */
    ~CVirtualLink();
    CVirtualLink(const CVirtualLink&) = delete;
    CVirtualLink& operator=(const CVirtualLink&) = delete;

    emulator::CBoardFirmware& Board() { return m_Board; }
    emulator::CMilliOhmFirmware& MilliOhm() { return m_MilliOhm; }

    /** How a port is opened. The rate is not emulated, but must be one. */
    struct S_OPEN
    {
        uint32_t ulPort;
        uint32_t ulConstant;
        uint32_t ulBaudRate;
        uint32_t ulDataBits;
    };

    /** Opens a port as the link with the handle 0. The instrument starts anew. */
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

private:
    struct S_PORT
    {
        S_PORT(emulator::CFirmware& i_Firmware, const char* i_pszName)
            : Firmware(i_Firmware), Environment(i_Firmware, i_pszName)
        {
        }

        emulator::CFirmware& Firmware;
        emulator::CEnvironment Environment;
        uint32_t ulHandle = 0;
        std::shared_ptr<CLinkPort> pOpen; // null: closed
    };

    uint32_t OpenAs(const S_OPEN& i_Open, uint32_t i_ulHandle);
    S_PORT* FindOpen(uint32_t i_ulHandle);
    static uint32_t Send(const S_CONTROL& i_Control, emulator::CFaults& io_Faults,
                         CLinkPort& io_Link);
    static uint32_t Fetch(const S_CONTROL& i_Control, emulator::CFaults& io_Faults,
                          CLinkPort& io_Link);

    emulator::CBoardFirmware m_Board;
    emulator::CMilliOhmFirmware m_MilliOhm;
    std::mutex m_Mutex; // guards what follows
    std::array<S_PORT, 2> m_aPorts;
    uint32_t m_ulNextHandle = 1;
};

} // namespace links

#endif // LINKS_VIRTUAL_LINK_H
