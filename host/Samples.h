/**
 * @file Samples.h
 * @brief Samples by channel: taken out of the array that the library fills, written to a CSV file,
 *        plotted.
 */
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host {

/** Samples of one answer, one vector per channel. */
using Channels = std::vector<std::vector<int32_t>>;

/** Largest number of samples that one channel can have in one answer of the board. */
constexpr size_t k_uMaxSamples = 65544;

/** Channels of the board and of a probe. */
constexpr size_t k_uBoardChannels = 3;
constexpr size_t k_uProbeChannels = 2;

/**
 * Takes the samples out of a processed array: a count for each channel, then the samples channel
 * by channel. The size word is the sum of the counts, with or without the counts themselves: boards
 * and simulated boards differ there. So the counts rule, and size and array must agree with them.
 *
 * @param i_vWords      the array as the library filled it, in its full length.
 * @param i_lSize       the size word; 0 if the answer carried nothing.
 * @param o_vChannels   i_uNbChannels vectors.
 * @return false if counts, size and array do not agree; the channels are then empty.
 */
bool SplitChannels(const std::vector<int32_t>& i_vWords, int32_t i_lSize, size_t i_uNbChannels,
                   Channels& o_vChannels);

/** A file or a plot that could not be written. */
struct S_FILE_ERROR
{
    std::string strMessage;
};

/**
 * A CSV file that is whole after every block: a header line, then one row per sample. A channel
 * that has fewer samples than its neighbours in a block leaves empty cells.
 */
class CCsvFile
{
public:
    /**
     * Creates the file and writes its header, "channel_0,channel_1,...".
     *
     * @param i_strPath     empty: a temporary file that is removed at the end.
     * @throws S_FILE_ERROR if that fails.
     */
    CCsvFile(const std::string& i_strPath, size_t i_uNbChannels);
    ~CCsvFile();
    CCsvFile(const CCsvFile&) = delete;
    CCsvFile& operator=(const CCsvFile&) = delete;

    /** Adds the rows of one block and hands them to the system. @throws S_FILE_ERROR. */
    void Append(const Channels& i_vChannels);

    /** Where the file is. */
    const std::string& Path() const { return m_strPath; }

    /** Rows behind the header. */
    size_t Rows() const { return m_uRows; }

private:
    void Put(const std::string& i_strText);

    std::string m_strPath;
    bool m_bTemporary;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_File;
    size_t m_uRows = 0;
};

/**
 * Draws the columns of a CSV file of this host into a PNG file, through gnuplot.
 *
 * @param i_strTitle shown above the traces.
 * @throws S_FILE_ERROR if gnuplot is missing or fails.
 */
void PlotCsv(const std::string& i_strCsv, size_t i_uNbChannels, const std::string& i_strPng,
             const std::string& i_strTitle);

/** The script for that plot. */
std::string PlotScript(const std::string& i_strCsv, size_t i_uNbChannels,
                       const std::string& i_strPng, const std::string& i_strTitle);

} // namespace host
