/**
 * @file Registry.h
 * @brief The registry table: keys and values of this process, nothing outside it.
 */
#pragma once

#include "Api.h"

namespace cecore {

inline constexpr Handle HKEY_LOCAL_MACHINE = 0x80000002U;
inline constexpr uint32_t KEY_READ = 0x20019;

/** Stores a value, for the one who plays the system's part. Names are compared without case. */
CECORE_API void SetRegistryValue(const wchar_t* i_pwszKey, const wchar_t* i_pwszEntry,
                                 const void* i_pData, uint32_t i_ulSize);

/** Opens a key under HKEY_LOCAL_MACHINE. @return 0 done, else the error number. */
CECORE_API uint32_t RegOpenKeyExW(Handle i_hRoot, const wchar_t* i_pwszKey, uint32_t i_ulAccess,
                                  Handle* o_phKey);

/**
 * Reads a value. A key that is open is closed as every handle.
 *
 * @param[in,out] io_pulSize room in bytes; becomes the value's size.
 * @return 0 done, 2 no such value, 234 not enough room (nothing is stored), 6 no such key.
 */
CECORE_API uint32_t RegQueryValueExW(Handle i_hKey, const wchar_t* i_pwszEntry, void* o_pData,
                                     uint32_t* io_pulSize);

} // namespace cecore
