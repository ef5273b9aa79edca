#include "support/ConfigFile.h"

#include <cstring>
#include <ctime>

#include <gtest/gtest.h>

#include "TestHome.h"

using namespace tornval;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool k_bSlow = true;
#else
constexpr bool k_bSlow = false;
#endif

CConfigFile Load(const CTestHome& i_Home, const std::string& i_strText)
{
    i_Home.Write("test.ini", i_strText);
    CConfigFile l_Config;
    EXPECT_TRUE(l_Config.Load("\\hd00\\test.ini"));
    return l_Config;
}

/** A key as GetString gives it; "none" for no key. */
std::string Ask(const CConfigFile& i_Config, const char* i_pszSection, const std::string& i_strKey)
{
    char l_aszValue[8192];
    const int32_t l_lLength =
        i_Config.GetString(i_pszSection, i_strKey.c_str(), "none", l_aszValue, 8192);
    EXPECT_EQ(strlen(l_aszValue), static_cast<size_t>(l_lLength));
    return l_aszValue;
}

} // namespace

TEST(ConfigFile, FindsKeysByItsRules)
{
    const CTestHome l_Home;
    EXPECT_EQ(Ask(Load(l_Home, ""), "IM", "K"), "none");
    const CConfigFile l_Config = Load(
        l_Home, "early = 1\n; a comment, then line ends of Windows, and blanks\n \t[IM]\t \r\r\n"
                " \tPlain\t=\ta b \t\r\nplain = second\n;off = 1\n \t;off = 2\n\n"
                "two = a=b=c ; d\nalone\nempty =\n= nameless\nquoted = 'a b'\ndouble = \" a \"\n"
                "tab = '\ta'\nopen = 'a\nmixed = 'a\"\ntwice = ''a''\nquote = '\n[BT\n[BT]x\n"
                "[ BT ]\nK = blanks\n[I\xC9]\nK\xE9 = \xFF\n[im]\nlate = 1\n[]\nK = last");
    const char* const l_apszCases[][3] = {
        {"IM", "early", "none"},    {"", "early", "none"},      {"im", "PLAIN", "a b"},
        {"IM", "off", "none"},      {"IM", ";off", "none"},     {"IM", "two", "a=b=c ; d"},
        {"IM", "alone", ""},        {"IM", "empty", ""},        {"IM", "", "nameless"},
        {"IM", "quoted", "a b"},    {"IM", "double", "a"},      {"IM", "tab", "\ta"},
        {"IM", "open", "'a"},       {"IM", "mixed", "'a\""},    {"IM", "twice", "'a'"},
        {"IM", "quote", ""},        {"IM", "[BT", ""},          {"IM", "[bt]x", ""},
        {"BT", "K", "none"},        {" bt ", "K", "blanks"},    {"I\xC9", "K\xE9", "\xFF"},
        {"I\xE9", "K\xE9", "none"}, {"I\xC9", "K\xC9", "none"}, {"IM", "late", "none"},
        {"", "K", "last"}};
    for (const auto& l_apsz : l_apszCases) {
        EXPECT_EQ(Ask(l_Config, l_apsz[0], l_apsz[1]), l_apsz[2]) << l_apsz[0] << " " << l_apsz[1];
    }
}

TEST(ConfigFile, TakesLongLinesAndBinaryAsTheyCome)
{
    const CTestHome l_Home;
    // A line of 5000 characters is two, the second starting at the 4096th.
    for (const size_t l_ulLength : {4092U, 4093U, 4094U, 4998U}) {
        const CConfigFile l_Config =
            Load(l_Home, "[S]\nK=" + std::string(l_ulLength, 'v') + "\nL=1");
        EXPECT_EQ(Ask(l_Config, "S", "K"), std::string(std::min<size_t>(l_ulLength, 4093), 'v'));
        EXPECT_EQ(Ask(l_Config, "S", std::string(l_ulLength % 4093, 'v')),
                  l_ulLength > 4093 ? "" : "none");
        EXPECT_EQ(Ask(l_Config, "S", "L"), "1");
    }
    const CConfigFile l_Config = Load(l_Home, std::string("[S]\nK=a\0b\nL=2", 13));
    EXPECT_EQ(Ask(l_Config, "S", "K"), "a");
    EXPECT_EQ(Ask(l_Config, "S", "L"), "2");
}

TEST(ConfigFile, TakesTwoMillionCommentsForALoadWithinASecond)
{
    const CTestHome l_Home;
    std::string l_strText = "[S]\n";
    for (int i = 0; i < 1'000'000; ++i) {
        l_strText += "; a comment line\n\n";
    }
    l_Home.Write("test.ini", l_strText + "K = 1\n");
    // Router and two drivers read it, and ask for thirty keys. Time of this process, whoever else
    // keeps the machine busy.
    const std::clock_t l_Start = std::clock();
    for (int i = 0; i < 3; ++i) {
        CConfigFile l_Config;
        ASSERT_TRUE(l_Config.Load("\\hd00\\test.ini"));
        for (int j = 0; j < 10; ++j) {
            EXPECT_EQ(l_Config.GetInt("s", "k", 7), 1U);
        }
    }
    EXPECT_LT(std::clock() - l_Start, (k_bSlow || OnEmulatedProcessor() ? 30 : 1) * CLOCKS_PER_SEC);
}

TEST(ConfigFile, StoresWhatFitsAndDefaultsByTheSameRules)
{
    const CTestHome l_Home;
    const CConfigFile l_Config = Load(l_Home, "[S]\nK=abcdef\nQ='  abcdef'\nE=");
    const std::tuple<const char*, const char*, int32_t, const char*> l_aCases[] = {
        {"K", "", 4, "abc"},    {"K", "", 7, "abcdef"}, {"K", "", 2, "a"}, {"K", "", 1, "#"},
        {"K", "", -5, "#"},     {"Q", "", 4, "abc"},    {"E", "x", 9, ""}, {"N", " ", 9, ""},
        {"N", "' d '", 9, "d"}, {"N", nullptr, 9, ""}};
    for (const auto& [l_pszKey, l_pszDefault, l_lSize, l_pszStored] : l_aCases) {
        char l_aszValue[10] = "#";
        const int32_t l_lResult =
            l_Config.GetString("S", l_pszKey, l_pszDefault, l_aszValue, l_lSize);
        EXPECT_STREQ(l_aszValue, l_pszStored);
        EXPECT_EQ(l_lResult, *l_aszValue == '#' ? 0 : static_cast<int32_t>(strlen(l_aszValue)));
    }
    EXPECT_EQ(l_Config.GetString("S", "K", "", nullptr, 9), 0);
}

TEST(ConfigFile, DropsTheOldFileAndRefusesWhatIsNone)
{
    const CTestHome l_Home("[S]\nK=1");
    l_Home.Write("headless.ini", "K=2");
    for (const char* l_pszPath :
         {"\\hd00\\headless.ini", "\\hd00\\none", "\\hd00\\", "\\dev\\zero", ""}) {
        CConfigFile l_Config;
        EXPECT_TRUE(l_Config.Load("\\hd00\\TornvalC63.ini"));
        EXPECT_EQ(l_Config.GetInt("S", "K", 7), 1U);
        EXPECT_EQ(l_Config.Load(l_pszPath), strstr(l_pszPath, "headless") != nullptr) << l_pszPath;
        EXPECT_EQ(l_Config.GetInt("S", "K", 7), 7U);
    }
}
