#include "Format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace cecore {
namespace {

// The largest double has 309 digits before the point; a precision above this is cut.
constexpr uint32_t k_ulMaxPrecision = 60;
constexpr uint32_t k_ulMaxWidth = 512;

/** What stands between the '%' and the conversion character. */
struct S_CONVERSION
{
    bool bZeroFill = false;
    bool bLeft = false;
    bool bPrecision = false;
    uint32_t ulWidth = 0;
    uint32_t ulPrecision = 0;
};

/** One byte, one wide character, both ways. */
template <typename To, typename From>
To ConvertChar(From i_cChar)
{
    if constexpr (std::is_same_v<To, From>) {
        return i_cChar;
    } else if constexpr (std::is_same_v<To, wchar_t>) {
        return static_cast<wchar_t>(static_cast<unsigned char>(i_cChar));
    } else {
        return NarrowChar(i_cChar);
    }
}

template <typename C>
class CWriter
{
public:
    CWriter(C* o_pText, size_t i_ulSize) : m_pText(o_pText), m_ulRoom(i_ulSize - 1) {}

    void Put(C i_cChar)
    {
        if (m_ulUsed < m_ulRoom) {
            m_pText[m_ulUsed++] = i_cChar;
        }
    }

    void Fill(size_t i_ulCount, C i_cChar)
    {
        for (; i_ulCount > 0; --i_ulCount) {
            Put(i_cChar);
        }
    }

    /** A text of either kind, with blanks up to the width. */
    template <typename S>
    void PutText(const S* i_pText, size_t i_ulLength, const S_CONVERSION& i_How,
                 size_t i_ulSign = 0, size_t i_ulZeros = 0)
    {
        const size_t l_ulUsed = i_ulSign + i_ulZeros + i_ulLength;
        const size_t l_ulPad = i_How.ulWidth > l_ulUsed ? i_How.ulWidth - l_ulUsed : 0;
        Fill(i_How.bLeft ? 0 : l_ulPad, C(' '));
        Fill(i_ulSign, C('-'));
        Fill(i_ulZeros, C('0'));
        std::for_each(i_pText, i_pText + i_ulLength, [this](S i_c) { Put(ConvertChar<C>(i_c)); });
        Fill(i_How.bLeft ? l_ulPad : 0, C(' '));
    }

    /** A number from its digits: a sign, zeros up to the width or the precision, the digits. */
    void PutNumber(bool i_bNegative, const char* i_pszDigits, size_t i_ulDigits,
                   const S_CONVERSION& i_How, size_t i_ulMinDigits)
    {
        const size_t l_ulSign = i_bNegative ? 1 : 0;
        size_t l_ulZeros = i_ulMinDigits > i_ulDigits ? i_ulMinDigits - i_ulDigits : 0;
        if (i_How.bZeroFill && !i_How.bLeft && i_How.ulWidth > l_ulSign + i_ulDigits + l_ulZeros) {
            l_ulZeros = i_How.ulWidth - l_ulSign - i_ulDigits;
        }
        PutText(i_pszDigits, i_ulDigits, i_How, l_ulSign, l_ulZeros);
    }

