/**
 * @file Options.h
 * @brief The command line of tornval-instrument.
 */
#pragma once

#include "instrument/LineEnd.h"

#include <optional>
#include <string>
#include <vector>

namespace emulator {

struct S_OPTIONS
{
    std::string strBoard;    /**< device of the board; empty: none */
    std::string strMilliOhm; /**< device of the milliohm module; empty: none */
    bool bPty = false;       /**< make pseudo terminals for those without a device */
    std::string strNames;    /**< folder for names that stay the same; empty: none */
    std::string strRecording;
    std::string strState;
    std::vector<std::string> vstrSettings; /**< each with or without "board:" or "milliohm:" */
    S_LINE Line;
};

/** Reads the command line. Prints help, version or what is wrong, and gives the exit code then. */
std::optional<int> ReadOptions(int i_lArguments, char** i_ppszArguments, S_OPTIONS& o_Options);

} // namespace emulator
