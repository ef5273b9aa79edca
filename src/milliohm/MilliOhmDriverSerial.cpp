#include "milliohm/MilliOhmDriverSerial.h"

namespace tornval {
namespace {

/** Offsets in the answer block. */
constexpr uint32_t k_ulMeasureStatusOffset = 18;
constexpr uint32_t k_ulValuesOffset = 22;
constexpr uint32_t k_ulVersionOffset = 18;

constexpr uint32_t k_ulNbValues = 3;
constexpr uint32_t k_ulMeasureTimeout = 5000;

/** Word of a measure status for the log; null for one that delivers no measure. */
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
    SetIdentity(GetDriverCounter(), 5000, "MO");
    m_ucSerialPort = 2;
    m_ulBaudRate = 115200;
}

const S_EXCHANGE_TEXTS& C_MilliOhmDriverSerial::Texts() const
{
    static constexpr S_EXCHANGE_TEXTS s_Texts = [] {
        S_EXCHANGE_TEXTS l_Texts = k_SerialLinkTexts;
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
    return s_Texts;
}

S_RESULT C_MilliOhmDriverSerial::CreateDriverInstance()
{
    static constexpr S_TRACE_TEXT<wchar_t*, uint32_t> s_LoadError = {
        ERROR_LEVEL, L"C_MilliOhmDriverSerial::CreateDriverInstance> ERROR LoadDriver: %s (last "
                     L"error: %ld)\n"};
    S_RESULT l_Result{};
    {
        const CDriverLock l_Lock(*this);
        Trace(INFO_LEVEL, L"C_MilliOhmDriverSerial::CreateDriverInstance> START");
        l_Result = OpenLink(s_LoadError, 1);
    }
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerial::CreateDriverInstance> STOP status:%d",
          l_Result.ulStatus);
    return l_Result;
}

S_RESULT C_MilliOhmDriverSerial::Init()
{
    return {};
}

bool C_MilliOhmDriverSerial::DeviceIo(uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize,
                                      void* o_pOut, uint32_t i_ulOutSize, uint32_t* o_pulReturned)
{
    return m_pSerialDriver->RS_DeviceIoControl_Ex(RS_LINK_CONSTANT, i_ulCode, i_pIn, i_ulInSize,
                                                  o_pOut, i_ulOutSize, o_pulReturned, 0,
                                                  m_ulLinkHandle) != 0;
}

void C_MilliOhmDriverSerial::PrepareCommande(uint8_t i_ucCanal, uint16_t i_usSize,
                                             uint8_t i_ulCmdeID, uint32_t i_ulTimeout,
                                             uint8_t i_ucParam, S_DATA* o_pFrame)
{
    FillFrame(0, 0, i_ucCanal, i_usSize, i_ulCmdeID, i_ulTimeout, i_ucParam, o_pFrame);
}

bool C_MilliOhmDriverSerial::BuildFrame(const S_SEND_STRUCT& i_Cmde, uint8_t i_ucCanal,
                                        S_DATA* o_pFrame)
{
    if (i_Cmde.CmdeID != COMMAND_MICROOHM_MEASURE && i_Cmde.CmdeID != COMMAND_VERSION) {
        return false;
    }
    PrepareCommande(i_ucCanal, static_cast<uint16_t>(GetSize(i_Cmde)), i_Cmde.CmdeID,
                    GetTimeout(i_Cmde), i_Cmde.ucCmdeParam, o_pFrame);
    return true;
}

void C_MilliOhmDriverSerial::CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult)
{
    if (pDataResult == nullptr) {
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::CheckFirmwareError> ERROR pDataResult is NULL");
        o_Result.ulStatus = 1;
        return;
    }
    const uint8_t l_ucFirst = pDataResult[k_ulFirmwareCodeOffset];
    const uint8_t l_ucSecond = pDataResult[k_ulFirmwareCodeOffset + 1];
    Trace(FW_LEVEL, L"C_MilliOhmDriverSerial> FW status code=\n0x%02X 0x%02X", l_ucFirst,
          l_ucSecond);
    if (l_ucFirst != 0x01 || l_ucSecond != 0x00) {
        o_Result.ulStatus = 1;
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::CheckFirmwareError> ERROR FW status: 0x%02X 0x%02X",
              l_ucFirst, l_ucSecond);
    }
}

