// Life of the driver, its commands and their frames, initialisation.

#include <algorithm>
#include <new>

#include "board/IntMeasDriver.h"
#include "platform/Reason.h"

namespace tornval {

uint32_t CIntMeasDriver::s_ulDriverCounter = 0;
std::atomic<uint8_t> CIntMeasDriver::already_init{0};
int32_t CIntMeasDriver::s_lInstanceCount = 0;

CIntMeasDriver::CIntMeasDriver() : m_pKind(&Kind())
{
    ++s_lInstanceCount;
    ScaleInBulk<CIntMeasDriver>(this);
    m_ulDriverType = TORNVAL_DRIVER_BOARD;
    SetIdentity(s_ulDriverCounter++, 4000, "IM");
    CreateSyncEvent(&m_hSync, m_Frame.Get());
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
    if (s_lInstanceCount <= 0) {
        s_lInstanceCount = 0;
        already_init = 0;
    }
}

const S_WIRE_KIND& CIntMeasDriver::Kind()
{
    using T = CIntMeasDriver;
    static constexpr S_COMMAND s_aCommands[] = {
        {CALIBRATION_FLAG, E_CANALS::BOTH, &T::PrepareCmdeCalibration},
        {GENERATOR_BURST, E_CANALS::GENERATOR, &T::PrepareCmdeBurst},
        {ACQUSITION_INIT, E_CANALS::BOTH, &T::PrepareCommandeInit, &T::DecodeInit, 181},
        {ACQUISITION_START, E_CANALS::BOTH, &T::PrepareCmdeParam},
        {ACQUISITION_RESET, E_CANALS::BOTH, &T::PrepareCmdeParam},
        {ACQUISITION_UPLOAD, E_CANALS::BOTH, &T::PrepareCmdeParam,
         &T::GetResult_ACQUISITION_UPLOAD},
        {MEASURE_INTERNE, E_CANALS::BOTH, &T::PrepareCmdeMesureInterne,
         &T::GetResult_MEASURE_INTERNE, k_ulLeastMeasure},
        {CALIBRATION_WRITE, E_CANALS::BOTH, &T::PrepareCmdeParam},
        {CALIBRATION_COMMIT, E_CANALS::BOTH, &T::PrepareCmdeParam},
    };
    static constexpr S_WIRE_KIND s_Kind = {
        .Transport = {&T::HasDevice, &T::ControlDevice},
        .Commands = s_aCommands,
        .bDeviceFile = true,
        .bDumpFrame = false,
        .Texts = {
            .SendCmde = {INFO_GENERAL_LEVEL, L"CIntMeasDriver::SendCommand> CmdeID: %02X"},
            .SendSize = {ERROR_LEVEL, L"CIntMeasDriver::SendCommand> ERROR size: %u"},
            .FetchStart = {INFO_LEVEL, L"CIntMeasDriver::GetResult>"},
            .FetchIoError = {ERROR_LEVEL,
                             L"CIntMeasDriver::GetResult> device io error (Last Error %ld)"},
            .FetchStatus = {ERROR_LEVEL, L"CIntMeasDriver::GetResult> driver status: %d"},
            .FetchHead = {ERROR_LEVEL,
                          L"CIntMeasDriver::GetResult> erreur sur la taille ent\u00EAte: "
                          L"Taille: %d Attendue: %d"},
            .FetchCmde = {INFO_GENERAL_LEVEL, L"CIntMeasDriver::GetResult> cmde ID: %d"},
        }};
    return s_Kind;
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

void CIntMeasDriver::PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize, uint32_t i_ulCmdeID,
                                     uint32_t i_ulTimeout, uint8_t i_ucParam, S_DATA* o_pFrame)
{
    const auto l_ucCmdeID = static_cast<uint8_t>(i_ulCmdeID);
    FillFrame(0xFF, l_ucCmdeID, i_ucCanal, i_usSize, l_ucCmdeID, i_ulTimeout, i_ucParam, o_pFrame);
}

uint8_t* CIntMeasDriver::PrepareHead(const S_EXCHANGE& i_Exchange, uint8_t i_ucParam)
{
    const S_SEND_STRUCT& l_Cmde = *i_Exchange.pCmde;
    PrepareCommande(i_Exchange.ucCanal, static_cast<uint16_t>(GetSize(l_Cmde)), l_Cmde.CmdeID,
                    GetTimeout(l_Cmde), i_ucParam, i_Exchange.pFrame);
    return i_Exchange.pFrame->aucBytes + RS_FRAME_DATA_OFFSET;
}

void CIntMeasDriver::PrepareCmdeParam(const S_EXCHANGE& i_Exchange)
{
    PrepareHead(i_Exchange, i_Exchange.pCmde->ucCmdeParam);
}

void CIntMeasDriver::PrepareCommandeInit(const S_EXCHANGE& i_Exchange)
{
    uint8_t* l_pucData = PrepareHead(i_Exchange);
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

void CIntMeasDriver::PrepareCmdeMesureInterne(const S_EXCHANGE& i_Exchange)
{
    Trace(INFO_LEVEL, L"SIntMeasDriver::PrepareCmdeMesureInterne> canal: %d voie: %d",
          i_Exchange.ucCanal, m_lVoieMesure);
    wire::WriteLe32(PrepareHead(i_Exchange), static_cast<uint32_t>(m_lVoieMesure));
}

void CIntMeasDriver::PrepareCmdeCalibration(const S_EXCHANGE& i_Exchange)
{
    *PrepareHead(i_Exchange) = m_ucCalibration;
}

void CIntMeasDriver::PrepareCmdeBurst(const S_EXCHANGE& i_Exchange)
{
    *PrepareHead(i_Exchange) = m_ucBurst;
}

S_RESULT CIntMeasDriver::Init()
{
    if (already_init == 1) {
        return {};
    }
    SendReset();
    SendCalibrationFlag();
    return InitIMB();
}

void CIntMeasDriver::SendReset()
{
    S_SEND_STRUCT l_Cmde = MakeCommand(ACQUISITION_RESET, m_ulTimeout, k_ulSubHeadSize);
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
    const S_EXCHANGE_TEXTS& l_Texts = m_pKind->Texts;
    l_Texts.InitStart.Emit(already_init.load());
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_INIT);
    if (already_init == 1) {
        return l_Result;
    }
    if (m_pKind->bDeviceFile && !HasTransport()) {
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
        cecore::NoteReason(CECORE_ERROR_NOT_ENOUGH_MEMORY, "no memory to initialise the board");
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
