/**
 * @file Frame.h
 * @brief The two blocks of an exchange with board or milliohm module, and the commands by name.
 */
#pragma once

#include <cstdint>

#include "TornvalLinks.h"

namespace tornval {

/** A command's frame, or an answer behind its status word, in a block of fixed size. */
struct S_DATA
{
    uint8_t aucBytes[RS_BLOCK_SIZE];
};

/** Size of the raw result that every send announces: the block without its last four bytes. */
inline constexpr uint32_t k_ulRawResultSize = RS_BLOCK_EVENT_OFFSET;

/** Head of a frame; an answer that is shorter is refused. */
inline constexpr uint32_t k_ulFrameHeadSize = RS_FRAME_DATA_OFFSET;

/** The sub-head of a frame's sized part: what ulSize counts beside the payload. */
inline constexpr uint32_t k_ulSubHeadSize = 4;

/** Offsets in an answer frame, which lies behind the status word of its block. */
inline constexpr uint32_t k_ulFirmwareCodeOffset = 12;
inline constexpr uint32_t k_ulFirmwareErrorOffset = 14;

/** Offsets in the answer block: of the board's data, and of what the module answers. */
inline constexpr uint32_t k_ulAnswerDataOffset = 22;
inline constexpr uint32_t k_ulModuleDataOffset = 18;
inline constexpr uint32_t k_ulModuleValuesOffset = 22;

/** Measuring inputs of the board: 0 to 12. */
inline constexpr uint32_t k_ulNbVoies = 13;

/** Bytes of an answer block that hold status, head and all values but samples. */
inline constexpr uint32_t k_ulDecodedHead = 256;
static_assert(k_ulAnswerDataOffset + 8 * k_ulNbVoies <= k_ulDecodedHead);

/** Bytes that the answer to a measure has at least. */
inline constexpr uint32_t k_ulLeastMeasure = 24;

/** Samples for which each acquisition channel has room. */
inline constexpr uint32_t k_ulMaxSamples = 65544;

/** Who is addressed behind the link. */
inline constexpr uint8_t k_ucCanalBoard = 0;
inline constexpr uint8_t k_ucCanalGenerator = 3;

/** Commands of the board. */
inline constexpr uint8_t CALIBRATION_FLAG = 0; /**< on the generator's canal: a burst */
inline constexpr uint8_t GENERATOR_BURST = 3;  /**< on the generator's canal alone */
inline constexpr uint8_t ACQUSITION_INIT = 208;
inline constexpr uint8_t ACQUISITION_START = 209;
inline constexpr uint8_t ACQUISITION_RESET = 210;
inline constexpr uint8_t ACQUISITION_UPLOAD = 211;
inline constexpr uint8_t MEASURE_INTERNE = 212;
inline constexpr uint8_t CALIBRATION_WRITE = 213;
inline constexpr uint8_t CALIBRATION_COMMIT = 214;
inline constexpr uint8_t CALIBRATION_OPEN = 215;

/** Commands of the milliohm module. */
inline constexpr uint8_t COMMAND_MICROOHM_MEASURE = 0xA1;
inline constexpr uint8_t COMMAND_VERSION = 0xFF;

} // namespace tornval
