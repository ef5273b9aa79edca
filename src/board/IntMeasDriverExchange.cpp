// An exchange: send, wait, fetch, decode; and the blocking form, which does all of it.

#include <algorithm>
#include <atomic>

#include "board/IntMeasDriver.h"
#include "platform/Clock.h"
#include "platform/Device.h"
#include "platform/Reason.h"

namespace tornval {
namespace {

/** What every answer gets, in milliseconds, on top of what the caller asks for. */
constexpr uint32_t k_ulAnswerWait = 5000;

/** The caller's wait on top of the fixed one; never a wait without end. */
uint32_t AnswerWait(uint32_t i_ulTimeout)
{
    constexpr uint32_t l_ulLongest = cecore::INFINITE - 1;
    return i_ulTimeout > l_ulLongest - k_ulAnswerWait ? l_ulLongest : i_ulTimeout + k_ulAnswerWait;
}

/** The clock, which is read here for the lines of the trace alone. */
uint32_t TicksToTrace()
{
    return IsTraceLevel(INFO_LEVEL) ? cecore::GetTickCount() : 0;
}

/** The head of a frame in hexadecimal. */
void TraceFrame(const S_DATA& i_Frame)
{
    constexpr size_t k_ulDumped = 500;
    if (!IsTraceLevel(INFO_LEVEL)) {
        return;
    }
    char l_aszText[3 * k_ulDumped + 1];
    for (size_t i = 0; i < k_ulDumped; ++i) {
        cecore::FormatNarrow(l_aszText + 3 * i, 4, "%02X ", i_Frame.aucBytes[i]);
    }
    Trace(INFO_LEVEL, L"Data: %S", l_aszText);
}

cecore::Handle EventOf(const S_DATA& i_Frame)
{
    return wire::ReadLe32(i_Frame.aucBytes + RS_BLOCK_EVENT_OFFSET);
}

} // namespace

bool CIntMeasDriver::ControlDevice(const S_CONTROL& i_Control)
{
    return cecore::DeviceIoControl(m_hDevice, i_Control.ulCode, i_Control.pIn, i_Control.ulInSize,
                                   i_Control.pOut, i_Control.ulOutSize, i_Control.pulReturned);
}

S_RESULT CIntMeasDriver::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                     const void* i_pcData, uint8_t i_ucCanal)
{
    return SendCommand(i_pCmde, o_pReceiveStruct, i_pcData, &m_usCmdeID, m_Frame.Get(),
                       &m_ulCmdeStatus, i_ucCanal);
}

S_RESULT CIntMeasDriver::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                     const void* i_pcData, uint16_t* o_pusCmdeID, S_DATA* io_pFrame,
                                     uint32_t* o_pulStatus, uint8_t i_ucCanal)
{
    return Send({.pCmde = i_pCmde,
                 .pReceive = o_pReceiveStruct,
                 .pcData = i_pcData,
                 .ucCanal = i_ucCanal,
                 .pulStatus = o_pulStatus,
                 .pFrame = io_pFrame,
                 .pusEcho = o_pusCmdeID});
}

S_RESULT CIntMeasDriver::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                   int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                   uint32_t i_ulTimeout, uint8_t i_bCompensation)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult (general)>");
    return GetResult(i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize, o_plProcessedData,
                     i_ulTimeout, m_Frame.Get(), &m_usCmdeID, m_Answer.Get(), i_bCompensation);
}

S_RESULT CIntMeasDriver::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                   int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                   uint32_t i_ulTimeout, S_DATA* i_pFrame, uint16_t* i_pusCmdeID,
                                   S_DATA* o_pAnswer, uint8_t i_bCompensation)
{
    return Fetch({.pFrame = i_pFrame,
                  .pAnswer = o_pAnswer,
                  .pusEcho = i_pusCmdeID,
                  .ulRoom = i_ulNbReturnByte,
                  .pcRawData = o_pcRawData,
                  .plProcessedDataSize = o_plProcessedDataSize,
                  .plProcessedData = o_plProcessedData,
                  .ulTimeout = i_ulTimeout,
                  .bCompensation = i_bCompensation});
}

