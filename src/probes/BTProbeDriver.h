/**
 * @file BTProbeDriver.h
 * @brief Probe over Bluetooth.
 */
#pragma once

#include "probes/ProbeLinkDriver.h"

namespace tornval {

/** A probe behind the link library with the PBT_ entry points. */
class CBTProbeDriver final : public CProbeLinkDriver
{
public:
    CBTProbeDriver();

    S_RESULT Init() override;

private:
    void ReadConfiguration();

    PFN_PBT_INIT m_pFn_PBTInit = nullptr;
    PFN_PROBE_CLOSE m_pFn_PBTClose = nullptr;
    PFN_PROBE_DEVICEIOCONTROL m_pFn_PBTDeviceIoControl = nullptr;
    wchar_t m_wszBaudRate[256] = {};
    uint32_t m_ulInitTimeout = 0;
};

} // namespace tornval
