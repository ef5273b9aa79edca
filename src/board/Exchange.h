/**
 * @file Exchange.h
 * @brief An exchange as one record, a command as one row, the way to the device as a few calls.
 */
#pragma once

#include <algorithm>
#include <optional>
#include <span>

#include "board/ExchangeTexts.h"
#include "board/Frame.h"
#include "driver/Records.h"

namespace tornval {

class CIntMeasDriver;
struct S_COMMAND;

/** One exchange, from its command to its decoded answer. Nothing of it is owned. */
struct S_EXCHANGE
{
    // The command, and what the device says of it at once.
    S_SEND_STRUCT* pCmde = nullptr;
    S_RECEIVE_STRUCT* pReceive = nullptr;
    const void* pcData = nullptr; /**< payload, or null */
    uint8_t ucCanal = k_ucCanalBoard;
    uint32_t* pulStatus = nullptr;
    /** What the driver's members take right before the send, while the lock is held. */
    std::optional<int32_t> olVoie = std::nullopt;
    std::optional<uint8_t> oucBurst = std::nullopt;

    // The blocks. The frame carries the event that announces the answer.
    S_DATA* pFrame = nullptr;
    S_DATA* pAnswer = nullptr;
    /** ID of the last command sent; other threads overwrite that of host-level commands. */
    uint16_t* pusEcho = nullptr;

    // Where the caller wants the answer.
    uint32_t ulRoom = 0; /**< bytes that pcRawData holds */
    char* pcRawData = nullptr;
    int32_t* plProcessedDataSize = nullptr;
    int32_t* plProcessedData = nullptr;
    uint32_t ulTimeout = 0;
    uint8_t bCompensation = 1;

    // What is known as it goes on.
    const S_COMMAND* pCommand = nullptr;
    uint16_t usCmdeID = 0;
    uint32_t ulDelivered = 0; /**< bytes of the answer, by the link's own word */
    S_RESULT Result{};

    void Fail() { Result.ulStatus = 1; }
};

using PFN_BUILD = void (CIntMeasDriver::*)(const S_EXCHANGE& i_Exchange);
using PFN_DECODE = void (CIntMeasDriver::*)(S_EXCHANGE& io_Exchange);

/** Canals that a command may be sent on. */
enum class E_CANALS : uint8_t
{
    BOARD,
    GENERATOR,
    BOTH,
    ANY
};

/** One command of a wire driver. */
struct S_COMMAND
{
    uint8_t ucCmdeID;
    E_CANALS eCanals;
    PFN_BUILD pfnBuild;             /**< makes the frame, all but payload and CRC */
    PFN_DECODE pfnDecode = nullptr; /**< null: the answer carries nothing to decode */
    uint32_t ulLeastAnswer = 0;     /**< what the decoder wants of an answer, in bytes */

    [[nodiscard]] bool Takes(uint8_t i_ucCanal) const
    {
        return eCanals == E_CANALS::ANY ||
               (i_ucCanal == k_ucCanalBoard && eCanals != E_CANALS::GENERATOR) ||
               (i_ucCanal == k_ucCanalGenerator && eCanals != E_CANALS::BOARD);
    }
};

/** The row of an ID in a table of commands; null if it has none. */
template <typename Row>
const Row* FindCommand(std::span<const Row> i_Rows, uint16_t i_usCmdeID)
{
    const auto l_It = std::ranges::find(i_Rows, i_usCmdeID, &Row::ucCmdeID);
    return l_It == i_Rows.end() ? nullptr : &*l_It;
}

using PFN_IS_THERE = bool (CIntMeasDriver::*)() const;

/** One control call: a send or a fetch. */
struct S_CONTROL
{
    uint32_t ulCode;
    const void* pIn;
    uint32_t ulInSize;
    void* pOut;
    uint32_t ulOutSize;
    uint32_t* pulReturned;
};
using PFN_CONTROL = bool (CIntMeasDriver::*)(const S_CONTROL& i_Control);

/** The way to the device. The state behind the calls is the driver's. */
struct S_TRANSPORT
{
    PFN_IS_THERE pfnIsThere;
    PFN_CONTROL pfnControl; /**< false with the last error set */
};

/** What a class of the family has of its own on the road of an exchange. */
struct S_WIRE_KIND
{
    S_TRANSPORT Transport;
    std::span<const S_COMMAND> Commands;
    /** A device file of its own, named by the registry; else a link library and a reset program. */
    bool bDeviceFile;
    bool bDumpFrame; /**< the head of each frame goes to the trace */
    S_EXCHANGE_TEXTS Texts;
};

} // namespace tornval
