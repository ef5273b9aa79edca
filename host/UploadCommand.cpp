/** tornval upload: an acquisition of the board, block by block, to a CSV file and a plot. */
#include "Program.h"
#include "Progress.h"
#include "Samples.h"

namespace host {

namespace {

constexpr uint8_t k_ucStart = 209;
constexpr uint8_t k_ucUpload = 211;
/** The time-out that the board's own commands carry. */
constexpr uint32_t k_ulTimeout = 10;

struct S_UPLOAD_OPTIONS
{
    uint32_t ulBlocks = 1;
    uint32_t ulInterval = 0;
    std::string strCsv;
    std::string strPlot;
};

void TakeBlocks(CExchange& io_Exchange, const S_DRIVER& i_Board, const S_UPLOAD_OPTIONS& i_Options,
                CCsvFile& io_Csv, CProgram& io_Program)
{
    std::vector<size_t> l_vSamples(k_uBoardChannels);
    nlohmann::json& l_Document = io_Program.Document();
    CProgress l_Progress(io_Program.Options().bProgress, "acquisition", i_Options.ulBlocks);
    for (uint32_t l_ulBlock = 0; l_ulBlock < i_Options.ulBlocks && StopSignal() == 0; ++l_ulBlock) {
        if (l_ulBlock != 0) {
            SleepUnlessStopped(std::chrono::milliseconds(i_Options.ulInterval));
        }
        io_Exchange.RunOrThrow(i_Board, k_ucUpload, {}, k_ulTimeout);
        Channels l_vChannels;
        if (!SplitChannels(io_Exchange.Words(), io_Exchange.Size(), k_uBoardChannels,
                           l_vChannels)) {
            throw S_FAILURE{k_lExitDevice, "block " + std::to_string(l_ulBlock) +
                                               ": its sample counts do not add up to its size"};
        }
        io_Csv.Append(l_vChannels);
        for (size_t i = 0; i < k_uBoardChannels; ++i) {
            l_vSamples[i] += l_vChannels[i].size();
        }
        l_Document["blocks"] = l_ulBlock + 1;
        l_Document["samples"] = l_vSamples;
        l_Document["rows"] = io_Csv.Rows();
        l_Progress.Advance();
    }
}

void RunUpload(CProgram& io_Program, const S_UPLOAD_OPTIONS& i_Options)
{
    CSession l_Session(io_Program.Options());
    const S_DRIVER l_Board = l_Session.ByLinkType("IM");
    CCsvFile l_Csv(i_Options.strCsv, k_uBoardChannels);
    CatchStopSignals();
    CExchange l_Exchange;
    l_Exchange.RunOrThrow(l_Board, k_ucStart, {}, k_ulTimeout);
    TakeBlocks(l_Exchange, l_Board, i_Options, l_Csv, io_Program);
    if (l_Csv.Rows() == 0 && StopSignal() == 0) {
        throw S_FAILURE{k_lExitDevice,
                        "the board answered without a single sample. A simulated board does so "
                        "when the file of its key DAT_SIMU_FILE cannot be read"};
    }
    io_Program.Print("rows: " + std::to_string(l_Csv.Rows()) + "\n");
    if (!i_Options.strCsv.empty()) {
        io_Program.Document()["csv"] = i_Options.strCsv;
        io_Program.Print("csv:  " + i_Options.strCsv + "\n");
    }
    if (!i_Options.strPlot.empty() && l_Csv.Rows() != 0) {
        PlotCsv(l_Csv.Path(), k_uBoardChannels, i_Options.strPlot, "Acquisition of the board");
        io_Program.Document()["plot"] = i_Options.strPlot;
        io_Program.Print("plot: " + i_Options.strPlot + "\n");
    }
    ThrowIfStopped("what had arrived is written");
}

} // namespace

void AddUploadCommand(CLI::App& io_App, CProgram& io_Program)
{
    auto l_pOptions = std::make_shared<S_UPLOAD_OPTIONS>();
    CLI::App& l_Upload = io_Program.AddCommand(
        io_App, "upload", "Starts an acquisition of the board and uploads it block by block",
        [=, &io_Program] { RunUpload(io_Program, *l_pOptions); });
    l_Upload.add_option("--blocks", l_pOptions->ulBlocks, "number of blocks")
        ->required()
        ->check(CLI::Range(1U, 1000000000U));
    l_Upload.add_option("--interval", l_pOptions->ulInterval, "pause between two, milliseconds")
        ->capture_default_str();
    l_Upload.add_option("--csv", l_pOptions->strCsv,
                        "file to write: a header line, then one row per sample");
    l_Upload.add_option("--plot", l_pOptions->strPlot, "PNG file to draw");
}

} // namespace host
