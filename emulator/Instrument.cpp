#include "emulator/Instrument.h"

#include <utility>

namespace emulator {

namespace {

std::string_view Trim(std::string_view i_Text)
{
    constexpr std::string_view k_Blanks = " \t\r";
    const size_t l_ulFirst = i_Text.find_first_not_of(k_Blanks);
    if (l_ulFirst == std::string_view::npos) {
        return {};
    }
    return i_Text.substr(l_ulFirst, i_Text.find_last_not_of(k_Blanks) - l_ulFirst + 1);
}

} // namespace

CInstrument::CInstrument(E_INSTRUMENT i_eKind)
    : m_eKind(i_eKind), m_pRecording(CRecording::TestSignal())
{
}

CInstrument::~CInstrument() = default;

bool CInstrument::Configure(std::string_view i_Text, std::string& o_strError)
{
    while (!i_Text.empty()) {
        const size_t l_ulEnd = i_Text.find_first_of(",\n");
        const std::string_view l_Setting = Trim(i_Text.substr(0, l_ulEnd));
        if (!l_Setting.empty() && l_Setting.front() != '#' &&
            !ApplySetting(l_Setting, o_strError)) {
            return false;
        }
        i_Text = l_ulEnd == std::string_view::npos ? "" : i_Text.substr(l_ulEnd + 1);
    }
    return true;
}

bool CInstrument::ApplySetting(std::string_view i_Setting, std::string& o_strError)
{
    if (i_Setting == "clear") {
        m_Faults.Clear();
        return true;
    }
    if (CFaults::IsFault(i_Setting)) {
        return m_Faults.Dial(i_Setting, m_eKind, o_strError);
    }
    const size_t l_ulEquals = i_Setting.find('=');
    if (l_ulEquals == std::string_view::npos) {
        o_strError = "setting " + std::string(i_Setting) + ": no such fault, and no option";
        return false;
    }
    return Set(Trim(i_Setting.substr(0, l_ulEquals)), Trim(i_Setting.substr(l_ulEquals + 1)),
               o_strError);
}

bool CInstrument::Set(std::string_view i_Name, std::string_view i_Value, std::string& o_strError)
{
    if (i_Name == "recording") {
        auto l_pRecording = CRecording::Load(std::string(i_Value), o_strError);
        if (!l_pRecording) {
            return false;
        }
        SetRecording(std::move(l_pRecording));
        return true;
    }
    std::string l_strReason = "no such option of this instrument, or a bad value";
    if (SetOption(i_Name, i_Value, l_strReason)) {
        return true;
    }
    o_strError = "option " + std::string(i_Name) + "=" + std::string(i_Value) + ": " + l_strReason;
    return false;
}

void CInstrument::SetRecording(std::shared_ptr<const CRecording> i_pRecording)
{
    if (!i_pRecording) {
        i_pRecording = CRecording::TestSignal();
    }
    const std::lock_guard l_Lock(m_Mutex);
    m_pRecording = std::move(i_pRecording);
}

} // namespace emulator
