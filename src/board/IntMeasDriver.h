/**
 * @file IntMeasDriver.h
 * @brief The internal measurement board: frames, answers, calibration.
 */
#pragma once

#include <atomic>
#include <memory>

#include "board/ExchangeTexts.h"
#include "board/Frame.h"
#include "driver/MeasDriver.h"
#include "support/ConfigFile.h"
#include "wire/Crc16.h"

namespace tornval {

/**
 * Protocol of the board over a device file. The variant over the serial link library and the
 * milliohm module derive from it: the steps of an exchange stand here, and what differs is behind a
 * few hooks (the transport, the commands, the lines traced).
 *
 * The source is three files: the commands, the results, the configuration.
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
                               uint32_t i_ulTimeout, const S_DATA* i_pFrame,
                               const uint16_t* i_pusCmdeID, S_DATA* o_pAnswer,
                               uint8_t i_bCompensation);
    /** Judges the firmware's words in an answer frame; marks a failure in the record. */
    virtual void CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult);
    /** Sends 208 and reads the coefficients, unless the family has them. */
    virtual S_RESULT InitIMB();
    /** Reads section IM of the configuration file and makes room for the channels. */
    virtual void ReadConfiguration();
    /** Fills the head of a frame; null: nothing. */
    virtual void PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                                 uint32_t i_ulTimeout, uint8_t i_ucParam, S_DATA* o_pFrame);
    virtual void GetResult_ACQUSITION_INIT(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer,
                                           S_RESULT& o_Result);
    virtual S_RESULT SendCalibrationFlag();

    void PrepareCommandeInit(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                             uint32_t i_ulTimeout, S_DATA* o_pFrame);
    void PrepareCmdeMesureInterne(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                                  uint32_t i_ulTimeout, S_DATA* o_pFrame);
    void PrepareCmdeCalibration(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                                uint32_t i_ulTimeout, S_DATA* o_pFrame);
    void PrepareCmdeBurst(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                          uint32_t i_ulTimeout, uint8_t i_ucBurst, S_DATA* o_pFrame);

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

    void GetResult_ACQUISITION_UPLOAD(uint32_t i_ulNbReturnByte, S_RESULT& o_Result,
                                      int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                      S_DATA* i_pAnswer);
    void GetResult_MEASURE_INTERNE(uint32_t i_ulNbReturnByte, int32_t* o_plProcessedData,
                                   S_RESULT& o_Result, S_DATA* i_pAnswer, uint8_t i_bCompensation);

