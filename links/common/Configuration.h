/**
 * @file Configuration.h
 * @brief The configuration file of the host, as links read it for sections of their own.
 */
#pragma once

#include "wire/ConfigText.h"

namespace links {

/** TornvalC63.ini from where the library reads it; empty if it cannot be read. */
wire::CConfigText ReadConfiguration();

} // namespace links
