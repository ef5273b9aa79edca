/**
 * @file Bytes.h
 * @brief Little-endian numbers, byte by byte.
 *
 * The offsets handed to these functions are the callers' own constants or checked before; the
 * functions do not check them again.
 */
#ifndef EMULATOR_BYTES_H
#define EMULATOR_BYTES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace emulator {

/** Number of 1 to 4 bytes at the offset, lowest byte first. */
inline uint32_t GetNumber(std::span<const uint8_t> i_Bytes, size_t i_ulOffset, size_t i_ulWidth)
{
    uint32_t l_ulValue = 0;
    for (size_t i = 0; i < i_ulWidth; ++i) {
        l_ulValue |= static_cast<uint32_t>(i_Bytes[i_ulOffset + i]) << (8 * i);
    }
    return l_ulValue;
}

/** Overwrites i_ulWidth bytes at the offset with the low bytes of the value, lowest first. */
inline void PutNumber(std::span<uint8_t> io_Bytes, size_t i_ulOffset, size_t i_ulWidth,
                      uint32_t i_ulValue)
{
    for (size_t i = 0; i < i_ulWidth; ++i) {
        io_Bytes[i_ulOffset + i] = static_cast<uint8_t>(i_ulValue >> (8 * i));
    }
}

/** Appends the low i_ulWidth bytes of the value, lowest first. */
inline void AppendNumber(std::vector<uint8_t>& io_vBytes, size_t i_ulWidth, uint32_t i_ulValue)
{
    for (size_t i = 0; i < i_ulWidth; ++i) {
        io_vBytes.push_back(static_cast<uint8_t>(i_ulValue >> (8 * i)));
    }
}

} // namespace emulator

#endif // EMULATOR_BYTES_H
