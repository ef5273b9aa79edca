// The command side of the board: life of the driver, frames, sends, blocking exchanges,
// initialisation.

#include <algorithm>
#include <new>

#include "board/IntMeasDriver.h"
#include "platform/Clock.h"
#include "platform/Device.h"

namespace tornval {

uint32_t CIntMeasDriver::s_ulDriverCounter = 0;
std::atomic<uint8_t> CIntMeasDriver::already_init{0};
int32_t CIntMeasDriver::s_lInstanceCount = 0;

CIntMeasDriver::CIntMeasDriver()
{
    ++s_lInstanceCount;
    ScaleInBulk<CIntMeasDriver>(this);
    m_ulDriverType = TORNVAL_DRIVER_BOARD;
    SetIdentity(TakeDriverNumber(), 4000, "IM");
    CreateSyncEvent(&m_hSync, &m_Frame);
}

CIntMeasDriver::~CIntMeasDriver()
{
    --s_lInstanceCount;
    if (m_hSync != 0) {
        cecore::CloseHandle(m_hSync);
    }
    if (m_hDevice != 0) {
        cecore::CloseHandle(m_hDevice);
    }
    m_ppVoieData.reset();
    if (s_lInstanceCount <= 0) {
        s_lInstanceCount = 0;
        already_init = 0;
    }
}

const S_EXCHANGE_TEXTS& CIntMeasDriver::Texts() const
{
    static constexpr S_EXCHANGE_TEXTS s_Texts = {
        .SendCmde = {INFO_GENERAL_LEVEL, L"CIntMeasDriver::SendCommand> CmdeID: %02X"},
        .SendSize = {ERROR_LEVEL, L"CIntMeasDriver::SendCommand> ERROR size: %u"},
        .FetchStart = {INFO_LEVEL, L"CIntMeasDriver::GetResult>"},
        .FetchIoError = {ERROR_LEVEL,
                         L"CIntMeasDriver::GetResult> device io error (Last Error %ld)"},
        .FetchStatus = {ERROR_LEVEL, L"CIntMeasDriver::GetResult> driver status: %d"},
        .FetchHead = {ERROR_LEVEL, L"CIntMeasDriver::GetResult> erreur sur la taille ent\u00EAte: "
                                   L"Taille: %d Attendue: %d"},
        .FetchCmde = {INFO_GENERAL_LEVEL, L"CIntMeasDriver::GetResult> cmde ID: %d"},
    };
    return s_Texts;
}

bool CIntMeasDriver::HasTransport() const
{
    return m_hDevice != 0;
}

bool CIntMeasDriver::DeviceIo(uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize,
                              void* o_pOut, uint32_t i_ulOutSize, uint32_t* o_pulReturned)
{
    return cecore::DeviceIoControl(m_hDevice, i_ulCode, i_pIn, i_ulInSize, o_pOut, i_ulOutSize,
                                   o_pulReturned);
}

void CIntMeasDriver::FillFrame(uint8_t i_ucFill, uint16_t i_usIdField, uint8_t i_ucCanal,
                               uint16_t i_usSize, uint8_t i_ucCmdeID, uint32_t i_ulTimeout,
                               uint8_t i_ucParam, S_DATA* o_pFrame)
{
    if (o_pFrame == nullptr) {
        return;
    }
    uint8_t* l_pucFrame = o_pFrame->aucBytes;
    // The largest sizes are refused before a send; here they must not reach the event's handle.
    std::memset(l_pucFrame, i_ucFill,
                std::min<uint32_t>(i_usSize + k_ulFrameHeadSize, RS_BLOCK_EVENT_OFFSET));
    wire::WriteLe16(l_pucFrame + RS_FRAME_ID_OFFSET, i_usIdField);
    wire::WriteLe16(l_pucFrame + RS_FRAME_SIZE_OFFSET, i_usSize);
    wire::WriteLe16(l_pucFrame + RS_FRAME_TIMEOUT_OFFSET, static_cast<uint16_t>(i_ulTimeout / 100));
    l_pucFrame[RS_FRAME_CANAL_OFFSET] = i_ucCanal;
    l_pucFrame[RS_FRAME_CMDE_OFFSET] = i_ucCmdeID;
    l_pucFrame[RS_FRAME_CMDE_OFFSET + 1] = 0;
    l_pucFrame[RS_FRAME_PARAM_OFFSET] = i_ucParam;
}

void CIntMeasDriver::PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                                     uint32_t i_ulTimeout, uint8_t i_ucParam, S_DATA* o_pFrame)
{
    FillFrame(0xFF, i_ulCmdeID, i_ucCanal, i_usSize, i_ulCmdeID, i_ulTimeout, i_ucParam, o_pFrame);
}

