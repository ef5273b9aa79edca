#include "emulator/Calibration.h"

#include <filesystem>
#include <fstream>
#include <system_error>

namespace emulator {

namespace {

constexpr const char* k_pszHeading = "emulated-board-calibration 1";

} // namespace

bool LoadCalibration(const std::string& i_strPath, S_CALIBRATION& o_Pairs, std::string& o_strError)
{
    o_Pairs = S_CALIBRATION{};
    std::error_code l_Error;
    if (!std::filesystem::exists(i_strPath, l_Error)) {
        return true;
    }
    std::ifstream l_File(i_strPath);
    std::string l_strHeading;
    std::getline(l_File, l_strHeading);
    bool l_bGood = l_strHeading == k_pszHeading;
    S_CALIBRATION l_Pairs;
    for (size_t i = 0; i < k_ulVoies && l_bGood; ++i) {
        size_t l_ulVoie = k_ulVoies;
        l_File >> l_ulVoie >> l_Pairs[i].ulA >> l_Pairs[i].lB;
        l_bGood = !l_File.fail() && l_ulVoie == i;
    }
    if (!l_bGood) {
        o_strError = i_strPath + ": is no store of calibration pairs";
        return false;
    }
    o_Pairs = l_Pairs;
    return true;
}

bool SaveCalibration(const std::string& i_strPath, const S_CALIBRATION& i_Pairs)
{
    // Written beside and renamed, so that a reader finds the old pairs or the new ones.
    const std::string l_strBeside = i_strPath + ".new";
    {
        std::ofstream l_File(l_strBeside, std::ios::trunc);
        l_File << k_pszHeading << '\n';
        for (size_t i = 0; i < k_ulVoies; ++i) {
            l_File << i << ' ' << i_Pairs[i].ulA << ' ' << i_Pairs[i].lB << '\n';
        }
        l_File.close();
        if (l_File.fail()) {
            return false;
        }
    }
    std::error_code l_Error;
    std::filesystem::rename(l_strBeside, i_strPath, l_Error);
    return !l_Error;
}

} // namespace emulator
