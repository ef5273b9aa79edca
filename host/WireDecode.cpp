#include "WireDecode.h"

#include "TornvalLinks.h"
#include "Words.h"
#include "wire/Bytes.h"
#include "wire/Crc16.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

namespace host {

using wire::E_CAPTURE_FUNCTION;
using wire::E_CAPTURE_KIND;
using wire::E_CAPTURE_LIBRARY;
using wire::S_CAPTURE_RECORD;

namespace {

/** Calls that are remembered while they have not returned. */
constexpr size_t k_uMaxOpen = 4096;

std::string Hex(uint32_t i_ulNumber, int i_lDigits)
{
    std::array<char, 16> l_szText{};
    std::snprintf(l_szText.data(), l_szText.size(), "0x%0*X", i_lDigits,
                  static_cast<unsigned>(i_ulNumber));
    return l_szText.data();
}

bool IsControl(const S_CAPTURE_RECORD& i_Record)
{
    return i_Record.eFunction == E_CAPTURE_FUNCTION::Control ||
           i_Record.eFunction == E_CAPTURE_FUNCTION::ControlEx;
}

/** The module is the one whose link has a handle of its own. */
bool IsModule(const S_CAPTURE_RECORD& i_Call)
{
    return i_Call.eFunction == E_CAPTURE_FUNCTION::InitEx ||
           i_Call.eFunction == E_CAPTURE_FUNCTION::ControlEx ||
           (i_Call.eFunction == E_CAPTURE_FUNCTION::CloseEx &&
            i_Call.Word(wire::CaptureCloseHandle) != 0);
}

std::string LinkName(const S_CAPTURE_RECORD& i_Call)
{
    switch (i_Call.eLibrary) {
    case E_CAPTURE_LIBRARY::Bluetooth:
        return "bluetooth";
    case E_CAPTURE_LIBRARY::Usb:
        return "usb";
    case E_CAPTURE_LIBRARY::Serial:
        break;
    }
    return IsModule(i_Call) ? "milliohm" : "board";
}

std::string EntryPoint(const S_CAPTURE_RECORD& i_Call)
{
    static constexpr std::array<const char*, 7> l_apszNames = {
        "?", "Init", "Init_Ex", "DeviceIoControl", "DeviceIoControl_Ex", "Close", "Close_Ex"};
    static constexpr std::array<const char*, 3> l_apszPrefixes = {"RS_", "PBT_", "PUSB_"};
    return std::string(l_apszPrefixes[static_cast<size_t>(i_Call.eLibrary) - 1]) +
           l_apszNames[static_cast<size_t>(i_Call.eFunction)];
}

/** Whether it is a control call with the code that its library has for this. */
bool HasCode(const S_CAPTURE_RECORD& i_Call, uint32_t i_ulSerial, uint32_t i_ulBluetooth,
             uint32_t i_ulUsb)
{
    return IsControl(i_Call) &&
           i_Call.Word(wire::CaptureControlCode) ==
               (i_Call.eLibrary == E_CAPTURE_LIBRARY::Serial      ? i_ulSerial
                : i_Call.eLibrary == E_CAPTURE_LIBRARY::Bluetooth ? i_ulBluetooth
                                                                  : i_ulUsb);
}

bool IsSend(const S_CAPTURE_RECORD& i_Call)
{
    return HasCode(i_Call, IOCTL_RS_SEND_COMMAND, IOCTL_PBT_SEND_COMMAND, IOCTL_PUSB_SEND_COMMAND);
}

bool IsFetch(const S_CAPTURE_RECORD& i_Call)
{
    return HasCode(i_Call, IOCTL_RS_GET_RESULT, IOCTL_PBT_GET_RESULT, IOCTL_PUSB_GET_RESULT);
}

std::string MeasureStatus(uint8_t i_ucStatus)
{
    switch (i_ucStatus) {
    case 0x00:
        return " good";
    case 0x01:
        return " below the range";
    case 0x10:
        return " being calibrated";
    case 0x80:
        return " above the range";
    default:
        return " error";
    }
}

} // namespace

std::string PlainText(std::string_view i_strText)
{
    std::string l_strPlain(i_strText);
    std::replace_if(
        l_strPlain.begin(), l_strPlain.end(),
        [](char i_cByte) { return i_cByte < 0x20 || i_cByte >= 0x7F; }, '?');
    return l_strPlain;
}

/** Takes fields off bytes, as long as there are any. */
class CWireDecoder::CFields
{
public:
    CFields(std::span<const uint8_t> i_Bytes, size_t i_uMaxBytes, S_WIRE_MESSAGE& io_Message)
        : m_Bytes(i_Bytes), m_uMaxBytes(i_uMaxBytes), m_Message(io_Message)
    {
    }

