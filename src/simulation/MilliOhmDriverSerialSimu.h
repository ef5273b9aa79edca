/**
 * @file MilliOhmDriverSerialSimu.h
 * @brief The simulated milliohm module: a measure of 3333 after two seconds, a version text.
 */
#pragma once

#include "milliohm/MilliOhmDriverSerial.h"

namespace tornval {

/** Answers the module's two commands with constants, without link, event or lock. */
class C_MilliOhmDriverSerialSimu : public C_MilliOhmDriverSerial
{
public:
    S_RESULT CreateDriverInstance() override;
    S_RESULT GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                int32_t* o_plValue3) override;
    using C_MilliOhmDriverSerial::GetResult;
    using C_MilliOhmDriverSerial::SendCommand;
    S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                         const void* i_pcData, uint16_t* o_pusCmdeID, S_DATA* io_pFrame,
                         uint32_t* o_pulStatus, uint8_t i_ucCanal) override;
    S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData, int32_t* o_plProcessedDataSize,
                       int32_t* o_plProcessedData, uint32_t i_ulTimeout, S_DATA* i_pFrame,
                       uint16_t* i_pusCmdeID, S_DATA* o_pAnswer, uint8_t i_bCompensation) override;

private:
    /** One command that is answered: what a send says, and what a fetch delivers. */
    struct S_SIMULATED
    {
        uint8_t ucCmdeID;
        S_TRACE_TEXT<> Sent;
        /** @return false if a buffer is missing or too small. */
        bool (*pfnAnswer)(const S_EXCHANGE& i_Exchange);
    };

    static std::span<const S_SIMULATED> Commands();
    static bool AnswerMeasure(const S_EXCHANGE& i_Exchange);
    static bool AnswerVersion(const S_EXCHANGE& i_Exchange);
};

} // namespace tornval
