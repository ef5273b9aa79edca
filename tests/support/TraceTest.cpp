#include "support/Trace.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <regex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "StackTaken.h"
#include "TestHome.h"
#include "platform/Reason.h"

using namespace tornval;

namespace {

constexpr uint16_t k_usAll = 0x1111;

void UseFile(uint16_t i_usLevel, const char* i_pszPath = "\\hd00\\log_tornval.txt")
{
    SetTraceLog(std::make_unique<CTraceLogFile>(i_pszPath, i_usLevel));
}

} // namespace

TEST(Trace, PassesTheLevelsOfItsMask)
{
    const CTestHome l_Home;
    const std::pair<uint16_t, std::string> l_aLevels[] = {
        {FW_LEVEL, "F [FW_LEVEL]"},
        {ERROR_LEVEL, "E [ERROR_LEVEL]"},
        {INFO_GENERAL_LEVEL, "G [INFO_GENERAL_LEVEL]"},
        {INFO_LEVEL, "I [INFO_LEVEL]"},
        {0x8001, "? [...]"}};
    const std::pair<uint16_t, const char*> l_aMasks[] = {
        {0, ""},    {1, "F"},     {16, "E"},      {256, "G"},
        {4096, ""}, {4352, "GI"}, {4369, "FEGI"}, {0xFFFF, "FEGI?"}};
    for (const auto& [l_usMask, l_pszPassed] : l_aMasks) {
        UseFile(l_usMask);
        EXPECT_TRUE(IsTraceActive()) << "whatever the mask";
        std::vector<std::string> l_vstrExpected;
        for (const auto& [l_usLevel, l_strLine] : l_aLevels) {
            Trace(l_usLevel, L"%S", l_strLine.substr(0, 1).c_str());
            EXPECT_EQ(IsTraceLevel(l_usLevel), strchr(l_pszPassed, l_strLine[0]) != nullptr);
            if (IsTraceLevel(l_usLevel)) {
                l_vstrExpected.push_back(l_strLine);
            }
        }
        EXPECT_EQ(l_Home.TraceLines(), l_vstrExpected) << l_usMask;
    }
    SetTraceLog(nullptr);
    EXPECT_FALSE(IsTraceActive() || IsTraceLevel(0));
    Trace(ERROR_LEVEL, L"to nobody");
    EXPECT_EQ(l_Home.TraceLines().size(), 5U);
}

TEST(Trace, CutsALongTextBeforeItsLevel)
{
    const CTestHome l_Home;
    UseFile(k_usAll);
    const std::string l_strSuffix = " [INFO_GENERAL_LEVEL]";
    for (const size_t l_ulLength : {2025U, 2026U, 2027U, 2048U, 9000U}) {
        ResetTraceLog();
        Trace(INFO_GENERAL_LEVEL, L"%S", std::string(l_ulLength, 'x').c_str());
        const size_t l_ulKept = std::min<size_t>(l_ulLength, 2047 - l_strSuffix.size());
        EXPECT_EQ(l_Home.TraceLines(), std::vector{std::string(l_ulKept, 'x') + l_strSuffix});
    }
}

TEST(Trace, BeginsEachLineOfTheFileWithItsTimeAndThread)
{
    const CTestHome l_Home;
    l_Home.Write("log_tornval.txt", "an old line\n");
    UseFile(k_usAll);
    EXPECT_EQ(l_Home.Read("log_tornval.txt"), "") << "emptied at the start";
    // The hour of UTC plus one, which makes 24 of 23.
    const auto l_fnStamp = [] {
        // Not time(), which may lag behind by some milliseconds.
        const auto l_lNow = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
        const tm l_Utc = *gmtime(&l_lNow);
        char l_aszStamp[64];
        snprintf(l_aszStamp, sizeof(l_aszStamp), "%d/%d/%d AT %02d:%02d:%02d", l_Utc.tm_mon + 1,
                 l_Utc.tm_mday, l_Utc.tm_year + 1900, l_Utc.tm_hour + 1, l_Utc.tm_min,
                 l_Utc.tm_sec);
        return std::string(l_aszStamp);
    };
    const std::string l_strBefore = l_fnStamp();
    Trace(ERROR_LEVEL, L"100%% %s %S", L"w\xE9\x20AC", "n\xE9");
    const std::string l_strAfter = l_fnStamp();
    const std::string l_strText = l_Home.Read("log_tornval.txt");
    EXPECT_TRUE(std::regex_match(l_strText, std::regex("(" + l_strBefore + "|" + l_strAfter +
                                                       "): \\[-?\\d+\\] \\[th[0-9a-f]{8}\\] "
                                                       "100% w\xE9\\? n\xE9 \\[ERROR_LEVEL\\]\n")))
        << l_strText;
    ResetTraceLog();
    EXPECT_EQ(l_Home.Read("log_tornval.txt"), "");
}

