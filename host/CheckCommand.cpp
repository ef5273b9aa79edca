/** tornval check: reads the configuration as the library does, and says what is wrong with it. */
#include "LibraryCheck.h"
#include "Nearest.h"
#include "Program.h"
#include "Settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <optional>

#include <unistd.h>

namespace host {

namespace {

enum class E_VALUE
{
    NUMBER,
    REAL,
    TEXT,
    FILE,
    PROGRAM,
    PORT,
    LIBRARY
};

struct S_KNOWN_KEY
{
    const char* pszSection;
    const char* pszKey;
    E_VALUE Value;
    uint32_t ulLeast = 0;
    uint32_t ulMost = INT32_MAX;
};

constexpr S_KNOWN_KEY k_aKeys[] = {
    {"IM", "SIMU", E_VALUE::NUMBER},
    {"IM", "DRIVER_NAME", E_VALUE::LIBRARY},
    {"IM", "CHANNEL_1", E_VALUE::NUMBER, 0, 12},
    {"IM", "CHANNEL_2", E_VALUE::NUMBER, 0, 12},
    {"IM", "CHANNEL_3", E_VALUE::NUMBER, 0, 12},
    {"IM", "ACQUISITION_PERIOD", E_VALUE::NUMBER, 1, 3000},
    {"IM", "TIMEOUT", E_VALUE::NUMBER},
    {"IM", "DECOMPRESS_DATA", E_VALUE::NUMBER, 0, 1},
    {"IM", "CALIBRATION", E_VALUE::NUMBER, 0, 255},
    {"IM", "LOG_CALIBRATION_COEF", E_VALUE::NUMBER, 0, 1},
    {"IM", "SET_RESET_EXEC", E_VALUE::PROGRAM},
    {"IM", "REGISTRY_KEY", E_VALUE::TEXT},
    {"IM", "REGISTRY_ENTRY", E_VALUE::TEXT},
    {"IM", "DAT_SIMU_FILE", E_VALUE::FILE},
    {"IM", "SIMU_KELNOR_PROBE_CORRECTION", E_VALUE::REAL},
    {"IM", "SAMPLE_PERIOD", E_VALUE::REAL},
    {"BT", "LOAD", E_VALUE::NUMBER},
    {"BT", "SIMU", E_VALUE::NUMBER},
    {"BT", "PORT_NUMBER", E_VALUE::NUMBER, 0, 255},
    {"BT", "BAUD_RATE", E_VALUE::TEXT},
    {"BT", "DRIVER_NAME", E_VALUE::LIBRARY},
    {"BT", "INIT_TIMEOUT", E_VALUE::NUMBER},
    {"USB", "LOAD", E_VALUE::NUMBER},
    {"USB", "SIMU", E_VALUE::NUMBER},
    {"USB", "PORT_NUMBER", E_VALUE::NUMBER, 0, 255},
    {"USB", "DRIVER_NAME", E_VALUE::LIBRARY},
    {"LOG", "ENABLE", E_VALUE::NUMBER, 0, 1},
    {"LOG", "TYPE", E_VALUE::NUMBER, 0, 1},
    {"LOG", "LEVEL", E_VALUE::NUMBER, 0, 65535},
    {"SERIAL_LINK", "PORT_1", E_VALUE::PORT},
    {"SERIAL_LINK", "PORT_2", E_VALUE::PORT},
    {"SERIAL_LINK", "ANSWER_TIMEOUT", E_VALUE::NUMBER, 1, 60000},
    {"SERIAL_LINK", "SILENCE", E_VALUE::NUMBER, 1, 1000},
    {"CAPTURE", "FILE", E_VALUE::TEXT},
    {"CAPTURE", "SERIAL", E_VALUE::TEXT},
    {"CAPTURE", "BLUETOOTH", E_VALUE::TEXT},
    {"CAPTURE", "USB", E_VALUE::TEXT},
    {"CAPTURE", "CONFIGURATION", E_VALUE::FILE},
    {"REPLAY", "FILE", E_VALUE::FILE},
    {"REPLAY", "PACE", E_VALUE::NUMBER, 0, 1},
};

bool Same(std::string_view i_strA, std::string_view i_strB)
{
    return i_strA.size() == i_strB.size() &&
           strncasecmp(i_strA.data(), i_strB.data(), i_strA.size()) == 0;
}

/** Keys that carry the number of an input or channel; only this program reads them. */
bool IsUnitKey(std::string_view i_strSection, std::string_view i_strKey)
{
    const bool l_bProbe = Same(i_strSection, "BT") || Same(i_strSection, "USB");
    if (!l_bProbe && !Same(i_strSection, "IM")) {
        return false;
    }
    for (uint32_t i = 0; i <= (l_bProbe ? 1U : 12U); ++i) {
        for (const char* l_pszKey : {"UNIT_", "SCALE_", "OFFSET_"}) {
            if (Same(i_strKey, l_pszKey + std::to_string(i))) {
                return true;
            }
        }
    }
    return Same(i_strKey, "SCALE") || Same(i_strKey, "OFFSET");
}

/** The text of a file with the places of its lines. */
class CLines : public wire::CConfigText
{
public:
    const std::vector<wire::S_CONFIG_SECTION>& Sections() const { return m_vecSections; }

