/**
 * @file Frame.h
 * @brief The two blocks of an exchange with board or milliohm module: command frame and answer.
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

/** Offsets in an answer frame, and in the block that holds it behind a status word. */
inline constexpr uint32_t k_ulFirmwareCodeOffset = 12;
inline constexpr uint32_t k_ulFirmwareErrorOffset = 14;
inline constexpr uint32_t k_ulAnswerDataOffset = 22;

/** Measuring inputs of the board: 0 to 12. */
inline constexpr uint32_t k_ulNbVoies = 13;

/** Samples for which each acquisition channel has room. */
inline constexpr uint32_t k_ulMaxSamples = 65544;

/** IDs of the commands that have a name. */
inline constexpr uint8_t ACQUSITION_INIT = 208;
inline constexpr uint8_t ACQUISITION_UPLOAD = 211;
inline constexpr uint8_t MEASURE_INTERNE = 212;

} // namespace tornval
