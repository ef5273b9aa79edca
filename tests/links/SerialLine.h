/**
 * @file SerialLine.h
 * @brief Lines of a test: pseudo terminals with instruments at their far ends.
 */
#pragma once

#include "TestHome.h"
#include "emulator/LinkExchange.h"

#include "emulator/BoardFirmware.h"
#include "emulator/MilliOhmFirmware.h"
#include "instrument/LineEnd.h"
#include "instrument/Pty.h"
#include "links/serial/SerialLink.h"

#include <string>

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