    /** Number of the line that a piece of the text begins in. Asked for in the order of the text. */
    size_t NumberOf(std::string_view i_strPiece)
    {
        const char* const l_pcFrom = m_pcAt == nullptr ? i_strPiece.data() : m_pcAt;
        m_uLine += static_cast<size_t>(std::count(l_pcFrom, i_strPiece.data(), '\n'));
        m_pcAt = i_strPiece.data();
        return m_uLine;
    }

private:
    const char* m_pcAt = nullptr;
    size_t m_uLine = 1;
};

class CCheck
{
public:
    explicit CCheck(CProgram& io_Program) : m_Program(io_Program) {}

    /** @return how much is wrong. */
    unsigned Run()
    {
        const std::optional<std::string> l_strText = ReadWholeFile(ConfigurationFile());
        m_Program.Document()["configuration"] = ConfigurationFile().string();
        if (!l_strText) {
            Tell(0, true, std::string("the configuration cannot be read: ") + std::strerror(errno));
        } else {
            m_Lines.Parse(*l_strText);
            if (CheckText(*l_strText)) {
                CheckLines();
            }
            CheckMissing();
            CheckLog();
        }
        ListPorts();
        m_Program.Document()["findings"] = m_Findings;
        return m_uWrong;
    }

private:
    void Tell(size_t i_uLine, bool i_bWrong, const std::string& i_strText)
    {
        m_uWrong += i_bWrong ? 1 : 0;
        m_Findings.push_back({{"line", i_uLine}, {"wrong", i_bWrong}, {"text", i_strText}});
        m_Program.Print(ConfigurationFile().string() + ":" + std::to_string(i_uLine) + ": " +
                        (i_bWrong ? "wrong: " : "unusual: ") + i_strText + "\n");
    }

    /** What the library reads is bytes of ASCII or UTF-8, whatever an editor made of them. */
    bool CheckText(const std::string& i_strText)
    {
        if (i_strText.starts_with("\xFF\xFE") || i_strText.starts_with("\xFE\xFF")) {
            Tell(1, true, "the text is UTF-16, and UTF-8 is read: save it so");
            return false;
        }
        if (i_strText.starts_with("\xEF\xBB\xBF")) {
            Tell(1, true,
                 "the text begins with a byte order mark, with which the first line is not read: "
                 "save it without");
        }
        if (const size_t l_uZero = i_strText.find('\0'); l_uZero != std::string::npos) {
            Tell(1 + static_cast<size_t>(std::count(
                         i_strText.begin(),
                         i_strText.begin() + static_cast<std::ptrdiff_t>(l_uZero), '\n')),
                 true, "a zero byte: what follows it in its line is not read");
        }
        if (i_strText.find_first_not_of(" \t\r\n") == std::string::npos) {
            Tell(1, true, "the file is empty: every key has its default");
        }
        return true;
    }

