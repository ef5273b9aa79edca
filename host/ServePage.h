/**
 * @file ServePage.h
 * @brief The files of the page that tornval serve shows; they are part of the program.
 */
#pragma once

#include <string_view>
#include <vector>

namespace host {

struct S_PAGE_FILE
{
    const char* pszPath; /**< in the address */
    const char* pszType; /**< media type */
    std::string_view strContent;
};

/** Made from host/serve when the program is built. */
const std::vector<S_PAGE_FILE>& PageFiles();

} // namespace host
