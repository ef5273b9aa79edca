#include "milliohm/MilliOhmDriverSerial.h"

#include "platform/Reason.h"

namespace tornval {
namespace {

constexpr uint32_t k_ulNbValues = 3;
constexpr uint32_t k_ulMeasureTimeout = 5000;
/** Offset of what the module answers, in the answer block: measure status or version text. */
constexpr uint32_t k_ulModuleDataOffset = RS_ANSWER_FRAME_OFFSET + wire::k_ulMeasureStatusOffset;

/** The word for the log of a measure status; null for one that delivers no measure. */
const wchar_t* WordOf(uint8_t i_ucStatus)
{
    switch (i_ucStatus) {
    case 0x00:
        return L"OK";
    case 0x01:
        return L"Underrange";
    case 0x10:
        return L"Etalonnage";
    case 0x80:
        return L"Overrrange";
    default:
        return nullptr;
    }
}

} // namespace

C_MilliOhmDriverSerial::C_MilliOhmDriverSerial()
{
    m_ulDriverType = TORNVAL_DRIVER_MILLIOHM;
    // The base has taken a number from the counter; the module takes none of its own.
    SetIdentity(s_ulDriverCounter, 5000, "MO");
    m_ucSerialPort = 2;
    m_ulBaudRate = 115200;
    m_pKind = &Kind();
}

const S_WIRE_KIND& C_MilliOhmDriverSerial::Kind()
{
    using T = C_MilliOhmDriverSerial;
    static constexpr S_COMMAND s_aCommands[] = {
        {COMMAND_MICROOHM_MEASURE, E_CANALS::ANY, &T::PrepareCmdeParam,
         static_cast<PFN_DECODE>(&T::GetResult_COMMAND_MICROOHM_MEASURE), k_ulFrameHeadSize},
        {COMMAND_VERSION, E_CANALS::ANY, &T::PrepareCmdeParam,
         static_cast<PFN_DECODE>(&T::GetResult_COMMAND_VERSION), k_ulFrameHeadSize},
    };
    static constexpr S_EXCHANGE_TEXTS s_Texts = [] {
        S_EXCHANGE_TEXTS l_Texts = k_SerialLinkTexts;
        l_Texts.LoadError = {ERROR_LEVEL, L"C_MilliOhmDriverSerial::CreateDriverInstance> "
                                          L"ERROR LoadDriver: %s (last error: %ld)\n"};
        l_Texts.SendStart = {INFO_LEVEL, L"C_MilliOhmDriverSerial::SendCommand> (canal: %d)"};
        l_Texts.SendArgument = {ERROR_LEVEL, L"CIntMeasDriverSerial::SendCommand> ERROR"};
        l_Texts.SendCmde = {INFO_LEVEL, L"C_MilliOhmDriverSerial::SendCommand> cmde=%02X"};
        l_Texts.SendUnknown = {ERROR_LEVEL,
                               L"C_MilliOhmDriverSerial::SendCommand> ERROR unknown cmde"};
        l_Texts.SendRefused = {ERROR_LEVEL,
                               L"C_MilliOhmDriverSerial::SendCommand> Unknown command"};
        l_Texts.SendSize = {ERROR_LEVEL, L"C_MilliOhmDriverSerial::SendCommand> ERROR size: %u"};
        l_Texts.SendFailed = {ERROR_LEVEL,
                              L"C_MilliOhmDriverSerial::SendCommand> ERROR echec du DeviceIO"};
        l_Texts.SendStatus = {ERROR_LEVEL,
                              L"C_MilliOhmDriverSerial::SendCommand> ERROR echec de la cmde "
                              L"avec status: %d"};
        l_Texts.SendDone = {INFO_LEVEL, L"C_MilliOhmDriverSerial::SendCommand> OK"};
        l_Texts.FetchStart = {INFO_LEVEL, L"C_MilliOhmDriverSerial::GetResult>"};
        l_Texts.FetchArgument = {ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> ERROR:  NULL"};
        l_Texts.FetchTimeout = {ERROR_LEVEL,
                                L"C_MilliOhmDriverSerial::GetResult> ERROR:  timeout ou "
                                L"event detruit (cmdeid=%02X)"};
        l_Texts.FetchRawNull = {ERROR_LEVEL,
                                L"C_MilliOhmDriverSerial::GetResult> ERROR:  o_pcRawData is "
                                L"NULL (cmdeid=%02X)"};
        l_Texts.FetchIoCmde = {ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> ERROR: device io "
                                            L"error(cmdeid=%02X)"};
        l_Texts.FetchStatusCmde = {ERROR_LEVEL,
                                   L"C_MilliOhmDriverSerial::GetResult> ERROR: cmde error "
                                   L"avec status: %04X (cmdeid=%02X)"};
        l_Texts.FetchHeadCmde = {
            ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> ERROR: taille entete insuffisante "
                         L"(taille: %d  attendue: %d) (cmdeid=%02X)"};
        l_Texts.FetchError = {ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> ERROR (cmdeid=%d)"};
        l_Texts.FetchUnknown = {ERROR_LEVEL,
                                L"C_MilliOhmDriverSerial::GetResult> ERROR unknown command"};
        return l_Texts;
    }();
    static constexpr S_WIRE_KIND s_Kind = {
        .Transport = {static_cast<PFN_IS_THERE>(&T::HasLink),
                      static_cast<PFN_CONTROL>(&T::ControlLinkEx)},
        .Commands = s_aCommands,
        .bDeviceFile = false,
        .bDumpFrame = false,
        .Texts = s_Texts};
    return s_Kind;
}

S_RESULT C_MilliOhmDriverSerial::CreateDriverInstance()
{
    S_RESULT l_Result{};
    {
        const CDriverLock l_Lock(*this);
        Trace(INFO_LEVEL, L"C_MilliOhmDriverSerial::CreateDriverInstance> START");
        l_Result = OpenLink(1);
    }
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerial::CreateDriverInstance> STOP status:%d",
          l_Result.ulStatus);
    return l_Result;
}

S_RESULT C_MilliOhmDriverSerial::Init()
{
    return {};
}

bool C_MilliOhmDriverSerial::ControlLinkEx(const S_CONTROL& i_Control)
{
    return m_pSerialDriver->RS_DeviceIoControl_Ex(
               RS_LINK_CONSTANT, i_Control.ulCode, i_Control.pIn, i_Control.ulInSize,
               i_Control.pOut, i_Control.ulOutSize, i_Control.pulReturned, 0U, m_ulLinkHandle) != 0;
}

void C_MilliOhmDriverSerial::PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize,
                                             uint32_t i_ulCmdeID, uint32_t i_ulTimeout,
                                             uint8_t i_ucParam, S_DATA* o_pFrame)
{
    FillFrame(0, 0, i_ucCanal, i_usSize, static_cast<uint8_t>(i_ulCmdeID), i_ulTimeout, i_ucParam,
              o_pFrame);
}

void C_MilliOhmDriverSerial::CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult)
{
    if (pDataResult == nullptr) {
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::CheckFirmwareError> ERROR pDataResult is NULL");
        o_Result.ulStatus = 1;
        return;
    }
    const uint8_t l_ucFirst = pDataResult[wire::k_ulReturnCodeOffset];
    const uint8_t l_ucSecond = pDataResult[wire::k_ulReturnCodeOffset + 1];
    Trace(FW_LEVEL, L"C_MilliOhmDriverSerial> FW status code=\n0x%02X 0x%02X", l_ucFirst,
          l_ucSecond);
    if (l_ucFirst != 0x01 || l_ucSecond != 0x00) {
        o_Result.ulStatus = 1;
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::CheckFirmwareError> ERROR FW status: 0x%02X 0x%02X",
              l_ucFirst, l_ucSecond);
        cecore::NoteReason(0, "the module's firmware gave status %02X %02X", l_ucFirst, l_ucSecond);
    }
}