S_RESULT CIntMeasDriver::Send(S_EXCHANGE&& io_Exchange)
{
    const S_EXCHANGE_TEXTS& l_Texts = m_pKind->Texts;
    const CDriverLock l_Lock(*this);
    l_Texts.SendStart.Emit(io_Exchange.ucCanal);
    S_RESULT& l_Result = io_Exchange.Result = MakeResult(m_ulDriverType, TORNVAL_STEP_SEND);
    if (!HasTransport() || io_Exchange.pCmde == nullptr || io_Exchange.pReceive == nullptr ||
        io_Exchange.pusEcho == nullptr || io_Exchange.pFrame == nullptr ||
        io_Exchange.pulStatus == nullptr) {
        l_Texts.SendArgument.Emit();
        io_Exchange.Fail();
        return l_Result;
    }
    const uint32_t l_ulCmdeID = io_Exchange.usCmdeID = io_Exchange.pCmde->CmdeID;
    FillReceive(io_Exchange.pReceive, 0, 0);
    std::atomic_ref(*io_Exchange.pusEcho).store(io_Exchange.usCmdeID, std::memory_order_relaxed);
    l_Texts.SendCmde.Emit(l_ulCmdeID);
    if (!BuildFrame(io_Exchange)) {
        io_Exchange.Fail();
        return l_Result;
    }

    const uint32_t l_ulBefore = TicksToTrace();
    l_Texts.SendBefore.Emit(l_ulBefore);
    if (m_pKind->bDumpFrame) {
        TraceFrame(*io_Exchange.pFrame);
    }
    const bool l_bHostLevel = EventOf(*io_Exchange.pFrame) == m_hSync;
    const bool l_bAwaited = l_bHostLevel && m_Signals.BeforeSend(m_hSync);
    uint32_t& l_ulStatus = *io_Exchange.pulStatus;
    uint32_t l_ulReturned = 0;
    const bool l_bSent = (this->*m_pKind->Transport.pfnControl)(
        {IOCTL_RS_SEND_COMMAND, io_Exchange.pFrame, RS_BLOCK_SIZE, &l_ulStatus, sizeof(l_ulStatus),
         &l_ulReturned});
    const uint32_t l_ulLastError = cecore::GetLastError();
    const uint32_t l_ulAfter = TicksToTrace();
    l_Texts.SendAfter.Emit(l_ulAfter, l_ulAfter - l_ulBefore);
    if (!l_bSent) {
        l_Texts.SendFailed.Emit();
        cecore::NoteReason(l_ulLastError, "the link did not take command %u", l_ulCmdeID);
        l_Result.ulLastError = l_ulLastError;
        io_Exchange.Fail();
    } else if (l_ulStatus != 0) {
        l_Texts.SendStatus.Emit(l_ulStatus);
        cecore::NoteReason(0, "the device refused command %u with status %u", l_ulCmdeID,
                           l_ulStatus);
        l_Result.ulFwStatus = l_ulStatus;
        l_Result.ulStep = TORNVAL_STEP_REFUSED;
        io_Exchange.Fail();
    } else {
        l_Texts.SendDone.Emit();
    }
    if (l_bHostLevel && l_Result.ulStatus != 0) {
        m_Signals.SendRefused(l_bAwaited);
    }
    // After a call that failed this is the word as it stood.
    const uint32_t l_ulWord = l_ulStatus & 0xFFFFU;
    FillReceive(io_Exchange.pReceive, l_ulWord | (l_ulWord << 16), k_ulRawResultSize);
    return l_Result;
}

