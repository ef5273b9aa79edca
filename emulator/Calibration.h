/**
 * @file Calibration.h
 * @brief The calibration pairs of the emulated board and the file that stores them.
 */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace emulator {

/** Measuring inputs of the board. */
inline constexpr size_t k_ulVoies = 13;

/** One pair: a measure is (x * a + b) * 0.0001. */
struct S_PAIR
{
    uint32_t ulA = 10000; /**< the factory's pair leaves a value as it is */
    int32_t lB = 0;

    bool operator==(const S_PAIR&) const = default;
};

/** The pairs of all inputs. */
using S_CALIBRATION = std::array<S_PAIR, k_ulVoies>;

/**
 * Reads the pairs from a file: a heading line, then "voie a b" for each input in order.
 *
 * A file that does not exist gives the factory's pairs.
 *
 * @param[out] o_Pairs    the pairs; the factory's if the result is false.
 * @param[out] o_strError what is wrong, if the result is false.
 */
bool LoadCalibration(const std::string& i_strPath, S_CALIBRATION& o_Pairs, std::string& o_strError);

/** Writes the pairs, whole or not at all. False: the file could not be written. */
bool SaveCalibration(const std::string& i_strPath, const S_CALIBRATION& i_Pairs);

} // namespace emulator
