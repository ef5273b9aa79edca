#include "Explain.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace text {

namespace {

/** Milliseconds that board and milliohm module wait for an answer at the least. */
constexpr uint32_t k_ulAnswerWaitMs = 5000;

struct S_WORDS
{
    uint32_t ulNumber;
    const char* pszWords;
};

constexpr std::array k_aSteps = {
    S_WORDS{TORNVAL_STEP_NONE, "the operation itself"},
    S_WORDS{TORNVAL_STEP_LIBRARY, "load of a link library"},
    S_WORDS{TORNVAL_STEP_SEND, "send of a command"},
    S_WORDS{TORNVAL_STEP_INIT, "initialisation"},
    S_WORDS{TORNVAL_STEP_CLOSE, "close of the link"},
    S_WORDS{TORNVAL_STEP_RESULT, "fetch of a result"},
    S_WORDS{TORNVAL_STEP_LOAD, "loading of the drivers"},
    S_WORDS{TORNVAL_STEP_REFUSED, "acceptance of the command by the device"},
};

constexpr std::array k_aDriverTypes = {
    S_WORDS{TORNVAL_DRIVER_NONE, "no driver"},
    S_WORDS{TORNVAL_DRIVER_BT_PROBE, "Bluetooth probe"},
    S_WORDS{TORNVAL_DRIVER_USB_PROBE, "USB probe"},
    S_WORDS{TORNVAL_DRIVER_BOARD, "internal measurement board"},
    S_WORDS{TORNVAL_DRIVER_MILLIOHM, "milliohm module"},
};

// The numbers that the core services, a link library or a Windows CE device can leave behind.
constexpr std::array k_aSystemErrors = {
    S_WORDS{0, "no error was recorded"},
    S_WORDS{1, "function not supported"},
    S_WORDS{2, "file not found"},
    S_WORDS{3, "path not found"},
    S_WORDS{4, "too many open files"},
    S_WORDS{5, "access denied"},
    S_WORDS{6, "invalid handle: the link is not open, or no longer"},
    S_WORDS{8, "not enough memory"},
    S_WORDS{11, "not a loadable library"},
    S_WORDS{13, "invalid data"},
    S_WORDS{14, "out of memory"},
    S_WORDS{19, "the medium is write-protected"},
    S_WORDS{20, "no such unit"},
    S_WORDS{21, "device not ready"},
    S_WORDS{22, "the device does not know the command"},
    S_WORDS{23, "data error: the checksum does not match"},
    S_WORDS{24, "wrong length"},
    S_WORDS{29, "write fault"},
    S_WORDS{30, "read fault"},
    S_WORDS{31, "the device does not work properly"},
    S_WORDS{32, "in use by another program"},
    S_WORDS{50, "request not supported"},
    S_WORDS{55, "the device is no longer there"},
    S_WORDS{87, "invalid parameter"},
    S_WORDS{109, "the other end has closed"},
    S_WORDS{110, "the device or file cannot be opened"},
    S_WORDS{112, "disk full"},
    S_WORDS{120, "call not implemented"},
    S_WORDS{121, "the semaphore's time has run out"},
    S_WORDS{122, "buffer too small"},
    S_WORDS{123, "invalid file name"},
    S_WORDS{126, "library not found"},
    S_WORDS{127, "entry point not found"},
    S_WORDS{161, "bad path name"},
    S_WORDS{170, "busy: in use by another program, or an earlier command is still under way"},
    S_WORDS{183, "it exists already"},
    S_WORDS{193, "not a loadable library of this machine's kind"},
    S_WORDS{206, "name too long"},
    S_WORDS{234, "more data than room"},
    S_WORDS{258, "the wait has run out"},
    S_WORDS{259, "no more data"},
    S_WORDS{267, "invalid folder name"},
    S_WORDS{288, "the mutex belongs to another thread"},
    S_WORDS{487, "invalid address"},
    S_WORDS{995, "the operation was cut short"},
    S_WORDS{996, "the operation is not complete yet"},
    S_WORDS{997, "the operation is under way"},
    S_WORDS{998, "invalid access to memory"},
    S_WORDS{1114, "the library's own start has failed"},
    S_WORDS{1117, "input or output failed"},
    S_WORDS{1121, "the line's time has run out"},
    S_WORDS{1167, "the device is not connected"},
    S_WORDS{1223, "cancelled"},
    S_WORDS{1247, "it is initialised already"},
    S_WORDS{1359, "internal error"},
    S_WORDS{1450, "not enough system resources"},
    S_WORDS{1460, "time-out"},
};

constexpr std::array k_aCommands = {
    S_WORDS{0, "calibration flag or burst"},
    S_WORDS{1, "read of both probe channels"},
    S_WORDS{32, "start of a rolling acquisition on channel 0"},
    S_WORDS{33, "read of probe channel 0"},
    S_WORDS{34, "stop of a rolling acquisition"},
    S_WORDS{64, "start of a rolling acquisition on channel 1"},
    S_WORDS{161, "milliohm measure"},
    S_WORDS{208, "initialisation and coefficients"},
    S_WORDS{209, "start of an acquisition"},
    S_WORDS{210, "reset of the acquisition"},
    S_WORDS{211, "upload of an acquisition"},
    S_WORDS{212, "instant measure"},
    S_WORDS{213, "write of a calibration pair"},
    S_WORDS{214, "end of the calibration"},
    S_WORDS{215, "begin of the calibration"},
    S_WORDS{255, "version"},
};

template <size_t N>
const char* Find(const std::array<S_WORDS, N>& i_aTable, uint32_t i_ulNumber)
{
    const auto l_It = std::find_if(i_aTable.begin(), i_aTable.end(), [&](const S_WORDS& i_Words) {
        return i_Words.ulNumber == i_ulNumber;
    });
    return l_It == i_aTable.end() ? nullptr : l_It->pszWords;
}

std::string Number(uint32_t i_ulNumber)
{
    std::array<char, 40> l_szText{};
    std::snprintf(l_szText.data(), l_szText.size(), "%lu (0x%lX)",
                  static_cast<unsigned long>(i_ulNumber), static_cast<unsigned long>(i_ulNumber));
    return l_szText.data();
}

std::string HexByte(uint32_t i_ulByte)
{
    std::array<char, 8> l_szText{};
    std::snprintf(l_szText.data(), l_szText.size(), "0x%02X", i_ulByte & 0xFFU);
    return l_szText.data();
}

bool IsProbe(const S_RESULT& i_Result)
{
    return i_Result.ulDriverType == TORNVAL_DRIVER_BT_PROBE ||
           i_Result.ulDriverType == TORNVAL_DRIVER_USB_PROBE;
}

bool IsBoardOrModule(const S_RESULT& i_Result)
{
    return i_Result.ulDriverType == TORNVAL_DRIVER_BOARD ||
           i_Result.ulDriverType == TORNVAL_DRIVER_MILLIOHM;
}

/** A status byte whose sign was extended to the whole word. */
bool IsSignExtendedByte(uint32_t i_ulWord)
{
    return i_ulWord >= 0xFFFFFF80U;
}

/** A fetch, where the link answered and the word is the device's own. */
std::string FetchStatusInWords(const S_RESULT& i_Result)
{
    const uint32_t l_ulStatus = i_Result.ulFwStatus;
    if (IsProbe(i_Result)) {
        if (IsSignExtendedByte(l_ulStatus)) {
            return "the probe reported status " + HexByte(l_ulStatus);
        }
        std::string l_strText = "the probe reported status " + Number(l_ulStatus);
        if (l_ulStatus == 44 || l_ulStatus == 48) {
            l_strText += ", which still carries samples";
        }
        return l_strText;
    }
    if (IsBoardOrModule(i_Result) && l_ulStatus == 2 && i_Result.ulLastError != 0) {
        return "the link library's fetch call failed";
    }
    if (IsBoardOrModule(i_Result) && l_ulStatus == 2) {
        return "the link library's fetch call failed and left no reason, or the firmware reported "
               "code 2";
    }
    if (IsBoardOrModule(i_Result) && l_ulStatus == 5) {
        return "the status field of the answer is not 0: the link delivered no good answer";
    }
    if (i_Result.ulDriverType == TORNVAL_DRIVER_MILLIOHM) {
        return "the module refused the measure with status byte " + HexByte(l_ulStatus);
    }
    return "the firmware reported error or return code " + Number(l_ulStatus);
}

/** Whether the routing itself, or the default of an operation, filled the record. */
bool IsNoDriver(const S_RESULT& i_Result)
{
    return i_Result.ulStatus != 0 && i_Result.ulDriverType == TORNVAL_DRIVER_NONE &&
           i_Result.ulStep != TORNVAL_STEP_LOAD && i_Result.ulStep != TORNVAL_STEP_LIBRARY;
}

/** Causes of a failed send that left neither a system error nor a device word. */
std::string SilentSendCause(const S_RESULT& i_Result)
{
    switch (i_Result.ulDriverType) {
    case TORNVAL_DRIVER_BOARD:
        return "the driver does not accept this command, or its size does not fit (a board on a "
               "serial link knows 208 to 215, a simulated one 3, 209 to 214)";
    case TORNVAL_DRIVER_MILLIOHM:
        return "the driver does not accept this command, or its size does not fit (a module knows "
               "161 and 255)";
    case TORNVAL_DRIVER_BT_PROBE:
    case TORNVAL_DRIVER_USB_PROBE:
        return "the driver does not accept this command (a probe knows 1, 16 to 23, 32 to 34 and "
               "64, a simulated one less), its link library is missing, or the probe's "
               "acknowledgement was too short";
    default:
        return "no driver with this ID is loaded";
    }
}

/** Causes of a failed fetch that left neither a system error nor a device word. */
std::string SilentFetchCause(const S_RESULT& i_Result, const S_TEXT_CALL& i_Call)
{
    if (IsTimeOut(i_Result, i_Call)) {
        std::array<char, 80> l_szText{};
        std::snprintf(l_szText.data(), l_szText.size(), "no answer came within %.1f s (time-out)",
                      i_Call.ulElapsedMs / 1000.0);
        return l_szText.data();
    }
    const std::string l_strUpload =
        i_Call.lCommand == 211
            ? ", or the key DECOMPRESS_DATA of section IM is 0, so that samples stay raw"
            : "";
    switch (i_Result.ulDriverType) {
    case TORNVAL_DRIVER_BOARD:
    case TORNVAL_DRIVER_MILLIOHM:
        return (i_Call.ulElapsedMs == 0 ? "no answer came in time, or the answer does not decode"
                                        : "the answer does not decode") +
               std::string(": too short, a size or voie out of range, a firmware status that is "
                           "not good, or a command without an answer") +
               l_strUpload;
    case TORNVAL_DRIVER_BT_PROBE:
    case TORNVAL_DRIVER_USB_PROBE:
        return "the reply does not decode (too short, a size beyond the reply, no sample for the "
               "channel), the last command was not accepted, or the link library is missing";
    default:
        return "no driver with this ID is loaded";
    }
}

std::string SilentCause(const S_RESULT& i_Result, const S_TEXT_CALL& i_Call)
{
    const bool l_bNoDriver = IsNoDriver(i_Result);
    switch (i_Result.ulStep) {
    case TORNVAL_STEP_NONE:
        return l_bNoDriver ? "no driver for it is loaded, or the driver does not support the "
                             "operation or its arguments"
                           : "an argument was refused or memory is missing";
    case TORNVAL_STEP_LIBRARY:
        return "no library was named";
    case TORNVAL_STEP_SEND:
        return SilentSendCause(i_Result);
    case TORNVAL_STEP_INIT:
        return l_bNoDriver ? "no driver with this ID is loaded"
                           : "the link did not open, or its library is missing";
    case TORNVAL_STEP_CLOSE:
        return l_bNoDriver ? "no driver with this ID is loaded"
                           : "the link library did not close the link, or it is missing";
    case TORNVAL_STEP_RESULT:
        return SilentFetchCause(i_Result, i_Call);
    case TORNVAL_STEP_LOAD:
        return "a driver did not come up";
    default:
        return "no cause was recorded";
    }
}

} // namespace

