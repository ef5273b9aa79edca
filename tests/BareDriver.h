/**
 * @file BareDriver.h
 * @brief The least that makes a driver of a class without a link, for tests and fuzzing.
 */
#pragma once

#include "driver/MeasDriver.h"

template <typename T_BASE>
class CBareDriver : public T_BASE
{
public:
    explicit CBareDriver(uint32_t i_ulNbChannel) { this->m_ulNbChannel = i_ulNbChannel; }

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
