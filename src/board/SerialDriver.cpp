#include "board/SerialDriver.h"

#include <new>

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
    if (m_hLibrary != nullptr) {
        cecore::FreeLibrary(m_hLibrary);
    }
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
        m_pFn_RS_Init = nullptr;
        m_pFn_RS_DeviceIoControl = nullptr;
        m_pFn_RS_Close = nullptr;
        m_pFn_RS_Init_Ex = nullptr;
        m_pFn_RS_DeviceIoControl_Ex = nullptr;
        m_pFn_RS_Close_Ex = nullptr;
        Trace(ERROR_LEVEL, L"CSerialDriver::LoadDriver GetProcAddress: (last error: %ld)\n",
              cecore::GetLastError());
        return 0;
    }
    return 1;
}

} // namespace tornval
