#include "Calibration.h"

#include "CsvFile.h"
#include "TableOutput.h"

#include <charconv>
#include <filesystem>
#include <sstream>

#include <unistd.h>

namespace host {

S_PAIRS ReadPairs()
{
    S_PAIRS l_Pairs;
    if (GetMBCalibrationCoeff(l_Pairs.adA.data(), l_Pairs.adB.data(), k_ulNbInputs) != 1) {
        throw S_FAILURE{k_lExitNoDriver, "no board delivers its calibration"};
    }
    return l_Pairs;
}

std::string PairHead()
{
    return "input             a             b\n";
}

void TellPair(CProgram& io_Program, nlohmann::json& io_List, uint32_t i_ulInput, double i_dA,
              double i_dB)
{
    io_List.push_back({{"input", i_ulInput}, {"a", i_dA}, {"b", i_dB}});
    std::array<char, 900> l_szRow{};
    std::snprintf(l_szRow.data(), l_szRow.size(), "%5u  %12s  %12s\n", i_ulInput,
                  NumberText(i_dA).c_str(), NumberText(i_dB).c_str());
    io_Program.Print(l_szRow.data());
}

void SavePairs(const std::string& i_strPath, const S_PAIRS& i_Pairs, const S_DRIVER& i_Board,
               bool i_bForce)
{
    std::error_code l_Error;
    if (!i_bForce && std::filesystem::exists(i_strPath, l_Error)) {
        throw S_FILE_ERROR{"the file " + i_strPath + " is there already: --force replaces it"};
    }
    std::string l_strText = "# calibration of the board; a measure is (x * a + b) * 0.0001\n"
                            "# tornval " +
                            std::string(VersionText()) + ", " + NowText() +
                            "\n# driver: " + i_Board.strLinkType + " " +
                            std::to_string(i_Board.ulID) + ", " + i_Board.strKind + "\ninput,a,b\n";
    for (uint32_t i = 0; i < k_ulNbInputs; ++i) {
        l_strText += std::to_string(i) + "," + NumberText(i_Pairs.adA[i]) + "," +
                     NumberText(i_Pairs.adB[i]) + "\n";
    }
    std::string l_strPartial;
    const wire::CDescriptor l_File = OpenBeside(i_strPath, l_strPartial);
    const ssize_t l_lWritten = write(l_File.Get(), l_strText.data(), l_strText.size());
    // What it is kept for is the failure of something else.
    if (l_lWritten != static_cast<ssize_t>(l_strText.size()) || fsync(l_File.Get()) != 0) {
        const int l_lError = l_lWritten >= 0 ? ENOSPC : errno;
        unlink(l_strPartial.c_str());
        throw S_FILE_ERROR{"writing to " + i_strPath + " failed" + ErrnoInWords(l_lError)};
    }
    GiveName(l_strPartial, i_strPath, i_bForce);
}

std::vector<S_NEW_PAIR> LoadPairs(const std::string& i_strPath)
{
    const std::optional<std::string> l_strText = ReadWholeFile(i_strPath);
    if (!l_strText) {
        throw S_FILE_ERROR{i_strPath + " cannot be read" + ErrnoInWords(errno)};
    }
    std::istringstream l_Lines(*l_strText);
    std::vector<S_NEW_PAIR> l_vPairs;
    unsigned l_uLine = 0;
    for (std::string l_strLine; std::getline(l_Lines, l_strLine);) {
        ++l_uLine;
        if (l_strLine.empty() || l_strLine.front() == '#' || l_strLine == "input,a,b") {
            continue;
        }
        S_NEW_PAIR l_Pair{};
        const char* l_pcAt = l_strLine.data();
        const char* const l_pcEnd = l_pcAt + l_strLine.size();
        const auto l_bTake = [&](auto& o_Number, char i_cBefore) {
            if (i_cBefore != 0 && (l_pcAt == l_pcEnd || *l_pcAt++ != i_cBefore)) {
                return false;
            }
            const auto l_Taken = std::from_chars(l_pcAt, l_pcEnd, o_Number);
            l_pcAt = l_Taken.ptr;
            return l_Taken.ec == std::errc();
        };
        if (!l_bTake(l_Pair.ulInput, 0) || !l_bTake(l_Pair.dA, ',') || !l_bTake(l_Pair.dB, ',') ||
            l_pcAt != l_pcEnd || l_Pair.ulInput >= k_ulNbInputs) {
            throw S_FILE_ERROR{i_strPath + ", line " + std::to_string(l_uLine) +
                               ": not an input from 0 to 12 with its a and b"};
        }
        l_vPairs.push_back(l_Pair);
    }
    if (l_vPairs.empty()) {
        throw S_FILE_ERROR{i_strPath + " holds no pair"};
    }
    return l_vPairs;
}

void AddCalibrationCommands(CCommand i_Parent, CProgram& io_Program)
{
    const CCommand l_Calibration =
        i_Parent.Add("calibration", "Reads or writes the calibration of the board");
    l_Calibration.RequireCommand();
    AddCalibrationReadCommands(l_Calibration, io_Program);
    AddCalibrationSetCommand(l_Calibration, io_Program);
    AddCalibrationRestoreCommand(l_Calibration, io_Program);
}

} // namespace host
