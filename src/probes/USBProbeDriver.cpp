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
    : CProbeLinkDriver(k_Link, s_ulCounter++, m_pFn_PUSBClose, m_pFn_PUSBDeviceIoControl)
{
    ScaleInBulk<CProbeDriver>(this);
    ReadConfiguration();
    LoadProbeLibrary(m_pFn_PUSBInit);
}

void CUSBProbeDriver::ReadConfiguration()
{
    CConfigFile l_Config;
    CProbeLinkDriver::ReadConfiguration(l_Config);
}

S_RESULT CUSBProbeDriver::Init()
{
    return InitLink(m_pFn_PUSBInit);
}

} // namespace tornval
