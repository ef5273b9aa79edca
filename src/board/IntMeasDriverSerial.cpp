#include "board/IntMeasDriverSerial.h"

#include <memory>
#include <new>

#include "driver/ModuleFolder.h"
#include "platform/Clock.h"
#include "platform/Reason.h"
#include "support/Numbers.h"

namespace tornval {
namespace {

/** Line of the instrument that holds the board in reset while it is 0. */
constexpr int32_t k_lResetPin = 162;
constexpr uint32_t k_ulResetTime = 1000;

} // namespace

CIntMeasDriverSerial::CIntMeasDriverSerial()
{
    ScaleInBulk<CIntMeasDriver>(this);
    m_pKind = &Kind();
}

CIntMeasDriverSerial::~CIntMeasDriverSerial()
{
    try {
        CIntMeasDriverSerial::Close();
    } catch (...) {
        // A link library threw. Its link is lost, and there is nobody to tell.
        Trace(ERROR_LEVEL, L"CIntMeasDriverSerial::Close> ERROR exception");
    }
    CSerialDriver::ReleaseSerialDriver();
}

const S_WIRE_KIND& CIntMeasDriverSerial::Kind()
{
    using T = CIntMeasDriverSerial;
    static constexpr S_COMMAND s_aCommands[] = {
        {ACQUSITION_INIT, E_CANALS::BOARD, &T::PrepareCommandeInit, &T::DecodeInit, 112},
        {ACQUISITION_START, E_CANALS::BOARD, &T::PrepareCmdeParam},
        {ACQUISITION_RESET, E_CANALS::BOARD, &T::PrepareCmdeParam},
        {ACQUISITION_UPLOAD, E_CANALS::BOARD, &T::PrepareCmdeParam,
         &T::GetResult_ACQUISITION_UPLOAD},
        {MEASURE_INTERNE, E_CANALS::BOARD, &T::PrepareCmdeMesureInterne,
         &T::GetResult_MEASURE_INTERNE, k_ulLeastMeasure},
        {CALIBRATION_WRITE, E_CANALS::BOARD, &T::PrepareCmdeParam},
        {CALIBRATION_COMMIT, E_CANALS::BOARD, &T::PrepareCmdeParam},
        {CALIBRATION_OPEN, E_CANALS::BOARD, &T::PrepareCmdeParam},
    };
    static constexpr S_EXCHANGE_TEXTS s_Texts = [] {
        S_EXCHANGE_TEXTS l_Texts = k_SerialLinkTexts;
        l_Texts.LoadError = {ERROR_LEVEL, L"CIntMeasDriverSerial::CreateDriverInstance> "
                                          L"LoadDriver: %s (last error: %ld)\n"};
        l_Texts.SendArgument = {ERROR_LEVEL,
                                L"CIntMeasDriverSerial::SendCommand> allocation error"};
        l_Texts.SendCmde = {INFO_GENERAL_LEVEL, L"CIntMeasDriverSerial::SendCommand> cmde=%02X"};
        l_Texts.SendUnknown = {ERROR_LEVEL,
                               L"CIntMeasDriverSerial::SendCommand> ERROR unknown cmde"};
        l_Texts.SendRefused = {ERROR_LEVEL, L"CIntMeasDriverSerial::SendCommand> Unknown commad"};
        l_Texts.SendSize = {ERROR_LEVEL, L"CIntMeasDriverSerial::SendCommand> ERROR size: %u"};
        l_Texts.SendFailed = {ERROR_LEVEL,
                              L"CIntMeasDriverSerial::SendCommand> ERROR echec du DeviceIO"};
        l_Texts.SendStatus = {ERROR_LEVEL,
                              L"CIntMeasDriverSerial::SendCommand> ERROR echec de la cmde "
                              L"avec status: %d"};
        l_Texts.SendDone = {INFO_LEVEL, L"CIntMeasDriverSerial::SendCommand> OK"};
        l_Texts.FetchStart = {INFO_LEVEL, L"CIntMeasDriverSerial::GetResult>"};
        l_Texts.FetchArgument = {ERROR_LEVEL, L"CIntMeasDriverSerial::GetResult> ERROR:  NULL"};
        l_Texts.FetchTimeout = {ERROR_LEVEL,
                                L"CIntMeasDriverSerial::GetResult> ERROR:  timeout ou event "
                                L"detruit (cmdeid=%02X)"};
        l_Texts.FetchRawNull = {ERROR_LEVEL,
                                L"CIntMeasDriverSerial::GetResult> ERROR:  o_pcRawData is "
                                L"NULL (cmdeid=%02X)"};
        l_Texts.FetchIoCmde = {ERROR_LEVEL,
                               L"CIntMeasDriverSerial::GetResult> device io error(cmdeid=%02X)"};
        l_Texts.FetchStatusCmde = {ERROR_LEVEL, L"CIntMeasDriverSerial::GetResult> cmde error avec "
                                                L"status: %d (cmdeid=%02X)"};
        l_Texts.FetchHeadCmde = {ERROR_LEVEL,
                                 L"CIntMeasDriverSerial::GetResult> taille entete "
                                 L"insuffisante (taille: %d  attendue: %d) (cmdeid=%02X)"};
        l_Texts.FetchError = {ERROR_LEVEL, L"CIntMeasDriverSerial::GetResult> ERROR (cmdeid=%d)"};
        l_Texts.FetchCmde = {INFO_GENERAL_LEVEL, L"CIntMeasDriverSerial::GetResult> CmdeID: %02X"};
        l_Texts.FetchPlain = {INFO_LEVEL, L"CIntMeasDriverSerial::GetResult> OK (cmdeid=%02X)"};
        l_Texts.FetchUnknown = {ERROR_LEVEL,
                                L"CIntMeasDriverSerial::GetResult> ERROR unknown command"};
        return l_Texts;
    }();
    static constexpr S_WIRE_KIND s_Kind = {.Transport = {static_cast<PFN_IS_THERE>(&T::HasLink),
                                                         static_cast<PFN_CONTROL>(&T::ControlLink)},
                                           .Commands = s_aCommands,
                                           .bDeviceFile = false,
                                           .bDumpFrame = true,
                                           .Texts = s_Texts};
    return s_Kind;
}

S_RESULT CIntMeasDriverSerial::CreateDriverInstance()
{
    const CDriverLock l_Lock(*this);
    Trace(INFO_LEVEL, L"CIntMeasDriverSerial::CreateDriverInstance>");
    return OpenLink(0);
}

S_RESULT CIntMeasDriverSerial::OpenLink(uint32_t bUseExtended)
{
    ReadConfiguration();
    wchar_t l_awszName[k_ulMaxPath];
    cecore::Widen(l_awszName, m_szDriverName);
    if (m_pSerialDriver == nullptr || m_pSerialDriver->LoadDriver(l_awszName) != 1) {
        S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_NONE, 1);
        l_Result.ulLastError = cecore::GetLastError();
        m_pKind->Texts.LoadError.Emit(l_awszName, l_Result.ulLastError);
        return l_Result;
    }
    return InitModule(bUseExtended);
}

