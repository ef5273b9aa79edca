/**
 * @file SerialLine.h
 * @brief Lines of a test: pseudo terminals with instruments at their far ends, and exchanges over a
 *        link.
 */
#pragma once

#include "TestHome.h"
#include "emulator/Frames.h"

#include "TornvalLinks.h"
#include "emulator/BoardFirmware.h"
#include "emulator/MilliOhmFirmware.h"
#include "instrument/LineEnd.h"
#include "instrument/Pty.h"
#include "links/serial/SerialLink.h"
#include "platform/Api.h"
#include "platform/Sync.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

using namespace std::chrono_literals;

constexpr links::CRsLink::S_OPEN k_OpenBoard{1, RS_LINK_CONSTANT, 460800, 8};
constexpr links::CRsLink::S_OPEN k_OpenModule{2, RS_LINK_CONSTANT, 115200, 8};

/** Board and module at the far ends of two pseudo terminals, in this process. */
struct S_FAR_ENDS
{
    explicit S_FAR_ENDS(const emulator::S_LINE& i_Line = {}) : Line(i_Line) {}

    emulator::S_LINE Line;
    emulator::CPty BoardPty = emulator::CPty::Make().value();
    emulator::CPty ModulePty = emulator::CPty::Make().value();
    emulator::CBoardFirmware Board;
    emulator::CMilliOhmFirmware Module;
    emulator::CLineEnd BoardEnd{Board, BoardPty.Fd(), Line};
    emulator::CLineEnd ModuleEnd{Module, ModulePty.Fd(), Line};

    /** The section that points a link at them. */
    [[nodiscard]] std::string Section(int i_lAnswerTimeout = 2000, int i_lSilence = 500) const
    {
        return "[SERIAL_LINK]\nPORT_1=" + BoardPty.Name() + "\nPORT_2=" + ModulePty.Name() +
               "\nANSWER_TIMEOUT=" + std::to_string(i_lAnswerTimeout) +
               "\nSILENCE=" + std::to_string(i_lSilence) + "\n";
    }
};

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
        emulator::PutNumber(vBlock, RS_BLOCK_EVENT_OFFSET, 4, Event.Get());
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
                         ulHandle) == 0) {
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
