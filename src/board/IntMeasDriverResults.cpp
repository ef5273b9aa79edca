// The answer side of the board: fetch, firmware status, the three decoders, calibration.

#include <algorithm>
#include <limits>

#include "board/IntMeasDriver.h"
#include "platform/Clock.h"
#include "samples/Scaling.h"
#include "support/Numbers.h"

namespace tornval {

std::atomic<double> CIntMeasDriver::s_dCoefA[k_ulNbVoies];
std::atomic<double> CIntMeasDriver::s_dCoefB[k_ulNbVoies];

namespace {

/** What every answer gets, in milliseconds, on top of what the caller asks for. */
constexpr uint32_t k_ulAnswerWait = 5000;

/** A firmware error code that is none. */
constexpr uint32_t k_ulFirmwareNoError = 2006;

/** Compressed bytes for which an answer block has room. */
constexpr uint32_t k_ulMaxCompressed = RS_BLOCK_SIZE - k_ulAnswerDataOffset - 4;

/** Bytes of an answer block that hold status, head and all values but samples. */
constexpr uint32_t k_ulDecodedHead = 256;
static_assert(k_ulAnswerDataOffset + 8 * k_ulNbVoies <= k_ulDecodedHead);

/** The caller's wait on top of the fixed one; never a wait without end. */
uint32_t AnswerWait(uint32_t i_ulTimeout)
{
    constexpr uint32_t l_ulLongest = cecore::INFINITE - 1;
    return i_ulTimeout > l_ulLongest - k_ulAnswerWait ? l_ulLongest : i_ulTimeout + k_ulAnswerWait;
}

} // namespace

S_RESULT CIntMeasDriver::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                   int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                   uint32_t i_ulTimeout, uint8_t i_bCompensation)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult (general)>");
    return GetResult(i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize, o_plProcessedData,
                     i_ulTimeout, &m_Frame, &m_usCmdeID, &m_Answer, i_bCompensation);
}

S_RESULT CIntMeasDriver::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                   int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                   uint32_t i_ulTimeout, const S_DATA* i_pFrame,
                                   const uint16_t* i_pusCmdeID, S_DATA* o_pAnswer,
                                   uint8_t i_bCompensation)
{
    const S_EXCHANGE_TEXTS& l_Texts = Texts();
    l_Texts.FetchStart.Emit();
    S_RESULT l_Result = MakeResult(m_ulDriverType, TORNVAL_STEP_RESULT);
    if (!HasTransport() || i_pFrame == nullptr || i_pusCmdeID == nullptr || o_pAnswer == nullptr) {
        l_Result.ulStatus = 1;
        l_Texts.FetchArgument.Emit();
        return l_Result;
    }
    // Without the lock: others can send meanwhile.
    const cecore::Handle l_hEvent = wire::ReadLe32(i_pFrame->aucBytes + RS_BLOCK_EVENT_OFFSET);
    if (l_hEvent == 0 ||
        cecore::WaitForSingleObject(l_hEvent, AnswerWait(i_ulTimeout)) != cecore::WAIT_OBJECT_0) {
        // The echo of host-level commands is another thread's to write, under the lock.
        const CDriverLock l_Lock(*this);
        l_Texts.FetchTimeout.Emit(*i_pusCmdeID);
        l_Result.ulStatus = 1;
        return l_Result;
    }
    l_Texts.FetchSync.Emit(cecore::GetTickCount());
    const CDriverLock l_Lock(*this);
    if (o_pcRawData == nullptr) {
        l_Texts.FetchRawNull.Emit(*i_pusCmdeID);
        l_Result.ulStatus = 1;
        return l_Result;
    }
    FetchAnswer({*i_pusCmdeID, 0, i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize,
                 o_plProcessedData, o_pAnswer, i_bCompensation},
                l_Result);
    return l_Result;
}

