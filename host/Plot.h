/**
 * @file Plot.h
 * @brief Draws the columns of a CSV file into a picture, through gnuplot.
 */
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace host {

/** What a picture shows beside the curves. */
struct S_PLOT
{
    /** Stands above the panels. */
    std::string strTitle;
    /** What each panel's axis is called: channel and unit. */
    std::vector<std::string> vLabels;
    /** Draws the progress bar although standard error is no terminal. */
    bool bProgress = false;
};

/** @throws S_FILE_ERROR unless the name ends in .png, .svg or .pdf. */
void CheckPicture(const std::string& i_strPicture);

/**
 * One panel for each column but "time_s", over a shared axis. Of a long recording each step of the
 * axis keeps its smallest and its largest value, so that a single spike is seen.
 *
 * @throws S_FILE_ERROR if the table cannot be read, or gnuplot is missing or fails.
 * @throws S_STOPPED    once a signal comes meanwhile; there is no picture then.
 */
void PlotCsv(const std::string& i_strCsv, const std::string& i_strPicture, const S_PLOT& i_Plot);

/** One curve, ready to be drawn. */
struct S_CURVE
{
    std::string strName;
    std::vector<std::pair<double, double>> vPoints;
    double dLeast = 0;
    double dMost = 0;
};

/** The curves of a table. */
struct S_TABLE
{
    bool bTime = false;
    /** There is a column that numbers the rows. */
    bool bNumbered = false;
    size_t uRows = 0;
    std::vector<S_CURVE> vCurves;
};

/** Reads a table and thins it to at most two points for each step of the axis. @throws S_STOPPED once a
 *  signal comes meanwhile. */
S_TABLE ReadTable(const std::string& i_strCsv, bool i_bProgress);

/** Writes a table as an array of numpy: a field of 64 bits for each column, not a number where a cell is
 *  empty. @throws S_FILE_ERROR. */
void WriteNpy(const std::string& i_strCsv, int i_lFile);

} // namespace host
