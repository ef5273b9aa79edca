// A recording, replayed by the simulated board through the exports, against a reading of its own.
#include "Link.h"

#include <cmath>

#include "TornvalC63.h"

namespace {

/** The numbers of the text: what stands before a separator, read as far as it is one. */
std::vector<double> Numbers(const std::string& i_strText)
{
    std::vector<double> l_vdNumbers;
    std::string l_strNumber;
    bool l_bOpen = true; // a separator at the very front ends an empty number
    for (const char l_c : i_strText) {
        if ((l_c >= '0' && l_c <= '9') || l_c == '.' || l_c == '-') {
            l_strNumber += l_c;
            l_bOpen = true;
        } else if (l_bOpen) {
            l_vdNumbers.push_back(std::strtod(l_strNumber.c_str(), nullptr));
            l_strNumber.clear();
            l_bOpen = false;
        }
    }
    return l_vdNumbers;
}

int32_t Truncated(double i_dNumber)
{
    if (std::isnan(i_dNumber)) {
        return 0;
    }
    return static_cast<int32_t>(std::clamp(i_dNumber, -2147483648.0, 2147483647.0));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    static const CFuzzedHome s_Home("[IM]\n");
    const std::string l_strPath = FileOf(i_pucData, i_ulSize);
    static const bool s_bReady = [&] {
        s_Home.Write("TornvalC63.ini", "[IM]\nSIMU=1\nDAT_SIMU_FILE=" + l_strPath + "\n");
        return true;
    }();
    Require(s_bReady);
    Require(LoadMeasDrivers(0x10).ulStatus == 0);
    S_DRIVER_INFO l_Info{};
    uint32_t l_ulCount = 0;
    Require(EnumMeasDrivers(&l_Info, 1, &l_ulCount) == 1 && l_ulCount == 1);
    S_SEND_STRUCT l_Cmde{};
    l_Cmde.CmdeID = 211;
    S_RECEIVE_STRUCT l_Receive{};
    Require(SendMeasBoardCmd(l_Info.ulDriverID, &l_Cmde, &l_Receive, nullptr).ulStatus == 0);
    std::vector<char> l_vcRaw(l_Receive.ulNbReturnByte);
    std::vector<int32_t> l_vlData(903);
    int32_t l_lSize = -1;
    Require(GetMeasBoardResult(l_Info.ulDriverID, l_Receive.ulNbReturnByte, l_vcRaw.data(),
                               &l_lSize, l_vlData.data(), 0)
                .ulStatus == 0);

    const std::vector<double> l_vdNumbers =
        Numbers({reinterpret_cast<const char*>(i_pucData), i_ulSize});
    std::vector<double> l_avdColumns[3];
    for (size_t i = 0; i < l_vdNumbers.size(); ++i) {
        const double l_dNumber = l_vdNumbers[i] * 1000.0;
        if (i % 4 != 0) {
            constexpr size_t k_aulColumns[] = {1, 0, 2};
            l_avdColumns[k_aulColumns[i % 4 - 1]].push_back(i % 4 == 3 ? 1234.0 - l_dNumber * 0.0
                                                                       : l_dNumber);
        }
    }
    if (l_avdColumns[2].empty()) {
        Require(l_lSize == 0);
        return 0;
    }
    Require(l_lSize == 900 && l_vlData[0] == 300 && l_vlData[1] == 300 && l_vlData[2] == 300);
    for (size_t i = 0; i < 900; ++i) {
        const std::vector<double>& l_vdColumn = l_avdColumns[i / 300];
        Require(l_vlData[3 + i] == Truncated(l_vdColumn[i % 300 % l_vdColumn.size()]));
    }
    return 0;
}
