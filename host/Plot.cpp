#include "Plot.h"

#include "Child.h"
#include "CsvFile.h"
#include "Stop.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <memory>

#include <unistd.h>

namespace host {

namespace {

constexpr unsigned k_uWidth = 1200;
constexpr unsigned k_uPanel = 210;
constexpr unsigned k_uMargins = 90;

/** Colours that stay apart for every kind of colour blindness. */
constexpr std::array k_apszColours = {"#0072B2", "#D55E00", "#009E73"};

struct S_FORM
{
    const char* pszEnding;
    const char* pszTerminal;
    /** Size of one pixel in the terminal's own unit. */
    double dUnit;
};

constexpr std::array k_aForms = {
    S_FORM{".png", "pngcairo noenhanced font 'DejaVu Sans,10'", 1},
    S_FORM{".svg", "svg noenhanced font 'DejaVu Sans,12'", 1},
    S_FORM{".pdf", "pdfcairo noenhanced font 'DejaVu Sans,10'", 1.0 / 100},
};

/** A text in gnuplot's single quotes, where only the quote itself is special. */
std::string Quoted(const std::string& i_strText)
{
    std::string l_strQuoted = "'";
    for (const char l_c : i_strText) {
        l_strQuoted += l_c == '\'' ? "''" : std::string(1, l_c);
    }
    return l_strQuoted + "'";
}

std::string Text(double i_dNumber)
{
    std::array<char, 32> l_szText{};
    return {l_szText.data(),
            std::to_chars(l_szText.data(), l_szText.data() + l_szText.size(), i_dNumber).ptr};
}

const S_FORM& FormOf(const std::string& i_strPicture)
{
    std::string l_strEnding = std::filesystem::path(i_strPicture).extension().string();
    std::transform(l_strEnding.begin(), l_strEnding.end(), l_strEnding.begin(),
                   [](unsigned char i_uc) { return static_cast<char>(std::tolower(i_uc)); });
    for (const S_FORM& l_Form : k_aForms) {
        if (l_strEnding == l_Form.pszEnding) {
            return l_Form;
        }
    }
    throw S_FILE_ERROR{"the picture " + i_strPicture + " must end in .png, .svg or .pdf"};
}

std::string Now()
{
    const std::time_t l_Now = std::time(nullptr);
    std::tm l_Time{};
    gmtime_r(&l_Now, &l_Time);
    std::array<char, 40> l_szText{};
    std::strftime(l_szText.data(), l_szText.size(), "%Y-%m-%d %H:%M UTC", &l_Time);
    return l_szText.data();
}

/** The points of a curve as a block of gnuplot. */
std::string Block(const S_CURVE& i_Curve, size_t i_uIndex)
{
    std::string l_strBlock = "$curve" + std::to_string(i_uIndex) + " << EOD\n";
    for (const auto& [l_dX, l_dY] : i_Curve.vPoints) {
        l_strBlock += Text(l_dX) + " " + Text(l_dY) + "\n";
    }
    return l_strBlock + "EOD\n";
}

std::string Panel(const S_CURVE& i_Curve, size_t i_uIndex, const std::string& i_strLabel)
{
    const std::string l_strColour = k_apszColours[i_uIndex % k_apszColours.size()];
    std::string l_strPanel = "set ylabel " + Quoted(i_strLabel) + "\n";
    if (i_Curve.vPoints.empty()) {
        return l_strPanel +
               "set yrange [0:1]\nset label 1 'no samples' at graph 0.5, graph 0.5 center\n"
               "plot NaN notitle\nunset label 1\n";
    }
    // Room above and below, also around a curve that is flat.
    const double l_dSpan = i_Curve.dMost - i_Curve.dLeast;
    const double l_dRoom =
        l_dSpan > 0 ? l_dSpan * 0.08 : std::max(1.0, std::fabs(i_Curve.dMost) * 0.01);
    l_strPanel += "set yrange [" + Text(i_Curve.dLeast - l_dRoom) + ":" +
                  Text(i_Curve.dMost + l_dRoom) + "]\n";
    return l_strPanel + "plot $curve" + std::to_string(i_uIndex) + " using 1:2 with " +
           (i_Curve.vPoints.size() == 1 ? "points pointtype 7" : "lines linewidth 1") +
           " linecolor rgb '" + l_strColour + "' notitle\n";
}

std::string Script(const S_TABLE& i_Table, const std::string& i_strOutput, const S_FORM& i_Form,
                   const S_PLOT& i_Plot, const std::string& i_strCsv)
{
    const auto l_uPanels = static_cast<unsigned>(std::max<size_t>(i_Table.vCurves.size(), 1));
    std::string l_strScript = std::string("set terminal ") + i_Form.pszTerminal + " size " +
                              Text(k_uWidth * i_Form.dUnit) + "," +
                              Text((k_uPanel * l_uPanels + k_uMargins) * i_Form.dUnit) +
                              "\nset output " + Quoted(i_strOutput) + "\n";
    double l_dFirst = 0;
    double l_dLast = 1;
    bool l_bAny = false;
    for (size_t i = 0; i < i_Table.vCurves.size(); ++i) {
        const S_CURVE& l_Curve = i_Table.vCurves[i];
        l_strScript += Block(l_Curve, i);
        if (!l_Curve.vPoints.empty()) {
            l_dFirst = l_bAny ? std::min(l_dFirst, l_Curve.vPoints.front().first)
                              : l_Curve.vPoints.front().first;
            l_dLast = l_bAny ? std::max(l_dLast, l_Curve.vPoints.back().first)
                             : l_Curve.vPoints.back().first;
            l_bAny = true;
        }
    }
    l_strScript +=
        "set multiplot layout " + std::to_string(l_uPanels) +
        ",1 margins 0.09,0.98,0.11,0.93 spacing 0,0.02 title " +
        Quoted(i_Plot.strTitle + ", " + std::filesystem::path(i_strCsv).filename().string() + ", " +
               std::to_string(i_Table.uRows) + " rows, " + Now()) +
        "\nset grid\nset xrange [" + Text(l_dFirst) + ":" +
        Text(l_dLast > l_dFirst ? l_dLast : l_dFirst + 1) + "]\nset format x ''\n";
    for (size_t i = 0; i < i_Table.vCurves.size(); ++i) {
        if (i + 1 == i_Table.vCurves.size()) {
            l_strScript += std::string("set format x '%g'\nset xlabel ") +
                           (i_Table.bTime ? "'time in s'" : "'sample'") + "\n";
        }
        l_strScript +=
            Panel(i_Table.vCurves[i], i,
                  i < i_Plot.vLabels.size() ? i_Plot.vLabels[i] : i_Table.vCurves[i].strName);
    }
    return l_strScript + "unset multiplot\nunset output\n";
}

/** Runs gnuplot. @return its exit code. @throws S_STOPPED once a signal comes meanwhile. */
int Draw(const std::string& i_strScript, bool i_bQuiet)
{
    struct S_DRAWING
    {
        CChild Gnuplot;
        int lExit = 0;
    };
    const auto l_pDrawing = std::make_shared<S_DRAWING>();
    const int l_lError = l_pDrawing->Gnuplot.Start({"gnuplot", "-d", "-"}, i_bQuiet);
    if (l_lError != 0) {
        throw S_FILE_ERROR{"gnuplot, which draws the plot, cannot be started" +
                           ErrnoInWords(l_lError)};
    }
    const int l_lSignals = StopSignals();
    try {
        CallAfterStop([l_pDrawing, i_strScript] {
            l_pDrawing->Gnuplot.Write(i_strScript);
            l_pDrawing->lExit = l_pDrawing->Gnuplot.Finish();
        });
    } catch (const S_STOPPED&) {
        l_pDrawing->Gnuplot.Kill();
        throw;
    }
    // The terminal's signal reaches gnuplot too.
    if (StopSignals() != l_lSignals) {
        throw S_STOPPED{};
    }
    return l_pDrawing->lExit;
}

} // namespace

void CheckPicture(const std::string& i_strPicture)
{
    FormOf(i_strPicture);
}

void PlotCsv(const std::string& i_strCsv, const std::string& i_strPicture, const S_PLOT& i_Plot)
{
    const S_FORM& l_Form = FormOf(i_strPicture);
    const S_TABLE l_Table = ReadTable(i_strCsv, i_Plot.bProgress);
    std::string l_strOutput;
    OpenBeside(i_strPicture, l_strOutput);
    const std::string l_strScript = Script(l_Table, l_strOutput, l_Form, i_Plot, i_strCsv);
    // It warns of things that are no fault here; only when it fails are its own words shown.
    int l_lExit = 0;
    try {
        l_lExit = Draw(l_strScript, true);
        if (l_lExit != 0) {
            l_lExit = Draw(l_strScript, false);
        }
    } catch (...) {
        unlink(l_strOutput.c_str());
        throw;
    }
    std::error_code l_Error;
    const auto l_uSize = std::filesystem::file_size(l_strOutput, l_Error);
    if (l_lExit != 0 || l_Error || l_uSize == 0) {
        unlink(l_strOutput.c_str());
        throw S_FILE_ERROR{"the plot " + i_strPicture +
                           " was not written; gnuplot ended with code " + std::to_string(l_lExit)};
    }
    GiveName(l_strOutput, i_strPicture, true);
}

} // namespace host
