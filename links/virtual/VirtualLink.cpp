#include "links/virtual/VirtualLink.h"

#include "links/virtual/VirtualPort.h"

#include <string>

namespace links {

CVirtualLink::CVirtualLink()
    : CRsLink(2), m_aInstruments{S_INSTRUMENT{m_Board, "board"},
                                 S_INSTRUMENT{m_MilliOhm, "milliohm"}}
{
}

CVirtualLink::~CVirtualLink()
{
    CloseAll();
}

uint32_t CVirtualLink::Prepare(const S_OPEN& i_Open)
{
    if (i_Open.ulDataBits != 8) {
        return CECORE_ERROR_INVALID_PARAMETER;
    }
    S_INSTRUMENT& l_Instrument = m_aInstruments[i_Open.ulPort - 1];
    std::string l_strError;
    if (!l_Instrument.Environment.ReadVariables(l_strError) ||
        !l_Instrument.Environment.ReadControl(l_strError)) {
        return Refuse("virtual_link", CECORE_ERROR_INVALID_DATA, l_strError);
    }
    return l_Instrument.Firmware.Faults().Take(emulator::E_FAULT::NoOpen).value_or(0);
}

uint32_t CVirtualLink::MakePort(const S_OPEN& i_Open, std::shared_ptr<CRsPort>& o_pPort)
{
    S_INSTRUMENT& l_Instrument = m_aInstruments[i_Open.ulPort - 1];
    l_Instrument.Firmware.Restart();
    o_pPort = std::make_shared<CVirtualPort>(l_Instrument.Firmware, l_Instrument.Environment);
    return 0;
}

} // namespace links