TEST(Trace, NeverFailsItsCaller)
{
    const CTestHome l_Home;
    for (const char* l_pszPath : {static_cast<const char*>(nullptr), "", "\\hd00\\none\\log.txt",
                                  "\\hd00\\", "\\dev\\full"}) {
        UseFile(k_usAll, l_pszPath);
        ::SetLastError(77);
        Trace(ERROR_LEVEL, L"lost");
        EXPECT_EQ(cecore::GetLastError(), 77U) << "the reason is still to be read";
        ResetTraceLog();
    }
    CTraceLogFile("\\hd00\\log_tornval.txt", k_usAll).WriteLine(nullptr);
    EXPECT_EQ(l_Home.Read("log_tornval.txt"), "");
}

TEST(Trace, PutsTicksAndTextOnTheConsole)
{
    testing::internal::CaptureStdout();
    SetTraceLog(std::make_unique<CTraceLogConsole>(k_usAll));
    S_TRACE_TEXT<int>{}.Emit(1); // no line
    S_TRACE_TEXT<const char*>{FW_LEVEL, L"%S"}.Emit(std::string(5000, 'x').c_str());
    ResetTraceLog();
    Trace(FW_LEVEL, L"w\xE9\x20AC");
    const std::string l_strText = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(l_strText, std::regex("\\[-?\\d+\\]x{2036} \\[FW_LEVEL\\]\n"
                                                       "\\[-?\\d+\\]w\xE9\\? \\[FW_LEVEL\\]\n")))
        << l_strText;
}

TEST(Trace, ReachesTheConsoleOfAnyHostAndOutlivesItsReader)
{
    const auto l_fnHost = [] {
        int l_alPipe[2];
        // Opened anew: this program has printed narrow characters before.
        if (pipe2(l_alPipe, O_NONBLOCK) != 0 || std::freopen("/dev/null", "w", stdout) == nullptr ||
            dup2(l_alPipe[1], fileno(stdout)) < 0) {
            return 1;
        }
        close(l_alPipe[1]);
        std::wprintf(L"host, ");
        CTraceLogConsole l_Console(k_usAll);
        l_Console.WriteLine(L"read");
        char l_acRead[100] = {};
        if (read(l_alPipe[0], l_acRead, 6) != 6 || std::string(l_acRead) != "host, " ||
            read(l_alPipe[0], l_acRead, sizeof(l_acRead) - 1) <= 0 ||
            std::string(l_acRead).find("]read\n") == std::string::npos) {
            return 2;
        }
        close(l_alPipe[0]);
        l_Console.WriteLine(L"not read");
        sigset_t l_Pending{};
        sigpending(&l_Pending);
        return sigismember(&l_Pending, SIGPIPE) == 0 ? 0 : 3;
    };
    EXPECT_EXIT(_exit(l_fnHost()), testing::ExitedWithCode(0), "");
}

TEST(Trace, DropsAndCountsWhatNobodyReads)
{
    const auto l_fnHost = [] {
        int l_alPipe[2];
        if (pipe(l_alPipe) != 0 || std::freopen("/dev/null", "w", stdout) == nullptr ||
            dup2(l_alPipe[1], fileno(stdout)) < 0) {
            return 1;
        }
        CTraceLogConsole l_Console(k_usAll);
        const auto l_Begin = std::chrono::steady_clock::now();
        for (int i = 0; i < 200; ++i) {
            l_Console.WriteLine(std::wstring(1000, L'x').c_str());
        }
        if (std::chrono::steady_clock::now() - l_Begin > std::chrono::seconds(5)) {
            return 2;
        }
        std::string l_strRead(1 << 20, '\0');
        l_strRead.resize(static_cast<size_t>(read(l_alPipe[0], l_strRead.data(), 1 << 20)));
        const auto l_lWhole = std::count(l_strRead.begin(), l_strRead.end(), '\n');
        l_Console.WriteLine(L"read again");
        char l_acRead[200] = {};
        const std::string l_strLost = std::to_string(200 - l_lWhole) + " lines lost\n";
        return read(l_alPipe[0], l_acRead, sizeof(l_acRead) - 1) > 0 &&
                       std::string(l_acRead).find(l_strLost) != std::string::npos &&
                       std::string(l_acRead).find("]read again\n") != std::string::npos
                   ? 0
                   : 3;
    };
    EXPECT_EXIT(_exit(l_fnHost()), testing::ExitedWithCode(0), "");
}

