#include "LinkExchange.h"

#include "links/virtual/VirtualLink.h"

#include <gtest/gtest.h>

using namespace emulator;

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
    EXPECT_TRUE(l_Exchange.Fetch().empty());
    EXPECT_EQ(cecore::GetLastError(), 21U) << "there is no other answer";
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
