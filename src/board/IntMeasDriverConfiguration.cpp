// What surrounds the board's protocol: section IM of the configuration file, the device file found
// through the registry, the output line of the instrument.

#include <algorithm>
#include <new>

#include "board/IntMeasDriver.h"
#include "driver/ModuleFolder.h"
#include "platform/Clock.h"
#include "platform/Device.h"
#include "platform/File.h"
#include "platform/Process.h"
#include "platform/Reason.h"
#include "platform/Registry.h"

namespace tornval {
namespace {

constexpr const char* k_pszSection = "IM";
constexpr uint32_t k_ulMaxPeriod = 3000;
constexpr uint32_t k_ulDeviceWait = 10000;
constexpr uint32_t k_ulDeviceRetry = 500;

} // namespace

void CIntMeasDriver::ReadConfiguration()
{
    if (m_pulVoies == nullptr) {
        m_pulVoies = new (std::nothrow) uint32_t[k_ulMaxChannels]();
        if (m_pulVoies == nullptr) {
            return;
        }
    }
    CConfigFile l_Config;
    const uint32_t l_ulError = LoadModuleConfiguration(l_Config);
    if (l_ulError == cecore::ERROR_SUCCESS) {
        ReadKeys(l_Config);
    } else if (l_ulError == CECORE_ERROR_NOT_ENOUGH_MEMORY) {
        UseFixedValues();
    }
    AllocateVoieData();
}

void CIntMeasDriver::ReadKeys(const CConfigFile& i_Config)
{
    const auto l_fnInt = [&](const char* i_pszKey, int32_t i_lDefault) {
        return i_Config.GetInt(k_pszSection, i_pszKey, i_lDefault);
    };
    i_Config.GetString(k_pszSection, "DRIVER_NAME", nullptr, m_szDriverName,
                       sizeof(m_szDriverName));
    PadDriverName();
    m_ulNbChannel = 0;
    for (const char* l_pszKey : {"CHANNEL_1", "CHANNEL_2", "CHANNEL_3"}) {
        m_pulVoies[m_ulNbChannel++] = l_fnInt(l_pszKey, 0);
    }
    m_ulAcquisitionPeriod =
        std::clamp<uint32_t>(l_fnInt("ACQUISITION_PERIOD", 1), 1, k_ulMaxPeriod);
    m_ulTimeout = l_fnInt("TIMEOUT", 10);
    m_bDecompressData = l_fnInt("DECOMPRESS_DATA", 1) != 0 ? 1 : 0;
    m_ucCalibration = static_cast<uint8_t>(l_fnInt("CALIBRATION", 0));
    m_ulLogCalibrationCoef = l_fnInt("LOG_CALIBRATION_COEF", 0);
    if (!m_pKind->bDeviceFile) {
        i_Config.GetString(k_pszSection, "SET_RESET_EXEC", nullptr, m_szSetResetExec,
                           sizeof(m_szSetResetExec) - 1);
        return;
    }
    char l_aszText[2048] = {};
    i_Config.GetString(k_pszSection, "REGISTRY_KEY", nullptr, l_aszText, sizeof(l_aszText) - 1);
    cecore::Widen(m_szRegistryKey, l_aszText);
    i_Config.GetString(k_pszSection, "REGISTRY_ENTRY", nullptr, l_aszText, sizeof(l_aszText) - 1);
    cecore::Widen(m_szRegistryEntry, l_aszText);
}

void CIntMeasDriver::UseFixedValues()
{
    static constexpr uint32_t s_aulVoies[] = {0, 1, 0};
    m_ulTimeout = 10;
    SetDriverName("VCI");
    std::copy(std::begin(s_aulVoies), std::end(s_aulVoies), m_pulVoies);
    m_ulNbChannel = static_cast<uint32_t>(std::size(s_aulVoies));
    m_bDecompressData = 1;
    m_ulAcquisitionPeriod = 1;
    if (m_pKind->bDeviceFile) {
        cecore::Widen(m_szRegistryKey,
                      "system\\currentcontrolset\\control\\zcomusb2\\F00C\\000000");
        cecore::Widen(m_szRegistryEntry, "unit");
    }
}

void CIntMeasDriver::AllocateVoieData()
{
    using Store = cecore::CZeroed<int32_t>;
    m_ppVoieData.reset(new (std::nothrow) Store[m_ulNbChannel]);
    for (uint32_t i = 0; m_ppVoieData != nullptr && i < m_ulNbChannel; ++i) {
        m_ppVoieData[i] = Store(k_ulMaxSamples);
    }
}

bool CIntMeasDriver::ReadUnitNumber(uint32_t& o_ulUnit) const
{
    cecore::CUniqueHandle l_hKey;
    uint8_t l_aucUnit[4] = {};
    uint32_t l_ulSize = sizeof(l_aucUnit);
    const bool l_bRead =
        cecore::RegOpenKeyExW(cecore::HKEY_LOCAL_MACHINE, m_szRegistryKey, cecore::KEY_READ,
                              l_hKey.Receive()) == cecore::ERROR_SUCCESS &&
        cecore::RegQueryValueExW(l_hKey.Get(), m_szRegistryEntry, l_aucUnit, &l_ulSize) ==
            cecore::ERROR_SUCCESS;
    o_ulUnit = l_bRead ? wire::ReadLe32(l_aucUnit) : 0;
    if (o_ulUnit == 0) {
        ::SetLastError(CECORE_ERROR_FILE_NOT_FOUND);
    }
    return o_ulUnit != 0;
}

S_RESULT CIntMeasDriver::CreateDriverInstance()
{
    const CDriverLock l_Lock(*this);
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_NONE);
    ReadConfiguration();
    const uint32_t l_ulStart = cecore::GetTickCount();
    while (m_hDevice == 0) {
        // A number of 0 and a device that does not open yet are the same: it has not appeared.
        uint32_t l_ulUnit = 0;
        if (ReadUnitNumber(l_ulUnit)) {
            wchar_t l_awszName[k_ulMaxPath + 16];
            cecore::FormatWide(l_awszName, std::size(l_awszName), L"%S%d:", m_szDriverName,
                               l_ulUnit);
            const cecore::Handle l_hDevice = cecore::CreateFileW(
                l_awszName, cecore::GENERIC_READ | cecore::GENERIC_WRITE,
                cecore::FILE_SHARE_READ | cecore::FILE_SHARE_WRITE, cecore::OPEN_EXISTING, 0);
            m_hDevice = l_hDevice == cecore::INVALID_HANDLE_VALUE ? 0 : l_hDevice;
        }
        if (m_hDevice == 0) {
            if (cecore::GetTickCount() - l_ulStart >= k_ulDeviceWait) {
                l_Result.ulStatus = 1;
                l_Result.ulLastError = cecore::GetLastError();
                cecore::NoteReason(l_Result.ulLastError, "no device %s within %u ms",
                                   m_szDriverName, k_ulDeviceWait);
                break;
            }
            cecore::Sleep(k_ulDeviceRetry);
        }
    }
    return l_Result;
}

