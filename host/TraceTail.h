/**
 * @file TraceTail.h
 * @brief The last lines of the trace log.
 */
#pragma once

#include <deque>
#include <string>
#include <vector>

namespace host {

/** Follows a file that grows, keeps its last lines. A file that was emptied is followed from its begin. */
class CTraceTail
{
public:
    CTraceTail(std::string i_strPath, size_t i_uLines)
        : m_strPath(std::move(i_strPath)), m_uLines(i_uLines)
    {
    }

    /** Reads on. @return the lines that are new, the last ones of them that are kept. */
    std::vector<std::string> Read();

    const std::deque<std::string>& Lines() const { return m_Lines; }

private:
    std::string m_strPath;
    size_t m_uLines;
    long m_lOffset = 0;
    std::string m_strUnfinished;
    std::deque<std::string> m_Lines;
};

} // namespace host
