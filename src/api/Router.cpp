// The calls that the router hands to one of its drivers.

#include "api/Router.h"

#include <type_traits>

#include "support/Trace.h"
#include "wire/Text.h"

namespace tornval {
namespace {

/** A forwarded call: the driver's record, or the stage's failure where there is no driver. */
template <typename... Formal>
S_RESULT Forward(CMeasDriver* i_pDriver, uint32_t i_ulStep,
                 S_RESULT (CMeasDriver::*i_pfn)(Formal...), std::type_identity_t<Formal>... i_Args)
{
    return i_pDriver == nullptr ? MakeResult(TORNVAL_DRIVER_NONE, i_ulStep, 1)
                                : (i_pDriver->*i_pfn)(i_Args...);
}

/** A text in a field of a record: cut if it is longer, with zeros behind it. */
template <size_t N, size_t M>
void FillField(char (&o_aszField)[N], const char (&i_szText)[M])
{
    static_assert(M >= N);
    std::memcpy(o_aszField, i_szText, N - 1); // the zeros come along
    o_aszField[N - 1] = 0;
}

} // namespace

CMeasDriver* CRouter::GetDriverFromID(uint32_t i_ulDriverID)
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    Trace(INFO_GENERAL_LEVEL, L"CRouter::GetDriverFromID> driver ID: %ld Nb Drivers: %ld",
          i_ulDriverID, static_cast<uint32_t>(m_mapDrivers.size()));
    const auto l_It = m_mapDrivers.find(static_cast<int32_t>(i_ulDriverID));
    return l_It == m_mapDrivers.end() ? nullptr : l_It->second.get();
}

CMeasDriver* CRouter::GetDriverFromLinkType(const char* i_pszLinkType)
{
    if (i_pszLinkType == nullptr) {
        return nullptr;
    }
    const cecore::CMutexGuard l_Lock(m_hMutex);
    for (const auto& [l_lDriverID, l_pDriver] : m_mapDrivers) {
        if (wire::EqualsNoCase(l_pDriver->LinkType(), i_pszLinkType)) {
            return l_pDriver.get();
        }
    }
    return nullptr;
}

uint32_t CRouter::EnumMeasDrivers(S_DRIVER_INFO* o_pDrivers, uint32_t i_ulMaxDrivers,
                                  uint32_t* o_pulNbDrivers)
{
    if (o_pulNbDrivers == nullptr) {
        return 0;
    }
    *o_pulNbDrivers = 0;
    if (o_pDrivers == nullptr) {
        return 0;
    }
    const cecore::CMutexGuard l_Lock(m_hMutex);
    for (const auto& [l_lDriverID, l_pDriver] : m_mapDrivers) {
        if (*o_pulNbDrivers >= i_ulMaxDrivers) {
            break;
        }
        S_DRIVER_INFO& l_Record = o_pDrivers[*o_pulNbDrivers];
        wire::WriteLe32(reinterpret_cast<uint8_t*>(&l_Record) + offsetof(S_DRIVER_INFO, ulDriverID),
                        l_pDriver->GetDriverID());
        FillField(l_Record.szLinkType, l_pDriver->LinkType());
        FillField(l_Record.szDriverName, l_pDriver->DriverName());
        Trace(INFO_LEVEL,
              L"CRouter::EnumMeasDrivers> driver=%08X DriverID=%d LinkType=%S DriverName=%S",
              l_pDriver.get(), l_pDriver->GetDriverID(), l_pDriver->LinkType(),
              l_pDriver->DriverName());
        ++*o_pulNbDrivers;
    }
    return 1;
}

S_RESULT CRouter::InitDriver(uint32_t i_ulDriverID, int32_t bForceInit)
{
    Trace(INFO_LEVEL, L"CRouter::InitDriver> DriverID=%d bForceInit=%d", i_ulDriverID, bForceInit);
    CMeasDriver* l_pDriver = GetDriverFromID(i_ulDriverID);
    if (l_pDriver == nullptr) {
        Trace(ERROR_LEVEL, L"CRouter::InitDriver> Driver %d Not found", i_ulDriverID);
    } else if (bForceInit != 1 && l_pDriver->IsInitialised()) {
        return MakeResult(TORNVAL_DRIVER_NONE, TORNVAL_STEP_INIT);
    }
    return Forward(l_pDriver, TORNVAL_STEP_INIT, &CMeasDriver::Init);
}

