/**
 * @file LineNoise.h
 * @brief A bad line: loses, adds and flips bytes; loses, delays, doubles and splits whole answers.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

namespace emulator {

/** What a line does to the answers. Shares are of 0 to 1 and independent of each other. */
struct S_TROUBLE
{
    double dNoise = 0; /**< bytes lost, added or flipped */
    double dLoss = 0;  /**< does not come at all */
    double dDelay = 0; /**< comes late, and so perhaps behind the next one: up to DelayMost */
    double dTwice = 0; /**< comes once more, up to EchoMost behind the first */
    double dSplit = 0; /**< comes in pieces */
    double dFlood = 0; /**< comes behind thousands of bytes that are none */
    std::chrono::milliseconds DelayMost{100};
    std::chrono::milliseconds EchoMost{10};
    uint32_t ulSeed = 1;
};

/** What the line has done. */
struct S_NOISE_COUNTERS
{
    uint64_t ullDamaged = 0;  /**< answers that noise made other than they were */
    uint64_t ullIntact = 0;   /**< of these: the answer is whole, and something stands behind it */
    uint64_t ullMatching = 0; /**< of these: another answer, and yet its CRC matches */
};

/** Treats answers at random; the same seed treats the same answers in the same way. */
class CLineNoise
{
public:
    /** Bytes that come out, and when. */
    struct S_PIECE
    {
        std::chrono::milliseconds Delay;
        std::vector<uint8_t> vBytes;
    };

    explicit CLineNoise(const S_TROUBLE& i_Trouble);

    /** What becomes of one answer, in the order of its making. */
    std::vector<S_PIECE> Carry(std::vector<uint8_t> i_vAnswer);

    [[nodiscard]] const S_NOISE_COUNTERS& Counters() const { return m_Counters; }

private:
    bool Happens(double i_dShare);
    uint32_t Below(size_t i_ulLimit);
    std::chrono::milliseconds UpTo(std::chrono::milliseconds i_Most);
    void DamageOnce(std::vector<uint8_t>& io_vAnswer);
    void Damage(std::vector<uint8_t>& io_vAnswer);
    std::vector<uint8_t> Garbage(size_t i_ulBytes);

    const S_TROUBLE m_Trouble;
    // An engine whose numbers are the same with every library; the distributions are not.
    std::mt19937 m_Engine;
    S_NOISE_COUNTERS m_Counters;
};

} // namespace emulator
