/** tornval upload: an acquisition of the board, block by block, to a CSV file and a picture. */
#include "BoardCommands.h"
#include "Samples.h"
#include "Session.h"
#include "Stop.h"
#include "TableOutput.h"

namespace host {

namespace {

void TakeBlocks(CExchange& io_Exchange, const S_DRIVER& i_Board, const S_RUN_OPTIONS& i_Options,
                CTableOutput& io_Table, CProgram& io_Program)
{
    std::vector<size_t> l_vSamples(k_uBoardChannels);
    Channels l_vChannels;
    io_Table.TakeSteps(i_Options, "block", [&](uint64_t i_uBlock) {
        io_Exchange.RunOrThrow(i_Board, k_ucUpload, {}, k_ulBoardTimeout);
        if (!SplitChannels(io_Exchange.Words(), io_Exchange.Size(), k_uBoardChannels,
                           l_vChannels)) {
            throw S_FAILURE{k_lExitDevice, "block " + std::to_string(i_uBlock) +
                                               ": its sample counts do not add up to its size"};
        }
        io_Table.Append(l_vChannels);
        for (size_t i = 0; i < k_uBoardChannels; ++i) {
            l_vSamples[i] += l_vChannels[i].size();
        }
        io_Program.Document()["samples"] = l_vSamples;
    });
    if (io_Table.Rows() == 0 && StopSignal() == 0) {
        throw S_FAILURE{k_lExitDevice,
                        "the board answered without a single sample. A simulated board does so "
                        "when the file of its key DAT_SIMU_FILE cannot be read"};
    }
}

std::vector<S_CHANNEL> BoardChannels(const CSession& i_Session, const S_DRIVER& i_Board)
{
    std::vector<S_CHANNEL> l_vChannels(k_uBoardChannels);
    // A recording has no inputs.
    for (uint32_t i = 0; i < k_uBoardChannels && !i_Board.IsSimulated(); ++i) {
        const uint32_t l_ulInput =
            i_Session.Settings().Number("IM", ("CHANNEL_" + std::to_string(i + 1)).c_str(), 0);
        l_vChannels[i] = {"input " + std::to_string(l_ulInput),
                          UnitOf(i_Session.Settings(), "IM", l_ulInput)};
    }
    return l_vChannels;
}

void RunUpload(CProgram& io_Program, const S_RUN_OPTIONS& i_Options)
{
    CheckRun(i_Options, "blocks");
    CSession l_Session(io_Program.Options());
    const S_DRIVER l_Board = l_Session.ByLinkType("IM");
    Announce(io_Program, l_Board);
    CTableOutput l_Table(io_Program, WithPeriod(i_Options.Table, l_Session, l_Board), l_Board,
                         BoardChannels(l_Session, l_Board), "Acquisition of the board");
    CExchange l_Exchange;
    l_Table.Run(
        [&] {
            l_Exchange.RunOrThrow(l_Board, k_ucStart, {}, k_ulBoardTimeout);
            TakeBlocks(l_Exchange, l_Board, i_Options, l_Table, io_Program);
        },
        [&] { l_Exchange.RunOrThrow(l_Board, k_ucStop, {}, k_ulBoardTimeout); });
}

} // namespace

void AddUploadCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto [l_Upload, l_Options] = io_Program.AddCommand(
        i_Parent, "upload",
        "Runs an acquisition of the board: start, blocks, stop. Ctrl-C stops it properly",
        RunUpload);
    AddRunOptions(l_Upload, l_Options, "blocks");
}

} // namespace host
