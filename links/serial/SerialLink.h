/**
 * @file SerialLink.h
 * @brief The serial link over real ports: the six operations of a serial link library, with the
 *        devices of the configuration file on ports 1 and 2.
 *
 * The library serial_link.so is this class behind its entry points.
 */
#pragma once

#include "links/common/RsLink.h"
#include "links/serial/SerialPort.h"
#include "wire/Guarded.h"

#include <array>
#include <cstdint>
#include <memory>

namespace links {

/**
 * Beside the errors of every link: 5 no right to the device, 13 a configuration that is not
 * understood, 21 no answer to fetch, or no line to send over; 31 the system refuses. Why a port did
 * not open is told on the standard error output too.
 *
 * The configuration is read at every open.
 */
class CSerialLink final : public CRsLink
{
public:
    CSerialLink() : CRsLink(2) {}

    /** What has passed a port (1 or 2) since it was opened; zeros once it is closed. */
    [[nodiscard]] S_PORT_COUNTERS Counters(uint32_t i_ulPort) const;

protected:
    uint32_t MakePort(const S_OPEN& i_Open, std::shared_ptr<CRsPort>& o_pPort) override;

private:
    mutable wire::CMutex m_CountersMutex;
    std::array<std::weak_ptr<CSerialPort>, 2> m_aPorts WIRE_GUARDED_BY(m_CountersMutex);
};

} // namespace links
