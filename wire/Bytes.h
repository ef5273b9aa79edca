/**
 * @file Bytes.h
 * @brief Little-endian numbers in wire records, byte by byte, at any address.
 */
#pragma once

#include <cstdint>

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

inline void WriteLe32(uint8_t* o_pucData, uint32_t i_ulValue)
{
    WriteLe16(o_pucData, static_cast<uint16_t>(i_ulValue));
    WriteLe16(o_pucData + 2, static_cast<uint16_t>(i_ulValue >> 16));
}

} // namespace wire
