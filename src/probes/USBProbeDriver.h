/**
 * @file USBProbeDriver.h
 * @brief Probe over USB.
 */
#pragma once

#include "probes/ProbeLinkDriver.h"

namespace tornval {

/** A probe behind the link library with the PUSB_ entry points. */
class CUSBProbeDriver final : public CProbeLinkDriver
{
public:
    CUSBProbeDriver();

    S_RESULT Init() override;

private:
    void ReadConfiguration();

    PFN_PUSB_INIT m_pFn_PUSBInit = nullptr;
    PFN_PROBE_CLOSE m_pFn_PUSBClose = nullptr;
    PFN_PROBE_DEVICEIOCONTROL m_pFn_PUSBDeviceIoControl = nullptr;
};

} // namespace tornval
