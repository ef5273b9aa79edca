#include "TraceReport.h"

#include "Words.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>

namespace host {

namespace {

/** The number behind the last such marker, decimal or hexadecimal; nothing if the marker is not
 * there. */
std::optional<uint32_t> NumberBehind(std::string_view i_strText, std::string_view i_strMarker,
                                     int i_lBase = 10)
{
    const size_t l_uAt = i_strText.rfind(i_strMarker);
    if (l_uAt == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view l_strRest = i_strText.substr(l_uAt + i_strMarker.size());
    const bool l_bNegative = !l_strRest.empty() && l_strRest.front() == '-';
    l_strRest.remove_prefix(l_bNegative ? 1 : 0);
    uint32_t l_ulNumber = 0;
    const auto l_Read =
        std::from_chars(l_strRest.data(), l_strRest.data() + l_strRest.size(), l_ulNumber, i_lBase);
    if (l_Read.ec != std::errc()) {
        return std::nullopt;
    }
    return l_bNegative ? 0U - l_ulNumber : l_ulNumber;
}

/** The text between two markers, cut at the last occurrence of the second. */
std::string Between(const std::string& i_strText, std::string_view i_strBefore,
                    std::string_view i_strBehind)
{
    const size_t l_uAt = i_strText.find(i_strBefore);
    if (l_uAt == std::string::npos) {
        return {};
    }
    const size_t l_uStart = l_uAt + i_strBefore.size();
    const size_t l_uEnd = i_strText.rfind(i_strBehind);
    return l_uEnd == std::string::npos || l_uEnd < l_uStart
               ? std::string()
               : i_strText.substr(l_uStart, l_uEnd - l_uStart);
}

/** The command that a line names by "cmdeid=", or just "the command". */
std::string CommandOf(const std::string& i_strText)
{
    const auto l_Command = NumberBehind(i_strText, "cmdeid=", 16);
    return l_Command ? CommandInWords(static_cast<int32_t>(*l_Command & 0xFFU)) : "the command";
}

std::string LastErrorOf(const std::string& i_strText, std::string_view i_strMarker)
{
    const auto l_Error = NumberBehind(i_strText, i_strMarker);
    return l_Error ? ": " + SystemErrorInWords(*l_Error) : "";
}

/** The word behind a marker as it stands: some numbers are decimal, some are not. */
std::string CountOf(const std::string& i_strText, std::string_view i_strMarker)
{
    const size_t l_uAt = i_strText.rfind(i_strMarker);
    const std::string l_strRest =
        l_uAt == std::string::npos ? "" : i_strText.substr(l_uAt + i_strMarker.size());
    const std::string l_strWord = l_strRest.substr(0, l_strRest.find_first_of(" )\n"));
    return l_strWord.empty() ? "?" : l_strWord;
}

struct S_KNOWN_LINE
{
    /** What the line contains. */
    const char* pszMarker;
    std::string (*pFnWords)(const std::string&);
};

// In the order in which they are tried: the more special one first.
constexpr std::array k_aKnownLines = {
    S_KNOWN_LINE{"> LoadLibrary: ",
                 [](const std::string& i_strText) {
                     return "the link library \"" +
                            Between(i_strText, "> LoadLibrary: ", " (last error: ") +
                            "\" could not be loaded" + LastErrorOf(i_strText, "(last error: ");
                 }},
    S_KNOWN_LINE{"GetProcAddress: ",
                 [](const std::string& i_strText) {
                     return "the link library lacks an entry point" +
                            LastErrorOf(i_strText, "(last error: ");
                 }},
    S_KNOWN_LINE{"LoadDriver: ",
                 [](const std::string& i_strText) {
                     return "the driver is not built without its link library \"" +
                            Between(i_strText, "LoadDriver: ", " (last error: ") + "\"";
                 }},
    S_KNOWN_LINE{"> Create Driver probe ",
                 [](const std::string&) {
                     return std::string("the probe's link library could not be loaded, or it "
                                        "lacks an entry point");
                 }},
    S_KNOWN_LINE{"return FALSE (port: ",
                 [](const std::string& i_strText) {
                     return "the probe's link did not open on port " +
                            CountOf(i_strText, "(port: ") + " (hexadecimal)";
                 }},
    S_KNOWN_LINE{"m_pFn_RS_Init return FALSE",
                 [](const std::string&) {
                     return std::string("the link library did not open the serial link");
                 }},
    S_KNOWN_LINE{"m_pFn_RS_Close return FALSE",
                 [](const std::string&) {
                     return std::string("the link library did not close the serial link");
                 }},
    S_KNOWN_LINE{"ERROR m_pSerialDriver NULL",
                 [](const std::string&) { return std::string("no memory for the serial link"); }},
    S_KNOWN_LINE{"echec du DeviceIO",
                 [](const std::string&) {
                     return std::string("the link library refused to send a command");
                 }},
    S_KNOWN_LINE{"echec de la cmde avec status: ",
                 [](const std::string& i_strText) {
                     return "the device refused the command with status word " +
                            CountOf(i_strText, "status: ");
                 }},
    S_KNOWN_LINE{"timeout ou event detruit",
                 [](const std::string& i_strText) {
                     return "no answer to " + CommandOf(i_strText) + " came in time";
                 }},
    S_KNOWN_LINE{"device io error",
                 [](const std::string& i_strText) {
                     return "the link library did not hand over the answer to " +
                            CommandOf(i_strText);
                 }},
    S_KNOWN_LINE{"cmde error avec status: ",
                 [](const std::string& i_strText) {
                     return "the link marked the answer to " + CommandOf(i_strText) +
                            " as bad, status " + CountOf(i_strText, "status: ");
                 }},
    S_KNOWN_LINE{"taille entete insuffisante",
                 [](const std::string& i_strText) {
                     return "the answer to " + CommandOf(i_strText) +
                            " is too short: " + CountOf(i_strText, "(taille: ") +
                            " bytes, at least " + CountOf(i_strText, "attendue: ") + " are needed";
                 }},
    S_KNOWN_LINE{"code de retour du firmware: ",
                 [](const std::string& i_strText) {
                     return "the firmware returned code " + CountOf(i_strText, "firmware: ") +
                            " instead of 1";
                 }},
    S_KNOWN_LINE{"error code du firmware: ",
                 [](const std::string& i_strText) {
                     return "the firmware reported error " + CountOf(i_strText, "firmware: ");
                 }},
    S_KNOWN_LINE{"getCmdOutBuff is NULL or size error: ",
                 [](const std::string& i_strText) {
                     return "the board's answer with the coefficients is too short: " +
                            CountOf(i_strText, "size error: ") + " bytes";
                 }},
    S_KNOWN_LINE{"InitIMB> ERROR GetResult",
                 [](const std::string&) {
                     return std::string("the board did not deliver its coefficients");
                 }},
    S_KNOWN_LINE{
        "InitIMB> ERROR allocation",
        [](const std::string&) { return std::string("no memory for the board's answer"); }},
    S_KNOWN_LINE{"ERROR Driver is NULL",
                 [](const std::string&) { return std::string("the driver could not be built"); }},
};

/** Name of the driver in "CRouter::Load...Driver> START", or empty if the line is another. */
std::string DriverOfLine(const std::string& i_strText, std::string_view i_strWhat)
{
    constexpr std::string_view k_strHead = "CRouter::Load";
    if (!i_strText.starts_with(k_strHead)) {
        return {};
    }
    const std::string l_strName =
        Between(i_strText, k_strHead, std::string("Driver> ").append(i_strWhat));
    // The frame around all of them is no driver.
    return l_strName == "Meas" ? std::string() : l_strName;
}

std::string LinkTypeOfName(const std::string& i_strName)
{
    for (const char* l_pszWord : {"IM", "MO", "BT", "USB"}) {
        if (i_strName.find(l_pszWord) != std::string::npos) {
            return l_pszWord;
        }
    }
    return i_strName;
}

void AddLine(S_DRIVER_LOAD& io_Load, const S_TRACE_LINE& i_Line)
{
    const bool l_bNotBuilt = i_Line.strText.find("ERROR Driver is NULL") != std::string::npos;
    if (i_Line.strText.find("add driver to the map") != std::string::npos) {
        io_Load.bUp = true;
    }
    if (i_Line.strLevel != "ERROR_LEVEL" && !l_bNotBuilt) {
        return;
    }
    io_Load.vLines.push_back(i_Line.strText);
    // These two only sum up what was said before.
    const bool l_bSum = l_bNotBuilt || i_Line.strText.find("> LoadDriver: ") != std::string::npos ||
                        i_Line.strText.find("> ERROR LoadDriver: ") != std::string::npos;
    std::string l_strWords = TraceLineInWords(i_Line.strText);
    if (!l_strWords.empty() && (!l_bSum || io_Load.vReasons.empty())) {
        io_Load.vReasons.push_back(std::move(l_strWords));
    }
    for (const char* l_pszMarker : {"> LoadLibrary: ", "LoadDriver: "}) {
        if (i_Line.strText.find(l_pszMarker) != std::string::npos) {
            io_Load.bLibraryFailed = true;
            io_Load.strLibrary = Between(i_Line.strText, l_pszMarker, " (last error: ");
        }
    }
    if (i_Line.strText.find("> Create Driver probe ") != std::string::npos) {
        io_Load.bLibraryFailed = true;
    }
}

/** Whether a line of the file begins an entry: it carries the date, the tick and the thread. */
size_t PrefixLength(std::string_view i_strLine)
{
    const size_t l_uThread = i_strLine.find(" [th");
    if (i_strLine.empty() || std::isdigit(static_cast<unsigned char>(i_strLine.front())) == 0 ||
        l_uThread == std::string_view::npos || l_uThread > 60 ||
        i_strLine.substr(0, l_uThread).find(" AT ") == std::string_view::npos) {
        return 0;
    }
    const size_t l_uEnd = i_strLine.find("] ", l_uThread);
    return l_uEnd == std::string_view::npos ? 0 : l_uEnd + 2;
}

void SplitLevel(S_TRACE_LINE& io_Line)
{
    std::string& l_strText = io_Line.strText;
    const size_t l_uAt = l_strText.rfind(" [");
    if (l_uAt != std::string::npos && !l_strText.empty() && l_strText.back() == ']') {
        io_Line.strLevel = l_strText.substr(l_uAt + 2, l_strText.size() - l_uAt - 3);
        l_strText.resize(l_uAt);
    }
    while (!l_strText.empty() && (l_strText.back() == '\n' || l_strText.back() == ' ')) {
        l_strText.pop_back();
    }
}

/** Length of the UTF-8 sequence at the head of the text; 0 if there is none. */
size_t Utf8Length(std::string_view i_strText)
{
    const auto l_ucHead = static_cast<unsigned char>(i_strText.front());
    const size_t l_uLength = l_ucHead < 0x80                        ? 1
                             : l_ucHead >= 0xC2 && l_ucHead < 0xE0  ? 2
                             : l_ucHead >= 0xE0 && l_ucHead < 0xF0  ? 3
                             : l_ucHead >= 0xF0 && l_ucHead <= 0xF4 ? 4
                                                                    : 0;
    if (l_uLength == 0 || l_uLength > i_strText.size()) {
        return 0;
    }
    const auto l_Tail = i_strText.substr(1, l_uLength - 1);
    return std::all_of(l_Tail.begin(), l_Tail.end(),
                       [](char i_c) { return (static_cast<unsigned char>(i_c) & 0xC0) == 0x80; })
               ? l_uLength
               : 0;
}

} // namespace

std::string ToUtf8(std::string_view i_strBytes)
{
    bool l_bValid = true;
    for (size_t i = 0; i < i_strBytes.size() && l_bValid;) {
        const size_t l_uLength = Utf8Length(i_strBytes.substr(i));
        l_bValid = l_uLength != 0;
        i += l_uLength;
    }
    if (l_bValid) {
        return std::string(i_strBytes);
    }
    std::string l_strText;
    for (const char l_c : i_strBytes) {
        const auto l_uc = static_cast<unsigned char>(l_c);
        if (l_uc < 0x80) {
            l_strText += l_c;
        } else {
            l_strText += static_cast<char>(0xC0U | (l_uc >> 6U));
            l_strText += static_cast<char>(0x80U | (l_uc & 0x3FU));
        }
    }
    return l_strText;
}

std::vector<S_TRACE_LINE> ParseTrace(std::string_view i_strLog)
{
    std::vector<S_TRACE_LINE> l_vLines;
    while (!i_strLog.empty()) {
        const size_t l_uEnd = std::min(i_strLog.find('\n'), i_strLog.size());
        const std::string_view l_strLine = i_strLog.substr(0, l_uEnd);
        i_strLog.remove_prefix(std::min(l_uEnd + 1, i_strLog.size()));
        const size_t l_uPrefix = PrefixLength(l_strLine);
        if (l_uPrefix != 0) {
            l_vLines.push_back({ToUtf8(l_strLine.substr(l_uPrefix)), {}});
        } else if (!l_vLines.empty()) {
            // A text that itself ends a line carries its level on the next one.
            l_vLines.back().strText.append("\n").append(ToUtf8(l_strLine));
        }
    }
    std::for_each(l_vLines.begin(), l_vLines.end(), SplitLevel);
    return l_vLines;
}

std::string TraceLineInWords(const std::string& i_strText)
{
    for (const S_KNOWN_LINE& l_Known : k_aKnownLines) {
        if (i_strText.find(l_Known.pszMarker) != std::string::npos) {
            return l_Known.pFnWords(i_strText);
        }
    }
    return {};
}

std::vector<S_DRIVER_LOAD> ReadLoads(const std::vector<S_TRACE_LINE>& i_vLines)
{
    std::vector<S_DRIVER_LOAD> l_vLoads;
    bool l_bInside = false;
    for (const S_TRACE_LINE& l_Line : i_vLines) {
        const std::string l_strStarts = DriverOfLine(l_Line.strText, "START");
        if (!l_strStarts.empty()) {
            l_bInside = true;
            l_vLoads.push_back({});
            l_vLoads.back().strLinkType = LinkTypeOfName(l_strStarts);
        } else if (!DriverOfLine(l_Line.strText, "STOP").empty()) {
            l_bInside = false;
        } else if (l_bInside) {
            AddLine(l_vLoads.back(), l_Line);
        }
    }
    return l_vLoads;
}

} // namespace host
