/** tornval probe measure, record: one value, or a rolling acquisition. */
#include "Program.h"
#include "Progress.h"
#include "Samples.h"

namespace host {

namespace {

constexpr uint32_t k_ulTimeout = 5000;
constexpr uint32_t k_ulStopTimeout = 1000;
constexpr uint8_t k_ucStop = 34;

struct S_PROBE_OPTIONS
{
    uint32_t ulDriver = 0;
    uint32_t ulChannel = 0;
    uint32_t ulParam = 0;
    uint32_t ulReads = 1;
    uint32_t ulInterval = 100;
    std::string strCsv;
    std::string strPlot;
};

void RunProbeMeasure(CProgram& io_Program, const S_PROBE_OPTIONS& i_Options)
{
    const CSession l_Session(io_Program.Options());
    const S_DRIVER& l_Probe = l_Session.ProbeByID(i_Options.ulDriver);
    int32_t l_lValue = 0;
    const CElapsed l_Elapsed;
    const S_RESULT l_Result =
        GetInstantMeasureOnDevice(l_Probe.ulID, &l_lValue, i_Options.ulChannel, i_Options.ulParam);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, {k_lNoCommand, l_Elapsed.Ms()});
    }
    io_Program.Document().update({{"driver", l_Probe.ulID},
                                  {"channel", i_Options.ulChannel},
                                  {"param", i_Options.ulParam},
                                  {"value", l_lValue}});
    io_Program.Print(std::to_string(l_lValue) + "\n");
}

void Append(std::vector<uint8_t>& io_vBytes, uint32_t i_ulWord)
{
    for (unsigned l_uShift = 0; l_uShift < 32; l_uShift += 8) {
        io_vBytes.push_back(static_cast<uint8_t>(i_ulWord >> l_uShift));
    }
}

/** A rolling acquisition: whoever starts it stops it, whatever happens in between. */
class CRecording
{
public:
    CRecording(CProgram& io_Program, const S_DRIVER& i_Probe, const S_PROBE_OPTIONS& i_Options)
        : m_Program(io_Program), m_Probe(i_Probe), m_Options(i_Options)
    {
    }

    void Start()
    {
        std::vector<uint8_t> l_vPayload;
        Append(l_vPayload, m_Options.ulParam);
        if (m_Options.ulChannel == 1) {
            Append(l_vPayload, 3);
        }
        m_Exchange.RunOrThrow(m_Probe, m_Options.ulChannel == 0 ? 32 : 64, l_vPayload, k_ulTimeout);
    }

    void Stop() { m_Exchange.RunOrThrow(m_Probe, k_ucStop, {}, k_ulStopTimeout); }

    /** Reads until the number is reached or a signal asks to stop. */
    void Read(CCsvFile& io_Csv, size_t i_uColumns)
    {
        CProgress l_Progress(m_Program.Options().bProgress, "recording", m_Options.ulReads);
        for (uint32_t i = 0; i < m_Options.ulReads && StopSignal() == 0; ++i) {
            if (i != 0) {
                SleepUnlessStopped(std::chrono::milliseconds(m_Options.ulInterval));
            }
            ReadOnce(io_Csv, i_uColumns);
            m_Program.Document()["reads"] = i + 1;
            m_Program.Document()["rows"] = io_Csv.Rows();
            l_Progress.Advance();
        }
    }

    /** Reads whose samples came with an error status of the probe. */
    uint32_t Flagged() const { return m_ulFlagged; }
    const std::string& FlaggedWords() const { return m_strFlagged; }

private:
    void ReadOnce(CCsvFile& io_Csv, size_t i_uColumns)
    {
        const S_RESULT l_Result =
            m_Exchange.Run(m_Probe, m_Options.ulChannel == 0 ? 33 : 1, 0, {}, k_ulTimeout);
        const bool l_bCarriesSamples = l_Result.ulStep == TORNVAL_STEP_RESULT &&
                                       (l_Result.ulFwStatus == 44 || l_Result.ulFwStatus == 48);
        if (l_Result.ulStatus != 0) {
            if (!l_bCarriesSamples) {
                throw FailureOf(l_Result, m_Exchange.Call());
            }
            ++m_ulFlagged;
            m_strFlagged = ExplainRecord(l_Result, m_Exchange.Call());
        }
        Channels l_vChannels;
        if (!SplitChannels(m_Exchange.Words(), m_Exchange.Size(), k_uProbeChannels, l_vChannels)) {
            throw S_FAILURE{k_lExitDevice, "the sample counts of a read do not add up to its size"};
        }
        l_vChannels.resize(i_uColumns);
        io_Csv.Append(l_vChannels);
    }

