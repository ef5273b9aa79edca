#include "emulator/Recording.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace emulator {

namespace {

/** Column of each channel, as the recording's rows have them. */
constexpr std::array<size_t, CRecording::k_ulChannels> k_aulColumns{2, 1, 3};

constexpr std::string_view k_Blanks = " \t\r";

/** Largest file that is taken for a recording. */
constexpr std::streamoff k_lMaxFile = 256L * 1024 * 1024;

std::optional<CRecording::S_ROW> ParseRow(std::string_view i_Line)
{
    CRecording::S_ROW l_Row{};
    for (double& l_dNumber : l_Row) {
        const size_t l_ulStart = std::min(i_Line.find_first_not_of(k_Blanks), i_Line.size());
        i_Line.remove_prefix(l_ulStart);
        const auto [l_pEnd, l_eError] =
            std::from_chars(i_Line.data(), i_Line.data() + i_Line.size(), l_dNumber);
        if (l_eError != std::errc() || !std::isfinite(l_dNumber)) {
            return std::nullopt;
        }
        i_Line.remove_prefix(static_cast<size_t>(l_pEnd - i_Line.data()));
        if (!i_Line.empty() && k_Blanks.find(i_Line.front()) == std::string_view::npos) {
            return std::nullopt;
        }
    }
    if (i_Line.find_first_not_of(k_Blanks) != std::string_view::npos) {
        return std::nullopt;
    }
    return l_Row;
}

/** Triangle between -2 and 2 that starts at 0 and rises. */
double Triangle(size_t i_ulRow, size_t i_ulPeriod)
{
    const double l_dPhase =
        static_cast<double>(i_ulRow % i_ulPeriod) / static_cast<double>(i_ulPeriod);
    if (l_dPhase < 0.25) {
        return 8.0 * l_dPhase;
    }
    return l_dPhase < 0.75 ? 4.0 - 8.0 * l_dPhase : 8.0 * l_dPhase - 8.0;
}

} // namespace

std::shared_ptr<const CRecording> CRecording::Load(const std::string& i_strPath,
                                                   std::string& o_strError)
{
    std::ifstream l_File(i_strPath, std::ios::binary | std::ios::ate);
    const std::streamoff l_lSize = l_File ? static_cast<std::streamoff>(l_File.tellg()) : -1;
    if (l_lSize < 0 || l_lSize > k_lMaxFile) {
        o_strError = i_strPath + ": cannot be read, or is too large";
        return nullptr;
    }
    l_File.seekg(0);
    std::vector<S_ROW> l_vRows;
    std::string l_strLine;
    for (size_t l_ulLine = 1; std::getline(l_File, l_strLine); ++l_ulLine) {
        if (l_strLine.find_first_not_of(k_Blanks) == std::string::npos) {
            continue;
        }
        const auto l_oRow = ParseRow(l_strLine);
        if (!l_oRow) {
            o_strError = i_strPath + ":" + std::to_string(l_ulLine) + ": not a row of four numbers";
            return nullptr;
        }
        l_vRows.push_back(*l_oRow);
    }
    if (l_vRows.empty()) {
        o_strError = i_strPath + ": holds no row";
        return nullptr;
    }
    return std::make_shared<const CRecording>(std::move(l_vRows));
}

std::shared_ptr<const CRecording> CRecording::TestSignal()
{
    std::vector<S_ROW> l_vRows(1000);
    for (size_t i = 0; i < l_vRows.size(); ++i) {
        l_vRows[i] = {static_cast<double>(i), Triangle(i, 250), Triangle(i, 200), Triangle(i, 125)};
    }
    return std::make_shared<const CRecording>(std::move(l_vRows));
}

int32_t CRecording::Counts(size_t i_ulRow, size_t i_ulChannel, double i_dScale) const
{
    if (m_vRows.empty() || i_ulChannel >= k_ulChannels) {
        return 0;
    }
    const double l_dNumber = m_vRows[i_ulRow % m_vRows.size()][k_aulColumns[i_ulChannel]];
    constexpr double k_dMin = std::numeric_limits<int32_t>::min();
    constexpr double k_dMax = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::lround(std::clamp(l_dNumber * i_dScale, k_dMin, k_dMax)));
}

} // namespace emulator
