/**
 * @file ExchangeTexts.h
 * @brief The lines that a class of the board family traces on its way through an exchange.
 *
 * The steps of an exchange stand once, in CIntMeasDriver; each class brings its own table of lines.
 * An empty entry is a line that the class does not have.
 */
#pragma once

#include "support/Trace.h"

namespace tornval {

struct S_EXCHANGE_TEXTS
{
    S_TRACE_TEXT<wchar_t*, uint32_t> LoadError{}; /**< link library, system error */

    S_TRACE_TEXT<uint32_t> SendStart{};           /**< canal */
    S_TRACE_TEXT<> SendArgument{};                /**< a null argument, or no link */
    S_TRACE_TEXT<uint32_t> SendCmde{};            /**< ID */
    S_TRACE_TEXT<> SendUnknown{};                 /**< the ID has no frame... */
    S_TRACE_TEXT<> SendRefused{};                 /**< ...and so nothing is sent */
    S_TRACE_TEXT<uint32_t> SendSize{};            /**< ulSize beyond the frame */
    S_TRACE_TEXT<uint32_t> SendBefore{};          /**< ticks */
    S_TRACE_TEXT<uint32_t, uint32_t> SendAfter{}; /**< ticks, duration */
    S_TRACE_TEXT<> SendFailed{};
    S_TRACE_TEXT<uint32_t> SendStatus{}; /**< the device's word */
    S_TRACE_TEXT<> SendDone{};

    S_TRACE_TEXT<> FetchStart{};
    S_TRACE_TEXT<> FetchArgument{};                             /**< a null argument, or no link */
    S_TRACE_TEXT<uint32_t> FetchTimeout{};                      /**< ID */
    S_TRACE_TEXT<uint32_t> FetchSync{};                         /**< ticks */
    S_TRACE_TEXT<uint32_t> FetchRawNull{};                      /**< ID */
    S_TRACE_TEXT<uint32_t> FetchBefore{};                       /**< ticks */
    S_TRACE_TEXT<uint32_t, uint32_t> FetchAfter{};              /**< ticks, duration */
    S_TRACE_TEXT<uint32_t> FetchCount{};                        /**< bytes delivered */
    S_TRACE_TEXT<uint32_t> FetchIoError{};                      /**< system error */
    S_TRACE_TEXT<uint32_t> FetchIoCmde{};                       /**< ID */
    S_TRACE_TEXT<uint32_t> FetchStatus{};                       /**< the block's status word */
    S_TRACE_TEXT<uint32_t, uint32_t> FetchStatusCmde{};         /**< the same, ID */
    S_TRACE_TEXT<uint32_t, uint32_t> FetchHead{};               /**< bytes delivered, expected */
    S_TRACE_TEXT<uint32_t, uint32_t, uint32_t> FetchHeadCmde{}; /**< the same, ID */
    S_TRACE_TEXT<uint32_t> FetchError{}; /**< ID: one of the failures above */
    S_TRACE_TEXT<uint32_t> FetchCmde{};  /**< ID */
    S_TRACE_TEXT<uint32_t> FetchPlain{}; /**< ID of a command whose answer carries no data */
    S_TRACE_TEXT<> FetchUnknown{};       /**< the ID has no decoder */

    S_TRACE_TEXT<uint32_t> InitStart{}; /**< already_init */
    S_TRACE_TEXT<> InitAllocation{};
    S_TRACE_TEXT<> InitDone{};
    S_TRACE_TEXT<> InitFailed{};
};

/** The lines that the two drivers over the serial link library have in common. */
inline constexpr S_EXCHANGE_TEXTS k_SerialLinkTexts = {
    .SendBefore = {INFO_LEVEL, L"Time before IOCTL_RS_SEND_COMMAND: %ld"},
    .SendAfter = {INFO_LEVEL, L"Time after IOCTL_RS_SEND_COMMAND: %ld (duration: %ld)"},
    .FetchSync = {INFO_LEVEL, L"Time after HSYNC: %ld"},
    .FetchBefore = {INFO_LEVEL, L"Time before IOCTL_RS_GET_RESULT: %ld"},
    .FetchAfter = {INFO_LEVEL, L"Time after IOCTL_RS_GET_RESULT: %ld (duration: %ld)"},
    .FetchCount = {INFO_LEVEL, L"IOCTL_RS_GET_RESULT taille: %ld"},
    .InitStart = {INFO_GENERAL_LEVEL, L"CIntMeasDriverSerial::InitIMB> already_init: %d"},
    .InitAllocation = {ERROR_LEVEL, L"CIntMeasDriverSerial::InitIMB> ERROR allocation"},
    .InitDone = {INFO_LEVEL, L"CIntMeasDriverSerial::InitIMB> OK"},
    .InitFailed = {ERROR_LEVEL, L"CIntMeasDriverSerial::InitIMB> ERROR GetResult"},
};

} // namespace tornval
