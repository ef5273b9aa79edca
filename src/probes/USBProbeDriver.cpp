#include "probes/USBProbeDriver.h"

#include <atomic>

namespace tornval {
namespace {

constexpr S_PROBE_LINK k_Link = {
    .ulDriverType = TORNVAL_DRIVER_USB_PROBE,
    .ulBaseID = 3000,
    .pszLinkType = "USB",
    .pszDefaultLibrary = "zondeusbc6.dll",
    .ucPortWithoutFile = 0,
    .pwszInit = L"PUSB_Init",
    .pwszClose = L"PUSB_Close",
    .pwszDeviceIoControl = L"PUSB_DeviceIoControl",
    .ulSendCode = IOCTL_PUSB_SEND_COMMAND,
    .ulFetchCode = IOCTL_PUSB_GET_RESULT,
    .CreateError = {ERROR_LEVEL,
                    L"CUSBProbeDriver::CUSBProbeDriver> Create Driver probe USB error"},
    .InitError = {ERROR_LEVEL, L"CUSBProbeDriver::Init> m_pFn_PUSBInit return FALSE (port: %02X)"},
    // Nothing on entry: the router's line stands alone.
    .SendEntry = {},
    .SendEntryNull = {},
    .SendBadCommand = {ERROR_LEVEL, L"CUSBProbeDriver::SendCommand> bad command"},
    .SendBadSize = {ERROR_LEVEL, L"CUSBProbeDriver::SendCommand> bad size: %lu"},
    .SendNoMemory = {ERROR_LEVEL, L"CUSBProbeDriver::SendCommand> TempSendStruc allocation error"},
    .SendNoReceiveStruct = {ERROR_LEVEL,
                            L"CUSBProbeDriver::SendCommand> o_pReceiveStruct allocation error"},
    .SendError = {ERROR_LEVEL,
                  L"CUSBProbeDriver::SendCommand> m_pFn_PUSBDeviceIoControl error: %ld"},
    .SendSizeError = {ERROR_LEVEL,
                      L"CUSBProbeDriver::SendCommand> m_pFn_PUSBDeviceIoControl size error"},
    .FetchError = {ERROR_LEVEL, L"CUSBProbeDriver::GetResultGetRollingCmde> "
                                L"m_pFn_PUSBDeviceIoControl error (last error %ld)"}};

std::atomic<uint32_t> s_ulCounter{0};

} // namespace

CUSBProbeDriver::CUSBProbeDriver()
{
    ScaleInBulk<CProbeDriver>(this);
    m_ulDriverType = k_Link.ulDriverType;
    SetIdentity(s_ulCounter++, k_Link.ulBaseID, k_Link.pszLinkType);
    if (LoadProbeLibrary().ulStatus == 1) {
        k_Link.CreateError.Emit();
    }
}

CUSBProbeDriver::~CUSBProbeDriver() = default;

void CUSBProbeDriver::ReadConfiguration()
{
    CConfigFile l_Config;
    ReadLinkConfiguration(k_Link, l_Config, m_ucPortNumber);
}

S_RESULT CUSBProbeDriver::LoadProbeLibrary()
{
    ReadConfiguration();
    return CProbeDriver::LoadProbeLibrary(k_Link, m_pFn_PUSBInit, m_pFn_PUSBClose,
                                          m_pFn_PUSBDeviceIoControl);
}

S_RESULT CUSBProbeDriver::Init()
{
    return InitLink(k_Link, m_pFn_PUSBInit, m_ucPortNumber);
}

S_RESULT CUSBProbeDriver::Close()
{
    return CloseLink(k_Link, m_pFn_PUSBClose);
}

S_RESULT CUSBProbeDriver::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                      const void* i_pcData, uint8_t)
{
    return SendOnLink(k_Link, m_pFn_PUSBDeviceIoControl, i_pCmde, o_pReceiveStruct, i_pcData);
}

S_RESULT CUSBProbeDriver::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                    int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                    uint32_t, uint8_t)
{
    return GetResultFromLink(k_Link, m_pFn_PUSBDeviceIoControl, i_ulNbReturnByte, o_pcRawData,
                             o_plProcessedDataSize, o_plProcessedData);
}

} // namespace tornval
