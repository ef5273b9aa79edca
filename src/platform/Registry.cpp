#include "Registry.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "Objects.h"
#include "wire/Guarded.h"

namespace cecore {
namespace {

using Values = std::map<std::wstring, std::vector<unsigned char>>;

struct S_REGISTRY
{
    wire::CMutex Mutex;
    std::map<std::wstring, Values> mapKeys WIRE_GUARDED_BY(Mutex);
};

using CRegistryKeyObject = CHolder<E_OBJECT_KIND::REGISTRY_KEY, std::wstring>;

} // namespace

void SetRegistryValue(const wchar_t* i_pwszKey, const wchar_t* i_pwszEntry, const void* i_pData,
                      uint32_t i_ulSize)
{
    const auto* l_pcData = static_cast<const unsigned char*>(i_pData);
    auto& l_Registry = Resident<S_REGISTRY>();
    const wire::CLock l_Lock(l_Registry.Mutex);
    l_Registry.mapKeys[FoldCase(i_pwszKey)][FoldCase(i_pwszEntry)].assign(l_pcData,
                                                                          l_pcData + i_ulSize);
}

uint32_t RegOpenKeyExW(Handle i_hRoot, const wchar_t* i_pwszKey, uint32_t, Handle* o_phKey)
try {
    if (i_hRoot != HKEY_LOCAL_MACHINE) {
        return CECORE_ERROR_INVALID_HANDLE;
    }
    std::wstring l_strKey = FoldCase(i_pwszKey);
    {
        auto& l_Registry = Resident<S_REGISTRY>();
        const wire::CLock l_Lock(l_Registry.Mutex);
        if (!l_Registry.mapKeys.contains(l_strKey)) {
            return CECORE_ERROR_FILE_NOT_FOUND;
        }
    }
    *o_phKey = CreateObject<CRegistryKeyObject>(std::move(l_strKey));
    return *o_phKey == 0 ? GetLastError() : ERROR_SUCCESS;
} catch (const std::bad_alloc&) {
    return CECORE_ERROR_NOT_ENOUGH_MEMORY;
}

uint32_t RegQueryValueExW(Handle i_hKey, const wchar_t* i_pwszEntry, void* o_pData,
                          uint32_t* io_pulSize)
try {
    const auto l_pKey = FindObject<CRegistryKeyObject>(i_hKey, E_OBJECT_KIND::REGISTRY_KEY);
    if (l_pKey == nullptr) {
        return CECORE_ERROR_INVALID_HANDLE;
    }
    auto& l_Registry = Resident<S_REGISTRY>();
    const wire::CLock l_Lock(l_Registry.Mutex);
    const auto l_Key = l_Registry.mapKeys.find(l_pKey->Get());
    if (l_Key == l_Registry.mapKeys.end()) {
        return CECORE_ERROR_FILE_NOT_FOUND;
    }
    const auto l_It = l_Key->second.find(FoldCase(i_pwszEntry));
    if (l_It == l_Key->second.end()) {
        return CECORE_ERROR_FILE_NOT_FOUND;
    }
    const auto l_ulSize = static_cast<uint32_t>(l_It->second.size());
    const bool l_bFits = l_ulSize <= *io_pulSize;
    *io_pulSize = l_ulSize;
    if (!l_bFits) {
        return ERROR_MORE_DATA;
    }
    std::copy(l_It->second.begin(), l_It->second.end(), static_cast<unsigned char*>(o_pData));
    return ERROR_SUCCESS;
} catch (const std::bad_alloc&) {
    return CECORE_ERROR_NOT_ENOUGH_MEMORY;
}

} // namespace cecore