void C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE(S_EXCHANGE& io_Exchange)
{
    if (io_Exchange.plProcessedDataSize == nullptr || io_Exchange.plProcessedData == nullptr) {
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> Input param error");
        io_Exchange.Fail();
        return;
    }
    DecodeValues(io_Exchange);
    if (io_Exchange.Result.ulStatus == 0) {
        *io_Exchange.plProcessedDataSize = k_ulNbValues;
    } else {
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> "
                           L"GetResult_COMMAND_MICROOHM_MEASURE error");
    }
}

void C_MilliOhmDriverSerial::DecodeValues(S_EXCHANGE& io_Exchange)
{
    if (io_Exchange.ulDelivered < io_Exchange.pCommand->ulLeastAnswer) {
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE> getCmdOutBuff:%08X "
              L"i_ulNbReturnByte=%ld",
              static_cast<const void*>(io_Exchange.pAnswer), io_Exchange.ulDelivered);
        io_Exchange.Fail();
        return;
    }
    if (!CheckReply(io_Exchange.ulDelivered, io_Exchange.pAnswer)) {
        io_Exchange.Fail();
        return;
    }
    const uint8_t* l_pucAnswer = io_Exchange.pAnswer->aucBytes;
    const uint8_t* l_pucStatus = l_pucAnswer + k_ulModuleDataOffset;
    const wchar_t* l_pwszWord = WordOf(l_pucStatus[0]);
    Trace(FW_LEVEL,
          L"C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE> Cmde "
          L"Status=\n%02X%02X%02X%02X (%s)",
          l_pucStatus[0], l_pucStatus[1], l_pucStatus[2], l_pucStatus[3],
          l_pwszWord == nullptr ? L"ERROR" : l_pwszWord);
    if (l_pwszWord == nullptr) {
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE> status=%02X",
              l_pucStatus[0]);
        io_Exchange.Fail();
        io_Exchange.Result.ulFwStatus =
            static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(l_pucStatus[0])));
        return;
    }
    for (uint32_t i = 0; i < k_ulNbValues; ++i) {
        io_Exchange.plProcessedData[i] = static_cast<int32_t>(
            wire::ReadLe32(l_pucAnswer + k_ulAnswerDataOffset + static_cast<size_t>(4) * i));
    }
    io_Exchange.plProcessedData[k_ulNbValues] = 0;
}

