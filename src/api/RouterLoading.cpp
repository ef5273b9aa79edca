// What a load does: the configuration decides, the drivers are built, initialised and kept.

#include "api/Router.h"

#include <new>

#include <cxxabi.h>

#include "driver/ModuleFolder.h"
#include "platform/Reason.h"
#include "probes/BTProbeDriver.h"
#include "probes/USBProbeDriver.h"
#include "simulation/IntMeasDriverSimu.h"
#include "simulation/MilliOhmDriverSerialSimu.h"
#include "simulation/ProbeDriverSimu.h"
#include "support/Trace.h"

namespace tornval {
/** One road of LoadMeasDrivers: a kind of driver and the lines that it traces. */
struct S_LOAD_ROAD
{
    const char* pszLinkType;
    uint32_t ulDriverType;
    S_TRACE_TEXT<> Start;
    S_TRACE_TEXT<CMeasDriver*> Driver;
    S_TRACE_TEXT<uint32_t> Stop;
};

namespace {

constexpr S_LOAD_ROAD k_MORoad = {"MO",
                                  TORNVAL_DRIVER_MILLIOHM,
                                  {INFO_LEVEL, L"CRouter::LoadMODriver> START"},
                                  {INFO_LEVEL, L"CRouter::LoadMODriver> driver: %08x"},
                                  {INFO_LEVEL, L"CRouter::LoadMODriver> STOP status=%d"}};
constexpr S_LOAD_ROAD k_IMBRoad = {"IM",
                                   TORNVAL_DRIVER_BOARD,
                                   {INFO_LEVEL, L"CRouter::LoadIMBDriver> START"},
                                   {INFO_LEVEL, L"driver: %08x"},
                                   {INFO_LEVEL, L"CRouter::LoadIMBDriver> STOP status=%d"}};
constexpr S_LOAD_ROAD k_BTRoad = {"BT",
                                  TORNVAL_DRIVER_BT_PROBE,
                                  {INFO_LEVEL, L"CRouter::LoadBTDriver> START"},
                                  {INFO_LEVEL, L"CRouter::LoadBTDriver> driver: %08x"},
                                  {INFO_LEVEL, L"CRouter::LoadBTDriver> STOP status=%d"}};
constexpr S_LOAD_ROAD k_USBRoad = {"USB",
                                   TORNVAL_DRIVER_USB_PROBE,
                                   {INFO_LEVEL, L"CRouter::LoadUSBDriver> START"},
                                   {INFO_LEVEL, L"CRouter::LoadUSBDriver> driver: %08x"},
                                   {INFO_LEVEL, L"CRouter::LoadUSBDriver> STOP status=%d"}};

/** Builds the driver of a mode; null for another mode or without memory. */
template <typename Real, typename Simu>
std::unique_ptr<CMeasDriver> Build(uint32_t i_ulMode, const S_TRACE_TEXT<>& i_RealLine = {},
                                   const S_TRACE_TEXT<>& i_SimuLine = {})
{
    std::unique_ptr<CMeasDriver> l_pDriver;
    if (i_ulMode == MODE_REAL) {
        i_RealLine.Emit();
        l_pDriver.reset(new (std::nothrow) Real());
    } else if (i_ulMode == MODE_SIMU) {
        i_SimuLine.Emit();
        l_pDriver.reset(new (std::nothrow) Simu());
    }
    if (l_pDriver == nullptr && i_ulMode != MODE_NONE) {
        cecore::NoteReason(CECORE_ERROR_NOT_ENOUGH_MEMORY, "there is no memory for the driver");
    }
    return l_pDriver;
}

} // namespace

void CRouter::ReadConfiguration()
{
    CConfigFile l_Config;
    m_ulConfigurationError = ReadModuleConfiguration(l_Config);
    if (m_ulConfigurationError != 0) {
        return;
    }
    const auto l_fnMode = [&l_Config](const char* i_pszSection) -> uint32_t {
        return l_Config.GetInt(i_pszSection, "SIMU", 0) != 0 ? MODE_SIMU : MODE_REAL;
    };
    m_ulUSBMode = l_fnMode("USB");
    m_ulBTMode = l_fnMode("BT");
    m_ulIMMode = l_fnMode("IM");
    m_bLoadUSB = l_Config.GetInt("USB", "LOAD", 0) != 0;
    m_bLoadBT = l_Config.GetInt("BT", "LOAD", 0) != 0;
    if (l_Config.GetInt("LOG", "ENABLE", 0) != 1) {
        return;
    }
    const uint32_t l_ulType = l_Config.GetInt("LOG", "TYPE", 0);
    const auto l_usLevel = static_cast<uint16_t>(l_Config.GetInt("LOG", "LEVEL", 0));
    std::unique_ptr<CTraceLog> l_pLog;
    if (l_ulType == 0) {
        l_pLog.reset(new (std::nothrow) CTraceLogFile("\\hd00\\log_tornval.txt", l_usLevel));
    } else if (l_ulType == 1) {
        l_pLog.reset(new (std::nothrow) CTraceLogConsole(l_usLevel));
    }
    if (l_pLog != nullptr && l_pLog->IsWhole()) {
        SetTraceLog(std::move(l_pLog));
        ResetTraceLog();
    }
}

std::unique_ptr<CMeasDriver> CRouter::CreateDriver(uint32_t i_ulDriverType)
{
    Trace(INFO_GENERAL_LEVEL, L"CRouter::CreateDriver> DriverType: %d", i_ulDriverType);
    try {
        return BuildDriver(i_ulDriverType);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // The other drivers are still to come.
        cecore::NoteReason(0, "the driver was not built: no memory, or its link library threw");
        return nullptr;
    }
}

std::unique_ptr<CMeasDriver> CRouter::BuildDriver(uint32_t i_ulDriverType) const
{
    if (m_ulConfigurationError != 0) {
        NoteConfigurationReason(m_ulConfigurationError);
    }
    std::unique_ptr<CMeasDriver> l_pDriver;
    switch (i_ulDriverType) {
    case TORNVAL_DRIVER_BT_PROBE:
        return Build<CBTProbeDriver, CBTProbeDriverSimu>(
            m_ulBTMode, {INFO_LEVEL, L"CRouter::CreateDriver> create Probe BT driver Instance"},
            {INFO_LEVEL, L"CRouter::CreateDriver> create Probe BT simu driver Instance"});
    case TORNVAL_DRIVER_USB_PROBE:
        return Build<CUSBProbeDriver, CUSBProbeDriverSimu>(
            m_ulUSBMode, {INFO_LEVEL, L"CRouter::CreateDriver> create Probe USB driver Instance"},
            {INFO_LEVEL, L"CRouter::CreateDriver> create Probe USB simu driver Instance"});
    case TORNVAL_DRIVER_BOARD:
        l_pDriver = Build<CIntMeasDriverSerial, CIntMeasDriverSimu>(m_ulIMMode);
        break;
    case TORNVAL_DRIVER_MILLIOHM:
        l_pDriver = Build<C_MilliOhmDriverSerial, C_MilliOhmDriverSerialSimu>(m_ulIMMode);
        break;
    default:
        break;
    }
    if (l_pDriver != nullptr && l_pDriver->CreateDriverInstance().ulStatus != 0) {
        l_pDriver.reset();
    }
    return l_pDriver;
}

S_RESULT CRouter::InitAndAddDriverToMap(std::unique_ptr<CMeasDriver>& io_pDriver)
{
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_NONE, TORNVAL_STEP_LOAD);
    Trace(INFO_LEVEL, L"CRouter::InitAndAddDriverToMap>");
    if (io_pDriver == nullptr) {
        Trace(INFO_LEVEL, L"CRouter::InitAndAddDriverToMap> ERROR Driver is NULL");
        l_Result.ulStatus = 1;
        return l_Result;
    }
    try {
        l_Result = io_pDriver->Init();
        if (l_Result.ulStatus == 0) {
            const cecore::CMutexGuard l_Lock(m_hMutex);
            const uint32_t l_ulDriverID = io_pDriver->GetDriverID();
            Trace(INFO_LEVEL, L"CRouter::InitAndAddDriverToMap> add driver to the map: id=%d",
                  l_ulDriverID);
            // After very many loads the numbers of two kinds can meet.
            if (m_mapDrivers.try_emplace(static_cast<int32_t>(l_ulDriverID), std::move(io_pDriver))
                    .second) {
                return l_Result;
            }
            Trace(ERROR_LEVEL, L"CRouter::InitAndAddDriverToMap> ERROR id=%d is taken",
                  l_ulDriverID);
            cecore::NoteReason(0, "another driver has the ID %u", l_ulDriverID);
        }
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        Trace(ERROR_LEVEL, L"CRouter::InitAndAddDriverToMap> ERROR exception");
        cecore::NoteReason(0, "the driver was not kept: no memory, or its link library threw");
    }
    l_Result.ulStatus = 1;
    io_pDriver.reset();
    return l_Result;
}

