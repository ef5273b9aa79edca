/**
 * @file Status.h
 * @brief The status line of tornval-instrument.
 */
#pragma once

#include "instrument/LineEnd.h"

#include <string>
#include <utility>
#include <vector>

namespace emulator {

/** The counters of each line, in one line of text. */
std::string StatusText(const std::vector<std::pair<std::string, S_LINE_COUNTERS>>& i_vCounters);

/** Shows a line on the standard error output, in place where that is a terminal. */
class CStatusLine
{
public:
    CStatusLine();
    /** Shows the text now, if it is a new one and there is a terminal. */
    void Show(const std::string& i_strText);
    /** Shows the text for good. */
    void End(const std::string& i_strText) const;

private:
    const bool m_bTerminal;
    std::string m_strShown;
};

} // namespace emulator
