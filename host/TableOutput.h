/**
 * @file TableOutput.h
 * @brief What an acquisition leaves: a CSV file, a picture, and the words that say what became of them.
 */
#pragma once

#include "CsvFile.h"
#include "Plot.h"
#include "Session.h"

#include <functional>
#include <string>
#include <vector>

namespace host {

/** Options of the commands that acquire. */
struct S_TABLE_OPTIONS
{
    std::string strCsv;
    std::string strPlot;
    bool bForce = false;
    bool bAppend = false;
    std::string strFormat = "csv";

    bool IsNpy() const { return strFormat == "npy"; }
    double dPeriod = 0;
};

/** Adds --csv, --format, --plot, --force, --append, --period. */
void AddTableOptions(CCommand i_Command, S_TABLE_OPTIONS& io_Options);

/** How long an acquisition goes on, and what becomes of it. */
struct S_RUN_OPTIONS
{
    uint32_t ulSteps = 0;
    bool bFollow = false;
    uint32_t ulInterval = 0;
    S_TABLE_OPTIONS Table;
};

/** Adds an option for the number of steps, as "--blocks"; --follow, --interval and those of the table. */
void AddRunOptions(CCommand i_Command, S_RUN_OPTIONS& io_Options, const std::string& i_strSteps);

/** Refuses a run of no length. @throws S_FAILURE. */
void CheckRun(const S_RUN_OPTIONS& i_Options, const std::string& i_strSteps);

/** One channel of an acquisition. */
struct S_CHANNEL
{
    /** What it measures, as "input 4"; may be empty. */
    std::string strSource;
    S_UNIT Unit;
};

/** The options with the period of the configuration, key SAMPLE_PERIOD of the driver's section, where
 *  the command line names none. */
S_TABLE_OPTIONS WithPeriod(S_TABLE_OPTIONS i_Options, const CSession& i_Session,
                           const S_DRIVER& i_Driver);

/** Version of this program. */
const char* VersionText();

/** Date and time, UTC, as 2026-11-25T16:20:05Z. */
std::string NowText();

class CTableOutput
{
public:
    /**
     * Begins the file; everything that can be refused is refused here.
     *
     * @param i_strTitle stands above the picture.
     * @throws S_FILE_ERROR, S_FAILURE.
     */
    CTableOutput(CProgram& io_Program, const S_TABLE_OPTIONS& i_Options, const S_DRIVER& i_Driver,
                 const std::vector<S_CHANNEL>& i_vChannels, std::string i_strTitle);

    /**
     * Takes one step after another until their number is reached or a signal asks to stop, with progress
     * and, where the run has no end, an object for each on standard output.
     *
     * @param i_strStep what a step is called, as "block".
     */
    void TakeSteps(const S_RUN_OPTIONS& i_Options, const std::string& i_strStep,
                   const std::function<void(uint64_t i_uStep)>& i_fnStep);

    void Append(const Channels& i_vChannels);
    size_t Rows() const { return m_Csv.Rows(); }

    /**
     * Runs an acquisition to its end and leaves its files whole. The device is stopped whatever
     * happens. Rows that came before a failure stay in the partial file, which the failure names.
     */
    void Run(const std::function<void()>& i_fnAcquire, const std::function<void()>& i_fnStop);

private:
    void Complete();
    std::string Keep();
    void Picture();

    CProgram& m_Program;
    S_TABLE_OPTIONS m_Options;
    S_PLOT m_Plot;
    CCsvFile m_Csv;
};

} // namespace host
