#include "links/serial/SerialLink.h"

#include "links/serial/PortList.h"
#include "links/serial/Settings.h"

#include <string>

namespace links {

uint32_t CSerialLink::MakePort(const S_OPEN& i_Open, std::shared_ptr<CRsPort>& o_pPort)
{
    S_SERIAL_SETTINGS l_Settings;
    std::string l_strError;
    if (!ReadSettings(l_Settings, l_strError)) {
        return Refuse(k_pszLibrary, CECORE_ERROR_INVALID_DATA, "TornvalC63.ini: " + l_strError);
    }
    const CSerialPort::S_SETUP l_Setup{l_Settings.astrPorts[i_Open.ulPort - 1],
                                       {i_Open.ulBaudRate, i_Open.ulDataBits},
                                       l_Settings.AnswerTimeout,
                                       l_Settings.Silence};
    S_TTY_ERROR l_Error;
    std::unique_ptr<CTty> l_pTty = CTty::Open(l_Setup.strPath, l_Setup.Settings, l_Error);
    if (!l_pTty) {
        return Refuse(k_pszLibrary, l_Error.ulError,
                      l_Error.strText + "; serial ports here: " + ListPorts());
    }
    const auto l_pPort = std::make_shared<CSerialPort>(l_Setup, std::move(l_pTty));
    const wire::CLock l_Lock(m_CountersMutex);
    m_aPorts[i_Open.ulPort - 1] = l_pPort;
    o_pPort = l_pPort;
    return 0;
}

S_PORT_COUNTERS CSerialLink::Counters(uint32_t i_ulPort) const
{
    const wire::CLock l_Lock(m_CountersMutex);
    const auto l_pPort =
        i_ulPort == 0 || i_ulPort > m_aPorts.size() ? nullptr : m_aPorts[i_ulPort - 1].lock();
    return l_pPort ? l_pPort->Counters() : S_PORT_COUNTERS{};
}

} // namespace links
