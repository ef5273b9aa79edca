#include "probes/ProbeDriver.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "samples/SampleCode.h"
#include "support/Trace.h"
#include "wire/Bytes.h"

namespace tornval {
namespace {

constexpr uint32_t k_ulReadTimeout = 5000;
constexpr uint32_t k_ulStopTimeout = 1000;
constexpr uint32_t k_ulStartPayloadSize = 4;
constexpr uint32_t k_ulStartSecondPayloadSize = 8;
constexpr uint32_t k_ulStartSecondValue = 3;
/** Zeroed bytes or values behind what a reply has. */
constexpr uint32_t k_ulSpare = 5;

/** Statuses of a rolling reply that tell of an error and come with samples all the same. */
constexpr uint8_t k_ucStatusWithSamples1 = 0x2C;
constexpr uint8_t k_ucStatusWithSamples2 = 0x30;

/** Counts that stand before the samples. */
constexpr uint32_t k_ulNbCounts = 2;

/** Zeroed scratch; null if there is no memory. */
template <typename T>
std::unique_ptr<T[]> AllocateScratch(size_t i_ulSize)
{
    return std::unique_ptr<T[]>(new (std::nothrow) T[i_ulSize]());
}

/**
 * The mean of one channel of processed samples, truncated towards zero.
 *
 * @param i_lSize values in i_plProcessedData, counts included.
 * @return false if the channel has no sample.
 */
bool MeanOfChannel(const int32_t* i_plProcessedData, int32_t i_lSize, uint32_t i_ulVoie,
                   int32_t& o_lMean)
{
    if (i_lSize <= static_cast<int32_t>(k_ulNbCounts) || i_plProcessedData[i_ulVoie] <= 0) {
        return false;
    }
    const int64_t l_llCount = i_plProcessedData[i_ulVoie];
    const int64_t l_llFirst = k_ulNbCounts + (i_ulVoie == 0 ? 0 : int64_t{i_plProcessedData[0]});
    const int64_t l_llEnd = std::min<int64_t>(l_llFirst + l_llCount, i_lSize);
    int64_t l_llSum = 0;
    for (int64_t l_ll = l_llFirst; l_ll < l_llEnd; ++l_ll) {
        l_llSum += i_plProcessedData[l_ll];
    }
    o_lMean = static_cast<int32_t>(l_llSum / l_llCount);
    return true;
}

} // namespace

CProbeDriver::CProbeDriver()
{
    m_ulNbChannel = 1;
    m_alCoefLowRange[0] = 4;
    m_alCoefLowRange[1] = 16;
    m_alCoefHighRange[0] = 64;
    m_alCoefHighRange[1] = 256;
}

void CProbeDriver::ScaleSample(int32_t* o_plValue, uint32_t i_ulChannel, uint32_t i_ulHighRange,
                               uint16_t i_usSample)
{
    if (o_plValue != nullptr && i_ulChannel < m_ulNbChannel) {
        *o_plValue =
            ScaleSampleValue(i_usSample, i_ulHighRange != 0 ? m_alCoefHighRange[i_ulChannel]
                                                            : m_alCoefLowRange[i_ulChannel]);
    }
}

bool CProbeDriver::GetScaling(S_SCALING& o_Scaling) const
{
    if (m_ulNbChannel > o_Scaling.aChannels.size()) {
        return false;
    }
    for (uint32_t l_ul = 0; l_ul < m_ulNbChannel; ++l_ul) {
        o_Scaling.aChannels[l_ul].lLow = m_alCoefLowRange[l_ul];
        o_Scaling.aChannels[l_ul].lHigh = m_alCoefHighRange[l_ul];
    }
    return true;
}

S_RESULT CProbeDriver::GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie, uint8_t,
                                         uint32_t i_ulMeasureParam)
{
    if (o_plValue == nullptr) {
        return MakeResult(0, 0, 1);
    }
    *o_plValue = 0;
    // An acquisition that someone left running would answer in place of ours; none is no failure.
    StopRollingCmde();
    S_RESULT l_Result = StartRollingCmde(i_ulVoie, i_ulMeasureParam);
    if (l_Result.ulStatus == 0) {
        l_Result = GetRollingCmde(i_ulVoie, o_plValue);
        StopRollingCmde();
    }
    return l_Result;
}