    void CheckLines()
    {
        std::vector<std::string> l_vSeen;
        for (const wire::S_CONFIG_SECTION& l_Section : m_Lines.Sections()) {
            const size_t l_uHead = m_Lines.NumberOf(l_Section.strRawLine);
            const std::string l_strSection(l_Section.strName);
            if (l_Section.bComment) {
                const size_t l_uFirst = l_Section.strRawLine.find_first_not_of(" \t");
                if (l_uFirst != std::string_view::npos && l_Section.strRawLine[l_uFirst] != ';') {
                    Tell(l_uHead, true, "a line before the first section is not read");
                }
                continue;
            }
            const bool l_bAgain =
                std::any_of(l_vSeen.begin(), l_vSeen.end(),
                            [&](const std::string& i_str) { return Same(i_str, l_strSection); });
            const bool l_bKnown = CheckSection(l_uHead, l_strSection, l_bAgain);
            l_vSeen.push_back(l_strSection);
            std::vector<std::string> l_vKeys;
            for (const wire::S_CONFIG_KEY& l_Key : l_Section.vecKeys) {
                const size_t l_uLine = m_Lines.NumberOf(l_Key.strRawLine);
                if (l_Key.bComment || l_bAgain || !l_bKnown) {
                    continue;
                }
                const std::string l_strKey(l_Key.strName);
                if (std::any_of(l_vKeys.begin(), l_vKeys.end(),
                                [&](const std::string& i_str) { return Same(i_str, l_strKey); })) {
                    Tell(l_uLine, true, l_strKey + " stands there twice, the first one counts");
                } else {
                    CheckKey(l_uLine, l_strSection, l_strKey, std::string(l_Key.strValue));
                }
                l_vKeys.push_back(l_strKey);
            }
        }
    }

    bool CheckSection(size_t i_uLine, const std::string& i_strSection, bool i_bAgain)
    {
        std::vector<std::string> l_vKnown;
        for (const S_KNOWN_KEY& l_Key : k_aKeys) {
            l_vKnown.emplace_back(l_Key.pszSection);
            if (Same(l_Key.pszSection, i_strSection)) {
                if (i_bAgain) {
                    Tell(i_uLine, true,
                         "section " + i_strSection + " again: only the first one is read");
                }
                return true;
            }
        }
        const size_t l_uFirst = i_strSection.find_first_not_of(" \t");
        const std::string l_strNearest =
            l_uFirst == std::string::npos
                ? ""
                : Nearest(i_strSection.substr(l_uFirst,
                                              i_strSection.find_last_not_of(" \t") - l_uFirst + 1),
                          l_vKnown);
        Tell(i_uLine, true,
             "nobody reads a section [" + i_strSection + "]" +
                 (l_strNearest.empty() ? "" : ", was " + l_strNearest + " meant?"));
        return false;
    }

    /** @param i_strWritten the value with its quotes. */
    void CheckKey(size_t i_uLine, const std::string& i_strSection, const std::string& i_strKey,
                  const std::string& i_strWritten)
    {
        const std::string l_strValue(*m_Lines.FindText(i_strSection, i_strKey));
        std::vector<std::string> l_vKnown;
        for (const S_KNOWN_KEY& l_Key : k_aKeys) {
            if (!Same(l_Key.pszSection, i_strSection)) {
                continue;
            }
            l_vKnown.emplace_back(l_Key.pszKey);
            if (Same(l_Key.pszKey, i_strKey)) {
                // A number is read as it is written: quotes make 0 of it.
                CheckValue(i_uLine, l_Key,
                           l_Key.Value == E_VALUE::NUMBER ? i_strWritten : l_strValue);
                return;
            }
        }
        if (IsUnitKey(i_strSection, i_strKey)) {
            if (!Same(std::string_view(i_strKey).substr(0, 4), "UNIT")) {
                CheckReal(i_uLine, l_strValue, i_strKey + "=" + l_strValue + ": ");
            }
            return;
        }
        const std::string l_strNearest = Nearest(i_strKey, l_vKnown);
        Tell(i_uLine, true,
             "nobody reads a key " + i_strKey + " in section " + i_strSection +
                 (i_strKey.starts_with('#') ? ": a remark begins with ;"
                  : l_strNearest.empty()    ? ""
                                            : ", was " + l_strNearest + " meant?"));
    }

    void CheckReal(size_t i_uLine, const std::string& i_strValue, const std::string& i_strHead)
    {
        double l_dNumber = 0;
        const char* const l_pcEnd = i_strValue.data() + i_strValue.size();
        const char* const l_pcFirst = i_strValue.data() + (i_strValue.starts_with('+') ? 1 : 0);
        const auto [l_pcRest, l_Error] = std::from_chars(l_pcFirst, l_pcEnd, l_dNumber);
        if (l_Error != std::errc{} || l_pcRest != l_pcEnd) {
            Tell(i_uLine, true, i_strHead + "this is no number with a point");
        }
    }

