#include "emulator/Faults.h"

#include "emulator/Numbers.h"

#include <algorithm>

namespace emulator {

namespace {

constexpr uint8_t k_ucBoard = static_cast<uint8_t>(E_INSTRUMENT::Board);
constexpr uint8_t k_ucMilliOhm = static_cast<uint8_t>(E_INSTRUMENT::MilliOhm);
constexpr uint8_t k_ucProbe = static_cast<uint8_t>(E_INSTRUMENT::Probe);
constexpr uint8_t k_ucFramed = k_ucBoard | k_ucMilliOhm;
constexpr uint8_t k_ucAll = k_ucFramed | k_ucProbe;

/** What a text may say of a fault. */
struct S_FAULT_NAME
{
    std::string_view Name;
    E_FAULT eFault;
    uint8_t ucInstruments;              // mask of E_INSTRUMENT
    bool bCommand;                      // strikes a command, so that @command has a meaning
    std::optional<uint32_t> oulDefault; // value, where the text may leave it out
};

constexpr std::array<S_FAULT_NAME, k_ulFaults> k_aFaultNames{{
    {"no-answer", E_FAULT::NoAnswer, k_ucAll, true, 0},
    {"late", E_FAULT::Late, k_ucAll, true, std::nullopt},
    {"return-code", E_FAULT::ReturnCode, k_ucFramed, true, 0},
    {"error-code", E_FAULT::ErrorCode, k_ucBoard, true, std::nullopt},
    {"short", E_FAULT::Short, k_ucAll, true, std::nullopt},
    {"corrupt", E_FAULT::Corrupt, k_ucAll, true, 1},
    {"frame-size", E_FAULT::FrameSize, k_ucFramed, true, std::nullopt},
    {"compressed-size", E_FAULT::CompressedSize, k_ucBoard, true, std::nullopt},
    {"voie", E_FAULT::Voie, k_ucBoard, true, 13},
    {"measure-status", E_FAULT::MeasureStatus, k_ucMilliOhm, true, 0x81},
    {"status", E_FAULT::ProbeStatus, k_ucProbe, true, 1},
    {"data-size", E_FAULT::DataSize, k_ucProbe, true, std::nullopt},
    {"send-fails", E_FAULT::SendFails, k_ucAll, true, 31},
    {"send-status", E_FAULT::SendStatus, k_ucFramed, true, 1},
    {"fetch-fails", E_FAULT::FetchFails, k_ucAll, true, 31},
    {"link-status", E_FAULT::LinkStatus, k_ucFramed, true, 1},
    {"count", E_FAULT::Count, k_ucAll, true, std::nullopt},
    {"ack", E_FAULT::Ack, k_ucProbe, true, 7},
    {"no-open", E_FAULT::NoOpen, k_ucAll, false, 2},
    {"close-fails", E_FAULT::CloseFails, k_ucAll, false, 31},
}};

const S_FAULT_NAME* FindFault(std::string_view i_Text)
{
    const std::string_view l_Name = i_Text.substr(0, i_Text.find_first_of("=@*"));
    const auto* l_pFound =
        std::find_if(k_aFaultNames.begin(), k_aFaultNames.end(),
                     [l_Name](const S_FAULT_NAME& i_Fault) { return i_Fault.Name == l_Name; });
    return l_pFound == k_aFaultNames.end() ? nullptr : l_pFound;
}

/**
 * Cuts the part behind a mark off the end of the text.
 *
 * @return false if there is such a part and it is no number up to i_ulMax.
 */
bool CutNumber(std::string_view& io_Text, char i_cMark, uint32_t i_ulMax,
               std::optional<uint32_t>& o_oulNumber)
{
    const size_t l_ulMark = io_Text.find(i_cMark);
    if (l_ulMark == std::string_view::npos) {
        return true;
    }
    o_oulNumber = ParseNumber(io_Text.substr(l_ulMark + 1));
    io_Text = io_Text.substr(0, l_ulMark);
    return o_oulNumber && *o_oulNumber <= i_ulMax;
}

} // namespace

bool CFaults::IsFault(std::string_view i_Text)
{
    return FindFault(i_Text) != nullptr;
}

void CFaults::Dial(E_FAULT i_eFault, uint32_t i_ulValue, uint32_t i_ulTimes,
                   std::optional<uint8_t> i_oucCmdeID)
{
    if (i_ulTimes == 0) {
        return;
    }
    const std::lock_guard l_Lock(m_Mutex);
    m_vFaults.push_back({i_eFault, i_ulValue, i_ulTimes, i_oucCmdeID});
}

bool CFaults::Dial(std::string_view i_Text, E_INSTRUMENT i_eInstrument, std::string& o_strError)
{
    const auto l_Refuse = [&o_strError, l_strText = std::string(i_Text)](const char* i_pszReason) {
        o_strError = "fault " + l_strText + ": " + i_pszReason;
        return false;
    };
    const S_FAULT_NAME* l_pName = FindFault(i_Text);
    if (l_pName == nullptr) {
        return l_Refuse("no such fault");
    }
    if ((l_pName->ucInstruments & static_cast<uint8_t>(i_eInstrument)) == 0) {
        return l_Refuse("not a fault of this instrument");
    }
    std::optional<uint32_t> l_oulTimes = k_ulAlways;
    std::optional<uint32_t> l_oulCmdeID;
    std::optional<uint32_t> l_oulValue = l_pName->oulDefault;
    if (!CutNumber(i_Text, '*', k_ulAlways, l_oulTimes)) {
        return l_Refuse("no count behind *");
    }
    if (!CutNumber(i_Text, '@', 0xFF, l_oulCmdeID) || (l_oulCmdeID && !l_pName->bCommand)) {
        return l_Refuse("no command behind @, or a fault that strikes no command");
    }
    if (!CutNumber(i_Text, '=', 0xFFFFFFFF, l_oulValue) || !l_oulValue) {
        return l_Refuse("needs a number behind =");
    }
    std::optional<uint8_t> l_oucCmdeID;
    if (l_oulCmdeID) {
        l_oucCmdeID = static_cast<uint8_t>(*l_oulCmdeID);
    }
    Dial(l_pName->eFault, *l_oulValue, *l_oulTimes, l_oucCmdeID);
    return true;
}

void CFaults::Clear()
{
    const std::lock_guard l_Lock(m_Mutex);
    m_vFaults.clear();
}

std::optional<uint32_t> CFaults::Take(E_FAULT i_eFault, std::optional<uint8_t> i_oucCmdeID)
{
    const std::lock_guard l_Lock(m_Mutex);
    const auto l_itFault =
        std::find_if(m_vFaults.begin(), m_vFaults.end(), [&](const S_FAULT& i_Fault) {
            return i_Fault.eFault == i_eFault &&
                   (!i_Fault.oucCmdeID || i_Fault.oucCmdeID == i_oucCmdeID);
        });
    if (l_itFault == m_vFaults.end()) {
        return std::nullopt;
    }
    const uint32_t l_ulValue = l_itFault->ulValue;
    ++m_aulHits[static_cast<size_t>(i_eFault)];
    if (l_itFault->ulTimes != k_ulAlways && --l_itFault->ulTimes == 0) {
        m_vFaults.erase(l_itFault);
    }
    return l_ulValue;
}

uint32_t CFaults::Hits(E_FAULT i_eFault) const
{
    const std::lock_guard l_Lock(m_Mutex);
    return m_aulHits[static_cast<size_t>(i_eFault)];
}

} // namespace emulator