void CIntMeasDriver::FetchAnswer(S_FETCH io_Fetch, S_RESULT& o_Result)
{
    const S_EXCHANGE_TEXTS& l_Texts = Texts();
    const uint32_t l_ulCmdeID = io_Fetch.usCmdeID;
    uint8_t* l_pucAnswer = io_Fetch.pAnswer->aucBytes;

    // What the decoders read where an answer is too short: nothing of an earlier one.
    std::memset(l_pucAnswer, 0, k_ulDecodedHead);
    const uint32_t l_ulBefore = cecore::GetTickCount();
    l_Texts.FetchBefore.Emit(l_ulBefore);
    uint8_t l_aucEcho[2];
    wire::WriteLe16(l_aucEcho, io_Fetch.usCmdeID);
    const bool l_bFetched = DeviceIo(IOCTL_RS_GET_RESULT, l_aucEcho, sizeof(l_aucEcho), l_pucAnswer,
                                     RS_BLOCK_SIZE, &io_Fetch.ulReturned);
    const uint32_t l_ulLastError = cecore::GetLastError();
    const uint32_t l_ulAfter = cecore::GetTickCount();
    l_Texts.FetchAfter.Emit(l_ulAfter, l_ulAfter - l_ulBefore);
    l_Texts.FetchCount.Emit(io_Fetch.ulReturned);

    const uint32_t l_ulLinkStatus = wire::ReadLe32(l_pucAnswer);
    if (!l_bFetched) {
        l_Texts.FetchIoError.Emit(l_ulLastError);
        l_Texts.FetchIoCmde.Emit(l_ulCmdeID);
        o_Result.ulFwStatus = 2;
        o_Result.ulStatus = 1;
        o_Result.ulLastError = l_ulLastError;
    } else if (l_ulLinkStatus != 0) {
        l_Texts.FetchStatus.Emit(l_ulLinkStatus);
        l_Texts.FetchStatusCmde.Emit(l_ulLinkStatus, l_ulCmdeID);
        o_Result.ulFwStatus = 5;
        o_Result.ulStatus = 1;
    } else if (io_Fetch.ulReturned < k_ulFrameHeadSize) {
        l_Texts.FetchHead.Emit(io_Fetch.ulReturned, k_ulFrameHeadSize);
        l_Texts.FetchHeadCmde.Emit(io_Fetch.ulReturned, k_ulFrameHeadSize, l_ulCmdeID);
        o_Result.ulStatus = 1;
    } else {
        CheckFirmwareError(o_Result, l_pucAnswer + RS_ANSWER_FRAME_OFFSET);
    }
    if (o_Result.ulStatus != 0) {
        l_Texts.FetchError.Emit(l_ulCmdeID);
        return;
    }
    l_Texts.FetchCmde.Emit(l_ulCmdeID);
    DecodeAnswer(io_Fetch, o_Result);
}

bool CIntMeasDriver::IsPlainCommand(uint16_t i_usCmdeID) const
{
    switch (i_usCmdeID) {
    case 0:
    case 3:
    case 209:
    case 210:
    case 213:
    case 214:
        return true;
    default:
        return false;
    }
}

void CIntMeasDriver::DecodeAnswer(const S_FETCH& i_Fetch, S_RESULT& o_Result)
{
    if (IsPlainCommand(i_Fetch.usCmdeID)) {
        Texts().FetchPlain.Emit(i_Fetch.usCmdeID);
        return;
    }
    switch (i_Fetch.usCmdeID) {
    case ACQUSITION_INIT:
        GetResult_ACQUSITION_INIT(i_Fetch.ulReturned, i_Fetch.pAnswer, o_Result);
        break;
    case ACQUISITION_UPLOAD:
        std::memcpy(i_Fetch.pcRawData, i_Fetch.pAnswer->aucBytes + RS_ANSWER_FRAME_OFFSET,
                    std::min(i_Fetch.ulNbReturnByte, k_ulRawResultSize));
        GetResult_ACQUISITION_UPLOAD(i_Fetch.ulReturned, o_Result, i_Fetch.plProcessedDataSize,
                                     i_Fetch.plProcessedData, i_Fetch.pAnswer);
        break;
    case MEASURE_INTERNE:
        if (i_Fetch.plProcessedData == nullptr) {
            o_Result.ulStatus = 1;
        } else {
            GetResult_MEASURE_INTERNE(i_Fetch.ulReturned, i_Fetch.plProcessedData, o_Result,
                                      i_Fetch.pAnswer, i_Fetch.bCompensation);
        }
        break;
    default:
        Texts().FetchUnknown.Emit();
        o_Result.ulStatus = 1;
        break;
    }
}

void CIntMeasDriver::CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult)
{
    if (pDataResult == nullptr) {
        Trace(ERROR_LEVEL, L"CIntMeasDriver::CheckFirmwareError> ERROR pDataResult is NULL");
        o_Result.ulStatus = 1;
        return;
    }
    const uint16_t l_usCode = wire::ReadLe16(pDataResult + k_ulFirmwareCodeOffset);
    Trace(FW_LEVEL, L"CIntMeasDriver> FW returned code: %d", l_usCode);
    if (l_usCode != 1) {
        Trace(ERROR_LEVEL,
              L"CIntMeasDriver::CheckFirmwareError> ERROR code de retour du firmware: %d",
              l_usCode);
        o_Result.ulStatus = 1;
        o_Result.ulFwStatus = l_usCode;
        return;
    }
    const uint32_t l_ulError = wire::ReadLe32(pDataResult + k_ulFirmwareErrorOffset);
    Trace(FW_LEVEL, L"CIntMeasDriver> FW error code: %d", l_ulError);
    if (l_ulError == 0 || l_ulError == k_ulFirmwareNoError) {
        Trace(INFO_LEVEL, L"CIntMeasDriver::CheckFirmwareError> OK ");
        return;
    }
    Trace(ERROR_LEVEL, L"CIntMeasDriver::CheckFirmwareError> error code du firmware: %d",
          l_ulError);
    o_Result.ulStatus = 1;
    o_Result.ulFwStatus = l_ulError;
}

