/**
 * @file Progress.h
 * @brief Progress on the terminal, drawn by the tool pv.
 */
#pragma once

#include "Child.h"

#include <cstdint>
#include <functional>
#include <string>

namespace host {

/** One bar on standard error, for as long as the object lives. Without pv there is none. */
class CProgress
{
public:
    /**
     * @param i_bForced  draws although standard error is no terminal.
     * @param i_strLabel stands before the bar.
     * @param i_uTotal   steps to the end; 0 if nobody knows: time and a moving mark then.
     */
    CProgress(bool i_bForced, const std::string& i_strLabel, uint64_t i_uTotal);

    /** Moves the bar by some steps. */
    void Advance(uint64_t i_uSteps = 1);

    /** Ends the bar and its line. */
    void Finish() { m_Bar.Finish(); }

private:
    CChild m_Bar;
};

/** As Call() of Stop.h, while a mark moves. */
void CallWithProgress(bool i_bForced, const std::string& i_strLabel,
                      const std::function<void()>& i_fnOperation);

} // namespace host
