/**
 * @file LibraryCheck.h
 * @brief Whether a link library is what a driver needs.
 */
#pragma once

#include <string>
#include <vector>

namespace host {

/**
 * Loads a link library the way a driver does, without calling it.
 *
 * @param i_strSection "IM", "BT" or "USB": whose entry points it must have.
 * @param i_strName    a path, or a name that is looked for where a driver does.
 * @return what is wrong with it, in words; empty if nothing is.
 */
std::vector<std::string> LibraryFaults(const std::string& i_strSection,
                                       const std::string& i_strName);

/** Whether a link library that this process has loaded has an emulated instrument behind it, which its
 *  entry point TornvalEmulated tells. */
bool IsEmulatedLink(const std::string& i_strName);

} // namespace host
