/**
 * @file Bytes.h
 * @brief Little-endian numbers in wire records, byte by byte, at any address.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace wire {

inline uint16_t ReadLe16(const uint8_t* i_pucData)
{
    return static_cast<uint16_t>(i_pucData[0] | (i_pucData[1] << 8));
}

inline uint32_t ReadLe32(const uint8_t* i_pucData)
{
    return static_cast<uint32_t>(ReadLe16(i_pucData)) |
           (static_cast<uint32_t>(ReadLe16(i_pucData + 2)) << 16);
}

inline uint64_t ReadLe64(const uint8_t* i_pucData)
{
    return ReadLe32(i_pucData) | (static_cast<uint64_t>(ReadLe32(i_pucData + 4)) << 32);
}

inline void WriteLe16(uint8_t* o_pucData, uint16_t i_usValue)
{
    o_pucData[0] = static_cast<uint8_t>(i_usValue);
    o_pucData[1] = static_cast<uint8_t>(i_usValue >> 8);
}

// Every byte from the number itself, not from halves: a compiler makes one store of that.
inline void WriteLe32(uint8_t* o_pucData, uint32_t i_ulValue)
{
    o_pucData[0] = static_cast<uint8_t>(i_ulValue);
    o_pucData[1] = static_cast<uint8_t>(i_ulValue >> 8);
    o_pucData[2] = static_cast<uint8_t>(i_ulValue >> 16);
    o_pucData[3] = static_cast<uint8_t>(i_ulValue >> 24);
}

inline void WriteLe64(uint8_t* o_pucData, uint64_t i_ullValue)
{
    o_pucData[0] = static_cast<uint8_t>(i_ullValue);
    o_pucData[1] = static_cast<uint8_t>(i_ullValue >> 8);
    o_pucData[2] = static_cast<uint8_t>(i_ullValue >> 16);
    o_pucData[3] = static_cast<uint8_t>(i_ullValue >> 24);
    o_pucData[4] = static_cast<uint8_t>(i_ullValue >> 32);
    o_pucData[5] = static_cast<uint8_t>(i_ullValue >> 40);
    o_pucData[6] = static_cast<uint8_t>(i_ullValue >> 48);
    o_pucData[7] = static_cast<uint8_t>(i_ullValue >> 56);
}

/** @name Numbers of 1 to 4 bytes at an offset, which the caller has checked. */
///@{
inline uint32_t GetNumber(std::span<const uint8_t> i_Bytes, size_t i_ulOffset, size_t i_ulWidth)
{
    uint32_t l_ulValue = 0;
    for (size_t i = 0; i < i_ulWidth; ++i) {
        l_ulValue |= static_cast<uint32_t>(i_Bytes[i_ulOffset + i]) << (8 * i);
    }
    return l_ulValue;
}

/** Overwrites as many bytes with the low bytes of the value. */
inline void PutNumber(std::span<uint8_t> io_Bytes, size_t i_ulOffset, size_t i_ulWidth,
                      uint32_t i_ulValue)
{
    for (size_t i = 0; i < i_ulWidth; ++i) {
        io_Bytes[i_ulOffset + i] = static_cast<uint8_t>(i_ulValue >> (8 * i));
    }
}

/** Appends the low bytes of the value. */
inline void AppendNumber(std::vector<uint8_t>& io_vBytes, size_t i_ulWidth, uint32_t i_ulValue)
{
    for (size_t i = 0; i < i_ulWidth; ++i) {
        io_vBytes.push_back(static_cast<uint8_t>(i_ulValue >> (8 * i)));
    }
}
///@}

} // namespace wire
