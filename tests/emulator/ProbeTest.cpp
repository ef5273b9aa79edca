#include "Frames.h"

#include "TornvalLinks.h"
#include "links/probe/ProbeLink.h"
#include "platform/Api.h"

#include <gtest/gtest.h>

#include <array>

using namespace emulator;

namespace {

/** A probe link, and the calls of a driver on it. */
struct S_PROBE_TEST
{
    links::CProbeLink Link{{"test", "bt", IOCTL_PBT_SEND_COMMAND, IOCTL_PBT_GET_RESULT}};
    uint32_t ulCount = 0;
    std::array<uint8_t, 8> aucAck{};

    uint32_t Send(uint8_t i_ucCmdeID, const Bytes& i_vPayload = {})
    {
        Bytes l_vCommand(12);
        l_vCommand[1] = i_ucCmdeID;
        wire::PutNumber(l_vCommand, 8, 4, static_cast<uint32_t>(i_vPayload.size()));
        l_vCommand.insert(l_vCommand.end(), i_vPayload.begin(), i_vPayload.end());
        l_vCommand.push_back(0xCC);
        return Link.Control({PROBE_LINK_CONSTANT, IOCTL_PBT_SEND_COMMAND, l_vCommand.data(),
                             static_cast<uint32_t>(l_vCommand.size()), aucAck.data(), 8, &ulCount});
    }
    Bytes Fetch()
    {
        Bytes l_vReply(wire::GetNumber(aucAck, 4, 4));
        Link.Control({PROBE_LINK_CONSTANT, IOCTL_PBT_GET_RESULT, aucAck.data() + 4, 4,
                      l_vReply.data(), static_cast<uint32_t>(l_vReply.size()), &ulCount});
        l_vReply.resize(ulCount);
        return l_vReply;
    }
};

} // namespace

TEST(Probe, RollsOnOneChannelThenOnTwo)
{
    S_PROBE_TEST l_Test;
    EXPECT_EQ(l_Test.Send(34), 0U) << "not open yet";
    EXPECT_EQ(cecore::GetLastError(), 21U);
    ASSERT_EQ(l_Test.Link.Open(), 1U);
    using S_ROW = CRecording::S_ROW;
    l_Test.Link.Probe().SetRecording(std::make_shared<const CRecording>(
        std::vector<S_ROW>{S_ROW{0, 7, 1, 0}, S_ROW{1, 8, 5, 0}, S_ROW{2, 9, 100, 0}}));
    const struct
    {
        uint32_t ulRows;
        Bytes vPayload, vReply;
    } l_aCases[] = {
        {3, {}, {33, 0, 0, 0, 0}}, // nothing runs
        {3, {1, 0, 0, 0}, {32, 0, 0, 0, 0}},
        // 1000 low, 5000 high (312.5 rounds up), 100000 beyond the high range.
        {3, {}, {33, 6, 0, 0, 0x03, 0xE8, 0x21, 0x39, 0x2F, 0xFF, 0}},
        {1, {1, 0, 0, 0, 3, 0, 0, 0}, {64, 0, 0, 0, 0}},
        {1, {}, {33, 4, 0, 0, 0x03, 0xE8, 0x21, 0xB6, 0}},
        {1, {}, {34, 0, 0, 0, 0}},
        {1, {}, {33, 0, 0, 0, 0}},
        {1, {}, {16}},
    };
    for (const auto& l_Case : l_aCases) {
        l_Test.Link.Probe().SetRows(l_Case.ulRows);
        ASSERT_EQ(l_Test.Send(l_Case.vReply[0], l_Case.vPayload), 1U);
        EXPECT_EQ(l_Test.Fetch(), l_Case.vReply);
        EXPECT_EQ(l_Test.Fetch(), l_Case.vReply) << "a second fetch repeats the first";
    }
    EXPECT_EQ(l_Test.Link.Close(), 1U);
    EXPECT_EQ(l_Test.Link.Close(), 0U);
}

TEST(Probe, FailsAsItIsTold)
{
    S_PROBE_TEST l_Test;
    const struct
    {
        const char* pszFault;
        uint32_t ulError; // of the send
        uint32_t ulAck;
        Bytes vReply;
    } l_aCases[] = {
        {"status=44*1", 0, 8, {22, 2, 0, 44, 0xAA, 0xBB, 0}},
        {"data-size=0x1234*1", 0, 8, {22, 0x34, 0x12, 0, 0xAA, 0xBB, 0}},
        {"short=3*1", 0, 8, {22, 2, 0}},
        {"corrupt=1*1", 0, 8, {22, 2, 0, 0, 0xFF, 0xBB, 0}},
        {"fetch-fails=31*1", 0, 8, {}},
        {"ack=7*1", 0, 7, {22, 2, 0, 0, 0xAA, 0xBB, 0}},
        {"no-answer*1", 1460, 0, {}},
        {"clear", 0, 8, {22, 2, 0, 0, 0xAA, 0xBB, 0}},
    };
    l_Test.Link.Probe().Faults().Dial(E_FAULT::NoOpen, 5, 1);
    EXPECT_EQ(l_Test.Link.Open(), 0U);
    EXPECT_EQ(cecore::GetLastError(), 5U);
    ASSERT_EQ(l_Test.Link.Open(), 1U);
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.pszFault);
        std::string l_strError;
        ASSERT_TRUE(l_Test.Link.Probe().Configure(l_Case.pszFault, l_strError)) << l_strError;
        SetLastError(0);
        EXPECT_EQ(l_Test.Send(22, {0xAA, 0xBB}), l_Case.ulError == 0 ? 1U : 0U);
        EXPECT_EQ(cecore::GetLastError(), l_Case.ulError);
        EXPECT_EQ(l_Test.ulCount, l_Case.ulAck);
        EXPECT_EQ(l_Test.Fetch(), l_Case.vReply);
    }
}
