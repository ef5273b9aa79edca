/**
 * @file IntMeasDriver.h
 * @brief The internal measurement board: frames, answers, calibration.
 */
#pragma once

#include <atomic>
#include <memory>

#include "board/BlockPool.h"
#include "board/Exchange.h"
#include "board/SignalBook.h"
#include "driver/MeasDriver.h"
#include "support/ConfigFile.h"
#include "wire/Crc16.h"

namespace tornval {

/**
 * Protocol of the board over a device file. The variant over the serial link library and the
 * milliohm module derive from it. The steps of an exchange stand here; what a class has of its own
 * on that road is its S_WIRE_KIND: the commands, the way to the device, the lines traced.
 *
 * The source is four files: life and frames, exchanges, results, configuration.
 */
class CIntMeasDriver : public CMeasDriver
{
public:
    CIntMeasDriver();
    ~CIntMeasDriver() override;

    /** Reads section IM, finds the device's number in the registry and opens it, for up to 10 s. */
    S_RESULT CreateDriverInstance() override;
    /** Command 210, the calibration flag, then InitIMB; nothing once the family has its
     *  coefficients. */
    S_RESULT Init() override;
    S_RESULT Close() override;
    S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                         const void* i_pcData, uint8_t i_ucCanal) override;
    S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData, int32_t* o_plProcessedDataSize,
                       int32_t* o_plProcessedData, uint32_t i_ulTimeout,
                       uint8_t i_bCompensation) override;
    S_RESULT CurrentGeneratorBurst(uint32_t i_ulBurst) override;
    uint32_t GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff) override;
    void ScaleSample(int32_t* o_plValue, uint32_t i_ulChannel, uint32_t i_ulHighRange,
                     uint16_t i_usSample) override;
    S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie, uint8_t i_bCompensation,
                               uint32_t i_ulMeasureParam) override;

    /**
     * Builds a frame and hands it to the transport, under the driver's lock.
     *
     * @param o_pusCmdeID receives the ID; it is the input of the fetch.
     * @param io_pFrame   block with the event's handle planted in it.
     * @param o_pulStatus word that the device returns to the send.
     */
    virtual S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                 const void* i_pcData, uint16_t* o_pusCmdeID, S_DATA* io_pFrame,
                                 uint32_t* o_pulStatus, uint8_t i_ucCanal);
    /**
     * Waits for the event of a frame (without the lock), fetches the answer and decodes it.
     *
     * @param i_pFrame    frame of the send.
     * @param i_pusCmdeID its echo.
     * @param o_pAnswer   block for the answer.
     */
    virtual S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                               int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                               uint32_t i_ulTimeout, S_DATA* i_pFrame, uint16_t* i_pusCmdeID,
                               S_DATA* o_pAnswer, uint8_t i_bCompensation);
    /** Judges the firmware's words in an answer frame; marks a failure in the record. */
    virtual void CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult);
    /** Sends 208 and reads the coefficients, unless the family has them. */
    virtual S_RESULT InitIMB();
    /** Reads section IM of the configuration file and makes room for the channels. */
    virtual void ReadConfiguration();
    /** Fills the head of a frame; null: nothing. */
    virtual void PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize, uint32_t i_ulCmdeID,
                                 uint32_t i_ulTimeout, uint8_t i_ucParam, S_DATA* o_pFrame);
    virtual void GetResult_ACQUSITION_INIT(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer,
                                           S_RESULT& o_Result);
    virtual S_RESULT SendCalibrationFlag();

    // The frames of the commands, all but payload and CRC; the last is the one of most commands.
    void PrepareCommandeInit(const S_EXCHANGE& i_Exchange);
    void PrepareCmdeMesureInterne(const S_EXCHANGE& i_Exchange);
    void PrepareCmdeCalibration(const S_EXCHANGE& i_Exchange);
    void PrepareCmdeBurst(const S_EXCHANGE& i_Exchange);
    void PrepareCmdeParam(const S_EXCHANGE& i_Exchange);

    /**
     * Makes an auto-reset event, unless there is one, and plants its handle in a frame.
     *
     * @param io_phEvent handle; stays 0 if no event comes of it.
     * @param o_pFrame   frame, or null.
     */
    void CreateSyncEvent(cecore::Handle* io_phEvent, S_DATA* o_pFrame);

    /** Sends a command and waits for its result, with an event and blocks of its own. */
    S_RESULT CmdeBloquanteSynchrone(uint8_t i_ucCmdeID, const void* i_pcData, uint32_t i_ulSize,
                                    int32_t* o_plData, uint8_t i_ucCanal, uint8_t i_bCompensation);

    /**
     * Sets an output line of the instrument by running the program named by SET_RESET_EXEC.
     *
     * @return 1 if the program ran to its end, whatever its exit code; 0 otherwise.
     */
    uint32_t TGPIO(int32_t i_lPin, int32_t i_lValue);

    // The decoders of answers that were judged good.
    void DecodeInit(S_EXCHANGE& io_Exchange);
    void GetResult_ACQUISITION_UPLOAD(S_EXCHANGE& io_Exchange);
    void GetResult_MEASURE_INTERNE(S_EXCHANGE& io_Exchange);