S_RESULT CIntMeasDriverSerial::InitModule(uint32_t bUseExtended)
{
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_INIT);
    Trace(INFO_LEVEL,
          L"CIntMeasDriverSerial::InitModule> Use Extended API: %d SerialDriver: %08X "
          L"DllWrapperInit=%d",
          bUseExtended, static_cast<const void*>(m_pSerialDriver), m_bDllWrapperInit);
    if (m_bDllWrapperInit == 1) {
        return l_Result;
    }
    if (m_pSerialDriver == nullptr) {
        l_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"CIntMeasDriverSerial::InitModule> ERROR m_pSerialDriver NULL");
    } else {
        const uint32_t l_ulOpen =
            bUseExtended == 0
                ? m_pSerialDriver->RS_Init(m_ucSerialPort, RS_LINK_CONSTANT, m_ulBaudRate,
                                           m_ulDataBits, m_ulLinkWord1, m_ulLinkWord2, 0U)
                : m_pSerialDriver->RS_Init_Ex(m_ucSerialPort, RS_LINK_CONSTANT, m_ulBaudRate,
                                              m_ulDataBits, m_ulLinkWord1, m_ulLinkWord2, 0U,
                                              &m_ulLinkHandle);
        if (l_ulOpen != 0) {
            m_bDllWrapperInit = 1;
        } else {
            l_Result.ulFwStatus = 1;
            cecore::NoteReason(cecore::GetLastError(), "port %u did not open at %u baud",
                               m_ucSerialPort, m_ulBaudRate);
            Trace(ERROR_LEVEL, L"CIntMeasDriverSerial::InitModule> m_pFn_RS_Init return FALSE");
        }
    }
    Trace(INFO_LEVEL, L"CIntMeasDriverSerial::InitModule> END status: %d", l_Result.ulStatus);
    return l_Result;
}

bool CIntMeasDriverSerial::ControlLink(const S_CONTROL& i_Control)
{
    return m_pSerialDriver->RS_DeviceIoControl(RS_LINK_CONSTANT, i_Control.ulCode, i_Control.pIn,
                                               i_Control.ulInSize, i_Control.pOut,
                                               i_Control.ulOutSize, i_Control.pulReturned, 0U) != 0;
}