    size_t Finish()
    {
        m_pText[m_ulUsed] = 0;
        return m_ulUsed;
    }

private:
    C* m_pText;
    size_t m_ulRoom;
    size_t m_ulUsed = 0;
};

template <typename C>
void PutInteger(CWriter<C>& io_Writer, char i_cConversion, uint64_t i_ullValue, S_CONVERSION i_How)
{
    const bool l_bNegative =
        i_cConversion == 'd' && static_cast<int32_t>(static_cast<uint32_t>(i_ullValue)) < 0;
    if (l_bNegative) {
        i_ullValue = 0 - static_cast<uint64_t>(static_cast<int64_t>(
                             static_cast<int32_t>(static_cast<uint32_t>(i_ullValue))));
    }
    const int l_lBase = i_cConversion == 'x' || i_cConversion == 'X' ? 16 : 10;
    char l_aszDigits[24];
    const auto l_Written =
        std::to_chars(l_aszDigits, l_aszDigits + sizeof(l_aszDigits), i_ullValue, l_lBase);
    auto l_ulDigits = static_cast<size_t>(l_Written.ptr - l_aszDigits);
    if (i_cConversion == 'X') {
        std::transform(l_aszDigits, l_aszDigits + l_ulDigits, l_aszDigits, [](char i_c) {
            return i_c >= 'a' ? static_cast<char>(i_c - 'a' + 'A') : i_c;
        });
    }
    if (i_How.bPrecision) {
        // A precision replaces the zero fill, and with a precision of 0 the value 0 has no digit.
        i_How.bZeroFill = false;
        if (i_How.ulPrecision == 0 && i_ullValue == 0) {
            l_ulDigits = 0;
        }
    }
    io_Writer.PutNumber(l_bNegative, l_aszDigits, l_ulDigits, i_How,
                        i_How.bPrecision ? i_How.ulPrecision : 0);
}

template <typename C>
void PutDouble(CWriter<C>& io_Writer, double i_dValue, const S_CONVERSION& i_How)
{
    // to_chars and not the printf family: the text is the same in every locale.
    char l_aszDigits[std::numeric_limits<double>::max_exponent10 + k_ulMaxPrecision + 8];
    const auto l_Written = std::to_chars(
        l_aszDigits, l_aszDigits + sizeof(l_aszDigits), std::fabs(i_dValue),
        std::chars_format::fixed, static_cast<int>(i_How.bPrecision ? i_How.ulPrecision : 6U));
    S_CONVERSION l_How = i_How;
    l_How.bZeroFill = i_How.bZeroFill && std::isfinite(i_dValue);
    io_Writer.PutNumber(std::signbit(i_dValue), l_aszDigits,
                        static_cast<size_t>(l_Written.ptr - l_aszDigits), l_How, 0);
}

template <typename C, typename S>
void PutString(CWriter<C>& io_Writer, const S* i_pText, const S_CONVERSION& i_How)
{
    static constexpr S l_aNull[] = {S('('), S('n'), S('u'), S('l'), S('l'), S(')'), S(0)};
    const S* l_pText = i_pText == nullptr ? l_aNull : i_pText;
    size_t l_ulLength = 0;
    while ((!i_How.bPrecision || l_ulLength < i_How.ulPrecision) && l_pText[l_ulLength] != 0) {
        ++l_ulLength;
    }
    io_Writer.PutText(l_pText, l_ulLength, i_How);
}

template <typename C>
uint32_t ReadNumber(const C*& io_pFormat, uint32_t i_ulMax)
{
    uint32_t l_ulNumber = 0;
    for (; detail::IsDigit(*io_pFormat); ++io_pFormat) {
        l_ulNumber = std::min(i_ulMax, l_ulNumber * 10 + static_cast<uint32_t>(*io_pFormat - '0'));
    }
    return l_ulNumber;
}

template <typename C>
size_t Format(C* o_pText, size_t i_ulSize, const C* i_pFormat, const S_FORMAT_ARG* i_pArgs,
              size_t i_ulNbArgs)
{
    if (o_pText == nullptr || i_ulSize == 0) {
        return 0;
    }
    CWriter<C> l_Writer(o_pText, i_ulSize);
    size_t l_ulArg = 0;
    for (const C* l_p = i_pFormat; l_p != nullptr && *l_p != 0; ++l_p) {
        if (*l_p != '%') {
            l_Writer.Put(*l_p);
            continue;
        }
        if (*++l_p == '%') {
            l_Writer.Put(*l_p);
            continue;
        }
        S_CONVERSION l_How;
        for (; *l_p == '0' || *l_p == '-'; ++l_p) {
            (*l_p == '0' ? l_How.bZeroFill : l_How.bLeft) = true;
        }
        l_How.ulWidth = ReadNumber(l_p, k_ulMaxWidth);
        if (*l_p == '.') {
            ++l_p;
            l_How.bPrecision = true;
            l_How.ulPrecision = ReadNumber(l_p, k_ulMaxPrecision);
        }
        if (*l_p == 'l') {
            ++l_p;
        }
        if (*l_p == 0) {
            break;
        }
        // Formats are checked when they are compiled; should one slip through all the same, each
        // argument is shown by its own kind and nothing else is read.
        if (l_ulArg >= i_ulNbArgs) {
            continue;
        }
        const S_FORMAT_ARG& l_Arg = i_pArgs[l_ulArg++];
        switch (l_Arg.eKind) {
        case E_FORMAT_KIND::INTEGER:
            PutInteger(l_Writer, static_cast<char>(*l_p), l_Arg.ulInteger, l_How);
            break;
        case E_FORMAT_KIND::POINTER:
            PutInteger(l_Writer, *l_p == 'X' ? 'X' : 'x',
                       reinterpret_cast<uintptr_t>(l_Arg.pPointer), l_How);
            break;
        case E_FORMAT_KIND::DOUBLE:
            PutDouble(l_Writer, l_Arg.dDouble, l_How);
            break;
        case E_FORMAT_KIND::NARROW:
            PutString(l_Writer, l_Arg.pszNarrow, l_How);
            break;
        case E_FORMAT_KIND::WIDE:
            PutString(l_Writer, l_Arg.pwszWide, l_How);
            break;
        }
    }
    return l_Writer.Finish();
}

} // namespace

size_t FormatV(wchar_t* o_pwszText, size_t i_ulSize, const wchar_t* i_pwszFormat,
               const S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs)
{
    return Format(o_pwszText, i_ulSize, i_pwszFormat, i_pArgs, i_ulNbArgs);
}

size_t FormatV(char* o_pszText, size_t i_ulSize, const char* i_pszFormat,
               const S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs)
{
    return Format(o_pszText, i_ulSize, i_pszFormat, i_pArgs, i_ulNbArgs);
}

} // namespace cecore