S_RESULT CProbeDriver::StartRollingCmde(uint32_t i_ulVoie, uint32_t i_ulMeasureParam)
{
    if (i_ulVoie > 1) {
        return MakeResult(0, 0, 1);
    }
    uint8_t l_aucPayload[k_ulStartSecondPayloadSize];
    wire::WriteLe32(l_aucPayload, i_ulMeasureParam);
    wire::WriteLe32(l_aucPayload + k_ulStartPayloadSize, k_ulStartSecondValue);
    const bool l_bFirst = i_ulVoie == 0;
    S_SEND_STRUCT l_Cmde =
        MakeCommand(l_bFirst ? PROBE_CMDE_START : PROBE_CMDE_START_SECOND, k_ulReadTimeout,
                    l_bFirst ? k_ulStartPayloadSize : k_ulStartSecondPayloadSize);
    int32_t l_lProcessedDataSize = 0;
    return RunRollingCmde(l_Cmde, l_aucPayload, &l_lProcessedDataSize);
}

S_RESULT CProbeDriver::StopRollingCmde()
{
    S_SEND_STRUCT l_Cmde = MakeCommand(PROBE_CMDE_STOP, k_ulStopTimeout, 0);
    return RunRollingCmde(l_Cmde, nullptr, nullptr);
}

