// The shared library as a host has it: loaded, used, unloaded, again and again.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
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

/** A forked copy of a process with threads loses what they had in hand: no leak of ours. */
static bool s_bLeakCheckOff = false;
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() // NOLINT
{
    return s_bLeakCheckOff ? 1 : 0;
}

namespace {

/** The library for the life of this object. */
class CLibrary
{
public:
    CLibrary() : m_pHandle(dlopen(TORNVAL_LIBRARY, RTLD_NOW | RTLD_LOCAL))
    {
        if (m_pHandle == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;
    ~CLibrary() { dlclose(m_pHandle); }

    template <typename F>
    F* Get(const char* i_pszName) const
    {
        void* l_pAddress = dlsym(m_pHandle, i_pszName);
        F* l_pFn = nullptr;
        std::memcpy(&l_pFn, &l_pAddress, sizeof(l_pFn));
        return l_pFn;
    }

private:
    void* m_pHandle;
};

#define ENTRY(i_Library, i_Name) (i_Library).Get<decltype(i_Name)>(#i_Name)

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

std::string RealConfiguration()
{
    const std::string l_strLibrary = TORNVAL_LIBRARY;
    return "[IM]\nDRIVER_NAME=" + l_strLibrary.substr(0, l_strLibrary.rfind("/lib/")) +
           "/links/virtual_link.so\n[LOG]\nENABLE=1\nLEVEL=4369\n";
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
    const CTestHome l_Home("[IM]\nSIMU=1\n[LOG]\nENABLE=1\nLEVEL=4369\n");
    for (int i = 0; i < 5; ++i) {
        {
            const CLibrary l_Library;
            EXPECT_EQ(ENTRY(l_Library, LoadMeasDrivers)(0x11), Done(ROUTER, LOAD));
            S_DRIVER_INFO l_Info{};
            uint32_t l_ulCount = 0;
            ENTRY(l_Library, EnumMeasDrivers)(&l_Info, 1, &l_ulCount);
            // Unloading resets the process-wide counters with everything else.
            EXPECT_EQ(l_Info.ulDriverID, 4000U);
        }
        EXPECT_FALSE(IsLoaded());
    }
}

TEST(Library, UnloadsInTheMiddleOfNothing)
{
    const CTestHome l_Home;
    {
        const CLibrary l_Library;
    }
    EXPECT_FALSE(IsLoaded());
}

TEST(Library, GivesTheLinkLibraryBack)
{
    const CTestHome l_Home(RealConfiguration());
    const std::string l_strLibrary = TORNVAL_LIBRARY;
    const std::string l_strLink =
        l_strLibrary.substr(0, l_strLibrary.rfind("/lib/")) + "/links/virtual_link.so";
    {
        const CLibrary l_Library;
        EXPECT_EQ(ENTRY(l_Library, LoadMeasDrivers)(0x11).ulStatus, 0U);
        EXPECT_TRUE(IsLoaded(l_strLink.c_str()));
    }
    EXPECT_FALSE(IsLoaded(l_strLink.c_str()));
    EXPECT_FALSE(IsLoaded());
}

TEST(Library, LetsAProcessEndWithDriversLoadedAndThreadsInside)
{
    const CTestHome l_Home(RealConfiguration());
    EXPECT_EQ(ExitCodeOf([] {
                  static const CLibrary s_Library;
                  if (ENTRY(s_Library, LoadMeasDrivers)(0x11).ulStatus != 0) {
                      return 1;
                  }
                  for (int i = 0; i < 3; ++i) {
                      std::thread([] {
                          int32_t l_lValue = 0;
                          while (ENTRY(s_Library, GetInstantMeasure)(&l_lValue, 1).ulStatus == 0) {
                          }
                          pause();
                      }).detach();
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(50));
                  return 7;
              }),
              7);
}

TEST(Library, TracesForThreadsThatRunOnAtTheEnd)
{
    // One run in twenty of a logger that goes too early is clean.
    for (int l_lRun = 0; l_lRun < 10; ++l_lRun) {
        const CTestHome l_Home("[IM]\nSIMU=1\n[LOG]\nENABLE=1\nLEVEL=4369\n");
        EXPECT_EQ(ExitCodeOf([&] {
                      std::filesystem::current_path(l_Home.Path(""));
                      static const CLibrary& s_Library = *new CLibrary();
                      ENTRY(s_Library, LoadMeasDrivers)(0x11);
                      for (int i = 0; i < 3; ++i) {
                          std::thread([] {
                              S_SEND_STRUCT l_Cmde{};
                              S_RECEIVE_STRUCT l_Receive{};
                              while (true) {
                                  ENTRY(s_Library, SendMeasBoardCmd)
                                  (1, &l_Cmde, &l_Receive, nullptr);
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
                  static const CLibrary& s_Library = *new CLibrary();
                  for (int i = 0; i < 5; ++i) {
                      if (ENTRY(s_Library, LoadMeasDrivers)(0x10).ulStatus != 0) {
                          return 1;
                      }
                  }
                  std::thread([] {
                      int32_t l_lValue = 0;
                      ENTRY(s_Library, GetInstantMeasure)(&l_lValue, 1);
                      pause();
                  }).detach();
                  std::this_thread::sleep_for(std::chrono::milliseconds(100));
                  return 7;
              }),
              7);
    unsetenv("TORNVAL_EMULATOR_BOARD");
    EXPECT_LT(std::chrono::steady_clock::now() - l_Begin, std::chrono::milliseconds(2500));
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
                  const CLibrary l_Library;
                  ASSERT_EQ(ENTRY(l_Library, LoadMeasDrivers)(0x11).ulStatus, 0U);
              }),
              k_llSmallestLeak);
    const CLibrary l_Library;
    EXPECT_LT(l_fnHeap([&] { ENTRY(l_Library, LoadMeasDrivers)(0x11); }), k_llSmallestLeak);
}

TEST(Library, RefusesACallAfterItsEnd)
{
    const CTestHome l_Home(RealConfiguration());
    EXPECT_EQ(ExitCodeOf([] {
                  static const auto* s_pLibrary = new CLibrary();
                  // Registered before the first call, so it runs when the drivers are gone.
                  std::atexit([] {
                      const S_RESULT l_Result = ENTRY(*s_pLibrary, LoadMeasDrivers)(0x11);
                      _exit(l_Result == Failed(ROUTER, LOAD) ? 7 : 2);
                  });
                  return ENTRY(*s_pLibrary, LoadMeasDrivers)(0x11).ulStatus == 0 ? 0 : 1;
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
                      static const CLibrary& s_Library = *new CLibrary();
                      static int32_t s_lValue = 0;
                      if (ENTRY(s_Library, LoadMeasDrivers)(0x11).ulStatus != 0) {
                          return 1;
                      }
                      // A thread is inside, and may hold any lock, at the moment of each fork.
                      std::thread([] {
                          S_DRIVER_INFO l_Info{};
                          uint32_t l_ulCount = 0;
                          while (ENTRY(s_Library, EnumMeasDrivers)(&l_Info, 1, &l_ulCount) == 1) {
                          }
                      }).detach();
                      for (int i = 0; i < 8; ++i) {
                          const int l_lChild = ExitCodeOf([] {
                              s_bLeakCheckOff = true;
                              ENTRY(s_Library, GetInstantMeasure)(&s_lValue, 1);
                              return ENTRY(s_Library, GetInstantMeasure)(&s_lValue, 1).ulStatus == 1
                                         ? 7
                                         : 2;
                          });
                          if (l_lChild != 7) {
                              return 3;
                          }
                      }
                      return ENTRY(s_Library, GetInstantMeasure)(&s_lValue, 1).ulStatus == 0 ? 7
                                                                                             : 4;
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

TEST(Library, HoldsTheRecordingInLittleMemory)
{
    const CTestHome l_Home("[IM]\nSIMU=1\nDAT_SIMU_FILE=" TORNVAL_RECORDING "\n");
    std::vector<int32_t> l_vlData(903);
    char l_acRaw[900];
    int32_t l_lSize = 0;
    const size_t l_ulBefore = ResidentBytes();
    const CLibrary l_Library;
    ASSERT_EQ(ENTRY(l_Library, LoadMeasDrivers)(0x10).ulStatus, 0U);
    S_SEND_STRUCT l_Cmde{};
    l_Cmde.CmdeID = 211;
    S_RECEIVE_STRUCT l_Receive{};
    ENTRY(l_Library, SendMeasBoardCmd)(4000, &l_Cmde, &l_Receive, nullptr);
    ENTRY(l_Library, GetMeasBoardResult)(4000, 900, l_acRaw, &l_lSize, l_vlData.data(), 0);
    ASSERT_EQ(l_lSize, 900);
    EXPECT_LT(ResidentBytes() - l_ulBefore, size_t{20} << 20);
}
