/**
 * @file Recording.h
 * @brief The signal that an emulated instrument plays.
 */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace emulator {

/**
 * Rows of four numbers. Immutable, so that any number of instruments and threads can share one.
 *
 * The first number of a row is its own number and is not played. Channel 0 plays the third, channel
 * 1 the second and channel 2 the fourth, as the simulated board does.
 */
class CRecording
{
public:
    static constexpr size_t k_ulChannels = 3;

    using S_ROW = std::array<double, 4>;

    /**
     * Reads a text file: four numbers a row, separated by blanks or tabs, point as the decimal
     * sign, rows ended by a line feed. Empty lines are skipped.
     *
     * @param[out] o_strError what is wrong, with the line number, if the result is null.
     * @return null if the file cannot be read, holds no row, or holds a row of another form.
     */
    static std::shared_ptr<const CRecording> Load(const std::string& i_strPath,
                                                  std::string& o_strError);

    /**
     * A built-in signal of 1000 rows, for an instrument that was given no recording: three
     * triangles between -2 and 2 with periods of 200, 250 and 125 rows.
     */
    static std::shared_ptr<const CRecording> TestSignal();

    explicit CRecording(std::vector<S_ROW> i_vRows) : m_vRows(std::move(i_vRows)) {}

    size_t Rows() const { return m_vRows.size(); }

    /**
     * The signal in counts: number times scale, rounded to the nearest.
     *
     * @param i_ulRow     any row; the recording starts over behind its last one.
     * @param i_ulChannel 0 to 2; any other gives 0.
     * @return counts, cut to 32 bits; 0 for an empty recording.
     */
    int32_t Counts(size_t i_ulRow, size_t i_ulChannel, double i_dScale = 1000.0) const;

private:
    std::vector<S_ROW> m_vRows;
};

} // namespace emulator
