/**
 * @file Format.h
 * @brief Formatted text in the convention of the platform, with typed arguments.
 *
 * In a wide format "%s" is a wide string and "%S" a narrow one; in a narrow format it is the other
 * way round. Conversions: d, u, x, X (an l before them changes nothing: all integers are 32 bits
 * wide), f, s, S and %%, with the flags 0 and -, a width and a precision. A format that does not
 * fit its arguments does not compile. Nothing is allocated.
 *
 * Narrow and wide text are the same characters one by one: a byte is the wide character of its
 * value, and a wide character above 0xFF becomes '?'.
 */
#pragma once

#include <bit>
#include <cstddef>
#include <type_traits>

#include "Api.h"

namespace cecore {

/** What a conversion takes. */
enum class E_FORMAT_KIND : uint8_t
{
    INTEGER,
    DOUBLE,
    POINTER,
    NARROW,
    WIDE
};

/** One argument with its kind: the formatter never guesses. */
struct S_FORMAT_ARG
{
    E_FORMAT_KIND eKind;
    union
    {
        uint32_t ulInteger;
        double dDouble;
        const void* pPointer;
        const char* pszNarrow;
        const wchar_t* pwszWide;
    };
};

namespace detail {

template <typename T>
consteval E_FORMAT_KIND KindOfArg()
{
    using U = std::decay_t<T>;
    if constexpr (std::is_floating_point_v<U>) {
        return E_FORMAT_KIND::DOUBLE;
    } else if constexpr (std::is_integral_v<U> || std::is_enum_v<U>) {
        static_assert(sizeof(U) <= sizeof(uint32_t), "integers are 32 bits wide at most");
        return E_FORMAT_KIND::INTEGER;
    } else if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>) {
        return E_FORMAT_KIND::NARROW;
    } else if constexpr (std::is_same_v<U, const wchar_t*> || std::is_same_v<U, wchar_t*>) {
        return E_FORMAT_KIND::WIDE;
    } else {
        static_assert(std::is_pointer_v<U>, "not a type that can be formatted");
        return E_FORMAT_KIND::POINTER;
    }
}

template <typename T>
S_FORMAT_ARG MakeArg(const T& i_Value)
{
    S_FORMAT_ARG l_Arg{};
    l_Arg.eKind = KindOfArg<T>();
    if constexpr (KindOfArg<T>() == E_FORMAT_KIND::DOUBLE) {
        l_Arg.dDouble = static_cast<double>(i_Value);
    } else if constexpr (KindOfArg<T>() == E_FORMAT_KIND::INTEGER) {
        // Through the signed type where there is one, so that a negative byte stays negative.
        // NOLINTNEXTLINE(bugprone-signed-char-misuse)
        l_Arg.ulInteger = static_cast<uint32_t>(i_Value);
    } else if constexpr (KindOfArg<T>() == E_FORMAT_KIND::NARROW) {
        l_Arg.pszNarrow = i_Value;
    } else if constexpr (KindOfArg<T>() == E_FORMAT_KIND::WIDE) {
        l_Arg.pwszWide = i_Value;
    } else {
        l_Arg.pPointer = static_cast<const void*>(i_Value);
    }
    return l_Arg;
}

template <typename C>
constexpr bool IsDigit(C i_cChar)
{
    return i_cChar >= '0' && i_cChar <= '9';
}

/** Whether the conversion character takes an argument of that kind. */
template <typename C>
constexpr bool Fits(C i_cConversion, E_FORMAT_KIND i_eKind)
{
    constexpr bool l_bWideFormat = std::is_same_v<C, wchar_t>;
    switch (i_cConversion) {
    case 'd':
    case 'u':
        return i_eKind == E_FORMAT_KIND::INTEGER;
    case 'x':
    case 'X':
        return i_eKind == E_FORMAT_KIND::INTEGER || i_eKind == E_FORMAT_KIND::POINTER;
    case 'f':
        return i_eKind == E_FORMAT_KIND::DOUBLE;
    case 's':
        return i_eKind == (l_bWideFormat ? E_FORMAT_KIND::WIDE : E_FORMAT_KIND::NARROW);
    case 'S':
        return i_eKind == (l_bWideFormat ? E_FORMAT_KIND::NARROW : E_FORMAT_KIND::WIDE);
    default:
        return false;
    }
}

/** A format that was checked against its arguments when it was compiled. */
template <typename C, typename... Args>
class TFormat
{
public:
    /** No text: what a table holds where nothing is to be said. */
    constexpr TFormat() = default;

