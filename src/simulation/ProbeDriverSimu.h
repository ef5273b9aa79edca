/**
 * @file ProbeDriverSimu.h
 * @brief Simulated probes: the same canned reply to every read, no device.
 */
#pragma once

#include "probes/ProbeDriver.h"

namespace tornval {

/**
 * Answers the commands of a rolling acquisition and refuses all others. Both reads give 798 samples
 * of the first channel. Takes no lock: one thread at a time.
 */
class CBTProbeDriverSimu : public CProbeDriver
{
public:
    CBTProbeDriverSimu();

    /** Sets the flag; always succeeds. */
    S_RESULT Init() override;
    /** Clears the flag; always succeeds. */
    S_RESULT Close() override;
    /** Reads no more than the command. A null o_pReceiveStruct fails. */
    S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                         const void* i_pcData, uint8_t i_ucCanal) override;
    /**
     * Delivers the canned reply after a read and nothing after a start or a stop.
     *
     * @param      i_ulNbReturnByte 803, as acknowledged. A smaller room gets as much of the reply
     *                              as it holds, and the samples of that; below 5 bytes fails with
     *                              nothing written.
     * @param[out] o_plProcessedDataSize may be null only if o_plProcessedData is.
     * @param[out] o_plProcessedData 800 values; null: the raw reply alone is delivered.
     */
    S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData, int32_t* o_plProcessedDataSize,
                       int32_t* o_plProcessedData, uint32_t i_ulTimeout,
                       uint8_t i_bCompensation) override;

private:
    S_RESULT GenerateRollingSamples(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                    int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData);
};

/** A simulated Bluetooth probe under another name: its records keep the Bluetooth driver type. */
class CUSBProbeDriverSimu final : public CBTProbeDriverSimu
{
public:
    CUSBProbeDriverSimu();
};

} // namespace tornval
