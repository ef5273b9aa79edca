/** tornval check: reads the configuration as the library does, and says what is wrong with it. */
#include "Nearest.h"
#include "Program.h"
#include "Settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include <dlfcn.h>
#include <link.h>
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

struct S_ENTRY_POINTS
{
    const char* pszSection;
    std::vector<const char*> vNames;
};

const std::array k_aEntryPoints = {
    S_ENTRY_POINTS{"IM",
                   {"RS_Init", "RS_DeviceIoControl", "RS_Close", "RS_Init_Ex",
                    "RS_DeviceIoControl_Ex", "RS_Close_Ex"}},
    S_ENTRY_POINTS{"BT", {"PBT_Init", "PBT_Close", "PBT_DeviceIoControl"}},
    S_ENTRY_POINTS{"USB", {"PUSB_Init", "PUSB_Close", "PUSB_DeviceIoControl"}},
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

/** Whether an entry point is the library's own: that of a library which it needs is not taken. */
bool HasEntryPoint(void* i_pLibrary, const char* i_pszName)
{
    void* const l_pAddress = dlsym(i_pLibrary, i_pszName);
    link_map* l_pOwn = nullptr;
    void* l_pFound = nullptr;
    Dl_info l_Info{};
    return l_pAddress != nullptr && dlinfo(i_pLibrary, RTLD_DI_LINKMAP, &l_pOwn) == 0 &&
           dladdr1(l_pAddress, &l_Info, &l_pFound, RTLD_DL_LINKMAP) != 0 && l_pFound == l_pOwn;
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
            CheckLines();
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
                    CheckKey(l_uLine, l_strSection, l_strKey);
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
        const std::string l_strNearest = Nearest(i_strSection, l_vKnown);
        Tell(i_uLine, true,
             "nobody reads a section " + i_strSection +
                 (l_strNearest.empty() ? "" : ", was " + l_strNearest + " meant?"));
        return false;
    }

    void CheckKey(size_t i_uLine, const std::string& i_strSection, const std::string& i_strKey)
    {
        std::vector<std::string> l_vKnown;
        for (const S_KNOWN_KEY& l_Key : k_aKeys) {
            if (!Same(l_Key.pszSection, i_strSection)) {
                continue;
            }
            l_vKnown.emplace_back(l_Key.pszKey);
            if (Same(l_Key.pszKey, i_strKey)) {
                CheckValue(i_uLine, l_Key, std::string(*m_Lines.FindText(i_strSection, i_strKey)));
                return;
            }
        }
        if (IsUnitKey(i_strSection, i_strKey)) {
            return;
        }
        const std::string l_strNearest = Nearest(i_strKey, l_vKnown);
        Tell(i_uLine, true,
             "nobody reads a key " + i_strKey + " in section " + i_strSection +
                 (l_strNearest.empty() ? "" : ", was " + l_strNearest + " meant?"));
    }

    void CheckValue(size_t i_uLine, const S_KNOWN_KEY& i_Key, const std::string& i_strValue)
    {
        const std::string l_strHead = std::string(i_Key.pszKey) + "=" + i_strValue + ": ";
        switch (i_Key.Value) {
        case E_VALUE::NUMBER:
            CheckNumber(i_uLine, i_Key, i_strValue, l_strHead);
            break;
        case E_VALUE::REAL:
            if (i_strValue.empty() ||
                i_strValue.find_first_not_of("+-.0123456789eE") != std::string::npos) {
                Tell(i_uLine, true, l_strHead + "this is no number");
            }
            break;
        case E_VALUE::FILE:
            if (!i_strValue.empty() && !FindFile(i_strValue)) {
                Tell(i_uLine, true, l_strHead + "there is no such file");
            }
            break;
        case E_VALUE::PROGRAM:
            CheckProgram(i_uLine, i_strValue, l_strHead);
            break;
        case E_VALUE::PORT:
            if (access(i_strValue.c_str(), R_OK | W_OK) != 0) {
                Tell(i_uLine, true, l_strHead + std::strerror(errno));
            }
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
        } else if (l_ulNumber < i_Key.ulLeast || l_ulNumber > i_Key.ulMost) {
            Tell(i_uLine, true,
                 i_strHead + "out of the range " + std::to_string(i_Key.ulLeast) + " to " +
                     std::to_string(i_Key.ulMost));
        }
    }

    void CheckProgram(size_t i_uLine, const std::string& i_strValue, const std::string& i_strHead)
    {
        const std::optional<std::filesystem::path> l_Path = FindFile(i_strValue);
        if (!i_strValue.empty() && !l_Path) {
            Tell(i_uLine, true, i_strHead + "there is no such program");
        } else if (l_Path && access(l_Path->c_str(), X_OK) != 0) {
            Tell(i_uLine, true, i_strHead + "it cannot be run");
        }
    }

    /** Loads a link library the way a driver does. */
    void CheckLibrary(size_t i_uLine, const std::string& i_strSection,
                      const std::string& i_strValue, const std::string& i_strHead)
    {
        if (m_Lines.GetInt(i_strSection.c_str(), "SIMU", 0) != 0 || i_strValue.empty()) {
            return;
        }
        std::string l_strPath = i_strValue;
        std::error_code l_Error;
        if (i_strValue.find('/') == std::string::npos) {
            for (const std::filesystem::path& l_Folder : {HomeFolder(), LinksFolder()}) {
                if (!l_Folder.empty() && std::filesystem::exists(l_Folder / i_strValue, l_Error)) {
                    l_strPath = (l_Folder / i_strValue).string();
                    break;
                }
            }
        }
        void* l_pLibrary = dlopen(l_strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (l_pLibrary == nullptr) {
            const char* l_pszWhy = dlerror();
            Tell(i_uLine, true, i_strHead + (l_pszWhy == nullptr ? "not loaded" : l_pszWhy));
            return;
        }
        for (const S_ENTRY_POINTS& l_Points : k_aEntryPoints) {
            for (const char* l_pszName : l_Points.vNames) {
                if (Same(i_strSection, l_Points.pszSection) &&
                    !HasEntryPoint(l_pLibrary, l_pszName)) {
                    Tell(i_uLine, true, i_strHead + "it has no entry point " + l_pszName);
                }
            }
        }
        dlclose(l_pLibrary);
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