S_RESULT CIntMeasDriver::Close()
{
    const CDriverLock l_Lock(*this);
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_CLOSE);
    const cecore::Handle l_hDevice = m_hDevice.exchange(0);
    if (l_hDevice != 0) {
        cecore::CloseHandle(l_hDevice);
    } else {
        l_Result.ulStatus = 1;
    }
    return l_Result;
}

uint32_t CIntMeasDriver::TGPIO(int32_t i_lPin, int32_t i_lValue)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::TGPIO> Execname=%S pin=%ld value=%ld", m_szSetResetExec,
          i_lPin, i_lValue);
    if (m_szSetResetExec[0] == '\0') {
        return 0;
    }
    wchar_t l_awszName[k_ulMaxPath];
    wchar_t l_awszArguments[32];
    cecore::Widen(l_awszName, m_szSetResetExec);
    cecore::FormatWide(l_awszArguments, std::size(l_awszArguments), L"%ld %ld", i_lPin, i_lValue);
    cecore::S_PROCESS_INFORMATION l_Process{};
    if (!cecore::CreateProcessW(l_awszName, l_awszArguments, &l_Process)) {
        Trace(ERROR_LEVEL, L"CIntMeasDriver::TGPIO> cmde_line=%s lastError=%ld", l_awszName,
              cecore::GetLastError());
        return 0;
    }
    const cecore::CUniqueHandle l_hProcess(l_Process.hProcess);
    return cecore::WaitForSingleObject(l_hProcess.Get(), cecore::INFINITE) == cecore::WAIT_OBJECT_0
               ? 1
               : 0;
}

} // namespace tornval
