/**
 * @file USBProbeDriverSimu.h
 * @brief Simulated probe over USB.
 */
#pragma once

#include "simulation/BTProbeDriverSimu.h"

namespace tornval {

/** A simulated Bluetooth probe under another name: its records keep the Bluetooth driver type. */
class CUSBProbeDriverSimu final : public CBTProbeDriverSimu
{
public:
    CUSBProbeDriverSimu();
    ~CUSBProbeDriverSimu() override;
};

} // namespace tornval
