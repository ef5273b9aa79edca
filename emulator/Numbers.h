/**
 * @file Numbers.h
 * @brief Numbers in the texts that set an instrument.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace emulator {

/** Parses a decimal number, or a hexadecimal one behind 0x, that fills the whole text. */
std::optional<uint32_t> ParseNumber(std::string_view i_Text);

/**
 * Parses numbers separated by slashes, exactly as many as there is room for. A minus sign in front
 * of one gives its two's complement.
 *
 * @return false if the text is not of this form; the numbers are undefined then.
 */
bool ParseNumbers(std::string_view i_Text, std::span<uint32_t> o_Numbers);

} // namespace emulator