protected:
    /** Entries of the list of channels. */
    static constexpr uint32_t k_ulMaxChannels = 10;

    /** What a fetched answer is decoded into, and from. */
    struct S_FETCH
    {
        uint16_t usCmdeID;
        uint32_t ulReturned;     /**< bytes that the link delivered, by its own word */
        uint32_t ulNbReturnByte; /**< room in pcRawData */
        char* pcRawData;
        int32_t* plProcessedDataSize;
        int32_t* plProcessedData;
        S_DATA* pAnswer;
        uint8_t bCompensation;
    };

    /** What a blocking exchange changes under the lock right before its send. */
    struct S_SELECTION
    {
        void (*pfnSelect)(CIntMeasDriver& io_Driver, uint32_t i_ulValue) = nullptr;
        uint32_t ulValue = 0;
    };

    // The hooks: what the classes of the family do each in its own way.
    [[nodiscard]] virtual const S_EXCHANGE_TEXTS& Texts() const;
    /** Whether there is a link to exchange through. */
    [[nodiscard]] virtual bool HasTransport() const;
    /** Whether InitIMB may go on without one. */
    [[nodiscard]] virtual bool NeedsDeviceForInit() const { return true; }
    /** One control call of the link. @return false with the last error set. */
    virtual bool DeviceIo(uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize, void* o_pOut,
                          uint32_t i_ulOutSize, uint32_t* o_pulReturned);
    /** Builds the frame of a command. @return false if the command or the canal is not allowed. */
    virtual bool BuildFrame(const S_SEND_STRUCT& i_Cmde, uint8_t i_ucCanal, S_DATA* o_pFrame);
    /** Whether the answer to a command carries nothing to decode. */
    [[nodiscard]] virtual bool IsPlainCommand(uint16_t i_usCmdeID) const;
    /** Decodes an answer that was judged good. */
    virtual void DecodeAnswer(const S_FETCH& i_Fetch, S_RESULT& o_Result);
    /** The keys that only one form of the configuration has. */
    virtual void ReadRegistryKeys(const CConfigFile& i_Config);
    virtual void ReadResetKey(const CConfigFile& i_Config);
    virtual void UseFixedRegistryKeys();

    /** What holds instead of the configuration where there is no memory to read it. */
    void UseFixedValues();

    /** Fills bytes up to the end of the frame and writes its head; the CRC comes at the send. */
    static void FillFrame(uint8_t i_ucFill, uint16_t i_usIdField, uint8_t i_ucCanal,
                          uint16_t i_usSize, uint8_t i_ucCmdeID, uint32_t i_ulTimeout,
                          uint8_t i_ucParam, S_DATA* o_pFrame);

    /** Reads the 13 pairs of an answer to 208 that has at least i_ulMinSize + 12 bytes. */
    void DecodeCoefficients(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer, S_RESULT& o_Result,
                            uint32_t i_ulMinSize);

    /**
     * The reply check that all decoders run on the answer frame: computes the CRC over what the
     * link says it delivered and stores it in the frame's first two bytes.
     *
     * @return false for a null block.
     */
    /** The calibration of each channel's input; false if a channel names none. */
    bool GetScaling(S_SCALING& o_Scaling) const override;

    bool CheckReply(uint32_t i_ulReturned, S_DATA* io_pAnswer) const;

    /** A whole exchange in blocks and with an event of its own. */
    S_RESULT RunBlockingExchange(S_SEND_STRUCT i_Cmde, const void* i_pcData, uint8_t i_ucCanal,
                                 int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                 uint8_t i_bCompensation, S_SELECTION i_Selection);

    /** Takes the next number of the family's counter. */
    static uint32_t TakeDriverNumber() { return s_ulDriverCounter++; }
    static uint32_t GetDriverCounter() { return s_ulDriverCounter; }
    static bool IsAlreadyInit() { return already_init.load() == 1; }

    uint32_t m_ulLogCalibrationCoef = 0;
    int32_t m_lVoieMesure = 0;
    uint8_t m_ucBurst = 0;
    uint8_t m_ucCalibration = 0;
    S_DATA m_Frame{};
    uint32_t m_ulCmdeStatus = 0;
    uint16_t m_usCmdeID = 0;
    S_DATA m_Answer{};
    std::atomic<cecore::Handle> m_hDevice{0};
    cecore::Handle m_hSync = 0;
    uint32_t m_ulAcquisitionPeriod = 1;
    uint8_t m_bDecompressData = 1;
    wire::CCrc16 m_Crc16;
    wchar_t m_szRegistryKey[2048] = {};
    wchar_t m_szRegistryEntry[2048] = {};
    uint32_t m_ulTimeout = 10;
    /** One store of k_ulMaxSamples for each channel; null where there was no memory. */
    std::unique_ptr<std::unique_ptr<int32_t[]>[]> m_ppVoieData;
    char m_szSetResetExec[260] = {};

    // Class-wide, for the whole family. Atomic, so that a measure on one thread may read while an
    // initialisation on another writes.
    static uint32_t s_ulDriverCounter;
    static std::atomic<uint8_t> already_init;
    static int32_t s_lInstanceCount;
    static std::atomic<double> s_dCoefA[k_ulNbVoies];
    static std::atomic<double> s_dCoefB[k_ulNbVoies];

private:
    /** CmdeBloquanteSynchrone with something to select right before the send. */
    S_RESULT RunBlockingCmde(uint8_t i_ucCmdeID, const void* i_pcData, uint32_t i_ulSize,
                             int32_t* o_plData, uint8_t i_ucCanal, uint8_t i_bCompensation,
                             S_SELECTION i_Selection);
    /** Command 210, first of an initialisation. Its result is nobody's concern. */
    void SendCommand210();
    void TraceFrame(const S_DATA& i_Frame) const;
    /** The fetch proper, under the lock. */
    void FetchAnswer(S_FETCH io_Fetch, S_RESULT& o_Result);
    bool ReadUnitNumber(uint32_t& o_ulUnit) const;
    /** The keys of section IM; a file that cannot be read changes nothing. */
    void ReadSection();
    void AllocateVoieData();
};

} // namespace tornval
