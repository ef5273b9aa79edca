#include "emulator/Environment.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

namespace emulator {

namespace {

std::string Variable(const std::string& i_strName)
{
    const char* l_pszValue = secure_getenv(("TORNVAL_EMULATOR_" + i_strName).c_str());
    return l_pszValue == nullptr ? std::string() : std::string(l_pszValue);
}

std::string Capitals(std::string i_strText)
{
    std::transform(i_strText.begin(), i_strText.end(), i_strText.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return i_strText;
}

} // namespace

CEnvironment::CEnvironment(CInstrument& i_Instrument, std::string i_strName)
    : m_Instrument(i_Instrument), m_strName(std::move(i_strName))
{
}

bool CEnvironment::ReadVariables(std::string& o_strError)
{
    const std::lock_guard l_Lock(m_Mutex);
    const auto l_Changed = [](const std::string& i_strName, std::string& io_strLast) {
        const std::string l_strBefore = std::exchange(io_strLast, Variable(i_strName));
        return l_strBefore != io_strLast;
    };
    bool l_bGood = true;
    if (l_Changed("RECORDING", m_strRecording)) {
        if (m_strRecording.empty()) {
            m_Instrument.SetRecording(nullptr);
        } else {
            l_bGood = m_Instrument.Set("recording", m_strRecording, o_strError);
        }
    }
    if (m_Instrument.Kind() == E_INSTRUMENT::Board && l_Changed("STATE", m_strStore)) {
        l_bGood = m_Instrument.Set("store", m_strStore, o_strError) && l_bGood;
    }
    if (l_Changed(Capitals(m_strName), m_strSettings)) {
        // A new list takes the place of the old one, whose faults are over.
        m_Instrument.Faults().Clear();
        l_bGood = m_Instrument.Configure(m_strSettings, o_strError) && l_bGood;
    }
    if (!l_bGood) {
        // What is wrong now is still wrong at the next open.
        m_strRecording.clear();
        m_strStore.clear();
        m_strSettings.clear();
    }
    return l_bGood;
}

bool CEnvironment::ReadControl(std::string& o_strError)
{
    const std::string l_strFolder = Variable("CONTROL");
    if (l_strFolder.empty()) {
        return true;
    }
    const std::string l_strPath = l_strFolder + "/" + m_strName;
    const std::lock_guard l_Lock(m_Mutex);
    std::ifstream l_File(l_strPath);
    if (!l_File) {
        return true;
    }
    const std::string l_strSettings((std::istreambuf_iterator<char>(l_File)),
                                    std::istreambuf_iterator<char>());
    l_File.close();
    (void)std::remove(l_strPath.c_str());
    return m_Instrument.Configure(l_strSettings, o_strError);
}

} // namespace emulator
