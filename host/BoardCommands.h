/**
 * @file BoardCommands.h
 * @brief Commands of the board that an acquisition consists of.
 */
#pragma once

#include <cstdint>

namespace host {

constexpr uint8_t k_ucStart = 209;
constexpr uint8_t k_ucStop = 210;
constexpr uint8_t k_ucUpload = 211;
/** The time-out that the board's own commands carry, in milliseconds. */
constexpr uint32_t k_ulBoardTimeout = 10;

} // namespace host