uint32_t CRouter::LoadByRoad(const S_LOAD_ROAD& i_Road, S_RESULT& io_Result)
{
    const cecore::CReasonScope l_Scope(i_Road.pszLinkType);
    i_Road.Start.Emit();
    std::unique_ptr<CMeasDriver> l_pDriver = CreateDriver(i_Road.ulDriverType);
    i_Road.Driver.Emit(l_pDriver.get());
    uint32_t l_ulDone = 1;
    if (InitAndAddDriverToMap(l_pDriver).ulStatus != 0) {
        io_Result.ulStatus = 1;
        l_ulDone = 0;
    }
    i_Road.Stop.Emit(l_ulDone);
    return l_ulDone;
}

uint32_t CRouter::LoadIMBDriver(S_RESULT& io_Result)
{
    return LoadByRoad(k_IMBRoad, io_Result);
}

uint32_t CRouter::LoadMODriver(S_RESULT& io_Result)
{
    return LoadByRoad(k_MORoad, io_Result);
}

S_RESULT CRouter::LoadMeasDrivers(int32_t i_lMask)
{
    Trace(INFO_LEVEL, L"CRouter::LoadMeasDriver> START");
    if (m_bLoadBegun) {
        cecore::ForgetReasons();
    }
    m_bLoadBegun = true;
    UnloadMeasDrivers();
    PutExitEntryLast();
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_NONE, TORNVAL_STEP_LOAD);
    if ((i_lMask & TORNVAL_LOAD_MILLIOHM) != 0) {
        LoadMODriver(l_Result);
    }
    if ((i_lMask & TORNVAL_LOAD_BOARD) != 0) {
        LoadIMBDriver(l_Result);
    }
    if (i_lMask != 0 && m_bLoadBT) {
        LoadByRoad(k_BTRoad, l_Result);
    }
    if (i_lMask != 0 && m_bLoadUSB) {
        LoadByRoad(k_USBRoad, l_Result);
    }
    if (i_lMask != 0 && (i_lMask & (TORNVAL_LOAD_MILLIOHM | TORNVAL_LOAD_BOARD)) == 0 &&
        !m_bLoadBT && !m_bLoadUSB) {
        cecore::NoteReason(0,
                           "the mask 0x%02x asks for no driver: 0x%02x is the milliohm module, "
                           "0x%02x the board",
                           i_lMask, TORNVAL_LOAD_MILLIOHM, TORNVAL_LOAD_BOARD);
    }
    Trace(INFO_LEVEL, L"CRouter::LoadMeasDriver> STOP status=%d", l_Result.ulStatus);
    PutExitEntryLast();
    return l_Result;
}

void CRouter::UnloadMeasDrivers()
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    while (!m_mapDrivers.empty()) {
        m_mapDrivers.erase(m_mapDrivers.begin());
    }
}

} // namespace tornval
