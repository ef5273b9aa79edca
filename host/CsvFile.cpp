#include "CsvFile.h"

#include "Settings.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

/** The buffer is handed to the system when it holds this much. */
constexpr size_t k_uChunk = 256UL * 1024;
/** Room for one number with its separator: the longest double has 24 characters. */
constexpr size_t k_uNumber = 28;

bool IsRegular(const std::string& i_strPath)
{
    std::error_code l_Error;
    return std::filesystem::is_regular_file(i_strPath, l_Error);
}

bool Exists(const std::string& i_strPath)
{
    std::error_code l_Error;
    return std::filesystem::exists(i_strPath, l_Error);
}

/** Whether a comment line tells when rows began. */
bool IsStart(const std::string& i_strLine)
{
    return i_strLine.starts_with("# start:");
}

/** The file behind a chain of links, so that a rename does not replace a link. */
std::string BehindLinks(const std::string& i_strPath)
{
    std::error_code l_Error;
    const auto l_Path = std::filesystem::canonical(i_strPath, l_Error);
    return l_Error ? i_strPath : l_Path.string();
}

} // namespace

std::string ErrnoInWords(int i_lError)
{
    return std::string(": ") + std::strerror(i_lError);
}

void GiveName(const std::string& i_strFrom, const std::string& i_strTo, bool i_bReplace)
{
    int l_lResult = renameat2(AT_FDCWD, i_strFrom.c_str(), AT_FDCWD, i_strTo.c_str(),
                              i_bReplace ? 0 : RENAME_NOREPLACE);
    if (l_lResult != 0 && !i_bReplace && errno == EINVAL && !Exists(i_strTo)) {
        // A file system that cannot refuse a replacement by itself.
        l_lResult = rename(i_strFrom.c_str(), i_strTo.c_str());
    }
    if (l_lResult != 0) {
        const int l_lError = errno;
        throw S_FILE_ERROR{i_strTo + " cannot be written" + ErrnoInWords(l_lError) +
                           "; everything is in " + i_strFrom};
    }
}

