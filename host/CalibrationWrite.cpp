/** Writing pairs: everything is checked before the first one, and what the board holds is said after. */
#include "Calibration.h"
#include "CsvFile.h"
#include "Progress.h"
#include "Stop.h"
#include "TableOutput.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <utility>

#include <unistd.h>

namespace host {

namespace {

/** What the board makes of a number: it takes whole ones. */
double AsWritten(double i_dNumber)
{
    return std::trunc(i_dNumber);
}

std::string InputText(const S_NEW_PAIR& i_Pair)
{
    return "input " + std::to_string(i_Pair.ulInput);
}

/** @throws S_FAILURE if the wire would make other numbers of them, or a measure would make no sense. */
void CheckPairs(const std::vector<S_NEW_PAIR>& i_vPairs, const S_WRITE_OPTIONS& i_Options)
{
    for (auto l_It = i_vPairs.begin(); l_It != i_vPairs.end(); ++l_It) {
        if (std::any_of(i_vPairs.begin(), l_It, [&](const S_NEW_PAIR& i_Other) {
                return i_Other.ulInput == l_It->ulInput;
            })) {
            throw S_FAILURE{k_lExitUsage, InputText(*l_It) + " is named twice"};
        }
        for (const double l_dNumber : {l_It->dA, l_It->dB}) {
            if (!(l_dNumber > -2147483649.0 && l_dNumber < 2147483648.0)) {
                throw S_FAILURE{k_lExitUsage,
                                InputText(*l_It) +
                                    ": the board takes numbers of signed 32 bits, not " +
                                    NumberText(l_dNumber)};
            }
            if (AsWritten(l_dNumber) != l_dNumber && !i_Options.bYes) {
                throw S_FAILURE{k_lExitUsage,
                                InputText(*l_It) + ": the board takes whole numbers, " +
                                    NumberText(l_dNumber) + " would become " +
                                    NumberText(AsWritten(l_dNumber)) + "; --yes writes that"};
            }
        }
        if (AsWritten(l_It->dA) < 0) {
            throw S_FAILURE{k_lExitUsage, InputText(*l_It) +
                                              ": the board gives a factor back without its sign, " +
                                              NumberText(l_It->dA) + " would become another one"};
        }
        if (AsWritten(l_It->dA) == 0 && !i_Options.bYes) {
            throw S_FAILURE{k_lExitUsage, InputText(*l_It) +
                                              ": with a factor of 0 every measure is the offset; "
                                              "--yes writes that"};
        }
    }
}

/** @throws S_FAILURE unless the program that restarts the board can be run. */
void CheckResetProgram(const CSettings& i_Settings)
{
    const std::string l_strName = i_Settings.Text("IM", "SET_RESET_EXEC").value_or("");
    const std::string l_strNothing = ". Nothing was written";
    if (l_strName.empty()) {
        throw S_FAILURE{k_lExitDevice, "the key SET_RESET_EXEC names no program that restarts the "
                                       "board" +
                                           l_strNothing};
    }
    const std::optional<std::filesystem::path> l_Path = FindFile(l_strName);
    std::error_code l_Error;
    if (!l_Path) {
        throw S_FAILURE{k_lExitDevice,
                        "the program " + l_strName + " of the key SET_RESET_EXEC is neither in " +
                            HomeFolder().string() + " nor in the working folder" + l_strNothing};
    }
    if (!std::filesystem::is_regular_file(*l_Path, l_Error) || access(l_Path->c_str(), X_OK) != 0) {
        throw S_FAILURE{k_lExitDevice, "the program " + l_Path->string() +
                                           " of the key SET_RESET_EXEC cannot be run" +
                                           l_strNothing};
    }
}

std::string NewKeepName()
{
    std::string l_strTime = NowText();
    std::erase_if(l_strTime, [](char i_c) { return i_c == '-' || i_c == ':'; });
    return "calibration-before-" + l_strTime + ".csv";
}

/** Whether all pairs are on the board, as a new load delivers them; tells each. */
bool TellBoard(CProgram& io_Program, const std::vector<S_NEW_PAIR>& i_vPairs, const S_PAIRS& i_Old)
{
    const CSession l_Session(io_Program.Options());
    l_Session.ByLinkType("IM");
    const S_PAIRS l_Now = ReadPairs();
    nlohmann::json& l_List = io_Program.Document()["pairs"] = nlohmann::json::array();
    io_Program.Print("after a new load the board delivers:\n" + PairHead());
    bool l_bSame = true;
    for (const S_NEW_PAIR& l_Pair : i_vPairs) {
        const double l_dA = l_Now.adA[l_Pair.ulInput];
        const double l_dB = l_Now.adB[l_Pair.ulInput];
        TellPair(io_Program, l_List, l_Pair.ulInput, l_dA, l_dB);
        const bool l_bNew = l_dA == AsWritten(l_Pair.dA) && l_dB == AsWritten(l_Pair.dB);
        const bool l_bOld = l_dA == i_Old.adA[l_Pair.ulInput] && l_dB == i_Old.adB[l_Pair.ulInput];
        l_List.back()["is"] = l_bNew ? "new" : l_bOld ? "old" : "neither";
        l_bSame = l_bSame && l_bNew;
    }
    return l_bSame;
}

/** Says what the board holds after a failed write. */
std::string WhatStands(CProgram& io_Program, const std::vector<S_NEW_PAIR>& i_vPairs,
                       const S_PAIRS& i_Old)
{
    try {
        std::string l_strWords;
        TellBoard(io_Program, i_vPairs, i_Old);
        for (const nlohmann::json& l_Pair : io_Program.Document()["pairs"]) {
            l_strWords +=
                (l_strWords.empty() ? "" : ", ") + std::string("input ") +
                std::to_string(l_Pair["input"].get<uint32_t>()) + " the " +
                (l_Pair["is"] == "neither" ? std::string("pair above, neither old nor new")
                                           : l_Pair["is"].get<std::string>() + " pair");
        }
        return "The board now delivers: " + l_strWords;
    } catch (const S_FAILURE& l_Failure) {
        return "What the board delivers now could not be read: " + l_Failure.strMessage;
    } catch (const S_STOPPED&) {
        return "What the board delivers now was not read";
    }
}

/** Runs the library's write. A signal does not cut it short: half a write would stay, or a board that
 *  is held in reset. */
S_RESULT Write(CProgram& io_Program, const std::vector<S_NEW_PAIR>& i_vPairs, S_CALL& o_Call)
{
    struct S_WRITE
    {
        std::vector<uint32_t> vInputs;
        std::vector<double> vA;
        std::vector<double> vB;
        S_RESULT Result{};
        uint32_t ulElapsedMs = 0;
    };
    const auto l_pWrite = std::make_shared<S_WRITE>();
    for (const S_NEW_PAIR& l_Pair : i_vPairs) {
        l_pWrite->vInputs.push_back(l_Pair.ulInput);
        l_pWrite->vA.push_back(l_Pair.dA);
        l_pWrite->vB.push_back(l_Pair.dB);
    }
    CProgress l_Progress(io_Program.Options().bProgress, "calibration", 0);
    bool l_bTold = false;
    CallToTheEnd(
        [l_pWrite] {
            const CElapsed l_Elapsed;
            l_pWrite->Result =
                SetMBCalibration(l_pWrite->vInputs.data(), l_pWrite->vA.data(), l_pWrite->vB.data(),
                                 static_cast<uint32_t>(l_pWrite->vInputs.size()));
            l_pWrite->ulElapsedMs = l_Elapsed.Ms();
        },
        [&] {
            l_Progress.Advance();
            if (StopSignal() != 0 && !std::exchange(l_bTold, true)) {
                CProgram::Note("the write is brought to its end first; a second signal leaves it "
                               "half done");
            }
        });
    l_Progress.Finish();
    o_Call.ulElapsedMs = l_pWrite->ulElapsedMs;
    return l_pWrite->Result;
}

} // namespace

void AddWriteOptions(CCommand i_Command, S_WRITE_OPTIONS& io_Options)
{
    i_Command.Flag("--yes", io_Options.bYes,
                   "write also a factor of 0, and numbers that the board rounds");
    i_Command.Flag("--dry-run", io_Options.bDryRun,
                   "check everything and show what would change, write nothing");
    i_Command.Flag("--verify", io_Options.bVerify,
                   "load the drivers anew and check that the board has the pairs");
    i_Command.Option("--keep", io_Options.strKeep,
                     "file for the pairs as they are before; calibration-before-TIME.csv in the "
                     "working folder without it");
}

void WritePairs(CProgram& io_Program, const std::vector<S_NEW_PAIR>& i_vPairs,
                const S_WRITE_OPTIONS& i_Options)
{
    CheckPairs(i_vPairs, i_Options);
    S_PAIRS l_Old;
    S_RESULT l_Result{};
    S_CALL l_Call;
    bool l_bSimulated = false;
    nlohmann::json& l_Document = io_Program.Document();
    l_Document["written"] = 0;
    {
        const CSession l_Session(io_Program.Options());
        const S_DRIVER l_Board = l_Session.ByLinkType("IM");
        Announce(io_Program, l_Board);
        l_Old = ReadPairs();
        if (!l_Board.IsSimulated()) {
            CheckResetProgram(l_Session.Settings());
        }
        nlohmann::json l_List = nlohmann::json::array();
        io_Program.Print("was:\n" + PairHead());
        for (const S_NEW_PAIR& l_Pair : i_vPairs) {
            TellPair(io_Program, l_List, l_Pair.ulInput, l_Old.adA[l_Pair.ulInput],
                     l_Old.adB[l_Pair.ulInput]);
        }
        l_Document["was"] = std::exchange(l_List, nlohmann::json::array());
        io_Program.Print(std::string(i_Options.bDryRun ? "would become" : "becomes") + ":\n" +
                         PairHead());
        for (const S_NEW_PAIR& l_Pair : i_vPairs) {
            TellPair(io_Program, l_List, l_Pair.ulInput, AsWritten(l_Pair.dA),
                     AsWritten(l_Pair.dB));
        }
        l_Document["becomes"] = l_List;
        if (i_Options.bDryRun) {
            io_Program.Print("nothing was written\n");
            return;
        }
        const std::string l_strKeep = i_Options.strKeep.empty() ? NewKeepName() : i_Options.strKeep;
        l_bSimulated = l_Board.IsSimulated();
        if (!l_bSimulated) {
            SavePairs(l_strKeep, l_Old, l_Board, false);
            l_Document["kept"] = l_strKeep;
            io_Program.Print("the pairs before are kept in " + l_strKeep + "\n");
        }
        ThrowIfStopped("nothing was written");
        try {
            l_Result = Write(io_Program, i_vPairs, l_Call);
        } catch (const S_STOPPED&) {
            throw StoppedBySignal("the write was under way: what the board holds is not known; "
                                  "\"tornval calibration restore " +
                                  l_strKeep + "\" brings the pairs before back");
        }
    }
    if (l_Result.ulStatus != 0) {
        S_FAILURE l_Failure = FailureOf(l_Result, l_Call);
        // The new load forgets them.
        io_Program.TellReasons(ReasonsSinceLoad());
        l_Failure.strMessage += ". " + WhatStands(io_Program, i_vPairs, l_Old) +
                                ". The pairs before are in " + l_Document.value("kept", "no file");
        throw S_FAILURE(l_Failure);
    }
    l_Document["written"] = i_vPairs.size();
    io_Program.Print((l_bSimulated ? "taken by the simulated board, which stores nothing: "
                                   : "written and committed, the board was restarted: ") +
                     std::to_string(i_vPairs.size()) + "\n");
    ThrowIfStopped("the write was finished first");
    if (i_Options.bVerify && !TellBoard(io_Program, i_vPairs, l_Old)) {
        throw S_FAILURE{k_lExitDevice,
                        std::string("the board does not have the pairs that were written. ") +
                            (l_bSimulated
                                 ? "A simulated board stores none"
                                 : "Does the program of the key SET_RESET_EXEC restart it? "
                                   "The pairs before are in " +
                                       l_Document.value("kept", "no file"))};
    }
}

} // namespace host
