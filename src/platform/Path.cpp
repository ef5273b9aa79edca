#include "Path.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

#include "Format.h"

// Both are told by the build. A relative folder of links is one beside this library, so that an
// installed tree can be moved.
#ifndef TORNVAL_LINKS_DIR
#define TORNVAL_LINKS_DIR ""
#endif
#ifndef TORNVAL_HD00_DIR
#define TORNVAL_HD00_DIR "/hd00"
#endif

namespace cecore {
namespace {

/** An environment variable that names a folder; empty where it is not set or must not count. */
std::string_view GetFolderVariable(const char* i_pszName)
{
    const char* l_pszFolder = secure_getenv(i_pszName);
    return l_pszFolder == nullptr ? "" : l_pszFolder;
}

std::string_view GetVolumeFolder()
{
    const std::string_view l_strFolder = GetFolderVariable("TORNVAL_HD00");
    return l_strFolder.empty() ? TORNVAL_HD00_DIR : l_strFolder;
}

bool IsSamePathChar(char i_cSystem, char i_cTarget)
{
    return i_cSystem == (i_cTarget == '\\' ? '/' : i_cTarget);
}

CSystemPath GetExecutable()
{
    char l_aszExecutable[PATH_MAX];
    const ssize_t l_lLength = readlink("/proc/self/exe", l_aszExecutable, sizeof(l_aszExecutable));
    CSystemPath l_Executable;
    l_Executable.Append({l_aszExecutable, static_cast<size_t>(std::max<ssize_t>(l_lLength, 0))});
    return l_Executable;
}

} // namespace

CSystemPath::CSystemPath(const char* i_pszPath)
{
    AppendTarget(i_pszPath == nullptr ? "" : i_pszPath);
}

CSystemPath::CSystemPath(const wchar_t* i_pwszPath)
{
    char l_aszPath[PATH_MAX + 1];
    AppendTarget({l_aszPath, FormatNarrow(l_aszPath, sizeof(l_aszPath), "%S", i_pwszPath)});
}

void CSystemPath::AppendTarget(std::string_view i_strPath)
{
    static constexpr std::string_view k_strVolume = "/hd00";
    if (i_strPath.size() > k_strVolume.size() &&
        std::equal(k_strVolume.begin(), k_strVolume.end(), i_strPath.begin(), IsSamePathChar) &&
        IsSamePathChar('/', i_strPath[k_strVolume.size()])) {
        Append(GetVolumeFolder());
        i_strPath.remove_prefix(k_strVolume.size());
    }
    char* const l_pcBegin = m_aszPath + m_ulLength;
    Append(i_strPath);
    std::replace(l_pcBegin, m_aszPath + m_ulLength, '\\', '/');
}

void CSystemPath::Append(std::string_view i_strText)
{
    const size_t l_ulLength = std::min(i_strText.size(), sizeof(m_aszPath) - 1 - m_ulLength);
    m_bWhole = m_bWhole && l_ulLength == i_strText.size();
    std::copy_n(i_strText.begin(), l_ulLength, m_aszPath + m_ulLength);
    m_ulLength += l_ulLength;
    m_aszPath[m_ulLength] = '\0';
}

void CSystemPath::CutToFolder()
{
    m_ulLength = GetText().rfind('/') + 1;
    m_aszPath[m_ulLength] = '\0';
}

CSystemPath GetHomeFolder()
{
    std::string_view l_strHome = GetFolderVariable("TORNVAL_HOME");
    if (l_strHome.empty()) {
        CSystemPath l_Folder = GetExecutable();
        l_Folder.CutToFolder();
        return l_Folder;
    }
    while (l_strHome.ends_with('/')) {
        l_strHome.remove_suffix(1);
    }
    CSystemPath l_Folder;
    l_Folder.Append(l_strHome);
    l_Folder.Append("/");
    return l_Folder;
}

CSystemPath GetHostFileName()
{
    CSystemPath l_Name = GetHomeFolder();
    const CSystemPath l_Executable = GetExecutable();
    const std::string_view l_strExecutable = l_Executable.GetText();
    l_Name.Append(l_strExecutable.substr(l_strExecutable.rfind('/') + 1));
    return l_Name;
}

CSystemPath GetLinksFolder()
{
    static constexpr std::string_view k_strLinks = TORNVAL_LINKS_DIR;
    CSystemPath l_Folder;
    Dl_info l_Library{};
    if (k_strLinks.empty()) {
        return l_Folder;
    }
    if (!k_strLinks.starts_with('/') &&
        dladdr(reinterpret_cast<void*>(&GetLinksFolder), &l_Library) != 0) {
        l_Folder.Append(l_Library.dli_fname);
        l_Folder.CutToFolder();
    }
    l_Folder.Append(k_strLinks);
    l_Folder.Append(k_strLinks.ends_with('/') ? "" : "/");
    return l_Folder;
}

CSystemPath FindFile(const wchar_t* i_pwszName)
{
    const CSystemPath l_Name(i_pwszName);
    if (l_Name.GetText().empty() || l_Name.GetText().front() == '/') {
        return l_Name;
    }
    CSystemPath l_AtHome = GetHomeFolder();
    l_AtHome.Append(l_Name.GetText());
    return access(l_AtHome.Get(), F_OK) == 0 ? l_AtHome : l_Name;
}

} // namespace cecore

uint32_t CeGetPath(uint32_t kind, char* buffer, uint32_t size)
{
    using namespace cecore;
    CSystemPath l_Path;
    switch (kind) {
    case CECORE_PATH_HOME:
        l_Path = GetHomeFolder();
        break;
    case CECORE_PATH_LINKS:
        l_Path = GetLinksFolder();
        break;
    case CECORE_PATH_VOLUME:
        l_Path.Append(GetVolumeFolder());
        break;
    default:
        break;
    }
    const std::string_view l_strText = l_Path.GetText();
    if (buffer != nullptr && size != 0) {
        *std::copy_n(l_strText.begin(), std::min<size_t>(l_strText.size(), size - 1), buffer) =
            '\0';
    }
    return static_cast<uint32_t>(l_strText.size());
}