    // Implicit on purpose: a literal is passed where a format is expected.
    // NOLINTNEXTLINE(google-explicit-constructor)
    consteval TFormat(const C* i_pFormat) : m_pFormat(i_pFormat)
    {
        constexpr size_t l_ulNbArgs = sizeof...(Args);
        const E_FORMAT_KIND l_aeKinds[l_ulNbArgs + 1] = {KindOfArg<Args>()...,
                                                         E_FORMAT_KIND::INTEGER};
        size_t l_ulArg = 0;
        for (const C* l_p = i_pFormat; *l_p != 0; ++l_p) {
            if (*l_p != '%') {
                continue;
            }
            ++l_p;
            if (*l_p == '%') {
                continue;
            }
            while (*l_p == '0' || *l_p == '-' || *l_p == '.' || IsDigit(*l_p)) {
                ++l_p;
            }
            if (*l_p == 'l') {
                ++l_p;
            }
            if (l_ulArg >= l_ulNbArgs || !Fits(*l_p, l_aeKinds[l_ulArg])) {
                throw "the format does not fit its arguments";
            }
            ++l_ulArg;
        }
        if (l_ulArg != l_ulNbArgs) {
            throw "the format leaves arguments over";
        }
    }

    [[nodiscard]] constexpr const C* Get() const { return m_pFormat; }
    explicit constexpr operator bool() const { return m_pFormat != nullptr; }

private:
    const C* m_pFormat = nullptr;
};

} // namespace detail

template <typename... Args>
using TWideFormat = detail::TFormat<wchar_t, Args...>;
template <typename... Args>
using TNarrowFormat = detail::TFormat<char, Args...>;

/**
 * The core: formats into a buffer of i_ulSize characters, cuts what does not fit, terminates.
 * @return characters written, without the terminator.
 */
CECORE_API size_t FormatV(wchar_t* o_pwszText, size_t i_ulSize, const wchar_t* i_pwszFormat,
                          const S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs);
CECORE_API size_t FormatV(char* o_pszText, size_t i_ulSize, const char* i_pszFormat,
                          const S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs);

template <typename... Args>
size_t FormatWide(wchar_t* o_pwszText, size_t i_ulSize,
                  TWideFormat<std::type_identity_t<Args>...> i_Format, const Args&... i_Args)
{
    const S_FORMAT_ARG l_aArgs[sizeof...(Args) + 1] = {detail::MakeArg<Args>(i_Args)..., {}};
    return FormatV(o_pwszText, i_ulSize, i_Format.Get(), l_aArgs, sizeof...(Args));
}

template <typename... Args>
size_t FormatNarrow(char* o_pszText, size_t i_ulSize,
                    TNarrowFormat<std::type_identity_t<Args>...> i_Format, const Args&... i_Args)
{
    const S_FORMAT_ARG l_aArgs[sizeof...(Args) + 1] = {detail::MakeArg<Args>(i_Args)..., {}};
    return FormatV(o_pszText, i_ulSize, i_Format.Get(), l_aArgs, sizeof...(Args));
}

/** The narrow character for a wide one. */
constexpr char NarrowChar(wchar_t i_cChar)
{
    const auto l_ulChar = std::bit_cast<std::make_unsigned_t<wchar_t>>(i_cChar);
    return l_ulChar > 0xFF ? '?' : static_cast<char>(static_cast<unsigned char>(l_ulChar));
}

/** Copies narrow text to wide, cut to the buffer and terminated. */
template <size_t N>
size_t Widen(wchar_t (&o_awszText)[N], const char* i_pszText)
{
    return FormatWide(o_awszText, N, L"%S", i_pszText);
}

} // namespace cecore
