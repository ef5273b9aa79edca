#include "emulator/ProbeFirmware.h"

#include "emulator/Numbers.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace emulator {

namespace {

constexpr size_t k_ulHeadSize = 4;
constexpr size_t k_ulDataSizeOffset = 1;
constexpr size_t k_ulStatusOffset = 3;

constexpr size_t k_ulCmdeOffset = 1;
constexpr size_t k_ulSizeOffset = 8;

enum E_PROBE_COMMAND : uint8_t
{
    k_ucReadBoth = 1,
    k_ucHostFirst = 16,
    k_ucHostHeaded = 22,
    k_ucHostLast = 23,
    k_ucStartFirst = 32,
    k_ucRead = 33,
    k_ucStop = 34,
    k_ucStartSecond = 64
};

constexpr size_t k_ulStartFirstPayload = 4;
constexpr size_t k_ulStartSecondPayload = 8;

/** Low-range counts that one high-range count stands for. */
constexpr int32_t k_lHighRange = 16;

/** The headed form: head, data, one byte more. */
std::vector<uint8_t> Headed(uint8_t i_ucCmdeID, uint8_t i_ucStatus, std::span<const uint8_t> i_Data)
{
    std::vector<uint8_t> l_vReply;
    const size_t l_ulSize = std::min<size_t>(i_Data.size(), 0xFFFF);
    wire::AppendNumber(l_vReply, 1, i_ucCmdeID);
    wire::AppendNumber(l_vReply, 2, static_cast<uint32_t>(l_ulSize));
    wire::AppendNumber(l_vReply, 1, i_ucStatus);
    l_vReply.insert(l_vReply.end(), i_Data.begin(),
                    i_Data.begin() + static_cast<std::ptrdiff_t>(l_ulSize));
    l_vReply.push_back(0);
    return l_vReply;
}

/** The host commands but one are answered without a head. */
bool IsHeaded(uint8_t i_ucCmdeID)
{
    const bool l_bHost = i_ucCmdeID >= k_ucHostFirst && i_ucCmdeID <= k_ucHostLast;
    return !l_bHost || i_ucCmdeID == k_ucHostHeaded;
}

} // namespace

CProbeFirmware::CProbeFirmware() : CInstrument(E_INSTRUMENT::Probe) {}

void CProbeFirmware::SetRows(uint32_t i_ulRows)
{
    const std::lock_guard l_Lock(m_Mutex);
    m_ulRows = std::min(i_ulRows, k_ulMaxRows);
}

void CProbeFirmware::SetScale(double i_dScale)
{
    const std::lock_guard l_Lock(m_Mutex);
    m_dScale = i_dScale;
}

void CProbeFirmware::Restart()
{
    const std::lock_guard l_Lock(m_Mutex);
    m_ulRunning = 0;
    m_ulRow = 0;
}

bool CProbeFirmware::SetOption(std::string_view i_Name, std::string_view i_Value,
                               std::string& /*o_strError*/)
{
    if (i_Name == "rows") {
        const auto l_oulRows = ParseNumber(i_Value);
        if (!l_oulRows || *l_oulRows > k_ulMaxRows) {
            return false;
        }
        SetRows(*l_oulRows);
        return true;
    }
    double l_dScale = 0.0;
    const char* l_pEnd = i_Value.data() + i_Value.size();
    const auto l_Result = std::from_chars(i_Value.data(), l_pEnd, l_dScale);
    if (i_Name != "scale" || l_Result.ec != std::errc() || l_Result.ptr != l_pEnd ||
        !std::isfinite(l_dScale)) {
        return false;
    }
    SetScale(l_dScale);
    return true;
}