bool CIntMeasDriver::BuildFrame(S_EXCHANGE& io_Exchange)
{
    const S_EXCHANGE_TEXTS& l_Texts = m_pKind->Texts;
    const S_COMMAND* l_pCommand = FindCommand(m_pKind->Commands, io_Exchange.usCmdeID);
    if (l_pCommand == nullptr || !l_pCommand->Takes(io_Exchange.ucCanal)) {
        l_Texts.SendUnknown.Emit();
        l_Texts.SendRefused.Emit();
        return false;
    }
    // The generator gets its byte whatever the command.
    const bool l_bBurst =
        io_Exchange.ucCanal == k_ucCanalGenerator && l_pCommand->eCanals != E_CANALS::ANY;
    (this->*(l_bBurst ? &CIntMeasDriver::PrepareCmdeBurst : l_pCommand->pfnBuild))(io_Exchange);
    const uint32_t l_ulSize = GetSize(*io_Exchange.pCmde);
    if (l_ulSize > RS_FRAME_MAX_SIZE) {
        l_Texts.SendSize.Emit(l_ulSize);
        return false;
    }
    uint8_t* l_pucFrame = io_Exchange.pFrame->aucBytes;
    if (io_Exchange.pcData != nullptr && l_ulSize > k_ulSubHeadSize) {
        std::memcpy(l_pucFrame + RS_FRAME_DATA_OFFSET, io_Exchange.pcData,
                    l_ulSize - k_ulSubHeadSize);
    }
    wire::WriteLe16(l_pucFrame + RS_FRAME_CRC_OFFSET,
                    m_Crc16.ComputeCrc16(l_pucFrame + RS_FRAME_ID_OFFSET,
                                         l_ulSize + RS_FRAME_OUTER_HEAD - RS_FRAME_ID_OFFSET));
    return true;
}

S_RESULT CIntMeasDriver::Fetch(S_EXCHANGE&& io_Exchange)
{
    const S_EXCHANGE_TEXTS& l_Texts = m_pKind->Texts;
    l_Texts.FetchStart.Emit();
    S_RESULT& l_Result = io_Exchange.Result = MakeResult(m_ulDriverType, TORNVAL_STEP_RESULT);
    if (!HasTransport() || io_Exchange.pFrame == nullptr || io_Exchange.pusEcho == nullptr ||
        io_Exchange.pAnswer == nullptr) {
        l_Texts.FetchArgument.Emit();
        io_Exchange.Fail();
        return l_Result;
    }
    // Without the lock: others can send meanwhile, and one of them may be stuck in the link with the
    // lock in its hands. A wait that is over must not wait for that.
    if (!WaitForAnswer(io_Exchange)) {
        io_Exchange.Fail();
        return l_Result;
    }
    l_Texts.FetchSync.Emit(TicksToTrace());
    const CDriverLock l_Lock(*this);
    io_Exchange.usCmdeID = *io_Exchange.pusEcho;
    if (io_Exchange.pcRawData == nullptr) {
        l_Texts.FetchRawNull.Emit(io_Exchange.usCmdeID);
        io_Exchange.Fail();
        return l_Result;
    }
    FetchAnswer(io_Exchange);
    if (l_Result.ulStatus != 0) {
        l_Texts.FetchError.Emit(io_Exchange.usCmdeID);
    } else {
        Decode(io_Exchange);
    }
    return l_Result;
}

bool CIntMeasDriver::WaitForAnswer(const S_EXCHANGE& i_Exchange)
{
    const cecore::Handle l_hEvent = EventOf(*i_Exchange.pFrame);
    const uint32_t l_ulWait = AnswerWait(i_Exchange.ulTimeout);
    const bool l_bSignalled =
        l_hEvent != 0 && cecore::WaitForSingleObject(l_hEvent, l_ulWait) == cecore::WAIT_OBJECT_0;
    if (l_hEvent == m_hSync) {
        l_bSignalled ? m_Signals.Signalled() : m_Signals.GivenUp();
    }
    if (!l_bSignalled) {
        // The echo of host-level commands is another thread's to write.
        const uint32_t l_ulCmdeID =
            std::atomic_ref(*i_Exchange.pusEcho).load(std::memory_order_relaxed);
        m_pKind->Texts.FetchTimeout.Emit(l_ulCmdeID);
        cecore::NoteReason(0, "no answer to command %u within %u ms", l_ulCmdeID, l_ulWait);
    }
    return l_bSignalled;
}

