// The answers of the board: firmware status, the three decoders, calibration.

#include <algorithm>
#include <limits>

#include "board/IntMeasDriver.h"
#include "platform/Reason.h"
#include "samples/Scaling.h"
#include "support/Numbers.h"

namespace tornval {

std::atomic<double> CIntMeasDriver::s_dCoefA[k_ulNbVoies];
std::atomic<double> CIntMeasDriver::s_dCoefB[k_ulNbVoies];

namespace {

/** Error codes with which the firmware reports success: 0 and 2006 both. */
constexpr uint32_t k_ulFirmwareOk = 0;
constexpr uint32_t k_ulFirmwareOkToo = 2006;

/** Compressed bytes for which an answer block has room. */
constexpr uint32_t k_ulMaxCompressed = RS_BLOCK_SIZE - k_ulAnswerDataOffset - 4;

} // namespace

void CIntMeasDriver::CheckFirmwareError(S_RESULT& o_Result, const uint8_t* pDataResult)
{
    if (pDataResult == nullptr) {
        Trace(ERROR_LEVEL, L"CIntMeasDriver::CheckFirmwareError> ERROR pDataResult is NULL");
        o_Result.ulStatus = 1;
        return;
    }
    const uint16_t l_usCode = wire::ReadLe16(pDataResult + wire::k_ulReturnCodeOffset);
    Trace(FW_LEVEL, L"CIntMeasDriver> FW returned code: %d", l_usCode);
    if (l_usCode != 1) {
        Trace(ERROR_LEVEL,
              L"CIntMeasDriver::CheckFirmwareError> ERROR code de retour du firmware: %d",
              l_usCode);
        cecore::NoteReason(0, "the board's firmware returned code %u", l_usCode);
        o_Result.ulStatus = 1;
        o_Result.ulFwStatus = l_usCode;
        return;
    }
    const uint32_t l_ulError = wire::ReadLe32(pDataResult + wire::k_ulErrorCodeOffset);
    Trace(FW_LEVEL, L"CIntMeasDriver> FW error code: %d", l_ulError);
    if (l_ulError == k_ulFirmwareOk || l_ulError == k_ulFirmwareOkToo) {
        Trace(INFO_LEVEL, L"CIntMeasDriver::CheckFirmwareError> OK ");
        return;
    }
    Trace(ERROR_LEVEL, L"CIntMeasDriver::CheckFirmwareError> error code du firmware: %d",
          l_ulError);
    cecore::NoteReason(0, "the board's firmware reported error %u", l_ulError);
    o_Result.ulStatus = 1;
    o_Result.ulFwStatus = l_ulError;
}

void CIntMeasDriver::DecodeInit(S_EXCHANGE& io_Exchange)
{
    GetResult_ACQUSITION_INIT(io_Exchange.ulDelivered, io_Exchange.pAnswer, io_Exchange.Result);
}

void CIntMeasDriver::GetResult_ACQUSITION_INIT(uint32_t i_ulNbReturnByte, const S_DATA* i_pAnswer,
                                               S_RESULT& o_Result)
{
    Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult_ACQUSITION_INIT>");
    const S_COMMAND* l_pCommand = FindCommand(m_pKind->Commands, ACQUSITION_INIT);
    const uint32_t l_ulLeast =
        (l_pCommand == nullptr ? 0 : l_pCommand->ulLeastAnswer) + k_ulFrameHeadSize;
    if (i_pAnswer == nullptr || i_ulNbReturnByte < l_ulLeast) {
        Trace(ERROR_LEVEL,
              L"CIntMeasDriver::GetResult_ACQUSITION_INIT> getCmdOutBuff is NULL or size error: "
              L"%ld (sizeof(S_DATA) = %d)",
              i_ulNbReturnByte, k_ulFrameHeadSize);
        cecore::NoteReason(0, "the board's coefficients have %u bytes of at least %u",
                           i_ulNbReturnByte, l_ulLeast);
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

bool CIntMeasDriver::CheckReply(uint32_t i_ulDelivered, S_DATA* io_pAnswer) const
{
    if (io_pAnswer == nullptr) {
        return false;
    }
    // Whether the count includes the status word is the link's affair, so the range may end behind
    // the frame. It ends within the block in any case: its length has 16 bits.
    uint8_t* l_pucFrame = io_pAnswer->aucBytes + RS_ANSWER_FRAME_OFFSET;
    const auto l_usLength = static_cast<uint16_t>(i_ulDelivered - RS_FRAME_ID_OFFSET);
    static_assert(RS_ANSWER_FRAME_OFFSET + RS_FRAME_ID_OFFSET +
                      std::numeric_limits<uint16_t>::max() <=
                  RS_BLOCK_SIZE);
    wire::WriteLe16(l_pucFrame + RS_FRAME_CRC_OFFSET,
                    m_Crc16.ComputeCrc16(l_pucFrame + RS_FRAME_ID_OFFSET, l_usLength));
    return true;
}

void CIntMeasDriver::GetResult_MEASURE_INTERNE(S_EXCHANGE& io_Exchange)
{
    if (io_Exchange.plProcessedData == nullptr) {
        io_Exchange.Fail();
        return;
    }
    int32_t& l_lMeasure = *io_Exchange.plProcessedData = 0;
    if (io_Exchange.ulDelivered < io_Exchange.pCommand->ulLeastAnswer ||
        !CheckReply(io_Exchange.ulDelivered, io_Exchange.pAnswer)) {
        io_Exchange.Fail();
        return;
    }
    const uint8_t* l_pucData = io_Exchange.pAnswer->aucBytes + k_ulAnswerDataOffset;
    // The input that the answer names counts, not the one that was asked for.
    const uint32_t l_ulVoie = wire::ReadLe32(l_pucData);
    if (l_ulVoie >= k_ulNbVoies) {
        io_Exchange.Fail();
        return;
    }
    double l_dMeasure = wire::ReadLe32(l_pucData + 4);
    if (io_Exchange.bCompensation == 1) {
        const double l_dA = s_dCoefA[l_ulVoie].load(std::memory_order_relaxed);
        const double l_dB = s_dCoefB[l_ulVoie].load(std::memory_order_relaxed);
        Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult_MEASURE_INTERNE> ADC=%f a=%f b=%f",
              l_dMeasure, l_dA, l_dB);
        l_dMeasure = Calibrate(l_dMeasure, l_dA, l_dB);
    }
    l_lMeasure = TruncateToInt32(l_dMeasure);
    Trace(INFO_LEVEL, L"CIntMeasDriver::GetResult_MEASURE_INTERNE> Data=%ld", l_lMeasure);
}

void CIntMeasDriver::GetResult_ACQUISITION_UPLOAD(S_EXCHANGE& io_Exchange)
{
    const uint32_t l_ulDelivered = io_Exchange.ulDelivered;
    const uint8_t* l_pucAnswer = io_Exchange.pAnswer->aucBytes;
    std::memcpy(io_Exchange.pcRawData, l_pucAnswer + RS_ANSWER_FRAME_OFFSET,
                std::min(io_Exchange.ulRoom, k_ulRawResultSize));
    Trace(INFO_LEVEL, L"GetResult_ACQUISITION_UPLOAD> i_ulNbReturnByte=%d", l_ulDelivered);
    io_Exchange.Fail(); // until the last step is done
    if (io_Exchange.plProcessedDataSize != nullptr) {
        *io_Exchange.plProcessedDataSize = 0;
    }
    const uint8_t* l_pucData = l_pucAnswer + k_ulAnswerDataOffset;
    const uint32_t l_ulCompressed = wire::ReadLe32(l_pucData);
    if (l_ulCompressed > k_ulMaxCompressed) {
        Trace(ERROR_LEVEL, L"GetResult_ACQUISITION_UPLOAD> ERROR compressed size: %u",
              l_ulCompressed);
        return;
    }
    if (l_ulDelivered < l_ulCompressed + k_ulAnswerDataOffset ||
        !CheckReply(l_ulDelivered, io_Exchange.pAnswer) || m_bDecompressData != 1 ||
        m_ppVoieData == nullptr) {
        return;
    }
    if (io_Exchange.plProcessedDataSize == nullptr || io_Exchange.plProcessedData == nullptr) {
        Trace(ERROR_LEVEL, L"GetResult_ACQUISITION_UPLOAD> ERROR no room for the samples");
        return;
    }
    int32_t* l_aplStores[k_ulMaxChannels] = {};
    int32_t l_alCounts[k_ulMaxChannels] = {};
    for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
        l_aplStores[i] = m_ppVoieData[i].Get();
        if (m_pulVoies[i] >= k_ulNbVoies) {
            Trace(ERROR_LEVEL, L"GetResult_ACQUISITION_UPLOAD> ERROR channel %d voie: %u", i,
                  m_pulVoies[i]);
            return;
        }
    }
    // The first channel's place is known beforehand; the others follow behind what comes of it.
    int32_t* l_plOutput = io_Exchange.plProcessedData + m_ulNbChannel;
    if (l_aplStores[0] != nullptr) {
        l_aplStores[0] = l_plOutput;
    }
    DecompressSamplesMultiChannel(l_pucData + 4, l_ulCompressed, l_aplStores, m_ulNbChannel,
                                  l_alCounts, k_ulMaxSamples);
    auto l_lTotal = static_cast<int32_t>(m_ulNbChannel);
    for (uint32_t i = 0; i < m_ulNbChannel; ++i) {
        io_Exchange.plProcessedData[i] = l_alCounts[i];
        l_lTotal += l_alCounts[i];
        if (l_aplStores[i] == l_plOutput) {
            l_plOutput += l_alCounts[i];
        } else if (l_aplStores[i] != nullptr) {
            l_plOutput = std::copy_n(l_aplStores[i], l_alCounts[i], l_plOutput);
        }
    }
    *io_Exchange.plProcessedDataSize = l_lTotal;
    io_Exchange.Result.ulStatus = 0;
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
