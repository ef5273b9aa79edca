#include "driver/ModuleFolder.h"

#include <cwchar>

#include "platform/Format.h"
#include "platform/Module.h"

namespace tornval {

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

bool LoadModuleConfiguration(CConfigFile& o_Config)
{
    wchar_t l_awszFolder[k_ulMaxPath];
    char l_aszPath[k_ulMaxPath];
    // A path that was cut to its buffer is another one, and may be there: it is not read.
    const bool l_bWhole =
        cecore::GetModuleFileNameW(nullptr, l_awszFolder, k_ulMaxPath) < k_ulMaxPath - 1;
    GetModuleFolder(l_awszFolder, k_ulMaxPath);
    const size_t l_ulLength =
        cecore::FormatNarrow(l_aszPath, sizeof(l_aszPath), "%S%s", l_awszFolder, "TornvalC63.ini");
    return l_bWhole && l_ulLength < sizeof(l_aszPath) - 1 && o_Config.Load(l_aszPath);
}

} // namespace tornval
