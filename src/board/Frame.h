/**
 * @file Frame.h
 * @brief The two blocks of an exchange with board or milliohm module.
 *
 * The frames in them are those of wire/Frame.h.
 */
#pragma once

#include "TornvalLinks.h"
#include "wire/Frame.h"

namespace tornval {

using wire::k_ucCanalBoard;
using wire::k_ucCanalGenerator;
using enum wire::E_BOARD_COMMAND;
using enum wire::E_MODULE_COMMAND;

/** A command's frame, or an answer behind its status word, in a block of fixed size. */
struct S_DATA
{
    uint8_t aucBytes[RS_BLOCK_SIZE];
};

/** Size of the raw result that every send announces: the block without its last four bytes. */
inline constexpr uint32_t k_ulRawResultSize = RS_BLOCK_EVENT_OFFSET;

/** Head of a frame; an answer that is shorter is refused. */
inline constexpr uint32_t k_ulFrameHeadSize = wire::k_ulDataOffset;

/** What ulSize counts beside the payload. */
inline constexpr uint32_t k_ulSubHeadSize = wire::k_ulMinSize;

/** Offset of the board's data, and of the module's values, in the answer block. */
inline constexpr uint32_t k_ulAnswerDataOffset = RS_ANSWER_FRAME_OFFSET + wire::k_ulBoardDataOffset;

/** Measuring inputs of the board: 0 to 12. */
inline constexpr uint32_t k_ulNbVoies = 13;

/** Bytes of an answer block that hold status, head and all values but samples. */
inline constexpr uint32_t k_ulDecodedHead = 256;
static_assert(k_ulAnswerDataOffset + 8 * k_ulNbVoies <= k_ulDecodedHead);

/** Bytes that the answer to a measure has at least. */
inline constexpr uint32_t k_ulLeastMeasure = 24;

/** Samples for which each acquisition channel has room. */
inline constexpr uint32_t k_ulMaxSamples = 65544;

} // namespace tornval
