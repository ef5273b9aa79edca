/**
 * @file LoadProbe.h
 * @brief Finds out why a driver does not come up: repeats the load in a second process whose trace
 *        log is switched on, and looks at the link libraries that failed.
 *
 * The second process works in a private folder that mirrors the home folder by links, so neither
 * the user's configuration nor the user's trace log is touched. All drivers of this process must be
 * unloaded before, so that the links are free.
 */
#ifndef HOST_LOADPROBE_H
#define HOST_LOADPROBE_H

#include "TraceReport.h"

#include <filesystem>
#include <string>
#include <vector>

namespace host {

/** The hidden command of this executable that only loads the drivers. */
constexpr const char* k_pszLoadCommand = "__load";

/** What was found out about a load. */
struct S_LOAD_REPORT
{
    /** The configuration file that the library looks at. */
    std::filesystem::path Configuration;
    /** What keeps all drivers from coming up, or why nothing more is known; empty if neither. */
    std::string strGeneral;
    /** One entry per driver that the load tried to build. */
    std::vector<S_DRIVER_LOAD> vDrivers;
};

/**
 * Repeats the load and explains it. Takes as long as a load takes.
 *
 * @param i_lMask     mask of the load.
 * @param i_bProgress shows progress although standard error is no terminal.
 */
S_LOAD_REPORT ExamineLoad(int32_t i_lMask, bool i_bProgress);

/**
 * Tries a link library the way the drivers do, and says what happens.
 *
 * @param i_strName       name as configured.
 * @param i_Home          folder that is tried first for a name without a folder.
 * @param i_vEntryPoints  what the library must offer.
 * @return One line per place that was tried, and the entry points that are missing.
 */
std::vector<std::string> ExamineLibrary(const std::string& i_strName,
                                        const std::filesystem::path& i_Home,
                                        const std::vector<std::string>& i_vEntryPoints);

} // namespace host

#endif // HOST_LOADPROBE_H
