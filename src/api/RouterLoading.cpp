// The life of the router: construction, loading and unloading of drivers, the end of the process.

#include "api/Router.h"

#include <new>

#include <cxxabi.h>
#include <pthread.h>

#include "driver/ModuleFolder.h"
#include "platform/Clock.h"
#include "probes/BTProbeDriver.h"
#include "probes/USBProbeDriver.h"
#include "simulation/BTProbeDriverSimu.h"
#include "simulation/IntMeasDriverSimu.h"
#include "simulation/MilliOhmDriverSerialSimu.h"
#include "simulation/USBProbeDriverSimu.h"
#include "support/Trace.h"

/** Stands for this library in the exit list, so that an unloading runs and removes its entries. */
extern "C" __attribute__((visibility("hidden"))) void* __dso_handle; // NOLINT

namespace tornval {
namespace {

/** Builds the driver of a mode; null for another mode or without memory. */
template <typename Real, typename Simu>
std::unique_ptr<CMeasDriver> Build(uint32_t i_ulMode, const S_TRACE_TEXT<>& i_RealLine = {},
                                   const S_TRACE_TEXT<>& i_SimuLine = {})
{
    switch (i_ulMode) {
    case MODE_REAL:
        i_RealLine.Emit();
        return std::unique_ptr<CMeasDriver>(new (std::nothrow) Real());
    case MODE_SIMU:
        i_SimuLine.Emit();
        return std::unique_ptr<CMeasDriver>(new (std::nothrow) Simu());
    default:
        return nullptr;
    }
}

/** How long the end of the process waits for calls that are still inside, in milliseconds. */
constexpr uint32_t k_ulRetireWait = 1000;

} // namespace

struct CRouter::S_ROAD
{
    uint32_t ulDriverType;
    S_TRACE_TEXT<> Start;
    S_TRACE_TEXT<CMeasDriver*> Driver;
    S_TRACE_TEXT<uint32_t> Stop;
};

constinit const CRouter::S_ROAD CRouter::s_MORoad = {
    TORNVAL_DRIVER_MILLIOHM,
    {INFO_LEVEL, L"CRouter::LoadMODriver> START"},
    {INFO_LEVEL, L"CRouter::LoadMODriver> driver: %08x"},
    {INFO_LEVEL, L"CRouter::LoadMODriver> STOP status=%d"}};

constinit const CRouter::S_ROAD CRouter::s_IMBRoad = {
    TORNVAL_DRIVER_BOARD,
    {INFO_LEVEL, L"CRouter::LoadIMBDriver> START"},
    {INFO_LEVEL, L"driver: %08x"},
    {INFO_LEVEL, L"CRouter::LoadIMBDriver> STOP status=%d"}};

constinit const CRouter::S_ROAD CRouter::s_BTRoad = {
    TORNVAL_DRIVER_BT_PROBE,
    {INFO_LEVEL, L"CRouter::LoadBTDriver> START"},
    {INFO_LEVEL, L"CRouter::LoadBTDriver> driver: %08x"},
    {INFO_LEVEL, L"CRouter::LoadBTDriver> STOP status=%d"}};

constinit const CRouter::S_ROAD CRouter::s_USBRoad = {
    TORNVAL_DRIVER_USB_PROBE,
    {INFO_LEVEL, L"CRouter::LoadUSBDriver> START"},
    {INFO_LEVEL, L"CRouter::LoadUSBDriver> driver: %08x"},
    {INFO_LEVEL, L"CRouter::LoadUSBDriver> STOP status=%d"}};

constinit std::atomic<bool> CRouter::s_bOpen{true};
constinit std::atomic<uint32_t> CRouter::s_ulCalls{0};
constinit std::atomic<bool> CRouter::s_bForked{false};

CRouter::CCall::CCall()
{
    ++s_ulCalls;
    try {
        if (s_bOpen) {
            m_pRouter = &Instance();
        }
    } catch (...) {
        --s_ulCalls;
        throw;
    }
}

CRouter::CCall::~CCall()
{
    --s_ulCalls;
}

CRouter& CRouter::Instance()
{
    static CRouter s_Router;
    return s_Router;
}

CRouter::CRouter() : m_hMutex(cecore::CreateMutexW(false))
{
    try {
        ReadConfiguration();
    } catch (const std::bad_alloc&) {
        // As without a file: the modes are 0, and nothing can be loaded.
        m_ulBTMode = m_ulUSBMode = m_ulIMMode = MODE_NONE;
        m_bLoadBT = m_bLoadUSB = false;
    }
    static_cast<void>(pthread_atfork(nullptr, nullptr, [] {
        s_bForked = true;
        s_bOpen = false;
        AbandonTraceLog();
    }));
}

CRouter::~CRouter()
{
    Retire();
}

void CRouter::Retire()
{
    s_bOpen = false;
    for (uint32_t l_ulWaited = 0; s_ulCalls != 0 && !s_bForked && l_ulWaited < k_ulRetireWait;
         ++l_ulWaited) {
        cecore::Sleep(1);
    }
    if (s_ulCalls != 0 || s_bForked) {
        // Somebody is still inside, or these drivers are a copy of the parent's: left alone, in a
        // place that nobody destroys.
        static_cast<void>(m_hMutex.Release());
        static decltype(m_mapDrivers)* s_pAbandoned = nullptr;
        if (s_pAbandoned == nullptr) {
            s_pAbandoned = new (std::nothrow) decltype(m_mapDrivers)();
        }
        if (s_pAbandoned != nullptr) {
            s_pAbandoned->merge(m_mapDrivers);
        }
        return;
    }
    UnloadMeasDrivers();
}

void CRouter::ReadConfiguration()
{
    CConfigFile l_Config;
    if (!LoadModuleConfiguration(l_Config)) {
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
        SetTraceLog(std::move(l_pLog));
        ResetTraceLog();
    } else if (l_ulType == 1) {
        l_pLog.reset(new (std::nothrow) CTraceLogConsole(l_usLevel));
        SetTraceLog(std::move(l_pLog));
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
        // No memory, or a link library that throws: the other drivers are still to come.
        return nullptr;
    }
}

std::unique_ptr<CMeasDriver> CRouter::BuildDriver(uint32_t i_ulDriverType) const
{
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
            const cecore::CMutexGuard l_Lock(m_hMutex.Get());
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
        }
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        Trace(ERROR_LEVEL, L"CRouter::InitAndAddDriverToMap> ERROR exception");
    }
    l_Result.ulStatus = 1;
    io_pDriver.reset();
    return l_Result;
}

