#include "Samples.h"
#include "Child.h"
#include "CsvFile.h"
#include "Plot.h"
#include "Settings.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "TestHome.h"

namespace {

TEST(SplitChannels, TrustsTheCountsAndChecksThem)
{
    host::Channels l_vChannels;
    const std::vector<int32_t> k_vWords = {2, 0, 1, 10, 11, 30, 99, 99};
    for (const int32_t l_lSize : {3, 6}) { // without the counts, and with them
        ASSERT_TRUE(host::SplitChannels(k_vWords, l_lSize, 3, l_vChannels)) << l_lSize;
        EXPECT_EQ(l_vChannels, (host::Channels{{10, 11}, {}, {30}}));
    }
    ASSERT_TRUE(host::SplitChannels(k_vWords, 0, 3, l_vChannels));
    EXPECT_EQ(l_vChannels, host::Channels(3));
    for (const int32_t l_lSize : {-1, 1, 4, 5, 7, INT32_MAX}) {
        EXPECT_FALSE(host::SplitChannels(k_vWords, l_lSize, 3, l_vChannels)) << l_lSize;
    }
    EXPECT_FALSE(host::SplitChannels({-1, 2, 2, 0, 0, 0}, 3, 3, l_vChannels));
    EXPECT_FALSE(host::SplitChannels({2, 1, 1, 0, 0, 0}, 4, 3, l_vChannels)) << "beyond the array";
    EXPECT_FALSE(host::SplitChannels({INT32_MAX, INT32_MAX, 2, 0}, 0x7FFFFFFF, 3, l_vChannels));
    EXPECT_FALSE(host::SplitChannels({1, 1}, 2, 3, l_vChannels));
}

host::S_CSV_FORM Form(std::vector<std::string> i_vColumns)
{
    host::S_CSV_FORM l_Form;
    l_Form.vColumns = std::move(i_vColumns);
    return l_Form;
}

/** A folder of its own, with a name that quotes must survive. */
class HostFiles : public testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(mkdtemp(m_strFolder.data()), nullptr); }
    ~HostFiles() override { std::filesystem::remove_all(m_strFolder); }
    std::string m_strFolder = testing::TempDir() + "it's_XXXXXX";
};

TEST(CsvFile, IsWholeAfterEveryBlockAndEmptyWhereAChannelIsShorter)
{
    std::string l_strTemporary;
    {
        host::CCsvFile l_Csv("", Form({"a", "b", "c"}));
        l_strTemporary = l_Csv.Path();
        l_Csv.Append({{1, INT32_MIN}, {3}, {}});
        EXPECT_EQ(host::ReadWholeFile(l_strTemporary), "sample,a,b,c\n0,1,3,\n1,-2147483648,,\n");
        l_Csv.Append({{}, {}, {7}});
        EXPECT_EQ(l_Csv.Rows(), 3U);
    }
    EXPECT_FALSE(std::filesystem::exists(l_strTemporary));
    EXPECT_THROW(host::CCsvFile("/nowhere/at/all.csv", Form({"a"})), host::S_FILE_ERROR);
    EXPECT_THROW(host::CCsvFile("/dev/full", Form({"a"})), host::S_FILE_ERROR);
}

TEST_F(HostFiles, GetTheirNameWhenTheyAreComplete)
{
    const std::string l_strName = m_strFolder + "/a.csv";
    host::S_CSV_FORM l_Form = Form({"a"});
    l_Form.dPeriod = 0.25;
    l_Form.vScales = {{0.5, 1}};
    l_Form.vHead = {"head"};
    {
        host::CCsvFile l_Csv(l_strName, l_Form);
        l_Csv.Append({{1, 2}});
        EXPECT_FALSE(std::filesystem::exists(l_strName));
        // A second run does not touch what the first one has so far.
        host::CCsvFile l_Other(l_strName, l_Form);
        EXPECT_NE(l_Other.Path(), l_Csv.Path());
        l_Csv.Append({{3}});
        l_Csv.Commit();
        l_Other.Append({{9}});
        EXPECT_THROW(l_Other.Commit(), host::S_FILE_ERROR) << "the name is taken by now";
    }
    const std::string k_strText = "# head\ntime_s,a\n0,1.5\n0.25,2\n0.5,2.5\n";
    EXPECT_EQ(host::ReadWholeFile(l_strName), k_strText);
    EXPECT_EQ(host::ReadWholeFile(l_strName + ".partial.2"), "# head\ntime_s,a\n0,5.5\n");
}

TEST_F(HostFiles, ArePlottedWithEverySpikeOfALongRecording)
{
    const std::string l_strName = m_strFolder + "/in.csv";
    constexpr int32_t k_lRows = 200000;
    constexpr int32_t k_lSpike = 123457;
    std::vector<int32_t> l_vSamples(k_lRows, -4);
    l_vSamples[k_lSpike] = 999;
    {
        host::CCsvFile l_Csv(l_strName, Form({"a", "b"}));
        l_Csv.Append({l_vSamples, {}});
        l_Csv.Commit();
    }
    const host::S_TABLE l_Table = host::ReadTable(l_strName, false);
    EXPECT_EQ(l_Table.uRows, static_cast<size_t>(k_lRows));
    ASSERT_EQ(l_Table.vCurves.size(), 2U);
    const auto& l_vPoints = l_Table.vCurves[0].vPoints;
    EXPECT_LT(l_vPoints.size(), 2500U);
    EXPECT_NE(
        std::find(l_vPoints.begin(), l_vPoints.end(), std::pair<double, double>(k_lSpike, 999)),
        l_vPoints.end());
    EXPECT_TRUE(l_Table.vCurves[1].vPoints.empty());
    const std::vector<std::pair<const char*, const char*>> k_vForms = {
        {"/o.png", "\x89PNG"}, {"/o.SVG", "<?xml"}, {"/o.pdf", "%PDF"}};
    for (const auto& [l_pszName, l_pszStart] : k_vForms) {
        host::PlotCsv(l_strName, m_strFolder + l_pszName, {"it's a title", {"A", "B"}});
        const auto l_strPicture = host::ReadWholeFile(m_strFolder + l_pszName);
        ASSERT_TRUE(l_strPicture);
        EXPECT_TRUE(l_strPicture->starts_with(l_pszStart)) << l_pszName;
    }
    for (const char* l_pszName : {"/no/folder.png", "/o.jpg", "/o"}) {
        EXPECT_THROW(host::PlotCsv(l_strName, m_strFolder + l_pszName, {}), host::S_FILE_ERROR);
    }
}

TEST(Child, TellsHowItEnded)
{
    host::CChild l_Child;
    EXPECT_EQ(l_Child.Finish(), -1);
    if (!OnEmulatedProcessor()) {
        EXPECT_EQ(l_Child.Start({"no-such-program-here"}), ENOENT);
    }
    ASSERT_EQ(l_Child.Start({"sh", "-c", "read a; exit $((a + 4))"}), 0);
    EXPECT_TRUE(l_Child.Write("3\n"));
    EXPECT_EQ(l_Child.Finish(), 7);
    ASSERT_EQ(l_Child.Start({"sh", "-c", "kill -9 $$"}), 0);
    EXPECT_EQ(l_Child.Finish(), 128 + 9);
    EXPECT_FALSE(l_Child.IsRunning());
}

} // namespace
