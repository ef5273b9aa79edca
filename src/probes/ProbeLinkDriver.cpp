#include "probes/ProbeLinkDriver.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "driver/ModuleFolder.h"
#include "wire/Bytes.h"

namespace tornval {
namespace {

/** The library wants one byte more than record and payload; it carries nothing. */
constexpr uint32_t k_ulSendOverhead = sizeof(S_SEND_STRUCT) + 1;

struct S_FREE
{
    void operator()(void* i_pBlock) const { std::free(i_pBlock); }
};

bool IsRollingCommand(int8_t i_cCmdeID)
{
    return i_cCmdeID == PROBE_CMDE_READ_BOTH || i_cCmdeID == PROBE_CMDE_READ;
}

/** Whether a probe has that command. What is not rolling is handed over as it comes. */
bool IsKnownCommand(int8_t i_cCmdeID)
{
    return IsRollingCommand(i_cCmdeID) ||
           (i_cCmdeID >= PROBE_CMDE_HOST_FIRST && i_cCmdeID <= PROBE_CMDE_HOST_LAST) ||
           i_cCmdeID == PROBE_CMDE_START || i_cCmdeID == PROBE_CMDE_STOP ||
           i_cCmdeID == PROBE_CMDE_START_SECOND;
}

} // namespace

CProbeLinkDriver::CProbeLinkDriver(const S_PROBE_LINK& i_Link, uint32_t i_ulIndex,
                                   PFN_PROBE_CLOSE& io_pFnClose,
                                   PFN_PROBE_DEVICEIOCONTROL& io_pFnDeviceIoControl)
    : m_Link(i_Link), m_pFnClose(io_pFnClose), m_pFnDeviceIoControl(io_pFnDeviceIoControl)
{
    m_ulDriverType = i_Link.ulDriverType;
    SetIdentity(i_ulIndex, i_Link.ulBaseID, i_Link.pszLinkType);
}

void CProbeLinkDriver::ReadConfiguration(CConfigFile& o_Config)
{
    // A file that cannot be read leaves no keys: every default holds but that of the port.
    m_ucPortNumber =
        LoadModuleConfiguration(o_Config) == cecore::ERROR_SUCCESS
            ? static_cast<uint8_t>(o_Config.GetInt(m_Link.pszLinkType, "PORT_NUMBER", 1))
            : m_Link.ucPortWithoutFile;
    o_Config.GetString(m_Link.pszLinkType, "DRIVER_NAME", m_Link.pszDefaultLibrary, m_szDriverName,
                       sizeof(m_szDriverName));
    PadDriverName();
}

S_RESULT CProbeLinkDriver::Close()
{
    const CDriverLock l_Lock(*this);
    if (m_pFnClose == nullptr || m_pFnClose() == 0) {
        return MakeResult(m_ulDriverType, TORNVAL_STEP_CLOSE, 1);
    }
    m_bInitialised = 0;
    return MakeResult(m_ulDriverType, TORNVAL_STEP_CLOSE);
}

S_RESULT CProbeLinkDriver::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                       const void* i_pcData, uint8_t)
{
    const CDriverLock l_Lock(*this);
    if (i_pCmde != nullptr) {
        m_Link.SendEntry.Emit(m_ulDriverID, i_pCmde->CmdeID);
    } else {
        m_Link.SendEntryNull.Emit(m_ulDriverID);
    }
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_SEND);
    const auto l_fnFail = [&l_Result](const auto& i_Text, auto... i_Args) {
        l_Result.ulStatus = 1;
        i_Text.Emit(i_Args...);
        return l_Result;
    };
    if (m_pFnDeviceIoControl == nullptr || i_pCmde == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    // Read once: what is sent is what was checked, whatever the host does to its record meanwhile.
    S_SEND_STRUCT l_Cmde = *i_pCmde;
    m_cLastCmdeID = static_cast<int8_t>(l_Cmde.CmdeID);
    if (!IsKnownCommand(m_cLastCmdeID)) {
        return l_fnFail(m_Link.SendBadCommand);
    }
    if (m_cLastCmdeID == PROBE_CMDE_READ_BOTH) {
        // From now on every reply is decoded as two channels, for the life of the driver.
        m_ulNbChannel = 2;
        l_Cmde.CmdeID = i_pCmde->CmdeID = PROBE_CMDE_READ;
    }
    const uint32_t l_ulSize = GetSize(l_Cmde);
    if (l_ulSize > std::numeric_limits<uint32_t>::max() - k_ulSendOverhead) {
        return l_fnFail(m_Link.SendBadSize, l_ulSize);
    }
    const uint32_t l_ulSendSize = l_ulSize + k_ulSendOverhead;
    // Zeroed by the system: memory that nobody fills, as of a huge payload that is not given, costs
    // nothing.
    const std::unique_ptr<uint8_t, S_FREE> TempSendStruc(
        static_cast<uint8_t*>(std::calloc(l_ulSendSize, 1)));
    if (TempSendStruc == nullptr) {
        return l_fnFail(m_Link.SendNoMemory);
    }
    std::memcpy(TempSendStruc.get(), &l_Cmde, sizeof(l_Cmde));
    if (i_pcData != nullptr && l_ulSize != 0) {
        std::memcpy(TempSendStruc.get() + sizeof(l_Cmde), i_pcData, l_ulSize);
    }
    if (o_pReceiveStruct == nullptr) {
        return l_fnFail(m_Link.SendNoReceiveStruct);
    }
    uint32_t l_ulReturned = 0;
    if (m_pFnDeviceIoControl(m_ulDriverIndex, PROBE_LINK_CONSTANT, m_Link.ulSendCode,
                             TempSendStruc.get(), l_ulSendSize, o_pReceiveStruct,
                             sizeof(*o_pReceiveStruct), &l_ulReturned, 0) == 0) {
        l_Result.ulLastError = cecore::GetLastError();
        return l_fnFail(m_Link.SendError, l_Result.ulLastError);
    }
    if (l_ulReturned < sizeof(*o_pReceiveStruct)) {
        return l_fnFail(m_Link.SendSizeError);
    }
    return l_Result;
}

