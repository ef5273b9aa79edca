/**
 * @file Frames.h
 * @brief Requests to the framed instruments, made for tests.
 */
#pragma once

#include "emulator/Firmware.h"
#include "wire/Bytes.h"

#include <cstdint>
#include <initializer_list>
#include <vector>

using Bytes = std::vector<uint8_t>;

/** A sealed request whose payload is a run of 32-bit numbers. */
inline Bytes Request(uint8_t i_ucCmdeID, std::initializer_list<uint32_t> i_Payload = {},
                     uint8_t i_ucCanal = 0)
{
    Bytes l_vFrame(wire::k_ulDataOffset);
    for (const uint32_t l_ulNumber : i_Payload) {
        wire::AppendNumber(l_vFrame, 4, l_ulNumber);
    }
    l_vFrame[wire::k_ulIdOffset] = i_ucCmdeID;
    l_vFrame[wire::k_ulCanalOffset] = i_ucCanal;
    l_vFrame[wire::k_ulCmdeOffset] = i_ucCmdeID;
    wire::PutNumber(l_vFrame, wire::k_ulSizeOffset, 2,
                    static_cast<uint32_t>(l_vFrame.size() - wire::k_ulOuterHead));
    emulator::SealFrame(l_vFrame);
    return l_vFrame;
}

/** Number in an answer frame; 0xEEEEEEEE where the frame is too short for it. */
inline uint32_t At(const Bytes& i_vFrame, size_t i_ulOffset, size_t i_ulWidth = 4)
{
    return i_ulOffset + i_ulWidth <= i_vFrame.size()
               ? wire::GetNumber(i_vFrame, i_ulOffset, i_ulWidth)
               : 0xEEEEEEEEU;
}
