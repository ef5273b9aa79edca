// Writes the seeds of the fuzz targets into one folder for each, below the folder of its argument.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "emulator/BoardFirmware.h"
#include "emulator/Frames.h"
#include "emulator/MilliOhmFirmware.h"
#include "emulator/Recording.h"
#include "emulator/SampleEncoder.h"

namespace {

std::filesystem::path g_Folder;

void Write(const std::string& i_strTarget, const std::string& i_strName, const Bytes& i_vData)
{
    std::filesystem::create_directories(g_Folder / i_strTarget);
    std::ofstream l_File(g_Folder / i_strTarget / i_strName, std::ios::binary);
    l_File.write(reinterpret_cast<const char*>(i_vData.data()),
                 static_cast<std::streamsize>(i_vData.size()));
    if (!l_File.flush()) {
        throw std::runtime_error("cannot write " + i_strTarget + "/" + i_strName);
    }
}

/** Some rows of the built-in signal, in both ranges. */
Bytes Codes(size_t i_ulNbChannel, double i_dScale)
{
    constexpr size_t k_ulRows = 60;
    const auto l_pSignal = emulator::CRecording::TestSignal();
    std::vector<emulator::S_SAMPLE> l_vSamples;
    for (size_t l_ulRow = 0; l_ulRow < k_ulRows; ++l_ulRow) {
        for (size_t l_ulChannel = 0; l_ulChannel < i_ulNbChannel; ++l_ulChannel) {
            const int32_t l_lCounts = l_pSignal->Counts(l_ulRow, l_ulChannel, i_dScale);
            const bool l_bHigh = std::abs(l_lCounts) > emulator::k_lAbsoluteMax;
            l_vSamples.push_back(
                {static_cast<int16_t>(l_bHigh ? l_lCounts / 16 : l_lCounts), l_bHigh});
        }
    }
    return emulator::EncodeSamples(l_vSamples, i_ulNbChannel).vCodes;
}

void WriteCodes()
{
    for (const size_t l_ulNbChannel : {1U, 2U}) {
        for (const double l_dScale : {100.0, 1000.0, 20000.0}) {
            const std::string l_strName =
                std::to_string(l_ulNbChannel) + "-" + std::to_string(static_cast<int>(l_dScale));
            const Bytes l_vCodes = Codes(l_ulNbChannel, l_dScale);
            const auto l_ucSecond = static_cast<uint8_t>(l_ulNbChannel - 1);
            Bytes l_vSamples{static_cast<uint8_t>(0xFE | l_ucSecond)};
            l_vSamples.insert(l_vSamples.end(), l_vCodes.begin(), l_vCodes.end());
            Write("samples", l_strName, l_vSamples);
            l_vSamples.insert(l_vSamples.begin() + 1, {0, 0});
            Write("kernels", l_strName, l_vSamples);
            for (const uint8_t l_ucStatus : Bytes{0, 1, 0x2C, 0x30}) {
                Bytes l_vReply{l_ucSecond, 33, static_cast<uint8_t>(l_vCodes.size()),
                               static_cast<uint8_t>(l_vCodes.size() >> 8), l_ucStatus};
                l_vReply.insert(l_vReply.end(), l_vCodes.begin(), l_vCodes.end());
                l_vReply.push_back(0);
                Write("rolling", l_strName + "-" + std::to_string(l_ucStatus), l_vReply);
            }
        }
    }
}

/** What board and module answer to each command: as blocks, and as bytes of a line. */
void WriteAnswers()
{
    emulator::CBoardFirmware l_Board;
    emulator::CMilliOhmFirmware l_Module;
    l_Board.SetRows(20);
    // In the order in which the target Answers picks them.
    const Bytes l_avCommands[] = {Request(208, {1, 3, 0, 1, 2}),
                                  Request(209),
                                  Request(210),
                                  Request(211),
                                  Request(212, {2}),
                                  Request(213, {0, 0, 0}),
                                  Request(214),
                                  Request(215),
                                  Request(0xA1, {1}),
                                  Request(0xFF)};
    for (uint8_t i = 0; i < std::size(l_avCommands); ++i) {
        const Bytes& l_vCommand = l_avCommands[i];
        const uint8_t l_ucCmdeID = l_vCommand[wire::k_ulCmdeOffset];
        const emulator::S_REPLY l_Reply = l_ucCmdeID == 0xA1 || l_ucCmdeID == 0xFF
                                              ? l_Module.Handle(l_vCommand)
                                              : l_Board.Handle(l_vCommand);
        const std::string l_strName = std::to_string(l_ucCmdeID);
        Bytes l_vBlock(4);
        l_vBlock.insert(l_vBlock.end(), l_Reply.vFrame.begin(), l_Reply.vFrame.end());
        // Behind the block: the count that the link does not lie about, room for 4096 bytes.
        for (const uint8_t l_uc : Bytes{0, 0, 0, 0, 0, 0, 16, i}) {
            l_vBlock.push_back(l_uc);
        }
        Write("answers", l_strName, l_vBlock);
        for (const auto& [l_strWhich, l_vFrame] :
             {std::pair<std::string, Bytes>{"command", l_vCommand}, {"answer", l_Reply.vFrame}}) {
            Bytes l_vLine{0x9F};
            l_vLine.insert(l_vLine.end(), l_vFrame.begin(), l_vFrame.end());
            Write("line", l_strName + "-" + l_strWhich, l_vLine);
        }
    }
}

void WriteTexts(const std::string& i_strTarget, const std::vector<std::string>& i_vstrTexts)
{
    for (const std::string& l_strText : i_vstrTexts) {
        Write(i_strTarget, std::to_string(&l_strText - i_vstrTexts.data()),
              {l_strText.begin(), l_strText.end()});
    }
}

} // namespace

int main(int i_lNbArgs, char** i_ppszArgs)
{
    if (i_lNbArgs != 2) {
        (void)std::fprintf(stderr, "use: fuzz_seeds FOLDER\n");
        return 2;
    }
    g_Folder = i_ppszArgs[1];
    try {
        WriteCodes();
        WriteAnswers();
        WriteTexts(
            "config",
            {"; comment\n[IM]\nSIMU=1\nA0 = 0.0001\nDRIVER_NAME = \"link.dll\"\n[BT]\r\nSIMU=-3\n",
             "before any section\n[IM]\nSIMU\n=value\nDRIVER_NAME='\n[BT\n]\n[]\nA0=1e999\n",
             "[im]\nsimu=99999999999\n[IM]\nDRIVER_NAME= ' quoted ' \nA0=+.5\n"});
        WriteTexts("recording",
                   {"0\t0.013106\t-0.502676\t-0.231946\n1\t0.010697\t-0.504105\t-0.2\n", " 1 2 3 4",
                    "1,2;3-4..5 -\n", "1e3 4 5 6 7 8 9 10 11\n"});
        WriteTexts("formats", {"%d|%-5ld %08X", "%s %S %.3f%%", "%5.2s%0100d%"});
    } catch (const std::exception& l_Error) {
        (void)std::fprintf(stderr, "fuzz_seeds: %s\n", l_Error.what());
        return 1;
    }
    return 0;
}