S_RESULT CProbeLinkDriver::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                     int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                     uint32_t, uint8_t)
{
    const CDriverLock l_Lock(*this);
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_RESULT);
    if (o_pcRawData == nullptr || m_pFnDeviceIoControl == nullptr ||
        !IsKnownCommand(m_cLastCmdeID)) {
        l_Result.ulStatus = 1;
    } else if (IsRollingCommand(m_cLastCmdeID)) {
        l_Result = GetResultGetRollingCmde(i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize,
                                           o_plProcessedData);
    } else if (FetchReply(i_ulNbReturnByte, o_pcRawData, l_Result) &&
               m_cLastCmdeID == PROBE_CMDE_HOST_HEADED) {
        StripResultHeader(o_pcRawData, i_ulNbReturnByte, l_Result);
    }
    return l_Result;
}

/** Fetches a rolling reply and decodes it. The lock is held by the caller. */
S_RESULT CProbeLinkDriver::GetResultGetRollingCmde(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                                   int32_t* o_plProcessedDataSize,
                                                   int32_t* o_plProcessedData)
{
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_RESULT);
    if (FetchReply(i_ulNbReturnByte, o_pcRawData, l_Result)) {
        RollingCmdeResultManagement(i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize,
                                    o_plProcessedData, l_Result);
    } else {
        m_Link.FetchError.Emit(l_Result.ulLastError);
    }
    return l_Result;
}

/**
 * Fetches a reply. How many bytes the library says it delivered does not matter: the caller's
 * buffer holds what was asked for.
 */
bool CProbeLinkDriver::FetchReply(uint32_t i_ulNbReturnByte, char* o_pcRawData, S_RESULT& io_Result)
{
    uint8_t l_aucNbReturnByte[sizeof(i_ulNbReturnByte)];
    wire::WriteLe32(l_aucNbReturnByte, i_ulNbReturnByte);
    uint32_t l_ulReturned = 0;
    if (m_pFnDeviceIoControl(m_ulDriverIndex, PROBE_LINK_CONSTANT, m_Link.ulFetchCode,
                             l_aucNbReturnByte, sizeof(l_aucNbReturnByte), o_pcRawData,
                             i_ulNbReturnByte, &l_ulReturned, 0) != 0) {
        return true;
    }
    io_Result.ulStatus = 1;
    io_Result.ulLastError = cecore::GetLastError();
    return false;
}

} // namespace tornval