S_RESULT CProbeDriver::GetRollingCmde(uint32_t i_ulVoie, int32_t* o_plValue)
{
    *o_plValue = 0;
    if (i_ulVoie > 1) {
        return MakeResult(0, 0, 1);
    }
    S_SEND_STRUCT l_Cmde =
        MakeCommand(i_ulVoie == 0 ? PROBE_CMDE_READ : PROBE_CMDE_READ_BOTH, k_ulReadTimeout, 0);
    uint32_t l_ulNbReturnByte = 0;
    S_RESULT l_Result = SendRollingCmde(l_Cmde, nullptr, l_ulNbReturnByte);
    if (l_Result.ulStatus != 0) {
        return l_Result;
    }
    const auto l_pcRawData = AllocateScratch<char>(l_ulNbReturnByte + k_ulSpare);
    const auto l_plSamples = AllocateScratch<int32_t>(l_ulNbReturnByte + k_ulSpare);
    if (l_pcRawData == nullptr || l_plSamples == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    int32_t l_lSize = 0;
    l_Result = GetResult(l_ulNbReturnByte, l_pcRawData.get(), &l_lSize, l_plSamples.get(),
                         k_ulReadTimeout, 1);
    if (l_Result.ulStatus == 0 &&
        !MeanOfChannel(l_plSamples.get(), l_lSize, i_ulVoie, *o_plValue)) {
        l_Result.ulStatus = 1;
    }
    return l_Result;
}

/** Sends a command of an instant measure and gives the size of its reply, if that can be. */
S_RESULT CProbeDriver::SendRollingCmde(S_SEND_STRUCT& io_Cmde, const void* i_pcData,
                                       uint32_t& o_ulNbReturnByte)
{
    S_RECEIVE_STRUCT l_Receive{};
    S_RESULT l_Result = SendCommand(&io_Cmde, &l_Receive, i_pcData, 0);
    o_ulNbReturnByte = GetNbReturnByte(l_Receive);
    if (l_Result.ulStatus == 0 && o_ulNbReturnByte > k_ulMaxProbeReply) {
        Trace(ERROR_LEVEL, L"CProbeDriver::SendRollingCmde> reply size error: %lu",
              o_ulNbReturnByte);
        l_Result.ulStatus = 1;
    }
    return l_Result;
}

/** A command of an instant measure whose reply carries nothing. */
S_RESULT CProbeDriver::RunRollingCmde(S_SEND_STRUCT& io_Cmde, const void* i_pcData,
                                      int32_t* o_plProcessedDataSize)
{
    uint32_t l_ulNbReturnByte = 0;
    S_RESULT l_Result = SendRollingCmde(io_Cmde, i_pcData, l_ulNbReturnByte);
    if (l_Result.ulStatus != 0) {
        return l_Result;
    }
    const auto l_pcRawData = AllocateScratch<char>(l_ulNbReturnByte + k_ulSpare);
    if (l_pcRawData == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    return GetResult(l_ulNbReturnByte, l_pcRawData.get(), o_plProcessedDataSize, nullptr,
                     GetTimeout(io_Cmde), 1);
}

bool CProbeDriver::RollingCmdeResultManagement(uint32_t i_ulNbReturnByte, const char* i_pcRawData,
                                               int32_t* o_plProcessedDataSize,
                                               int32_t* o_plProcessedData, S_RESULT& o_Result)
{
    if (i_pcRawData == nullptr || o_plProcessedDataSize == nullptr ||
        o_plProcessedData == nullptr || i_ulNbReturnByte == 0) {
        o_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"CProbeDriver::RollingCmdeResultManagement> parameter error");
        return false;
    }
    if (i_ulNbReturnByte < k_ulProbeHeaderSize) {
        o_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"CProbeDriver::RollingCmdeResultManagement> reply size error: %lu",
              i_ulNbReturnByte);
        return false;
    }
    const auto* l_pucReply = reinterpret_cast<const uint8_t*>(i_pcRawData);
    const uint8_t l_ucStatus = l_pucReply[k_ulProbeStatusOffset];
    if (l_ucStatus != 0) {
        o_Result.ulStatus = 1;
        o_Result.ulFwStatus = l_ucStatus;
        Trace(ERROR_LEVEL, L"CProbeDriver::RollingCmdeResultManagement> status error: %d (%02X)",
              l_ucStatus, l_ucStatus);
        if (l_ucStatus != k_ucStatusWithSamples1 && l_ucStatus != k_ucStatusWithSamples2) {
            return false;
        }
    }
    const uint16_t l_usDataSize = wire::ReadLe16(l_pucReply + k_ulProbeSizeOffset);
    Trace(INFO_LEVEL, L"CProbeDriver::RollingCmdeResultManagement> NbChannel=%d", m_ulNbChannel);
    if (l_usDataSize > i_ulNbReturnByte - k_ulProbeHeaderSize) {
        o_Result.ulStatus = 1;
        Trace(ERROR_LEVEL,
              L"CProbeDriver::RollingCmdeResultManagement> data size error: %d in a reply of %lu",
              l_usDataSize, i_ulNbReturnByte);
        return false;
    }
    const uint8_t* l_pucData = l_pucReply + k_ulProbeHeaderSize;
    if (m_ulNbChannel < 2) {
        DecodeOnlyChannel(l_pucData, l_usDataSize, o_plProcessedDataSize, o_plProcessedData);
    } else if (!DecodeInterleaved(l_pucData, l_usDataSize, o_plProcessedDataSize,
                                  o_plProcessedData)) {
        o_Result.ulStatus = 1;
        return false;
    }
    return l_ucStatus == 0;
}

void CProbeDriver::DecodeOnlyChannel(const uint8_t* i_pucData, uint16_t i_usDataSize,
                                     int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData)
{
    const auto l_lCount = static_cast<int32_t>(
        DecompressSamplesOneChannel(i_pucData, i_usDataSize, o_plProcessedData));
    o_plProcessedData[0] = l_lCount;
    o_plProcessedData[1] = 0;
    *o_plProcessedDataSize = l_lCount + static_cast<int32_t>(k_ulNbCounts);
}

