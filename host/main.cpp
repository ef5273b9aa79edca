/**
 * @file main.cpp
 * @brief tornval: the library of a Tornval C63 instrument on the command line.
 */
#include "LiveCommands.h"
#include "Nearest.h"
#include "Program.h"
#include "WireCommands.h"
#include "cecore.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace {

/** No file that is opened later may become a standard one. @return whether standard output was open. */
bool TakeStandardDescriptors()
{
    const bool l_bOutput = fcntl(STDOUT_FILENO, F_GETFD) != -1;
    int l_lFile = 0;
    while (l_lFile >= 0 && l_lFile <= STDERR_FILENO) {
        l_lFile = open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    if (l_lFile >= 0) {
        close(l_lFile);
    }
    return l_bOutput;
}

/** What a misspelt command was probably meant to be; empty if the commands are right. */
std::string MeantCommand(CLI::App& io_App, int i_lArgc, char** i_ppszArgv)
{
    CLI::App* l_pApp = &io_App;
    for (int i = 1; i < i_lArgc && *i_ppszArgv[i] != '-'; ++i) {
        std::vector<std::string> l_vKnown;
        for (const CLI::App* l_pCommand : l_pApp->get_subcommands({})) {
            l_vKnown.push_back(l_pCommand->get_name());
        }
        if (std::find(l_vKnown.begin(), l_vKnown.end(), i_ppszArgv[i]) == l_vKnown.end()) {
            return host::Nearest(i_ppszArgv[i], l_vKnown);
        }
        l_pApp = l_pApp->get_subcommand(i_ppszArgv[i]);
    }
    return {};
}

/** Prints help, version or what is wrong with the command line. @return the exit code. */
int EndParsing(CLI::App& io_App, const CLI::ParseError& i_Error, int i_lArgc, char** i_ppszArgv)
{
    std::ostringstream l_Output;
    std::ostringstream l_Complaint;
    const bool l_bAsked = io_App.exit(i_Error, l_Output, l_Complaint) == 0;
    std::string l_strComplaint = l_Complaint.str();
    const std::string l_strMeant =
        l_bAsked ? std::string() : MeantCommand(io_App, i_lArgc, i_ppszArgv);
    if (!l_strMeant.empty()) {
        l_strComplaint += "Did you mean \"" + l_strMeant + "\"?\n";
    }
    std::fputs(l_strComplaint.c_str(), stderr);
    std::string l_strOutput = l_Output.str();
    const bool l_bJson = std::any_of(i_ppszArgv, i_ppszArgv + i_lArgc, [](const char* i_pszWord) {
        return std::strcmp(i_pszWord, "--json") == 0;
    });
    if (!l_bAsked && l_bJson) {
        l_strOutput = nlohmann::json{{"ok", false},
                                     {"exit_code", static_cast<int>(host::k_lExitUsage)},
                                     {"error", l_strComplaint}}
                          .dump(2, ' ', false, nlohmann::json::error_handler_t::replace) +
                      "\n";
    }
    if (std::fputs(l_strOutput.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        if (errno != EPIPE) {
            std::fprintf(stderr, "tornval: standard output: %s\n", std::strerror(errno));
        }
        return host::k_lExitFile;
    }
    return l_bAsked ? host::k_lExitDone : host::k_lExitUsage;
}

} // namespace

int main(int i_lArgc, char** i_ppszArgv)
{
    // A progress bar that was closed, or a reader of our output that has enough, is no crash.
    std::signal(SIGPIPE, SIG_IGN);
    if (!TakeStandardDescriptors()) {
        std::fputs("tornval: standard output is closed\n", stderr);
        return host::k_lExitFile;
    }

    CLI::App l_App{
        "Measures with a Tornval C63 instrument, real or simulated.\n"
        "The library reads TornvalC63.ini in the folder of this program, or in the "
        "folder named by\n--home or TORNVAL_HOME; its trace log goes to the folder named "
        "by TORNVAL_HD00.\n"
        "A driver is named by IM (board), MO (milliohm module), BT or USB (probes), or "
        "by its number.\n"
        "An input is a measuring input of the board, 0 to 12; a channel is a column of "
        "an acquisition,\n0 to 2, 0 or 1 on a probe.",
        "tornval"};
    l_App.require_subcommand(1);
    l_App.set_version_flag("-V,--version",
                           std::string("tornval " TORNVAL_VERSION ", library ") + CeGetVersion());
    l_App.footer(host::ExitCodesHelp());

    host::CProgram l_Program;
    host::AddDriversCommand(l_App, l_Program);
    host::AddLinkCommands(l_App, l_Program);
    host::AddMeasureCommand(l_App, l_Program);
    host::AddMicroOhmCommand(l_App, l_Program);
    host::AddGeneratorCommand(l_App, l_Program);
    host::AddUploadCommand(l_App, l_Program);
    host::AddCalibrationCommands(l_App, l_Program);
    host::AddSendCommand(l_App, l_Program);
    host::AddProbeCommands(l_App, l_Program);
    host::AddCheckCommand(l_App, l_Program);
    host::AddPathsCommand(l_App, l_Program);
    host::AddCaptureCommands(l_App, l_Program);
    host::AddWireCommand(l_App, l_Program);
#ifdef TORNVAL_LIVE
    host::AddMonitorCommand(l_App, l_Program);
    host::AddServeCommand(l_App, l_Program);
#endif

    try {
        l_App.parse(i_lArgc, i_ppszArgv);
    } catch (const CLI::ParseError& l_Error) {
        return EndParsing(l_App, l_Error, i_lArgc, i_ppszArgv);
    }
    return l_Program.Run();
}
