/**
 * @file TraceReport.h
 * @brief Reads the trace of a load of the drivers and says in words which driver did not come up
 *        and why.
 *
 * The library's load reports one bit. What went wrong stands in its trace log; this part knows the
 * lines of that log and nothing of how it was made (see LoadProbe.h for that).
 */
#ifndef HOST_TRACEREPORT_H
#define HOST_TRACEREPORT_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/** One entry of the trace log, its date and thread left out. */
struct S_TRACE_LINE
{
    std::string strText;
    /** "ERROR_LEVEL", "FW_LEVEL", ...; empty if the entry has no suffix. */
    std::string strLevel;
};

/** What the trace tells of the load of one driver. */
struct S_DRIVER_LOAD
{
    /** Link type word: "IM", "MO", "BT", "USB", or what the trace calls an unknown one. */
    std::string strLinkType;
    /** The driver was entered in the list of loaded drivers. */
    bool bUp = false;
    /** Each failure in words, in the order in which it happened. */
    std::vector<std::string> vReasons;
    /** The lines that the failures were read from, as the trace has them. */
    std::vector<std::string> vLines;
    /** The link library could not be loaded or bound: examine it (see ExamineLibrary()). */
    bool bLibraryFailed = false;
    /** Name of that library where the trace tells it; a probe's trace does not. */
    std::string strLibrary;
};

/** Splits a trace log into its entries; an entry may span several lines of the file. */
std::vector<S_TRACE_LINE> ParseTrace(std::string_view i_strLog);

/** Collects what happened to each driver, in the order in which they were built. */
std::vector<S_DRIVER_LOAD> ReadLoads(const std::vector<S_TRACE_LINE>& i_vLines);

/**
 * One failure line in words.
 *
 * @return Empty if the line is not known; it then speaks for itself.
 */
std::string TraceLineInWords(const std::string& i_strText);

/** Bytes as UTF-8 text: kept if they are that already, else taken as one byte, one character. */
std::string ToUtf8(std::string_view i_strBytes);

} // namespace host

#endif // HOST_TRACEREPORT_H
