/** tornval calibration set: writes pairs of the board. */
#include "Calibration.h"

namespace host {

namespace {

struct S_SET_OPTIONS
{
    std::vector<uint32_t> vInputs;
    std::vector<double> vA;
    std::vector<double> vB;
    S_WRITE_OPTIONS Write;
};

void RunSet(CProgram& io_Program, const S_SET_OPTIONS& i_Options)
{
    if (i_Options.vA.size() != i_Options.vInputs.size() ||
        i_Options.vB.size() != i_Options.vInputs.size()) {
        throw S_FAILURE{k_lExitUsage, "each --input needs one --a and one --b"};
    }
    std::vector<S_NEW_PAIR> l_vPairs;
    for (size_t i = 0; i < i_Options.vInputs.size(); ++i) {
        l_vPairs.push_back({i_Options.vInputs[i], i_Options.vA[i], i_Options.vB[i]});
    }
    WritePairs(io_Program, l_vPairs, i_Options.Write);
}

} // namespace

void AddCalibrationSetCommand(CCommand i_Calibration, CProgram& io_Program)
{
    auto [l_Set, l_Options] = io_Program.AddCommand(
        i_Calibration, "set",
        "Writes pairs and restarts the board; --input, --a and --b may be repeated together",
        RunSet);
    l_Set.Option("--input,--voie", l_Options.vInputs, "input of the board, 0 to 12")
        .Required()
        .Within(0, 12);
    l_Set.Option("--a", l_Options.vA, "its factor").Required();
    l_Set.Option("--b", l_Options.vB, "its offset").Required();
    AddWriteOptions(l_Set, l_Options.Write);
}

} // namespace host