void CIntMeasDriver::PrepareCommandeInit(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                                         uint32_t i_ulTimeout, S_DATA* o_pFrame)
{
    if (o_pFrame == nullptr) {
        return;
    }
    PrepareCommande(i_ucCanal, i_usSize, i_ulCmdeID, i_ulTimeout, 0, o_pFrame);
    uint8_t* l_pucData = o_pFrame->aucBytes + RS_FRAME_DATA_OFFSET;
    Trace(INFO_GENERAL_LEVEL, L"CIntMeasDriver::PrepareCommandeInit> period: %d",
          m_ulAcquisitionPeriod);
    wire::WriteLe32(l_pucData, m_ulAcquisitionPeriod);
    Trace(INFO_GENERAL_LEVEL, L"CIntMeasDriver::PrepareCommandeInit> nb channel: %d",
          m_ulNbChannel);
    wire::WriteLe32(l_pucData + 4, m_ulNbChannel);
    for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
        Trace(INFO_GENERAL_LEVEL, L"CIntMeasDriver::PrepareCommandeInit> voie: %d", m_pulVoies[i]);
        wire::WriteLe32(l_pucData + 8 + static_cast<size_t>(4) * i, m_pulVoies[i]);
    }
}

void CIntMeasDriver::PrepareCmdeMesureInterne(uint8_t i_ucCanal, uint16_t i_usSize,
                                              uint8_t i_ulCmdeID, uint32_t i_ulTimeout,
                                              S_DATA* o_pFrame)
{
    Trace(INFO_LEVEL, L"SIntMeasDriver::PrepareCmdeMesureInterne> canal: %d voie: %d", i_ucCanal,
          m_lVoieMesure);
    PrepareCommande(i_ucCanal, i_usSize, i_ulCmdeID, i_ulTimeout, 0, o_pFrame);
    if (o_pFrame != nullptr) {
        wire::WriteLe32(o_pFrame->aucBytes + RS_FRAME_DATA_OFFSET,
                        static_cast<uint32_t>(m_lVoieMesure));
    }
}

void CIntMeasDriver::PrepareCmdeCalibration(uint8_t i_ucCanal, uint16_t i_usSize,
                                            uint8_t i_ulCmdeID, uint32_t i_ulTimeout,
                                            S_DATA* o_pFrame)
{
    PrepareCmdeBurst(i_ucCanal, i_usSize, i_ulCmdeID, i_ulTimeout, m_ucCalibration, o_pFrame);
}

void CIntMeasDriver::PrepareCmdeBurst(uint8_t i_ucCanal, uint16_t i_usSize, uint8_t i_ulCmdeID,
                                      uint32_t i_ulTimeout, uint8_t i_ucBurst, S_DATA* o_pFrame)
{
    PrepareCommande(i_ucCanal, i_usSize, i_ulCmdeID, i_ulTimeout, 0, o_pFrame);
    if (o_pFrame != nullptr) {
        o_pFrame->aucBytes[RS_FRAME_DATA_OFFSET] = i_ucBurst;
    }
}

bool CIntMeasDriver::BuildFrame(const S_SEND_STRUCT& i_Cmde, uint8_t i_ucCanal, S_DATA* o_pFrame)
{
    const uint8_t l_ucCmdeID = i_Cmde.CmdeID;
    const auto l_usSize = static_cast<uint16_t>(GetSize(i_Cmde));
    const uint32_t l_ulTimeout = GetTimeout(i_Cmde);
    const bool l_bBoardCmde = l_ucCmdeID == 0 || (l_ucCmdeID >= 208 && l_ucCmdeID <= 214);
    if (i_ucCanal == 3 && (l_bBoardCmde || l_ucCmdeID == 3)) {
        PrepareCmdeBurst(i_ucCanal, l_usSize, l_ucCmdeID, l_ulTimeout, m_ucBurst, o_pFrame);
        return true;
    }
    if (i_ucCanal != 0 || !l_bBoardCmde) {
        return false;
    }
    switch (l_ucCmdeID) {
    case 0:
        PrepareCmdeCalibration(i_ucCanal, l_usSize, l_ucCmdeID, l_ulTimeout, o_pFrame);
        break;
    case ACQUSITION_INIT:
        PrepareCommandeInit(i_ucCanal, l_usSize, l_ucCmdeID, l_ulTimeout, o_pFrame);
        break;
    case MEASURE_INTERNE:
        PrepareCmdeMesureInterne(i_ucCanal, l_usSize, l_ucCmdeID, l_ulTimeout, o_pFrame);
        break;
    default:
        PrepareCommande(i_ucCanal, l_usSize, l_ucCmdeID, l_ulTimeout, i_Cmde.ucCmdeParam, o_pFrame);
        break;
    }
    return true;
}

