/**
 * @file IntMeasDriverSerial.h
 * @brief The real internal board, over the serial link library.
 */
#pragma once

#include "board/IntMeasDriver.h"
#include "board/SerialDriver.h"

namespace tornval {

/**
 * The board's protocol with the serial link library as its transport, a line in the trace for each
 * step, and the calibration write.
 */
class CIntMeasDriverSerial : public CIntMeasDriver, public CSerialDriverUser
{
public:
    CIntMeasDriverSerial();
    ~CIntMeasDriverSerial() override;

    /** Reads section IM, loads the link library, opens the link. A link that does not open fails
     *  nothing here: the commands fail at the first exchange. */
    S_RESULT CreateDriverInstance() override;
    S_RESULT Close() override;
    /** Writes pairs into the board, commits them and restarts it through TGPIO. */
    S_RESULT SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB,
                              uint32_t i_ulNbCoeff) override;
    void GetResult_ACQUSITION_INIT(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer,
                                   S_RESULT& o_Result) override;
    /** The flag is not sent on this link. */
    S_RESULT SendCalibrationFlag() override;

    /** Opens the link, with RS_Init for 0 and RS_Init_Ex otherwise. */
    S_RESULT InitModule(uint32_t bUseExtended);

protected:
    /** The transport over RS_DeviceIoControl. */
    [[nodiscard]] bool HasLink() const { return m_pSerialDriver != nullptr; }
    bool ControlLink(const S_CONTROL& i_Control);

    /** Reads the configuration, loads the library it names and opens the link. The lock is held. */
    S_RESULT OpenLink(uint32_t bUseExtended);

    uint8_t m_ucSerialPort = 1;
    uint32_t m_ulBaudRate = 460800;
    uint32_t m_ulLinkWord1 = 0;
    uint32_t m_ulLinkWord2 = 0;
    uint32_t m_ulDataBits = 8;
    /** 1 while the link is open. */
    uint8_t m_bDllWrapperInit = 0;

private:
    static const S_WIRE_KIND& Kind();
};

} // namespace tornval
