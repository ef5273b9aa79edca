/** Reading a CSV file for a picture: fast, and thinned while it is read. */
#include "CsvFile.h"
#include "Plot.h"
#include "Progress.h"
#include "Stop.h"
#include "wire/Descriptor.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

/** Steps of the axis: about the pixels of a panel. */
constexpr size_t k_uSteps = 1100;

/** A file as it lies in memory. */
class CMapping
{
public:
    explicit CMapping(const std::string& i_strPath)
    {
        const wire::CDescriptor l_File(open(i_strPath.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat l_Status
        {
        };
        if (!l_File || fstat(l_File.Get(), &l_Status) != 0) {
            throw S_FILE_ERROR{i_strPath + " cannot be read" + ErrnoInWords(errno)};
        }
        m_uSize = static_cast<size_t>(l_Status.st_size);
        if (m_uSize != 0) {
            m_pText = mmap(nullptr, m_uSize, PROT_READ, MAP_PRIVATE, l_File.Get(), 0);
            if (m_pText == MAP_FAILED) {
                throw S_FILE_ERROR{i_strPath + " cannot be read" + ErrnoInWords(errno)};
            }
            madvise(m_pText, m_uSize, MADV_SEQUENTIAL);
        }
    }
    ~CMapping()
    {
        if (m_uSize != 0) {
            munmap(m_pText, m_uSize);
        }
    }
    CMapping(const CMapping&) = delete;
    CMapping& operator=(const CMapping&) = delete;

    std::string_view Text() const { return {static_cast<const char*>(m_pText), m_uSize}; }

private:
    void* m_pText = nullptr;
    size_t m_uSize = 0;
};

std::string_view TakeLine(std::string_view& io_strText)
{
    const size_t l_uEnd = std::min(io_strText.find('\n'), io_strText.size());
    const std::string_view l_strLine = io_strText.substr(0, l_uEnd);
    io_strText.remove_prefix(std::min(l_uEnd + 1, io_strText.size()));
    return l_strLine;
}

/** The column names, and the text is then that of the rows. */
std::vector<std::string_view> TakeNames(std::string_view& io_strText)
{
    std::string_view l_strLine = TakeLine(io_strText);
    while (l_strLine.starts_with('#')) {
        l_strLine = TakeLine(io_strText);
    }
    std::vector<std::string_view> l_vNames;
    while (!l_strLine.empty()) {
        const size_t l_uEnd = std::min(l_strLine.find_first_of(",\r"), l_strLine.size());
        if (l_uEnd != 0) {
            l_vNames.push_back(l_strLine.substr(0, l_uEnd));
        }
        l_strLine.remove_prefix(std::min(l_uEnd + 1, l_strLine.size()));
    }
    return l_vNames;
}

void WriteAll(int i_lFile, std::string_view i_strBytes)
{
    while (!i_strBytes.empty()) {
        const ssize_t l_lWritten = write(i_lFile, i_strBytes.data(), i_strBytes.size());
        if (l_lWritten > 0) {
            i_strBytes.remove_prefix(static_cast<size_t>(l_lWritten));
        } else if (l_lWritten == 0 || errno != EINTR) {
            throw S_FILE_ERROR{"the array cannot be written" + ErrnoInWords(errno), errno};
        }
    }
}

/** The number at a place that ends at a comma or a line end; not a number where there is none. */
double TakeNumber(const char*& io_pcAt, const char* i_pcEnd)
{
    const char* l_pcAt = io_pcAt;
    const bool l_bMinus = l_pcAt != i_pcEnd && *l_pcAt == '-';
    l_pcAt += l_bMinus ? 1 : 0;
    int64_t l_lNumber = 0;
    const char* l_pcFirst = l_pcAt;
    // Nearly all are whole and short.
    while (l_pcAt != i_pcEnd && *l_pcAt >= '0' && *l_pcAt <= '9' && l_pcAt - l_pcFirst < 17) {
        l_lNumber = l_lNumber * 10 + (*l_pcAt++ - '0');
    }
    auto l_dNumber = static_cast<double>(l_bMinus ? -l_lNumber : l_lNumber);
    const bool l_bDone =
        l_pcAt != l_pcFirst && (l_pcAt == i_pcEnd || *l_pcAt == ',' || *l_pcAt == '\n');
    if (!l_bDone) {
        l_dNumber = std::numeric_limits<double>::quiet_NaN();
        std::from_chars(io_pcAt, i_pcEnd, l_dNumber);
        while (l_pcAt != i_pcEnd && *l_pcAt != ',' && *l_pcAt != '\n') {
            ++l_pcAt;
        }
    }
    io_pcAt = l_pcAt;
    return l_dNumber;
}

/** The extremes of one curve in one step of the axis. */
struct S_STEP
{
    std::pair<double, double> Least;
    std::pair<double, double> Most;
    bool bEmpty = true;
};

void Close(S_STEP& io_Step, S_CURVE& io_Curve)
{
    if (io_Step.bEmpty) {
        return;
    }
    const bool l_bFirst = io_Curve.vPoints.empty();
    io_Curve.dLeast =
        l_bFirst ? io_Step.Least.second : std::min(io_Curve.dLeast, io_Step.Least.second);
    io_Curve.dMost = l_bFirst ? io_Step.Most.second : std::max(io_Curve.dMost, io_Step.Most.second);
    io_Curve.vPoints.push_back(std::min(io_Step.Least, io_Step.Most));
    if (io_Step.Least.first != io_Step.Most.first) {
        io_Curve.vPoints.push_back(std::max(io_Step.Least, io_Step.Most));
    }
    io_Step.bEmpty = true;
}

void Add(S_STEP& io_Step, double i_dX, double i_dY)
{
    if (std::isnan(i_dY)) {
        return;
    }
    if (io_Step.bEmpty || i_dY < io_Step.Least.second) {
        io_Step.Least = {i_dX, i_dY};
    }
    if (io_Step.bEmpty || i_dY > io_Step.Most.second) {
        io_Step.Most = {i_dX, i_dY};
    }
    io_Step.bEmpty = false;
}

/** The rows, from behind the line of column names. */
void ReadRows(std::string_view i_strRows, S_TABLE& io_Table, bool i_bProgress)
{
    const size_t l_uAll =
        static_cast<size_t>(std::count(i_strRows.begin(), i_strRows.end(), '\n')) + 1;
    const size_t l_uPerStep = (l_uAll + k_uSteps - 1) / k_uSteps;
    CProgress l_Progress(i_bProgress, "plot", k_uSteps);
    std::vector<S_STEP> l_vSteps(io_Table.vCurves.size());
    const int l_lSignals = StopSignals();
    const auto l_CloseAll = [&] {
        if (StopSignals() != l_lSignals) {
            throw S_STOPPED{};
        }
        for (size_t i = 0; i < l_vSteps.size(); ++i) {
            Close(l_vSteps[i], io_Table.vCurves[i]);
        }
        l_Progress.Advance();
    };
    const char* l_pcAt = i_strRows.data();
    const char* const l_pcEnd = l_pcAt + i_strRows.size();
    size_t l_uInStep = 0;
    const auto l_SkipLine = [&] {
        while (l_pcAt != l_pcEnd && *l_pcAt++ != '\n') {
        }
    };
    for (; l_pcAt != l_pcEnd; ++io_Table.uRows) {
        while (l_pcAt != l_pcEnd && *l_pcAt == '#') {
            l_SkipLine(); // where rows were put behind others
        }
        double l_dX = static_cast<double>(io_Table.uRows);
        const auto l_TakeCell = [&] {
            const double l_dNumber = TakeNumber(l_pcAt, l_pcEnd);
            l_pcAt += l_pcAt != l_pcEnd && *l_pcAt == ',' ? 1 : 0;
            return l_dNumber;
        };
        if (io_Table.bTime) {
            l_dX = l_TakeCell();
        } else if (io_Table.bNumbered) {
            l_TakeCell(); // it may begin anew where rows were put behind others
        }
        for (S_STEP& l_Step : l_vSteps) {
            Add(l_Step, l_dX, l_TakeCell());
        }
        l_SkipLine();
        if (++l_uInStep == l_uPerStep) {
            l_uInStep = 0;
            l_CloseAll();
        }
    }
    l_CloseAll();
}

} // namespace

S_TABLE ReadTable(const std::string& i_strCsv, bool i_bProgress)
{
    const CMapping l_Mapping(i_strCsv);
    std::string_view l_strText = l_Mapping.Text();
    S_TABLE l_Table;
    for (const std::string_view l_strName : TakeNames(l_strText)) {
        if (l_strName == k_pszTimeColumn) {
            l_Table.bTime = true;
        } else if (l_strName == k_pszSampleColumn) {
            l_Table.bNumbered = true;
        } else {
            l_Table.vCurves.push_back({std::string(l_strName), {}, 0, 0});
        }
    }
    ReadRows(l_strText, l_Table, i_bProgress);
    return l_Table;
}

void WriteNpy(const std::string& i_strCsv, int i_lFile)
{
    const CMapping l_Mapping(i_strCsv);
    std::string_view l_strText = l_Mapping.Text();
    const std::vector<std::string_view> l_vNames = TakeNames(l_strText);
    std::string l_strHead = "{'descr': [";
    for (const std::string_view l_strName : l_vNames) {
        l_strHead += "('" + std::string(l_strName) + "', '<f8'), ";
    }
    l_strHead += "], 'fortran_order': False, 'shape': (" +
                 std::to_string(std::count(l_strText.begin(), l_strText.end(), '\n')) + ",), }";
    // Magic, version and length of the head take ten bytes; all of it a multiple of 64.
    constexpr size_t k_uPrefix = 10;
    l_strHead.append(63 - (k_uPrefix + l_strHead.size()) % 64, ' ').push_back('\n');
    std::string l_strOut("\x93NUMPY\x01\x00", 8);
    l_strOut.push_back(static_cast<char>(l_strHead.size() & 0xFF));
    l_strOut.push_back(static_cast<char>(l_strHead.size() >> 8));
    l_strOut += l_strHead;
    const char* l_pcAt = l_strText.data();
    const char* const l_pcEnd = l_pcAt + l_strText.size();
    while (l_pcAt != l_pcEnd) {
        for (size_t i = 0; i < l_vNames.size(); ++i) {
            const auto l_ullBits = std::bit_cast<uint64_t>(TakeNumber(l_pcAt, l_pcEnd));
            l_pcAt += l_pcAt != l_pcEnd ? 1 : 0;
            for (unsigned l_uShift = 0; l_uShift < 64; l_uShift += 8) {
                l_strOut.push_back(static_cast<char>(l_ullBits >> l_uShift & 0xFF));
            }
        }
        if (l_strOut.size() >= 65536 || l_pcAt == l_pcEnd) {
            WriteAll(i_lFile, l_strOut);
            l_strOut.clear();
        }
    }
    WriteAll(i_lFile, l_strOut);
}

} // namespace host
