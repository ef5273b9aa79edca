#include "wire/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace wire {
namespace {

char ToLower(char i_cChar)
{
    return i_cChar >= 'A' && i_cChar <= 'Z' ? static_cast<char>(i_cChar - 'A' + 'a') : i_cChar;
}

/** A number too large or too small for a double: which of the two, from its text. */
double SaturatedNumber(std::string_view i_strNumber)
{
    const bool l_bNegative = i_strNumber.starts_with('-');
    const size_t l_ulExponent = std::min(i_strNumber.find_first_of("eE"), i_strNumber.size());
    const std::string_view l_strDigits = i_strNumber.substr(0, l_ulExponent);
    // An exponent beyond this range outweighs every run of digits that fits in memory.
    constexpr int64_t k_llLimit = int64_t{1} << 60;
    int64_t l_llExponent = 0;
    if (l_ulExponent != i_strNumber.size()) {
        std::string_view l_strExponent = i_strNumber.substr(l_ulExponent + 1);
        l_strExponent.remove_prefix(l_strExponent.starts_with('+') ? 1 : 0);
        const bool l_bDown = l_strExponent.starts_with('-');
        if (std::from_chars(l_strExponent.data(), l_strExponent.data() + l_strExponent.size(),
                            l_llExponent)
                .ec == std::errc::result_out_of_range) {
            l_llExponent = l_bDown ? -k_llLimit : k_llLimit;
        }
        l_llExponent = std::clamp(l_llExponent, -k_llLimit, k_llLimit);
    }
    // The power of ten of the first digit that counts, to within one.
    const auto l_llPoint =
        static_cast<int64_t>(std::min(l_strDigits.find('.'), l_strDigits.size()));
    const auto l_llFirst = static_cast<int64_t>(l_strDigits.find_first_of("123456789"));
    const bool l_bLarge = l_llPoint - l_llFirst + l_llExponent > 0;
    const double l_dNumber = l_bLarge ? std::numeric_limits<double>::infinity() : 0.0;
    return l_bNegative ? -l_dNumber : l_dNumber;
}

} // namespace

bool EqualsNoCase(std::string_view i_strLeft, std::string_view i_strRight)
{
    return std::equal(
        i_strLeft.begin(), i_strLeft.end(), i_strRight.begin(), i_strRight.end(),
        [](char i_cLeft, char i_cRight) { return ToLower(i_cLeft) == ToLower(i_cRight); });
}

double TextToDouble(std::string_view i_strText)
{
    const char* l_pBegin = i_strText.data();
    const char* const l_pEnd = l_pBegin + i_strText.size();
    while (l_pBegin != l_pEnd && (*l_pBegin == ' ' || (*l_pBegin >= '\t' && *l_pBegin <= '\r'))) {
        ++l_pBegin;
    }
    if (l_pBegin != l_pEnd && *l_pBegin == '+' && l_pBegin + 1 != l_pEnd && l_pBegin[1] != '-') {
        ++l_pBegin;
    }
    double l_dNumber = 0.0;
    const auto [l_pStop, l_eError] = std::from_chars(l_pBegin, l_pEnd, l_dNumber);
    if (l_eError == std::errc::result_out_of_range) {
        return SaturatedNumber({l_pBegin, static_cast<size_t>(l_pStop - l_pBegin)});
    }
    const bool l_bWord = l_eError == std::errc() && !std::isfinite(l_dNumber);
    return l_eError != std::errc() || l_bWord ? 0.0 : l_dNumber;
}

} // namespace wire