void CIntMeasDriverSerial::GetResult_ACQUSITION_INIT(uint32_t i_ulNbReturnByte,
                                                     const S_DATA* i_pAnswer, S_RESULT& o_Result)
{
    Trace(INFO_LEVEL, L"CIntMeasDriverSerial::GetResult_ACQUSITION_INIT>");
    CIntMeasDriver::GetResult_ACQUSITION_INIT(i_ulNbReturnByte, i_pAnswer, o_Result);
}

S_RESULT CIntMeasDriverSerial::SendCalibrationFlag()
{
    return MakeResult(m_ulDriverType, TORNVAL_STEP_NONE);
}

S_RESULT CIntMeasDriverSerial::Close()
{
    const CDriverLock l_Lock(*this);
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_CLOSE);
    if (m_pSerialDriver == nullptr) {
        Trace(ERROR_LEVEL, L"CIntMeasDriverSerial::Close> ERROR m_pFn_RS_Close is NULL");
        l_Result.ulStatus = 1;
    } else if (m_bDllWrapperInit != 1) {
        Trace(INFO_LEVEL, L"CIntMeasDriverSerial::Close> OK init not be done");
    } else {
        Trace(INFO_GENERAL_LEVEL, L"CIntMeasDriverSerial::Close>");
        if (m_pSerialDriver->RS_Close_Ex(m_ulLinkHandle) != 0) {
            Trace(INFO_LEVEL, L"CIntMeasDriverSerial::Close> OK close done ");
            m_bDllWrapperInit = 0;
        } else {
            l_Result.ulStatus = 1;
            Trace(ERROR_LEVEL, L"CIntMeasDriverSerial::Close> ERROR m_pFn_RS_Close return FALSE");
        }
    }
    return l_Result;
}

S_RESULT CIntMeasDriverSerial::SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB,
                                                uint32_t i_ulNbCoeff)
{
    if (i_pulIndex == nullptr || i_pdA == nullptr || i_pdB == nullptr || i_ulNbCoeff == 0) {
        return MakeResult(m_ulDriverType, TORNVAL_STEP_NONE, 1);
    }
    int32_t l_lWord = 0;
    S_RESULT l_Result =
        CmdeBloquanteSynchrone(CALIBRATION_OPEN, nullptr, k_ulSubHeadSize, &l_lWord, 0, 1);
    uint32_t l_ulWritten = 0;
    for (uint32_t i = 0; i < i_ulNbCoeff && l_Result.ulStatus == 0; ++i) {
        // The size counts the sub-head, so twelve of the bytes travel.
        uint8_t l_aucPayload[16] = {};
        wire::WriteLe32(l_aucPayload, i_pulIndex[i]);
        wire::WriteLe32(l_aucPayload + 4, static_cast<uint32_t>(TruncateToInt32(i_pdA[i])));
        wire::WriteLe32(l_aucPayload + 8, static_cast<uint32_t>(TruncateToInt32(i_pdB[i])));
        l_Result = CmdeBloquanteSynchrone(CALIBRATION_WRITE, l_aucPayload, sizeof(l_aucPayload),
                                          &l_lWord, 0, 1);
        l_ulWritten += l_Result.ulStatus == 0 ? 1 : 0;
    }
    if (l_Result.ulStatus != 0) {
        cecore::NoteReason(0, "calibration: %u of %u pairs were written, none is committed",
                           l_ulWritten, i_ulNbCoeff);
        return l_Result;
    }
    l_Result = CmdeBloquanteSynchrone(CALIBRATION_COMMIT, nullptr, k_ulSubHeadSize, &l_lWord, 0, 1);
    if (l_Result.ulStatus != 0) {
        cecore::NoteReason(0, "calibration: all %u pairs were written, they are not committed",
                           i_ulNbCoeff);
        return l_Result;
    }
    for (const int32_t l_lValue : {0, 1}) {
        // What the start of the program leaves; without a program there is nothing to start.
        ::SetLastError(0);
        if (TGPIO(k_lResetPin, l_lValue) != 1) {
            l_Result.ulStatus = 1;
            l_Result.ulLastError = cecore::GetLastError();
            cecore::NoteReason(l_Result.ulLastError,
                               "calibration: all %u pairs are written and committed, the board was "
                               "not restarted",
                               i_ulNbCoeff);
            break;
        }
        if (l_lValue == 0) {
            cecore::Sleep(k_ulResetTime);
        }
    }
    return l_Result;
}

} // namespace tornval
