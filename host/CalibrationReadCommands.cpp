/** tornval calibration get, save: the pairs that the board delivers. */
#include "Calibration.h"

namespace host {

namespace {

struct S_SAVE_OPTIONS
{
    std::string strFile;
    bool bForce = false;
};

void RunGet(CProgram& io_Program)
{
    const CSession l_Session(io_Program.Options());
    Announce(io_Program, l_Session.ByLinkType("IM"));
    const S_PAIRS l_Pairs = ReadPairs();
    nlohmann::json l_List = nlohmann::json::array();
    io_Program.Print(PairHead());
    for (uint32_t i = 0; i < k_ulNbInputs; ++i) {
        TellPair(io_Program, l_List, i, l_Pairs.adA[i], l_Pairs.adB[i]);
    }
    io_Program.Document()["pairs"] = l_List;
}

void RunSave(CProgram& io_Program, const S_SAVE_OPTIONS& i_Options)
{
    const CSession l_Session(io_Program.Options());
    const S_DRIVER& l_Board = l_Session.ByLinkType("IM");
    Announce(io_Program, l_Board);
    SavePairs(i_Options.strFile, ReadPairs(), l_Board, i_Options.bForce);
    io_Program.Document()["file"] = i_Options.strFile;
    io_Program.Print("saved: " + i_Options.strFile + "\n");
}

} // namespace

void AddCalibrationReadCommands(CCommand i_Calibration, CProgram& io_Program)
{
    io_Program.AddCommand(i_Calibration, "get", "Prints the pairs a, b of all inputs",
                          [&io_Program] { RunGet(io_Program); });
    auto [l_Save, l_Options] = io_Program.AddCommand(
        i_Calibration, "save", "Saves the pairs of all inputs to a file", RunSave);
    l_Save.Option("FILE", l_Options.strFile, "the file").Required();
    l_Save.Flag("--force", l_Options.bForce, "replace a file that is there already");
}

} // namespace host
