#include "Path.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <string_view>

#include <unistd.h>

#include "Format.h"

namespace cecore {
namespace {

bool IsSamePathChar(char i_cSystem, char i_cTarget)
{
    return i_cSystem == (i_cTarget == '\\' ? '/' : i_cTarget);
}

} // namespace

std::string ToNarrow(const wchar_t* i_pwszText)
{
    std::string l_strText(std::wcslen(i_pwszText) + 1, '\0');
    l_strText.resize(FormatNarrow(l_strText.data(), l_strText.size(), "%S", i_pwszText));
    return l_strText;
}

CSystemPath::CSystemPath(const char* i_pszPath)
{
    static constexpr std::string_view l_strVolume = "/hd00";
    std::string_view l_strPath = i_pszPath == nullptr ? "" : i_pszPath;
    const char* l_pszFolder = secure_getenv("TORNVAL_HD00");
    std::string_view l_strFolder;
    if (l_pszFolder != nullptr && l_strPath.size() > l_strVolume.size() &&
        std::equal(l_strVolume.begin(), l_strVolume.end(), l_strPath.begin(), IsSamePathChar) &&
        IsSamePathChar('/', l_strPath[l_strVolume.size()])) {
        l_strFolder = l_pszFolder;
        l_strPath.remove_prefix(l_strFolder.empty() ? 0 : l_strVolume.size());
    }
    char* l_pcEnd = m_aszPath;
    if (l_strFolder.size() + l_strPath.size() < sizeof(m_aszPath)) {
        l_pcEnd = std::copy(l_strFolder.begin(), l_strFolder.end(), m_aszPath);
        l_pcEnd = std::replace_copy(l_strPath.begin(), l_strPath.end(), l_pcEnd, '\\', '/');
    }
    *l_pcEnd = '\0';
}

std::string ToSystemPath(const wchar_t* i_pwszPath)
{
    return CSystemPath(ToNarrow(i_pwszPath).c_str()).Get();
}

std::string GetHostFileName()
{
    char l_aszExecutable[PATH_MAX];
    const ssize_t l_lLength = readlink("/proc/self/exe", l_aszExecutable, sizeof(l_aszExecutable));
    std::string l_strName(l_aszExecutable, l_lLength > 0 ? static_cast<size_t>(l_lLength) : 0);
    const char* l_pszHome = secure_getenv("TORNVAL_HOME");
    if (l_pszHome != nullptr && *l_pszHome != '\0') {
        std::string l_strHome = l_pszHome;
        while (!l_strHome.empty() && l_strHome.back() == '/') {
            l_strHome.pop_back();
        }
        l_strName = l_strHome + "/" + l_strName.substr(l_strName.rfind('/') + 1);
    }
    return l_strName;
}

} // namespace cecore