    [[nodiscard]] size_t Left() const { return m_Bytes.size() - m_uAt; }

    /** A little-endian number; nothing if the bytes end before it. */
    std::optional<uint32_t> Number(const std::string& i_strName, size_t i_uWidth,
                                   bool i_bHex = false, const std::string& i_strWords = {})
    {
        if (Left() < i_uWidth) {
            Rest(i_strName + " (cut)");
            return std::nullopt;
        }
        uint32_t l_ulNumber = 0;
        for (size_t i = i_uWidth; i-- > 0;) {
            l_ulNumber = (l_ulNumber << 8) | m_Bytes[m_uAt + i];
        }
        Add(i_strName, (i_bHex ? Hex(l_ulNumber, static_cast<int>(2 * i_uWidth))
                               : std::to_string(l_ulNumber)) +
                           i_strWords);
        m_uAt += i_uWidth;
        return l_ulNumber;
    }

    void Signed(const std::string& i_strName)
    {
        if (const auto l_oulNumber = Number(i_strName, 4)) {
            m_Message.vFields.back().strValue = std::to_string(static_cast<int32_t>(*l_oulNumber));
        }
    }

    /** Puts words behind the value of the last field. */
    void Explain(const std::string& i_strWords) { m_Message.vFields.back().strValue += i_strWords; }

    /** Bytes without a meaning of their own: up to the given number of them. */
    void Rest(const std::string& i_strName, size_t i_uMost = SIZE_MAX)
    {
        const size_t l_uLength = std::min(Left(), i_uMost);
        if (l_uLength == 0) {
            return;
        }
        std::string l_strBytes;
        for (size_t i = 0; i < std::min(l_uLength, m_uMaxBytes); ++i) {
            l_strBytes += (i == 0 ? "" : " ") + Hex(m_Bytes[m_uAt + i], 2).substr(2);
        }
        if (l_uLength > m_uMaxBytes) {
            l_strBytes += " ... (" + std::to_string(l_uLength) + " bytes)";
        }
        Add(i_strName, l_strBytes);
        m_uAt += l_uLength;
    }

    void Text(const std::string& i_strName)
    {
        const auto l_Rest = m_Bytes.subspan(m_uAt);
        const std::string l_strText(l_Rest.begin(), std::find(l_Rest.begin(), l_Rest.end(), 0));
        Add(i_strName, "\"" + PlainText(l_strText) + "\"");
        m_uAt = m_Bytes.size();
    }

    void Add(const std::string& i_strName, const std::string& i_strValue)
    {
        m_Message.vFields.push_back({m_uAt, i_strName, i_strValue});
    }

    /** The CRC at this place, which guards the frame from behind it to its sized end. */
    void Crc()
    {
        const std::span<const uint8_t> l_Frame = m_Bytes.subspan(m_uAt);
        const auto l_oulCrc = Number("crc", 2, true);
        if (!l_oulCrc) {
            return;
        }
        const size_t l_uLength = l_Frame.size() < 6
                                     ? SIZE_MAX
                                     : size_t{RS_FRAME_OUTER_HEAD} +
                                           wire::ReadLe16(l_Frame.data() + RS_FRAME_SIZE_OFFSET);
        if (l_uLength > l_Frame.size()) {
            Explain(" cannot be checked: the frame ends before its size says");
            return;
        }
        const uint16_t l_usRight =
            wire::CCrc16().ComputeCrc16(l_Frame.data() + 2, static_cast<uint32_t>(l_uLength - 2));
        m_Message.obCrc = l_usRight == *l_oulCrc;
        Explain(*m_Message.obCrc ? " good" : " WRONG, should be " + Hex(l_usRight, 4));
    }

