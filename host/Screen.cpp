#include "Screen.h"

#include "Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <limits>
#include <sys/mman.h>
#include <sys/stat.h>
#include <term.h>
#include <unistd.h>

namespace host {

namespace {

constexpr std::array k_alEnds = {SIGQUIT, SIGSEGV, SIGBUS, SIGFPE,
                                 SIGILL,  SIGABRT, SIGSYS, SIGTRAP};
constexpr off_t k_lMostPrinted = off_t{1024} * 1024;

// What a signal handler needs is kept where it may look.
termios s_Before{};
int s_lTerminal = -1;
std::array<char, 256> s_szRestore{};
size_t s_uRestore = 0;
volatile std::sig_atomic_t s_bTaken = 0;

/** Gives the terminal back, with what a signal handler may call. */
void GiveBack()
{
    if (s_bTaken != 0) {
        s_bTaken = 0;
        (void)!write(s_lTerminal, s_szRestore.data(), s_uRestore);
        tcsetattr(s_lTerminal, TCSANOW, &s_Before);
    }
}

void GiveBackAndEnd(int i_lSignal)
{
    GiveBack();
    std::signal(i_lSignal, SIG_DFL);
    raise(i_lSignal);
}

void KeepCapability(const char* i_pszName)
{
    const char* l_pszText = tigetstr(const_cast<char*>(i_pszName));
    if (l_pszText == nullptr || reinterpret_cast<intptr_t>(l_pszText) == -1) {
        return;
    }
    const size_t l_uLength = std::strlen(l_pszText);
    if (s_uRestore + l_uLength <= s_szRestore.size()) {
        std::memcpy(&s_szRestore[s_uRestore], l_pszText, l_uLength);
        s_uRestore += l_uLength;
    }
}

wire::CDescriptor Duplicate(int i_lFd)
{
    return wire::CDescriptor(fcntl(i_lFd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

} // namespace

CScreen::CScreen()
{
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        throw S_FAILURE{k_lExitUsage, "this command wants a terminal; measure and serve do not"};
    }
    tcgetattr(STDOUT_FILENO, &s_Before);
    std::setlocale(LC_CTYPE, "");
    m_bWide = MB_CUR_MAX > 1;
    m_Printed = wire::CDescriptor(memfd_create("printed", MFD_CLOEXEC));
    m_Output = Duplicate(STDOUT_FILENO);
    m_Errors = Duplicate(STDERR_FILENO);
    m_pTerminal.reset(fdopen(Duplicate(STDOUT_FILENO).Release(), "w"));
    SCREEN* l_pScreen =
        m_pTerminal == nullptr ? nullptr : newterm(nullptr, m_pTerminal.get(), stdin);
    if (!m_Printed || !m_Output || !m_Errors || l_pScreen == nullptr) {
        throw S_FAILURE{k_lExitUsage, "this terminal cannot be drawn on; is TERM right?"};
    }
    m_pScreen = l_pScreen;
    s_lTerminal = m_Output.Get();
    s_uRestore = 0;
    for (const char* l_pszName : {"cnorm", "sgr0", "rmkx", "rmcup"}) {
        KeepCapability(l_pszName);
    }
    s_bTaken = 1;
    std::atexit(GiveBack);
    for (const int l_lSignal : k_alEnds) {
        std::signal(l_lSignal, GiveBackAndEnd);
    }
    std::fflush(stdout);
    fcntl(m_Printed.Get(), F_SETFL, O_APPEND);
    dup2(m_Printed.Get(), STDOUT_FILENO);
    dup2(m_Printed.Get(), STDERR_FILENO);
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    curs_set(0);
    timeout(200);
}

CScreen::~CScreen()
{
    endwin();
    delscreen(static_cast<SCREEN*>(m_pScreen));
    GiveBack();
    for (const int l_lSignal : k_alEnds) {
        std::signal(l_lSignal, SIG_DFL);
    }
    std::fflush(stdout);
    dup2(m_Output.Get(), STDOUT_FILENO);
    dup2(m_Errors.Get(), STDERR_FILENO);
}

int CScreen::Lines() const
{
    return getmaxy(stdscr);
}

int CScreen::Columns() const
{
    return getmaxx(stdscr);
}

void CScreen::Show(const std::vector<std::string>& i_vLines)
{
    erase();
    int l_lLine = 0;
    for (const std::string& l_strLine : i_vLines) {
        if (l_lLine >= Lines()) {
            break;
        }
        const bool l_bHead = l_strLine.starts_with('\t');
        // Text of logs and names may hold what would move the cursor.
        std::string l_strShown = l_strLine.substr(l_bHead ? 1 : 0);
        std::replace_if(
            l_strShown.begin(), l_strShown.end(),
            [](char i_cByte) {
                return static_cast<unsigned char>(i_cByte) < 0x20 || i_cByte == 0x7F;
            },
            '?');
        // What is too long would go on in the next line. A byte 10xxxxxx begins no character.
        int l_lWidth = 0;
        const auto l_itEnd = std::find_if(l_strShown.begin(), l_strShown.end(), [&](char i_cByte) {
            return (static_cast<unsigned char>(i_cByte) & 0xC0) != 0x80 && ++l_lWidth > Columns();
        });
        l_strShown.erase(l_itEnd, l_strShown.end());
        attrset(l_bHead ? A_REVERSE : A_NORMAL);
        if (l_bHead) {
            mvhline(l_lLine, 0, ' ', Columns());
        }
        mvaddnstr(l_lLine++, 0, l_strShown.c_str(), -1);
    }
    attrset(A_NORMAL);
    refresh();
}

int CScreen::Key()
{
    return getch();
}

std::string CScreen::Printed() const
{
    return "/proc/self/fd/" + std::to_string(m_Printed.Get());
}

void CScreen::LimitPrinted()
{
    struct stat l_Status = {};
    if (fstat(m_Printed.Get(), &l_Status) == 0 && l_Status.st_size > k_lMostPrinted) {
        (void)!ftruncate(m_Printed.Get(), 0);
    }
}

std::string Sparkline(const std::vector<double>& i_vValues, bool i_bWide)
{
    static constexpr std::array<const char*, 8> l_apszWide = {"▁", "▂", "▃", "▄",
                                                              "▅", "▆", "▇", "█"};
    static constexpr std::array<const char*, 8> l_apszPlain = {"_", ".", ":", "-",
                                                               "=", "+", "*", "#"};
    double l_dLeast = std::numeric_limits<double>::infinity();
    double l_dMost = -l_dLeast;
    for (const double l_dValue : i_vValues) {
        l_dLeast = std::fmin(l_dLeast, l_dValue);
        l_dMost = std::fmax(l_dMost, l_dValue);
    }
    std::string l_strLine;
    for (const double l_dValue : i_vValues) {
        // A flat course lies at the bottom.
        const double l_dHeight =
            l_dMost > l_dLeast ? (l_dValue - l_dLeast) / (l_dMost - l_dLeast) : 0;
        const auto l_uBar = static_cast<size_t>(std::isfinite(l_dHeight) ? l_dHeight * 7 : 0);
        l_strLine += std::isnan(l_dValue) ? " "
                     : i_bWide            ? l_apszWide[l_uBar]
                                          : l_apszPlain[l_uBar];
    }
    return l_strLine;
}

} // namespace host
