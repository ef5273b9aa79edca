#include "links/serial/Settings.h"

#include "links/common/Configuration.h"

#include <algorithm>
#include <charconv>

namespace links {

namespace {

std::string ReadText(const wire::CConfigText& i_Config, const std::string& i_strKey,
                     const std::string& i_strDefault)
{
    return std::string(i_Config.FindText("SERIAL_LINK", i_strKey).value_or(i_strDefault));
}

bool ReadNumber(const wire::CConfigText& i_Config, const std::string& i_strKey, int i_lMost,
                std::chrono::milliseconds& io_Number, std::string& o_strError)
{
    const std::string l_strText = ReadText(i_Config, i_strKey, std::to_string(io_Number.count()));
    const char* l_pcEnd = l_strText.data() + l_strText.size();
    int l_lNumber = 0;
    const auto l_Read = std::from_chars(l_strText.data(), l_pcEnd, l_lNumber);
    if (l_Read.ec != std::errc() || l_Read.ptr != l_pcEnd || l_lNumber < 1 || l_lNumber > i_lMost) {
        o_strError = "[SERIAL_LINK] " + i_strKey + "=" + l_strText + ": not a number from 1 to " +
                     std::to_string(i_lMost);
        return false;
    }
    io_Number = std::chrono::milliseconds(l_lNumber);
    return true;
}

} // namespace

bool ReadSettings(S_SERIAL_SETTINGS& o_Settings, std::string& o_strError)
{
    o_Settings = {};
    const wire::CConfigText l_Config = ReadConfiguration();
    for (size_t i = 0; i < o_Settings.astrPorts.size(); ++i) {
        o_Settings.astrPorts[i] =
            ReadText(l_Config, "PORT_" + std::to_string(i + 1), o_Settings.astrPorts[i]);
    }
    if (!ReadNumber(l_Config, "ANSWER_TIMEOUT", 60'000, o_Settings.AnswerTimeout, o_strError) ||
        !ReadNumber(l_Config, "SILENCE", 1000, o_Settings.Silence, o_strError)) {
        return false;
    }
    // While an answer is waited for the instrument hears the silence that it needs to find back.
    o_Settings.AnswerTimeout = std::max(o_Settings.AnswerTimeout, o_Settings.Silence);
    return true;
}

} // namespace links