std::string StepInWords(uint32_t i_ulStep)
{
    const char* l_pszWords = Find(k_aSteps, i_ulStep);
    return l_pszWords != nullptr ? l_pszWords : "stage " + Number(i_ulStep) + ", unknown here,";
}

std::string DriverTypeInWords(uint32_t i_ulDriverType)
{
    const char* l_pszWords = Find(k_aDriverTypes, i_ulDriverType);
    return l_pszWords != nullptr ? l_pszWords : "driver of unknown kind " + Number(i_ulDriverType);
}

std::string LinkTypeInWords(const std::string& i_strLinkType)
{
    if (i_strLinkType == "IM") {
        return DriverTypeInWords(TORNVAL_DRIVER_BOARD);
    }
    if (i_strLinkType == "MO") {
        return DriverTypeInWords(TORNVAL_DRIVER_MILLIOHM);
    }
    if (i_strLinkType == "BT") {
        return DriverTypeInWords(TORNVAL_DRIVER_BT_PROBE);
    }
    if (i_strLinkType == "USB") {
        return DriverTypeInWords(TORNVAL_DRIVER_USB_PROBE);
    }
    return i_strLinkType;
}

std::string SystemErrorInWords(uint32_t i_ulError)
{
    const char* l_pszWords = Find(k_aSystemErrors, i_ulError);
    return "system error " + Number(i_ulError) + ": " +
           (l_pszWords != nullptr ? l_pszWords : "not known here");
}