void CIntMeasDriver::FetchAnswer(S_EXCHANGE& io_Exchange)
{
    const S_EXCHANGE_TEXTS& l_Texts = m_pKind->Texts;
    const uint32_t l_ulCmdeID = io_Exchange.usCmdeID;
    uint32_t& l_ulDelivered = io_Exchange.ulDelivered;
    uint8_t* l_pucAnswer = io_Exchange.pAnswer->aucBytes;
    S_RESULT& l_Result = io_Exchange.Result;

    // What the decoders read where an answer is too short: nothing of an earlier one.
    std::memset(l_pucAnswer, 0, k_ulDecodedHead);
    const uint32_t l_ulBefore = TicksToTrace();
    l_Texts.FetchBefore.Emit(l_ulBefore);
    uint8_t l_aucEcho[2];
    wire::WriteLe16(l_aucEcho, io_Exchange.usCmdeID);
    const bool l_bFetched =
        (this->*m_pKind->Transport.pfnControl)({IOCTL_RS_GET_RESULT, l_aucEcho, sizeof(l_aucEcho),
                                                l_pucAnswer, RS_BLOCK_SIZE, &l_ulDelivered});
    const uint32_t l_ulLastError = cecore::GetLastError();
    const uint32_t l_ulAfter = TicksToTrace();
    l_Texts.FetchAfter.Emit(l_ulAfter, l_ulAfter - l_ulBefore);
    l_Texts.FetchCount.Emit(l_ulDelivered);

    const uint32_t l_ulLinkStatus = wire::ReadLe32(l_pucAnswer);
    if (!l_bFetched) {
        l_Texts.FetchIoError.Emit(l_ulLastError);
        l_Texts.FetchIoCmde.Emit(l_ulCmdeID);
        cecore::NoteReason(l_ulLastError, "the link did not give the answer to command %u",
                           l_ulCmdeID);
        l_Result.ulFwStatus = 2;
        l_Result.ulLastError = l_ulLastError;
        io_Exchange.Fail();
    } else if (l_ulLinkStatus != 0) {
        l_Texts.FetchStatus.Emit(l_ulLinkStatus);
        l_Texts.FetchStatusCmde.Emit(l_ulLinkStatus, l_ulCmdeID);
        cecore::NoteReason(0, "the link gave status %u with the answer to command %u",
                           l_ulLinkStatus, l_ulCmdeID);
        l_Result.ulFwStatus = 5;
        io_Exchange.Fail();
    } else if (l_ulDelivered < k_ulFrameHeadSize) {
        l_Texts.FetchHead.Emit(l_ulDelivered, k_ulFrameHeadSize);
        l_Texts.FetchHeadCmde.Emit(l_ulDelivered, k_ulFrameHeadSize, l_ulCmdeID);
        cecore::NoteReason(0, "the answer to command %u has %u bytes, not even a head", l_ulCmdeID,
                           l_ulDelivered);
        io_Exchange.Fail();
    } else {
        CheckFirmwareError(l_Result, l_pucAnswer + RS_ANSWER_FRAME_OFFSET);
    }
}

void CIntMeasDriver::Decode(S_EXCHANGE& io_Exchange)
{
    const S_EXCHANGE_TEXTS& l_Texts = m_pKind->Texts;
    const uint32_t l_ulCmdeID = io_Exchange.usCmdeID;
    l_Texts.FetchCmde.Emit(l_ulCmdeID);
    io_Exchange.pCommand = FindCommand(m_pKind->Commands, io_Exchange.usCmdeID);
    if (io_Exchange.pCommand == nullptr) {
        l_Texts.FetchUnknown.Emit();
        io_Exchange.Fail();
    } else if (io_Exchange.pCommand->pfnDecode == nullptr) {
        l_Texts.FetchPlain.Emit(l_ulCmdeID);
    } else {
        (this->*io_Exchange.pCommand->pfnDecode)(io_Exchange);
    }
}

void CIntMeasDriver::CreateSyncEvent(cecore::Handle* io_phEvent, S_DATA* o_pFrame)
{
    const CDriverLock l_Lock(*this);
    if (*io_phEvent != 0) {
        return;
    }
    *io_phEvent = cecore::CreateEventW(false, false);
    if (o_pFrame != nullptr && *io_phEvent != 0) {
        wire::WriteLe32(o_pFrame->aucBytes + RS_BLOCK_EVENT_OFFSET, *io_phEvent);
    }
}

