/**
 * @file MilliOhmDriverSerial.h
 * @brief The milliohm module, over the serial link library.
 */
#pragma once

#include "board/IntMeasDriverSerial.h"

namespace tornval {

/** IDs of the module's two commands. */
inline constexpr uint8_t COMMAND_MICROOHM_MEASURE = 0xA1;
inline constexpr uint8_t COMMAND_VERSION = 0xFF;

/**
 * A thin variation of the serial board: another frame head, two commands, another firmware status
 * and its own decoders. It reads section IM, and its ID follows the board's counter.
 */
class C_MilliOhmDriverSerial : public CIntMeasDriverSerial
{
public:
    C_MilliOhmDriverSerial();

    S_RESULT CreateDriverInstance() override;
    /** Does nothing; all five words are 0. */
    S_RESULT Init() override;
    S_RESULT GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                int32_t* o_plValue3) override;
    void CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult) override;
    void PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                         uint32_t i_ulTimeout, uint8_t i_ucParam, S_DATA* o_pFrame) override;

protected:
    [[nodiscard]] const S_EXCHANGE_TEXTS& Texts() const override;
    bool DeviceIo(uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize, void* o_pOut,
                  uint32_t i_ulOutSize, uint32_t* o_pulReturned) override;
    bool BuildFrame(const S_SEND_STRUCT& i_Cmde, uint8_t i_ucCanal, S_DATA* o_pFrame) override;
    void DecodeAnswer(const S_FETCH& i_Fetch, S_RESULT& o_Result) override;

private:
    /** Three values and a 0 from an answer whose measure status is one of the accepted. */
    void GetResult_COMMAND_MICROOHM_MEASURE(uint32_t i_ulNbReturnByte, int32_t* o_plProcessedData,
                                            S_RESULT& o_Result, S_DATA* i_pAnswer);
    /** The version text, without terminator, into the raw buffer. */
    void GetResult_COMMAND_VERSION(const S_FETCH& i_Fetch, S_RESULT& o_Result);
};

} // namespace tornval
