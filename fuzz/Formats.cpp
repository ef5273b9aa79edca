// Formats and arguments of a trace line: the formatter stays in its buffer and, for what the C library
// has too, gives the same text.
#include "Fuzz.h"

#include <cstdio>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <vector>

#include "platform/Format.h"

namespace {

using cecore::E_FORMAT_KIND;

/** One conversion against the C library's. */
void Compare(FuzzedDataProvider& io_Input, uint32_t i_ulInteger, double i_dDouble,
             const std::string& i_strText)
{
    std::string l_strFormat = "%";
    l_strFormat += io_Input.ConsumeBool() ? "-" : "";
    l_strFormat += io_Input.ConsumeBool() ? "0" : "";
    const auto l_ucWidth = io_Input.ConsumeIntegralInRange<uint8_t>(0, 40);
    l_strFormat += l_ucWidth == 0 ? "" : std::to_string(l_ucWidth);
    if (io_Input.ConsumeBool()) {
        l_strFormat += "." + std::to_string(io_Input.ConsumeIntegralInRange(0, 30));
    }
    const char l_cConversion = "duxXfs"[io_Input.ConsumeIntegralInRange(0, 5)];
    l_strFormat += l_cConversion;
    char l_aszOurs[600], l_aszTheirs[600];
    cecore::S_FORMAT_ARG l_Arg{};
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (l_cConversion == 'f') {
        l_Arg.eKind = E_FORMAT_KIND::DOUBLE;
        l_Arg.dDouble = i_dDouble;
        (void)std::snprintf(l_aszTheirs, sizeof(l_aszTheirs), l_strFormat.c_str(), i_dDouble);
    } else if (l_cConversion == 's') {
        // Zeros before a text are nobody's business.
        std::erase(l_strFormat, '0');
        l_strFormat = l_strFormat.substr(0, 1) + (l_strFormat[1] == '-' ? "-" : "") + "9s";
        l_Arg.eKind = E_FORMAT_KIND::NARROW;
        l_Arg.pszNarrow = i_strText.c_str();
        (void)std::snprintf(l_aszTheirs, sizeof(l_aszTheirs), l_strFormat.c_str(),
                            i_strText.c_str());
    } else {
        l_Arg.eKind = E_FORMAT_KIND::INTEGER;
        l_Arg.ulInteger = i_ulInteger;
        (void)std::snprintf(l_aszTheirs, sizeof(l_aszTheirs), l_strFormat.c_str(), i_ulInteger);
    }
    cecore::FormatV(l_aszOurs, sizeof(l_aszOurs), l_strFormat.c_str(), &l_Arg, 1);
    Require(std::strcmp(l_aszOurs, l_aszTheirs) == 0);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    FuzzedDataProvider l_Input(i_pucData, i_ulSize);
    const auto l_ulInteger = l_Input.ConsumeIntegral<uint32_t>();
    const auto l_dDouble = l_Input.ConsumeFloatingPoint<double>();
    const std::string l_strText = l_Input.ConsumeRandomLengthString(30).c_str();
    const std::wstring l_wstrText(l_strText.begin(), l_strText.end());
    Compare(l_Input, l_ulInteger, l_dDouble, l_strText);

    cecore::S_FORMAT_ARG l_aArgs[4];
    for (cecore::S_FORMAT_ARG& l_Arg : l_aArgs) {
        l_Arg.eKind = static_cast<E_FORMAT_KIND>(l_Input.ConsumeIntegralInRange(0, 4));
        switch (l_Arg.eKind) {
        case E_FORMAT_KIND::INTEGER:
            l_Arg.ulInteger = l_ulInteger;
            break;
        case E_FORMAT_KIND::DOUBLE:
            l_Arg.dDouble = l_dDouble;
            break;
        case E_FORMAT_KIND::POINTER:
            l_Arg.pPointer = i_pucData;
            break;
        case E_FORMAT_KIND::NARROW:
            l_Arg.pszNarrow = l_Input.ConsumeBool() ? l_strText.c_str() : nullptr;
            break;
        case E_FORMAT_KIND::WIDE:
            l_Arg.pwszWide = l_Input.ConsumeBool() ? l_wstrText.c_str() : nullptr;
            break;
        }
    }
    const auto l_ulArgs = l_Input.ConsumeIntegralInRange<size_t>(0, 4);
    const auto l_ulRoom = l_Input.ConsumeIntegralInRange<size_t>(0, 300);
    const std::string l_strFormat = l_Input.ConsumeRemainingBytesAsString();
    const std::wstring l_wstrFormat(l_strFormat.begin(), l_strFormat.end());
    std::vector<char> l_vcText(l_ulRoom, 'x');
    std::vector<wchar_t> l_vwcText(l_ulRoom, L'x');
    const size_t l_ulNarrow =
        cecore::FormatV(l_vcText.data(), l_ulRoom, l_strFormat.c_str(), l_aArgs, l_ulArgs);
    const size_t l_ulWide =
        cecore::FormatV(l_vwcText.data(), l_ulRoom, l_wstrFormat.c_str(), l_aArgs, l_ulArgs);
    Require(l_ulNarrow == l_ulWide);
    Require(l_ulRoom == 0 || (l_ulNarrow < l_ulRoom && l_vcText[l_ulNarrow] == '\0' &&
                              l_vwcText[l_ulWide] == L'\0'));
    return 0;
}
