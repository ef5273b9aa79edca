#include "emulator/Crc.h"

namespace emulator {

uint16_t ComputeCrc(std::span<const uint8_t> i_Bytes)
{
    uint32_t l_ulCrc = 0xFFFF;
    for (const uint8_t l_ucByte : i_Bytes) {
        l_ulCrc ^= l_ucByte;
        for (int l_lBit = 0; l_lBit < 8; ++l_lBit) {
            const bool l_bCarry = (l_ulCrc & 1U) != 0;
            l_ulCrc >>= 1;
            if (l_bCarry) {
                l_ulCrc ^= 0xA001U;
            }
        }
    }
    return static_cast<uint16_t>(l_ulCrc);
}

} // namespace emulator
