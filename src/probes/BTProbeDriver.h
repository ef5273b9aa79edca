/**
 * @file BTProbeDriver.h
 * @brief Probe over Bluetooth.
 */
#pragma once

#include "probes/ProbeDriver.h"

namespace tornval {

/**
 * A probe behind the link library with the PBT_ entry points. The library is loaded from the
 * constructor on, and its failure shows in the operations: each fails that has no entry point.
 * Init and Close open and close the link and may take turns at will; the destructor closes nothing
 * but the library.
 */
class CBTProbeDriver final : public CProbeDriver
{
public:
    CBTProbeDriver();
    ~CBTProbeDriver() override;

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

    PFN_PBT_INIT m_pFn_PBTInit = nullptr;
    PFN_PROBE_CLOSE m_pFn_PBTClose = nullptr;
    PFN_PROBE_DEVICEIOCONTROL m_pFn_PBTDeviceIoControl = nullptr;
    uint8_t m_ucPortNumber = 0;
    wchar_t m_wszBaudRate[k_ulBaudRateSize] = {};
    uint32_t m_ulInitTimeout = 0;
};

} // namespace tornval
