#include "support/Numbers.h"

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "platform/Format.h"
#include "support/ConfigFile.h"
#include "support/Text.h"

using namespace tornval;

namespace {

constexpr double k_dInfinity = std::numeric_limits<double>::infinity();

class CGermanNumbers : public std::numpunct<char>
{
protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

} // namespace

TEST(Numbers, AreReadAsTheStandardDoes)
{
    const std::string l_strZeros(400, '0');
    const std::string l_astrTexts[] = {"",
                                       " \t\r\n\v\f-12.5e1x",
                                       "+.5",
                                       "5.",
                                       "1e+",
                                       "1e+2",
                                       "1E-2",
                                       "+-1",
                                       "++1",
                                       "-+1",
                                       "+",
                                       "- 1",
                                       "1,5",
                                       "9007199254740993",
                                       "9007199254740993.0000000000000000000000001",
                                       "4.9e-324",
                                       "1e-400",
                                       "1e400",
                                       "-1e400",
                                       "1e+99999999999999999999999",
                                       "1e-99999999999999999999999",
                                       "0e99999999999999999999999",
                                       "1" + l_strZeros,
                                       "-1" + l_strZeros + ".0e-5",
                                       "1" + l_strZeros + "e-400",
                                       "0." + l_strZeros + "1e5",
                                       "." + l_strZeros + "1e401"};
    for (const std::string& l_strText : l_astrTexts) {
        EXPECT_EQ(TextToDouble(l_strText), std::strtod(l_strText.c_str(), nullptr)) << l_strText;
    }
    for (const char* l_pszOther : {"0x10", "inf", "-infinity", "nan", "nan(12)"}) {
        EXPECT_EQ(TextToDouble(l_pszOther), 0.0) << l_pszOther;
    }
    EXPECT_EQ(TextToDouble(std::string_view("123", 2)), 12) << "reads nothing behind the text";
}

TEST(Numbers, TruncateWithinTheirRange)
{
    const double l_adValues[] = {0.999,         -0.999,        -1.5,         2147483646.9,
                                 2147483647.9,  2147483648.0,  k_dInfinity,  -2147483647.9,
                                 -2147483648.9, -2147483649.0, -k_dInfinity, std::nan("")};
    const int32_t l_alExpected[] = {0,         0,         -1,        INT32_MAX - 1,
                                    INT32_MAX, INT32_MAX, INT32_MAX, INT32_MIN + 1,
                                    INT32_MIN, INT32_MIN, INT32_MIN, 0};
    for (size_t i = 0; i < std::size(l_adValues); ++i) {
        EXPECT_EQ(TruncateToInt32(l_adValues[i]), l_alExpected[i]) << l_adValues[i];
    }
}

TEST(Numbers, HaveAPointInEveryLocale)
{
    const CTestHome l_Home;
    std::locale::global(std::locale(std::locale::classic(), new CGermanNumbers));
    setenv("LOCPATH", l_Home.Path("").c_str(), 1);
    const std::string l_strBuild =
        "localedef -i de_DE -f UTF-8 " + l_Home.Path("de_DE.UTF-8") + " 2>/dev/null";
    const bool l_bGerman =
        std::system(l_strBuild.c_str()) == 0 && std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;

    char l_aszText[64];
    cecore::FormatNarrow(l_aszText, sizeof(l_aszText), "%f %d", 1234.5, 1234567);
    EXPECT_STREQ(l_aszText, "1234.500000 1234567");
    // Both with a default of -7; 49 characters of a text count.
    const char* const l_apszValues[] = {"",
                                        "12abc",
                                        "1.5",
                                        "1,5",
                                        "-5",
                                        "+5",
                                        "abc",
                                        "0.0",
                                        "007",
                                        "'12'",
                                        "0x1F",
                                        "2147483648",
                                        "inf",
                                        "99999999999999999999",
                                        "1.00000000000000000000000000000000000000000000000e5"};
    const uint32_t l_aulInts[] = {0, 12, 1, 1, 0, 0, 0, 0, 7, 0, 0, INT32_MAX, 0, INT32_MAX, 1};
    const double l_adDoubles[] = {-7, 12, 1.5,          1,  -5,   5, -7, -7, 7,
                                  12, -7, 2147483648.0, -7, 1e20, 1};
    CConfigFile l_Config;
    for (size_t i = 0; i < std::size(l_apszValues); ++i) {
        l_Home.Write("n.ini", std::string("[S]\nK=") + l_apszValues[i]);
        ASSERT_TRUE(l_Config.Load("\\hd00\\n.ini"));
        EXPECT_EQ(l_Config.GetInt("S", "K", -7), l_aulInts[i]) << l_apszValues[i];
        EXPECT_EQ(l_Config.GetDouble("S", "K", -7), l_adDoubles[i]) << l_apszValues[i];
    }
    EXPECT_EQ(l_Config.GetInt("S", "none", -7), 0xFFFFFFF9U);
    EXPECT_EQ(l_Config.GetDouble("none", "K", 2.5), 2.5);
    if (!l_bGerman) {
        GTEST_SKIP() << "no German locale can be built here: only the streams were German";
    }
}