    /** The head of a frame from behind its CRC to its data. */
    void Head()
    {
        Number("id", 2);
        Number("size", 2);
        Number("time-out", 2, false, " x 100");
        if (const auto l_oulCanal = Number("canal", 1)) {
            Explain(*l_oulCanal == 0 ? " board or module" : *l_oulCanal == 3 ? " generator" : "");
        }
        if (const auto l_oulCmde = Number("command", 1)) {
            m_Message.vFields.back().strValue = CommandInWords(static_cast<int32_t>(*l_oulCmde));
        }
        Number("zero", 1);
        Number("param", 1);
    }

private:
    std::span<const uint8_t> m_Bytes;
    size_t m_uMaxBytes;
    S_WIRE_MESSAGE& m_Message;
    size_t m_uAt = 0;
};

S_WIRE_MESSAGE CWireDecoder::Decode(const S_CAPTURE_RECORD& i_Record)
{
    S_WIRE_MESSAGE l_Message;
    l_Message.ullTime = i_Record.ullTime;
    const auto l_itCall = m_mapOpen.find(i_Record.ulCall);
    if (i_Record.eKind == E_CAPTURE_KIND::Call) {
        l_Message.bOut = true;
        l_Message.strLink = LinkName(i_Record);
        DecodeCall(i_Record, l_Message);
        if (m_mapOpen.size() >= k_uMaxOpen) {
            m_mapOpen.erase(m_mapOpen.begin());
        }
        m_mapOpen[i_Record.ulCall] = i_Record;
    } else if (i_Record.eKind == E_CAPTURE_KIND::Event) {
        l_Message.strLink = "event";
        l_Message.strTitle =
            "the answer to call " + std::to_string(i_Record.ulCall) + " is announced by event " +
            Hex(i_Record.Word(wire::CaptureEventHandle), 8) +
            (i_Record.Word(wire::CaptureEventResult) != 0 ? "" : ", too late: the event is gone");
    } else if (l_itCall == m_mapOpen.end()) {
        l_Message.strLink = LinkName(i_Record);
        l_Message.strTitle = "a return whose call is not in this file";
    } else {
        const S_CAPTURE_RECORD l_Call = std::move(l_itCall->second);
        m_mapOpen.erase(l_itCall);
        l_Message.strLink = LinkName(l_Call);
        DecodeReturn(l_Call, i_Record, l_Message);
    }
    return l_Message;
}

void CWireDecoder::DecodeCall(const S_CAPTURE_RECORD& i_Call, S_WIRE_MESSAGE& io_Message)
{
    if (IsSend(i_Call)) {
        if (i_Call.eLibrary == E_CAPTURE_LIBRARY::Serial) {
            DecodeFrame(i_Call, io_Message);
        } else {
            DecodeProbeSend(i_Call, io_Message);
        }
        return;
    }
    CFields l_Fields(i_Call.vData, m_uMaxBytes, io_Message);
    io_Message.strTitle = EntryPoint(i_Call);
    if (IsFetch(i_Call)) {
        io_Message.strTitle = "fetch";
        if (i_Call.eLibrary == E_CAPTURE_LIBRARY::Serial && i_Call.vData.size() >= 2) {
            io_Message.strTitle += " " + CommandInWords(wire::ReadLe16(i_Call.vData.data()));
        } else {
            l_Fields.Number("bytes asked for", 4);
        }
    } else if (IsControl(i_Call)) {
        io_Message.strTitle += " code " + Hex(i_Call.Word(wire::CaptureControlCode), 6);
        l_Fields.Rest("in");
    } else if (i_Call.eLibrary == E_CAPTURE_LIBRARY::Serial &&
               i_Call.eFunction <= E_CAPTURE_FUNCTION::InitEx) {
        io_Message.strTitle += " port " + std::to_string(i_Call.Word(wire::CaptureOpenPort)) +
                               ", " + std::to_string(i_Call.Word(wire::CaptureOpenBaud)) +
                               " baud, " + std::to_string(i_Call.Word(wire::CaptureOpenBits)) +
                               " bits";
    } else if (i_Call.eFunction == E_CAPTURE_FUNCTION::Init) {
        io_Message.strTitle += " port " + std::to_string(i_Call.Word(wire::CaptureOpenPort));
        if (!i_Call.vData.empty()) {
            l_Fields.Text("baud rate");
        }
    } else if (i_Call.eFunction == E_CAPTURE_FUNCTION::CloseEx) {
        io_Message.strTitle += " link " + std::to_string(i_Call.Word(wire::CaptureCloseHandle));
    }
}

void CWireDecoder::DecodeFrame(const S_CAPTURE_RECORD& i_Call, S_WIRE_MESSAGE& io_Message) const
{
    const std::vector<uint8_t>& l_vFrame = i_Call.vData;
    const uint8_t l_ucCmde =
        l_vFrame.size() > RS_FRAME_CMDE_OFFSET ? l_vFrame[RS_FRAME_CMDE_OFFSET] : 0;
    const bool l_bGenerator =
        l_vFrame.size() > RS_FRAME_CANAL_OFFSET && l_vFrame[RS_FRAME_CANAL_OFFSET] == 3;
    io_Message.strTitle = "send " + CommandInWords(l_ucCmde);
    CFields l_Fields(l_vFrame, m_uMaxBytes, io_Message);
    l_Fields.Crc();
    l_Fields.Head();
    const bool l_bBoard = !IsModule(i_Call);
    if (l_bBoard && l_bGenerator) {
        l_Fields.Number("burst", 1);
    } else if (l_bBoard && l_ucCmde == 208) {
        l_Fields.Number("period", 4);
        const uint32_t l_ulChannels = l_Fields.Number("channels", 4).value_or(0);
        for (uint32_t i = 0; i < l_ulChannels && l_Fields.Left() >= 4; ++i) {
            l_Fields.Number("input of channel " + std::to_string(i), 4);
        }
    } else if (l_bBoard && l_ucCmde == 212) {
        l_Fields.Number("input", 4);
    } else if (l_bBoard && l_ucCmde == 213) {
        l_Fields.Number("input", 4);
        l_Fields.Number("a", 4);
        l_Fields.Signed("b");
    } else if (l_bBoard && l_ucCmde == 0) {
        l_Fields.Number("calibration flag", 1);
    }
    l_Fields.Rest("data");
}

void CWireDecoder::DecodeReturn(const S_CAPTURE_RECORD& i_Call, const S_CAPTURE_RECORD& i_Return,
                                S_WIRE_MESSAGE& io_Message)
{
    const uint32_t l_ulCount = i_Return.Word(wire::CaptureReturnCount);
    const bool l_bSerial = i_Call.eLibrary == E_CAPTURE_LIBRARY::Serial;
    io_Message.strTitle = IsSend(i_Call) ? "sent"
                          : IsFetch(i_Call)
                              ? "answer"
                              : EntryPoint(i_Call) + " returned " +
                                    std::to_string(i_Return.Word(wire::CaptureReturnResult));
    if (i_Return.Word(wire::CaptureReturnResult) == 0) {
        io_Message.strTitle +=
            ": failed, " + SystemErrorInWords(i_Return.Word(wire::CaptureReturnError));
    } else if (IsFetch(i_Call)) {
        io_Message.strTitle += ", " + std::to_string(l_ulCount) + " bytes";
    } else if (i_Call.eFunction == E_CAPTURE_FUNCTION::InitEx) {
        io_Message.strTitle += ", link " + std::to_string(l_ulCount);
    }
    CFields l_Fields(i_Return.vData, m_uMaxBytes, io_Message);
    if (IsSend(i_Call) && l_bSerial) {
        if (const auto l_oulStatus = l_Fields.Number("status", 4)) {
            l_Fields.Explain(*l_oulStatus == 0 ? " accepted" : " refused");
        }
    } else if (IsSend(i_Call)) {
        l_Fields.Number("answer", 4, true);
        l_Fields.Number("bytes to fetch", 4);
    } else if (IsFetch(i_Call) && l_bSerial) {
        DecodeAnswer(i_Return, IsModule(i_Call),
                     i_Call.vData.size() < 2 ? 0 : wire::ReadLe16(i_Call.vData.data()), io_Message);
        return;
    } else if (IsFetch(i_Call)) {
        DecodeProbeReply(i_Return, m_mapProbeCmde[static_cast<int>(i_Call.eLibrary)], io_Message);
        return;
    }
    l_Fields.Rest("out");
}

void CWireDecoder::DecodeAnswer(const S_CAPTURE_RECORD& i_Return, bool i_bModule, uint16_t i_usCmde,
                                S_WIRE_MESSAGE& io_Message) const
{
    CFields l_Fields(i_Return.vData, m_uMaxBytes, io_Message);
    if (l_Fields.Left() == 0) {
        return;
    }
    if (const auto l_oulStatus = l_Fields.Number("link status", 4)) {
        l_Fields.Explain(*l_oulStatus == 0 ? " good" : " bad");
    }
    l_Fields.Crc();
    l_Fields.Head();
    if (const auto l_oulCode = l_Fields.Number("return code", 2)) {
        l_Fields.Explain(*l_oulCode == 1 ? " good" : " bad");
    }
    if (i_bModule && i_usCmde == 0xFF) {
        l_Fields.Text("version");
        return;
    }
    if (i_bModule) {
        if (const auto l_oulStatus = l_Fields.Number("measure status", 1, true)) {
            l_Fields.Explain(MeasureStatus(static_cast<uint8_t>(*l_oulStatus)));
        }
        l_Fields.Rest("further status", 3);
        for (const char* l_pszName : {"value 1", "value 2", "value 3"}) {
            l_Fields.Signed(l_pszName);
        }
    } else {
        if (const auto l_oulError = l_Fields.Number("error code", 4)) {
            l_Fields.Explain(*l_oulError == 0 || *l_oulError == 2006 ? " good" : " bad");
        }
        for (int i = 0; i_usCmde == 208 && i < 13 && l_Fields.Left() >= 8; ++i) {
            l_Fields.Number("a of input " + std::to_string(i), 4);
            l_Fields.Signed("b of input " + std::to_string(i));
        }
        if (i_usCmde == 211 && l_Fields.Left() >= 4) {
            l_Fields.Number("compressed size", 4);
            l_Fields.Rest("samples");
        } else if (i_usCmde == 212 && l_Fields.Left() >= 8) {
            l_Fields.Number("input", 4);
            l_Fields.Number("converter", 4);
        }
    }
    l_Fields.Rest("data");
}

void CWireDecoder::DecodeProbeSend(const S_CAPTURE_RECORD& i_Call, S_WIRE_MESSAGE& io_Message)
{
    const uint8_t l_ucCmde = i_Call.vData.size() > 1 ? i_Call.vData[1] : 0;
    m_mapProbeCmde[static_cast<int>(i_Call.eLibrary)] = l_ucCmde;
    io_Message.strTitle = "send " + CommandInWords(l_ucCmde);
    CFields l_Fields(i_Call.vData, m_uMaxBytes, io_Message);
    l_Fields.Number("zero", 1);
    l_Fields.Number("command", 1);
    l_Fields.Number("param", 1);
    l_Fields.Number("zero", 1);
    l_Fields.Number("time-out", 4);
    const uint32_t l_ulSize = l_Fields.Number("size", 4).value_or(0);
    if (l_ucCmde == 32 || l_ucCmde == 64) {
        l_Fields.Number("measuring parameter", 4);
    }
    l_Fields.Rest(
        "data", l_ulSize - std::min<uint32_t>(l_ulSize, l_ucCmde == 32 || l_ucCmde == 64 ? 4 : 0));
    l_Fields.Rest("without a meaning");
}

void CWireDecoder::DecodeProbeReply(const S_CAPTURE_RECORD& i_Return, uint8_t i_ucCmde,
                                    S_WIRE_MESSAGE& io_Message) const
{
    CFields l_Fields(i_Return.vData, m_uMaxBytes, io_Message);
    if ((i_ucCmde == 33 || i_ucCmde == 22) && l_Fields.Left() >= 4) {
        l_Fields.Number("command", 1);
        const uint32_t l_ulSize = l_Fields.Number("size", 2).value_or(0);
        if (const auto l_oulStatus = l_Fields.Number("status", 1)) {
            l_Fields.Explain(*l_oulStatus == 0                          ? " good"
                             : *l_oulStatus == 44 || *l_oulStatus == 48 ? " error, with samples"
                                                                        : " error");
        }
        l_Fields.Rest(i_ucCmde == 33 ? "samples" : "data", l_ulSize);
    }
    l_Fields.Rest("reply");
}

} // namespace host
