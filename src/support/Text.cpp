#include "support/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace tornval {
namespace {

char ToLower(char i_cChar)
{
    return i_cChar >= 'A' && i_cChar <= 'Z' ? static_cast<char>(i_cChar - 'A' + 'a') : i_cChar;
}

/** A number too large or too small for a double: which of the two, from its text. */
double SaturatedNumber(std::string_view i_strNumber)
{
    const bool l_bNegative = i_strNumber.starts_with('-');
    const size_t l_ulExponent = i_strNumber.find_first_of("eE");
    bool l_bLarge = false;
    if (l_ulExponent != std::string_view::npos) {
        l_bLarge = i_strNumber.substr(l_ulExponent + 1, 1) != "-";
    } else {
        const size_t l_ulFirst = i_strNumber.find_first_of("123456789");
        l_bLarge = l_ulFirst < i_strNumber.find('.');
    }
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

} // namespace tornval