TEST(Trace, WritesToNoFileThatTookThePlaceOfAClosedOutput)
{
    const CTestHome l_Home;
    const std::string l_strFile = l_Home.Path("results");
    if (const char* l_pszFile = getenv("TORNVAL_TEST_RESULTS")) {
        // The host that is started below: its first file is descriptor 1.
        const int l_lFile = open(l_pszFile, O_WRONLY | O_CREAT, 0666);
        CTraceLogConsole(k_usAll).WriteLine(L"trace");
        _exit(l_lFile == STDOUT_FILENO ? 7 : 1);
    }
    const pid_t l_lPid = fork();
    if (l_lPid == 0) {
        setenv("TORNVAL_TEST_RESULTS", l_strFile.c_str(), 1);
        close(STDOUT_FILENO);
        execl("/proc/self/exe", "host", "--gtest_filter=Trace.WritesToNoFile*", nullptr);
        _exit(2);
    }
    int l_lStatus = 0;
    ASSERT_EQ(waitpid(l_lPid, &l_lStatus, 0), l_lPid);
    EXPECT_EQ(WEXITSTATUS(l_lStatus), 7);
    EXPECT_EQ(l_Home.Read("results"), "");
}

TEST(Trace, FollowsNoSymbolicLinkAndSaysSo)
{
    const CTestHome l_Home;
    l_Home.Write("mine", "precious");
    std::filesystem::create_symlink(l_Home.Path("mine"), l_Home.Path("log_tornval.txt"));
    cecore::ForgetReasons();
    UseFile(k_usAll);
    Trace(ERROR_LEVEL, L"lost");
    EXPECT_EQ(l_Home.Read("mine"), "precious");
    CECORE_REASON l_Reason{};
    EXPECT_EQ(CeGetReasons(&l_Reason, 1), 1U);
    EXPECT_NE(std::string(l_Reason.text).find("log_tornval.txt"), std::string::npos);
    SetTraceLog(nullptr);
}

#ifdef TORNVAL_TELLS_STACK
TEST(Trace, TakesLittleOfItsThreadsStack)
{
    const CTestHome l_Home;
    const std::string l_strLong(3000, 'x');
    testing::internal::CaptureStdout();
    for (const bool l_bFile : {true, false}) {
        l_bFile ? UseFile(k_usAll) : SetTraceLog(std::make_unique<CTraceLogConsole>(k_usAll));
        const auto l_lTaken =
            StackTaken([&] { Trace(INFO_LEVEL, L"%S %f %d", l_strLong.c_str(), 1e300, -5); });
        EXPECT_LE(l_lTaken, 10752) << l_bFile;
        EXPECT_GT(l_lTaken, 8192) << "it was measured";
    }
    testing::internal::GetCapturedStdout();
    SetTraceLog(nullptr);
}
#endif

TEST(Trace, NeverMixesTheLinesOfThreads)
{
    const CTestHome l_Home;
    UseFile(k_usAll);
    std::vector<std::thread> l_vThreads;
    std::vector<std::string> l_vstrExpected;
    for (int i = 0; i < 8; ++i) {
        const std::string l_strText(static_cast<size_t>(i) * 250 + 1, static_cast<char>('a' + i));
        l_vstrExpected.insert(l_vstrExpected.end(), 200, l_strText + " [FW_LEVEL]");
        l_vThreads.emplace_back([l_strText] {
            for (int l_lLine = 0; l_lLine < 200; ++l_lLine) {
                Trace(FW_LEVEL, L"%S", l_strText.c_str());
            }
        });
    }
    for (std::thread& l_Thread : l_vThreads) {
        l_Thread.join();
    }
    std::vector<std::string> l_vstrLines = l_Home.TraceLines();
    std::sort(l_vstrLines.begin(), l_vstrLines.end());
    EXPECT_TRUE(l_vstrLines == l_vstrExpected);
}