    void CheckValue(size_t i_uLine, const S_KNOWN_KEY& i_Key, const std::string& i_strValue)
    {
        const std::string l_strHead = std::string(i_Key.pszKey) + "=" + i_strValue + ": ";
        switch (i_Key.Value) {
        case E_VALUE::NUMBER:
            CheckNumber(i_uLine, i_Key, i_strValue, l_strHead);
            break;
        case E_VALUE::REAL:
            CheckReal(i_uLine, i_strValue, l_strHead);
            break;
        case E_VALUE::FILE:
            if (!i_strValue.empty()) {
                FindRegular(i_uLine, i_strValue, l_strHead + "there is no such file");
            }
            break;
        case E_VALUE::PROGRAM:
            CheckProgram(i_uLine, i_strValue, l_strHead);
            break;
        case E_VALUE::PORT:
            CheckPort(i_uLine, i_strValue, true, l_strHead);
            break;
        case E_VALUE::LIBRARY:
            CheckLibrary(i_uLine, i_Key.pszSection, i_strValue, l_strHead);
            break;
        case E_VALUE::TEXT:
            break;
        }
    }

    void CheckNumber(size_t i_uLine, const S_KNOWN_KEY& i_Key, const std::string& i_strValue,
                     const std::string& i_strHead)
    {
        const uint32_t l_ulNumber = m_Lines.GetInt(i_Key.pszSection, i_Key.pszKey, 0);
        if (i_strValue.empty() || i_strValue.find_first_not_of("0123456789") != std::string::npos) {
            Tell(i_uLine, true,
                 i_strHead + "a decimal number is read here, this counts as " +
                     std::to_string(l_ulNumber));
        } else if (i_strValue.find_first_not_of('0') != std::string::npos &&
                   i_strValue.substr(i_strValue.find_first_not_of('0')) !=
                       std::to_string(l_ulNumber)) {
            Tell(i_uLine, true,
                 i_strHead + "too large, this counts as " + std::to_string(l_ulNumber));
        } else if (l_ulNumber < i_Key.ulLeast || l_ulNumber > i_Key.ulMost) {
            Tell(i_uLine, true,
                 i_strHead + "out of the range " + std::to_string(i_Key.ulLeast) + " to " +
                     std::to_string(i_Key.ulMost));
        }
    }

    void CheckProgram(size_t i_uLine, const std::string& i_strValue, const std::string& i_strHead)
    {
        if (i_strValue.empty()) {
            return;
        }
        const auto l_Path =
            FindRegular(i_uLine, i_strValue, i_strHead + "there is no such program");
        if (l_Path && access(l_Path->c_str(), X_OK) != 0) {
            Tell(i_uLine, true, i_strHead + "it cannot be run");
        }
    }

    /** A file that is named, or a word that it is missing or none. */
    std::optional<std::filesystem::path> FindRegular(size_t i_uLine, const std::string& i_strName,
                                                     const std::string& i_strMissing)
    {
        std::optional<std::filesystem::path> l_Path = FindFile(i_strName);
        std::error_code l_Error;
        if (!l_Path) {
            Tell(i_uLine, true, i_strMissing);
        } else if (!std::filesystem::is_regular_file(*l_Path, l_Error)) {
            Tell(i_uLine, true, l_Path->string() + " is no file");
            return std::nullopt;
        } else if (access(l_Path->c_str(), R_OK) != 0) {
            Tell(i_uLine, true, l_Path->string() + ": " + std::strerror(errno));
        }
        return l_Path;
    }

    void CheckPort(size_t i_uLine, const std::string& i_strPort, bool i_bWrong,
                   const std::string& i_strHead)
    {
        std::error_code l_Error;
        if (access(i_strPort.c_str(), R_OK | W_OK) != 0) {
            Tell(i_uLine, i_bWrong, i_strHead + std::strerror(errno));
        } else if (!std::filesystem::is_character_file(i_strPort, l_Error)) {
            Tell(i_uLine, i_bWrong, i_strHead + "this is no serial port");
        }
    }

