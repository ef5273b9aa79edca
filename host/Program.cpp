#include "Program.h"

#include "Progress.h"
#include "Samples.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace {

/** Largest answer that is believed, in bytes. */
constexpr uint32_t k_ulMaxAnswer = 16U * 1024 * 1024;

constexpr const char* k_pszExitCodes =
    "Exit codes:\n"
    "  0  done\n"
    "  1  the command line is wrong\n"
    "  2  a driver that is needed is not loaded\n"
    "  3  the device, its link or its answer failed\n"
    "  4  no answer came in time\n"
    "  5  a file, the plot or standard output could not be written\n"
    "  128 + N  ended by signal N; files are whole and acquisitions stopped\n";

std::string FieldText(const char* i_pszField, size_t i_uSize)
{
    return {i_pszField, strnlen(i_pszField, i_uSize)};
}

std::vector<S_DRIVER> ListDrivers()
{
    std::vector<S_DRIVER_INFO> l_vInfos(8);
    uint32_t l_ulNbDrivers = 0;
    while (EnumMeasDrivers(l_vInfos.data(), static_cast<uint32_t>(l_vInfos.size()),
                           &l_ulNbDrivers) == 1 &&
           l_ulNbDrivers == l_vInfos.size() && l_vInfos.size() < 4096) {
        l_vInfos.resize(l_vInfos.size() * 2);
    }
    l_vInfos.resize(std::min<size_t>(l_ulNbDrivers, l_vInfos.size()));
    std::vector<S_DRIVER> l_vDrivers;
    l_vDrivers.reserve(l_vInfos.size());
    for (const S_DRIVER_INFO& l_Info : l_vInfos) {
        l_vDrivers.push_back({l_Info.ulDriverID,
                              FieldText(l_Info.szLinkType, sizeof l_Info.szLinkType),
                              FieldText(l_Info.szDriverName, sizeof l_Info.szDriverName)});
    }
    return l_vDrivers;
}

} // namespace

const char* ExitCodesHelp()
{
    return k_pszExitCodes;
}

S_FAILURE FailureOf(const S_RESULT& i_Result, const S_CALL& i_Call)
{
    const int l_lExitCode = IsTimeOut(i_Result, i_Call) ? k_lExitTimeOut : k_lExitDevice;
    return {l_lExitCode, ExplainRecord(i_Result, i_Call), i_Result};
}

CLI::App& CProgram::AddCommand(CLI::App& io_App, const std::string& i_strName,
                               const std::string& i_strDescription, std::function<void()> i_fnRun)
{
    CLI::App& l_Command = *io_App.add_subcommand(i_strName, i_strDescription);
    l_Command.footer(ExitCodesHelp());
    l_Command.add_flag("--json", m_Options.bJson,
                       "print one JSON document on standard output and nothing else");
    l_Command.add_flag("--progress", m_Options.bProgress,
                       "show progress although standard error is no terminal");
    l_Command
        .add_option("--mask", m_Options.lMask,
                    "drivers to load: 0x01 milliohm module, 0x10 internal board; probes join by "
                    "the configuration")
        ->default_str("0x11");
    l_Command.callback([this, l_fnRun = std::move(i_fnRun)] { m_fnRun = l_fnRun; });
    return l_Command;
}

void CProgram::TakeStandardOutput()
{
    // The trace may be configured to go to standard output, and a link library may print there.
    const int l_lOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    m_JsonOutput.reset(l_lOutput < 0 ? nullptr : fdopen(l_lOutput, "w"));
    if (m_JsonOutput == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw S_FAILURE{k_lExitFile, std::string("standard output: ") + std::strerror(errno)};
    }
}