protected:
    /** Entries of the list of channels. */
    static constexpr uint32_t k_ulMaxChannels = 10;

    /** Fills bytes up to the end of the frame and writes its head; the CRC comes at the send. */
    static void FillFrame(uint8_t i_ucFill, uint16_t i_usIdField, uint8_t i_ucCanal,
                          uint16_t i_usSize, uint8_t i_ucCmdeID, uint32_t i_ulTimeout,
                          uint8_t i_ucParam, S_DATA* o_pFrame);

    /** The calibration of each channel's input; false if a channel names none. */
    bool GetScaling(S_SCALING& o_Scaling) const override;

    /**
     * The reply check that all decoders run on the answer frame. It judges nothing: it computes the
     * CRC over what the link says it delivered and stores it in the frame's first two bytes.
     *
     * @return false for a null block.
     */
    bool CheckReply(uint32_t i_ulDelivered, S_DATA* io_pAnswer) const;

    /**
     * A whole exchange in blocks and with an event of its own.
     *
     * @param i_Exchange command, payload, canal, selection, where the values go.
     */
    S_RESULT RunBlocking(const S_EXCHANGE& i_Exchange);

    /** The transport over the device file. */
    [[nodiscard]] bool HasDevice() const { return m_hDevice != 0; }
    bool ControlDevice(const S_CONTROL& i_Control);

    /** Commands, transport and lines of the class; each constructor puts its own. */
    const S_WIRE_KIND* m_pKind;

    uint32_t m_ulLogCalibrationCoef = 0;
    int32_t m_lVoieMesure = 0;
    uint8_t m_ucBurst = 0;
    uint8_t m_ucCalibration = 0;
    /** This block and that of the answer take memory when they are used; null: there was none. */
    cecore::CZeroed<S_DATA> m_Frame{1};
    uint32_t m_ulCmdeStatus = 0;
    uint16_t m_usCmdeID = 0;
    cecore::CZeroed<S_DATA> m_Answer{1};
    std::atomic<cecore::Handle> m_hDevice{0};
    cecore::Handle m_hSync = 0;
    uint32_t m_ulAcquisitionPeriod = 1;
    uint8_t m_bDecompressData = 1;
    wire::CCrc16 m_Crc16;
    wchar_t m_szRegistryKey[2048] = {};
    wchar_t m_szRegistryEntry[2048] = {};
    uint32_t m_ulTimeout = 10;
    /** One store of k_ulMaxSamples for each channel, untouched until an upload; null where there
     *  was no memory. */
    std::unique_ptr<cecore::CZeroed<int32_t>[]> m_ppVoieData;
    char m_szSetResetExec[260] = {};

    // Class-wide, for the whole family. Atomic, so that a measure on one thread may read while an
    // initialisation on another writes.
    static uint32_t s_ulDriverCounter;
    static std::atomic<uint8_t> already_init;
    static int32_t s_lInstanceCount;
    static std::atomic<double> s_dCoefA[k_ulNbVoies];
    static std::atomic<double> s_dCoefB[k_ulNbVoies];

private:
    static const S_WIRE_KIND& Kind();

    // The steps of an exchange, in their order.
    S_RESULT Send(S_EXCHANGE&& io_Exchange);
    bool BuildFrame(S_EXCHANGE& io_Exchange);
    S_RESULT Fetch(S_EXCHANGE&& io_Exchange);
    bool WaitForAnswer(const S_EXCHANGE& i_Exchange);
    void FetchAnswer(S_EXCHANGE& io_Exchange);
    void Decode(S_EXCHANGE& io_Exchange);

    [[nodiscard]] bool HasTransport() const { return (this->*m_pKind->Transport.pfnIsThere)(); }
    /** As RunBlocking, with a command of the board's own. */
    S_RESULT RunBlockingCmde(uint8_t i_ucCmdeID, uint32_t i_ulSize, S_EXCHANGE io_Exchange);
    /** Writes the head of a frame. @return where its data starts. */
    uint8_t* PrepareHead(const S_EXCHANGE& i_Exchange, uint8_t i_ucParam = 0);
    /** Command ACQUISITION_RESET, first of an initialisation. Its result is nobody's concern. */
    void SendReset();
    bool ReadUnitNumber(uint32_t& o_ulUnit) const;
    void ReadKeys(const CConfigFile& i_Config);
    /** What holds instead of the configuration where there is no memory to read it. */
    void UseFixedValues();
    void AllocateVoieData();

    CSignalBook m_Signals;
    CBlockPool m_Blocks;
};

} // namespace tornval
