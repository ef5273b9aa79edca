#include "LinkExchange.h"

#include "links/virtual/VirtualLink.h"

#include <gtest/gtest.h>

#include <thread>

using namespace emulator;

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
    std::this_thread::sleep_for(100ms);
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
    EXPECT_EQ(l_Exchange.Value(), 9008U);
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
    EXPECT_LT(std::chrono::steady_clock::now() - l_Start, 5s);
    EXPECT_EQ(l_Late.Send(Request(212, {1})), 6U);
}