void C_MilliOhmDriverSerial::DecodeAnswer(const S_FETCH& i_Fetch, S_RESULT& o_Result)
{
    switch (i_Fetch.usCmdeID) {
    case COMMAND_MICROOHM_MEASURE:
        if (i_Fetch.plProcessedDataSize == nullptr || i_Fetch.plProcessedData == nullptr) {
            Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> Input param error");
            o_Result.ulStatus = 1;
            return;
        }
        GetResult_COMMAND_MICROOHM_MEASURE(i_Fetch.ulReturned, i_Fetch.plProcessedData, o_Result,
                                           i_Fetch.pAnswer);
        if (o_Result.ulStatus == 0) {
            *i_Fetch.plProcessedDataSize = k_ulNbValues;
        } else {
            Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> "
                               L"GetResult_COMMAND_MICROOHM_MEASURE error");
        }
        break;
    case COMMAND_VERSION:
        GetResult_COMMAND_VERSION(i_Fetch, o_Result);
        break;
    default:
        Texts().FetchUnknown.Emit();
        o_Result.ulStatus = 1;
        break;
    }
}

void C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE(uint32_t i_ulNbReturnByte,
                                                                int32_t* o_plProcessedData,
                                                                S_RESULT& o_Result,
                                                                S_DATA* i_pAnswer)
{
    if (o_plProcessedData == nullptr || i_pAnswer == nullptr ||
        i_ulNbReturnByte < k_ulFrameHeadSize) {
        Trace(ERROR_LEVEL,
              L"C_MilliOhmDriverSerial::GetResult_COMMAND_MICROOHM_MEASURE> getCmdOutBuff:%08X "
              L"i_ulNbReturnByte=%ld",
              static_cast<const void*>(i_pAnswer), i_ulNbReturnByte);
        o_Result.ulStatus = 1;
        return;
    }
    if (!CheckReply(i_ulNbReturnByte, i_pAnswer)) {
        o_Result.ulStatus = 1;
        return;
    }
    const uint8_t* l_pucStatus = i_pAnswer->aucBytes + k_ulMeasureStatusOffset;
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
        o_Result.ulStatus = 1;
        o_Result.ulFwStatus =
            static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(l_pucStatus[0])));
        return;
    }
    for (uint32_t i = 0; i < k_ulNbValues; ++i) {
        o_plProcessedData[i] = static_cast<int32_t>(
            wire::ReadLe32(i_pAnswer->aucBytes + k_ulValuesOffset + static_cast<size_t>(4) * i));
    }
    o_plProcessedData[k_ulNbValues] = 0;
}

void C_MilliOhmDriverSerial::GetResult_COMMAND_VERSION(const S_FETCH& i_Fetch, S_RESULT& o_Result)
{
    const uint32_t l_ulReturned = i_Fetch.ulReturned;
    if (i_Fetch.pAnswer == nullptr || i_Fetch.pcRawData == nullptr ||
        l_ulReturned < k_ulFrameHeadSize) {
        o_Result.ulStatus = 1;
        return;
    }
    const uint32_t l_ulText = l_ulReturned - k_ulFrameHeadSize;
    if (i_Fetch.ulNbReturnByte < l_ulText || !CheckReply(l_ulReturned, i_Fetch.pAnswer)) {
        o_Result.ulStatus = 1;
        return;
    }
    if (l_ulText > RS_BLOCK_SIZE - k_ulVersionOffset) {
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerial::GetResult> ERROR version size: %u", l_ulText);
        o_Result.ulStatus = 1;
        return;
    }
    std::memcpy(i_Fetch.pcRawData, i_Fetch.pAnswer->aucBytes + k_ulVersionOffset, l_ulText);
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
    S_RESULT l_Result =
        RunBlockingExchange(MakeCommand(COMMAND_MICROOHM_MEASURE, k_ulMeasureTimeout,
                                        k_ulSubHeadSize + sizeof(s_aucPayload)),
                            s_aucPayload, 0, &l_lCount, l_alValues, 1, {});
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
