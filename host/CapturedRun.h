/**
 * @file CapturedRun.h
 * @brief Runs a program with another link library in the place of the configured ones.
 */
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

/** Name of the configuration file. */
constexpr const char* k_pszConfigurationName = "TornvalC63.ini";

/**
 * A configuration in which the drivers load another link library.
 *
 * @param i_strText    content of a configuration file.
 * @param i_strLibrary path of the library.
 * @param i_strSection section to be put in front, with its line end.
 */
std::string ReplaceLinks(std::string_view i_strText, const std::string& i_strLibrary,
                         const std::string& i_strSection);

/** Link libraries that a configuration names, by section: IM, BT, USB. */
std::vector<std::pair<std::string, std::string>> ConfiguredLinks(std::string_view i_strText);

/** Path of a link library of this project: beside this program's build, else its bare name, which
 *  the library finds in its folder of link libraries. */
std::string OwnLink(const char* i_pszName);

/** Folder in which a program that runs as a host looks for its configuration. */
std::filesystem::path HomeOf(const std::string& i_strProgram);

/**
 * The arguments of a run: those of this program, where the first word is a command of it or an
 * option; otherwise those of the program that they name.
 *
 * @param i_vCommands the commands of this program.
 */
std::vector<std::string> ProgramOf(const std::vector<std::string>& i_vWords,
                                   const std::vector<std::string>& i_vCommands);

/**
 * Runs a program in a home of its own, which holds the given configuration and, by links, all else
 * that lies in the user's, and waits for it. Signals that ask to stop are handed on to it.
 *
 * @return its exit code, or 128 + the signal that ended it.
 * @throws S_FAILURE if it cannot be run.
 */
int RunInHome(const std::vector<std::string>& i_vArguments, const std::filesystem::path& i_Home,
              const std::string& i_strConfiguration);

} // namespace host
