/**
 * @file PortList.h
 * @brief The serial ports that a machine has, for one who named another.
 */
#pragma once

#include <string>

namespace links {

/** Names of the serial ports that are there, with a comma between them, those with a lasting name
 *  first; "none". */
std::string ListPorts();

} // namespace links
