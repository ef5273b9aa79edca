#include "Configuration.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace host {

namespace {

std::string_view Trim(std::string_view i_strText, std::string_view i_strBlanks)
{
    const size_t l_uFirst = i_strText.find_first_not_of(i_strBlanks);
    if (l_uFirst == std::string_view::npos) {
        return {};
    }
    return i_strText.substr(l_uFirst, i_strText.find_last_not_of(i_strBlanks) - l_uFirst + 1);
}

bool SameWord(std::string_view i_strA, std::string_view i_strB)
{
    return std::equal(i_strA.begin(), i_strA.end(), i_strB.begin(), i_strB.end(),
                      [](char i_cA, char i_cB) {
                          return std::tolower(static_cast<unsigned char>(i_cA)) ==
                                 std::tolower(static_cast<unsigned char>(i_cB));
                      });
}

std::string Unquote(std::string_view i_strValue)
{
    if (!i_strValue.empty() && i_strValue.front() == i_strValue.back() &&
        (i_strValue.front() == '\'' || i_strValue.front() == '"')) {
        i_strValue = i_strValue.size() < 2 ? std::string_view()
                                           : i_strValue.substr(1, i_strValue.size() - 2);
    }
    return std::string(Trim(i_strValue, " "));
}

} // namespace

std::filesystem::path HomeFolder()
{
    std::error_code l_Error;
    const char* l_pszHome = secure_getenv("TORNVAL_HOME");
    if (l_pszHome != nullptr && *l_pszHome != '\0') {
        return std::filesystem::absolute(l_pszHome, l_Error);
    }
    return std::filesystem::read_symlink("/proc/self/exe", l_Error).parent_path();
}

std::optional<std::string> FindKey(std::string_view i_strText, std::string_view i_strSection,
                                   std::string_view i_strKey)
{
    bool l_bInside = false;
    while (!i_strText.empty()) {
        const size_t l_uEnd = std::min(i_strText.find('\n'), i_strText.size());
        const std::string_view l_strLine = Trim(i_strText.substr(0, l_uEnd), " \t\r");
        i_strText.remove_prefix(std::min(l_uEnd + 1, i_strText.size()));
        if (l_strLine.empty() || l_strLine.front() == ';') {
            continue;
        }
        if (l_strLine.front() == '[' && l_strLine.back() == ']') {
            if (l_bInside) {
                return std::nullopt;
            }
            l_bInside = SameWord(l_strLine.substr(1, l_strLine.size() - 2), i_strSection);
            continue;
        }
        const size_t l_uEqual = l_strLine.find('=');
        if (l_bInside && SameWord(Trim(l_strLine.substr(0, l_uEqual), " \t"), i_strKey)) {
            return l_uEqual == std::string_view::npos
                       ? std::string()
                       : Unquote(Trim(l_strLine.substr(l_uEqual + 1), " \t"));
        }
    }
    return std::nullopt;
}

std::optional<std::string> ReadWholeFile(const std::filesystem::path& i_Path)
{
    std::ifstream l_File(i_Path, std::ios::binary);
    if (!l_File) {
        return std::nullopt;
    }
    std::string l_strText{std::istreambuf_iterator<char>(l_File), {}};
    return l_File.bad() ? std::nullopt : std::optional<std::string>(std::move(l_strText));
}

} // namespace host
