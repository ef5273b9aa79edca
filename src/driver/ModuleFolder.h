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
 * @return true if the file could be opened.
 */
bool LoadModuleConfiguration(CConfigFile& o_Config);

} // namespace tornval
