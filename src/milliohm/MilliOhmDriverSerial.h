/**
 * @file MilliOhmDriverSerial.h
 * @brief The milliohm module, over the serial link library.
 */
#pragma once

#include "board/IntMeasDriverSerial.h"

namespace tornval {

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
    void PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize, uint32_t i_ulCmdeID,
                         uint32_t i_ulTimeout, uint8_t i_ucParam, S_DATA* o_pFrame) override;

private:
    static const S_WIRE_KIND& Kind();

    /** The transport over RS_DeviceIoControl_Ex. */
    bool ControlLinkEx(const S_CONTROL& i_Control);
    /** Three values and a 0 from an answer whose measure status is one of the accepted. */
    void GetResult_COMMAND_MICROOHM_MEASURE(S_EXCHANGE& io_Exchange);
    /** The version text, without terminator, into the raw buffer. */
    void GetResult_COMMAND_VERSION(S_EXCHANGE& io_Exchange);
    void DecodeValues(S_EXCHANGE& io_Exchange);
};

} // namespace tornval
