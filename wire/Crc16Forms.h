/**
 * @file Crc16Forms.h
 * @brief What the forms of the CRC share, inside this room.
 */
#pragma once

#include <array>

#include "wire/Crc16.h"

#if defined(__x86_64__) || defined(__aarch64__)
#define WIRE_CRC_FOLDS 1
#else
#define WIRE_CRC_FOLDS 0
#endif

namespace wire {

inline constexpr uint32_t k_ulCrcPolynomial =
    0x8005; // bit n is the coefficient of x^n; x^16 is left out
inline constexpr uint16_t k_usCrcStart = 0xFFFF;

/** The remainder after some more bytes; a step of the portable form, good for a few of them. */
uint16_t ContinueCrc(uint16_t i_usCrc, const uint8_t* i_pucData, size_t i_ulLength);

uint16_t ComputeCrcPortable(const uint8_t* i_pucData, size_t i_ulLength);

#if WIRE_CRC_FOLDS
bool RunsCrcFold128();
uint16_t ComputeCrcFold128(const uint8_t* i_pucData, size_t i_ulLength);
#endif
#ifdef __x86_64__
bool RunsCrcFold256();
uint16_t ComputeCrcFold256(const uint8_t* i_pucData, size_t i_ulLength);
#endif

} // namespace wire
