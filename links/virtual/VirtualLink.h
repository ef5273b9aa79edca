/**
 * @file VirtualLink.h
 * @brief The virtual serial link: the six operations of a serial link library, with the emulated
 *        board on port 1 and the emulated milliohm module on port 2.
 *
 * The library virtual_link.so is this class behind its entry points. A test that wants the
 * instruments in its hands links the class itself.
 */
#pragma once

#include "emulator/BoardFirmware.h"
#include "emulator/Environment.h"
#include "emulator/MilliOhmFirmware.h"
#include "links/common/RsLink.h"

#include <array>
#include <cstdint>
#include <memory>

namespace links {

/**
 * Beside the errors of every link: 13 settings that are not understood (told on the standard error
 * output), 21 no answer to fetch, and those of the faults. An instrument starts anew when its port
 * is opened. The rate is not emulated, but must be one.
 */
class CVirtualLink final : public CRsLink
{
public:
    CVirtualLink();
    /** Closes all links. */
    ~CVirtualLink() override;

    emulator::CBoardFirmware& Board() { return m_Board; }
    emulator::CMilliOhmFirmware& MilliOhm() { return m_MilliOhm; }

protected:
    uint32_t Prepare(const S_OPEN& i_Open) override;
    uint32_t MakePort(const S_OPEN& i_Open, std::shared_ptr<CRsPort>& o_pPort) override;

private:
    struct S_INSTRUMENT
    {
        S_INSTRUMENT(emulator::CFirmware& i_Firmware, const char* i_pszName)
            : Firmware(i_Firmware), Environment(i_Firmware, i_pszName)
        {
        }

        emulator::CFirmware& Firmware;
        emulator::CEnvironment Environment;
    };

    emulator::CBoardFirmware m_Board;
    emulator::CMilliOhmFirmware m_MilliOhm;
    std::array<S_INSTRUMENT, 2> m_aInstruments; // by port
};

} // namespace links
