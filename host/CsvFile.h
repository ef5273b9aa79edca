/**
 * @file CsvFile.h
 * @brief A table of samples in a file, whole at every moment: written beside its name, and renamed
 *        once it is complete.
 */
#pragma once

#include "Samples.h"
#include "wire/Descriptor.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/** Names of the first column: seconds, or a number where the period is not known. */
constexpr const char* k_pszTimeColumn = "time_s";
constexpr const char* k_pszSampleColumn = "sample";

/** A file or a plot that could not be written, or that would be overwritten. */
struct S_FILE_ERROR
{
    std::string strMessage;
    /** The errno behind it, 0 if there is none. */
    int lError = 0;
};

/** The system's words for an errno, behind a colon. */
std::string ErrnoInWords(int i_lError);

/** What happens to a file that is there already. */
enum class E_EXISTING
{
    REFUSE,  /**< the new one is not begun */
    REPLACE, /**< it makes room when the new one is complete */
    APPEND   /**< the new rows go behind its own */
};

/** Gives a complete file its name. @param i_bReplace whether a file of that name makes room.
 *  @throws S_FILE_ERROR; the file then stays where it is. */
void GiveName(const std::string& i_strFrom, const std::string& i_strTo, bool i_bReplace);

/** Opens a new file beside a name: "NAME.partial", or with a number where that is taken, so that what
 *  an earlier run left stays. @throws S_FILE_ERROR. */
wire::CDescriptor OpenBeside(const std::string& i_strName, std::string& o_strPartial);

/** What stands at the head of a table, and how its values are written. */
struct S_CSV_FORM
{
    /** Comment lines at the head, without their "# ". */
    std::vector<std::string> vHead;
    /** Names of the channels' columns. */
    std::vector<std::string> vColumns;
    /** Distance of two rows in seconds, for the column "time_s"; 0: the first column is "sample". */
    double dPeriod = 0;
    /** What each channel's values are multiplied by and what is added; empty: raw values. */
    std::vector<std::pair<double, double>> vScales;
};

/**
 * Comment lines, a line of column names, then one row per sample. A channel that has fewer samples than
 * its neighbours in a block leaves empty cells. Rows stand in "NAME.partial" until Commit(); a file
 * that is no regular one (a pipe, a device) and standard output get them at once.
 */
class CCsvFile
{
public:
    /**
     * @param i_strPath empty: a temporary file that is removed at the end; "-": the descriptor.
     * @param i_lOutput standard output, or what stands for it; not owned.
     * @throws S_FILE_ERROR if it cannot be written or may not be overwritten.
     */
    CCsvFile(const std::string& i_strPath, S_CSV_FORM i_Form,
             E_EXISTING i_Existing = E_EXISTING::REFUSE, int i_lOutput = 1);
    ~CCsvFile();
    CCsvFile(const CCsvFile&) = delete;
    CCsvFile& operator=(const CCsvFile&) = delete;

    /** Adds the rows of one block and hands them to the system; the last row of the file is whole also
     *  where they do not fit. @throws S_FILE_ERROR. */
    void Append(const Channels& i_vChannels);

    /** The table is complete: it gets its name. @throws S_FILE_ERROR, it then keeps its partial one. */
    void Commit();

    /** As Commit(), and the file with the name is what the function makes of the table. */
    void CommitAs(const std::function<void(const std::string& i_strTable, int i_lFile)>& i_fnWrite);

    /** Where the rows are: the name once committed, before that the partial file. */
    const std::string& Path() const { return m_strPath; }

    /** Whether there is a file that a plot can be made from. */
    bool IsFile() const { return m_bTemporary || m_bBeside || m_bCommitted; }

    /** Rows that were added. */
    size_t Rows() const { return m_uRows; }

private:
    void Begin();
    void CheckColumns();
    void CheckHeadLine(const std::string& i_strLine) const;
    char* AddRow(char* o_pcAt, const Channels& i_vChannels, size_t i_uRow, size_t i_uTotal) const;
    std::string ColumnLine() const;
    void Flush();
    void AppendToExisting();

    std::string m_strName;
    std::string m_strPath;
    S_CSV_FORM m_Form;
    E_EXISTING m_Existing;
    bool m_bTemporary;
    bool m_bBeside = false;
    bool m_bCommitted = false;
    wire::CDescriptor m_File;
    int m_lFile = -1;
    uint64_t m_uWritten = 0;
    size_t m_uRows = 0;
    std::vector<char> m_vBuffer;
    size_t m_uUsed = 0;
};

} // namespace host
