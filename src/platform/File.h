/**
 * @file File.h
 * @brief Files by the target's paths. All of them are regular files: what could block is refused.
 */
#pragma once

#include <cstdio>
#include <memory>

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
 * Opens a registered device, or an existing file for reading.
 *
 * @return INVALID_HANDLE_VALUE with the last error set (2 not found, 5 no access or no regular
 * file,
 *         ...) on failure.
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

/** Appends text to a file, which is created if need be. @return false if that fails. */
CECORE_API bool AppendToFile(const char* i_pszPath, const char* i_pcText, size_t i_ulLength);

/**
 * Writes text to the standard output or the standard error output, behind whatever the process has
 * printed there so far. A reader that has gone does not end the process.
 *
 * @param i_pStream stdout or stderr.
 * @return false with the last error set if that fails.
 */
CECORE_API bool WriteToConsole(std::FILE* i_pStream, const char* i_pcText, size_t i_ulLength);

/** Leaves a file that is there and empty. @return false if that fails. */
CECORE_API bool EmptyFile(const char* i_pszPath);

} // namespace cecore
