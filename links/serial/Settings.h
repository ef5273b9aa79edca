/**
 * @file Settings.h
 * @brief Where the ports of the serial link are: section SERIAL_LINK of the configuration file.
 */
#pragma once

#include <array>
#include <chrono>
#include <string>

namespace links {

/**
 * The section, with its defaults. Keys: PORT_1, PORT_2 (a device, or a link to one), ANSWER_TIMEOUT
 * (1 to 60000 milliseconds), SILENCE (1 to 1000 milliseconds).
 */
struct S_SERIAL_SETTINGS
{
    std::array<std::string, 2> astrPorts{"/dev/ttyS0", "/dev/ttyS1"};
    std::chrono::milliseconds AnswerTimeout{2000}; /**< never less than Silence */
    std::chrono::milliseconds Silence{500};
};

/**
 * Reads the section from the configuration file of the host. A file or a key that is not there
 * leaves the defaults.
 *
 * @param[out] o_strError what is wrong, if the result is false.
 * @return false if a number is none or out of its range.
 */
bool ReadSettings(S_SERIAL_SETTINGS& o_Settings, std::string& o_strError);

} // namespace links