wire::CDescriptor OpenBeside(const std::string& i_strName, std::string& o_strPartial)
{
    constexpr unsigned k_uMost = 1000;
    for (unsigned i = 1; i < k_uMost; ++i) {
        o_strPartial = i_strName + ".partial" + (i == 1 ? "" : "." + std::to_string(i));
        wire::CDescriptor l_File(
            open(o_strPartial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (l_File) {
            return l_File;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    throw S_FILE_ERROR{"the file " + i_strName + " cannot be written" + ErrnoInWords(errno)};
}

CCsvFile::CCsvFile(const std::string& i_strPath, S_CSV_FORM i_Form, E_EXISTING i_Existing,
                   int i_lOutput)
    : m_strName(BehindLinks(i_strPath)), m_strPath(i_strPath), m_Form(std::move(i_Form)),
      m_Existing(i_Existing), m_bTemporary(i_strPath.empty())
{
    if (m_bTemporary) {
        std::error_code l_Error;
        m_strPath = (std::filesystem::temp_directory_path(l_Error) / "tornval-XXXXXX").string();
        m_File = wire::CDescriptor(mkostemp(m_strPath.data(), O_CLOEXEC));
    } else if (i_strPath == "-") {
        m_lFile = i_lOutput;
    } else if (Exists(m_strName) && !IsRegular(m_strName)) {
        m_File = wire::CDescriptor(open(m_strName.c_str(), O_WRONLY | O_CLOEXEC));
    } else {
        if (Exists(m_strName) && m_Existing == E_EXISTING::REFUSE) {
            throw S_FILE_ERROR{"the file " + i_strPath +
                               " is there already: --force replaces it, --append adds to it"};
        }
        CheckColumns();
        m_File = OpenBeside(m_strName, m_strPath);
        m_bBeside = true;
    }
    m_lFile = m_File ? m_File.Get() : m_lFile;
    if (m_lFile < 0) {
        throw S_FILE_ERROR{"the file " + m_strPath + " cannot be written" + ErrnoInWords(errno)};
    }
    try {
        Begin();
    } catch (...) {
        if (m_bBeside || m_bTemporary) {
            unlink(m_strPath.c_str());
        }
        throw;
    }
}

CCsvFile::~CCsvFile()
{
    // What holds no row is no result.
    if (m_bTemporary || (m_bBeside && !m_bCommitted && m_uRows == 0)) {
        unlink(m_strPath.c_str());
    }
}

std::string CCsvFile::ColumnLine() const
{
    std::string l_strLine = m_Form.dPeriod > 0 ? k_pszTimeColumn : k_pszSampleColumn;
    for (const std::string& l_strColumn : m_Form.vColumns) {
        l_strLine += "," + l_strColumn;
    }
    return l_strLine;
}

void CCsvFile::Begin()
{
    std::string l_strHead;
    for (const std::string& l_strLine : m_Form.vHead) {
        l_strHead += "# " + l_strLine + "\n";
    }
    l_strHead += ColumnLine() + "\n";
    m_vBuffer.assign(
        std::max(k_uChunk, l_strHead.size()) + k_uNumber * (m_Form.vColumns.size() + 1), 0);
    std::memcpy(m_vBuffer.data(), l_strHead.data(), l_strHead.size());
    m_uUsed = l_strHead.size();
    Flush();
}

void CCsvFile::CheckColumns()
{
    if (m_Existing != E_EXISTING::APPEND) {
        return;
    }
    std::ifstream l_File(m_strName);
    std::string l_strLine;
    const auto l_TakeLine = [&] {
        const bool l_bTaken = static_cast<bool>(std::getline(l_File, l_strLine));
        if (l_strLine.ends_with('\r')) {
            l_strLine.pop_back();
        }
        return l_bTaken;
    };
    bool l_bUnits = false;
    while (l_TakeLine() && l_strLine.starts_with('#')) {
        CheckHeadLine(l_strLine);
        l_bUnits = l_bUnits || l_strLine.starts_with("# channel_");
    }
    if (l_File && l_strLine != ColumnLine()) {
        throw S_FILE_ERROR{m_strName + " has the columns " + l_strLine + ", and these are " +
                           ColumnLine() + ": take another file"};
    }
    if (l_File && !l_bUnits && !m_Form.vScales.empty()) {
        throw S_FILE_ERROR{m_strName + " does not say that its values are scaled, and these are: "
                                       "take another file"};
    }
}

/** Under a head that says something else new rows would be read wrongly. */
void CCsvFile::CheckHeadLine(const std::string& i_strLine) const
{
    const size_t l_uKey = i_strLine.find(':');
    for (const std::string& l_strOwn : m_Form.vHead) {
        const std::string l_strLine = "# " + l_strOwn;
        if (l_uKey != std::string::npos && !IsStart(i_strLine) && l_strLine != i_strLine &&
            l_strLine.compare(0, l_uKey + 1, i_strLine, 0, l_uKey + 1) == 0) {
            throw S_FILE_ERROR{m_strName + " says \"" + i_strLine.substr(2) + "\", and this is \"" +
                               l_strOwn + "\": take another file"};
        }
    }
}

char* CCsvFile::AddRow(char* o_pcAt, const Channels& i_vChannels, size_t i_uRow,
                       size_t i_uTotal) const
{
    // The place is handed along: a byte written may be part of anything, so a member that held it would
    // be read again after each.
    o_pcAt = m_Form.dPeriod > 0 ? WriteNumber(o_pcAt, o_pcAt + k_uNumber,
                                              static_cast<double>(i_uTotal) * m_Form.dPeriod)
                                : std::to_chars(o_pcAt, o_pcAt + k_uNumber, i_uTotal).ptr;
    *o_pcAt++ = ',';
    const size_t l_uChannels = i_vChannels.size();
    for (size_t i = 0; i < l_uChannels; ++i) {
        if (i_uRow < i_vChannels[i].size()) {
            const int32_t l_lSample = i_vChannels[i][i_uRow];
            o_pcAt =
                m_Form.vScales.empty()
                    ? std::to_chars(o_pcAt, o_pcAt + k_uNumber, l_lSample).ptr
                    : WriteNumber(o_pcAt, o_pcAt + k_uNumber,
                                  l_lSample * m_Form.vScales[i].first + m_Form.vScales[i].second);
        }
        *o_pcAt++ = ',';
    }
    o_pcAt[-1] = '\n';
    return o_pcAt;
}

void CCsvFile::Append(const Channels& i_vChannels)
{
    size_t l_uRows = 0;
    for (const auto& l_vChannel : i_vChannels) {
        l_uRows = std::max(l_uRows, l_vChannel.size());
    }
    size_t l_uHanded = 0;
    const auto l_Hand = [&](size_t i_uUpTo) {
        const uint64_t l_uBefore = m_uWritten;
        try {
            Flush();
        } catch (const S_FILE_ERROR&) {
            // Only what reached the file counts.
            const auto l_uNew = static_cast<size_t>(m_uWritten - l_uBefore);
            m_uRows +=
                static_cast<size_t>(std::count(m_vBuffer.data(), m_vBuffer.data() + l_uNew, '\n'));
            throw;
        }
        m_uRows += i_uUpTo - l_uHanded;
        l_uHanded = i_uUpTo;
    };
    for (size_t l_uRow = 0; l_uRow < l_uRows; ++l_uRow) {
        m_uUsed = static_cast<size_t>(
            AddRow(m_vBuffer.data() + m_uUsed, i_vChannels, l_uRow, m_uRows + l_uRow - l_uHanded) -
            m_vBuffer.data());
        if (m_uUsed >= k_uChunk) {
            l_Hand(l_uRow + 1);
        }
    }
    l_Hand(l_uRows);
}

void CCsvFile::Flush()
{
    const size_t l_uSize = std::exchange(m_uUsed, 0);
    size_t l_uDone = 0;
    while (l_uDone < l_uSize) {
        const ssize_t l_lWritten = write(m_lFile, m_vBuffer.data() + l_uDone, l_uSize - l_uDone);
        if (l_lWritten < 0 && errno == EINTR) {
            continue;
        }
        if (l_lWritten <= 0) {
            const int l_lError = l_lWritten == 0 ? ENOSPC : errno;
            // The last row is whole or not there.
            while (l_uDone != 0 && m_vBuffer[l_uDone - 1] != '\n') {
                --l_uDone;
            }
            m_uWritten += l_uDone;
            if ((m_bBeside || m_bTemporary) &&
                ftruncate(m_lFile, static_cast<off_t>(m_uWritten)) != 0) {
                std::fprintf(stderr, "tornval: the last row of %s may be cut\n", m_strPath.c_str());
            }
            throw S_FILE_ERROR{"writing to " + m_strPath + " failed" + ErrnoInWords(l_lError),
                               l_lError};
        }
        l_uDone += static_cast<size_t>(l_lWritten);
    }
    m_uWritten += l_uSize;
}

void CCsvFile::Commit()
{
    if (!m_bBeside || m_bCommitted) {
        return;
    }
    if (m_Existing == E_EXISTING::APPEND && Exists(m_strName)) {
        AppendToExisting();
    } else {
        GiveName(m_strPath, m_strName, m_Existing == E_EXISTING::REPLACE);
    }
    m_strPath = m_strName;
    m_bCommitted = true;
}

void CCsvFile::CommitAs(const std::function<void(const std::string&, int)>& i_fnWrite)
{
    if (!m_bBeside || m_bCommitted) {
        return;
    }
    std::string l_strMade;
    const wire::CDescriptor l_Made = OpenBeside(m_strName, l_strMade);
    try {
        i_fnWrite(m_strPath, l_Made.Get());
    } catch (...) {
        unlink(l_strMade.c_str());
        throw;
    }
    GiveName(l_strMade, m_strName, m_Existing == E_EXISTING::REPLACE);
    unlink(m_strPath.c_str());
    m_strPath = m_strName;
    m_bCommitted = true;
}

void CCsvFile::AppendToExisting()
{
    std::string l_strJoined;
    {
        wire::CDescriptor l_Joined = OpenBeside(m_strName, l_strJoined);
        struct stat l_Status
        {
        };
        if (stat(m_strName.c_str(), &l_Status) == 0) {
            fchmod(l_Joined.Get(), l_Status.st_mode & 0777U);
        }
    }
    std::ofstream l_Joined(l_strJoined, std::ios::binary | std::ios::trunc);
    std::ifstream l_Old(m_strName, std::ios::binary);
    std::ifstream l_New(m_strPath, std::ios::binary);
    if (l_Old.peek() != std::ifstream::traits_type::eof()) {
        l_Joined << l_Old.rdbuf();
        // Behind a last row that somebody left without its end a new one must not go on.
        l_Old.clear();
        l_Old.seekg(-1, std::ios::end);
        if (l_Old.get() != '\n') {
            l_Joined << '\n';
        }
        // Of the new head the old rows need nothing but where the new ones begin.
        for (std::string l_strLine; std::getline(l_New, l_strLine) && l_strLine.starts_with('#');) {
            if (IsStart(l_strLine)) {
                l_Joined << l_strLine << '\n';
            }
        }
    }
    if (m_uRows != 0) {
        l_Joined << l_New.rdbuf();
    }
    l_Joined.close();
    if (!l_Joined || l_Old.bad() || l_New.bad()) {
        unlink(l_strJoined.c_str());
        throw S_FILE_ERROR{"adding to " + m_strName + " failed; the new rows are in " + m_strPath};
    }
    GiveName(l_strJoined, m_strName, true);
    unlink(m_strPath.c_str());
}

} // namespace host
