/** tornval probe record: a rolling acquisition of a probe. */
#include "ProbeCommands.h"
#include "Samples.h"
#include "Session.h"
#include "TableOutput.h"
#include "wire/Bytes.h"

namespace host {

namespace {

constexpr uint32_t k_ulReadTimeout = 5000;
constexpr uint32_t k_ulStopTimeout = 1000;
constexpr uint8_t k_ucStopRecord = 34;

struct S_RECORD_OPTIONS
{
    std::string strDriver;
    uint32_t ulChannel = 0;
    uint32_t ulParam = 0;
    S_RUN_OPTIONS Run;
};

class CRecording
{
public:
    CRecording(const S_DRIVER& i_Probe, const S_RECORD_OPTIONS& i_Options)
        : m_Probe(i_Probe), m_Options(i_Options)
    {
    }

    void Start()
    {
        std::vector<uint8_t> l_vPayload;
        wire::AppendNumber(l_vPayload, 4, m_Options.ulParam);
        if (m_Options.ulChannel == 1) {
            wire::AppendNumber(l_vPayload, 4, 3);
        }
        m_Exchange.RunOrThrow(m_Probe, m_Options.ulChannel == 0 ? 32 : 64, l_vPayload,
                              k_ulReadTimeout);
    }

    void Stop() { m_Exchange.RunOrThrow(m_Probe, k_ucStopRecord, {}, k_ulStopTimeout); }

    void Read(CTableOutput& io_Table)
    {
        io_Table.TakeSteps(m_Options.Run, "read", [&](uint64_t) { ReadOnce(io_Table); });
    }

    /** Tells of reads whose samples came with an error status of the probe. @throws S_FAILURE. */
    void ThrowIfFlagged() const
    {
        if (m_uFlagged != 0) {
            throw S_FAILURE{k_lExitDevice, std::to_string(m_uFlagged) +
                                               " reads carried an error status, their samples are "
                                               "kept; the last: " +
                                               m_strFlagged};
        }
    }

private:
    void ReadOnce(CTableOutput& io_Table)
    {
        const S_RESULT l_Result =
            m_Exchange.Run(m_Probe, m_Options.ulChannel == 0 ? 33 : 1, 0, {}, k_ulReadTimeout);
        const bool l_bCarriesSamples = l_Result.ulStep == TORNVAL_STEP_RESULT &&
                                       (l_Result.ulFwStatus == 44 || l_Result.ulFwStatus == 48);
        if (l_Result.ulStatus != 0) {
            if (!l_bCarriesSamples) {
                throw FailureOf(l_Result, m_Exchange.Call());
            }
            ++m_uFlagged;
            m_strFlagged = ExplainRecord(l_Result, m_Exchange.Call());
        }
        if (!SplitChannels(m_Exchange.Words(), m_Exchange.Size(), k_uProbeChannels, m_vChannels)) {
            throw S_FAILURE{k_lExitDevice, "the sample counts of a read do not add up to its size"};
        }
        m_vChannels.resize(m_Options.ulChannel + 1);
        io_Table.Append(m_vChannels);
    }

    const S_DRIVER& m_Probe;
    const S_RECORD_OPTIONS& m_Options;
    CExchange m_Exchange;
    Channels m_vChannels;
    uint64_t m_uFlagged = 0;
    std::string m_strFlagged;
};

void RunProbeRecord(CProgram& io_Program, const S_RECORD_OPTIONS& i_Options)
{
    CheckRun(i_Options.Run, "reads");
    const CSession l_Session(io_Program.Options());
    const S_DRIVER& l_Probe = l_Session.ProbeByName(i_Options.strDriver);
    Announce(io_Program, l_Probe);
    std::vector<S_CHANNEL> l_vChannels(i_Options.ulChannel + 1);
    for (uint32_t i = 0; i <= i_Options.ulChannel; ++i) {
        l_vChannels[i].Unit = UnitOf(l_Session.Settings(), l_Probe.strLinkType, i);
    }
    CTableOutput l_Table(io_Program, WithPeriod(i_Options.Run.Table, l_Session, l_Probe), l_Probe,
                         l_vChannels, "Rolling acquisition of the probe " + l_Probe.strLinkType);
    CRecording l_Recording(l_Probe, i_Options);
    l_Table.Run(
        [&] {
            l_Recording.Start();
            l_Recording.Read(l_Table);
        },
        [&] { l_Recording.Stop(); });
    l_Recording.ThrowIfFlagged();
}

} // namespace

void AddProbeRecordCommand(CCommand i_Probe, CProgram& io_Program)
{
    auto [l_Record, l_Options] = io_Program.AddCommand(
        i_Probe, "record",
        "Runs a rolling acquisition: start, reads, stop. Ctrl-C stops it properly", RunProbeRecord);
    AddDriverOption(l_Record, l_Options.strDriver, "the probe, BT, USB or a number").Required();
    l_Record.Option("--channel", l_Options.ulChannel, "0, or 1 for both channels")
        .Required()
        .Within(0, 1);
    l_Record.Option("--param", l_Options.ulParam, "measuring parameter, handed to the probe")
        .ShowDefault();
    l_Options.Run.ulInterval = 100;
    AddRunOptions(l_Record, l_Options.Run, "reads");
}

} // namespace host
