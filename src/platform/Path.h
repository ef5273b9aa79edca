/**
 * @file Path.h
 * @brief The door between the target's paths and those of this system, and the places in which files
 *        are looked for. Inner header.
 *
 * The library writes "\folder\file"; this system wants "/folder/file". The change is made here and
 * nowhere else. Nothing here is allocated.
 */
#pragma once

#include <climits>
#include <string_view>

#include "Api.h"

namespace cecore {

/** A path of this system. One that is too long for it is cut, and then names no file. */
class CSystemPath
{
public:
    CSystemPath() = default;
    /**
     * The path for one of the target's: backslashes become slashes, and the volume "\hd00" is its
     * folder.
     */
    explicit CSystemPath(const char* i_pszPath);
    /** As above; a wide character above 0xFF becomes '?'. */
    explicit CSystemPath(const wchar_t* i_pwszPath);

    /** The path, terminated; empty if it is too long. */
    [[nodiscard]] const char* Get() const { return m_bWhole ? m_aszPath : ""; }
    /** What there is of it, whole or not. */
    [[nodiscard]] std::string_view GetText() const { return {m_aszPath, m_ulLength}; }
    void Append(std::string_view i_strText);
    /** Cuts what stands behind the last slash. */
    void CutToFolder();

private:
    void AppendTarget(std::string_view i_strPath);

    char m_aszPath[PATH_MAX] = {};
    size_t m_ulLength = 0;
    bool m_bWhole = true;
};

/** The host's folder with a slash at its end: that of the executable, or TORNVAL_HOME if it is set. */
CSystemPath GetHomeFolder();

/** The host's file name, in its folder. */
CSystemPath GetHostFileName();

/** Where link libraries are installed, with a slash at its end; empty: nowhere. */
CSystemPath GetLinksFolder();

/**
 * The file that a name of the configuration means: a name without a leading slash is looked for in
 * the host's folder, and is one of the working folder if it is not there.
 */
CSystemPath FindFile(const wchar_t* i_pwszName);

} // namespace cecore
