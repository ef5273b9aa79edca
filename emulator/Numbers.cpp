#include "emulator/Numbers.h"

#include <charconv>
#include <cstddef>

namespace emulator {

std::optional<uint32_t> ParseNumber(std::string_view i_Text)
{
    int l_lBase = 10;
    if (i_Text.starts_with("0x") || i_Text.starts_with("0X")) {
        i_Text.remove_prefix(2);
        l_lBase = 16;
    }
    uint32_t l_ulValue = 0;
    const char* l_pEnd = i_Text.data() + i_Text.size();
    const auto l_Result = std::from_chars(i_Text.data(), l_pEnd, l_ulValue, l_lBase);
    if (i_Text.empty() || l_Result.ec != std::errc() || l_Result.ptr != l_pEnd) {
        return std::nullopt;
    }
    return l_ulValue;
}

bool ParseNumbers(std::string_view i_Text, std::span<uint32_t> o_Numbers)
{
    for (size_t i = 0; i < o_Numbers.size(); ++i) {
        const bool l_bLast = i + 1 == o_Numbers.size();
        const size_t l_ulEnd = l_bLast ? i_Text.size() : i_Text.find('/');
        if (l_ulEnd == std::string_view::npos) {
            return false;
        }
        std::string_view l_Number = i_Text.substr(0, l_ulEnd);
        const bool l_bNegative = l_Number.starts_with('-');
        l_Number.remove_prefix(l_bNegative ? 1 : 0);
        const auto l_oulNumber = ParseNumber(l_Number);
        if (!l_oulNumber) {
            return false;
        }
        o_Numbers[i] = l_bNegative ? 0U - *l_oulNumber : *l_oulNumber;
        i_Text.remove_prefix(l_bLast ? l_ulEnd : l_ulEnd + 1);
    }
    return true;
}

} // namespace emulator
