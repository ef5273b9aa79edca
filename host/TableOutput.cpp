#include "TableOutput.h"

#include "Progress.h"
#include "Stop.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <exception>
#include <filesystem>

namespace host {

namespace {

S_CSV_FORM FormOf(const S_TABLE_OPTIONS& i_Options, const S_DRIVER& i_Driver,
                  const std::vector<S_CHANNEL>& i_vChannels)
{
    S_CSV_FORM l_Form;
    l_Form.dPeriod = i_Options.dPeriod;
    l_Form.vHead = {"tornval " + std::string(VersionText()),
                    "driver: " + i_Driver.strLinkType + " " + std::to_string(i_Driver.ulID) + ", " +
                        i_Driver.strKind,
                    "start: " + NowText() +
                        (l_Form.dPeriod > 0
                             ? ", period: " + NumberText(l_Form.dPeriod) + " s"
                             : ", the period in seconds is not known: sample counts from 0")};
    bool l_bScaled = false;
    for (size_t i = 0; i < i_vChannels.size(); ++i) {
        const S_CHANNEL& l_Channel = i_vChannels[i];
        l_Form.vColumns.push_back("channel_" + std::to_string(i));
        l_Form.vHead.push_back(l_Form.vColumns.back() + ": " + l_Channel.Unit.Name() +
                               (l_Channel.strSource.empty() ? "" : ", " + l_Channel.strSource));
        if (l_Channel.Unit.IsScaled()) {
            l_Form.vHead.back() += ", value * " + NumberText(l_Channel.Unit.dScale) + " + " +
                                   NumberText(l_Channel.Unit.dOffset);
        }
        l_Form.vScales.emplace_back(l_Channel.Unit.dScale, l_Channel.Unit.dOffset);
        l_bScaled = l_bScaled || l_Channel.Unit.IsScaled();
    }
    if (i_Driver.strLinkType == "IM") {
        std::array<double, 13> l_adA{};
        std::array<double, 13> l_adB{};
        if (GetMBCalibrationCoeff(l_adA.data(), l_adB.data(), 13) == 1) {
            std::string l_strPairs = "calibration a, b of the inputs 0 to 12:";
            for (size_t i = 0; i < l_adA.size(); ++i) {
                l_strPairs += " " + NumberText(l_adA[i]) + "," + NumberText(l_adB[i]);
            }
            l_Form.vHead.push_back(l_strPairs);
        }
    }
    if (!l_bScaled) {
        l_Form.vScales.clear();
    }
    return l_Form;
}

E_EXISTING ExistingOf(const S_TABLE_OPTIONS& i_Options)
{
    return i_Options.bAppend  ? E_EXISTING::APPEND
           : i_Options.bForce ? E_EXISTING::REPLACE
                              : E_EXISTING::REFUSE;
}

/** Refuses a picture before anything is acquired for it. */
const S_TABLE_OPTIONS& Checked(const S_TABLE_OPTIONS& i_Options)
{
    if (i_Options.IsNpy() &&
        (i_Options.bAppend || i_Options.strCsv.empty() || i_Options.strCsv == "-")) {
        throw S_FAILURE{k_lExitUsage, "--format npy needs a new file, named by --csv"};
    }
    if (i_Options.strPlot.empty()) {
        return i_Options;
    }
    CheckPicture(i_Options.strPlot);
    std::error_code l_Error;
    if (!i_Options.bForce && !i_Options.bAppend &&
        std::filesystem::exists(i_Options.strPlot, l_Error)) {
        throw S_FILE_ERROR{"the picture " + i_Options.strPlot +
                           " is there already: --force replaces it"};
    }
    std::string l_strTried;
    OpenBeside(i_Options.strPlot, l_strTried);
    std::filesystem::remove(l_strTried, l_Error);
    return i_Options;
}

} // namespace

void AddTableOptions(CCommand i_Command, S_TABLE_OPTIONS& io_Options)
{
    const COption l_Csv = i_Command.Option(
        "--csv", io_Options.strCsv,
        "file to write, - for standard output: comment lines, column names, one row per sample");
    i_Command
        .Option("--format", io_Options.strFormat,
                "csv, or npy: an array of numpy whose columns have names and are of 64 bits")
        .OneOf({"csv", "npy"})
        .ShowDefault();
    i_Command.Option("--plot", io_Options.strPlot, "picture to draw, .png, .svg or .pdf")
        .Check([l_Csv](const std::string&) {
            return l_Csv.Text() == "-"
                       ? std::string("a picture needs a table in a file, not --csv -")
                       : std::string();
        });
    const COption l_Force =
        i_Command.Flag("--force", io_Options.bForce, "replace files that are there already");
    i_Command
        .Flag("--append", io_Options.bAppend, "put the rows behind those of a file that is there")
        .Excludes(l_Force);
    i_Command
        .Option("--period", io_Options.dPeriod,
                "seconds from sample to sample, for the column time_s; without it the key "
                "SAMPLE_PERIOD\nof the configuration. What its own period counts the device does "
                "not tell: with neither\nof the two the column is sample, 0, 1, 2 and so on")
        .Positive();
}

void AddRunOptions(CCommand i_Command, S_RUN_OPTIONS& io_Options, const std::string& i_strSteps)
{
    const COption l_Steps =
        i_Command.Option("--" + i_strSteps, io_Options.ulSteps, "number of " + i_strSteps)
            .Within(1U, 1000000000U);
    i_Command.Flag("--follow", io_Options.bFollow, "until stopped; with --json one object a line")
        .Excludes(l_Steps);
    i_Command.Option("--interval", io_Options.ulInterval, "pause between two, milliseconds")
        .ShowDefault();
    AddTableOptions(i_Command, io_Options.Table);
}

void CheckRun(const S_RUN_OPTIONS& i_Options, const std::string& i_strSteps)
{
    if (i_Options.ulSteps == 0 && !i_Options.bFollow) {
        throw S_FAILURE{k_lExitUsage, "--" + i_strSteps + " or --follow is required"};
    }
}

S_TABLE_OPTIONS WithPeriod(S_TABLE_OPTIONS i_Options, const CSession& i_Session,
                           const S_DRIVER& i_Driver)
{
    if (i_Options.dPeriod == 0) {
        i_Options.dPeriod =
            std::max(0.0, i_Session.Settings().Real(i_Driver.strLinkType, "SAMPLE_PERIOD", 0));
    }
    return i_Options;
}

const char* VersionText()
{
    return TORNVAL_VERSION;
}

std::string NowText()
{
    const std::time_t l_Now = std::time(nullptr);
    std::tm l_Time{};
    gmtime_r(&l_Now, &l_Time);
    std::array<char, 40> l_szText{};
    std::strftime(l_szText.data(), l_szText.size(), "%Y-%m-%dT%H:%M:%SZ", &l_Time);
    return l_szText.data();
}

CTableOutput::CTableOutput(CProgram& io_Program, const S_TABLE_OPTIONS& i_Options,
                           const S_DRIVER& i_Driver, const std::vector<S_CHANNEL>& i_vChannels,
                           std::string i_strTitle)
    : m_Program(io_Program), m_Options(Checked(i_Options)), m_Plot{std::move(i_strTitle),
                                                                   {},
                                                                   io_Program.Options().bProgress},
      m_Csv(i_Options.strCsv, FormOf(i_Options, i_Driver, i_vChannels), ExistingOf(i_Options),
            i_Options.strCsv == "-" ? io_Program.TakeOutputForTable() : -1)
{
    for (size_t i = 0; i < i_vChannels.size(); ++i) {
        m_Plot.vLabels.push_back("channel " + std::to_string(i) + ", " +
                                 i_vChannels[i].Unit.Name());
    }
    if (i_Driver.IsSimulated()) {
        m_Plot.strTitle += " (simulated)";
    }
}

void CTableOutput::TakeSteps(const S_RUN_OPTIONS& i_Options, const std::string& i_strStep,
                             const std::function<void(uint64_t)>& i_fnStep)
{
    CProgress l_Progress(m_Program.Options().bProgress, i_strStep + "s", i_Options.ulSteps);
    for (uint64_t i = 0; (i_Options.bFollow || i < i_Options.ulSteps) && StopSignal() == 0; ++i) {
        if (i != 0) {
            SleepUnlessStopped(std::chrono::milliseconds(i_Options.ulInterval));
        }
        if (StopSignal() != 0) {
            return;
        }
        i_fnStep(i);
        m_Program.Document()[i_strStep + "s"] = i + 1;
        if (i_Options.bFollow) {
            m_Program.Stream({{"time", NowText()}, {i_strStep, i}, {"rows", Rows()}});
        }
        l_Progress.Advance();
    }
}

void CTableOutput::Append(const Channels& i_vChannels)
{
    m_Csv.Append(i_vChannels);
}

void CTableOutput::Run(const std::function<void()>& i_fnAcquire,
                       const std::function<void()>& i_fnStop)
{
    const auto l_StopAfterFailure = [&] {
        try {
            i_fnStop();
            m_Program.Document()["stopped"] = true;
        } catch (const S_FAILURE& l_Failure) {
            CProgram::Note("the stop failed too: " + l_Failure.strMessage);
        } catch (const S_STOPPED&) {
            CProgram::Note("the stop was sent, its answer did not come in time");
        }
    };
    try {
        i_fnAcquire();
    } catch (S_FAILURE& l_Failure) {
        l_StopAfterFailure();
        l_Failure.strMessage += Keep();
        throw;
    } catch (S_FILE_ERROR& l_Error) {
        l_StopAfterFailure();
        if (l_Error.lError != EPIPE) {
            l_Error.strMessage += Keep();
        }
        throw;
    } catch (const S_STOPPED&) {
        l_StopAfterFailure();
        Complete();
        throw StoppedBySignal("what had arrived is written");
    }
    if (StopSignal() != 0) {
        l_StopAfterFailure();
        Complete();
        throw StoppedBySignal("the acquisition is stopped and what had arrived is written");
    }
    try {
        i_fnStop();
        m_Program.Document()["stopped"] = true;
    } catch (const S_FAILURE&) {
        Complete();
        throw;
    }
    Complete();
}

void CTableOutput::Picture()
{
    if (m_Options.strPlot.empty() || m_Csv.Rows() == 0) {
        return;
    }
    try {
        PlotCsv(m_Csv.Path(), m_Options.strPlot, m_Plot);
    } catch (const S_STOPPED&) {
        throw StoppedBySignal("the picture is not drawn, the table is whole");
    }
    m_Program.Document()["plot"] = m_Options.strPlot;
    m_Program.Print("plot: " + m_Options.strPlot + "\n");
}

void CTableOutput::Complete()
{
    m_Program.Document()["rows"] = m_Csv.Rows();
    m_Program.Print("rows: " + std::to_string(m_Csv.Rows()) + "\n");
    if (m_Options.strCsv.empty() || m_Options.strCsv == "-" || m_Csv.Rows() == 0) {
        Picture();
        return;
    }
    // Of an array no picture is drawn, so it is made of the table that is still there.
    std::exception_ptr l_pNoPicture;
    if (m_Options.IsNpy()) {
        try {
            Picture();
        } catch (...) {
            l_pNoPicture = std::current_exception();
        }
        m_Csv.CommitAs(WriteNpy);
    } else {
        m_Csv.Commit();
    }
    m_Program.Document()[m_Options.strFormat] = m_Options.strCsv;
    m_Program.Print(m_Options.strFormat + ":  " + m_Options.strCsv + "\n");
    if (l_pNoPicture != nullptr) {
        std::rethrow_exception(l_pNoPicture);
    }
    if (!m_Options.IsNpy()) {
        Picture();
    }
}

std::string CTableOutput::Keep()
{
    const std::string l_strRows = std::to_string(m_Csv.Rows());
    m_Program.Document()["rows"] = m_Csv.Rows();
    if (m_Options.strCsv == "-" || !m_Csv.IsFile() || m_Csv.Rows() == 0) {
        return "; " + l_strRows + " rows had arrived";
    }
    std::string l_strKept = "; " + l_strRows + " rows had arrived";
    if (!m_Options.strCsv.empty()) {
        m_Program.Document()["partial"] = m_Csv.Path();
        l_strKept += " and are kept in " + m_Csv.Path();
    }
    try {
        Picture();
    } catch (const S_FILE_ERROR& l_Error) {
        l_strKept += "; " + l_Error.strMessage;
    } catch (const S_FAILURE&) {
        // Standard output is gone; the first failure counts.
    }
    return l_strKept;
}

} // namespace host
