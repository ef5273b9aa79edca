/**
 * @file SerialDriver.h
 * @brief Binding of the serial link library that board and milliohm module share.
 */
#pragma once

#include "TornvalLinks.h"
#include "platform/Module.h"
#include "support/Trace.h"

namespace tornval {

/**
 * The link library: loaded by name, six entry points, calls handed on. One instance for the
 * process, counted by references. It has no lock: drivers call in parallel, each under its own, and
 * instances are taken and given back only while drivers are built and destroyed.
 */
class CSerialDriver
{
public:
    CSerialDriver() = default;
    CSerialDriver(const CSerialDriver&) = delete;
    CSerialDriver& operator=(const CSerialDriver&) = delete;
    virtual ~CSerialDriver();

    /** The shared instance, made at the first call; null if there was no memory. Counts one up. */
    static CSerialDriver* AcquireSerialDriver();
    /** Counts one down; the last one destroys the instance. */
    static void ReleaseSerialDriver();

    /**
     * Loads the library, unless one is loaded already: then the name is not looked at.
     *
     * @return 1 done; 0 if it does not load or lacks an entry point (it stays loaded then).
     */
    uint32_t LoadDriver(const wchar_t* i_pwszLibrary);

    // Each hands its arguments to the entry point of its name; 0 without a call if there is none.
    template <typename... Args>
    [[nodiscard]] uint32_t RS_Init(Args... i_Args) const
    {
        return Call(m_pFn_RS_Init, i_Args...);
    }
    template <typename... Args>
    [[nodiscard]] uint32_t RS_DeviceIoControl(Args... i_Args) const
    {
        return Call(m_pFn_RS_DeviceIoControl, i_Args...);
    }
    template <typename... Args>
    [[nodiscard]] uint32_t RS_Init_Ex(Args... i_Args) const
    {
        Trace(INFO_LEVEL, L"CSerialDriver::RS_Init_Ex> fct: %08X",
              reinterpret_cast<const void*>(m_pFn_RS_Init_Ex));
        return Call(m_pFn_RS_Init_Ex, i_Args...);
    }
    template <typename... Args>
    [[nodiscard]] uint32_t RS_DeviceIoControl_Ex(Args... i_Args) const
    {
        return Call(m_pFn_RS_DeviceIoControl_Ex, i_Args...);
    }
    [[nodiscard]] uint32_t RS_Close_Ex(uint32_t i_ulLinkHandle) const
    {
        return Call(m_pFn_RS_Close_Ex, i_ulLinkHandle);
    }

private:
    template <typename EntryPoint, typename... Args>
    static uint32_t Call(EntryPoint i_pfn, Args... i_Args)
    {
        return i_pfn == nullptr ? 0 : i_pfn(i_Args...);
    }

    PFN_RS_INIT m_pFn_RS_Init = nullptr;
    PFN_RS_DEVICEIOCONTROL m_pFn_RS_DeviceIoControl = nullptr;
    PFN_RS_CLOSE m_pFn_RS_Close = nullptr;
    PFN_RS_INIT_EX m_pFn_RS_Init_Ex = nullptr;
    PFN_RS_DEVICEIOCONTROL_EX m_pFn_RS_DeviceIoControl_Ex = nullptr;
    PFN_RS_CLOSE_EX m_pFn_RS_Close_Ex = nullptr;
    cecore::ModuleHandle m_hLibrary = nullptr;

    static CSerialDriver* s_pSerialDriver;
    static int32_t s_lSerialDriverRefs;
};

/** Mix-in of a driver that uses the serial link library: its share of it, and its link. */
class CSerialDriverUser
{
public:
    CSerialDriverUser() : m_pSerialDriver(CSerialDriver::AcquireSerialDriver()) {}
    CSerialDriverUser(const CSerialDriverUser&) = delete;
    CSerialDriverUser& operator=(const CSerialDriverUser&) = delete;
    virtual ~CSerialDriverUser() = default;

protected:
    CSerialDriver* m_pSerialDriver;
    /** Filled by RS_Init_Ex; 0 on a link that RS_Init opened. */
    uint32_t m_ulLinkHandle = 0;
};

} // namespace tornval
