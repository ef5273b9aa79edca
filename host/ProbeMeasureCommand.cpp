/** tornval probe measure: one value of a probe. */
#include "ProbeCommands.h"
#include "Session.h"

namespace host {

namespace {

struct S_PROBE_OPTIONS
{
    std::string strDriver;
    uint32_t ulChannel = 0;
    uint32_t ulParam = 0;
};

void RunProbeMeasure(CProgram& io_Program, const S_PROBE_OPTIONS& i_Options)
{
    const CSession l_Session(io_Program.Options());
    const S_DRIVER& l_Probe = l_Session.ProbeByName(i_Options.strDriver);
    Announce(io_Program, l_Probe);
    const auto l_pValue = std::make_shared<int32_t>(0);
    S_CALL l_Call;
    const S_RESULT l_Result = CallForRecord(
        [l_pValue, i_Options, l_ulID = l_Probe.ulID] {
            return GetInstantMeasureOnDevice(l_ulID, l_pValue.get(), i_Options.ulChannel,
                                             i_Options.ulParam);
        },
        l_Call);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, l_Call);
    }
    const S_UNIT l_Unit = UnitOf(l_Session.Settings(), l_Probe.strLinkType, i_Options.ulChannel);
    io_Program.Document().update({{"channel", i_Options.ulChannel},
                                  {"param", i_Options.ulParam},
                                  {"unit", l_Unit.Name()},
                                  {"value", ValueJson(l_Unit, *l_pValue)}});
    io_Program.Print(ValueText(l_Unit, *l_pValue) + "\n");
}

} // namespace

void AddProbeMeasureCommand(CCommand i_Probe, CProgram& io_Program)
{
    auto [l_Measure, l_Options] = io_Program.AddCommand(
        i_Probe, "measure", "Takes one measure and prints it", RunProbeMeasure);
    AddDriverOption(l_Measure, l_Options.strDriver, "the probe, BT, USB or a number").Required();
    l_Measure.Option("--channel", l_Options.ulChannel, "0 or 1").Required().Within(0, 1);
    l_Measure.Option("--param", l_Options.ulParam, "measuring parameter, handed to the probe")
        .Required();
}

void AddProbeCommands(CCommand i_Parent, CProgram& io_Program)
{
    const CCommand l_Probe = i_Parent.Add("probe", "Measures with a probe");
    l_Probe.RequireCommand();
    AddProbeMeasureCommand(l_Probe, io_Program);
    AddProbeRecordCommand(l_Probe, io_Program);
}

} // namespace host
