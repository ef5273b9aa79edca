#include "platform/Sync.h"

#include <atomic>
#include <csignal>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Process.h"

using namespace cecore;

namespace {

/** What a wait gives in a thread of its own. */
uint32_t WaitElsewhere(Handle i_hObject, uint32_t i_ulMilliseconds)
{
    uint32_t l_ulResult = 1;
    std::thread([&] { l_ulResult = WaitForSingleObject(i_hObject, i_ulMilliseconds); }).join();
    return l_ulResult;
}

} // namespace

TEST(Handles, AClosedOneReachesNoOther)
{
    const uint32_t l_ulBefore = GetOpenHandleCount();
    std::set<Handle> l_Closed;
    for (int i = 0; i < 2000; ++i) {
        const Handle l_hEvent = CreateEventW(false, false);
        ASSERT_TRUE(l_hEvent != 0 && l_hEvent != INVALID_HANDLE_VALUE);
        ASSERT_TRUE(l_Closed.insert(l_hEvent).second) << "given out twice";
        ASSERT_TRUE(CloseHandle(l_hEvent) && !CloseHandle(l_hEvent));
    }
    std::vector<CUniqueHandle> l_vOpen(600);
    for (CUniqueHandle& l_hEvent : l_vOpen) {
        l_hEvent.Reset(CreateEventW(false, false));
    }
    for (const Handle l_hLate : l_Closed) {
        SetLastError(0);
        ASSERT_EQ(SetEvent(l_hLate), 0);
        ASSERT_EQ(GetLastError(), CECORE_ERROR_INVALID_HANDLE);
    }
    for (const CUniqueHandle& l_hEvent : l_vOpen) {
        ASSERT_EQ(WaitForSingleObject(l_hEvent.Get(), 0), WAIT_TIMEOUT);
    }
    l_vOpen.clear();
    EXPECT_EQ(GetOpenHandleCount(), l_ulBefore);

    const CUniqueHandle l_hMutex(CreateMutexW(false));
    const CUniqueHandle l_hEvent(CreateEventW(false, false));
    EXPECT_FALSE(SetEvent(l_hMutex.Get()) != 0 || SetEvent(0) != 0 || SetEvent(~0U) != 0 ||
                 ReleaseMutex(l_hEvent.Get()) || ReadFile(l_hMutex.Get(), nullptr, 1, nullptr));
    EXPECT_EQ(WaitForSingleObject(0, 0), WAIT_FAILED);
}

TEST(Waits, EndWhenTheObjectIsClosed)
{
    S_PROCESS_INFORMATION l_Process{};
    ASSERT_TRUE(CreateProcessW(L"\\bin\\sleep", L"300", &l_Process));
    for (const Handle l_hObject :
         {CreateEventW(false, false), CreateMutexW(true), l_Process.hProcess}) {
        std::atomic<uint32_t> l_ulResult = 1;
        uint32_t l_ulError = 0;
        std::thread l_Waiter([&] {
            l_ulResult = WaitForSingleObject(l_hObject, INFINITE);
            l_ulError = GetLastError();
        });
        Sleep(20);
        // A waiter without a limit keeps no other from its own.
        EXPECT_EQ(WaitElsewhere(l_hObject, 20), WAIT_TIMEOUT);
        EXPECT_EQ(l_ulResult, 1U);
        EXPECT_TRUE(CloseHandle(l_hObject));
        l_Waiter.join();
        EXPECT_EQ(l_ulResult, WAIT_FAILED);
        EXPECT_EQ(l_ulError, CECORE_ERROR_INVALID_HANDLE);
    }
    kill(static_cast<pid_t>(l_Process.ulProcessId), SIGKILL);
}

TEST(Mutexes, AreHeldAsOftenAsTakenAndByOneThread)
{
    const CUniqueHandle l_hMutex(CreateMutexW(true));
    EXPECT_EQ(WaitForSingleObject(l_hMutex.Get(), INFINITE), WAIT_OBJECT_0) << "taken again";
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(WaitElsewhere(l_hMutex.Get(), 5), WAIT_TIMEOUT) << i;
        std::thread([&] {
            EXPECT_FALSE(ReleaseMutex(l_hMutex.Get()));
            EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
        }).join();
        EXPECT_TRUE(ReleaseMutex(l_hMutex.Get()));
    }
    EXPECT_FALSE(ReleaseMutex(l_hMutex.Get()));
    EXPECT_EQ(WaitElsewhere(l_hMutex.Get(), 0), WAIT_OBJECT_0);
}

TEST(Events, ServeOneWaiterOrAll)
{
    for (const bool l_bManual : {false, true}) {
        const CUniqueHandle l_hEvent(CreateEventW(l_bManual, false));
        std::atomic<int> l_lServed = 0;
        std::vector<std::thread> l_vThreads(4);
        for (std::thread& l_Thread : l_vThreads) {
            l_Thread = std::thread([&] {
                const uint32_t l_ulLimit = l_bManual ? INFINITE : 400;
                l_lServed +=
                    WaitForSingleObject(l_hEvent.Get(), l_ulLimit) == WAIT_OBJECT_0 ? 1 : 0;
            });
        }
        Sleep(50);
        EXPECT_EQ(SetEvent(l_hEvent.Get()), 1);
        for (std::thread& l_Thread : l_vThreads) {
            l_Thread.join();
        }
        EXPECT_EQ(l_lServed, l_bManual ? 4 : 1);
        // A signal before the wait is kept, and consumed once.
        SetEvent(l_hEvent.Get());
        EXPECT_EQ(WaitForSingleObject(l_hEvent.Get(), 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(l_hEvent.Get(), 0), l_bManual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
    }
}
