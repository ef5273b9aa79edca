#include "Frames.h"
#include "TestHome.h"

#include "TornvalLinks.h"
#include "links/virtual/VirtualLink.h"
#include "platform/Api.h"
#include "platform/Sync.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <chrono>
#include <functional>
#include <thread>

using namespace emulator;

namespace {

constexpr links::CVirtualLink::S_OPEN k_OpenBoard{1, RS_LINK_CONSTANT, 460800, 8};
constexpr links::CVirtualLink::S_OPEN k_OpenModule{2, RS_LINK_CONSTANT, 115200, 8};

using PFN_CONTROL =
    std::function<uint32_t(uint32_t, const void*, uint32_t, void*, uint32_t, uint32_t*)>;

PFN_CONTROL On(links::CVirtualLink& i_Link, uint32_t i_ulHandle = 0)
{
    return [&i_Link, i_ulHandle](uint32_t code, const void* in, uint32_t in_size, void* out,
                                 uint32_t out_size, uint32_t* count) {
        return i_Link.Control({RS_LINK_CONSTANT, code, in, in_size, out, out_size, count},
                              i_ulHandle);
    };
}

/** Sends a frame with an event of its own. */
struct S_EXCHANGE
{
    PFN_CONTROL Control;
    cecore::CUniqueHandle Event{cecore::CreateEventW(false, false)};
    uint8_t ucCmdeID = 0;
    Bytes vBlock = Bytes(RS_BLOCK_SIZE);

    uint32_t Send(const Bytes& i_vFrame)
    {
        ucCmdeID = i_vFrame[k_ulCmdeOffset];
        std::copy(i_vFrame.begin(), i_vFrame.end(), vBlock.begin());
        PutNumber(vBlock, RS_BLOCK_EVENT_OFFSET, 4, Event.Get());
        uint32_t l_ulStatus = 0xFFFFFFFF;
        uint32_t l_ulCount = 0;
        const uint32_t l_ulDone = Control(IOCTL_RS_SEND_COMMAND, vBlock.data(), RS_BLOCK_SIZE,
                                          &l_ulStatus, 4, &l_ulCount);
        return l_ulDone == 1 && l_ulCount == 4 ? l_ulStatus : 0xFFFFFFFF;
    }

    bool Wait(uint32_t i_ulMilliseconds = 5000) const
    {
        return cecore::WaitForSingleObject(Event.Get(), i_ulMilliseconds) == 0;
    }

    /** The bytes delivered; empty if the fetch failed. */
    Bytes Fetch()
    {
        const uint8_t l_aucEcho[2] = {ucCmdeID, 0};
        uint32_t l_ulCount = 0;
        if (Control(IOCTL_RS_GET_RESULT, l_aucEcho, 2, vBlock.data(), RS_BLOCK_SIZE, &l_ulCount) ==
            0) {
            return {};
        }
        return {vBlock.begin(), vBlock.begin() + l_ulCount};
    }
};

} // namespace

