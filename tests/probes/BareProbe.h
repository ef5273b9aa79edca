/**
 * @file BareProbe.h
 * @brief A probe without a link: the inner operations of CProbeDriver, open to tests and fuzzing.
 */
#pragma once

#include "BareDriver.h"
#include "probes/ProbeDriver.h"

class CBareProbe final : public CBareDriver<tornval::CProbeDriver>
{
public:
    explicit CBareProbe(uint32_t i_ulNbChannel = 1) : CBareDriver(i_ulNbChannel) {}

    using CProbeDriver::DecompressSamplesOneChannel;
    using CProbeDriver::RollingCmdeResultManagement;
    using CProbeDriver::StripResultHeader;
};