S_RESULT CRouter::ResetDriver(uint32_t i_ulDriverID)
{
    return Forward(GetDriverFromID(i_ulDriverID), TORNVAL_STEP_CLOSE, &CMeasDriver::Close);
}

S_RESULT CRouter::SendCommand(uint32_t i_ulDriverID, S_SEND_STRUCT* i_pCmde,
                              S_RECEIVE_STRUCT* o_pReceiveStruct, const void* i_pcData)
{
    if (i_pCmde != nullptr) {
        Trace(INFO_GENERAL_LEVEL, L"CRouter::SendCommand> DriverID:%ld CMID:%02X", i_ulDriverID,
              i_pCmde->CmdeID);
    } else {
        Trace(INFO_GENERAL_LEVEL, L"CRouter::SendCommand> DriverID:%ld CMID: NULL", i_ulDriverID);
    }
    CMeasDriver* l_pDriver = GetDriverFromID(i_ulDriverID);
    if (l_pDriver == nullptr) {
        Trace(ERROR_LEVEL, L"CRouter::SendCommand> DriverNot Found");
    }
    return Forward(l_pDriver, TORNVAL_STEP_SEND, &CMeasDriver::SendCommand, i_pCmde,
                   o_pReceiveStruct, i_pcData, 0);
}

S_RESULT CRouter::GetResult(uint32_t i_ulDriverID, uint32_t i_ulNbReturnByte, char* o_pcRawData,
                            int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                            uint32_t i_ulTimeout, uint8_t i_bCompensation)
{
    return Forward(GetDriverFromID(i_ulDriverID), TORNVAL_STEP_RESULT, &CMeasDriver::GetResult,
                   i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize, o_plProcessedData,
                   i_ulTimeout, i_bCompensation);
}

S_RESULT CRouter::GetInstantMeasureOnDevice(uint32_t i_ulDriverID, int32_t* o_plValue,
                                            uint32_t i_ulVoie, uint32_t i_ulMeasureParam)
{
    return Forward(GetDriverFromID(i_ulDriverID), TORNVAL_STEP_NONE,
                   &CMeasDriver::GetInstantMeasure, o_plValue, i_ulVoie, 1, i_ulMeasureParam);
}

S_RESULT CRouter::GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie, uint8_t i_bCompensation)
{
    return Forward(GetDriverFromLinkType("IM"), TORNVAL_STEP_NONE, &CMeasDriver::GetInstantMeasure,
                   o_plValue, i_ulVoie, i_bCompensation, 0);
}

S_RESULT CRouter::CurrentGeneratorBurst(uint32_t i_ulBurst)
{
    return Forward(GetDriverFromLinkType("IM"), TORNVAL_STEP_NONE,
                   &CMeasDriver::CurrentGeneratorBurst, i_ulBurst);
}

S_RESULT CRouter::GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2, int32_t* o_plValue3)
{
    bool l_bAll = true;
    for (int32_t* l_plValue : {o_plValue1, o_plValue2, o_plValue3}) {
        if (l_plValue != nullptr) {
            *l_plValue = 0;
        }
        l_bAll = l_bAll && l_plValue != nullptr;
    }
    if (!l_bAll) {
        return MakeResult(TORNVAL_DRIVER_NONE, TORNVAL_STEP_NONE, 1);
    }
    return Forward(GetDriverFromLinkType("MO"), TORNVAL_STEP_NONE, &CMeasDriver::GetMicroOhmMeasure,
                   o_plValue1, o_plValue2, o_plValue3);
}

uint32_t CRouter::GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff)
{
    CMeasDriver* l_pDriver = GetDriverFromLinkType("IM");
    return l_pDriver == nullptr ? 0 : l_pDriver->GetMBCalibrationCoeff(o_pdA, o_pdB, i_ulNbCoeff);
}

S_RESULT CRouter::SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB,
                                   uint32_t i_ulNbCoeff)
{
    return Forward(GetDriverFromLinkType("IM"), TORNVAL_STEP_NONE, &CMeasDriver::SetMBCalibration,
                   i_pulIndex, i_pdA, i_pdB, i_ulNbCoeff);
}

} // namespace tornval
