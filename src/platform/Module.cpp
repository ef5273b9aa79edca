#include "Module.h"

#include <algorithm>
#include <string_view>

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include "Format.h"
#include "Path.h"
#include "Reason.h"

namespace cecore {

namespace {

/** One call of LoadLibraryW: tries places until one of them gives the library. */
class CLoading
{
public:
    explicit CLoading(const char* i_pszName) : m_pszName(i_pszName) {}

    /** Opens a file. */
    ModuleHandle Open(const char* i_pszPath)
    {
        struct stat l_Status = {};
        if (stat(i_pszPath, &l_Status) != 0) {
            return Refuse(i_pszPath, "no such file");
        }
        m_ulError = ERROR_BAD_EXE_FORMAT;
        // The loader would wait for a writer of a pipe.
        return S_ISREG(l_Status.st_mode) ? Load(i_pszPath) : Refuse(i_pszPath, "no regular file");
    }

    /** Opens a file of a folder; an empty one is no place. */
    ModuleHandle OpenIn(CSystemPath i_Folder)
    {
        if (i_Folder.GetText().empty()) {
            return nullptr;
        }
        i_Folder.Append(m_pszName);
        return *i_Folder.Get() == '\0' ? Refuse("the host's folder", "the path is too long")
                                       : Open(i_Folder.Get());
    }

    /** Leaves the search to the system. */
    ModuleHandle Load(const char* i_pszTried)
    {
        ModuleHandle l_hModule = dlopen(i_pszTried, RTLD_NOW | RTLD_LOCAL);
        const char* l_pszWhy = l_hModule == nullptr ? dlerror() : nullptr;
        return l_hModule != nullptr
                   ? l_hModule
                   : Refuse(i_pszTried, l_pszWhy == nullptr ? "not loaded" : l_pszWhy);
    }

    /** 193 once a file was found, whatever became of it; 126 before. */
    [[nodiscard]] uint32_t GetError() const { return m_ulError; }

private:
    ModuleHandle Refuse(const char* i_pszTried, const char* i_pszWhy) const
    {
        NoteReason(m_ulError, "link library %s: tried %s: %s", m_pszName, i_pszTried, i_pszWhy);
        return nullptr;
    }

    const char* m_pszName;
    uint32_t m_ulError = ERROR_MOD_NOT_FOUND;
};

/** File of the library that an address is in; null if it is that of the handle. */
const char* FindForeignOwner(ModuleHandle i_hModule, void* i_pAddress)
{
    link_map* l_pOwn = nullptr;
    link_map* l_pFound = nullptr;
    Dl_info l_Info{};
    return dlinfo(i_hModule, RTLD_DI_LINKMAP, &l_pOwn) == 0 &&
                   dladdr1(i_pAddress, &l_Info, reinterpret_cast<void**>(&l_pFound),
                           RTLD_DL_LINKMAP) != 0 &&
                   l_pFound == l_pOwn
               ? nullptr
               : l_Info.dli_fname;
}

} // namespace

ModuleHandle LoadLibraryW(const wchar_t* i_pwszName)
{
    if (i_pwszName == nullptr || *i_pwszName == 0) {
        NoteReason(ERROR_MOD_NOT_FOUND, "no link library is named");
        ::SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const CSystemPath l_Name(i_pwszName);
    CLoading l_Loading(l_Name.Get());
    ModuleHandle l_hModule = nullptr;
    if (l_Name.GetText().find('/') != std::string_view::npos) {
        l_hModule = l_Loading.Open(l_Name.Get());
    } else {
        l_hModule = l_Loading.OpenIn(GetHomeFolder());
        if (l_hModule == nullptr) {
            l_hModule = l_Loading.OpenIn(GetLinksFolder());
        }
        if (l_hModule == nullptr) {
            l_hModule = l_Loading.Load(l_Name.Get());
        }
    }
    if (l_hModule == nullptr) {
        ::SetLastError(l_Loading.GetError());
    }
    return l_hModule;
}

void* GetProcAddressW(ModuleHandle i_hModule, const wchar_t* i_pwszName)
{
    // A name that is longer than any is cut, and then found nowhere.
    char l_aszName[256];
    FormatNarrow(l_aszName, sizeof(l_aszName), "%S", i_pwszName == nullptr ? L"" : i_pwszName);
    void* l_pAddress = i_hModule == nullptr ? nullptr : dlsym(i_hModule, l_aszName);
    // The system also looks in the libraries that this one needs.
    const char* l_pszOwner =
        l_pAddress == nullptr ? nullptr : FindForeignOwner(i_hModule, l_pAddress);
    if (l_pszOwner != nullptr) {
        NoteReason(ERROR_PROC_NOT_FOUND,
                   "the link library has no entry point %s; the one of %s is not taken", l_aszName,
                   l_pszOwner);
        l_pAddress = nullptr;
    } else if (l_pAddress == nullptr) {
        NoteReason(ERROR_PROC_NOT_FOUND, "the link library has no entry point %s", l_aszName);
    }
    if (l_pAddress == nullptr) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
    }
    return l_pAddress;
}

bool FreeLibrary(ModuleHandle i_hModule)
{
    if (i_hModule == nullptr || dlclose(i_hModule) != 0) {
        ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
        return false;
    }
    return true;
}

uint32_t GetModuleFileNameW(ModuleHandle i_hModule, wchar_t* o_pwszName, uint32_t i_ulSize)
{
    if (i_hModule != nullptr) {
        ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
        return 0;
    }
    const size_t l_ulLength =
        FormatWide(o_pwszName, i_ulSize, L"%S", GetHostFileName().GetText().data());
    std::replace(o_pwszName, o_pwszName + l_ulLength, L'/', L'\\');
    return static_cast<uint32_t>(l_ulLength);
}

} // namespace cecore
