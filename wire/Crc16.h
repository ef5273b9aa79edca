/**
 * @file Crc16.h
 * @brief CRC-16/MODBUS, which guards the frames of board and milliohm module.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

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

/** One way to compute it. All give the same value; they differ in what they ask of the processor. */
struct S_CRC_FORM
{
    const char* pszName;
    bool (*pfnRuns)(); /**< whether this processor has what it takes */
    uint16_t (*pfnCompute)(const uint8_t* i_pucData, size_t i_ulLength);
};

/** Every form that was compiled, the best first; the last one is portable and always runs. */
std::span<const S_CRC_FORM> CrcForms();

/** Makes ComputeCrc16 use that form, which must run; null: the best again. For tests and benches. */
void UseCrcForm(const S_CRC_FORM* i_pForm);

} // namespace wire
