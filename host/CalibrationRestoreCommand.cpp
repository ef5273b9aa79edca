/** tornval calibration restore: writes the pairs of a file that save or set left. */
#include "Calibration.h"

#include <algorithm>

namespace host {

namespace {

struct S_RESTORE_OPTIONS
{
    std::string strFile;
    S_WRITE_OPTIONS Write;
};

void RunRestore(CProgram& io_Program, const S_RESTORE_OPTIONS& i_Options)
{
    std::vector<S_NEW_PAIR> l_vPairs = LoadPairs(i_Options.strFile);
    S_PAIRS l_Now;
    {
        const CSession l_Session(io_Program.Options());
        l_Session.ByLinkType("IM");
        l_Now = ReadPairs();
    }
    // What is the same need not be written, and what the board delivers itself need not be doubted.
    std::erase_if(l_vPairs, [&](const S_NEW_PAIR& i_Pair) {
        return l_Now.adA[i_Pair.ulInput] == i_Pair.dA && l_Now.adB[i_Pair.ulInput] == i_Pair.dB;
    });
    if (l_vPairs.empty()) {
        io_Program.Document()["written"] = 0;
        io_Program.Print("the board has these pairs already\n");
        return;
    }
    WritePairs(io_Program, l_vPairs, i_Options.Write);
}

} // namespace

void AddCalibrationRestoreCommand(CCommand i_Calibration, CProgram& io_Program)
{
    auto [l_Restore, l_Options] = io_Program.AddCommand(
        i_Calibration, "restore",
        "Writes the pairs of a file that \"calibration save\" or \"calibration set\" left, and "
        "restarts the board",
        RunRestore);
    l_Restore.Option("FILE", l_Options.strFile, "the file").Required();
    AddWriteOptions(l_Restore, l_Options.Write);
}

} // namespace host
