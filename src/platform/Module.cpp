#include "Module.h"

#include <algorithm>
#include <string>

#include <dlfcn.h>
#include <sys/stat.h>

#include "Format.h"
#include "Path.h"

namespace cecore {

ModuleHandle LoadLibraryW(const wchar_t* i_pwszName)
{
    if (i_pwszName == nullptr || *i_pwszName == 0) {
        ::SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const std::string l_strName = ToSystemPath(i_pwszName);
    bool l_bExists = false;
    const auto l_fnOpen = [&l_bExists](const std::string& i_strPath) -> ModuleHandle {
        struct stat l_Status = {};
        if (stat(i_strPath.c_str(), &l_Status) != 0) {
            return nullptr;
        }
        l_bExists = true;
        // The loader would wait for a writer of a pipe.
        return S_ISREG(l_Status.st_mode) ? dlopen(i_strPath.c_str(), RTLD_NOW | RTLD_LOCAL)
                                         : nullptr;
    };
    ModuleHandle l_hModule = nullptr;
    if (l_strName.find('/') == std::string::npos) {
        const std::string l_strHost = GetHostFileName();
        l_hModule = l_fnOpen(l_strHost.substr(0, l_strHost.rfind('/') + 1) + l_strName);
        if (l_hModule == nullptr) {
            l_hModule = dlopen(l_strName.c_str(), RTLD_NOW | RTLD_LOCAL);
        }
    } else {
        l_hModule = l_fnOpen(l_strName);
    }
    if (l_hModule == nullptr) {
        ::SetLastError(l_bExists ? ERROR_BAD_EXE_FORMAT : ERROR_MOD_NOT_FOUND);
    }
    return l_hModule;
}

void* GetProcAddressW(ModuleHandle i_hModule, const wchar_t* i_pwszName)
{
    void* l_pAddress = i_hModule == nullptr || i_pwszName == nullptr
                           ? nullptr
                           : dlsym(i_hModule, ToNarrow(i_pwszName).c_str());
    if (l_pAddress == nullptr) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
    }
    return l_pAddress;
}

bool FreeLibrary(ModuleHandle i_hModule)
{
    if (i_hModule == nullptr || dlclose(i_hModule) != 0) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    return true;
}

uint32_t GetModuleFileNameW(ModuleHandle i_hModule, wchar_t* o_pwszName, uint32_t i_ulSize)
{
    if (i_hModule != nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    std::string l_strName = GetHostFileName();
    std::replace(l_strName.begin(), l_strName.end(), '/', '\\');
    return static_cast<uint32_t>(FormatWide(o_pwszName, i_ulSize, L"%S", l_strName.c_str()));
}

} // namespace cecore
