#include "links/serial/Settings.h"

#include "cecore.h"
#include "wire/ConfigText.h"
#include "wire/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include <sys/stat.h>

namespace links {

namespace {

/** The configuration file of the host; empty if it cannot be read. */
std::string ReadConfiguration()
{
    std::string l_strPath(CeGetPath(CECORE_PATH_HOME, nullptr, 0), '\0');
    (void)CeGetPath(CECORE_PATH_HOME, l_strPath.data(),
                    static_cast<uint32_t>(l_strPath.size() + 1));
    l_strPath += "TornvalC63.ini";
    const wire::CDescriptor l_File(
        open(l_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat l_Status = {};
    std::string l_strText;
    if (!l_File || fstat(l_File.Get(), &l_Status) != 0 || !S_ISREG(l_Status.st_mode)) {
        return l_strText;
    }
    constexpr size_t k_ulPiece = 65536;
    l_strText.reserve(static_cast<size_t>(l_Status.st_size) + k_ulPiece);
    ssize_t l_lRead = 0;
    do {
        const size_t l_ulBefore = l_strText.size();
        l_strText.resize(l_ulBefore + k_ulPiece);
        l_lRead = read(l_File.Get(), l_strText.data() + l_ulBefore, k_ulPiece);
        l_strText.resize(l_ulBefore + static_cast<size_t>(std::max<ssize_t>(l_lRead, 0)));
    } while (l_lRead > 0 || (l_lRead < 0 && errno == EINTR));
    return l_strText;
}

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
    wire::CConfigText l_Config;
    l_Config.Parse(ReadConfiguration());
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
