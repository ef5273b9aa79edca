#include "wire/Crc16.h"

#include <array>
#include <cstddef>

#include "wire/Bytes.h"

namespace wire {
namespace {

using Table = std::array<uint16_t, 256>;

// Table n advances a byte by n more bytes of zeros, so that eight bytes are folded in one step.
constexpr size_t k_ulNbTables = 8;

constexpr std::array<Table, k_ulNbTables> MakeTables()
{
    std::array<Table, k_ulNbTables> l_aTables{};
    for (uint32_t l_ulByte = 0; l_ulByte < 256; ++l_ulByte) {
        uint32_t l_ulCrc = l_ulByte;
        for (int l_lBit = 0; l_lBit < 8; ++l_lBit) {
            l_ulCrc = (l_ulCrc & 1U) != 0 ? (l_ulCrc >> 1) ^ 0xA001U : l_ulCrc >> 1;
        }
        l_aTables[0][l_ulByte] = static_cast<uint16_t>(l_ulCrc);
    }
    for (size_t l_ulTable = 1; l_ulTable < k_ulNbTables; ++l_ulTable) {
        for (size_t l_ulByte = 0; l_ulByte < 256; ++l_ulByte) {
            const uint16_t l_usCrc = l_aTables[l_ulTable - 1][l_ulByte];
            l_aTables[l_ulTable][l_ulByte] =
                static_cast<uint16_t>((l_usCrc >> 8) ^ l_aTables[0][l_usCrc & 0xFFU]);
        }
    }
    return l_aTables;
}

constexpr std::array<Table, k_ulNbTables> k_aTables = MakeTables();

} // namespace

uint16_t CCrc16::ComputeCrc16(const void* i_pcData, uint32_t i_ulLength) const
{
    const auto* l_pucData = static_cast<const uint8_t*>(i_pcData);
    uint32_t l_ulCrc = 0xFFFF;
    for (; i_ulLength >= 8; i_ulLength -= 8, l_pucData += 8) {
        const uint32_t l_ulHead = l_ulCrc ^ ReadLe16(l_pucData);
        l_ulCrc = static_cast<uint32_t>(
            k_aTables[7][l_ulHead & 0xFFU] ^ k_aTables[6][l_ulHead >> 8] ^
            k_aTables[5][l_pucData[2]] ^ k_aTables[4][l_pucData[3]] ^ k_aTables[3][l_pucData[4]] ^
            k_aTables[2][l_pucData[5]] ^ k_aTables[1][l_pucData[6]] ^ k_aTables[0][l_pucData[7]]);
    }
    for (; i_ulLength > 0; --i_ulLength, ++l_pucData) {
        l_ulCrc = (l_ulCrc >> 8) ^ k_aTables[0][(l_ulCrc ^ *l_pucData) & 0xFFU];
    }
    return static_cast<uint16_t>(l_ulCrc);
}

} // namespace wire
