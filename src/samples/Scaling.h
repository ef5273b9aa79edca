/**
 * @file Scaling.h
 * @brief From the value of a sample to a measure, one at a time or as data for a whole stream.
 */
#pragma once

#include <array>
#include <cstdint>

#include "support/Numbers.h"

namespace tornval {

/**
 * A value as a measure: the signed number times the coefficient of its range.
 *
 * In unsigned arithmetic: a coefficient is 256 at most, but the product may not overflow for any.
 */
inline int32_t ScaleSampleValue(uint16_t i_usValue, int32_t i_lCoef)
{
    const int32_t l_lValue = static_cast<int16_t>(i_usValue);
    return static_cast<int32_t>(static_cast<uint32_t>(l_lValue) * static_cast<uint32_t>(i_lCoef));
}

/** From the converter's value to a measure, in this order of operations, not yet truncated. */
inline double Calibrate(double i_dValue, double i_dA, double i_dB)
{
    return (i_dValue * i_dA + i_dB) * 0.0001;
}

/** Channels of a stream at most. */
inline constexpr uint32_t k_ulMaxScaledChannels = 10;

/** What becomes of the samples of one channel. */
struct S_CHANNEL_SCALE
{
    int32_t lLow = 1;  /**< coefficient of low range */
    int32_t lHigh = 1; /**< coefficient of high range */
    double dA = 0.0;   /**< factor of the calibration */
    double dB = 0.0;   /**< offset of the calibration */
};

/** What becomes of the samples of every channel. */
struct S_SCALING
{
    bool bCalibrated = false; /**< by dA and dB, whatever the range; else by the coefficients */
    std::array<S_CHANNEL_SCALE, k_ulMaxScaledChannels> aChannels;
};

} // namespace tornval
