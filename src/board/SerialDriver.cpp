#include "board/SerialDriver.h"

#include <new>

#include "support/Trace.h"

namespace tornval {

CSerialDriver* CSerialDriver::s_pSerialDriver = nullptr;
int32_t CSerialDriver::s_lSerialDriverRefs = 0;

CSerialDriver* CSerialDriver::AcquireSerialDriver()
{
    if (s_pSerialDriver == nullptr) {
        s_pSerialDriver = new (std::nothrow) CSerialDriver();
    }
    ++s_lSerialDriverRefs;
    return s_pSerialDriver;
}

void CSerialDriver::ReleaseSerialDriver()
{
    if (s_lSerialDriverRefs <= 0) {
        return;
    }
    if (s_lSerialDriverRefs == 1) {
        delete s_pSerialDriver;
        s_pSerialDriver = nullptr;
    }
    --s_lSerialDriverRefs;
}

CSerialDriver::~CSerialDriver()
{
    Trace(INFO_LEVEL, L"Unload Driver instance");
    ClearEntryPoints();
    if (m_hLibrary != nullptr) {
        cecore::FreeLibrary(m_hLibrary);
    }
}

void CSerialDriver::ClearEntryPoints()
{
    m_pFn_RS_Init = nullptr;
    m_pFn_RS_DeviceIoControl = nullptr;
    m_pFn_RS_Close = nullptr;
    m_pFn_RS_Init_Ex = nullptr;
    m_pFn_RS_DeviceIoControl_Ex = nullptr;
    m_pFn_RS_Close_Ex = nullptr;
}

uint32_t CSerialDriver::LoadDriver(const wchar_t* i_pwszLibrary)
{
    if (m_hLibrary != nullptr) {
        return 1;
    }
    if (i_pwszLibrary == nullptr) {
        return 0;
    }
    m_hLibrary = cecore::LoadLibraryW(i_pwszLibrary);
    if (m_hLibrary == nullptr) {
        Trace(ERROR_LEVEL, L"CSerialDriver::LoadDriver> LoadLibrary: %s (last error: %ld)\n",
              i_pwszLibrary, cecore::GetLastError());
        return 0;
    }
    // All six are asked for, so that none is missing only in the last error.
    bool l_bAll = cecore::GetProcAddressInto(m_hLibrary, L"RS_Init", m_pFn_RS_Init);
    l_bAll &=
        cecore::GetProcAddressInto(m_hLibrary, L"RS_DeviceIoControl", m_pFn_RS_DeviceIoControl);
    l_bAll &= cecore::GetProcAddressInto(m_hLibrary, L"RS_Close", m_pFn_RS_Close);
    l_bAll &= cecore::GetProcAddressInto(m_hLibrary, L"RS_Init_Ex", m_pFn_RS_Init_Ex);
    l_bAll &= cecore::GetProcAddressInto(m_hLibrary, L"RS_DeviceIoControl_Ex",
                                         m_pFn_RS_DeviceIoControl_Ex);
    l_bAll &= cecore::GetProcAddressInto(m_hLibrary, L"RS_Close_Ex", m_pFn_RS_Close_Ex);
    if (!l_bAll) {
        ClearEntryPoints();
        Trace(ERROR_LEVEL, L"CSerialDriver::LoadDriver GetProcAddress: (last error: %ld)\n",
              cecore::GetLastError());
        return 0;
    }
    return 1;
}

uint32_t CSerialDriver::RS_Init(uint32_t i_ulPort, uint32_t i_ulConstant, uint32_t i_ulBaudRate,
                                uint32_t i_ulDataBits, uint32_t i_ulWord1, uint32_t i_ulWord2,
                                uint32_t i_ulZero) const
{
    return m_pFn_RS_Init == nullptr ? 0
                                    : m_pFn_RS_Init(i_ulPort, i_ulConstant, i_ulBaudRate,
                                                    i_ulDataBits, i_ulWord1, i_ulWord2, i_ulZero);
}

uint32_t CSerialDriver::RS_DeviceIoControl(uint32_t i_ulConstant, uint32_t i_ulCode,
                                           const void* i_pIn, uint32_t i_ulInSize, void* o_pOut,
                                           uint32_t i_ulOutSize, uint32_t* o_pulReturned,
                                           uint32_t i_ulZero) const
{
    return m_pFn_RS_DeviceIoControl == nullptr
               ? 0
               : m_pFn_RS_DeviceIoControl(i_ulConstant, i_ulCode, i_pIn, i_ulInSize, o_pOut,
                                          i_ulOutSize, o_pulReturned, i_ulZero);
}

uint32_t CSerialDriver::RS_Init_Ex(uint32_t i_ulPort, uint32_t i_ulConstant, uint32_t i_ulBaudRate,
                                   uint32_t i_ulDataBits, uint32_t i_ulWord1, uint32_t i_ulWord2,
                                   uint32_t i_ulZero, uint32_t* o_pulLinkHandle) const
{
    Trace(INFO_LEVEL, L"CSerialDriver::RS_Init_Ex> fct: %08X",
          reinterpret_cast<const void*>(m_pFn_RS_Init_Ex));
    return m_pFn_RS_Init_Ex == nullptr
               ? 0
               : m_pFn_RS_Init_Ex(i_ulPort, i_ulConstant, i_ulBaudRate, i_ulDataBits, i_ulWord1,
                                  i_ulWord2, i_ulZero, o_pulLinkHandle);
}

uint32_t CSerialDriver::RS_DeviceIoControl_Ex(uint32_t i_ulConstant, uint32_t i_ulCode,
                                              const void* i_pIn, uint32_t i_ulInSize, void* o_pOut,
                                              uint32_t i_ulOutSize, uint32_t* o_pulReturned,
                                              uint32_t i_ulZero, uint32_t i_ulLinkHandle) const
{
    return m_pFn_RS_DeviceIoControl_Ex == nullptr
               ? 0
               : m_pFn_RS_DeviceIoControl_Ex(i_ulConstant, i_ulCode, i_pIn, i_ulInSize, o_pOut,
                                             i_ulOutSize, o_pulReturned, i_ulZero, i_ulLinkHandle);
}

uint32_t CSerialDriver::RS_Close_Ex(uint32_t i_ulLinkHandle) const
{
    return m_pFn_RS_Close_Ex == nullptr ? 0 : m_pFn_RS_Close_Ex(i_ulLinkHandle);
}

} // namespace tornval