S_RESULT CIntMeasDriver::RunBlocking(const S_EXCHANGE& i_Exchange)
{
    // Blocks and event are this call's alone, so that several can be under way at once.
    std::unique_ptr<CBlocks> l_pBlocks = m_Blocks.Take();
    if (l_pBlocks == nullptr) {
        return MakeResult(m_ulDriverType, TORNVAL_STEP_NONE, 1);
    }
    S_DATA* l_pFrame = &l_pBlocks->Frame();
    S_RECEIVE_STRUCT l_Receive{};
    uint32_t l_ulStatus = 0;
    uint16_t l_usEcho = 0;
    char l_cRaw = 0;
    cecore::CUniqueHandle l_hEvent;
    CreateSyncEvent(l_hEvent.Receive(), l_pFrame);
    S_RESULT l_Result{};
    {
        // One hold for both, so that no other thread selects something else in between.
        const CDriverLock l_Lock(*this);
        m_lVoieMesure = i_Exchange.olVoie.value_or(m_lVoieMesure);
        m_ucBurst = i_Exchange.oucBurst.value_or(m_ucBurst);
        l_Result = SendCommand(i_Exchange.pCmde, &l_Receive, i_Exchange.pcData, &l_usEcho, l_pFrame,
                               &l_ulStatus, i_Exchange.ucCanal);
    }
    if (l_Result.ulStatus == 0) {
        l_Result = GetResult(GetNbReturnByte(l_Receive), &l_cRaw, i_Exchange.plProcessedDataSize,
                             i_Exchange.plProcessedData, m_ulTimeout, l_pFrame, &l_usEcho,
                             &l_pBlocks->Answer(), i_Exchange.bCompensation);
    }
    m_Blocks.GiveBack(std::move(l_pBlocks));
    return l_Result;
}

S_RESULT CIntMeasDriver::RunBlockingCmde(uint8_t i_ucCmdeID, uint32_t i_ulSize,
                                         S_EXCHANGE io_Exchange)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::CmdeBloquanteSynchrone>");
    S_SEND_STRUCT l_Cmde = MakeCommand(i_ucCmdeID, m_ulTimeout, i_ulSize);
    int32_t l_lCount = 0;
    io_Exchange.pCmde = &l_Cmde;
    io_Exchange.plProcessedDataSize = &l_lCount;
    return RunBlocking(io_Exchange);
}

S_RESULT CIntMeasDriver::CmdeBloquanteSynchrone(uint8_t i_ucCmdeID, const void* i_pcData,
                                                uint32_t i_ulSize, int32_t* o_plData,
                                                uint8_t i_ucCanal, uint8_t i_bCompensation)
{
    return RunBlockingCmde(i_ucCmdeID, i_ulSize,
                           {.pcData = i_pcData,
                            .ucCanal = i_ucCanal,
                            .plProcessedData = o_plData,
                            .bCompensation = i_bCompensation});
}

S_RESULT CIntMeasDriver::GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie,
                                           uint8_t i_bCompensation, uint32_t)
{
    return RunBlockingCmde(MEASURE_INTERNE, k_ulSubHeadSize + sizeof(i_ulVoie),
                           {.olVoie = static_cast<int32_t>(i_ulVoie),
                            .plProcessedData = o_plValue,
                            .bCompensation = i_bCompensation});
}

S_RESULT CIntMeasDriver::CurrentGeneratorBurst(uint32_t i_ulBurst)
{
    int32_t l_lWord = 0;
    return RunBlockingCmde(CALIBRATION_FLAG, k_ulSubHeadSize + 1,
                           {.ucCanal = k_ucCanalGenerator,
                            .oucBurst = static_cast<uint8_t>(i_ulBurst),
                            .plProcessedData = &l_lWord});
}

S_RESULT CIntMeasDriver::SendCalibrationFlag()
{
    int32_t l_lWord = 0;
    return RunBlockingCmde(CALIBRATION_FLAG, k_ulSubHeadSize + 1, {.plProcessedData = &l_lWord});
}

} // namespace tornval
