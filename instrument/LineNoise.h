/**
 * @file LineNoise.h
 * @brief A line that loses, adds and flips bytes.
 */
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace emulator {

/** What the noise has done. */
struct S_NOISE_COUNTERS
{
    uint64_t ullDamaged = 0;  /**< answers that went out otherwise than they were made */
    uint64_t ullIntact = 0;   /**< of these: the answer is whole, and something stands behind it */
    uint64_t ullMatching = 0; /**< of these: another answer, and yet its CRC matches */
};

/** Damages answers at random; the same seed damages the same answers in the same way. */
class CLineNoise
{
public:
    /** @param i_dShare share of the answers that are damaged, 0 to 1. */
    CLineNoise(double i_dShare, uint32_t i_ulSeed);

    /** Lets the noise at the bytes of one answer. */
    void Damage(std::vector<uint8_t>& io_vAnswer);

    [[nodiscard]] const S_NOISE_COUNTERS& Counters() const { return m_Counters; }

private:
    uint32_t Below(size_t i_ulLimit);
    void DamageOnce(std::vector<uint8_t>& io_vAnswer);

    // An engine whose numbers are the same with every library; the distributions are not.
    std::mt19937 m_Engine;
    const uint32_t m_ulShare; // of 2 to the 32nd
    S_NOISE_COUNTERS m_Counters;
};

} // namespace emulator
