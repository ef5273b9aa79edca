/**
 * @file RecordingLink.h
 * @brief What the recording link library keeps of its calls, and how it is told to answer.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/** One control call. */
struct S_LINK_CALL
{
    uint32_t ulDevice, ulConstant, ulCode, ulOutSize, ulZero;
    std::vector<uint8_t> vIn;
};

struct S_RECORDING_LINK
{
    std::vector<S_LINK_CALL> vCalls;
    /** Every call of the other entry points with its arguments, as a text. */
    std::vector<std::string> vstrOpenings;

    uint32_t ulResult = 1;    /**< result of every entry point */
    uint32_t ulLastError = 0; /**< left behind by a result of 0 */
    uint32_t ulAckCount = 8;  /**< bytes that a send says it returned */
    uint32_t ulNbReturnByte = 0;
    std::vector<uint8_t> vReply; /**< what a fetch delivers, as far as there is room */
};

/** The state of the library, one for the process. */
using PFN_RECORDING_LINK = S_RECORDING_LINK* (*)();