void C_MilliOhmDriverSerial::GetResult_COMMAND_VERSION(S_EXCHANGE& io_Exchange)
{
    const uint32_t l_ulText = io_Exchange.ulDelivered - k_ulFrameHeadSize;
    if (io_Exchange.ulDelivered < io_Exchange.pCommand->ulLeastAnswer ||
        io_Exchange.ulRoom < l_ulText ||
        !CheckReply(io_Exchange.ulDelivered, io_Exchange.pAnswer)) {
        io_Exchange.Fail();
        return;
    }
    if (l_ulText > RS_BLOCK_SIZE - k_ulModuleDataOffset) {
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> ERROR version size: %u", l_ulText);
        io_Exchange.Fail();
        return;
    }
    std::memcpy(io_Exchange.pcRawData, io_Exchange.pAnswer->aucBytes + k_ulModuleDataOffset,
                l_ulText);
}

S_RESULT C_MilliOhmDriverSerial::GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                                    int32_t* o_plValue3)
{
    static constexpr uint8_t s_aucPayload[] = {0x01, 0x00};
    if (o_plValue1 == nullptr || o_plValue2 == nullptr || o_plValue3 == nullptr) {
        return MakeResult(m_ulDriverType, TORNVAL_STEP_NONE, 1);
    }
    *o_plValue1 = *o_plValue2 = *o_plValue3 = 0;
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerial::GetMicroOhmMeasure>");
    int32_t l_lCount = 0;
    int32_t l_alValues[k_ulNbValues + 1] = {};
    S_SEND_STRUCT l_Cmde = MakeCommand(COMMAND_MICROOHM_MEASURE, k_ulMeasureTimeout,
                                       k_ulSubHeadSize + sizeof(s_aucPayload));
    S_EXCHANGE l_Exchange{.pCmde = &l_Cmde,
                          .pcData = s_aucPayload,
                          .plProcessedDataSize = &l_lCount,
                          .plProcessedData = l_alValues};
    S_RESULT l_Result = RunBlocking(l_Exchange);
    if (l_lCount == static_cast<int32_t>(k_ulNbValues)) {
        *o_plValue1 = l_alValues[0];
        *o_plValue2 = l_alValues[1];
        *o_plValue3 = l_alValues[2];
    } else if (l_Result.ulStatus == 0) {
        l_Result.ulStatus = 1;
    }
    return l_Result;
}

} // namespace tornval
