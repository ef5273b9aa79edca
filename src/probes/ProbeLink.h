/**
 * @file ProbeLink.h
 * @brief What makes one probe link differ from the other: names, codes, texts.
 *
 * The links take the same steps in the same order; those stand once, in CProbeDriver, and work on
 * one of these records.
 */
#pragma once

#include "TornvalLinks.h"
#include "support/Trace.h"

namespace tornval {

/** Room for the baud rate in characters, terminator included. */
inline constexpr uint32_t k_ulBaudRateSize = 256;

/** One link. A text without a format is not traced. */
struct S_PROBE_LINK
{
    uint32_t ulDriverType;
    uint32_t ulBaseID;
    const char* pszLinkType; /**< also the name of the section of the configuration file */
    const char* pszDefaultLibrary;
    uint8_t ucPortWithoutFile; /**< port where there is no configuration file */
    const wchar_t* pwszInit;
    const wchar_t* pwszClose;
    const wchar_t* pwszDeviceIoControl;
    uint32_t ulSendCode;
    uint32_t ulFetchCode;

    S_TRACE_TEXT<> CreateError;
    S_TRACE_TEXT<uint8_t> InitError;           /**< port */
    S_TRACE_TEXT<uint32_t, uint8_t> SendEntry; /**< driver ID, command */
    S_TRACE_TEXT<uint32_t> SendEntryNull;      /**< driver ID */
    S_TRACE_TEXT<> SendBadCommand;
    S_TRACE_TEXT<uint32_t> SendBadSize; /**< size of the payload */
    S_TRACE_TEXT<> SendNoMemory;
    S_TRACE_TEXT<> SendNoReceiveStruct;
    S_TRACE_TEXT<uint32_t> SendError; /**< last error */
    S_TRACE_TEXT<> SendSizeError;
    S_TRACE_TEXT<uint32_t> FetchError; /**< last error */
};

} // namespace tornval
