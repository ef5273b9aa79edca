/**
 * @file Samples.h
 * @brief Samples by channel: taken out of the array that the library fills.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

/** Samples of one answer, one vector per channel. */
using Channels = std::vector<std::vector<int32_t>>;

/** Largest number of samples that one channel can have in one answer of the board. */
constexpr size_t k_uMaxSamples = 65544;

/** Channels of the board and of a probe. */
constexpr size_t k_uBoardChannels = 3;
constexpr size_t k_uProbeChannels = 2;

/**
 * Takes the samples out of a processed array: a count for each channel, then the samples channel
 * by channel. The size word is the sum of the counts, with or without the counts themselves: boards
 * and simulated boards differ there. So the counts rule, and size and array must agree with them.
 *
 * @param i_vWords      the array as the library filled it, in its full length.
 * @param i_lSize       the size word; 0 if the answer carried nothing.
 * @param o_vChannels   i_uNbChannels vectors.
 * @return false if counts, size and array do not agree; the channels are then empty.
 */
bool SplitChannels(const std::vector<int32_t>& i_vWords, int32_t i_lSize, size_t i_uNbChannels,
                   Channels& o_vChannels);

} // namespace host