/** Decodes the data of all channels; false, with its line, if there is no memory for it. */
bool CProbeDriver::DecodeInterleaved(const uint8_t* i_pucData, uint16_t i_usDataSize,
                                     int32_t* io_plProcessedDataSize, int32_t* o_plProcessedData)
{
    const auto l_lProcessedDataSize = AllocateScratch<int32_t>(m_ulNbChannel);
    if (l_lProcessedDataSize == nullptr) {
        Trace(ERROR_LEVEL, L"CProbeDriver::RollingCmdeResultManagement> l_lProcessedDataSize "
                           L"allocation error");
        return false;
    }
    const auto o_plProcessedData_Voie = AllocateScratch<std::unique_ptr<int32_t[]>>(m_ulNbChannel);
    if (o_plProcessedData_Voie == nullptr) {
        Trace(ERROR_LEVEL, L"CProbeDriver::RollingCmdeResultManagement> Extended command "
                           L"o_plProcessedData_Voie allocation error");
        return false;
    }
    // A code takes a byte at least, so that no channel has more samples than there are bytes.
    int32_t* l_aplArrays[std::extent_v<decltype(m_alCoefLowRange)>] = {};
    for (uint32_t l_ul = 0; l_ul < m_ulNbChannel; ++l_ul) {
        o_plProcessedData_Voie[l_ul].reset(new (std::nothrow) int32_t[i_usDataSize]);
        l_aplArrays[l_ul] = o_plProcessedData_Voie[l_ul].get();
        if (l_aplArrays[l_ul] == nullptr) {
            Trace(ERROR_LEVEL,
                  L"CProbeDriver::RollingCmdeResultManagement> Extended command "
                  L"o_plProcessedData_Voie[%d] allocation error",
                  l_ul);
            return false;
        }
    }
    DecompressSamplesMultiChannel(i_pucData, i_usDataSize, l_aplArrays, m_ulNbChannel,
                                  l_lProcessedDataSize.get(), i_usDataSize);
    // The caller's value may be anything: it wraps instead of overflowing.
    auto l_ulSize = static_cast<uint32_t>(*io_plProcessedDataSize);
    int32_t* l_plNext = o_plProcessedData + m_ulNbChannel;
    for (uint32_t l_ul = 0; l_ul < m_ulNbChannel; ++l_ul) {
        const int32_t l_lCount = l_lProcessedDataSize[l_ul];
        o_plProcessedData[l_ul] = l_lCount;
        l_ulSize += static_cast<uint32_t>(l_lCount) + 1;
        l_plNext = std::copy_n(l_aplArrays[l_ul], l_lCount, l_plNext);
    }
    *io_plProcessedDataSize = static_cast<int32_t>(l_ulSize);
    return true;
}

S_RESULT CProbeDriver::StripResultHeader(char* io_pcRawData, uint32_t i_ulNbReturnByte,
                                         S_RESULT& io_Result)
{
    if (io_pcRawData == nullptr || i_ulNbReturnByte <= k_ulProbeHeaderSize) {
        io_Result.ulStatus = 1;
        return io_Result;
    }
    const auto l_cStatus = static_cast<int8_t>(io_pcRawData[k_ulProbeStatusOffset]);
    if (l_cStatus != 0) {
        io_Result.ulStatus = 1;
        io_Result.ulFwStatus = static_cast<uint32_t>(int32_t{l_cStatus});
        return io_Result;
    }
    const uint32_t l_ulSize = i_ulNbReturnByte - k_ulProbeHeaderSize;
    std::memmove(io_pcRawData, io_pcRawData + k_ulProbeHeaderSize, l_ulSize);
    std::memset(io_pcRawData + l_ulSize, 0, k_ulProbeHeaderSize);
    return io_Result;
}

uint32_t CProbeDriver::DecompressSamplesOneChannel(const uint8_t* i_pcData, int32_t i_lDataSize,
                                                   int32_t* o_plProcessedData)
{
    Trace(INFO_LEVEL, L"CProbeDriver::DecompressSamplesOneChannel> data size=%d", i_lDataSize);
    if (i_lDataSize <= 0) {
        return 0;
    }
    return static_cast<uint32_t>(DecodeOneChannel(i_pcData, static_cast<size_t>(i_lDataSize),
                                                  m_alCoefLowRange[0], m_alCoefHighRange[0],
                                                  o_plProcessedData + k_ulNbCounts));
}

} // namespace tornval