S_RESULT CIntMeasDriver::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                     const void* i_pcData, uint8_t i_ucCanal)
{
    return SendCommand(i_pCmde, o_pReceiveStruct, i_pcData, &m_usCmdeID, &m_Frame, &m_ulCmdeStatus,
                       i_ucCanal);
}

S_RESULT CIntMeasDriver::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                     const void* i_pcData, uint16_t* o_pusCmdeID, S_DATA* io_pFrame,
                                     uint32_t* o_pulStatus, uint8_t i_ucCanal)
{
    const S_EXCHANGE_TEXTS& l_Texts = Texts();
    const CDriverLock l_Lock(*this);
    l_Texts.SendStart.Emit(i_ucCanal);
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_SEND);
    if (!HasTransport() || i_pCmde == nullptr || o_pReceiveStruct == nullptr ||
        o_pusCmdeID == nullptr || io_pFrame == nullptr || o_pulStatus == nullptr) {
        l_Result.ulStatus = 1;
        l_Texts.SendArgument.Emit();
        return l_Result;
    }
    FillReceive(o_pReceiveStruct, 0, 0);
    *o_pusCmdeID = i_pCmde->CmdeID;
    l_Texts.SendCmde.Emit(i_pCmde->CmdeID);

    const uint32_t l_ulSize = GetSize(*i_pCmde);
    if (!BuildFrame(*i_pCmde, i_ucCanal, io_pFrame)) {
        l_Result.ulStatus = 1;
        l_Texts.SendUnknown.Emit();
        l_Texts.SendRefused.Emit();
        return l_Result;
    }
    if (l_ulSize > RS_FRAME_MAX_SIZE) {
        l_Result.ulStatus = 1;
        l_Texts.SendSize.Emit(l_ulSize);
        return l_Result;
    }
    uint8_t* l_pucFrame = io_pFrame->aucBytes;
    if (i_pcData != nullptr && l_ulSize > k_ulSubHeadSize) {
        std::memcpy(l_pucFrame + RS_FRAME_DATA_OFFSET, i_pcData, l_ulSize - k_ulSubHeadSize);
    }
    wire::WriteLe16(l_pucFrame + RS_FRAME_CRC_OFFSET,
                    m_Crc16.ComputeCrc16(l_pucFrame + RS_FRAME_ID_OFFSET,
                                         l_ulSize + RS_FRAME_OUTER_HEAD - RS_FRAME_ID_OFFSET));

    const uint32_t l_ulBefore = cecore::GetTickCount();
    l_Texts.SendBefore.Emit(l_ulBefore);
    if (l_Texts.bDumpFrame && IsTraceActive()) {
        TraceFrame(*io_pFrame);
    }
    uint32_t l_ulReturned = 0;
    *o_pulStatus = 0;
    // An earlier command whose fetch gave up may have been answered since: its signal is not this
    // one's.
    cecore::WaitForSingleObject(wire::ReadLe32(l_pucFrame + RS_BLOCK_EVENT_OFFSET), 0);
    const bool l_bSent = DeviceIo(IOCTL_RS_SEND_COMMAND, l_pucFrame, RS_BLOCK_SIZE, o_pulStatus,
                                  sizeof(*o_pulStatus), &l_ulReturned);
    const uint32_t l_ulLastError = cecore::GetLastError();
    const uint32_t l_ulAfter = cecore::GetTickCount();
    l_Texts.SendAfter.Emit(l_ulAfter, l_ulAfter - l_ulBefore);
    if (!l_bSent) {
        l_Texts.SendFailed.Emit();
        l_Result.ulStatus = 1;
        l_Result.ulLastError = l_ulLastError;
    } else if (*o_pulStatus != 0) {
        l_Texts.SendStatus.Emit(*o_pulStatus);
        l_Result.ulFwStatus = *o_pulStatus;
        l_Result.ulStep = TORNVAL_STEP_REFUSED;
        l_Result.ulStatus = 1;
    } else {
        l_Texts.SendDone.Emit();
    }
    const uint32_t l_ulWord = *o_pulStatus & 0xFFFFU;
    FillReceive(o_pReceiveStruct, l_ulWord | (l_ulWord << 16), k_ulRawResultSize);
    return l_Result;
}