void CIntMeasDriver::GetResult_ACQUSITION_INIT(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer,
                                               S_RESULT& o_Result)
{
    DecodeCoefficients(i_ulNbReturnByte, i_pAnswer, o_Result, 181);
}

void CIntMeasDriver::DecodeCoefficients(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer,
                                        S_RESULT& o_Result, uint32_t i_ulMinSize)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult_ACQUSITION_INIT>");
    if (i_pAnswer == nullptr || i_ulNbReturnByte < i_ulMinSize + k_ulFrameHeadSize) {
        Trace(ERROR_LEVEL,
              L"CIntMeasDriver::GetResult_ACQUSITION_INIT> getCmdOutBuff is NULL or size error: "
              L"%ld (sizeof(S_DATA) = %d)",
              i_ulNbReturnByte, k_ulFrameHeadSize);
        o_Result.ulStatus = 1;
        return;
    }
    already_init = 1;
    const uint8_t* l_pucPair = i_pAnswer->aucBytes + k_ulAnswerDataOffset;
    for (uint32_t l_ulVoie = 0; l_ulVoie < k_ulNbVoies; ++l_ulVoie, l_pucPair += 8) {
        const uint32_t l_ulA = wire::ReadLe32(l_pucPair);
        const auto l_lB = static_cast<int32_t>(wire::ReadLe32(l_pucPair + 4));
        s_dCoefA[l_ulVoie].store(l_ulA, std::memory_order_relaxed);
        s_dCoefB[l_ulVoie].store(l_lB, std::memory_order_relaxed);
        if (m_ulLogCalibrationCoef == 1) {
            Trace(FW_LEVEL, L"voie=%d a=%d b=%d\n", l_ulVoie, l_ulA, l_lB);
        }
    }
}

bool CIntMeasDriver::CheckReply(uint32_t i_ulReturned, S_DATA* io_pAnswer) const
{
    if (io_pAnswer == nullptr) {
        return false;
    }
    // Whether the count includes the status word is the link's affair, so the range may end behind
    // the frame. It ends within the block in any case: its length has 16 bits.
    uint8_t* l_pucFrame = io_pAnswer->aucBytes + RS_ANSWER_FRAME_OFFSET;
    const auto l_usLength = static_cast<uint16_t>(i_ulReturned - RS_FRAME_ID_OFFSET);
    static_assert(RS_ANSWER_FRAME_OFFSET + RS_FRAME_ID_OFFSET +
                      std::numeric_limits<uint16_t>::max() <=
                  RS_BLOCK_SIZE);
    wire::WriteLe16(l_pucFrame + RS_FRAME_CRC_OFFSET,
                    m_Crc16.ComputeCrc16(l_pucFrame + RS_FRAME_ID_OFFSET, l_usLength));
    return true;
}

void CIntMeasDriver::GetResult_MEASURE_INTERNE(uint32_t i_ulNbReturnByte,
                                               int32_t* o_plProcessedData, S_RESULT& o_Result,
                                               S_DATA* i_pAnswer, uint8_t i_bCompensation)
{
    o_plProcessedData[0] = 0;
    if (i_pAnswer == nullptr || i_ulNbReturnByte < 24 || !CheckReply(i_ulNbReturnByte, i_pAnswer)) {
        o_Result.ulStatus = 1;
        return;
    }
    const uint8_t* l_pucData = i_pAnswer->aucBytes + k_ulAnswerDataOffset;
    // The input that the answer names counts, not the one that was asked for.
    const uint32_t l_ulVoie = wire::ReadLe32(l_pucData);
    if (l_ulVoie >= k_ulNbVoies) {
        o_Result.ulStatus = 1;
        return;
    }
    double l_dMeasure = wire::ReadLe32(l_pucData + 4);
    if (i_bCompensation == 1) {
        const double l_dA = s_dCoefA[l_ulVoie].load(std::memory_order_relaxed);
        const double l_dB = s_dCoefB[l_ulVoie].load(std::memory_order_relaxed);
        Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult_MEASURE_INTERNE> ADC=%f a=%f b=%f",
              l_dMeasure, l_dA, l_dB);
        l_dMeasure = Calibrate(l_dMeasure, l_dA, l_dB);
    }
    o_plProcessedData[0] = TruncateToInt32(l_dMeasure);
    Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult_MEASURE_INTERNE> Data=%ld", o_plProcessedData[0]);
}

