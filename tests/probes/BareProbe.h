/**
 * @file BareProbe.h
 * @brief A probe without a link: the inner operations of CProbeDriver, open to tests and fuzzing.
 */
#pragma once

#include "probes/ProbeDriver.h"

class CBareProbe final : public tornval::CProbeDriver
{
public:
    explicit CBareProbe(uint32_t i_ulNbChannel = 1) { m_ulNbChannel = i_ulNbChannel; }

    using CProbeDriver::DecompressSamplesOneChannel;
    using CProbeDriver::RollingCmdeResultManagement;
    using CProbeDriver::StripResultHeader;

    S_RESULT Init() override { return {}; }
    S_RESULT Close() override { return {}; }
    S_RESULT SendCommand(S_SEND_STRUCT*, S_RECEIVE_STRUCT*, const void*, uint8_t) override
    {
        return {};
    }
    S_RESULT GetResult(uint32_t, char*, int32_t*, int32_t*, uint32_t, uint8_t) override
    {
        return {};
    }
};
