#include "Program.h"

#include "CsvFile.h"
#include "Stop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace {

constexpr std::array k_apszLinkTypes = {"IM", "MO", "BT", "USB"};

constexpr const char* k_pszExitCodes =
    "Exit codes:\n"
    "  0  done\n"
    "  1  the command line is wrong\n"
    "  2  a driver that is needed is not loaded\n"
    "  3  the device, its link or its answer failed\n"
    "  4  no answer came in time\n"
    "  5  a file, the plot or standard output could not be written; check: something is wrong\n"
    "  128 + N  ended by signal N; files are whole and acquisitions stopped\n";

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

CCommand CProgram::AddCommand(CCommand i_Parent, const std::string& i_strName,
                              const std::string& i_strDescription, std::function<void()> i_fnRun)
{
    const CCommand l_Command = i_Parent.Add(i_strName, i_strDescription);
    l_Command.Footer(ExitCodesHelp());
    l_Command.Flag("--json", m_Options.bJson,
                   "print one JSON document on standard output and nothing else");
    l_Command
        .Option("--home", m_Options.strHome, "folder of the configuration, instead of TORNVAL_HOME")
        .Folder();
    l_Command.Flag("--progress", m_Options.bProgress,
                   "show progress although standard error is no terminal");
    l_Command
        .Option("--mask", m_Options.lMask,
                "drivers to load: 0x01 milliohm module, 0x10 internal board; probes join by "
                "the configuration")
        .ShowDefault("0x11");
    l_Command.OnChosen([this, l_fnRun = std::move(i_fnRun)] { m_fnRun = l_fnRun; });
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

void CProgram::Fail(const S_FAILURE& i_Failure)
{
    m_lExitCode = i_Failure.lExitCode;
    if (m_lExitCode == k_lExitNoDriver || m_lExitCode == k_lExitDevice ||
        m_lExitCode == k_lExitTimeOut) {
        TellReasons(m_lExitCode == k_lExitNoDriver ? Reasons() : ReasonsSinceLoad());
    }
    if (i_Failure.Record) {
        m_Document["record"] = ToJson(*i_Failure.Record);
    }
    if (!i_Failure.strMessage.empty()) {
        m_Document["error"] = i_Failure.strMessage;
        Note(i_Failure.strMessage);
    }
}

int CProgram::RunCommand()
{
    const auto l_FailOnFile = [&](const S_FILE_ERROR& i_Error) {
        Fail({k_lExitFile, i_Error.lError == EPIPE ? "" : i_Error.strMessage});
    };
    try {
        if (!m_Options.strHome.empty()) {
            setenv("TORNVAL_HOME", m_Options.strHome.c_str(), 1);
        }
        CatchStopSignals();
        if (m_Options.bJson) {
            TakeStandardOutput();
        }
        m_fnRun();
    } catch (const S_FAILURE& l_Failure) {
        Fail(l_Failure);
    } catch (const S_STOPPED&) {
        Fail(StoppedBySignal("the call that was running is left"));
    } catch (const S_FILE_ERROR& l_Error) {
        l_FailOnFile(l_Error);
    } catch (const std::exception& l_Error) {
        Fail({k_lExitDevice, std::string("unexpected: ") + l_Error.what()});
    }
    return m_lExitCode;
}

int CProgram::Run()
{
    RunCommand();
    if (m_JsonOutput != nullptr) {
        m_Document["ok"] = m_lExitCode == k_lExitDone;
        m_Document["exit_code"] = m_lExitCode;
        Deliver(m_Document, m_bStreamed ? -1 : 2);
        if (std::fclose(m_JsonOutput.release()) != 0 && m_lExitCode == k_lExitDone) {
            Note(std::string("standard output: ") + std::strerror(errno));
            m_lExitCode = k_lExitFile;
        }
    }
    if (IsCallLeft()) {
        // The library would wait for the call at its end.
        std::fflush(nullptr);
        _exit(m_lExitCode);
    }
    return m_lExitCode;
}

void CProgram::Stream(const nlohmann::json& i_Object)
{
    if (m_JsonOutput == nullptr) {
        return;
    }
    m_bStreamed = true;
    Deliver(i_Object, -1);
    if (std::fflush(m_JsonOutput.get()) != 0) {
        throw S_FAILURE{k_lExitFile, errno == EPIPE
                                         ? ""
                                         : std::string("standard output: ") + std::strerror(errno)};
    }
}

int CProgram::TakeOutputForTable()
{
    if (m_Options.bJson) {
        throw S_FAILURE{k_lExitUsage, "--json and a table cannot share standard output"};
    }
    m_TableOutput = wire::CDescriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    if (!m_TableOutput || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw S_FAILURE{k_lExitFile, std::string("standard output: ") + std::strerror(errno)};
    }
    return m_TableOutput.Get();
}

void CProgram::Print(const std::string& i_strText)
{
    if (m_Options.bJson) {
        return;
    }
    if (std::fwrite(i_strText.data(), 1, i_strText.size(), stdout) != i_strText.size() ||
        std::fflush(stdout) != 0) {
        throw S_FAILURE{k_lExitFile, errno == EPIPE
                                         ? ""
                                         : std::string("standard output: ") + std::strerror(errno)};
    }
}

void CProgram::Deliver(const nlohmann::json& i_Object, int i_lIndent)
{
    // Names come from a configuration file and may be no valid text.
    const std::string l_strText =
        i_Object.dump(i_lIndent, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    std::fwrite(l_strText.data(), 1, l_strText.size(), m_JsonOutput.get());
}

void CProgram::TellReasons(const std::vector<CECORE_REASON>& i_vReasons)
{
    if (i_vReasons.empty() && m_Document.contains("reasons")) {
        return;
    }
    m_Document["reasons"] = ReasonDocument(i_vReasons);
    std::fputs(ReasonLines(i_vReasons).c_str(), stderr);
}

void CProgram::Note(const std::string& i_strText)
{
    std::fprintf(stderr, "tornval: %s\n", i_strText.c_str());
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

std::string NotADriver(const std::string& i_strName)
{
    const bool l_bWord =
        std::any_of(k_apszLinkTypes.begin(), k_apszLinkTypes.end(), [&](const char* i_pszWord) {
            return strcasecmp(i_pszWord, i_strName.c_str()) == 0;
        });
    const bool l_bNumber =
        !i_strName.empty() && i_strName.find_first_not_of("0123456789") == std::string::npos;
    return l_bWord || l_bNumber ? "" : i_strName + " is none of IM, MO, BT, USB and no number";
}

S_FAILURE StoppedBySignal(const std::string& i_strWhatStands)
{
    return {128 + StopSignal(),
            std::string("stopped by signal (") + strsignal(StopSignal()) + "); " + i_strWhatStands};
}

void ThrowIfStopped(const std::string& i_strWhatStands)
{
    if (StopSignal() != 0) {
        throw StoppedBySignal(i_strWhatStands);
    }
}

} // namespace host