void CIntMeasDriver::GetResult_ACQUISITION_UPLOAD(uint32_t i_ulNbReturnByte, S_RESULT& o_Result,
                                                  int32_t* o_plProcessedDataSize,
                                                  int32_t* o_plProcessedData, S_DATA* i_pAnswer)
{
    Trace(INFO_LEVEL, L"GetResult_ACQUISITION_UPLOAD> i_ulNbReturnByte=%d", i_ulNbReturnByte);
    // Failed until the last step is done.
    o_Result.ulStatus = 1;
    if (o_plProcessedDataSize != nullptr) {
        *o_plProcessedDataSize = 0;
    }
    if (i_pAnswer == nullptr) {
        return;
    }
    const uint8_t* l_pucData = i_pAnswer->aucBytes + k_ulAnswerDataOffset;
    const uint32_t l_ulCompressed = wire::ReadLe32(l_pucData);
    if (l_ulCompressed > k_ulMaxCompressed) {
        Trace(ERROR_LEVEL, L"GetResult_ACQUISITION_UPLOAD> ERROR compressed size: %u",
              l_ulCompressed);
        return;
    }
    if (i_ulNbReturnByte < l_ulCompressed + k_ulAnswerDataOffset) {
        return;
    }
    if (!CheckReply(i_ulNbReturnByte, i_pAnswer) || m_bDecompressData != 1 ||
        m_ppVoieData == nullptr) {
        return;
    }
    if (o_plProcessedDataSize == nullptr || o_plProcessedData == nullptr) {
        Trace(ERROR_LEVEL, L"GetResult_ACQUISITION_UPLOAD> ERROR no room for the samples");
        return;
    }
    int32_t* l_aplStores[k_ulMaxChannels] = {};
    int32_t l_alCounts[k_ulMaxChannels] = {};
    for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
        l_aplStores[i] = m_ppVoieData[i].get();
        if (m_pulVoies[i] >= k_ulNbVoies) {
            Trace(ERROR_LEVEL, L"GetResult_ACQUISITION_UPLOAD> ERROR channel %d voie: %u", i,
                  m_pulVoies[i]);
            return;
        }
    }
    DecompressSamplesMultiChannel(l_pucData + 4, l_ulCompressed, l_aplStores, m_ulNbChannel,
                                  l_alCounts, k_ulMaxSamples);
    auto l_lTotal = static_cast<int32_t>(m_ulNbChannel);
    int32_t* l_plOutput = o_plProcessedData + m_ulNbChannel;
    for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
        o_plProcessedData[i] = l_alCounts[i];
        l_lTotal += l_alCounts[i];
        if (l_aplStores[i] != nullptr) {
            l_plOutput = std::copy_n(l_aplStores[i], l_alCounts[i], l_plOutput);
        }
    }
    *o_plProcessedDataSize = l_lTotal;
    o_Result.ulStatus = 0;
}

void CIntMeasDriver::ScaleSample(int32_t* o_plValue, uint32_t i_ulChannel, uint32_t,
                                 uint16_t i_usSample)
{
    if (o_plValue == nullptr || i_ulChannel >= m_ulNbChannel) {
        return;
    }
    const uint32_t l_ulVoie = m_pulVoies[i_ulChannel];
    if (l_ulVoie >= k_ulNbVoies) {
        return;
    }
    *o_plValue = TruncateToInt32(Calibrate(static_cast<int16_t>(i_usSample),
                                           s_dCoefA[l_ulVoie].load(std::memory_order_relaxed),
                                           s_dCoefB[l_ulVoie].load(std::memory_order_relaxed)));
}

bool CIntMeasDriver::GetScaling(S_SCALING& o_Scaling) const
{
    o_Scaling.bCalibrated = true;
    for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
        const uint32_t l_ulVoie = m_pulVoies[i];
        if (i >= o_Scaling.aChannels.size() || l_ulVoie >= k_ulNbVoies) {
            return false;
        }
        o_Scaling.aChannels[i].dA = s_dCoefA[l_ulVoie].load(std::memory_order_relaxed);
        o_Scaling.aChannels[i].dB = s_dCoefB[l_ulVoie].load(std::memory_order_relaxed);
    }
    return true;
}

uint32_t CIntMeasDriver::GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff)
{
    if (o_pdA == nullptr || o_pdB == nullptr || i_ulNbCoeff == 0) {
        return 0;
    }
    for (uint32_t i = 0; i < i_ulNbCoeff; ++i) {
        o_pdA[i] = i < k_ulNbVoies ? s_dCoefA[i].load(std::memory_order_relaxed) : 0.0;
        o_pdB[i] = i < k_ulNbVoies ? s_dCoefB[i].load(std::memory_order_relaxed) : 0.0;
    }
    return 1;
}

} // namespace tornval