void CIntMeasDriver::TraceFrame(const S_DATA& i_Frame) const
{
    static constexpr size_t k_ulDumped = 500;
    char l_aszText[k_ulDumped * 3 + 1];
    for (size_t i = 0; i < k_ulDumped; ++i) {
        cecore::FormatNarrow(l_aszText + i * 3, 4, "%02X ", i_Frame.aucBytes[i]);
    }
    Trace(INFO_LEVEL, L"Data: %S", l_aszText);
}

void CIntMeasDriver::CreateSyncEvent(cecore::Handle* io_phEvent, S_DATA* o_pFrame)
{
    const CDriverLock l_Lock(*this);
    if (*io_phEvent != 0) {
        return;
    }
    const cecore::Handle l_hEvent = cecore::CreateEventW(false, false);
    if (l_hEvent == 0 || l_hEvent == cecore::INVALID_HANDLE_VALUE) {
        return;
    }
    *io_phEvent = l_hEvent;
    if (o_pFrame != nullptr) {
        wire::WriteLe32(o_pFrame->aucBytes + RS_BLOCK_EVENT_OFFSET, l_hEvent);
    }
}

S_RESULT CIntMeasDriver::RunBlockingExchange(S_SEND_STRUCT i_Cmde, const void* i_pcData,
                                             uint8_t i_ucCanal, int32_t* o_plProcessedDataSize,
                                             int32_t* o_plProcessedData, uint8_t i_bCompensation,
                                             S_SELECTION i_Selection)
{
    // Private to this call, so that it shares neither frame nor event with another: several can be
    // under way at once.
    const std::unique_ptr<S_DATA> l_pFrame(new (std::nothrow) S_DATA());
    const std::unique_ptr<S_DATA> l_pAnswer(new (std::nothrow) S_DATA());
    if (l_pFrame == nullptr || l_pAnswer == nullptr) {
        return MakeResult(m_ulDriverType, TORNVAL_STEP_NONE, 1);
    }
    uint32_t l_ulStatus = 0;
    uint16_t l_usCmdeID = 0;
    char l_cRaw = 0;
    cecore::CUniqueHandle l_hEvent;
    CreateSyncEvent(l_hEvent.Receive(), l_pFrame.get());
    S_RECEIVE_STRUCT l_Receive{};
    S_RESULT l_Result{};
    {
        // One hold for both, so that no other thread selects something else in between.
        const CDriverLock l_Lock(*this);
        if (i_Selection.pfnSelect != nullptr) {
            i_Selection.pfnSelect(*this, i_Selection.ulValue);
        }
        l_Result = SendCommand(&i_Cmde, &l_Receive, i_pcData, &l_usCmdeID, l_pFrame.get(),
                               &l_ulStatus, i_ucCanal);
    }
    if (l_Result.ulStatus != 0) {
        return l_Result;
    }
    return GetResult(GetNbReturnByte(l_Receive), &l_cRaw, o_plProcessedDataSize, o_plProcessedData,
                     m_ulTimeout, l_pFrame.get(), &l_usCmdeID, l_pAnswer.get(), i_bCompensation);
}

S_RESULT CIntMeasDriver::RunBlockingCmde(uint8_t i_ucCmdeID, const void* i_pcData,
                                         uint32_t i_ulSize, int32_t* o_plData, uint8_t i_ucCanal,
                                         uint8_t i_bCompensation, S_SELECTION i_Selection)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::CmdeBloquanteSynchrone>");
    int32_t l_lCount = 0;
    return RunBlockingExchange(MakeCommand(i_ucCmdeID, m_ulTimeout, i_ulSize), i_pcData, i_ucCanal,
                               &l_lCount, o_plData, i_bCompensation, i_Selection);
}

