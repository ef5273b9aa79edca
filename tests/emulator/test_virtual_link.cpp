#include "LinkExchange.h"

#include "links/virtual/VirtualLink.h"

#include <gtest/gtest.h>

#include <thread>

using namespace emulator;

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
                S_LINK_EXCHANGE l_Board{l_Link};
                EXPECT_EQ(l_Board.Send(Request(212, {l_ulVoie})), 0U);
                EXPECT_TRUE(l_Board.Wait());
                const Bytes l_vAnswer = l_Board.Fetch();
                EXPECT_EQ(l_vAnswer.size(), 26U);
                EXPECT_EQ(At(l_vAnswer, 22), 1000 * (l_ulVoie + 1) + l_ulVoie);
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        S_LINK_EXCHANGE l_Module{l_Link, l_ulHandle};
        EXPECT_EQ(l_Module.Send(Request(0xA1, {1})), 0U);
        EXPECT_TRUE(l_Module.Wait());
        EXPECT_EQ(At(l_Module.Fetch(), 18), 123456U);
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
        S_LINK_EXCHANGE l_Late{l_Link};
        ASSERT_EQ(l_Late.Send(Request(212, {1})), 0U);
        EXPECT_FALSE(l_Late.Wait(1ms));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    S_LINK_EXCHANGE l_Next{l_Link};
    l_Next.ucCmdeID = 212;
    EXPECT_TRUE(l_Next.Fetch().empty()) << "its event is gone";
    EXPECT_EQ(cecore::GetLastError(), 21U);

    ASSERT_EQ(l_Next.Send(Request(212, {2})), 0U);
    EXPECT_TRUE(l_Next.Wait());
    // Not fetched: the next send with the same event drops it.
    ASSERT_EQ(l_Next.Send(Request(212, {3})), 0U);
    EXPECT_TRUE(l_Next.Wait());
    S_LINK_EXCHANGE l_Last{l_Link};
    ASSERT_EQ(l_Last.Send(Request(212, {4})), 0U);
    EXPECT_TRUE(l_Last.Wait());
    // The newest first: what was sent before it is left for those who wait for that.
    EXPECT_EQ(At(l_Last.Fetch(), 18), 4U);
    EXPECT_EQ(At(l_Last.Fetch(), 18), 3U);
    EXPECT_TRUE(l_Last.Fetch().empty());
}

TEST(VirtualLink, ASecondCommandOnAnEventTakesItOver)
{
    links::CVirtualLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    S_LINK_EXCHANGE l_Exchange{l_Link};
    l_Link.Board().Faults().Dial(E_FAULT::Late, 50, 1);
    ASSERT_EQ(l_Exchange.Send(Request(212, {5})), 0U);
    ASSERT_EQ(l_Exchange.Send(Request(212, {6})), 0U);
    EXPECT_TRUE(l_Exchange.Wait());
    EXPECT_EQ(At(l_Exchange.Fetch(), 18), 6U);
    EXPECT_FALSE(l_Exchange.Wait(150ms)) << "the late one announced itself all the same";

    // The event still stands from the first command: the fetch waits for the answer to the second.
    ASSERT_EQ(l_Exchange.Send(Request(212, {7})), 0U);
    EXPECT_TRUE(l_Exchange.Wait());
    ASSERT_TRUE(SetEvent(l_Exchange.Event.Get()));
    l_Link.Board().Faults().Dial(E_FAULT::Late, 50, 1);
    ASSERT_EQ(l_Exchange.Send(Request(212, {8})), 0U);
    EXPECT_TRUE(l_Exchange.Wait());
    EXPECT_EQ(At(l_Exchange.Fetch(), 18), 8U);
}

TEST(VirtualLink, ClosesInBoundedTimeWithAnswersUnderWay)
{
    links::CVirtualLink l_Link;
    ASSERT_EQ(l_Link.Open(k_OpenBoard), 1U);
    l_Link.Board().Faults().Dial(E_FAULT::Late, 60000);
    S_LINK_EXCHANGE l_Late{l_Link};
    ASSERT_EQ(l_Late.Send(Request(212, {1})), 0U);
    const auto l_Start = std::chrono::steady_clock::now();
    EXPECT_EQ(l_Link.Close(0), 1U);
    EXPECT_LT(std::chrono::steady_clock::now() - l_Start, std::chrono::seconds(5));
    EXPECT_EQ(l_Late.Send(Request(212, {1})), 6U);
}
