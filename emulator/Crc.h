/**
 * @file Crc.h
 * @brief The CRC of the instrument's frames, bit by bit.
 */
#pragma once

#include <cstdint>
#include <span>

namespace emulator {

/**
 * CRC-16/MODBUS: reflected polynomial 0xA001, initial value 0xFFFF, no final XOR.
 *
 * Written the slow and obvious way, so that it can stand witness for a fast one.
 *
 * @return the CRC; 0xFFFF for no bytes, 0x4B37 for the text 123456789.
 */
uint16_t ComputeCrc(std::span<const uint8_t> i_Bytes);

} // namespace emulator
