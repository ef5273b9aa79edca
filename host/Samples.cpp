#include "Samples.h"

#include "Child.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace host {

namespace {

std::string Reason(int i_lError)
{
    return std::string(": ") + std::strerror(i_lError);
}

/** A text in gnuplot's single quotes, where only the quote itself is special. */
std::string Quoted(const std::string& i_strText)
{
    std::string l_strQuoted = "'";
    for (const char l_c : i_strText) {
        l_strQuoted += l_c == '\'' ? "''" : std::string(1, l_c);
    }
    return l_strQuoted + "'";
}

} // namespace

bool SplitChannels(const std::vector<int32_t>& i_vWords, int32_t i_lSize, size_t i_uNbChannels,
                   Channels& o_vChannels)
{
    o_vChannels.assign(i_uNbChannels, {});
    if (i_lSize == 0) {
        return true;
    }
    if (i_lSize < 0 || i_vWords.size() < i_uNbChannels) {
        return false;
    }
    uint64_t l_uSum = 0;
    for (size_t i = 0; i < i_uNbChannels; ++i) {
        if (i_vWords[i] < 0) {
            return false;
        }
        l_uSum += static_cast<uint64_t>(i_vWords[i]);
    }
    const auto l_uSize = static_cast<uint64_t>(i_lSize);
    if (l_uSum + i_uNbChannels > i_vWords.size() ||
        (l_uSize != l_uSum && l_uSize != l_uSum + i_uNbChannels)) {
        return false;
    }
    auto l_It = i_vWords.begin() + static_cast<std::ptrdiff_t>(i_uNbChannels);
    for (size_t i = 0; i < i_uNbChannels; ++i) {
        o_vChannels[i].assign(l_It, l_It + i_vWords[i]);
        l_It += i_vWords[i];
    }
    return true;
}

CCsvFile::CCsvFile(const std::string& i_strPath, size_t i_uNbChannels)
    : m_strPath(i_strPath), m_bTemporary(i_strPath.empty()), m_File(nullptr, &std::fclose)
{
    if (m_bTemporary) {
        std::error_code l_Error;
        m_strPath = (std::filesystem::temp_directory_path(l_Error) / "tornval-XXXXXX").string();
        const int l_lFile = mkstemp(m_strPath.data());
        m_File.reset(l_lFile < 0 ? nullptr : fdopen(l_lFile, "w"));
    } else {
        m_File.reset(std::fopen(m_strPath.c_str(), "we"));
    }
    if (!m_File) {
        throw S_FILE_ERROR{"the file " + m_strPath + " cannot be written" + Reason(errno)};
    }
    std::string l_strHeader;
    for (size_t i = 0; i < i_uNbChannels; ++i) {
        l_strHeader += (i == 0 ? "channel_" : ",channel_") + std::to_string(i);
    }
    Put(l_strHeader + "\n");
}

CCsvFile::~CCsvFile()
{
    if (m_bTemporary) {
        std::error_code l_Error;
        std::filesystem::remove(m_strPath, l_Error);
    }
}

void CCsvFile::Append(const Channels& i_vChannels)
{
    size_t l_uRows = 0;
    for (const auto& l_vChannel : i_vChannels) {
        l_uRows = std::max(l_uRows, l_vChannel.size());
    }
    std::string l_strRows;
    for (size_t l_uRow = 0; l_uRow < l_uRows; ++l_uRow) {
        for (size_t i = 0; i < i_vChannels.size(); ++i) {
            l_strRows += i == 0 ? "" : ",";
            if (l_uRow < i_vChannels[i].size()) {
                l_strRows += std::to_string(i_vChannels[i][l_uRow]);
            }
        }
        l_strRows += '\n';
    }
    Put(l_strRows);
    m_uRows += l_uRows;
}

void CCsvFile::Put(const std::string& i_strText)
{
    if (std::fwrite(i_strText.data(), 1, i_strText.size(), m_File.get()) != i_strText.size() ||
        std::fflush(m_File.get()) != 0) {
        throw S_FILE_ERROR{"writing to " + m_strPath + " failed" + Reason(errno)};
    }
}

std::string PlotScript(const std::string& i_strCsv, size_t i_uNbChannels,
                       const std::string& i_strPng, const std::string& i_strTitle)
{
    std::string l_strScript =
        "set terminal pngcairo noenhanced size 960,480 font 'DejaVu Sans,11'\n"
        "set output " +
        Quoted(i_strPng) +
        "\n"
        "set title " +
        Quoted(i_strTitle) +
        "\n"
        "set datafile separator ','\n"
        "set xlabel 'sample'\n"
        "set ylabel 'measure'\n"
        "set key outside right top\n"
        "set grid\n"
        "set autoscale noextend\n"
        "plot ";
    for (size_t i = 0; i < i_uNbChannels; ++i) {
        // One line of the file is the header; a channel without a sample still has its legend.
        l_strScript += (i == 0 ? "" : ", ") + Quoted(i_strCsv) +
                       " skip 1 using 0:" + std::to_string(i + 1) +
                       " with lines linewidth 1 title 'channel " + std::to_string(i) + "'";
    }
    return l_strScript + "\nunset output\n";
}

void PlotCsv(const std::string& i_strCsv, size_t i_uNbChannels, const std::string& i_strPng,
             const std::string& i_strTitle)
{
    const std::string l_strScript = PlotScript(i_strCsv, i_uNbChannels, i_strPng, i_strTitle);
    int l_lExit = 0;
    // It warns of things that are no fault here; only when it fails are its own words shown.
    for (const bool l_bQuiet : {true, false}) {
        CChild l_Gnuplot;
        const int l_lError = l_Gnuplot.Start({"gnuplot", "-d", "-"}, l_bQuiet);
        if (l_lError != 0) {
            throw S_FILE_ERROR{"gnuplot, which draws the plot, cannot be started" +
                               Reason(l_lError)};
        }
        l_Gnuplot.Write(l_strScript);
        l_lExit = l_Gnuplot.Finish();
        if (l_lExit == 0) {
            break;
        }
    }
    std::error_code l_Error;
    const auto l_uSize = std::filesystem::file_size(i_strPng, l_Error);
    if (l_lExit != 0 || l_Error || l_uSize == 0) {
        throw S_FILE_ERROR{"the plot " + i_strPng + " was not written; gnuplot ended with code " +
                           std::to_string(l_lExit)};
    }
}

} // namespace host
