/**
 * @file Path.h
 * @brief The door between the target's paths and those of this system. Inner header.
 *
 * The library writes "\folder\file"; this system wants "/folder/file". The change is made here and
 * nowhere else.
 */
#pragma once

#include <climits>
#include <string>

#include "Api.h"

namespace cecore {

/**
 * The path of this system for one of the target's: backslashes become slashes, and the volume
 * "\hd00" is the folder of the environment variable TORNVAL_HD00 where that is set.
 *
 * Nothing is allocated: a trace line goes through here. A path that is too long for the system is
 * empty, and so names no file.
 */
class CSystemPath
{
public:
    explicit CSystemPath(const char* i_pszPath);
    [[nodiscard]] const char* Get() const { return m_aszPath; }

private:
    char m_aszPath[PATH_MAX];
};

/** The same for wide text. */
std::string ToSystemPath(const wchar_t* i_pwszPath);

/** Wide text narrowed character by character. */
std::string ToNarrow(const wchar_t* i_pwszText);

/**
 * The host's file name: its folder is that of the executable, or TORNVAL_HOME where that is set.
 */
std::string GetHostFileName();

} // namespace cecore
