/**
 * @file USBProbeDriver.h
 * @brief Probe over USB.
 */
#pragma once

#include "probes/ProbeDriver.h"

namespace tornval {

/** A probe behind the link library with the PUSB_ entry points; a sister of CBTProbeDriver. */
class CUSBProbeDriver final : public CProbeDriver
{
public:
    CUSBProbeDriver();
    ~CUSBProbeDriver() override;

    S_RESULT Init() override;
    S_RESULT Close() override;
    S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                         const void* i_pcData, uint8_t i_ucCanal) override;
    S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData, int32_t* o_plProcessedDataSize,
                       int32_t* o_plProcessedData, uint32_t i_ulTimeout,
                       uint8_t i_bCompensation) override;

private:
    void ReadConfiguration();
    S_RESULT LoadProbeLibrary();

    PFN_PUSB_INIT m_pFn_PUSBInit = nullptr;
    PFN_PROBE_CLOSE m_pFn_PUSBClose = nullptr;
    PFN_PROBE_DEVICEIOCONTROL m_pFn_PUSBDeviceIoControl = nullptr;
    uint8_t m_ucPortNumber = 0;
};

} // namespace tornval
