/** tornval monitor: the instrument as a table in the terminal. */
#include "Live.h"
#include "LiveCommands.h"
#include "Screen.h"
#include "Stop.h"
#include "TraceTail.h"

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <mutex>

namespace host {

namespace {

/** Rounds that the widest terminal can show. */
constexpr size_t k_uMostRounds = 500;
constexpr size_t k_uLogLines = 100;
/** Lines of the page that belong to what link libraries print. */
constexpr size_t k_uPrintedLines = 5;

/** The last rounds. */
struct S_HISTORY
{
    std::mutex Mutex;
    std::deque<S_LIVE_ROUND> Rounds;
    uint64_t ullRounds = 0;
};

std::string Cell(const std::string& i_strText)
{
    std::array<char, 64> l_szCell{};
    std::snprintf(l_szCell.data(), l_szCell.size(), "%13.24s", i_strText.c_str());
    return l_szCell.data();
}

std::string RowLine(const S_LIVE_ROW& i_Row, size_t i_uRow,
                    const std::deque<S_LIVE_ROUND>& i_Rounds, size_t i_uColumns, bool i_bWide)
{
    std::string l_strLine = i_Row.strName;
    l_strLine.resize(std::max<size_t>(l_strLine.size(), 14), ' ');
    if (i_Rounds.empty()) {
        return l_strLine + "...";
    }
    const S_LIVE_VALUE& l_Last = i_Rounds.back().vValues[i_uRow];
    if (!l_Last.strError.empty()) {
        return l_strLine + Cell("failed");
    }
    constexpr size_t k_uHead = 64;
    const size_t l_uShown =
        std::min(i_Rounds.size(), i_uColumns > k_uHead ? i_uColumns - k_uHead : size_t{0});
    std::vector<double> l_vValues;
    double l_dLeast = l_Last.dValue;
    double l_dMost = l_Last.dValue;
    for (size_t i = 0; i < i_Rounds.size(); ++i) {
        const S_LIVE_VALUE& l_Value = i_Rounds[i].vValues[i_uRow];
        const bool l_bGood = l_Value.strError.empty();
        l_dLeast = l_bGood ? std::min(l_dLeast, l_Value.dValue) : l_dLeast;
        l_dMost = l_bGood ? std::max(l_dMost, l_Value.dValue) : l_dMost;
        if (i >= i_Rounds.size() - l_uShown) {
            l_vValues.push_back(l_bGood ? l_Value.dValue
                                        : std::numeric_limits<double>::quiet_NaN());
        }
    }
    std::string l_strUnit = "  " + i_Row.Unit.Name();
    l_strUnit.resize(std::max<size_t>(l_strUnit.size(), 9), ' ');
    return l_strLine + Cell(NumberText(l_Last.dValue)) + Cell(NumberText(l_dLeast)) +
           Cell(NumberText(l_dMost)) + l_strUnit + " " + Sparkline(l_vValues, i_bWide);
}

/** The last lines of a log that fit. */
void AddLog(const std::deque<std::string>& i_Lines, size_t i_uRoom,
            std::vector<std::string>& io_vPage)
{
    const size_t l_uLines = std::min(i_uRoom, i_Lines.size());
    io_vPage.insert(io_vPage.end(), i_Lines.end() - static_cast<std::ptrdiff_t>(l_uLines),
                    i_Lines.end());
}

/** Why values are missing, each reason once with the rows that it is about. */
void AddFailures(const std::vector<S_LIVE_ROW>& i_vRows, const S_LIVE_ROUND& i_Round,
                 std::vector<std::string>& io_vPage)
{
    std::vector<std::pair<std::string, std::string>> l_vFailures;
    for (size_t i = 0; i < i_vRows.size(); ++i) {
        const std::string& l_strError = i_Round.vValues[i].strError;
        if (l_strError.empty()) {
            continue;
        }
        const auto l_itSame =
            std::find_if(l_vFailures.begin(), l_vFailures.end(),
                         [&](const auto& i_Failure) { return i_Failure.first == l_strError; });
        if (l_itSame == l_vFailures.end()) {
            l_vFailures.emplace_back(l_strError, i_vRows[i].strName);
        } else {
            l_itSame->second += ", " + i_vRows[i].strName;
        }
    }
    for (const auto& [l_strError, l_strRows] : l_vFailures) {
        io_vPage.push_back(l_strRows);
        io_vPage.back().append(": ").append(l_strError);
    }
}

/** Which drivers there are, and why others are not. */
std::vector<std::string> Drivers(const CSession& i_Session)
{
    std::vector<std::string> l_vLines;
    std::string l_strDrivers;
    for (const S_DRIVER& l_Driver : i_Session.Drivers()) {
        l_strDrivers += (l_strDrivers.empty() ? "" : "; ") + l_Driver.strLinkType + " " +
                        (l_Driver.IsSimulated() ? "SIMULATED" : l_Driver.strKind) +
                        (!l_Driver.bReachable ? " (not reachable)"
                         : l_Driver.bReady    ? ""
                                              : " (not ready)");
    }
    l_vLines.push_back(l_strDrivers);
    for (const CECORE_REASON& l_Reason : i_Session.RemainingReasons()) {
        l_vLines.push_back(std::string(l_Reason.about) + ": " + InWords(l_Reason));
    }
    return l_vLines;
}

void RunMonitor(CProgram& io_Program, const S_LIVE_SETTINGS& i_Settings)
{
    const CSession l_Session(io_Program.Options());
    const std::vector<S_LIVE_ROW> l_vRows = LiveRows(l_Session, i_Settings);
    const std::vector<std::string> l_vDrivers = Drivers(l_Session);
    S_HISTORY l_History;
    CScreen l_Screen;
    CTraceTail l_Trace(LogFile(), k_uLogLines);
    CTraceTail l_Printed(l_Screen.Printed(), k_uLogLines);
    const CLive l_Live(l_vRows, i_Settings, [&l_History](const S_LIVE_ROUND& i_Round) {
        const std::lock_guard l_Lock(l_History.Mutex);
        ++l_History.ullRounds;
        l_History.Rounds.push_back(i_Round);
        if (l_History.Rounds.size() > k_uMostRounds) {
            l_History.Rounds.pop_front();
        }
    });
    int l_lKey = 0;
    while (StopSignal() == 0 && l_lKey != 'q' && l_lKey != 'Q') {
        const auto l_uLines = static_cast<size_t>(std::max(l_Screen.Lines(), 1));
        const auto l_uColumns = static_cast<size_t>(std::max(l_Screen.Columns(), 1));
        std::vector<std::string> l_vPage;
        {
            const std::lock_guard l_Lock(l_History.Mutex);
            l_vPage.push_back("\ttornval monitor   round " + std::to_string(l_History.ullRounds) +
                              "   q ends");
            l_vPage.insert(l_vPage.end(), l_vDrivers.begin(), l_vDrivers.end());
            l_vPage.push_back("\t" + std::string(14, ' ') + Cell("value") + Cell("least") +
                              Cell("most") + "  unit");
            for (size_t i = 0; i < l_vRows.size(); ++i) {
                l_vPage.push_back(
                    RowLine(l_vRows[i], i, l_History.Rounds, l_uColumns, l_Screen.IsWide()));
            }
            if (!l_History.Rounds.empty()) {
                AddFailures(l_vRows, l_History.Rounds.back(), l_vPage);
            }
        }
        // What the link libraries print stands above the trace.
        l_Screen.LimitPrinted();
        l_Printed.Read();
        l_Trace.Read();
        l_vPage.emplace_back("\tlog");
        AddLog(l_Printed.Lines(), k_uPrintedLines, l_vPage);
        AddLog(l_Trace.Lines(), l_uLines - std::min(l_uLines, l_vPage.size()), l_vPage);
        l_Screen.Show(l_vPage);
        l_lKey = l_Screen.Key();
    }
    ThrowIfStopped("the terminal is as it was");
}

} // namespace

void AddMonitorCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto [l_Monitor, l_Settings] = io_Program.AddCommand(
        i_Parent, "monitor",
        "Shows the instrument as a table in the terminal that renews itself: inputs with their "
        "course,\nmilliohm values, probes, the last lines of the log. q or Ctrl-C ends it",
        RunMonitor);
    l_Monitor.Remove({"--json", "--progress"});
    AddLiveOptions(l_Monitor, l_Settings);
}

} // namespace host
