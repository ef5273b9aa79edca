/**
 * @file Frame.h
 * @brief The frames of board and milliohm module, as host, link and instrument know them.
 *
 * | offset | bytes | command                               | answer                            |
 * | ------ | ----- | ------------------------------------- | --------------------------------- |
 * | 0      | 2     | CRC of all that follows               | the same                          |
 * | 2      | 2     | board: the command; module: 0         | the instrument's affair           |
 * | 4      | 2     | size: bytes from offset 8 on          | the same                          |
 * | 6      | 2     | time for the answer, in tenths of 1 s | the instrument's affair           |
 * | 8      | 1     | canal                                 | that of the command               |
 * | 9      | 1     | command                               | that of the command               |
 * | 10     | 2     | 0, parameter                          | the instrument's affair           |
 * | 12     |       | payload                               | return code (2 bytes), then more  |
 *
 * Numbers are little-endian.
 */
#pragma once

#include <cstddef>
#include <cstdint>

namespace wire {

inline constexpr size_t k_ulIdOffset = 2;
inline constexpr size_t k_ulSizeOffset = 4;
inline constexpr size_t k_ulTimeoutOffset = 6;
inline constexpr size_t k_ulCanalOffset = 8;
inline constexpr size_t k_ulCmdeOffset = 9;
inline constexpr size_t k_ulParamOffset = 11;
inline constexpr size_t k_ulDataOffset = 12;
/** Bytes of a frame that its size field does not count. */
inline constexpr size_t k_ulOuterHead = 8;
/** Smallest size field: the 4 bytes up to the payload. */
inline constexpr size_t k_ulMinSize = 4;
/** Longest frame: the size field has 16 bits. */
inline constexpr size_t k_ulMaxFrame = k_ulOuterHead + 0xFFFF;

/** An answer of the board: return code, error code (32 bits), then the data of the command. */
inline constexpr size_t k_ulReturnCodeOffset = k_ulDataOffset;
inline constexpr size_t k_ulErrorCodeOffset = k_ulReturnCodeOffset + 2;
inline constexpr size_t k_ulBoardDataOffset = k_ulErrorCodeOffset + 4;
/** An answer of the module: return code, measure status (8 bits) and three bytes, three values. */
inline constexpr size_t k_ulMeasureStatusOffset = k_ulReturnCodeOffset + 2;

/** Who is addressed behind the link of the board. */
inline constexpr uint8_t k_ucCanalBoard = 0;
inline constexpr uint8_t k_ucCanalGenerator = 3;

/** Commands of the board, on its own canal but for the burst. */
enum E_BOARD_COMMAND : uint8_t
{
    CALIBRATION_FLAG = 0, /**< on the generator's canal: a burst */
    GENERATOR_BURST = 3,  /**< on the generator's canal alone */
    ACQUSITION_INIT = 208,
    ACQUISITION_START = 209,
    ACQUISITION_RESET = 210,
    ACQUISITION_UPLOAD = 211,
    MEASURE_INTERNE = 212, /**< payload: input (32 bits); the answer's data begin with it */
    CALIBRATION_WRITE = 213,
    CALIBRATION_COMMIT = 214,
    CALIBRATION_OPEN = 215
};

/** Commands of the milliohm module. */
enum E_MODULE_COMMAND : uint8_t
{
    COMMAND_MICROOHM_MEASURE = 0xA1,
    COMMAND_VERSION = 0xFF
};

} // namespace wire
