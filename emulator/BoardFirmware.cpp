#include "emulator/BoardFirmware.h"

#include "emulator/Numbers.h"
#include "emulator/SampleEncoder.h"
#include "wire/Bytes.h"

#include <algorithm>

namespace emulator {

namespace {

constexpr uint32_t k_ulReturnCode = 1;
constexpr uint32_t k_ulNoError = 0;

constexpr uint32_t k_ulMaxPeriod = 3000;
constexpr size_t k_ulMaxChannels = CRecording::k_ulChannels;
/** Pairs in the answer to 208: the board reserves room for more inputs than it has. */
constexpr size_t k_ulAnswerPairs = 22;

} // namespace

struct CBoardFirmware::S_COMMAND
{
    uint8_t ucCmdeID;
    size_t ulPayload; // least number of payload bytes
    PFN_COMMAND pfnRun;
};

const CBoardFirmware::S_COMMAND CBoardFirmware::s_aCommands[] = {
    {wire::CALIBRATION_FLAG, 1, &CBoardFirmware::SetCalibrationFlag},
    {wire::ACQUSITION_INIT, 8, &CBoardFirmware::InitAcquisition},
    {wire::ACQUISITION_START, 0, &CBoardFirmware::Rewind},
    {wire::ACQUISITION_RESET, 0, &CBoardFirmware::Rewind},
    {wire::ACQUISITION_UPLOAD, 0, &CBoardFirmware::Upload},
    {wire::MEASURE_INTERNE, 4, &CBoardFirmware::Measure},
    {wire::CALIBRATION_WRITE, 12, &CBoardFirmware::StagePair},
    {wire::CALIBRATION_COMMIT, 0, &CBoardFirmware::StorePairs},
    {wire::CALIBRATION_OPEN, 0, &CBoardFirmware::Unlock},
};

CBoardFirmware::CBoardFirmware() : CFirmware(E_INSTRUMENT::Board)
{
    for (uint32_t l_ulVoie = 0; l_ulVoie < k_ulVoies; ++l_ulVoie) {
        m_aulAdc[l_ulVoie] = 1000 * (l_ulVoie + 1) + l_ulVoie;
    }
}

bool CBoardFirmware::SetStore(const std::string& i_strPath, std::string& o_strError)
{
    S_CALIBRATION l_Pairs;
    const bool l_bGood = i_strPath.empty() || LoadCalibration(i_strPath, l_Pairs, o_strError);
    const std::lock_guard l_Lock(m_Mutex);
    m_strStore = l_bGood ? i_strPath : std::string();
    m_State.Stored = m_State.Staged = m_State.Delivered = l_Pairs;
    return l_bGood;
}

void CBoardFirmware::SetAdc(uint32_t i_ulVoie, uint32_t i_ulValue)
{
    const std::lock_guard l_Lock(m_Mutex);
    if (i_ulVoie < k_ulVoies) {
        m_aulAdc[i_ulVoie] = i_ulValue;
    }
}

void CBoardFirmware::SetRows(uint32_t i_ulRows)
{
    const std::lock_guard l_Lock(m_Mutex);
    m_ulRows = i_ulRows;
}

S_BOARD_STATE CBoardFirmware::State() const
{
    const std::lock_guard l_Lock(m_Mutex);
    return m_State;
}

void CBoardFirmware::Restart()
{
    const std::lock_guard l_Lock(m_Mutex);
    const S_CALIBRATION l_Stored = m_State.Stored;
    m_State = S_BOARD_STATE{};
    m_State.Stored = m_State.Staged = m_State.Delivered = l_Stored;
}

bool CBoardFirmware::SetOption(std::string_view i_Name, std::string_view i_Value,
                               std::string& o_strError)
{
    std::array<uint32_t, 3> l_aulNumbers{};
    if (i_Name == "rows") {
        if (!ParseNumbers(i_Value, std::span(l_aulNumbers).first(1)) ||
            l_aulNumbers[0] > k_ulMaxStream) {
            return false;
        }
        SetRows(l_aulNumbers[0]);
        return true;
    }
    if (i_Name == "adc") {
        if (!ParseNumbers(i_Value, std::span(l_aulNumbers).first(2)) ||
            l_aulNumbers[0] >= k_ulVoies) {
            return false;
        }
        SetAdc(l_aulNumbers[0], l_aulNumbers[1]);
        return true;
    }
    if (i_Name == "coef") {
        if (!ParseNumbers(i_Value, l_aulNumbers) || l_aulNumbers[0] >= k_ulVoies) {
            return false;
        }
        const std::lock_guard l_Lock(m_Mutex);
        const S_PAIR l_Pair{l_aulNumbers[1], static_cast<int32_t>(l_aulNumbers[2])};
        m_State.Delivered[l_aulNumbers[0]] = l_Pair;
        m_State.Staged[l_aulNumbers[0]] = l_Pair;
        m_State.Stored[l_aulNumbers[0]] = l_Pair;
        return m_strStore.empty() || SaveCalibration(m_strStore, m_State.Stored);
    }
    return i_Name == "store" && SetStore(std::string(i_Value), o_strError);
}

CFirmware::S_BODY CBoardFirmware::Execute(const S_REQUEST& i_Request)
{
    uint32_t l_ulError = k_ulErrorUnknownCommand;
    std::vector<uint8_t> l_vData;
    if (i_Request.ucCanal == wire::k_ucCanalGenerator) {
        l_ulError = i_Request.Payload.empty() ? k_ulErrorLength : k_ulNoError;
        m_State.ucBurst = i_Request.Payload.empty() ? m_State.ucBurst : i_Request.Payload[0];
    } else if (i_Request.ucCanal == wire::k_ucCanalBoard) {
        const auto* l_pCommand =
            std::find_if(std::begin(s_aCommands), std::end(s_aCommands),
                         [&](const S_COMMAND& c) { return c.ucCmdeID == i_Request.ucCmdeID; });
        if (l_pCommand != std::end(s_aCommands)) {
            l_ulError = i_Request.Payload.size() < l_pCommand->ulPayload
                            ? k_ulErrorLength
                            : (this->*l_pCommand->pfnRun)(i_Request.Payload, l_vData);
        }
    }
    S_BODY l_Body;
    l_Body.bRefused = l_ulError != k_ulNoError;
    wire::AppendNumber(l_Body.vData, 2, k_ulReturnCode);
    wire::AppendNumber(l_Body.vData, 4, l_ulError);
    l_Body.vData.insert(l_Body.vData.end(), l_vData.begin(), l_vData.end());
    return l_Body;
}

uint32_t CBoardFirmware::SetCalibrationFlag(S_BYTES i_Payload, std::vector<uint8_t>& /*o_vData*/)
{
    m_State.ucCalibration = i_Payload[0];
    return k_ulNoError;
}

uint32_t CBoardFirmware::InitAcquisition(S_BYTES i_Payload, std::vector<uint8_t>& o_vData)
{
    const uint32_t l_ulPeriod = wire::GetNumber(i_Payload, 0, 4);
    const uint32_t l_ulChannels = wire::GetNumber(i_Payload, 4, 4);
    if (l_ulPeriod == 0 || l_ulPeriod > k_ulMaxPeriod || l_ulChannels > k_ulMaxChannels) {
        return k_ulErrorParameter;
    }
    if (i_Payload.size() < 8 + 4 * static_cast<size_t>(l_ulChannels)) {
        return k_ulErrorLength;
    }
    std::vector<uint32_t> l_vulVoies;
    for (uint32_t i = 0; i < l_ulChannels; ++i) {
        l_vulVoies.push_back(wire::GetNumber(i_Payload, 8 + 4 * static_cast<size_t>(i), 4));
        if (l_vulVoies.back() >= k_ulVoies) {
            return k_ulErrorParameter;
        }
    }
    m_State.ulPeriod = l_ulPeriod;
    m_State.vulVoies = l_vulVoies;
    for (const S_PAIR& l_Pair : m_State.Delivered) {
        wire::AppendNumber(o_vData, 4, l_Pair.ulA);
        wire::AppendNumber(o_vData, 4, static_cast<uint32_t>(l_Pair.lB));
    }
    o_vData.resize(8 * k_ulAnswerPairs);
    return k_ulNoError;
}

uint32_t CBoardFirmware::Rewind(S_BYTES /*i_Payload*/, std::vector<uint8_t>& /*o_vData*/)
{
    m_State.ulRow = 0;
    return k_ulNoError;
}

uint32_t CBoardFirmware::Upload(S_BYTES /*i_Payload*/, std::vector<uint8_t>& o_vData)
{
    if (m_State.ulPeriod == 0) {
        return k_ulErrorNotConfigured;
    }
    const size_t l_ulChannels = m_State.vulVoies.size();
    CSampleEncoder l_Encoder(l_ulChannels, E_UNREACHABLE::Clamp);
    size_t l_ulStream = 0;
    // The converter has 13 bits: what lies outside is cut off, as a converter does.
    for (uint32_t l_ulRow = 0; l_ulRow < m_ulRows && l_ulChannels != 0; ++l_ulRow) {
        for (size_t l_ulChannel = 0; l_ulChannel < l_ulChannels; ++l_ulChannel) {
            const int32_t l_lCounts = std::clamp(Recording().Counts(m_State.ulRow, l_ulChannel),
                                                 k_lAbsoluteMin, k_lAbsoluteMax);
            l_Encoder.Append({static_cast<int16_t>(l_lCounts), false});
        }
        if (l_Encoder.Codes().size() > k_ulMaxStream) {
            break;
        }
        l_ulStream = l_Encoder.Codes().size();
        ++m_State.ulRow;
    }
    wire::AppendNumber(o_vData, 4, static_cast<uint32_t>(l_ulStream));
    o_vData.insert(o_vData.end(), l_Encoder.Codes().begin(),
                   l_Encoder.Codes().begin() + static_cast<std::ptrdiff_t>(l_ulStream));
    return k_ulNoError;
}

uint32_t CBoardFirmware::Measure(S_BYTES i_Payload, std::vector<uint8_t>& o_vData)
{
    const uint32_t l_ulVoie = wire::GetNumber(i_Payload, 0, 4);
    if (l_ulVoie >= k_ulVoies) {
        return k_ulErrorParameter;
    }
    wire::AppendNumber(o_vData, 4, l_ulVoie);
    wire::AppendNumber(o_vData, 4, m_aulAdc[l_ulVoie]);
    return k_ulNoError;
}

uint32_t CBoardFirmware::StagePair(S_BYTES i_Payload, std::vector<uint8_t>& /*o_vData*/)
{
    const uint32_t l_ulVoie = wire::GetNumber(i_Payload, 0, 4);
    if (!m_State.bUnlocked) {
        return k_ulErrorLocked;
    }
    if (l_ulVoie >= k_ulVoies) {
        return k_ulErrorParameter;
    }
    m_State.Staged[l_ulVoie] = {wire::GetNumber(i_Payload, 4, 4),
                                static_cast<int32_t>(wire::GetNumber(i_Payload, 8, 4))};
    return k_ulNoError;
}

uint32_t CBoardFirmware::StorePairs(S_BYTES /*i_Payload*/, std::vector<uint8_t>& /*o_vData*/)
{
    if (!m_State.bUnlocked) {
        return k_ulErrorLocked;
    }
    if (!m_strStore.empty() && !SaveCalibration(m_strStore, m_State.Staged)) {
        return k_ulErrorStore;
    }
    m_State.Stored = m_State.Staged;
    m_State.bUnlocked = false;
    return k_ulNoError;
}

uint32_t CBoardFirmware::Unlock(S_BYTES /*i_Payload*/, std::vector<uint8_t>& /*o_vData*/)
{
    m_State.bUnlocked = true;
    m_State.Staged = m_State.Stored;
    return k_ulNoError;
}

} // namespace emulator
