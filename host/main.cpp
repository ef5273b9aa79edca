/**
 * @file main.cpp
 * @brief tornval: the library of a Tornval C63 instrument on the command line.
 */
#include "Program.h"
#include "cecore.h"

#include <csignal>

int main(int i_lArgc, char** i_ppszArgv)
{
    // A progress bar that was closed, or a reader of our output that has enough, is no crash.
    std::signal(SIGPIPE, SIG_IGN);

    CLI::App l_App{"Measures with a Tornval C63 instrument, real or simulated.\n"
                   "The library reads TornvalC63.ini in the folder of this program, or in the "
                   "folder named by\nTORNVAL_HOME; its trace log goes to the folder named by "
                   "TORNVAL_HD00.",
                   "tornval"};
    l_App.require_subcommand(1);
    l_App.set_version_flag("--version",
                           std::string("tornval " TORNVAL_VERSION ", library ") + CeGetVersion());
    l_App.footer(host::ExitCodesHelp());

    host::CProgram l_Program;
    host::AddDriverCommands(l_App, l_Program);
    host::AddMeasureCommands(l_App, l_Program);
    host::AddUploadCommand(l_App, l_Program);
    host::AddCalibrationCommands(l_App, l_Program);
    host::AddSendCommand(l_App, l_Program);
    host::AddProbeCommands(l_App, l_Program);

    try {
        l_App.parse(i_lArgc, i_ppszArgv);
    } catch (const CLI::ParseError& l_Error) {
        return l_App.exit(l_Error) == 0 ? host::k_lExitDone : host::k_lExitUsage;
    }
    return l_Program.Run();
}
