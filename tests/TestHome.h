/**
 * @file TestHome.h
 * @brief A folder of a test's own that plays the host's folder and the volume of the trace file.
 */
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/** Whether an emulator of processors runs this test (script/test-arm tells). It starts programs and bounds
 *  memory in a way of its own: it tells nothing of a program that cannot be started, gives no program more
 *  rights, knows no limit of addresses. */
inline bool OnEmulatedProcessor()
{
    return std::getenv("TORNVAL_EMULATED_PROCESSOR") != nullptr;
}

/** Makes the folder, points TORNVAL_HOME and TORNVAL_HD00 at it, removes it at the end. */
class CTestHome
{
public:
    /** @param i_strConfiguration text of TornvalC63.ini; empty: no such file. */
    explicit CTestHome(const std::string& i_strConfiguration = "")
    {
        std::string l_strFolder =
            (std::filesystem::temp_directory_path() / "tornval-test-XXXXXX").string();
        if (mkdtemp(l_strFolder.data()) == nullptr) {
            throw std::runtime_error("no folder for the test");
        }
        m_Folder = l_strFolder;
        setenv("TORNVAL_HOME", l_strFolder.c_str(), 1);
        setenv("TORNVAL_HD00", l_strFolder.c_str(), 1);
        if (!i_strConfiguration.empty()) {
            Write("TornvalC63.ini", i_strConfiguration);
        }
    }
    CTestHome(const CTestHome&) = delete;
    CTestHome& operator=(const CTestHome&) = delete;
    ~CTestHome()
    {
        std::error_code l_Error;
        std::filesystem::remove_all(m_Folder, l_Error);
    }

    [[nodiscard]] std::string Path(const std::string& i_strName) const
    {
        return (m_Folder / i_strName).string();
    }
    void Write(const std::string& i_strName, const std::string& i_strText) const
    {
        std::ofstream(m_Folder / i_strName, std::ios::binary) << i_strText;
    }
    [[nodiscard]] std::string Read(const std::string& i_strName) const
    {
        std::ostringstream l_Text;
        l_Text << std::ifstream(m_Folder / i_strName, std::ios::binary).rdbuf();
        return l_Text.str();
    }
    /** The lines of the trace file, without their prefix of time, ticks and thread. */
    [[nodiscard]] std::vector<std::string> TraceLines() const
    {
        static const std::regex s_Prefix("^[^\\[]*\\[[-0-9]+\\] \\[th[0-9a-f]+\\] ");
        std::vector<std::string> l_vstrLines;
        std::istringstream l_Text(Read("log_tornval.txt"));
        for (std::string l_strLine; std::getline(l_Text, l_strLine);) {
            std::smatch l_Match;
            const bool l_bPrefix = std::regex_search(l_strLine, l_Match, s_Prefix);
            l_vstrLines.push_back(l_bPrefix ? l_Match.suffix().str() : l_strLine);
        }
        return l_vstrLines;
    }

    /** The whole trace with '#' for what differs from run to run: ticks, durations, addresses. */
    [[nodiscard]] std::string MaskedTrace() const
    {
        static const std::regex s_Changing(
            "(SEND_COMMAND: |GET_RESULT: |duration: |HSYNC: |fct: |SerialDriver: |driver: "
            "|driver=)[0-9A-Fa-f]+");
        std::string l_strTrace;
        for (const std::string& l_strLine : TraceLines()) {
            l_strTrace += std::regex_replace(l_strLine, s_Changing, "$1#") + '\n';
        }
        return l_strTrace;
    }

private:
    std::filesystem::path m_Folder;
};
