/** tornval send: any command to any driver, with its raw answer. */
#include "Samples.h"
#include "Session.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace host {

namespace {

/** Largest payload that fits a frame of the board. */
constexpr size_t k_uMaxPayload = 65528;
/** Bytes and words that the text form shows. */
constexpr size_t k_uShown = 256;

struct S_SEND_OPTIONS
{
    std::string strDriver;
    uint32_t ulCommand = 0;
    uint32_t ulParam = 0;
    std::string strPayload;
    uint32_t ulTimeout = 1000;
};

/** Bytes of a text in hexadecimal; blanks, colons and a leading 0x do not matter. */
std::vector<uint8_t> ParseHex(std::string i_strText)
{
    if (i_strText.starts_with("0x") || i_strText.starts_with("0X")) {
        i_strText.erase(0, 2);
    }
    std::erase_if(i_strText, [](char i_c) { return i_c == ' ' || i_c == ':'; });
    const bool l_bHex = std::all_of(i_strText.begin(), i_strText.end(), [](char i_c) {
        return std::isxdigit(static_cast<unsigned char>(i_c)) != 0;
    });
    if (!l_bHex || i_strText.size() % 2 != 0 || i_strText.size() / 2 > k_uMaxPayload) {
        throw S_FAILURE{k_lExitUsage,
                        "--payload wants up to 65528 bytes as pairs of hexadecimal digits"};
    }
    std::vector<uint8_t> l_vBytes;
    for (size_t i = 0; i < i_strText.size(); i += 2) {
        l_vBytes.push_back(static_cast<uint8_t>(std::stoul(i_strText.substr(i, 2), nullptr, 16)));
    }
    return l_vBytes;
}

std::string HexOf(const std::vector<char>& i_vBytes, size_t i_uCount)
{
    std::string l_strHex;
    std::array<char, 4> l_szByte{};
    for (size_t i = 0; i < std::min(i_uCount, i_vBytes.size()); ++i) {
        std::snprintf(l_szByte.data(), l_szByte.size(), "%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(i_vBytes[i])));
        l_strHex += (i == 0 ? "" : " ");
        l_strHex += l_szByte.data();
    }
    return l_strHex;
}

/** The answer without the zeros that nobody wrote behind it. */
std::vector<char> WithoutTail(std::vector<char> i_vBytes)
{
    while (!i_vBytes.empty() && i_vBytes.back() == 0) {
        i_vBytes.pop_back();
    }
    return i_vBytes;
}

bool IsText(const std::vector<char>& i_vBytes)
{
    return !i_vBytes.empty() && std::all_of(i_vBytes.begin(), i_vBytes.end(), [](char i_c) {
        return std::isprint(static_cast<unsigned char>(i_c)) != 0;
    });
}

/** How many words of the processed array the answer filled. */
size_t NbWords(const S_DRIVER& i_Driver, uint8_t i_ucCommand, const CExchange& i_Exchange)
{
    if (i_Driver.strLinkType == "IM" && i_ucCommand == 212) {
        // A measure leaves the size word alone.
        return 1;
    }
    Channels l_vChannels;
    size_t l_uWords = i_Exchange.Size() > 0 ? static_cast<size_t>(i_Exchange.Size()) : 0;
    if (i_Driver.strLinkType == "IM" && l_uWords != 0 &&
        SplitChannels(i_Exchange.Words(), i_Exchange.Size(), k_uBoardChannels, l_vChannels)) {
        // A simulated board leaves the counts out of its size word.
        l_uWords = k_uBoardChannels;
        for (const auto& l_vChannel : l_vChannels) {
            l_uWords += l_vChannel.size();
        }
    }
    return std::min(l_uWords, i_Exchange.Words().size());
}

void RunSend(CProgram& io_Program, const S_SEND_OPTIONS& i_Options)
{
    const std::vector<uint8_t> l_vPayload = ParseHex(i_Options.strPayload);
    const CSession l_Session(io_Program.Options());
    const S_DRIVER& l_Driver = l_Session.ByName(i_Options.strDriver);
    Announce(io_Program, l_Driver);
    const auto l_ucCommand = static_cast<uint8_t>(i_Options.ulCommand);
    CExchange l_Exchange;
    const S_RESULT l_Result =
        l_Exchange.Run(l_Driver, l_ucCommand, static_cast<uint8_t>(i_Options.ulParam), l_vPayload,
                       i_Options.ulTimeout);

    const std::vector<char> l_vRaw = WithoutTail(l_Exchange.Raw());
    const size_t l_uWords = NbWords(l_Driver, l_ucCommand, l_Exchange);
    const auto l_WordsEnd = l_Exchange.Words().begin() + static_cast<std::ptrdiff_t>(l_uWords);
    nlohmann::json& l_Document = io_Program.Document();
    l_Document["command"] = l_ucCommand;
    l_Document["raw"] = HexOf(l_vRaw, l_vRaw.size());
    l_Document["processed"] = std::vector<int32_t>(l_Exchange.Words().begin(), l_WordsEnd);
    if (IsText(l_vRaw)) {
        l_Document["text"] = std::string(l_vRaw.begin(), l_vRaw.end());
        io_Program.Print("text: " + std::string(l_vRaw.begin(), l_vRaw.end()) + "\n");
    } else if (!l_vRaw.empty()) {
        io_Program.Print("raw: " + HexOf(l_vRaw, k_uShown) +
                         (l_vRaw.size() > k_uShown ? " ..." : "") + "\n");
    }
    for (size_t i = 0; i < std::min(l_uWords, k_uShown); ++i) {
        io_Program.Print((i == 0 ? "processed: " : " ") + std::to_string(l_Exchange.Words()[i]));
    }
    io_Program.Print(l_uWords == 0 ? "" : l_uWords > k_uShown ? " ...\n" : "\n");
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, l_Exchange.Call());
    }
    io_Program.Print("done: " + CommandInWords(l_ucCommand) + "\n");
}

} // namespace

void AddSendCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto [l_Send, l_Options] = io_Program.AddCommand(
        i_Parent, "send", "Sends a command to a driver and prints its answer", RunSend);
    AddDriverOption(l_Send, l_Options.strDriver, "driver, IM, MO, BT, USB or a number").Required();
    l_Send.Option("--command", l_Options.ulCommand, "ID of the command").Required().Within(0, 255);
    l_Send.Option("--param", l_Options.ulParam, "the command's parameter byte").Within(0, 255);
    l_Send.Option("--payload", l_Options.strPayload, "bytes in hexadecimal, as 64000000");
    l_Send
        .Option("--timeout", l_Options.ulTimeout,
                "milliseconds, handed to the device and added to the 5000 that board and "
                "module wait")
        .Within(0U, 3600000U)
        .ShowDefault();
}

} // namespace host
