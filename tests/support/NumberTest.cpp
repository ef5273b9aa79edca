#include "support/Numbers.h"

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale>
#include <sstream>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "platform/Format.h"
#include "support/ConfigFile.h"
#include "wire/Text.h"

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
    std::istringstream l_Texts(
        "-12.5e1x +.5 5. 1e+ 1e+2 1E-2 +-1 ++1 -+1 + 1,5 9007199254740993 4.9e-324 1e-400 1e400 "
        "9007199254740993.0000000000000000000000001 -1e400 1e+99999999999999999999999 "
        "1e-99999999999999999999999 0e99999999999999999999999 1" +
        l_strZeros + " -1" + l_strZeros + ".0e-5 1" + l_strZeros + "e-400 0." + l_strZeros +
        "1e5 ." + l_strZeros + "1e401");
    for (std::string l_strText; l_Texts >> l_strText;) {
        EXPECT_EQ(wire::TextToDouble(l_strText), std::strtod(l_strText.c_str(), nullptr))
            << l_strText;
    }
    for (const char* l_pszNone : {"", "- 1", "0x10", "inf", "-infinity", "nan(12)"}) {
        EXPECT_EQ(wire::TextToDouble(l_pszNone), 0.0) << l_pszNone;
    }
    EXPECT_EQ(wire::TextToDouble({" \t\r\n\v\f123", 8}), 12) << "reads nothing behind the text";
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
    // A value, and what it is as a whole and as a real number with a default of -7.
    std::istringstream l_Table(
        "12abc 12 12  1.5 1 1.5  1,5 1 1  -5 0 -5  +5 0 5  abc 0 -7  0.0 0 -7  007 7 7 '12' 0 12  "
        "0x1F 0 -7  inf 0 -7  2147483648 2147483647 2147483648  99999999999999999999 2147483647 "
        "1e20  1.00000000000000000000000000000000000000000000000e5 1 1");
    l_Table.imbue(std::locale::classic());
    CConfigFile l_Config;
    uint32_t l_ulWhole = 0;
    double l_dReal = 0;
    for (std::string l_strValue; l_Table >> l_strValue >> l_ulWhole >> l_dReal;) {
        l_Home.Write("n.ini", "[S]\nE=\nK=" + l_strValue);
        ASSERT_TRUE(l_Config.Load("\\hd00\\n.ini"));
        EXPECT_EQ(l_Config.GetInt("S", "K", -7), l_ulWhole) << l_strValue;
        EXPECT_EQ(l_Config.GetDouble("S", "K", -7), l_dReal) << l_strValue;
    }
    EXPECT_TRUE(l_Table.eof()) << "the whole table was asked";
    EXPECT_EQ(l_Config.GetInt("S", "E", -7), 0U);
    EXPECT_EQ(l_Config.GetDouble("S", "E", -7), -7.0);
    EXPECT_EQ(l_Config.GetInt("S", "none", -7), 0xFFFFFFF9U);
    EXPECT_EQ(l_Config.GetDouble("none", "K", 2.5), 2.5);
    if (!l_bGerman) {
        GTEST_SKIP() << "no German locale can be built here: only the streams were German";
    }
}
