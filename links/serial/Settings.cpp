#include "links/serial/Settings.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>

#include <ini.h>
#include <strings.h>

namespace links {

namespace {

/** The keys of the section, in capitals. */
using S_KEYS = std::map<std::string, std::string, std::less<>>;

std::string_view Unquoted(std::string_view i_Text)
{
    if (i_Text.size() >= 2 && i_Text.front() == i_Text.back() &&
        (i_Text.front() == '"' || i_Text.front() == '\'')) {
        return i_Text.substr(1, i_Text.size() - 2);
    }
    return i_Text;
}

int TakeKey(void* io_pKeys, const char* i_pszSection, const char* i_pszName, const char* i_pszValue)
{
    if (strcasecmp(i_pszSection, "SERIAL_LINK") == 0 && i_pszName != nullptr &&
        i_pszValue != nullptr) {
        std::string l_strName(i_pszName);
        std::transform(l_strName.begin(), l_strName.end(), l_strName.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        static_cast<S_KEYS*>(io_pKeys)->try_emplace(l_strName, Unquoted(i_pszValue));
    }
    return 1;
}

/** One line for the parser, which would take an indented one for the rest of the line before it,
 *  and the rest of a long one for a line of its own. */
char* TakeLine(char* o_pszLine, int i_lSize, void* io_pFile)
{
    std::string l_strLine;
    if (i_lSize < 1 || !std::getline(*static_cast<std::ifstream*>(io_pFile), l_strLine)) {
        return nullptr;
    }
    const size_t l_ulStart = std::min(l_strLine.find_first_not_of(" \t"), l_strLine.size());
    const size_t l_ulLength =
        l_strLine.copy(o_pszLine, static_cast<size_t>(i_lSize) - 1, l_ulStart);
    o_pszLine[l_ulLength] = '\0';
    return o_pszLine;
}

bool ReadNumber(const S_KEYS& i_Keys, std::string_view i_Name, int i_lMost,
                std::chrono::milliseconds& io_Number, std::string& o_strError)
{
    const auto l_itKey = i_Keys.find(i_Name);
    if (l_itKey == i_Keys.end()) {
        return true;
    }
    const std::string& l_strText = l_itKey->second;
    int l_lNumber = 0;
    const auto [l_pEnd, l_eError] =
        std::from_chars(l_strText.data(), l_strText.data() + l_strText.size(), l_lNumber);
    if (l_eError != std::errc() || l_pEnd != l_strText.data() + l_strText.size() || l_lNumber < 1 ||
        l_lNumber > i_lMost) {
        o_strError = "[SERIAL_LINK] " + std::string(i_Name) + "=" + l_strText +
                     ": not a number from 1 to " + std::to_string(i_lMost);
        return false;
    }
    io_Number = std::chrono::milliseconds(l_lNumber);
    return true;
}

} // namespace

std::string SettingsPath()
{
    constexpr const char* k_pszFile = "TornvalC63.ini";
    const char* l_pszHome = secure_getenv("TORNVAL_HOME");
    if (l_pszHome != nullptr && *l_pszHome != '\0') {
        return std::string(l_pszHome) + "/" + k_pszFile;
    }
    std::error_code l_Error;
    return std::filesystem::read_symlink("/proc/self/exe", l_Error).replace_filename(k_pszFile);
}

bool ReadSettings(const std::string& i_strPath, S_SERIAL_SETTINGS& o_Settings,
                  std::string& o_strError)
{
    o_Settings = {};
    S_KEYS l_Keys;
    std::ifstream l_File(i_strPath, std::ios::binary);
    // A line that the parser makes nothing of is none of ours.
    (void)ini_parse_stream(TakeLine, &l_File, TakeKey, &l_Keys);
    for (size_t i = 0; i < o_Settings.astrPorts.size(); ++i) {
        const auto l_itPort = l_Keys.find("PORT_" + std::to_string(i + 1));
        if (l_itPort != l_Keys.end()) {
            o_Settings.astrPorts[i] = l_itPort->second;
        }
    }
    if (!ReadNumber(l_Keys, "ANSWER_TIMEOUT", 60'000, o_Settings.AnswerTimeout, o_strError) ||
        !ReadNumber(l_Keys, "SILENCE", 1000, o_Settings.Silence, o_strError)) {
        return false;
    }
    // While an answer is waited for the instrument hears the silence that it needs to find back.
    o_Settings.AnswerTimeout = std::max(o_Settings.AnswerTimeout, o_Settings.Silence);
    return true;
}

} // namespace links
