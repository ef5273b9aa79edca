#include "probes/BTProbeDriver.h"

#include <atomic>

namespace tornval {
namespace {

constexpr S_PROBE_LINK k_Link = {
    .ulDriverType = TORNVAL_DRIVER_BT_PROBE,
    .ulBaseID = 2000,
    .pszLinkType = "BT",
    .pszDefaultLibrary = "zondebtc6.dll",
    .ucPortWithoutFile = 1,
    .pwszInit = L"PBT_Init",
    .pwszClose = L"PBT_Close",
    .pwszDeviceIoControl = L"PBT_DeviceIoControl",
    .ulSendCode = IOCTL_PBT_SEND_COMMAND,
    .ulFetchCode = IOCTL_PBT_GET_RESULT,
    // The class of this line's name is the one that its readers look for.
    .CreateError = {ERROR_LEVEL, L"CBTProbeDriver::CUSBProbeDriver> Create Driver probe BT error"},
    .InitError = {ERROR_LEVEL, L"CBTProbeDriver::Init> m_pFn_PBTInit return FALSE (port: %02X)"},
    .SendEntry = {INFO_GENERAL_LEVEL, L"CBTProbeDriver::SendCommand> DriverID:%ld CMID:%02X"},
    .SendEntryNull = {INFO_GENERAL_LEVEL, L"CBTProbeDriver::SendCommand> DriverID:%ld CMID: NULL"},
    .SendBadCommand = {ERROR_LEVEL, L"CBTProbeDriver::SendCommand> Bad command"},
    .SendBadSize = {ERROR_LEVEL, L"CBTProbeDriver::SendCommand> Bad size: %lu"},
    .SendNoMemory = {ERROR_LEVEL, L"CBTProbeDriver::SendCommand> TempSendStruc allocation error"},
    .SendNoReceiveStruct = {ERROR_LEVEL,
                            L"CBTProbeDriver::SendCommand> o_pReceiveStruct allocation error"},
    .SendError = {ERROR_LEVEL, L"CBTProbeDriver::SendCommand> m_pFn_PBTDeviceIoControl error: %ld"},
    .SendSizeError = {ERROR_LEVEL,
                      L"CBTProbeDriver::SendCommand> m_pFn_PBTDeviceIoControl size error"},
    .FetchError = {ERROR_LEVEL, L"CBTProbeDriver::GetResultGetRollingCmde> "
                                L"m_pFn_PBTDeviceIoControl error (last error %ld)"}};

std::atomic<uint32_t> s_ulCounter{0};

} // namespace

CBTProbeDriver::CBTProbeDriver()
    : CProbeLinkDriver(k_Link, s_ulCounter++, m_pFn_PBTClose, m_pFn_PBTDeviceIoControl)
{
    ScaleInBulk<CProbeDriver>(this);
    ReadConfiguration();
    LoadProbeLibrary(m_pFn_PBTInit);
}

void CBTProbeDriver::ReadConfiguration()
{
    CConfigFile l_Config;
    CProbeLinkDriver::ReadConfiguration(l_Config);
    char l_aszBaudRate[sizeof(m_wszBaudRate) / sizeof(wchar_t)];
    l_Config.GetString(k_Link.pszLinkType, "BAUD_RATE", "460800", l_aszBaudRate,
                       sizeof(l_aszBaudRate) - 1);
    cecore::Widen(m_wszBaudRate, l_aszBaudRate);
    m_ulInitTimeout = l_Config.GetInt(k_Link.pszLinkType, "INIT_TIMEOUT", 10000);
}

S_RESULT CBTProbeDriver::Init()
{
    return InitLink(m_pFn_PBTInit, m_wszBaudRate, m_ulInitTimeout);
}

} // namespace tornval
