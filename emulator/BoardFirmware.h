/**
 * @file BoardFirmware.h
 * @brief Firmware of the emulated measurement board.
 *
 * Body of its answers: return code (16 bits, always 1), error code (32 bits), then the data of the
 * command. Commands on canal 0:
 *
 * | command | payload                             | data of the answer                     |
 * | ------- | ----------------------------------- | -------------------------------------- |
 * | 0       | calibration flag (8)                | none                                   |
 * | 208     | period (32), channels (32), their   | 22 pairs a (32), b (32): those of the  |
 * |         | voies (32 each)                     | voies 0 to 12, the rest zero           |
 * | 209     | any                                 | none; the recording is rewound         |
 * | 210     | any                                 | none; the recording is rewound         |
 * | 211     | any                                 | stream size (32), the stream           |
 * | 212     | voie (32)                           | voie (32), value of the converter (32) |
 * | 213     | voie (32), a (32), b (32)           | none; the pair is staged               |
 * | 214     | none                                | none; the staged pairs are stored      |
 * | 215     | none                                | none; 213 and 214 are unlocked         |
 *
 * Every command on canal 3 goes to the current generator and carries a burst (8).
 *
 * The pairs that 214 stores come into force at the next Restart(), as on a board that reads its
 * store when it starts. 214 locks the store again.
 */
#pragma once

#include "emulator/Calibration.h"
#include "emulator/Firmware.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace emulator {

/** Error codes of the board. 0 is success; so is 2006 to a host, which is not used here. */
enum E_BOARD_ERROR : uint32_t
{
    k_ulErrorUnknownCommand = 1001, /**< no such command on this canal */
    k_ulErrorLength = 1002,         /**< the payload is too short */
    k_ulErrorParameter = 1003,     /**< a voie above 12, a period or a channel count out of range */
    k_ulErrorLocked = 1004,        /**< 213 or 214 without 215 before */
    k_ulErrorNotConfigured = 1005, /**< 211 before the first 208 */
    k_ulErrorStore = 1006          /**< the pairs could not be stored */
};

/** What the board knows at the moment. */
struct S_BOARD_STATE
{
    uint8_t ucCalibration = 0;      /**< flag of command 0 */
    uint8_t ucBurst = 0;            /**< last burst of the current generator */
    uint32_t ulPeriod = 0;          /**< acquisition period, 1 to 3000; 0 before the first 208 */
    std::vector<uint32_t> vulVoies; /**< the voie of each acquisition channel */
    size_t ulRow = 0;               /**< next row of the recording, counted on past its end */
    bool bUnlocked = false;         /**< 215 was seen */
    S_CALIBRATION Delivered;        /**< the pairs that 208 delivers */
    S_CALIBRATION Staged;           /**< the pairs as 213 changes them */
    S_CALIBRATION Stored;           /**< the pairs as 214 stored them */
};

/**
 * The board. Options of its own for Configure():
 *  - "rows=N": rows of an upload, 0 to 65521; 300 at first. An upload ends earlier where the frame
 *    is full;
 *  - "adc=VOIE/VALUE": value of the converter;
 *  - "coef=VOIE/A/B": a pair, in force at once and stored;
 *  - "store=PATH": as SetStore().
 */
class CBoardFirmware final : public CFirmware
{
public:
    /** Rows of an upload at first. */
    static constexpr uint32_t k_ulRows = 300;
    /** Most bytes of the stream of an upload. */
    static constexpr size_t k_ulMaxStream = 65521;

    CBoardFirmware();

    /**
     * Names the file that keeps the stored pairs from one instrument to the next, and reads it. A
     * file that does not exist yet stands for the factory's pairs.
     *
     * @param      i_strPath  the file; empty: nothing outlives this object.
     * @param[out] o_strError what is wrong, if the result is false.
     * @return false if the file is there but cannot be read or is not of this form; the factory's
     *         pairs are in force then, and the file is left alone.
     */
    bool SetStore(const std::string& i_strPath, std::string& o_strError);

    /** Sets the value of the converter for a voie, 0 to 12. At first it is 1000 * (voie + 1) +
     * voie. */
    void SetAdc(uint32_t i_ulVoie, uint32_t i_ulValue);
    /** Sets the rows of an upload. */
    void SetRows(uint32_t i_ulRows);

    S_BOARD_STATE State() const;

    void Restart() override;

protected:
    bool SetOption(std::string_view i_Name, std::string_view i_Value,
                   std::string& o_strError) override;
    S_BODY Execute(const S_REQUEST& i_Request) override;
    uint16_t AnswerId(uint8_t i_ucCmdeID) const override { return i_ucCmdeID; }

private:
    using S_BYTES = std::span<const uint8_t>;
    /** A command: appends its data, returns an error code. */
    using PFN_COMMAND = uint32_t (CBoardFirmware::*)(S_BYTES, std::vector<uint8_t>&);
    struct S_COMMAND;
    static const S_COMMAND s_aCommands[];

    uint32_t SetCalibrationFlag(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t InitAcquisition(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t Rewind(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t Upload(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t Measure(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t StagePair(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t StorePairs(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);
    uint32_t Unlock(S_BYTES i_Payload, std::vector<uint8_t>& o_vData);

    S_BOARD_STATE m_State;
    std::array<uint32_t, k_ulVoies> m_aulAdc{};
    uint32_t m_ulRows = k_ulRows;
    std::string m_strStore;
};

} // namespace emulator
