/**
 * @file LinkExchange.h
 * @brief Exchanges over a serial link, as a driver makes them.
 */
#pragma once

#include "Frames.h"

#include "TornvalLinks.h"
#include "links/common/RsLink.h"
#include "platform/Api.h"
#include "platform/Sync.h"

#include <algorithm>
#include <chrono>

using namespace std::chrono_literals;

constexpr links::CRsLink::S_OPEN k_OpenBoard{1, RS_LINK_CONSTANT, 460800, 8};
constexpr links::CRsLink::S_OPEN k_OpenModule{2, RS_LINK_CONSTANT, 115200, 8};

/** One command over a link, with an event of its own. */
struct S_LINK_EXCHANGE
{
    links::CRsLink& Link;
    uint32_t ulHandle = 0;
    cecore::CUniqueHandle Event{cecore::CreateEventW(false, false)};
    uint8_t ucCmdeID = 0;
    Bytes vBlock = Bytes(RS_BLOCK_SIZE);

    /** @return 0 accepted; else the last error. */
    uint32_t Send(const Bytes& i_vFrame)
    {
        ucCmdeID = i_vFrame[RS_FRAME_CMDE_OFFSET];
        std::copy(i_vFrame.begin(), i_vFrame.end(), vBlock.begin());
        wire::PutNumber(vBlock, RS_BLOCK_EVENT_OFFSET, 4, Event.Get());
        uint32_t l_ulStatus = 0xFFFFFFFF, l_ulCount = 0;
        if (Link.Control({RS_LINK_CONSTANT, IOCTL_RS_SEND_COMMAND, vBlock.data(), RS_BLOCK_SIZE,
                          &l_ulStatus, 4, &l_ulCount},
                         ulHandle) == 0) {
            return cecore::GetLastError();
        }
        return l_ulCount == 4 ? l_ulStatus : 0xFFFFFFFF;
    }

    [[nodiscard]] bool Wait(std::chrono::milliseconds i_Time = 5s) const
    {
        return cecore::WaitForSingleObject(Event.Get(), static_cast<uint32_t>(i_Time.count())) == 0;
    }

    /** The answer frame; empty if the fetch failed. */
    Bytes Fetch()
    {
        const uint8_t l_aucEcho[2] = {ucCmdeID, 0};
        uint32_t l_ulCount = 0;
        if (Link.Control({RS_LINK_CONSTANT, IOCTL_RS_GET_RESULT, l_aucEcho, 2, vBlock.data(),
                          RS_BLOCK_SIZE, &l_ulCount},
                         ulHandle) == 0 ||
            l_ulCount < RS_ANSWER_FRAME_OFFSET || l_ulCount > RS_BLOCK_SIZE) {
            return {};
        }
        return {vBlock.begin() + RS_ANSWER_FRAME_OFFSET, vBlock.begin() + l_ulCount};
    }

    /** Value of a measure; 0 without an answer. */
    uint32_t Value()
    {
        const Bytes l_vAnswer = Wait() ? Fetch() : Bytes();
        return l_vAnswer.empty() ? 0 : At(l_vAnswer, 22);
    }
};
