#include "emulator/MilliOhmFirmware.h"

#include "emulator/Numbers.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <utility>

namespace emulator {

namespace {

constexpr size_t k_ulMeasurePayload = 2;
/** Longest version text that leaves room for the return code and the zero. */
constexpr size_t k_ulMaxVersion = wire::k_ulMaxFrame - wire::k_ulDataOffset - 3;

} // namespace

CMilliOhmFirmware::CMilliOhmFirmware() : CFirmware(E_INSTRUMENT::MilliOhm) {}

void CMilliOhmFirmware::SetValues(const std::array<int32_t, 3>& i_alValues)
{
    const std::lock_guard l_Lock(m_Mutex);
    m_alValues = i_alValues;
}

void CMilliOhmFirmware::SetVersion(std::string i_strVersion)
{
    i_strVersion.resize(std::min(i_strVersion.size(), k_ulMaxVersion));
    const std::lock_guard l_Lock(m_Mutex);
    m_strVersion = std::move(i_strVersion);
}

bool CMilliOhmFirmware::SetOption(std::string_view i_Name, std::string_view i_Value,
                                  std::string& /*o_strError*/)
{
    if (i_Name == "version") {
        SetVersion(std::string(i_Value));
        return true;
    }
    std::array<uint32_t, 3> l_aulValues{};
    if (i_Name != "values" || !ParseNumbers(i_Value, l_aulValues)) {
        return false;
    }
    SetValues({static_cast<int32_t>(l_aulValues[0]), static_cast<int32_t>(l_aulValues[1]),
               static_cast<int32_t>(l_aulValues[2])});
    return true;
}

CFirmware::S_BODY CMilliOhmFirmware::Execute(const S_REQUEST& i_Request)
{
    S_BODY l_Body;
    const bool l_bMeasure = i_Request.ucCmdeID == wire::COMMAND_MICROOHM_MEASURE;
    uint16_t l_usReturn = k_usReturnGood;
    if (!l_bMeasure && i_Request.ucCmdeID != wire::COMMAND_VERSION) {
        l_usReturn = k_usReturnUnknownCommand;
    } else if (l_bMeasure && i_Request.Payload.size() < k_ulMeasurePayload) {
        l_usReturn = k_usReturnLength;
    }
    l_Body.bRefused = l_usReturn != k_usReturnGood;
    wire::AppendNumber(l_Body.vData, 2, l_usReturn);
    if (l_Body.bRefused) {
        return l_Body;
    }
    if (l_bMeasure) {
        wire::AppendNumber(l_Body.vData, 4, 0); // measure status: good
        for (const int32_t l_lValue : m_alValues) {
            wire::AppendNumber(l_Body.vData, 4, static_cast<uint32_t>(l_lValue));
        }
    } else {
        l_Body.vData.insert(l_Body.vData.end(), m_strVersion.begin(), m_strVersion.end());
        l_Body.vData.push_back(0);
    }
    return l_Body;
}

} // namespace emulator
