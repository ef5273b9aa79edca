#include "driver/ModuleFolder.h"

#include <cstring>
#include <cwchar>

#include "platform/Format.h"
#include "platform/Module.h"
#include "platform/Reason.h"

namespace tornval {
namespace {

constexpr const char* k_pszConfiguration = "TornvalC63.ini";

} // namespace

void GetModuleFolder(wchar_t* o_pwszFolder, uint32_t i_ulSize)
{
    if (o_pwszFolder == nullptr || i_ulSize == 0) {
        return;
    }
    cecore::GetModuleFileNameW(nullptr, o_pwszFolder, i_ulSize);
    wchar_t* l_pwszEnd = std::wcsrchr(o_pwszFolder, L'\\');
    if (l_pwszEnd == nullptr) {
        cecore::FormatWide(o_pwszFolder, i_ulSize, L"%S", "\\hd01");
        l_pwszEnd = o_pwszFolder + std::wcslen(o_pwszFolder);
    }
    const auto l_ulUsed = static_cast<size_t>(l_pwszEnd - o_pwszFolder);
    cecore::FormatWide(l_pwszEnd, i_ulSize - l_ulUsed, L"\\");
}

uint32_t ReadModuleConfiguration(CConfigFile& o_Config)
{
    // A folder that was cut to its buffer is another one, and may have a configuration: not read.
    if (CeGetPath(CECORE_PATH_HOME, nullptr, 0) + std::strlen(k_pszConfiguration) >= k_ulMaxPath) {
        return cecore::ERROR_FILENAME_EXCED_RANGE;
    }
    wchar_t l_awszFolder[k_ulMaxPath];
    char l_aszPath[k_ulMaxPath];
    GetModuleFolder(l_awszFolder, k_ulMaxPath);
    cecore::FormatNarrow(l_aszPath, sizeof(l_aszPath), "%S%s", l_awszFolder, k_pszConfiguration);
    const uint32_t l_ulBefore = cecore::GetLastError();
    ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
    if (!o_Config.Load(l_aszPath)) {
        return cecore::GetLastError();
    }
    ::SetLastError(l_ulBefore);
    return cecore::ERROR_SUCCESS;
}

uint32_t LoadModuleConfiguration(CConfigFile& o_Config)
{
    const uint32_t l_ulError = ReadModuleConfiguration(o_Config);
    if (l_ulError != cecore::ERROR_SUCCESS) {
        NoteConfigurationReason(l_ulError);
    }
    return l_ulError;
}

void NoteConfigurationReason(uint32_t i_ulError)
{
    char l_aszFolder[k_ulMaxPath + 1];
    const uint32_t l_ulLength = CeGetPath(CECORE_PATH_HOME, l_aszFolder, sizeof(l_aszFolder));
    const char* l_pszWhy = "it cannot be read";
    if (i_ulError == cecore::ERROR_FILENAME_EXCED_RANGE) {
        l_pszWhy = "its path is too long, 259 characters are the most";
    } else if (i_ulError == CECORE_ERROR_FILE_NOT_FOUND ||
               i_ulError == cecore::ERROR_PATH_NOT_FOUND) {
        l_pszWhy = "there is no such file";
    } else if (i_ulError == CECORE_ERROR_NOT_ENOUGH_MEMORY) {
        l_pszWhy = "there is no memory for it";
    }
    cecore::NoteReason(i_ulError, "configuration %s%s%s: %s", l_aszFolder,
                       l_ulLength < sizeof(l_aszFolder) ? "" : "...", k_pszConfiguration, l_pszWhy);
}

} // namespace tornval
