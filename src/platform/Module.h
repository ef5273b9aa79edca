/**
 * @file Module.h
 * @brief Libraries loaded by name, and the host's file name.
 */
#pragma once

#include <cstring>

#include "Api.h"

namespace cecore {

/** A loaded library; null is none. */
using ModuleHandle = void*;

/**
 * Loads a library. A name without a folder is tried beside the host executable (or in TORNVAL_HOME)
 * first, then where link libraries are installed, then by the system's search.
 *
 * @return null with error 126 (not found, or the name is empty) or 193 (found, but no library).
 */
CECORE_API ModuleHandle LoadLibraryW(const wchar_t* i_pwszName);

/**
 * Entry point of a library itself, not of one that it needs.
 *
 * @return null with error 127 if it has none of that name.
 */
CECORE_API void* GetProcAddressW(ModuleHandle i_hModule, const wchar_t* i_pwszName);

/** Gives a library back. @return false, with error 6, for a null handle. */
CECORE_API bool FreeLibrary(ModuleHandle i_hModule);

/**
 * File name of the host executable, with backslashes; cut to i_ulSize characters with terminator.
 * With TORNVAL_HOME set, its folder is that one.
 *
 * @param i_hModule null: the host. Nothing else is asked for.
 * @return characters stored, without the terminator.
 */
CECORE_API uint32_t GetModuleFileNameW(ModuleHandle i_hModule, wchar_t* o_pwszName,
                                       uint32_t i_ulSize);

/** GetProcAddressW into a function pointer. @return whether the entry point exists. */
template <typename F>
bool GetProcAddressInto(ModuleHandle i_hModule, const wchar_t* i_pwszName, F*& o_pFn)
{
    void* l_pAddress = GetProcAddressW(i_hModule, i_pwszName);
    static_assert(sizeof(o_pFn) == sizeof(l_pAddress));
    std::memcpy(&o_pFn, &l_pAddress, sizeof(o_pFn));
    return l_pAddress != nullptr;
}

} // namespace cecore
