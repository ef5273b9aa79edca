/**
 * @file SampleEncoder.h
 * @brief The compact sample code, seen from the instrument that makes it.
 *
 * A sample costs one byte, a step code, when it lies within 63 of the sample before it on the same
 * channel and in the same range; two bytes, an absolute code of 13 bits, otherwise. Channels take
 * turns code by code. Every stream starts from value 0 and low range on each channel, and the step
 * arithmetic wraps at 16 bits: from 32767 a step of one up leads to -32768.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace emulator {

/** One sample before it is encoded. */
struct S_SAMPLE
{
    int16_t sValue = 0;      /**< counts of its range */
    bool bHighRange = false; /**< high range: a count stands for 16 of the low one */
};

/** What becomes of a sample that neither code reaches: outside -4096 to 4095 and no step away. */
enum class E_UNREACHABLE : uint8_t
{
    Refuse, /**< it is not encoded */
    Clamp   /**< the nearer end of the absolute code takes its place */
};

/** Ends of the absolute code. */
inline constexpr int32_t k_lAbsoluteMin = -4096;
inline constexpr int32_t k_lAbsoluteMax = 4095;
/** Largest step. */
inline constexpr int32_t k_lStepMax = 63;

/** Encodes one stream, sample by sample. */
class CSampleEncoder
{
public:
    /**
     * @param i_ulNbChannel number of interleaved channels; 0 counts as 1.
     */
    CSampleEncoder(size_t i_ulNbChannel, E_UNREACHABLE i_eUnreachable);

    /**
     * Appends the code of the next sample, which belongs to the next channel in turn.
     *
     * @return false if the sample was refused: nothing is appended then, and the turn stays.
     */
    bool Append(S_SAMPLE i_Sample);

    /** The stream so far. */
    const std::vector<uint8_t>& Codes() const { return m_vCodes; }
    /** Number of samples that were clamped. */
    size_t Clamped() const { return m_ulClamped; }

private:
    std::vector<S_SAMPLE> m_vPrevious; // running state, one entry per channel
    E_UNREACHABLE m_eUnreachable;
    size_t m_ulChannel = 0;
    size_t m_ulClamped = 0;
    std::vector<uint8_t> m_vCodes;
};

/** A whole stream. */
struct S_ENCODED
{
    std::vector<uint8_t> vCodes; /**< the stream */
    size_t ulSamples = 0;        /**< samples in it: fewer than given if one was refused */
    size_t ulClamped = 0;        /**< samples that were clamped */
};

/**
 * Encodes interleaved samples: those of one row after the other, in channel order.
 *
 * Stops before the first sample that is refused.
 */
S_ENCODED EncodeSamples(std::span<const S_SAMPLE> i_Samples, size_t i_ulNbChannel,
                        E_UNREACHABLE i_eUnreachable = E_UNREACHABLE::Refuse);

} // namespace emulator