std::string CommandInWords(int32_t i_lCommand)
{
    if (i_lCommand < 0) {
        return "command";
    }
    const auto l_ulCommand = static_cast<uint32_t>(i_lCommand);
    const char* l_pszWords = Find(k_aCommands, l_ulCommand);
    const std::string l_strNumber =
        "command " + std::to_string(l_ulCommand) + " (" + HexByte(l_ulCommand);
    return l_strNumber + (l_pszWords != nullptr ? std::string(", ") + l_pszWords : "") + ")";
}

std::string FirmwareStatusInWords(const S_RESULT& i_Result)
{
    if (i_Result.ulFwStatus == 0) {
        return {};
    }
    switch (i_Result.ulStep) {
    case TORNVAL_STEP_REFUSED:
        return "the device refused the command with status word " + Number(i_Result.ulFwStatus);
    case TORNVAL_STEP_RESULT:
        return FetchStatusInWords(i_Result);
    case TORNVAL_STEP_INIT:
        return "the link did not open (status " + Number(i_Result.ulFwStatus) + ")";
    default:
        return "the device reported status " + Number(i_Result.ulFwStatus);
    }
}

bool IsTimeOut(const S_RESULT& i_Result, const S_TEXT_CALL& i_Call)
{
    if (i_Result.ulStatus == 0) {
        return false;
    }
    if (i_Result.ulLastError == 1460 || i_Result.ulLastError == 1121 ||
        i_Result.ulLastError == 258 || i_Result.ulLastError == 121) {
        return true;
    }
    return IsBoardOrModule(i_Result) && i_Result.ulStep == TORNVAL_STEP_RESULT &&
           i_Result.ulFwStatus == 0 && i_Result.ulLastError == 0 &&
           i_Call.ulElapsedMs >= k_ulAnswerWaitMs;
}

std::string ExplainRecord(const S_RESULT& i_Result, const S_TEXT_CALL& i_Call)
{
    std::string l_strCause = FirmwareStatusInWords(i_Result);
    if (i_Result.ulLastError != 0) {
        l_strCause += (l_strCause.empty() ? "" : "; ") + SystemErrorInWords(i_Result.ulLastError);
    }
    if (i_Result.ulStatus == 0) {
        return "success" + (l_strCause.empty() ? "" : ", although " + l_strCause);
    }
    if (l_strCause.empty()) {
        l_strCause = SilentCause(i_Result, i_Call);
    }
    std::string l_strText = StepInWords(i_Result.ulStep) + " failed";
    if (i_Result.ulDriverType != TORNVAL_DRIVER_NONE) {
        l_strText += " on the " + DriverTypeInWords(i_Result.ulDriverType);
    }
    if (i_Call.lCommand >= 0) {
        l_strText += ", " + CommandInWords(i_Call.lCommand);
    }
    l_strText += ": " + l_strCause;
    if (i_Result.ulStatus != 1) {
        l_strText += " (status " + Number(i_Result.ulStatus) + ", which is neither 0 nor 1)";
    }
    return l_strText;
}

} // namespace text