S_PROBE_REPLY CProbeFirmware::Handle(std::span<const uint8_t> i_Command)
{
    const std::lock_guard l_Lock(m_Mutex);
    S_PROBE_REPLY l_Reply;
    if (i_Command.size() < k_ulRecordSize) {
        return l_Reply;
    }
    const uint32_t l_ulSize = wire::GetNumber(i_Command, k_ulSizeOffset, 4);
    if (l_ulSize > i_Command.size() - k_ulRecordSize) {
        return l_Reply;
    }
    const uint8_t l_ucCmdeID = i_Command[k_ulCmdeOffset];
    if (Faults().Take(E_FAULT::NoAnswer, l_ucCmdeID)) {
        return l_Reply;
    }
    std::vector<uint8_t>& l_vReply = l_Reply.vReply;
    l_vReply = Execute(l_ucCmdeID, i_Command.subspan(k_ulRecordSize, l_ulSize));
    l_Reply.bAnswered = true;
    l_Reply.ulAnswer = l_ucCmdeID;
    l_Reply.ulNbReturnByte = static_cast<uint32_t>(l_vReply.size());
    l_Reply.ulDelayMs = Faults().Take(E_FAULT::Late, l_ucCmdeID).value_or(0);

    if (IsHeaded(l_ucCmdeID)) {
        if (const auto l_oulStatus = Faults().Take(E_FAULT::ProbeStatus, l_ucCmdeID)) {
            wire::PutNumber(l_vReply, k_ulStatusOffset, 1, *l_oulStatus);
        }
        if (const auto l_oulDataSize = Faults().Take(E_FAULT::DataSize, l_ucCmdeID)) {
            wire::PutNumber(l_vReply, k_ulDataSizeOffset, 2, *l_oulDataSize);
        }
    }
    if (const auto l_oulCount = Faults().Take(E_FAULT::Corrupt, l_ucCmdeID)) {
        // From behind the head on: it is the data that a bad link spoils without being noticed.
        const size_t l_ulFirst = std::min(k_ulHeadSize, l_vReply.size());
        const size_t l_ulCount = std::min<size_t>(*l_oulCount, l_vReply.size() - l_ulFirst);
        for (size_t i = 0; i < l_ulCount; ++i) {
            l_vReply[l_ulFirst + i] ^= 0x55U;
        }
    }
    if (const auto l_oulLength = Faults().Take(E_FAULT::Short, l_ucCmdeID)) {
        l_vReply.resize(std::min<size_t>(*l_oulLength, l_vReply.size()));
    }
    return l_Reply;
}

std::vector<uint8_t> CProbeFirmware::Execute(uint8_t i_ucCmdeID, std::span<const uint8_t> i_Payload)
{
    const auto l_Start = [&](size_t i_ulChannels, size_t i_ulPayload) {
        if (i_Payload.size() < i_ulPayload) {
            return Headed(i_ucCmdeID, k_ucProbeLength, {});
        }
        // The other channel may run already; the acquisition starts over for both.
        m_ulRunning = std::max(m_ulRunning, i_ulChannels);
        m_ulRow = 0;
        return Headed(i_ucCmdeID, k_ucProbeGood, {});
    };
    switch (i_ucCmdeID) {
    case k_ucStartFirst:
        return l_Start(1, k_ulStartFirstPayload);
    case k_ucStartSecond:
        return l_Start(2, k_ulStartSecondPayload);
    case k_ucRead:
    case k_ucReadBoth:
        return Headed(i_ucCmdeID, k_ucProbeGood, Collect());
    case k_ucStop:
        m_ulRunning = 0;
        return Headed(i_ucCmdeID, k_ucProbeGood, {});
    case k_ucHostHeaded:
        return Headed(i_ucCmdeID, k_ucProbeGood, i_Payload);
    default:
        break;
    }
    if (i_ucCmdeID < k_ucHostFirst || i_ucCmdeID > k_ucHostLast) {
        return Headed(i_ucCmdeID, k_ucProbeUnknownCommand, {});
    }
    if (i_Payload.empty()) {
        return {i_ucCmdeID};
    }
    return {i_Payload.begin(), i_Payload.end()};
}

/** The codes of the next rows, one channel or two. */
std::vector<uint8_t> CProbeFirmware::Collect()
{
    CSampleEncoder l_Encoder(m_ulRunning, E_UNREACHABLE::Clamp);
    for (uint32_t l_ulRow = 0; l_ulRow < m_ulRows && m_ulRunning != 0; ++l_ulRow, ++m_ulRow) {
        for (size_t l_ulChannel = 0; l_ulChannel < m_ulRunning; ++l_ulChannel) {
            l_Encoder.Append(Sample(m_ulRow, l_ulChannel));
        }
    }
    return l_Encoder.Codes();
}

S_SAMPLE CProbeFirmware::Sample(size_t i_ulRow, size_t i_ulChannel) const
{
    const int32_t l_lCounts = Recording().Counts(i_ulRow, i_ulChannel, m_dScale);
    if (l_lCounts >= k_lAbsoluteMin && l_lCounts <= k_lAbsoluteMax) {
        return {static_cast<int16_t>(l_lCounts), false};
    }
    const auto l_lHigh = static_cast<int32_t>(std::lround(l_lCounts / double{k_lHighRange}));
    return {static_cast<int16_t>(std::clamp(l_lHigh, k_lAbsoluteMin, k_lAbsoluteMax)), true};
}

} // namespace emulator
