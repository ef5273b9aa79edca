/**
 * @file IntMeasDriverSimu.h
 * @brief The simulated internal board: constant measures, acquisitions replayed from a text file.
 */
#pragma once

#include <vector>

#include "board/IntMeasDriver.h"
#include "driver/ModuleFolder.h"

namespace tornval {

/** 1.0 multiplied |n| times by 10.0, or by 0.1 for a negative n: not quite the power of ten. */
double PowerOfTen(int32_t i_lExponent);

/**
 * Answers the board's commands without a board. An upload delivers the next 300 rows of the data
 * file on three channels, from the start again when they run out.
 *
 * It takes no lock: one thread at a time.
 */
class CIntMeasDriverSimu : public CIntMeasDriver
{
public:
    CIntMeasDriverSimu();

    S_RESULT CreateDriverInstance() override;
    S_RESULT Init() override;
    S_RESULT Close() override;
    using CIntMeasDriver::GetResult;
    using CIntMeasDriver::SendCommand;
    S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                         const void* i_pcData, uint8_t i_ucCanal) override;
    S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData, int32_t* o_plProcessedDataSize,
                       int32_t* o_plProcessedData, uint32_t i_ulTimeout,
                       uint8_t i_bCompensation) override;
    S_RESULT CurrentGeneratorBurst(uint32_t i_ulBurst) override;
    S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie, uint8_t i_bCompensation,
                               uint32_t i_ulMeasureParam) override;

    /**
     * Reads a data file: numbers in turns for four columns, separated by whatever is no digit,
     * point or minus sign. A number counts only if a separator follows it.
     *
     * @param io_vdColumn0 gets the first column as it stands.
     * @param io_vdChannel0 gets the third column times 1000.
     * @param io_vdChannel1 gets the second column times 1000.
     * @param io_vdChannel2 gets the fourth column after the probe correction.
     * @return 1 done, 0 with a line in the trace.
     */
    uint32_t LoadSimuFile(const wchar_t* i_pwszPath, std::vector<double>& io_vdColumn0,
                          std::vector<double>& io_vdChannel0, std::vector<double>& io_vdChannel1,
                          std::vector<double>& io_vdChannel2) const;

    /** Bytes that a data file may take, by the memory that the system has left; may be negative. */
    static int32_t GetMemoryLimit();

private:
    /** One command that is known. */
    struct S_SIMULATED
    {
        uint8_t ucCmdeID;
        bool bAccepted;              /**< by a send; a fetch answers either way */
        uint32_t ulNbReturnByte = 0; /**< what an accepted send announces */
        bool bRewinds = false;       /**< a send starts the replay over */
        /** Fills the outputs; null: the answer carries nothing. */
        void (CIntMeasDriverSimu::*pfnAnswer)(S_EXCHANGE& io_Exchange) = nullptr;
    };

    static std::span<const S_SIMULATED> Commands();
    void AnswerMeasure(S_EXCHANGE& io_Exchange);
    void GetSimuUpload(S_EXCHANGE& io_Exchange);
    /** Writes the next samples of all channels behind the counts. */
    void DeliverBlock(int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData);

    static constexpr uint32_t k_ulNbDelivered = 3;

    wchar_t m_wszSimuFile[k_ulMaxPath] = {};
    std::vector<double> m_vdFileColumn0;
    std::vector<double> m_vdChannel0;
    std::vector<double> m_vdChannel1;
    std::vector<double> m_vdChannel2;
    uint32_t m_ulReadIndex = 0;
    uint32_t m_ulNbSimuChannels = k_ulNbDelivered;
    double m_dProbeCorrection = 0.0;

    static uint32_t s_ulSimuCounter;
};

} // namespace tornval
