/**
 * @file Process.h
 * @brief Programs started by the library.
 */
#pragma once

#include "Api.h"

namespace cecore {

/** What a start gives back. */
struct S_PROCESS_INFORMATION
{
    Handle hProcess; /**< can be waited for; the caller's to close */
    uint32_t ulProcessId;
};

/**
 * Starts a program. It gets its own path as argument 0, then the words of the command line.
 *
 * @param i_pwszApplication   path of the program. Without a leading slash it is looked for in
 *                            the host's folder, then in the working folder.
 * @param i_pwszCommandLine   arguments, separated by blanks; may be null.
 * @param[out] o_pInformation filled on success.
 * @return false with the last error set: 2 not found, 5 no access, 193 no program, ...
 */
CECORE_API bool CreateProcessW(const wchar_t* i_pwszApplication, const wchar_t* i_pwszCommandLine,
                               S_PROCESS_INFORMATION* o_pInformation);

} // namespace cecore