S_RESULT CIntMeasDriver::CmdeBloquanteSynchrone(uint8_t i_ucCmdeID, const void* i_pcData,
                                                uint32_t i_ulSize, int32_t* o_plData,
                                                uint8_t i_ucCanal, uint8_t i_bCompensation)
{
    return RunBlockingCmde(i_ucCmdeID, i_pcData, i_ulSize, o_plData, i_ucCanal, i_bCompensation,
                           {});
}

S_RESULT CIntMeasDriver::GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie,
                                           uint8_t i_bCompensation, uint32_t)
{
    const auto l_fnSelect = [](CIntMeasDriver& io_Driver, uint32_t i_ulValue) {
        io_Driver.m_lVoieMesure = static_cast<int32_t>(i_ulValue);
    };
    return RunBlockingCmde(MEASURE_INTERNE, nullptr, 8, o_plValue, 0, i_bCompensation,
                           {l_fnSelect, i_ulVoie});
}

S_RESULT CIntMeasDriver::CurrentGeneratorBurst(uint32_t i_ulBurst)
{
    const auto l_fnSelect = [](CIntMeasDriver& io_Driver, uint32_t i_ulValue) {
        io_Driver.m_ucBurst = static_cast<uint8_t>(i_ulValue);
    };
    int32_t l_lWord = 0;
    return RunBlockingCmde(0, nullptr, 5, &l_lWord, 3, 1, {l_fnSelect, i_ulBurst});
}

S_RESULT CIntMeasDriver::SendCalibrationFlag()
{
    int32_t l_lWord = 0;
    return CmdeBloquanteSynchrone(0, nullptr, 5, &l_lWord, 0, 1);
}

S_RESULT CIntMeasDriver::Init()
{
    if (IsAlreadyInit()) {
        return {};
    }
    SendCommand210();
    SendCalibrationFlag();
    return InitIMB();
}

void CIntMeasDriver::SendCommand210()
{
    S_SEND_STRUCT l_Cmde = MakeCommand(210, m_ulTimeout, k_ulSubHeadSize);
    S_RECEIVE_STRUCT l_Receive{};
    if (SendCommand(&l_Cmde, &l_Receive, nullptr, 0).ulStatus != 0) {
        return;
    }
    const uint32_t l_ulSize = GetNbReturnByte(l_Receive);
    const std::unique_ptr<char[]> l_pcRaw(new (std::nothrow) char[l_ulSize + 2]());
    if (l_pcRaw != nullptr) {
        GetResult(l_ulSize, l_pcRaw.get(), nullptr, nullptr, m_ulTimeout, 1);
    }
}

S_RESULT CIntMeasDriver::InitIMB()
{
    const S_EXCHANGE_TEXTS& l_Texts = Texts();
    l_Texts.InitStart.Emit(already_init.load());
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_INIT);
    if (IsAlreadyInit()) {
        return l_Result;
    }
    if (NeedsDeviceForInit() && !HasTransport()) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    S_SEND_STRUCT l_Cmde = MakeCommand(ACQUSITION_INIT, m_ulTimeout, 24);
    S_RECEIVE_STRUCT l_Receive{};
    l_Result = SendCommand(&l_Cmde, &l_Receive, nullptr, 0);
    if (l_Result.ulStatus != 0) {
        return l_Result;
    }
    const uint32_t l_ulSize = GetNbReturnByte(l_Receive);
    const std::unique_ptr<char[]> l_pcRaw(new (std::nothrow) char[l_ulSize]);
    const std::unique_ptr<int32_t[]> l_plData(new (std::nothrow) int32_t[l_ulSize + 2]);
    if (l_pcRaw == nullptr || l_plData == nullptr) {
        if (l_pcRaw == nullptr) {
            l_Texts.InitAllocation.Emit();
        }
        l_Result.ulStatus = 1;
        return l_Result;
    }
    int32_t l_lCount = 0;
    l_Result = GetResult(l_ulSize, l_pcRaw.get(), &l_lCount, l_plData.get(), m_ulTimeout, 1);
    if (l_Result.ulStatus == 0) {
        m_bInitialised = 1;
        l_Texts.InitDone.Emit();
    } else {
        l_Texts.InitFailed.Emit();
    }
    return l_Result;
}

} // namespace tornval
