/**
 * @file main.cpp
 * @brief tornval: the library of a Tornval C63 instrument on the command line.
 */
#include "LiveCommands.h"
#include "Program.h"
#include "WireCommands.h"
#include "cecore.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

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

/** Prints help, version or what is wrong with the command line. @return the exit code. */
int EndReading(host::S_COMMAND_LINE_END i_End, int i_lArgc, char** i_ppszArgv)
{
    std::fputs(i_End.strComplaint.c_str(), stderr);
    const bool l_bJson = std::any_of(i_ppszArgv, i_ppszArgv + i_lArgc, [](const char* i_pszWord) {
        return std::strcmp(i_pszWord, "--json") == 0;
    });
    if (!i_End.bAsked && l_bJson) {
        i_End.strOutput =
            nlohmann::json{{"ok", false},
                           {"exit_code", static_cast<int>(host::k_lExitUsage)},
                           {"error", i_End.strComplaint.substr(0, i_End.strComplaint.find('\n'))}}
                .dump(2, ' ', false, nlohmann::json::error_handler_t::replace) +
            "\n";
    }
    if (std::fputs(i_End.strOutput.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        if (errno != EPIPE) {
            std::fprintf(stderr, "tornval: standard output: %s\n", std::strerror(errno));
        }
        return host::k_lExitFile;
    }
    return i_End.bAsked ? host::k_lExitDone : host::k_lExitUsage;
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

    host::CCommandLine l_CommandLine(
        "tornval",
        "Measures with a Tornval C63 instrument, real or simulated.\n"
        "The library reads TornvalC63.ini in the folder of this program, or in the "
        "folder named by\n--home or TORNVAL_HOME; its trace log goes to the folder named "
        "by TORNVAL_HD00.\n"
        "A driver is named by IM (board), MO (milliohm module), BT or USB (probes), or "
        "by its number.\n"
        "An input is a measuring input of the board, 0 to 12; a channel is a column of "
        "an acquisition,\n0 to 2, 0 or 1 on a probe.",
        std::string("tornval " TORNVAL_VERSION ", library ") + CeGetVersion());
    const host::CCommand l_Root = l_CommandLine.Root();
    l_Root.RequireCommand();
    l_Root.Footer(host::ExitCodesHelp());

    host::CProgram l_Program;
    host::AddDriversCommand(l_Root, l_Program);
    host::AddLinkCommands(l_Root, l_Program);
    host::AddMeasureCommand(l_Root, l_Program);
    host::AddMicroOhmCommand(l_Root, l_Program);
    host::AddGeneratorCommand(l_Root, l_Program);
    host::AddUploadCommand(l_Root, l_Program);
    host::AddCalibrationCommands(l_Root, l_Program);
    host::AddSendCommand(l_Root, l_Program);
    host::AddProbeCommands(l_Root, l_Program);
    host::AddCheckCommand(l_Root, l_Program);
    host::AddPathsCommand(l_Root, l_Program);
    host::AddCaptureCommands(l_Root, l_Program);
    host::AddWireCommand(l_Root, l_Program);
#ifdef TORNVAL_LIVE
    host::AddMonitorCommand(l_Root, l_Program);
    host::AddServeCommand(l_Root, l_Program);
#endif

    const auto l_oEnd = l_CommandLine.Read(i_lArgc, i_ppszArgv);
    return l_oEnd ? EndReading(*l_oEnd, i_lArgc, i_ppszArgv) : l_Program.Run();
}
