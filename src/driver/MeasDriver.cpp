#include "driver/MeasDriver.h"

#include <memory>
#include <new>

#include "platform/Format.h"
#include "samples/SampleCode.h"

namespace tornval {

CMeasDriver::CMeasDriver() : m_hMutex(cecore::CreateMutexW(false)) {}

CMeasDriver::~CMeasDriver()
{
    if (m_hDriverDll != nullptr) {
        cecore::FreeLibrary(m_hDriverDll);
    }
    delete[] m_pulVoies;
}

S_RESULT CMeasDriver::CreateDriverInstance()
{
    return MakeResult(0, TORNVAL_STEP_LIBRARY, 1);
}

S_RESULT CMeasDriver::LoadDriver(const wchar_t* i_pwszLibrary)
{
    S_RESULT l_Result = MakeResult(0, TORNVAL_STEP_LIBRARY);
    if (i_pwszLibrary == nullptr) {
        l_Result.ulStatus = 1;
    } else if (m_hDriverDll == nullptr) {
        m_hDriverDll = cecore::LoadLibraryW(i_pwszLibrary);
        if (m_hDriverDll == nullptr) {
            l_Result.ulLastError = cecore::GetLastError();
            l_Result.ulStatus = 1;
        }
    }
    return l_Result;
}

S_RESULT CMeasDriver::CurrentGeneratorBurst(uint32_t)
{
    return MakeResult(0, 0, 1);
}

S_RESULT CMeasDriver::GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                         int32_t* o_plValue3)
{
    for (int32_t* l_plValue : {o_plValue1, o_plValue2, o_plValue3}) {
        if (l_plValue != nullptr) {
            *l_plValue = 0;
        }
    }
    return MakeResult(0, 0, 1);
}

uint32_t CMeasDriver::GetMBCalibrationCoeff(double*, double*, uint32_t)
{
    return 0;
}

S_RESULT CMeasDriver::SetMBCalibration(uint32_t*, double*, double*, uint32_t)
{
    return MakeResult(m_ulDriverType, 0);
}

void CMeasDriver::GetLinkType(char* o_pszLinkType) const
{
    if (o_pszLinkType != nullptr) {
        std::memcpy(o_pszLinkType, m_szLinkType, std::strlen(m_szLinkType) + 1);
    }
}

void CMeasDriver::GetDriverName(char* o_pszDriverName) const
{
    if (o_pszDriverName != nullptr) {
        std::memcpy(o_pszDriverName, m_szDriverName, std::strlen(m_szDriverName) + 1);
    }
}

void CMeasDriver::LockDriver()
{
    if (m_hMutex) {
        cecore::WaitForSingleObject(m_hMutex.Get(), cecore::INFINITE);
    }
}

void CMeasDriver::UnlockDriver()
{
    if (m_hMutex) {
        cecore::ReleaseMutex(m_hMutex.Get());
    }
}

uint32_t CMeasDriver::DecompressSample(const uint8_t* i_pcCode, uint16_t i_usPrevious,
                                       uint8_t i_ucPreviousRange, uint16_t* o_pusValue,
                                       uint8_t* o_pucRange)
{
    if (i_pcCode == nullptr || o_pusValue == nullptr || o_pucRange == nullptr) {
        return 0;
    }
    S_SAMPLE_STATE l_State{i_usPrevious, i_ucPreviousRange};
    const size_t l_ulLength = DecodeSample(i_pcCode, l_State);
    *o_pusValue = l_State.usValue;
    *o_pucRange = l_State.ucRange;
    return static_cast<uint32_t>(l_ulLength);
}

bool CMeasDriver::GetScaling(S_SCALING&) const
{
    return false;
}

uint32_t CMeasDriver::DecompressSamplesMultiChannel(const uint8_t* i_pcData, uint32_t i_ulDataSize,
                                                    int32_t** o_plProcessedData_Voie,
                                                    uint32_t i_lNbChannel,
                                                    int32_t* o_lProcessedDataSize,
                                                    uint32_t i_ulMaxSamples)
{
    if (o_plProcessedData_Voie == nullptr || o_lProcessedDataSize == nullptr ||
        i_lNbChannel > m_ulNbChannel) {
        return 0;
    }
    std::memset(o_lProcessedDataSize, 0, i_lNbChannel * sizeof(*o_lProcessedDataSize));
    if (i_lNbChannel == 0 || i_pcData == nullptr) {
        return 0;
    }
    S_SCALING l_Scaling;
    if (m_pBulkClass != nullptr && *m_pBulkClass == typeid(*this) &&
        i_lNbChannel <= k_ulMaxScaledChannels && GetScaling(l_Scaling)) {
        const size_t l_ulTotal = DecodeStream({i_pcData, i_ulDataSize, i_lNbChannel, i_ulMaxSamples,
                                               o_plProcessedData_Voie, l_Scaling});
        for (uint32_t l_ul = 0; l_ul < i_lNbChannel; ++l_ul) {
            o_lProcessedDataSize[l_ul] =
                static_cast<int32_t>(CountOfChannel(l_ulTotal, i_lNbChannel, l_ul));
        }
        return static_cast<uint32_t>(l_ulTotal);
    }
    const std::unique_ptr<S_SAMPLE_STATE[]> l_pStates(new (std::nothrow)
                                                          S_SAMPLE_STATE[i_lNbChannel]);
    if (l_pStates == nullptr) {
        return 0;
    }
    const auto l_fnStore = [&](uint32_t i_ulChannel, uint32_t i_ulIndex,
                               const S_SAMPLE_STATE& i_State) {
        int32_t* l_plSamples = o_plProcessedData_Voie[i_ulChannel];
        ScaleSample(l_plSamples == nullptr ? nullptr : l_plSamples + i_ulIndex, i_ulChannel,
                    i_State.ucRange, i_State.usValue);
    };
    return static_cast<uint32_t>(DecodeChannels(i_pcData, i_ulDataSize, l_pStates.get(),
                                                o_lProcessedDataSize, i_lNbChannel, i_ulMaxSamples,
                                                l_fnStore));
}

void CMeasDriver::SetIdentity(uint32_t i_ulIndex, uint32_t i_ulBase, const char* i_pszLinkType)
{
    m_ulDriverIndex = i_ulIndex;
    m_ulDriverID = i_ulIndex + i_ulBase;
    cecore::FormatNarrow(m_szLinkType, sizeof(m_szLinkType), "%s", i_pszLinkType);
    SetDriverName(i_pszLinkType);
}

void CMeasDriver::SetDriverName(const char* i_pszDriverName)
{
    cecore::FormatNarrow(m_szDriverName, sizeof(m_szDriverName), "%s", i_pszDriverName);
    PadDriverName();
}

void CMeasDriver::PadDriverName()
{
    const size_t l_ulLength = strnlen(m_szDriverName, sizeof(m_szDriverName));
    std::memset(m_szDriverName + l_ulLength, 0, sizeof(m_szDriverName) - l_ulLength);
}

} // namespace tornval
