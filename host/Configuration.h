/**
 * @file Configuration.h
 * @brief Where the configuration file of the library lies, and what it says, so that a failed load
 *        can be explained. Reading it for measuring is the library's own affair.
 */
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace host {

/** Name of the configuration file. */
constexpr const char* k_pszConfigName = "TornvalC63.ini";

/** Folder in which the library looks for its configuration and its link libraries: the value of
 *  TORNVAL_HOME, or the folder of this executable. Absolute. */
std::filesystem::path HomeFolder();

/**
 * Value of a key as the library reads a text: the first section and the first key of that name
 * count, without regard to case; one pair of quotes and outer blanks are removed.
 *
 * @param i_strText content of a configuration file.
 * @return Nothing if there is no such key.
 */
std::optional<std::string> FindKey(std::string_view i_strText, std::string_view i_strSection,
                                   std::string_view i_strKey);

/** Content of a file; nothing if it cannot be read, errno then telling why. */
std::optional<std::string> ReadWholeFile(const std::filesystem::path& i_Path);

} // namespace host