uint32_t CRouter::LoadByRoad(const S_ROAD& i_Road, S_RESULT& io_Result)
{
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
    return LoadByRoad(s_IMBRoad, io_Result);
}

uint32_t CRouter::LoadMODriver(S_RESULT& io_Result)
{
    return LoadByRoad(s_MORoad, io_Result);
}

uint32_t CRouter::LoadBTDriver(S_RESULT& io_Result)
{
    return LoadByRoad(s_BTRoad, io_Result);
}

uint32_t CRouter::LoadUSBDriver(S_RESULT& io_Result)
{
    return LoadByRoad(s_USBRoad, io_Result);
}

S_RESULT CRouter::LoadMeasDrivers(int32_t i_lMask)
{
    Trace(INFO_LEVEL, L"CRouter::LoadMeasDriver> START");
    UnloadMeasDrivers();
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_NONE, TORNVAL_STEP_LOAD);
    if ((i_lMask & TORNVAL_LOAD_MILLIOHM) != 0) {
        LoadMODriver(l_Result);
    }
    if ((i_lMask & TORNVAL_LOAD_BOARD) != 0) {
        LoadIMBDriver(l_Result);
    }
    if (i_lMask != 0 && m_bLoadBT) {
        LoadBTDriver(l_Result);
    }
    if (i_lMask != 0 && m_bLoadUSB) {
        LoadUSBDriver(l_Result);
    }
    Trace(INFO_LEVEL, L"CRouter::LoadMeasDriver> STOP status=%d", l_Result.ulStatus);
    UnloadAtExit();
    return l_Result;
}

void CRouter::UnloadAtExit()
{
    // A host that ends without unloading runs the exit lists of all libraries, the last one first:
    // those of the link libraries, which came after the router, before the router's own. So each
    // load puts one more entry behind what its links have put there, and the drivers go while their
    // links stand.
    const bool l_bReal =
        m_ulIMMode == MODE_REAL || m_ulBTMode == MODE_REAL || m_ulUSBMode == MODE_REAL;
    const cecore::CMutexGuard l_Lock(m_hMutex.Get());
    if (l_bReal && !m_mapDrivers.empty()) {
        static_cast<void>(
            abi::__cxa_atexit([](void*) { Instance().Retire(); }, nullptr, &__dso_handle));
    }
}

void CRouter::UnloadMeasDrivers()
{
    const cecore::CMutexGuard l_Lock(m_hMutex.Get());
    while (!m_mapDrivers.empty()) {
        m_mapDrivers.erase(m_mapDrivers.begin());
    }
}

} // namespace tornval
