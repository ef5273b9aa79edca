/** tornval measure, microohm, generator: single values. */
#include "Program.h"
#include "Progress.h"

#include <unistd.h>

namespace host {

namespace {

struct S_MEASURE_OPTIONS
{
    uint32_t ulVoie = 0;
    bool bRaw = false;
    uint32_t ulCount = 1;
    uint32_t ulInterval = 0;
    std::optional<uint32_t> ulDriver;
    uint32_t ulParam = 0;
};

S_RESULT TakeMeasure(const S_DRIVER& i_Driver, const S_MEASURE_OPTIONS& i_Options,
                     int32_t& o_lValue)
{
    if (i_Options.ulDriver) {
        return GetInstantMeasureOnDevice(i_Driver.ulID, &o_lValue, i_Options.ulVoie,
                                         i_Options.ulParam);
    }
    return i_Options.bRaw ? GetInstantMeasureWithoutCompensation(&o_lValue, i_Options.ulVoie)
                          : GetInstantMeasure(&o_lValue, i_Options.ulVoie);
}

void RunMeasure(CProgram& io_Program, const S_MEASURE_OPTIONS& i_Options)
{
    CSession l_Session(io_Program.Options());
    const S_DRIVER l_Driver =
        i_Options.ulDriver ? l_Session.ByID(*i_Options.ulDriver) : l_Session.ByLinkType("IM");
    io_Program.Document()["driver"] = l_Driver.ulID;
    io_Program.Document()["voie"] = i_Options.ulVoie;
    io_Program.Document()["compensated"] = !i_Options.bRaw;
    nlohmann::json& l_Values = io_Program.Document()["values"] = nlohmann::json::array();

    // Values that run over the terminal are progress enough.
    std::optional<CProgress> l_Progress;
    if (i_Options.ulCount > 1 && (io_Program.Options().bProgress || io_Program.Options().bJson ||
                                  isatty(STDOUT_FILENO) == 0)) {
        l_Progress.emplace(io_Program.Options().bProgress, "measures", i_Options.ulCount);
    }
    CatchStopSignals();
    for (uint32_t i = 0; i < i_Options.ulCount; ++i) {
        int32_t l_lValue = 0;
        const CElapsed l_Elapsed;
        const S_RESULT l_Result = TakeMeasure(l_Driver, i_Options, l_lValue);
        if (l_Result.ulStatus != 0) {
            throw FailureOf(l_Result, {l_Driver.IsProbe() ? k_lNoCommand : 212, l_Elapsed.Ms()});
        }
        l_Values.push_back(l_lValue);
        io_Program.Print(std::to_string(l_lValue) + "\n");
        if (l_Progress) {
            l_Progress->Advance();
        }
        if (i + 1 < i_Options.ulCount) {
            SleepUnlessStopped(std::chrono::milliseconds(i_Options.ulInterval));
            ThrowIfStopped(std::to_string(i + 1) + " measures were taken");
        }
    }
}

void RunMicroOhm(CProgram& io_Program)
{
    CSession l_Session(io_Program.Options());
    io_Program.Document()["driver"] = l_Session.ByLinkType("MO").ulID;
    std::vector<int32_t> l_vValues(3);
    S_RESULT l_Result{};
    S_CALL l_Call{161, 0};
    RunWithProgress(io_Program.Options().bProgress, "milliohm measure", [&] {
        const CElapsed l_Elapsed;
        l_Result = GetAllMicroOhmMeasure(&l_vValues[0], &l_vValues[1], &l_vValues[2]);
        l_Call.ulElapsedMs = l_Elapsed.Ms();
    });
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, l_Call);
    }
    io_Program.Document()["values"] = l_vValues;
    for (const int32_t l_lValue : l_vValues) {
        io_Program.Print(std::to_string(l_lValue) + "\n");
    }
}

void RunGenerator(CProgram& io_Program, uint32_t i_ulValue)
{
    CSession l_Session(io_Program.Options());
    io_Program.Document()["driver"] = l_Session.ByLinkType("IM").ulID;
    const CElapsed l_Elapsed;
    const S_RESULT l_Result = CurrentGeneratorBurst(i_ulValue);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, {0, l_Elapsed.Ms()});
    }
    io_Program.Document()["value"] = i_ulValue;
    io_Program.Print("sent " + std::to_string(i_ulValue) + " to the current generator\n");
}

} // namespace

void AddMeasureCommands(CLI::App& io_App, CProgram& io_Program)
{
    auto l_pOptions = std::make_shared<S_MEASURE_OPTIONS>();
    CLI::App& l_Measure = io_Program.AddCommand(
        io_App, "measure", "Takes instant measures on the board and prints one per line",
        [=, &io_Program] { RunMeasure(io_Program, *l_pOptions); });
    l_Measure.add_option("--voie", l_pOptions->ulVoie, "measuring input; a probe's channel")
        ->required()
        ->check(CLI::Range(0, 12));
    CLI::Option* l_pRaw = l_Measure.add_flag("--raw", l_pOptions->bRaw,
                                             "without calibration: the value of the converter");
    l_Measure.add_option("--count", l_pOptions->ulCount, "number of measures")
        ->check(CLI::Range(1U, 1000000000U))
        ->capture_default_str();
    l_Measure.add_option("--interval", l_pOptions->ulInterval, "pause between two, milliseconds")
        ->capture_default_str();
    CLI::Option* l_pDriver =
        l_Measure
            .add_option("--driver", l_pOptions->ulDriver,
                        "ID of the board or probe that measures; the board without it")
            ->excludes(l_pRaw);
    l_Measure.add_option("--param", l_pOptions->ulParam, "measuring parameter of a probe")
        ->needs(l_pDriver);

    io_Program.AddCommand(io_App, "microohm",
                          "Takes a measure of the milliohm module and prints its three values",
                          [&io_Program] { RunMicroOhm(io_Program); });

    auto l_pValue = std::make_shared<uint32_t>(0);
    io_Program
        .AddCommand(io_App, "generator", "Sends a value to the current generator of the board",
                    [=, &io_Program] { RunGenerator(io_Program, *l_pValue); })
        .add_option("--value", *l_pValue, "the value")
        ->required()
        ->check(CLI::Range(0, 255));
}

} // namespace host