TEST(VirtualLink, ParallelMeasuresGetTheirOwnAnswers)
{
    links::CVirtualLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    EXPECT_EQ(l_Link.Open(k_OpenBoard), 0U);
    EXPECT_EQ(cecore::GetLastError(), 170U);
    uint32_t l_ulHandle = 0;
    ASSERT_EQ(l_Link.OpenEx(k_OpenModule, &l_ulHandle), 1U);
    ASSERT_NE(l_ulHandle, 0U);
    std::vector<std::thread> l_vThreads;
    for (uint32_t l_ulVoie = 0; l_ulVoie < 3; ++l_ulVoie) {
        l_vThreads.emplace_back([&, l_ulVoie] {
            for (int i = 0; i < 200; ++i) {
                S_EXCHANGE l_Board{On(l_Link)};
                EXPECT_EQ(l_Board.Send(Request(212, {l_ulVoie})), 0U);
                EXPECT_TRUE(l_Board.Wait());
                const Bytes l_vAnswer = l_Board.Fetch();
                EXPECT_EQ(l_vAnswer.size(), 30U);
                EXPECT_EQ(At(l_vAnswer, 26), 1000 * (l_ulVoie + 1) + l_ulVoie);
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        S_EXCHANGE l_Module{On(l_Link, l_ulHandle)};
        EXPECT_EQ(l_Module.Send(Request(0xA1, {1})), 0U);
        EXPECT_TRUE(l_Module.Wait());
        EXPECT_EQ(At(l_Module.Fetch(), 22), 123456U);
    }
    for (std::thread& l_Thread : l_vThreads) {
        l_Thread.join();
    }
    EXPECT_EQ(l_Link.Close(l_ulHandle), 1U);
    EXPECT_EQ(l_Link.Close(l_ulHandle), 0U);
    EXPECT_EQ(cecore::GetLastError(), 6U);
}

TEST(VirtualLink, AbandonedAnswersReachNobody)
{
    links::CVirtualLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    l_Link.Board().Faults().Dial(E_FAULT::Late, 50, 1);
    {
        S_EXCHANGE l_Late{On(l_Link)};
        ASSERT_EQ(l_Late.Send(Request(212, {1})), 0U);
        EXPECT_FALSE(l_Late.Wait(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    S_EXCHANGE l_Next{On(l_Link)};
    l_Next.ucCmdeID = 212;
    EXPECT_TRUE(l_Next.Fetch().empty()) << "its event is gone";
    EXPECT_EQ(cecore::GetLastError(), 21U);

    ASSERT_EQ(l_Next.Send(Request(212, {2})), 0U);
    EXPECT_TRUE(l_Next.Wait());
    // Not fetched: the next send with the same event drops it.
    ASSERT_EQ(l_Next.Send(Request(212, {3})), 0U);
    EXPECT_TRUE(l_Next.Wait());
    S_EXCHANGE l_Last{On(l_Link)};
    ASSERT_EQ(l_Last.Send(Request(212, {4})), 0U);
    EXPECT_TRUE(l_Last.Wait());
    // The newest first: what was sent before it is left for those who wait for that.
    EXPECT_EQ(At(l_Last.Fetch(), 22), 4U);
    EXPECT_EQ(At(l_Last.Fetch(), 22), 3U);
    EXPECT_TRUE(l_Last.Fetch().empty());
}

TEST(VirtualLink, ASecondCommandOnAnEventTakesItOver)
{
    links::CVirtualLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    S_EXCHANGE l_Exchange{On(l_Link)};
    l_Link.Board().Faults().Dial(E_FAULT::Late, 50, 1);
    ASSERT_EQ(l_Exchange.Send(Request(212, {5})), 0U);
    ASSERT_EQ(l_Exchange.Send(Request(212, {6})), 0U);
    EXPECT_TRUE(l_Exchange.Wait());
    EXPECT_EQ(At(l_Exchange.Fetch(), 22), 6U);
    EXPECT_FALSE(l_Exchange.Wait(150)) << "the late one announced itself all the same";

    // The event still stands from the first command: the fetch waits for the answer to the second.
    ASSERT_EQ(l_Exchange.Send(Request(212, {7})), 0U);
    EXPECT_TRUE(l_Exchange.Wait());
    ASSERT_TRUE(SetEvent(l_Exchange.Event.Get()));
    l_Link.Board().Faults().Dial(E_FAULT::Late, 50, 1);
    ASSERT_EQ(l_Exchange.Send(Request(212, {8})), 0U);
    EXPECT_TRUE(l_Exchange.Wait());
    EXPECT_EQ(At(l_Exchange.Fetch(), 22), 8U);
}

TEST(VirtualLink, ClosesInBoundedTimeWithAnswersUnderWay)
{
    links::CVirtualLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    l_Link.Board().Faults().Dial(E_FAULT::Late, 60000);
    S_EXCHANGE l_Late{On(l_Link)};
    ASSERT_EQ(l_Late.Send(Request(212, {1})), 0U);
    const auto l_Start = std::chrono::steady_clock::now();
    EXPECT_EQ(l_Link.Close(0), 1U);
    EXPECT_LT(std::chrono::steady_clock::now() - l_Start, std::chrono::seconds(5));
    EXPECT_EQ(l_Late.Send(Request(212, {1})), 0xFFFFFFFFU);
    EXPECT_EQ(cecore::GetLastError(), 6U);
}

TEST(VirtualLink, FailsAsItIsTold)
{
    links::CVirtualLink l_Link;
    CFaults& l_Faults = l_Link.Board().Faults();
    l_Faults.Dial(E_FAULT::NoOpen, 5, 1);
    EXPECT_EQ(l_Link.Open(k_OpenBoard), 0U);
    EXPECT_EQ(cecore::GetLastError(), 5U);
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    S_EXCHANGE l_Exchange{On(l_Link)};
    l_Faults.Dial(E_FAULT::SendFails, 31, 1);
    EXPECT_EQ(l_Exchange.Send(Request(210)), 0xFFFFFFFFU);
    EXPECT_EQ(cecore::GetLastError(), 31U);
    l_Faults.Dial(E_FAULT::SendStatus, 9, 1);
    EXPECT_EQ(l_Exchange.Send(Request(210)), 9U);
    EXPECT_EQ(l_Link.Board().Counters().ulFramesIn, 0U);

    const auto l_Exchanged = [&] {
        EXPECT_EQ(l_Exchange.Send(Request(210)), 0U);
        EXPECT_TRUE(l_Exchange.Wait());
        return l_Exchange.Fetch();
    };
    l_Faults.Dial(E_FAULT::LinkStatus, 0x102, 1);
    EXPECT_EQ(At(l_Exchanged(), 0), 0x102U);
    l_Faults.Dial(E_FAULT::Count, 11, 1);
    EXPECT_EQ(l_Exchanged().size(), 11U);
    l_Faults.Dial(E_FAULT::FetchFails, 23, 1);
    EXPECT_TRUE(l_Exchanged().empty());
    EXPECT_EQ(l_Exchanged().size(), 22U);
    l_Faults.Dial(E_FAULT::CloseFails, 31, 1);
    EXPECT_EQ(l_Link.Close(0), 0U);
    EXPECT_EQ(l_Link.Close(0), 1U);
}

TEST(VirtualLink, LoadedFromItsFileKeepsTheStoreAndReadsItsSettings)
{
    const CTestHome l_Home;
    setenv("TORNVAL_EMULATOR_STATE", l_Home.Path("state").c_str(), 1);
    setenv("TORNVAL_EMULATOR_CONTROL", l_Home.Path("").c_str(), 1);
    setenv("TORNVAL_EMULATOR_BOARD", "no-open*1, adc=5/77", 1);
    for (const bool l_bFirst : {true, false}) {
        void* l_pLibrary = dlopen(VIRTUAL_LINK, RTLD_NOW);
        ASSERT_NE(l_pLibrary, nullptr) << dlerror();
        const auto l_pfnInit = reinterpret_cast<PFN_RS_INIT>(dlsym(l_pLibrary, "RS_Init"));
        const auto l_pfnControl =
            reinterpret_cast<PFN_RS_DEVICEIOCONTROL>(dlsym(l_pLibrary, "RS_DeviceIoControl"));
        S_EXCHANGE l_Exchange{[&](uint32_t code, const void* in, uint32_t in_size, void* out,
                                  uint32_t out_size, uint32_t* count) {
            return l_pfnControl(RS_LINK_CONSTANT, code, in, in_size, out, out_size, count, 0);
        }};
        const auto l_Exchanged = [&](const Bytes& i_vRequest) {
            EXPECT_EQ(l_Exchange.Send(i_vRequest), 0U);
            EXPECT_TRUE(l_Exchange.Wait());
            return l_Exchange.Fetch();
        };
        EXPECT_EQ(l_pfnInit(1, RS_LINK_CONSTANT, 460800, 8, 0, 0, 0), 0U);
        ASSERT_EQ(l_pfnInit(1, RS_LINK_CONSTANT, 460800, 8, 0, 0, 0), 1U);
        EXPECT_EQ(At(l_Exchanged(Request(208, {1, 0})), 22), l_bFirst ? 10000U : 4321U);
        for (const Bytes& l_vRequest : {Request(215), Request(213, {0, 4321, 0}), Request(214)}) {
            EXPECT_EQ(At(l_Exchanged(l_vRequest), 18), 0U);
        }
        l_Home.Write("board", "error-code=17*1");
        EXPECT_EQ(At(l_Exchanged(Request(212, {5})), 18), 17U);
        EXPECT_EQ(At(l_Exchanged(Request(212, {5})), 26), 77U);
        // An answer is under way when the library goes, and does not keep it.
        l_Home.Write("board", "late=60000");
        EXPECT_EQ(l_Exchange.Send(Request(210)), 0U);
        EXPECT_EQ(dlclose(l_pLibrary), 0);
        EXPECT_EQ(dlopen(VIRTUAL_LINK, RTLD_NOW | RTLD_NOLOAD), nullptr);
    }
}
