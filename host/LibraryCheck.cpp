#include "LibraryCheck.h"

#include "Settings.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>

#include <dlfcn.h>
#include <link.h>

namespace host {

namespace {

struct S_ENTRY_POINTS
{
    const char* pszSection;
    std::vector<const char*> vNames;
};

const std::array k_aEntryPoints = {
    S_ENTRY_POINTS{"IM",
                   {"RS_Init", "RS_DeviceIoControl", "RS_Close", "RS_Init_Ex",
                    "RS_DeviceIoControl_Ex", "RS_Close_Ex"}},
    S_ENTRY_POINTS{"BT", {"PBT_Init", "PBT_Close", "PBT_DeviceIoControl"}},
    S_ENTRY_POINTS{"USB", {"PUSB_Init", "PUSB_Close", "PUSB_DeviceIoControl"}},
};

/** Whether an entry point is the library's own: that of a library which it needs is not taken. */
bool HasEntryPoint(void* i_pLibrary, const char* i_pszName)
{
    void* const l_pAddress = dlsym(i_pLibrary, i_pszName);
    link_map* l_pOwn = nullptr;
    void* l_pFound = nullptr;
    Dl_info l_Info{};
    return l_pAddress != nullptr && dlinfo(i_pLibrary, RTLD_DI_LINKMAP, &l_pOwn) == 0 &&
           dladdr1(l_pAddress, &l_Info, &l_pFound, RTLD_DL_LINKMAP) != 0 && l_pFound == l_pOwn;
}

/** Whether a file is a library that this machine cannot run; the loader itself only says that it
 *  does not find it. */
bool IsForeign(const std::string& i_strPath)
{
    const auto l_Read = [](const std::string& i_strFile) {
        std::string l_strHead(20, '\0');
        std::ifstream(i_strFile, std::ios::binary).read(l_strHead.data(), 20);
        return l_strHead;
    };
    const std::string l_strHead = l_Read(i_strPath);
    const std::string l_strOwn = l_Read("/proc/self/exe");
    // Class and byte order, then the machine.
    return l_strHead.starts_with("\x7F"
                                 "ELF") &&
           (l_strHead.substr(4, 2) != l_strOwn.substr(4, 2) ||
            l_strHead.substr(18) != l_strOwn.substr(18));
}

/** The file that a driver would load. */
std::string Located(const std::string& i_strName)
{
    std::error_code l_Error;
    if (i_strName.find('/') == std::string::npos) {
        for (const std::filesystem::path& l_Folder : {HomeFolder(), LinksFolder()}) {
            if (!l_Folder.empty() && std::filesystem::exists(l_Folder / i_strName, l_Error)) {
                return (l_Folder / i_strName).string();
            }
        }
    }
    return i_strName;
}

} // namespace

std::vector<std::string> LibraryFaults(const std::string& i_strSection,
                                       const std::string& i_strName)
{
    const std::string l_strPath = Located(i_strName);
    const std::unique_ptr<void, int (*)(void*)> l_pLibrary(
        dlopen(l_strPath.c_str(), RTLD_NOW | RTLD_LOCAL), &dlclose);
    if (l_pLibrary == nullptr) {
        const char* l_pszWhy = dlerror();
        return {IsForeign(l_strPath)  ? "a library of another machine"
                : l_pszWhy == nullptr ? "not loaded"
                                      : l_pszWhy};
    }
    std::vector<std::string> l_vFaults;
    for (const S_ENTRY_POINTS& l_Points : k_aEntryPoints) {
        for (const char* l_pszName : l_Points.vNames) {
            if (i_strSection == l_Points.pszSection &&
                !HasEntryPoint(l_pLibrary.get(), l_pszName)) {
                l_vFaults.push_back(std::string("it has no entry point ") + l_pszName);
            }
        }
    }
    return l_vFaults;
}

bool IsEmulatedLink(const std::string& i_strName)
{
    const std::unique_ptr<void, int (*)(void*)> l_pLibrary(
        dlopen(Located(i_strName).c_str(), RTLD_NOLOAD | RTLD_LAZY), &dlclose);
    return l_pLibrary != nullptr && HasEntryPoint(l_pLibrary.get(), "TornvalEmulated");
}

} // namespace host
