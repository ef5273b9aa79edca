/**
 * @file Crc16.h
 * @brief CRC-16/MODBUS, which guards the frames of board and milliohm module.
 */
#pragma once

#include <cstdint>

namespace wire {

/**
 * CRC-16/MODBUS of the CRC catalogue: width 16, polynomial 0x8005 reflected (0xA001), initial value
 * 0xFFFF, no final XOR, check value 0x4B37 over "123456789". Stateless.
 */
class CCrc16
{
public:
    /** @return the CRC of i_ulLength bytes; 0xFFFF for none. */
    [[nodiscard]] uint16_t ComputeCrc16(const void* i_pcData, uint32_t i_ulLength) const;
};

} // namespace wire
