#include "Module.h"

#include <algorithm>
#include <string>

#include <dlfcn.h>
#include <sys/stat.h>

#include "Format.h"
#include "Path.h"
#include "Reason.h"

namespace cecore {

ModuleHandle LoadLibraryW(const wchar_t* i_pwszName)
{
    if (i_pwszName == nullptr || *i_pwszName == 0) {
        NoteReason(ERROR_MOD_NOT_FOUND, "no link library is named");
        ::SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const std::string l_strName = ToSystemPath(i_pwszName);
    uint32_t l_ulError = ERROR_MOD_NOT_FOUND;
    const auto l_fnRefuse = [&](const std::string& i_strTried, const char* i_pszWhy) {
        NoteReason(l_ulError, "link library %s: tried %s: %s", l_strName.c_str(),
                   i_strTried.c_str(), i_pszWhy);
        return nullptr;
    };
    const auto l_fnLoad = [&](const std::string& i_strTried) -> ModuleHandle {
        ModuleHandle l_hModule = dlopen(i_strTried.c_str(), RTLD_NOW | RTLD_LOCAL);
        const char* l_pszWhy = l_hModule == nullptr ? dlerror() : nullptr;
        return l_hModule != nullptr
                   ? l_hModule
                   : l_fnRefuse(i_strTried, l_pszWhy == nullptr ? "not loaded" : l_pszWhy);
    };
    const auto l_fnOpen = [&](const std::string& i_strPath) -> ModuleHandle {
        struct stat l_Status = {};
        if (stat(i_strPath.c_str(), &l_Status) != 0) {
            return l_fnRefuse(i_strPath, "no such file");
        }
        l_ulError = ERROR_BAD_EXE_FORMAT;
        // The loader would wait for a writer of a pipe.
        return S_ISREG(l_Status.st_mode) ? l_fnLoad(i_strPath)
                                         : l_fnRefuse(i_strPath, "no regular file");
    };
    ModuleHandle l_hModule = nullptr;
    if (l_strName.find('/') == std::string::npos) {
        const std::string l_strHost = GetHostFileName();
        l_hModule = l_fnOpen(l_strHost.substr(0, l_strHost.rfind('/') + 1) + l_strName);
        if (l_hModule == nullptr) {
            l_hModule = l_fnLoad(l_strName);
        }
    } else {
        l_hModule = l_fnOpen(l_strName);
    }
    if (l_hModule == nullptr) {
        ::SetLastError(l_ulError);
    }
    return l_hModule;
}

void* GetProcAddressW(ModuleHandle i_hModule, const wchar_t* i_pwszName)
{
    void* l_pAddress = i_hModule == nullptr || i_pwszName == nullptr
                           ? nullptr
                           : dlsym(i_hModule, ToNarrow(i_pwszName).c_str());
    if (l_pAddress == nullptr) {
        NoteReason(ERROR_PROC_NOT_FOUND, "the link library has no entry point %S",
                   i_pwszName == nullptr ? L"" : i_pwszName);
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
