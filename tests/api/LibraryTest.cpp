// The shared library as a host has it: loaded, used, unloaded, again and again.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <set>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "trust/Host.h"

/** A forked copy of a process with threads loses what they had in hand: no leak of ours. */
static bool s_bLeakCheckOff = false;
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() // NOLINT
{
    return s_bLeakCheckOff ? 1 : 0;
}

namespace {

bool IsLoaded(const char* i_pszPath = TORNVAL_LIBRARY)
{
    void* l_pHandle = dlopen(i_pszPath, RTLD_NOW | RTLD_NOLOAD);
    if (l_pHandle != nullptr) {
        dlclose(l_pHandle);
    }
    return l_pHandle != nullptr;
}

size_t ResidentBytes()
{
    size_t l_ulTotal = 0, l_ulResident = 0;
    std::ifstream("/proc/self/statm") >> l_ulTotal >> l_ulResident;
    return l_ulResident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

std::string LinkLibrary()
{
    const std::string l_strLibrary = TORNVAL_LIBRARY;
    return l_strLibrary.substr(0, l_strLibrary.rfind("/lib/")) + "/links/virtual_link.so";
}

std::string RealConfiguration()
{
    return "[IM]\nDRIVER_NAME=" + LinkLibrary() + "\n[LOG]\nENABLE=1\nLEVEL=4369\n";
}

/** Runs a host in a process of its own, which ends by exit() with what the host gives. */
template <typename F>
int ExitCodeOf(F&& i_fnHost)
{
    const pid_t l_lPid = fork();
    if (l_lPid == 0) {
        std::exit(i_fnHost());
    }
    int l_lStatus = -1;
    EXPECT_EQ(waitpid(l_lPid, &l_lStatus, 0), l_lPid);
    return WIFEXITED(l_lStatus) ? WEXITSTATUS(l_lStatus) : 1000 + l_lStatus;
}

} // namespace

TEST(Library, UnloadsWithEverythingItHeld)
{
    for (const std::string& l_strConfiguration : {std::string(), RealConfiguration()}) {
        const CTestHome l_Home(l_strConfiguration);
        for (int i = 0; i < 3; ++i) {
            {
                const CHost l_Host;
                if (!l_strConfiguration.empty()) {
                    EXPECT_EQ(l_Host.LoadMeasDrivers_(0x11), Done(ROUTER, LOAD));
                    EXPECT_TRUE(IsLoaded(LinkLibrary().c_str()));
                    S_DRIVER_INFO l_Info{};
                    uint32_t l_ulCount = 0;
                    l_Host.EnumMeasDrivers_(&l_Info, 1, &l_ulCount);
                    // Unloading resets the process-wide counters with everything else.
                    EXPECT_EQ(l_Info.ulDriverID, 4001U);
                }
            }
            EXPECT_FALSE(IsLoaded(LinkLibrary().c_str()) || IsLoaded());
        }
    }
}

TEST(Library, LetsAProcessEndWithThreadsInsideAndTracesToItsLastMoment)
{
    // One run in twenty of a logger that goes too early is clean.
    for (int l_lRun = 0; l_lRun < 4; ++l_lRun) {
        const CTestHome l_Home(RealConfiguration());
        EXPECT_EQ(ExitCodeOf([&] {
                      std::filesystem::current_path(l_Home.Path(""));
                      static const CHost& s_Host = *new CHost();
                      if (s_Host.LoadMeasDrivers_(0x11).ulStatus != 0) {
                          return 1;
                      }
                      for (int i = 0; i < 4; ++i) {
                          std::thread([i] {
                              S_SEND_STRUCT l_Cmde{};
                              S_RECEIVE_STRUCT l_Receive{};
                              int32_t l_lValue = 0;
                              while (true) {
                                  i == 0
                                      ? s_Host.GetInstantMeasure_(&l_lValue, 1)
                                      : s_Host.SendMeasBoardCmd_(1, &l_Cmde, &l_Receive, nullptr);
                              }
                          }).detach();
                      }
                      std::this_thread::sleep_for(std::chrono::milliseconds(5));
                      return 7;
                  }),
                  7);
        std::set<std::string> l_Files;
        for (const auto& l_File : std::filesystem::directory_iterator(l_Home.Path(""))) {
            l_Files.insert(l_File.path().filename());
        }
        EXPECT_EQ(l_Files, (std::set<std::string>{"TornvalC63.ini", "log_tornval.txt"}));
    }
}

TEST(Library, WaitsOnceAtTheEndForACallThatStaysInside)
{
    const CTestHome l_Home(RealConfiguration());
    setenv("TORNVAL_EMULATOR_BOARD", "no-answer@212", 1);
    const auto l_Begin = std::chrono::steady_clock::now();
    EXPECT_EQ(ExitCodeOf([] {
                  static const CHost& s_Host = *new CHost();
                  for (int i = 0; i < 5; ++i) {
                      if (s_Host.LoadMeasDrivers_(0x10).ulStatus != 0) {
                          return 1;
                      }
                  }
                  std::thread([] {
                      int32_t l_lValue = 0;
                      s_Host.GetInstantMeasure_(&l_lValue, 1);
                      pause();
                  }).detach();
                  std::this_thread::sleep_for(std::chrono::milliseconds(100));
                  return 7;
              }),
              7);
    unsetenv("TORNVAL_EMULATOR_BOARD");
    // One wait of a second, not one for each load.
    EXPECT_LT(std::chrono::steady_clock::now() - l_Begin, std::chrono::milliseconds(3900));
    EXPECT_EQ(l_Home.TraceLines().back(),
              "CRouter> ends with 1 calls inside: the drivers are left as "
              "they are [ERROR_LEVEL]");
}

TEST(Library, NeedsNoMoreMemoryFromLoadToLoad)
{
    const CTestHome l_Home(RealConfiguration());
    const auto l_fnHeap = [](const auto& i_fnRun) {
        size_t l_ulBefore = 0;
        for (int i = 0; i < 400; ++i) {
            // What is kept once is there after the first hundred.
            l_ulBefore = i == 100 ? mallinfo2().uordblks : l_ulBefore;
            i_fnRun();
        }
        return static_cast<int64_t>(mallinfo2().uordblks) - static_cast<int64_t>(l_ulBefore);
    };
    // A thread that ends late on a busy machine still has its few hundred bytes; the smallest block
    // that every load left behind would make more.
    constexpr int64_t k_llSmallestLeak = 300 * 16;
    EXPECT_LT(l_fnHeap([] {
                  const CHost l_Host;
                  ASSERT_EQ(l_Host.LoadMeasDrivers_(0x11).ulStatus, 0U);
              }),
              k_llSmallestLeak);
    const CHost l_Host;
    EXPECT_LT(l_fnHeap([&] { l_Host.LoadMeasDrivers_(0x11); }), k_llSmallestLeak);
}

TEST(Library, RefusesACallAfterItsEnd)
{
    const CTestHome l_Home(RealConfiguration());
    EXPECT_EQ(ExitCodeOf([] {
                  static const auto* s_pHost = new CHost();
                  // Registered before the first call, so it runs when the drivers are gone.
                  std::atexit([] {
                      const S_RESULT l_Result = s_pHost->LoadMeasDrivers_(0x11);
                      _exit(l_Result == Failed(ROUTER, LOAD) ? 7 : 2);
                  });
                  return s_pHost->LoadMeasDrivers_(0x11).ulStatus == 0 ? 0 : 1;
              }),
              7);
}

TEST(Library, LeavesTheDriversToTheParentOfAFork)
{
    // The links of the real drivers have threads, which a child has not.
    for (const std::string& l_strConfiguration :
         {std::string("[IM]\nSIMU=1\n[LOG]\nENABLE=1\nLEVEL=4369\n"), RealConfiguration()}) {
        const CTestHome l_Home(l_strConfiguration);
        EXPECT_EQ(ExitCodeOf([] {
                      // Not closed: what a child leaves alone must stay within reach.
                      static const CHost& s_Host = *new CHost();
                      static int32_t s_lValue = 0;
                      if (s_Host.LoadMeasDrivers_(0x11).ulStatus != 0) {
                          return 1;
                      }
                      // A thread is inside, and may hold any lock, at the moment of each fork.
                      std::thread([] {
                          S_DRIVER_INFO l_Info{};
                          uint32_t l_ulCount = 0;
                          while (s_Host.EnumMeasDrivers_(&l_Info, 1, &l_ulCount) == 1) {
                          }
                      }).detach();
                      for (int i = 0; i < 8; ++i) {
                          const int l_lChild = ExitCodeOf([] {
                              s_bLeakCheckOff = true;
                              s_Host.GetInstantMeasure_(&s_lValue, 1);
                              return s_Host.GetInstantMeasure_(&s_lValue, 1).ulStatus == 1 ? 7 : 2;
                          });
                          if (l_lChild != 7) {
                              return 3;
                          }
                      }
                      return s_Host.GetInstantMeasure_(&s_lValue, 1).ulStatus == 0 ? 7 : 4;
                  }),
                  7);
        const std::vector<std::string> l_vstrLines = l_Home.TraceLines();
        EXPECT_EQ(std::count(l_vstrLines.begin(), l_vstrLines.end(),
                             "CRouter> refused in a forked process: the drivers are its parent's "
                             "[ERROR_LEVEL]"),
                  8)
            << "once in each child";
    }
}

TEST(Library, FindsTheConfigurationOfAHostWhosePathIsTooLong)
{
    if (getenv("TORNVAL_TEST_LONG_HOST") != nullptr) {
        _exit(CHost().LoadMeasDrivers_(0x10).ulStatus == 0 ? 7 : 1);
    }
    const CTestHome l_Home("[IM]\nSIMU=1\n");
    // Its folder has room for the configuration's name; the program's own does not fit.
    for (const size_t l_ulLength : {259U, 270U}) {
        const std::string l_strHost =
            l_Home.Path(std::string(l_ulLength - l_Home.Path("").size(), 'h'));
        std::filesystem::copy_file(std::filesystem::read_symlink("/proc/self/exe"), l_strHost);
        const pid_t l_lPid = fork();
        if (l_lPid == 0) {
            unsetenv("TORNVAL_HOME");
            setenv("TORNVAL_TEST_LONG_HOST", "1", 1);
            execl(l_strHost.c_str(), "host", "--gtest_filter=*WhosePathIsTooLong", nullptr);
            _exit(2);
        }
        int l_lStatus = 0;
        ASSERT_EQ(waitpid(l_lPid, &l_lStatus, 0), l_lPid);
        EXPECT_EQ(WEXITSTATUS(l_lStatus), 7) << l_ulLength;
    }
}

TEST(Library, HoldsTheRecordingInLittleMemory)
{
    const CTestHome l_Home("[IM]\nSIMU=1\nDAT_SIMU_FILE=" TORNVAL_RECORDING "\n");
    std::vector<int32_t> l_vlData(903);
    char l_acRaw[900];
    int32_t l_lSize = 0;
    const size_t l_ulBefore = ResidentBytes();
    const CHost l_Host;
    ASSERT_EQ(l_Host.LoadMeasDrivers_(0x10).ulStatus, 0U);
    S_SEND_STRUCT l_Cmde{};
    l_Cmde.CmdeID = 211;
    S_RECEIVE_STRUCT l_Receive{};
    l_Host.SendMeasBoardCmd_(4000, &l_Cmde, &l_Receive, nullptr);
    l_Host.GetMeasBoardResult_(4000, 900, l_acRaw, &l_lSize, l_vlData.data(), 0);
    ASSERT_EQ(l_lSize, 900);
    EXPECT_LT(ResidentBytes() - l_ulBefore, size_t{20} << 20);
}
