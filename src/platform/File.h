/**
 * @file File.h
 * @brief Files by the target's paths. All of them are regular files: what could block is refused.
 */
#pragma once

#include <cstdio>
#include <memory>
#include <string_view>

#include "Api.h"

namespace cecore {

inline constexpr uint32_t GENERIC_READ = 0x80000000U;
inline constexpr uint32_t GENERIC_WRITE = 0x40000000U;
inline constexpr uint32_t FILE_SHARE_READ = 1;
inline constexpr uint32_t FILE_SHARE_WRITE = 2;
inline constexpr uint32_t OPEN_EXISTING = 3;
inline constexpr uint32_t FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr uint32_t INVALID_FILE_SIZE = 0xFFFFFFFFU;

/**
 * Opens a registered device, whose names are compared without case, or an existing file for reading.
 * A file without a leading slash is looked for in the host's folder, then in the working folder.
 *
 * @return INVALID_HANDLE_VALUE with the last error set on failure: 2 not found, 5 no access or no
 *         regular file, ...
 */
CECORE_API Handle CreateFileW(const wchar_t* i_pwszName, uint32_t i_ulAccess, uint32_t i_ulShare,
                              uint32_t i_ulDisposition, uint32_t i_ulAttributes);

/** Low 32 bits of a file's size; INVALID_FILE_SIZE with the last error set on failure. */
CECORE_API uint32_t GetFileSize(Handle i_hFile, uint32_t* o_pulHigh);

/** Reads from the current position. @return false with the last error set on failure. */
CECORE_API bool ReadFile(Handle i_hFile, void* o_pBuffer, uint32_t i_ulSize, uint32_t* o_pulRead);

/** Closes a stream at the end of its life. */
struct S_STREAM_CLOSER
{
    void operator()(std::FILE* i_pFile) const { static_cast<void>(std::fclose(i_pFile)); }
};
using CStream = std::unique_ptr<std::FILE, S_STREAM_CLOSER>;

/** Opens an existing regular file as a stream for reading; null if that fails. */
CECORE_API CStream OpenForReading(const char* i_pszPath);

/** This system's path for one of the target's, to be kept; null without memory. */
CECORE_API std::unique_ptr<char[]> MakeSystemPath(const char* i_pszPath);

/**
 * Appends a line to a file in one piece, whoever else writes there. The file is made if need be; the
 * last name of the path may not be a symbolic link.
 *
 * @param i_pszPath path of this system: little of the stack is taken here.
 * @param i_strHead first part of the line, so that nobody has to put the two together.
 * @return false with the last error set if that fails.
 */
CECORE_API bool AppendToFile(const char* i_pszPath, std::string_view i_strHead,
                             std::string_view i_strText);

/** Leaves a file that is there and empty; the rest as above. */
CECORE_API bool EmptyFile(const char* i_pszPath);

/**
 * Whether the standard output is the host's: not where the process was started with it closed, for
 * then its number is that of a file of somebody else.
 */
CECORE_API bool HasStandardOutput();

/**
 * Writes a line, in two parts, to the standard output or the standard error output, behind whatever the process has
 * printed there so far. A reader that has gone does not end the process.
 *
 * @param i_pStream        stdout or stderr.
 * @param i_ulMilliseconds how long it waits for a reader that does not read; then nothing is written.
 * @return false with the last error set if that fails: 1460 if nobody reads.
 */
CECORE_API bool WriteToConsole(std::FILE* i_pStream, std::string_view i_strHead,
                               std::string_view i_strText, uint32_t i_ulMilliseconds = 1000);

} // namespace cecore
