#include "platform/Format.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

using namespace cecore;

namespace {

template <typename... Args>
std::string Narrow(TNarrowFormat<std::type_identity_t<Args>...> i_Format, const Args&... i_Args)
{
    char l_aszText[1024];
    FormatNarrow<Args...>(l_aszText, sizeof(l_aszText), i_Format, i_Args...);
    return l_aszText;
}

/** A format as a template argument, to ask whether it compiles with given arguments. */
template <size_t N>
struct S_FORMAT
{
    // NOLINTNEXTLINE(google-explicit-constructor)
    consteval S_FORMAT(const wchar_t (&i_awszText)[N]) { std::copy_n(i_awszText, N, awszText); }
    wchar_t awszText[N];
};
template <S_FORMAT Format, typename... Args>
concept Compiles = requires
{
    typename std::bool_constant<(TWideFormat<Args...>(Format.awszText), true)>;
};

static_assert(Compiles<L"%d %ld %u %lu %02X %08x %%", int, int32_t, uint8_t, uint32_t, char, bool>);
static_assert(Compiles<L"%s %S %f %08X", wchar_t[4], const char*, float, const void*>);
static_assert(!Compiles<L"%s", const char*> && !Compiles<L"%S", const wchar_t*>);
static_assert(!Compiles<L"%d", const wchar_t*> && !Compiles<L"%s", int> && !Compiles<L"%f", int>);
static_assert(!Compiles<L"%d", double> && !Compiles<L"%d", const void*>);
static_assert(!Compiles<L"%d"> && !Compiles<L"no", int> && !Compiles<L"%d %d", int>);
static_assert(!Compiles<L"%q", int> && !Compiles<L"%", int> && !Compiles<L"%5.", int>);

} // namespace

TEST(Format, KnowsItsConversions)
{
    const char l_cNegative = static_cast<char>(-2);
    const wchar_t* l_pwszNull = nullptr;
    const std::pair<std::string, std::string> l_aCases[] = {
        {Narrow("%d %d %7d|%-7d|%07d|%09.3d|%.0d", INT32_MIN, 0, -42, -42, -42, -42, 0),
         "-2147483648 0     -42|-42    |-000042|     -042|"},
        {Narrow("%u %.2u %.2u %02X %04X %08X %08x", ~0U, 5U, 123U, 5U, 0xABU, 0xABU, 0xABU),
         "4294967295 05 123 05 00AB 000000AB 000000ab"},
        {Narrow("%f %f %.0f %.0f %010.3f %-5.1f|", 0.0000005, -0.0, 0.5, 1.5, -1.0005, 0.25),
         "0.000000 -0.000000 0 2 -00001.000 0.2  |"},
        {Narrow("%ld %lu", 0xFFFFFFFFU, int8_t{-1}), "-1 4294967295"}, // always 32 bits
        {Narrow("[%.ld] [%.ld]", 0, 0x80000000U), "[] [-2147483648]"},
        {Narrow("%02X %d %02X", l_cNegative, l_cNegative, uint8_t{0xFE}), "FFFFFFFE -2 FE"},
        {Narrow("%s %S %d%%", "n\xE9", L"w\xE9\x20AC\xFFFFFFFF", true), "n\xE9 w\xE9?? 1%"},
        {Narrow("%S|%5.2s|%-3s|", l_pwszNull, "abc", "x"), "(null)|   ab|x  |"},
        {Narrow("%600d", 7), std::string(511, ' ') + "7"}, // a width has its bound
        {Narrow("%.400f", 0.5), "0.5" + std::string(59, '0')},
        {Narrow("%0600f", -1e308).substr(512), ""}};
    for (const auto& [l_strText, l_strExpected] : l_aCases) {
        EXPECT_EQ(l_strText, l_strExpected);
    }
    std::string l_strBytes;
    for (int i = 1; i < 256; ++i) {
        l_strBytes += static_cast<char>(i);
    }
    wchar_t l_awszWide[300];
    FormatWide(l_awszWide, 300, L"%S%s", l_strBytes.c_str(), L"\xFF");
    EXPECT_EQ(Narrow("%S", l_awszWide), l_strBytes + '\xFF') << "every byte, both ways";
}

TEST(Format, CutsAtTheEndOfTheBuffer)
{
    const std::string l_strWhole = "ab-0042 xyz";
    for (size_t l_ulSize = 0; l_ulSize <= l_strWhole.size() + 2; ++l_ulSize) {
        std::string l_strExpected(20, '#');
        std::string l_strText = l_strExpected;
        const size_t l_ulLength = l_ulSize == 0 ? 0 : std::min(l_ulSize - 1, l_strWhole.size());
        if (l_ulSize > 0) {
            l_strExpected.replace(0, l_ulLength + 1, l_strWhole.substr(0, l_ulLength) + '\0');
        }
        EXPECT_EQ(FormatNarrow(l_strText.data(), l_ulSize, "ab%05d %s", -42, "xyz"), l_ulLength);
        EXPECT_EQ(l_strText, l_strExpected) << l_ulSize;
    }
}

TEST(Format, ReadsNothingElseWhenAFormatDoesNotFit)
{
    S_FORMAT_ARG l_aArgs[2] = {};
    l_aArgs[0].ulInteger = 7;
    l_aArgs[1].eKind = E_FORMAT_KIND::NARROW;
    l_aArgs[1].pszNarrow = "text";
    const char* const l_apszCases[][2] = {{"%s %d", "7 text"},
                                          {"%f|%x|%d", "7|text|"},
                                          {"100%", "100"},
                                          {"%-5.3l", ""},
                                          {nullptr, ""}};
    for (const auto& l_apsz : l_apszCases) {
        char l_aszText[64];
        FormatV(l_aszText, sizeof(l_aszText), l_apsz[0], l_aArgs, 2);
        EXPECT_STREQ(l_aszText, l_apsz[1]);
    }
}
