#include "Samples.h"
#include "Child.h"
#include "Configuration.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

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

TEST(CsvFile, IsWholeAfterEveryBlockAndEmptyWhereAChannelIsShorter)
{
    std::string l_strTemporary;
    {
        host::CCsvFile l_Csv("", 3);
        l_strTemporary = l_Csv.Path();
        l_Csv.Append({{1, -2}, {3}, {}});
        EXPECT_EQ(host::ReadWholeFile(l_strTemporary),
                  "channel_0,channel_1,channel_2\n1,3,\n-2,,\n");
        l_Csv.Append({{}, {}, {7}});
        EXPECT_EQ(l_Csv.Rows(), 3U);
    }
    EXPECT_FALSE(std::filesystem::exists(l_strTemporary));
    EXPECT_THROW(host::CCsvFile("/nowhere/at/all.csv", 1), host::S_FILE_ERROR);
    EXPECT_THROW(host::CCsvFile("/dev/full", 1), host::S_FILE_ERROR);
}

TEST(Plot, IsDrawnFromTheCsvWhateverTheNames)
{
    std::string l_strFolder = testing::TempDir() + "it's_XXXXXX";
    ASSERT_NE(mkdtemp(l_strFolder.data()), nullptr);
    host::CCsvFile l_Csv(l_strFolder + "/in.csv", 2);
    l_Csv.Append({{5, 6, 7}, {}});
    host::PlotCsv(l_Csv.Path(), 2, l_strFolder + "/out.png", "it's a title");
    const auto l_strPng = host::ReadWholeFile(l_strFolder + "/out.png");
    ASSERT_TRUE(l_strPng);
    EXPECT_EQ(l_strPng->substr(1, 3), "PNG");
    EXPECT_THROW(host::PlotCsv(l_Csv.Path(), 2, l_strFolder + "/no/folder.png", "t"),
                 host::S_FILE_ERROR);
    std::filesystem::remove_all(l_strFolder);
}

TEST(Child, TellsHowItEnded)
{
    host::CChild l_Child;
    EXPECT_EQ(l_Child.Finish(), -1);
    EXPECT_EQ(l_Child.Start({"no-such-program-here"}), ENOENT);
    ASSERT_EQ(l_Child.Start({"sh", "-c", "read a; exit $((a + 4))"}), 0);
    EXPECT_TRUE(l_Child.Write("3\n"));
    EXPECT_EQ(l_Child.Finish(), 7);
    ASSERT_EQ(l_Child.Start({"sh", "-c", "kill -9 $$"}), 0);
    EXPECT_EQ(l_Child.Finish(), 128 + 9);
    EXPECT_FALSE(l_Child.IsRunning());
}

} // namespace
