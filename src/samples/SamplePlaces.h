/**
 * @file SamplePlaces.h
 * @brief Tables of places for the forms that pick bytes out of vectors. For one source file: each has
 *        its own.
 */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tornval {

using Places = std::array<uint8_t, 16>;
constexpr uint8_t k_ucNone = 0x80;

/** For each mask of eight bytes: picks the code words that start there, from nine bytes. */
constexpr std::array<Places, 256> MakeWordPlaces()
{
    std::array<Places, 256> l_aPlaces{};
    for (size_t l_ulMask = 0; l_ulMask < 256; ++l_ulMask) {
        Places& l_Places = l_aPlaces[l_ulMask];
        l_Places.fill(k_ucNone);
        size_t l_ulWord = 0;
        for (uint8_t l_ucByte = 0; l_ucByte < 8; ++l_ucByte) {
            if (((l_ulMask >> l_ucByte) & 1U) != 0) {
                l_Places[2 * l_ulWord] = static_cast<uint8_t>(l_ucByte + 1);
                l_Places[2 * l_ulWord + 1] = l_ucByte;
                ++l_ulWord;
            }
        }
    }
    return l_aPlaces;
}

/**
 * For each mask of absolute codes among eight: picks for every sample the sum just before the last
 * absolute code, which is what the sums have too much from there on. Nothing, for a first one; all
 * bits set where no absolute code came yet.
 */
constexpr std::array<Places, 256> MakeExcessPlaces()
{
    std::array<Places, 256> l_aPlaces{};
    for (size_t l_ulMask = 0; l_ulMask < 256; ++l_ulMask) {
        uint8_t l_ucLow = 0xFF;
        uint8_t l_ucHigh = 0xFF;
        for (size_t l_ulSample = 0; l_ulSample < 8; ++l_ulSample) {
            if (((l_ulMask >> l_ulSample) & 1U) != 0) {
                l_ucLow = l_ulSample == 0 ? k_ucNone : static_cast<uint8_t>(2 * l_ulSample - 2);
                l_ucHigh = l_ulSample == 0 ? k_ucNone : static_cast<uint8_t>(2 * l_ulSample - 1);
            }
            l_aPlaces[l_ulMask][2 * l_ulSample] = l_ucLow;
            l_aPlaces[l_ulMask][2 * l_ulSample + 1] = l_ucHigh;
        }
    }
    return l_aPlaces;
}

alignas(16) constexpr std::array<Places, 256> k_aWordPlaces = MakeWordPlaces();
alignas(16) constexpr std::array<Places, 256> k_aExcessPlaces = MakeExcessPlaces();

} // namespace tornval
