/**
 * @file ProbeDriver.h
 * @brief What all probes have in common: command set, scaling, rolling acquisition.
 */
#pragma once

#include "driver/MeasDriver.h"

namespace tornval {

/** Commands of a probe. 16 to 23 are between the host and the probe, and are passed through. */
enum E_PROBE_COMMAND : uint8_t
{
    PROBE_CMDE_READ_BOTH = 1, /**< read of both channels; goes out as PROBE_CMDE_READ */
    PROBE_CMDE_HOST_FIRST = 16,
    PROBE_CMDE_HOST_HEADED = 22, /**< its reply has the header of a rolling one */
    PROBE_CMDE_HOST_LAST = 23,
    PROBE_CMDE_START = 32, /**< start, first channel; payload: parameter, 32 bits */
    PROBE_CMDE_READ = 33,  /**< read of the first channel */
    PROBE_CMDE_STOP = 34,
    PROBE_CMDE_START_SECOND = 64 /**< start, second channel; payload: parameter, then 3, 32 bits */
};

/** Bytes before the data of a rolling reply: command, size of the data (16 bits), status. */
inline constexpr uint32_t k_ulProbeHeaderSize = 4;
inline constexpr uint32_t k_ulProbeSizeOffset = 1;
inline constexpr uint32_t k_ulProbeStatusOffset = 3;

/**
 * Largest reply, in bytes, that an instant measure fetches. A rolling reply has 4 + 65535 bytes at
 * most; the rest is for links that acknowledge a buffer instead of a reply. A larger size is
 * refused, so that a link which lies cannot make the process allocate without bound.
 */
inline constexpr uint32_t k_ulMaxProbeReply = 1U << 20;

/**
 * A probe, but for its link: Init, Close, SendCommand and GetResult belong to the classes below.
 *
 * Processed samples are one count for each of two channels (the second 0 where only one channel is
 * read), then the samples channel by channel, as measures. A caller gives room for as many values
 * as the reply has bytes of data, and 2.
 */
class CProbeDriver : public CMeasDriver
{
public:
    CProbeDriver();

    void ScaleSample(int32_t* o_plValue, uint32_t i_ulChannel, uint32_t i_ulHighRange,
                     uint16_t i_usSample) override;

    /**
     * Takes one measure: the mean of the samples of a short rolling acquisition. Stops whatever ran
     * before, starts, reads once, stops.
     *
     * @param[out] o_plValue        the measure, 0 after a failure; null fails.
     * @param      i_ulVoie         channel, 0 or 1.
     * @param      i_ulMeasureParam handed to the probe with the start.
     * @return the record of the step that failed, or of the read.
     */
    S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie, uint8_t i_bCompensation,
                               uint32_t i_ulMeasureParam) override;

protected:
    /** The coefficients of both channels; false if there are more. */
    bool GetScaling(S_SCALING& o_Scaling) const override;

    /** @name Steps of an instant measure. They take the lock in each send and fetch alone. */
    ///@{
    S_RESULT StartRollingCmde(uint32_t i_ulVoie, uint32_t i_ulMeasureParam);
    S_RESULT GetRollingCmde(uint32_t i_ulVoie, int32_t* o_plValue);
    S_RESULT StopRollingCmde();
    ///@}

    /**
     * Decodes a rolling reply. A reply that is shorter than its header, or whose data is said to be
     * larger than what was fetched, is refused; the processed samples are left alone then.
     *
     * @param         i_ulNbReturnByte bytes of the reply, header included.
     * @param[in,out] o_plProcessedDataSize values in o_plProcessedData: set with one channel, added
     *                                 to with two.
     * @param[in,out] o_Result         ulStatus 1 on any failure, ulFwStatus the status of a reply
     *                                 that has one. Statuses 44 and 48 fail and still deliver.
     * @return true if the status was 0 and nothing failed.
     */
    bool RollingCmdeResultManagement(uint32_t i_ulNbReturnByte, const char* i_pcRawData,
                                     int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                     S_RESULT& o_Result);

    /**
     * Moves the data of a reply with a header to its front; the bytes that get free become 0. Fails
     * for a reply without data, and for a status that is not 0, which goes sign-extended into
     * ulFwStatus; the reply stays as it is then.
     *
     * @return io_Result.
     */
    S_RESULT StripResultHeader(char* io_pcRawData, uint32_t i_ulNbReturnByte, S_RESULT& io_Result);

    /**
     * Decodes a stream of the first channel into o_plProcessedData, from index 2 on.
     *
     * @return number of samples; 0 for a size of 0 or less.
     */
    uint32_t DecompressSamplesOneChannel(const uint8_t* i_pcData, int32_t i_lDataSize,
                                         int32_t* o_plProcessedData);

    /** Decodes the data of a reply with one channel: both counts, the samples, the size. */
    void DecodeOnlyChannel(const uint8_t* i_pucData, uint16_t i_usDataSize,
                           int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData);

private:
    S_RESULT SendRollingCmde(S_SEND_STRUCT& io_Cmde, const void* i_pcData,
                             uint32_t& o_ulNbReturnByte);
    S_RESULT RunRollingCmde(S_SEND_STRUCT& io_Cmde, const void* i_pcData,
                            int32_t* o_plProcessedDataSize);
    bool DecodeInterleaved(const uint8_t* i_pucData, uint16_t i_usDataSize,
                           int32_t* io_plProcessedDataSize, int32_t* o_plProcessedData);
};

} // namespace tornval
