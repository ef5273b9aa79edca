// Writes the seeds of the fuzz targets into one folder for each, below the folder of its argument.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "emulator/Recording.h"
#include "emulator/SampleEncoder.h"

namespace {

using Bytes = std::vector<uint8_t>;

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

void WriteConfiguration()
{
    const char* const l_apszTexts[] = {
        "; comment\n[IM]\nSIMU=1\nA0 = 0.0001\nDRIVER_NAME = \"link.dll\"\n[BT]\r\nSIMU=-3\n",
        "before any section\n[IM]\nSIMU\n=value\nDRIVER_NAME='\n[BT\n]\n[]\nA0=1e999\n",
        "[im]\nsimu=99999999999\n[IM]\nDRIVER_NAME= ' quoted ' \nA0=+.5\n"};
    for (const char* const& l_pszText : l_apszTexts) {
        const std::string l_strText = l_pszText;
        Write("config", std::to_string(&l_pszText - l_apszTexts),
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
        WriteConfiguration();
    } catch (const std::exception& l_Error) {
        (void)std::fprintf(stderr, "fuzz_seeds: %s\n", l_Error.what());
        return 1;
    }
    return 0;
}