    /** What a driver needs and the configuration does not name. */
    void CheckMissing()
    {
        for (const auto& [l_pszSection, l_pszDefault] :
             {std::pair{"IM", ""}, {"BT", "zondebtc6.dll"}, {"USB", "zondeusbc6.dll"}}) {
            const auto l_strName = m_Lines.FindText(l_pszSection, "DRIVER_NAME");
            if (!IsLoaded(l_pszSection) || (l_strName && !l_strName->empty())) {
                continue;
            }
            const std::string l_strHead =
                "section " + std::string(l_pszSection) + " without DRIVER_NAME: ";
            if (*l_pszDefault == 0) {
                Tell(0, true,
                     l_strHead + "no link library is named, and without SIMU=1 one is needed");
            } else if (!l_strName) {
                CheckLibrary(0, l_pszSection, l_pszDefault, l_strHead);
            }
        }
        const std::string l_strLink(m_Lines.FindText("IM", "DRIVER_NAME").value_or(""));
        if (!IsLoaded("IM") ||
            std::filesystem::path(l_strLink).filename().string() != "serial_link.so") {
            return;
        }
        for (const auto& [l_pszKey, l_pszPort] :
             {std::pair{"PORT_1", "/dev/ttyS0"}, {"PORT_2", "/dev/ttyS1"}}) {
            if (!m_Lines.FindText("SERIAL_LINK", l_pszKey)) {
                CheckPort(0, l_pszPort, false,
                          std::string(l_pszKey) + " is not there, " + l_pszPort + " is taken: ");
            }
        }
    }

    /** Whether the driver of a section is built with a link library. */
    [[nodiscard]] bool IsLoaded(const char* i_pszSection) const
    {
        return m_Lines.GetInt(i_pszSection, "SIMU", 0) == 0 &&
               (Same(i_pszSection, "IM") || m_Lines.GetInt(i_pszSection, "LOAD", 0) != 0);
    }

    void CheckLibrary(size_t i_uLine, const std::string& i_strSection,
                      const std::string& i_strValue, const std::string& i_strHead)
    {
        if (IsLoaded(i_strSection.c_str()) && !i_strValue.empty()) {
            for (const std::string& l_strFault : LibraryFaults(i_strSection, i_strValue)) {
                Tell(i_uLine, true, i_strHead + l_strFault);
            }
        }
    }

    void CheckLog()
    {
        std::error_code l_Error;
        const std::filesystem::path l_Folder = LogFile().parent_path();
        if (m_Lines.GetInt("LOG", "ENABLE", 0) == 1 && m_Lines.GetInt("LOG", "TYPE", 0) == 0 &&
            !std::filesystem::is_directory(l_Folder, l_Error)) {
            Tell(0, true, "the folder of the trace log does not exist: " + l_Folder.string());
        }
    }

    void ListPorts()
    {
        nlohmann::json l_List = nlohmann::json::array();
        std::error_code l_Error;
        for (const auto& l_Entry : std::filesystem::directory_iterator("/dev", l_Error)) {
            const std::string l_strName = l_Entry.path().filename().string();
            for (const char* l_pszKind : {"ttyUSB", "ttyACM", "ttyAMA"}) {
                if (l_strName.starts_with(l_pszKind)) {
                    l_List.push_back(l_Entry.path().string());
                    m_Program.Print("serial port: " + l_Entry.path().string() + "\n");
                }
            }
        }
        if (l_List.empty()) {
            m_Program.Print("serial ports: none of USB\n");
        }
        m_Program.Document()["serial_ports"] = l_List;
    }

    CProgram& m_Program;
    CLines m_Lines;
    nlohmann::json m_Findings = nlohmann::json::array();
    unsigned m_uWrong = 0;
};

void RunCheck(CProgram& io_Program)
{
    const unsigned l_uWrong = CCheck(io_Program).Run();
    if (l_uWrong != 0) {
        throw S_FAILURE{k_lExitFile,
                        std::to_string(l_uWrong) + " things are wrong with the configuration"};
    }
    io_Program.Print("nothing is wrong with " + ConfigurationFile().string() + "\n");
}

} // namespace

void AddCheckCommand(CCommand i_Parent, CProgram& io_Program)
{
    io_Program.AddCommand(
        i_Parent, "check",
        "Reads the configuration as the library does, and says line by line what is "
        "wrong or unusual",
        [&io_Program] { RunCheck(io_Program); });
}

} // namespace host
