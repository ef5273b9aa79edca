/**
 * @file Screen.h
 * @brief The terminal as one page of text, for as long as the object lives.
 */
#pragma once

#include "wire/Descriptor.h"

#include <cstdio>
#include <memory>
#include <string>
#include <termios.h>
#include <vector>

namespace host {

/**
 * Takes the terminal and gives it back as it was: at the end of its life, at an exit() from anywhere
 * and at every signal that ends the process and can be caught. What the process prints meanwhile goes to a
 * file without a name, whose end Printed() can be read from.
 */
class CScreen
{
public:
    /** @throws S_FAILURE if standard input or output is no terminal, or none that is known. */
    CScreen();
    CScreen(const CScreen&) = delete;
    CScreen& operator=(const CScreen&) = delete;
    ~CScreen();

    /** Lines and columns there are now. */
    int Lines() const;
    int Columns() const;

    /** Whether the terminal shows more than ASCII. */
    bool IsWide() const { return m_bWide; }

    /** Shows these lines, cut to the terminal. A line that begins with a tab is a headline. */
    void Show(const std::vector<std::string>& i_vLines);

    /** Waits for a key, at most a fifth of a second. @return it, or below 0. */
    int Key();

    /** Path of the file that holds what is printed. */
    std::string Printed() const;

    /** Empties that file when it has grown large. */
    void LimitPrinted();

private:
    struct S_CLOSE
    {
        void operator()(std::FILE* i_pFile) const { (void)std::fclose(i_pFile); }
    };

    bool m_bWide = false;
    wire::CDescriptor m_Printed;
    wire::CDescriptor m_Output; // the former 1 and 2
    wire::CDescriptor m_Errors;
    std::unique_ptr<std::FILE, S_CLOSE> m_pTerminal;
    void* m_pScreen = nullptr;
};

/** The last values as a row of bars, each a column wide; gaps where one is not a number. */
std::string Sparkline(const std::vector<double>& i_vValues, bool i_bWide);

} // namespace host