int CProgram::Run()
{
    int l_lExitCode = k_lExitDone;
    const auto l_Fail = [&](const S_FAILURE& i_Failure) {
        l_lExitCode = i_Failure.lExitCode;
        Note(i_Failure.strMessage);
        m_Document["error"] = i_Failure.strMessage;
        if (i_Failure.Record) {
            m_Document["record"] = ToJson(*i_Failure.Record);
        }
        if (i_Failure.lExitCode == k_lExitNoDriver) {
            TellReasons(Reasons());
        }
    };
    try {
        if (m_Options.bJson) {
            TakeStandardOutput();
        }
        m_fnRun();
    } catch (const S_FAILURE& l_Failure) {
        l_Fail(l_Failure);
    } catch (const S_FILE_ERROR& l_Error) {
        l_Fail({k_lExitFile, l_Error.strMessage});
    } catch (const std::exception& l_Error) {
        l_Fail({k_lExitDevice, std::string("unexpected: ") + l_Error.what()});
    }
    if (m_JsonOutput != nullptr) {
        m_Document["ok"] = l_lExitCode == k_lExitDone;
        m_Document["exit_code"] = l_lExitCode;
        // Names come from a configuration file and may be no valid text.
        Deliver(m_Document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
        if (std::fclose(m_JsonOutput.release()) != 0 && l_lExitCode == k_lExitDone) {
            Note(std::string("standard output: ") + std::strerror(errno));
            l_lExitCode = k_lExitFile;
        }
    }
    return l_lExitCode;
}

void CProgram::Print(const std::string& i_strText)
{
    if (m_Options.bJson) {
        return;
    }
    if (std::fwrite(i_strText.data(), 1, i_strText.size(), stdout) != i_strText.size() ||
        std::fflush(stdout) != 0) {
        throw S_FAILURE{k_lExitFile, std::string("standard output: ") + std::strerror(errno)};
    }
}

void CProgram::Deliver(const std::string& i_strText)
{
    std::fwrite(i_strText.data(), 1, i_strText.size(), m_JsonOutput.get());
}

void CProgram::TellReasons(const std::vector<CECORE_REASON>& i_vReasons)
{
    m_Document["reasons"] = ReasonDocument(i_vReasons);
    std::fputs(ReasonLines(i_vReasons).c_str(), stderr);
}

void CProgram::Note(const std::string& i_strText)
{
    std::fprintf(stderr, "tornval: %s\n", i_strText.c_str());
}

CSession::CSession(const S_OPTIONS& i_Options) : m_Options(i_Options)
{
    m_LoadResult = LoadMeasDrivers(m_Options.lMask);
    m_vDrivers = ListDrivers();
}

const S_DRIVER& CSession::ByLinkType(const std::string& i_strLinkType) const
{
    for (const S_DRIVER& l_Driver : m_vDrivers) {
        if (l_Driver.strLinkType == i_strLinkType) {
            return l_Driver;
        }
    }
    throw S_FAILURE{k_lExitNoDriver,
                    "the " + LinkTypeInWords(i_strLinkType) + " is not loaded" +
                        (m_LoadResult.ulStatus == 0 ? ": the mask does not ask for it" : ""),
                    m_LoadResult};
}

const S_DRIVER& CSession::ByID(uint32_t i_ulID) const
{
    std::string l_strLoaded;
    for (const S_DRIVER& l_Driver : m_vDrivers) {
        if (l_Driver.ulID == i_ulID) {
            return l_Driver;
        }
        l_strLoaded += (l_strLoaded.empty() ? "" : ", ") + std::to_string(l_Driver.ulID) + " " +
                       l_Driver.strLinkType;
    }
    throw S_FAILURE{k_lExitNoDriver,
                    "no driver has the ID " + std::to_string(i_ulID) +
                        "; loaded: " + (l_strLoaded.empty() ? "none" : l_strLoaded)};
}

const S_DRIVER& CSession::ProbeByID(uint32_t i_ulID) const
{
    const S_DRIVER& l_Driver = ByID(i_ulID);
    if (!l_Driver.IsProbe()) {
        throw S_FAILURE{k_lExitNoDriver, "the driver with the ID " + std::to_string(i_ulID) +
                                             " is no probe but the " +
                                             LinkTypeInWords(l_Driver.strLinkType)};
    }
    return l_Driver;
}

std::vector<S_DRIVER> CSession::Select(const std::optional<uint32_t>& i_ID) const
{
    return i_ID ? std::vector<S_DRIVER>{ByID(*i_ID)} : m_vDrivers;
}

CExchange::CExchange() : m_vWords(k_uBoardChannels + k_uBoardChannels * k_uMaxSamples) {}

S_RESULT CExchange::Run(const S_DRIVER& i_Driver, uint8_t i_ucCommand, uint8_t i_ucParam,
                        const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout)
{
    m_Call = {i_ucCommand, 0};
    m_lSize = 0;
    std::fill(m_vWords.begin(), m_vWords.end(), 0);
    S_SEND_STRUCT l_Send{};
    l_Send.CmdeID = i_ucCommand;
    l_Send.ucCmdeParam = i_ucParam;
    l_Send.ulTimeout = i_ulTimeout;
    // Board and module count the four bytes of their frame's own head as well.
    l_Send.ulSize = static_cast<uint32_t>(i_vPayload.size()) + (i_Driver.IsProbe() ? 0U : 4U);
    S_RECEIVE_STRUCT l_Receive{};
    const S_RESULT l_Sent = SendMeasBoardCmd(i_Driver.ulID, &l_Send, &l_Receive,
                                             i_vPayload.empty() ? nullptr : i_vPayload.data());
    if (l_Sent.ulStatus != 0) {
        m_vRaw.clear();
        return l_Sent;
    }
    if (l_Receive.ulNbReturnByte > k_ulMaxAnswer) {
        throw S_FAILURE{k_lExitDevice,
                        "the answer to " + CommandInWords(i_ucCommand) + " is announced with " +
                            std::to_string(l_Receive.ulNbReturnByte) + " bytes, which is refused"};
    }
    // The library wants a buffer even where nothing comes back.
    m_vRaw.assign(std::max<size_t>(l_Receive.ulNbReturnByte, 1), 0);
    if (m_vWords.size() < m_vRaw.size() + k_uProbeChannels) {
        m_vWords.resize(m_vRaw.size() + k_uProbeChannels);
    }
    const CElapsed l_Elapsed;
    const S_RESULT l_Result =
        GetMeasBoardResult(i_Driver.ulID, l_Receive.ulNbReturnByte, m_vRaw.data(), &m_lSize,
                           m_vWords.data(), i_ulTimeout);
    m_Call.ulElapsedMs = l_Elapsed.Ms();
    m_vRaw.resize(l_Receive.ulNbReturnByte);
    return l_Result;
}

void CExchange::RunOrThrow(const S_DRIVER& i_Driver, uint8_t i_ucCommand,
                           const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout)
{
    const S_RESULT l_Result = Run(i_Driver, i_ucCommand, 0, i_vPayload, i_ulTimeout);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, m_Call);
    }
}

uint32_t CElapsed::Ms() const
{
    const auto l_Time = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - m_Start);
    return static_cast<uint32_t>(std::clamp<int64_t>(l_Time.count(), 1, INT32_MAX));
}

nlohmann::json ToJson(const S_RESULT& i_Result, const S_CALL& i_Call)
{
    return {{"driver_type", i_Result.ulDriverType}, {"step", i_Result.ulStep},
            {"last_error", i_Result.ulLastError},   {"fw_status", i_Result.ulFwStatus},
            {"status", i_Result.ulStatus},          {"words", ExplainRecord(i_Result, i_Call)}};
}

std::string NumberText(double i_dNumber)
{
    std::array<char, 400> l_szText{};
    const auto l_Written = std::to_chars(l_szText.data(), l_szText.data() + l_szText.size(),
                                         i_dNumber, std::chars_format::fixed);
    return {l_szText.data(), l_Written.ptr};
}

void ThrowIfStopped(const std::string& i_strWhatStands)
{
    if (StopSignal() != 0) {
        throw S_FAILURE{128 + StopSignal(), std::string("stopped by signal (") +
                                                strsignal(StopSignal()) + "); " + i_strWhatStands};
    }
}

} // namespace host
