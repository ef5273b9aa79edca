/** tornval measure: instant measures, one or many or without an end. */
#include "Progress.h"
#include "Session.h"
#include "Stop.h"
#include "TableOutput.h"

#include <unistd.h>

namespace host {

namespace {

struct S_MEASURE_OPTIONS
{
    uint32_t ulInput = 0;
    bool bRaw = false;
    uint32_t ulCount = 1;
    uint32_t ulInterval = 0;
    std::optional<std::string> strDriver;
    uint32_t ulParam = 0;
};

S_RESULT TakeMeasure(uint32_t i_ulDriver, const S_MEASURE_OPTIONS& i_Options, int32_t& o_lValue)
{
    if (i_Options.strDriver) {
        return GetInstantMeasureOnDevice(i_ulDriver, &o_lValue, i_Options.ulInput,
                                         i_Options.ulParam);
    }
    return i_Options.bRaw ? GetInstantMeasureWithoutCompensation(&o_lValue, i_Options.ulInput)
                          : GetInstantMeasure(&o_lValue, i_Options.ulInput);
}

/** Takes one value. @throws S_FAILURE, S_STOPPED. */
int32_t OneMeasure(const S_DRIVER& i_Driver, const S_MEASURE_OPTIONS& i_Options)
{
    const auto l_pValue = std::make_shared<int32_t>(0);
    S_CALL l_Call{i_Driver.IsProbe() ? k_lNoCommand : 212, 0};
    const S_RESULT l_Result = CallForRecord(
        [l_pValue, i_Options, l_ulDriver = i_Driver.ulID] {
            return TakeMeasure(l_ulDriver, i_Options, *l_pValue);
        },
        l_Call);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, l_Call);
    }
    return *l_pValue;
}

void RunMeasure(CProgram& io_Program, const S_MEASURE_OPTIONS& i_Options)
{
    CSession l_Session(io_Program.Options());
    const S_DRIVER l_Driver =
        i_Options.strDriver ? l_Session.ByName(*i_Options.strDriver) : l_Session.ByLinkType("IM");
    Announce(io_Program, l_Driver);
    const S_UNIT l_Unit =
        i_Options.bRaw ? S_UNIT{}
                       : UnitOf(l_Session.Settings(), l_Driver.strLinkType, i_Options.ulInput);
    nlohmann::json& l_Document = io_Program.Document();
    l_Document["input"] = i_Options.ulInput;
    l_Document["compensated"] = !i_Options.bRaw;
    l_Document["unit"] = l_Unit.Name();
    const bool l_bEndless = i_Options.ulCount == 0;
    if (!l_bEndless) {
        l_Document["values"] = nlohmann::json::array();
    }

    // Values that run over the terminal are progress enough.
    std::optional<CProgress> l_Progress;
    if (i_Options.ulCount != 1 && (io_Program.Options().bProgress || io_Program.Options().bJson ||
                                   isatty(STDOUT_FILENO) == 0)) {
        l_Progress.emplace(io_Program.Options().bProgress, "measures", i_Options.ulCount);
    }
    uint64_t l_uTaken = 0;
    const auto l_Taken = [&] { return std::to_string(l_uTaken) + " measures were taken"; };
    while (l_bEndless || l_uTaken < i_Options.ulCount) {
        if (l_uTaken != 0) {
            SleepUnlessStopped(std::chrono::milliseconds(i_Options.ulInterval));
            ThrowIfStopped(l_Taken());
        }
        int32_t l_lValue = 0;
        try {
            l_lValue = OneMeasure(l_Driver, i_Options);
        } catch (const S_STOPPED&) {
            throw StoppedBySignal(l_Taken());
        }
        ++l_uTaken;
        const nlohmann::json l_Value = ValueJson(l_Unit, l_lValue);
        if (l_bEndless) {
            io_Program.Stream({{"time", NowText()}, {"value", l_Value}, {"unit", l_Unit.Name()}});
        } else {
            l_Document["values"].push_back(l_Value);
        }
        io_Program.Print(ValueText(l_Unit, l_lValue) + "\n");
        if (l_Progress) {
            l_Progress->Advance();
        }
    }
}

} // namespace

void AddMeasureCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto [l_Measure, l_Options] = io_Program.AddCommand(
        i_Parent, "measure", "Takes instant measures on the board and prints one per line",
        RunMeasure);
    l_Measure
        .Option("--input,--voie", l_Options.ulInput,
                "input of the board, 0 to 12; a probe's channel, 0 or 1")
        .Required()
        .Within(0, 12);
    const COption l_Raw =
        l_Measure.Flag("--raw", l_Options.bRaw, "without calibration: the value of the converter");
    l_Measure
        .Option("--count", l_Options.ulCount,
                "number of measures; 0: until stopped, with --json one object a line")
        .Within(0U, 1000000000U)
        .ShowDefault();
    l_Measure.Option("--interval", l_Options.ulInterval, "pause between two, milliseconds")
        .ShowDefault();
    const COption l_Driver =
        AddDriverOption(
            l_Measure, l_Options.strDriver,
            "board or probe that measures, IM, BT, USB or a number; the board without it")
            .Excludes(l_Raw);
    l_Measure.Option("--param", l_Options.ulParam, "measuring parameter of a probe")
        .Needs(l_Driver);
}

} // namespace host
