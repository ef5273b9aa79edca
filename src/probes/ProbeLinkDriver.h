/**
 * @file ProbeLinkDriver.h
 * @brief A probe behind a link library: the steps that all links take, on a record of what differs.
 */
#pragma once

#include "TornvalLinks.h"
#include "platform/Reason.h"
#include "probes/ProbeDriver.h"
#include "support/ConfigFile.h"
#include "support/Trace.h"

namespace tornval {

/** Names, codes and texts of one link. A text without a format is not traced. */
struct S_PROBE_LINK
{
    uint32_t ulDriverType;
    uint32_t ulBaseID;
    const char* pszLinkType; /**< also the name of the section of the configuration file */
    const char* pszDefaultLibrary;
    uint8_t ucPortWithoutFile; /**< port where there is no configuration file */
    const wchar_t* pwszInit;
    const wchar_t* pwszClose;
    const wchar_t* pwszDeviceIoControl;
    uint32_t ulSendCode;
    uint32_t ulFetchCode;

    S_TRACE_TEXT<> CreateError;
    S_TRACE_TEXT<uint8_t> InitError;           /**< port */
    S_TRACE_TEXT<uint32_t, uint8_t> SendEntry; /**< driver ID, command */
    S_TRACE_TEXT<uint32_t> SendEntryNull;      /**< driver ID */
    S_TRACE_TEXT<> SendBadCommand;
    S_TRACE_TEXT<uint32_t> SendBadSize; /**< size of the payload */
    S_TRACE_TEXT<> SendNoMemory;
    S_TRACE_TEXT<> SendNoReceiveStruct;
    S_TRACE_TEXT<uint32_t> SendError; /**< last error */
    S_TRACE_TEXT<> SendSizeError;
    S_TRACE_TEXT<uint32_t> FetchError; /**< last error */
};

/**
 * The library is loaded from the constructor on, and its failure shows in the operations: each fails
 * that has no entry point. Init and Close open and close the link and may take turns at will; the
 * destructor closes nothing but the library.
 *
 * A class below brings its record, its counter, its entry points under their own names, and the
 * arguments that its library's init takes behind the port.
 */
class CProbeLinkDriver : public CProbeDriver
{
public:
    S_RESULT Close() override;
    S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                         const void* i_pcData, uint8_t i_ucCanal) override;
    S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData, int32_t* o_plProcessedDataSize,
                       int32_t* o_plProcessedData, uint32_t i_ulTimeout,
                       uint8_t i_bCompensation) override;

protected:
    /** Takes the addresses of two members of the class below, which are filled when it loads. */
    CProbeLinkDriver(const S_PROBE_LINK& i_Link, uint32_t i_ulIndex, PFN_PROBE_CLOSE& io_pFnClose,
                     PFN_PROBE_DEVICEIOCONTROL& io_pFnDeviceIoControl);

    /** Reads what every link has in its section: the library's name and the port. */
    void ReadConfiguration(CConfigFile& o_Config);

    /**
     * Loads the library whose name the configuration gave and finds its entry points. Those that it
     * lacks become null; it stays loaded all the same, and the trace gets the record's line.
     */
    template <typename PFN_INIT>
    void LoadProbeLibrary(PFN_INIT& o_pFnInit)
    {
        wchar_t l_awszLibrary[sizeof(m_szDriverName)];
        cecore::Widen(l_awszLibrary, m_szDriverName);
        bool l_bWhole = LoadDriver(l_awszLibrary).ulStatus == 0;
        if (l_bWhole) {
            l_bWhole = cecore::GetProcAddressInto(m_hDriverDll, m_Link.pwszInit, o_pFnInit);
            l_bWhole &= cecore::GetProcAddressInto(m_hDriverDll, m_Link.pwszClose, m_pFnClose);
            l_bWhole &= cecore::GetProcAddressInto(m_hDriverDll, m_Link.pwszDeviceIoControl,
                                                   m_pFnDeviceIoControl);
        }
        if (!l_bWhole) {
            m_Link.CreateError.Emit();
        }
    }

    /** Opens the link with its port and the further arguments of its entry point. */
    template <typename PFN_INIT, typename... Args>
    S_RESULT InitLink(PFN_INIT i_pFnInit, const Args&... i_Args)
    {
        const CDriverLock l_Lock(*this);
        S_RESULT l_Result = MakeResult(m_Link.ulDriverType, TORNVAL_STEP_INIT, 1);
        if (i_pFnInit != nullptr && i_pFnInit(m_ucPortNumber, i_Args...) != 0) {
            m_bInitialised = 1;
            l_Result.ulStatus = 0;
        } else if (i_pFnInit != nullptr) {
            cecore::NoteReason(cecore::GetLastError(), "%S of %s does not open port %d",
                               m_Link.pwszInit, m_szDriverName, int32_t{m_ucPortNumber});
            m_Link.InitError.Emit(m_ucPortNumber);
        }
        return l_Result;
    }

private:
    S_RESULT GetResultGetRollingCmde(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                     int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData);
    bool FetchReply(uint32_t i_ulNbReturnByte, char* o_pcRawData, S_RESULT& io_Result);

    const S_PROBE_LINK& m_Link;
    PFN_PROBE_CLOSE& m_pFnClose;
    PFN_PROBE_DEVICEIOCONTROL& m_pFnDeviceIoControl;
    uint8_t m_ucPortNumber = 0;
};

} // namespace tornval
