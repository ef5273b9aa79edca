/** tornval calibration get, set: the pairs a, b of the board. */
#include "Program.h"
#include "Progress.h"

#include <array>
#include <cmath>

namespace host {

namespace {

constexpr uint32_t k_ulNbVoies = 13;

struct S_PAIRS
{
    std::array<double, k_ulNbVoies> adA{};
    std::array<double, k_ulNbVoies> adB{};
};

struct S_SET_OPTIONS
{
    std::vector<uint32_t> vVoies;
    std::vector<double> vA;
    std::vector<double> vB;
    bool bVerify = false;
};

S_PAIRS ReadPairs()
{
    S_PAIRS l_Pairs;
    if (GetMBCalibrationCoeff(l_Pairs.adA.data(), l_Pairs.adB.data(), k_ulNbVoies) != 1) {
        throw S_FAILURE{k_lExitNoDriver, "no board delivers its calibration"};
    }
    return l_Pairs;
}

void AddPair(CProgram& io_Program, nlohmann::json& io_List, const S_PAIRS& i_Pairs,
             uint32_t i_ulVoie)
{
    const double l_dA = i_Pairs.adA[i_ulVoie];
    const double l_dB = i_Pairs.adB[i_ulVoie];
    io_List.push_back({{"voie", i_ulVoie}, {"a", l_dA}, {"b", l_dB}});
    std::array<char, 900> l_szRow{};
    std::snprintf(l_szRow.data(), l_szRow.size(), "%4u  %12s  %12s\n", i_ulVoie,
                  NumberText(l_dA).c_str(), NumberText(l_dB).c_str());
    io_Program.Print(l_szRow.data());
}

void RunGet(CProgram& io_Program)
{
    CSession l_Session(io_Program.Options());
    io_Program.Document()["driver"] = l_Session.ByLinkType("IM").ulID;
    const S_PAIRS l_Pairs = ReadPairs();
    nlohmann::json& l_List = io_Program.Document()["pairs"] = nlohmann::json::array();
    io_Program.Print("voie             a             b\n");
    for (uint32_t i = 0; i < k_ulNbVoies; ++i) {
        AddPair(io_Program, l_List, l_Pairs, i);
    }
}

/** What the board makes of a number: it takes whole ones of 32 bits. */
double AsWritten(double i_dNumber)
{
    return std::trunc(i_dNumber);
}

void CheckPairs(const S_SET_OPTIONS& i_Options)
{
    if (i_Options.vA.size() != i_Options.vVoies.size() ||
        i_Options.vB.size() != i_Options.vVoies.size()) {
        throw S_FAILURE{k_lExitUsage, "each --voie needs one --a and one --b"};
    }
    for (const auto* l_pNumbers : {&i_Options.vA, &i_Options.vB}) {
        for (const double l_dNumber : *l_pNumbers) {
            if (!(l_dNumber > -2147483649.0 && l_dNumber < 2147483648.0)) {
                throw S_FAILURE{k_lExitUsage, "the board takes numbers of signed 32 bits, not " +
                                                  std::to_string(l_dNumber)};
            }
            if (AsWritten(l_dNumber) != l_dNumber) {
                CProgram::Note("the board takes whole numbers: " + NumberText(l_dNumber) +
                               " becomes " + NumberText(AsWritten(l_dNumber)));
            }
        }
    }
}

/** Loads the drivers anew, which reads the pairs from the board, and compares. */
void Verify(CProgram& io_Program, const S_SET_OPTIONS& i_Options)
{
    CSession l_Session(io_Program.Options());
    l_Session.ByLinkType("IM");
    const S_PAIRS l_Pairs = ReadPairs();
    nlohmann::json& l_List = io_Program.Document()["pairs"] = nlohmann::json::array();
    io_Program.Print("after a new load:\nvoie             a             b\n");
    bool l_bSame = true;
    for (size_t i = 0; i < i_Options.vVoies.size(); ++i) {
        const uint32_t l_ulVoie = i_Options.vVoies[i];
        AddPair(io_Program, l_List, l_Pairs, l_ulVoie);
        l_bSame = l_bSame && l_Pairs.adA[l_ulVoie] == AsWritten(i_Options.vA[i]) &&
                  l_Pairs.adB[l_ulVoie] == AsWritten(i_Options.vB[i]);
    }
    if (!l_bSame) {
        throw S_FAILURE{k_lExitDevice, "the board does not have the pairs that were written. A "
                                       "simulated board stores none"};
    }
}

void RunSet(CProgram& io_Program, S_SET_OPTIONS& io_Options)
{
    CheckPairs(io_Options);
    S_RESULT l_Result{};
    CElapsed l_Elapsed;
    {
        CSession l_Session(io_Program.Options());
        io_Program.Document()["driver"] = l_Session.ByLinkType("IM").ulID;
        RunWithProgress(io_Program.Options().bProgress, "calibration", [&] {
            l_Elapsed = CElapsed();
            l_Result = SetMBCalibration(io_Options.vVoies.data(), io_Options.vA.data(),
                                        io_Options.vB.data(),
                                        static_cast<uint32_t>(io_Options.vVoies.size()));
        });
    }
    if (l_Result.ulStatus != 0) {
        S_FAILURE l_Failure = FailureOf(l_Result, {k_lNoCommand, l_Elapsed.Ms()});
        if (l_Failure.lExitCode == k_lExitDevice && l_Result.ulStep == TORNVAL_STEP_RESULT &&
            l_Result.ulFwStatus == 0 && l_Result.ulLastError == 0) {
            l_Failure.strMessage +=
                "; or the pairs are written and only the restart of the board failed: the program "
                "of the key SET_RESET_EXEC is not named or cannot be run";
        }
        throw S_FAILURE(l_Failure);
    }
    io_Program.Document()["written"] = io_Options.vVoies.size();
    io_Program.Print("written: " + std::to_string(io_Options.vVoies.size()) + "\n");
    if (io_Options.bVerify) {
        Verify(io_Program, io_Options);
    }
}

} // namespace

void AddCalibrationCommands(CLI::App& io_App, CProgram& io_Program)
{
    CLI::App& l_Calibration =
        *io_App.add_subcommand("calibration", "Reads or writes the calibration of the board");
    l_Calibration.require_subcommand(1);
    io_Program.AddCommand(l_Calibration, "get", "Prints the pairs a, b of all measuring inputs",
                          [&io_Program] { RunGet(io_Program); });

    auto l_pOptions = std::make_shared<S_SET_OPTIONS>();
    CLI::App& l_Set = io_Program.AddCommand(
        l_Calibration, "set",
        "Writes pairs and restarts the board; --voie, --a and --b may be repeated together",
        [=, &io_Program] { RunSet(io_Program, *l_pOptions); });
    l_Set.add_option("--voie", l_pOptions->vVoies, "measuring input")
        ->required()
        ->check(CLI::Range(0, 12));
    l_Set.add_option("--a", l_pOptions->vA, "its factor")->required();
    l_Set.add_option("--b", l_pOptions->vB, "its offset")->required();
    l_Set.add_flag("--verify", l_pOptions->bVerify,
                   "load the drivers anew and check that the board has the pairs");
}

} // namespace host
