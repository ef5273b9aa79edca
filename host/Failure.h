/**
 * @file Failure.h
 * @brief How a command ends: its exit code, and the failure that it throws.
 */
#pragma once

#include "TornvalC63.h"

#include <optional>
#include <string>

namespace host {

/** Exit codes; --help tells them to the user. Ended by a signal: 128 plus its number. */
enum E_EXIT : int
{
    k_lExitDone = 0,
    k_lExitUsage = 1,
    k_lExitNoDriver = 2,
    k_lExitDevice = 3,
    k_lExitTimeOut = 4,
    k_lExitFile = 5
};

/** Ends a command with an exit code and a message; thrown by the host's own code only. */
struct S_FAILURE
{
    int lExitCode;
    /** Empty: nothing is printed, as for a reader of our output that has enough. */
    std::string strMessage;
    std::optional<S_RESULT> Record = std::nullopt;
};

} // namespace host
