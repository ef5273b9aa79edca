#include "instrument/Status.h"

#include <iostream>

#include <unistd.h>

namespace emulator {

std::string StatusText(const std::vector<std::pair<std::string, S_LINE_COUNTERS>>& i_vCounters)
{
    std::string l_strText;
    for (const auto& [l_strName, l_Counters] : i_vCounters) {
        l_strText += (l_strText.empty() ? "" : "  |  ") + l_strName + ": in " +
                     std::to_string(l_Counters.In.ullFrames) + ", out " +
                     std::to_string(l_Counters.ullOut) + ", bad CRC " +
                     std::to_string(l_Counters.In.ullBadCrc);
        if (l_Counters.In.ullDropped != 0) {
            l_strText += ", dropped " + std::to_string(l_Counters.In.ullDropped) + " bytes";
        }
        if (l_Counters.Noise.ullDamaged != 0) {
            l_strText += ", damaged " + std::to_string(l_Counters.Noise.ullDamaged);
        }
    }
    return l_strText;
}

CStatusLine::CStatusLine() : m_bTerminal(isatty(STDERR_FILENO) != 0) {}

void CStatusLine::Show(const std::string& i_strText)
{
    if (m_bTerminal && i_strText != m_strShown) {
        // Back to the start of the line, and clear what is behind the new text.
        std::cerr << '\r' << i_strText << "\x1b[K" << std::flush;
        m_strShown = i_strText;
    }
}

void CStatusLine::End(const std::string& i_strText) const
{
    std::cerr << (m_bTerminal ? "\r\x1b[K" : "") << i_strText << std::endl;
}

} // namespace emulator
