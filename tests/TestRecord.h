/**
 * @file TestRecord.h
 * @brief Status records in a test's words: made by name, compared, printed.
 */
#pragma once

#include <cstring>
#include <ostream>

#include "TornvalC63.h"

/** Who made a record: ulDriverType. */
enum E_DRIVER : uint32_t
{
    ROUTER = TORNVAL_DRIVER_NONE,
    BT_PROBE = TORNVAL_DRIVER_BT_PROBE,
    USB_PROBE = TORNVAL_DRIVER_USB_PROBE,
    BOARD = TORNVAL_DRIVER_BOARD,
    MODULE = TORNVAL_DRIVER_MILLIOHM
};

/** In which stage: ulStep. */
enum E_STEP : uint32_t
{
    NO_STEP = TORNVAL_STEP_NONE,
    LIBRARY = TORNVAL_STEP_LIBRARY,
    SEND = TORNVAL_STEP_SEND,
    INIT = TORNVAL_STEP_INIT,
    CLOSE = TORNVAL_STEP_CLOSE,
    RESULT = TORNVAL_STEP_RESULT,
    LOAD = TORNVAL_STEP_LOAD,
    REFUSED = TORNVAL_STEP_REFUSED
};

/** Why an operation failed, as far as it is known. */
struct S_WHY
{
    uint32_t ulError = 0;    /**< the system's number: ulLastError */
    uint32_t ulFirmware = 0; /**< the device's: ulFwStatus */
};

/** The record of a success: Done(BOARD, RESULT). */
constexpr S_RESULT Done(uint32_t i_ulDriver, uint32_t i_ulStep)
{
    return {i_ulDriver, i_ulStep, 0, 0, 0};
}

/** The record of a failure: Failed(BOARD, SEND), Failed(BOARD, RESULT, {.ulFirmware = 7}). */
constexpr S_RESULT Failed(uint32_t i_ulDriver, uint32_t i_ulStep, S_WHY i_Why = {})
{
    return {i_ulDriver, i_ulStep, i_Why.ulError, i_Why.ulFirmware, 1};
}

/** A record against five words in the order of its fields. */
inline bool operator==(const S_RESULT& i_Left, const S_RESULT& i_Right)
{
    return std::memcmp(&i_Left, &i_Right, sizeof(S_RESULT)) == 0;
}
inline std::ostream& operator<<(std::ostream& io_Stream, const S_RESULT& i_Result)
{
    return io_Stream << "type " << i_Result.ulDriverType << " step " << i_Result.ulStep << " error "
                     << i_Result.ulLastError << " firmware " << i_Result.ulFwStatus << " status "
                     << i_Result.ulStatus;
}
