/**
 * @file ModuleFolder.h
 * @brief Where the configuration file lies.
 */
#pragma once

#include <cstdint>

#include "support/ConfigFile.h"

namespace tornval {

/** Room for a path, in characters, terminator included. */
inline constexpr uint32_t k_ulMaxPath = 260;

/**
 * Folder of the host executable with one trailing backslash; "\hd01\" if its name has no backslash.
 *
 * @param[out] o_pwszFolder null: nothing is done.
 * @param      i_ulSize     room in characters, terminator included.
 */
void GetModuleFolder(wchar_t* o_pwszFolder, uint32_t i_ulSize);

/**
 * Loads TornvalC63.ini from the folder of the host executable.
 *
 * @return 0 if the file could be opened, else why not: 2 not there, 206 its path is longer than 259
 *         characters, 5 no access, ...
 */
uint32_t ReadModuleConfiguration(CConfigFile& o_Config);

/** As above, and notes the reason for the host. */
uint32_t LoadModuleConfiguration(CConfigFile& o_Config);

/** Notes for the host why the configuration could not be read. */
void NoteConfigurationReason(uint32_t i_ulError);

} // namespace tornval