    CProgram& m_Program;
    const S_DRIVER& m_Probe;
    const S_PROBE_OPTIONS& m_Options;
    CExchange m_Exchange;
    uint32_t m_ulFlagged = 0;
    std::string m_strFlagged;
};

void RunProbeRecord(CProgram& io_Program, const S_PROBE_OPTIONS& i_Options)
{
    const CSession l_Session(io_Program.Options());
    const S_DRIVER& l_Probe = l_Session.ProbeByID(i_Options.ulDriver);
    const size_t l_uColumns = i_Options.ulChannel + 1;
    CCsvFile l_Csv(i_Options.strCsv, l_uColumns);
    CatchStopSignals();
    CRecording l_Recording(io_Program, l_Probe, i_Options);
    try {
        l_Recording.Start();
        l_Recording.Read(l_Csv, l_uColumns);
    } catch (const S_FAILURE&) {
        try {
            l_Recording.Stop();
        } catch (const S_FAILURE& l_StopFailure) {
            CProgram::Note("the stop failed too: " + l_StopFailure.strMessage);
        }
        throw;
    }
    l_Recording.Stop();
    io_Program.Document()["stopped"] = true;
    io_Program.Print("rows: " + std::to_string(l_Csv.Rows()) + "\n");
    if (!i_Options.strCsv.empty()) {
        io_Program.Document()["csv"] = i_Options.strCsv;
        io_Program.Print("csv:  " + i_Options.strCsv + "\n");
    }
    if (!i_Options.strPlot.empty() && l_Csv.Rows() != 0) {
        PlotCsv(l_Csv.Path(), l_uColumns, i_Options.strPlot, "Rolling acquisition of the probe");
        io_Program.Document()["plot"] = i_Options.strPlot;
        io_Program.Print("plot: " + i_Options.strPlot + "\n");
    }
    if (l_Recording.Flagged() != 0) {
        throw S_FAILURE{k_lExitDevice, std::to_string(l_Recording.Flagged()) +
                                           " reads carried an error status, their samples are "
                                           "kept; the last: " +
                                           l_Recording.FlaggedWords()};
    }
    ThrowIfStopped("the acquisition is stopped and what had arrived is written");
}

CLI::App& AddProbeOptions(CLI::App& io_Command, S_PROBE_OPTIONS& io_Options)
{
    io_Command.add_option("--driver", io_Options.ulDriver, "ID of the probe")->required();
    io_Command.add_option("--channel", io_Options.ulChannel, "0 or 1")
        ->required()
        ->check(CLI::Range(0, 1));
    return io_Command;
}

} // namespace

void AddProbeCommands(CLI::App& io_App, CProgram& io_Program)
{
    CLI::App& l_Probe = *io_App.add_subcommand("probe", "Measures with a probe");
    l_Probe.require_subcommand(1);
    auto l_pOptions = std::make_shared<S_PROBE_OPTIONS>();
    AddProbeOptions(
        io_Program.AddCommand(l_Probe, "measure", "Takes one measure and prints it",
                              [=, &io_Program] { RunProbeMeasure(io_Program, *l_pOptions); }),
        *l_pOptions)
        .add_option("--param", l_pOptions->ulParam, "measuring parameter, handed to the probe")
        ->required();

    CLI::App& l_Record = AddProbeOptions(
        io_Program.AddCommand(l_Probe, "record",
                              "Runs a rolling acquisition: start, reads, stop. Ctrl-C stops it "
                              "properly",
                              [=, &io_Program] { RunProbeRecord(io_Program, *l_pOptions); }),
        *l_pOptions);
    l_Record.add_option("--param", l_pOptions->ulParam, "measuring parameter, handed to the probe")
        ->capture_default_str();
    l_Record.add_option("--reads", l_pOptions->ulReads, "number of reads")
        ->required()
        ->check(CLI::Range(1U, 1000000000U));
    l_Record.add_option("--interval", l_pOptions->ulInterval, "pause between two, milliseconds")
        ->capture_default_str();
    l_Record.add_option("--csv", l_pOptions->strCsv,
                        "file to write: a header line, then one row per sample; channel 1 brings "
                        "both channels");
    l_Record.add_option("--plot", l_pOptions->strPlot, "PNG file to draw");
}

} // namespace host
