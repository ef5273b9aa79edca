#include "instrument/Options.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <tuple>

namespace emulator {

std::optional<int> ReadOptions(int i_lArguments, char** i_ppszArguments, S_OPTIONS& o_Options)
{
    CLI::App l_App("The emulated instrument at the far end of a serial line: a measurement board "
                   "and a milliohm module, each on a port of its own.");
    l_App.set_version_flag("--version", TORNVAL_VERSION);
    l_App.add_option("--board", o_Options.strBoard, "Serial device of the board (460800 baud)")
        ->type_name("DEV");
    l_App
        .add_option("--milliohm", o_Options.strMilliOhm,
                    "Serial device of the milliohm module (115200 baud)")
        ->type_name("DEV");
    auto* l_pPty =
        l_App.add_flag("--pty", o_Options.bPty,
                       "Make a pseudo terminal for each of the two that was given no device");
    l_App
        .add_option("--names", o_Options.strNames,
                    "Folder that gets links board and milliohm to the pseudo terminals: names that "
                    "are the same after a restart")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory)
        ->needs(l_pPty);
    l_App
        .add_option("--recording", o_Options.strRecording,
                    "File that the board plays, four numbers a row")
        ->type_name("FILE");
    l_App.add_option("--state", o_Options.strState, "File that keeps the board's calibration")
        ->type_name("FILE");
    l_App
        .add_option("--fault,--set", o_Options.vstrSettings,
                    "Fault or setting, as in late=200, error-code=17@212*1, rows=100; behind "
                    "\"board:\" or \"milliohm:\" for that one alone. May be given several times")
        ->type_name("SETTING");
    l_App
        .add_option("--pace", o_Options.Line.ulPace,
                    "Let commands and answers take the time that they need at this rate, whatever "
                    "the terminal could do")
        ->type_name("BAUD")
        ->check(CLI::Range(300U, 10'000'000U));
    S_TROUBLE& l_Trouble = o_Options.Line.Trouble;
    const std::tuple<const char*, double&, const char*> l_aShares[] = {
        {"--noise", l_Trouble.dNoise, "in which bytes are lost, added or flipped"},
        {"--loss", l_Trouble.dLoss, "that do not come"},
        {"--delay", l_Trouble.dDelay, "that come up to 100 ms late"},
        {"--twice", l_Trouble.dTwice, "that come a second time, up to 10 ms later"},
        {"--split", l_Trouble.dSplit, "that come in pieces"},
        {"--flood", l_Trouble.dFlood, "that come behind thousands of bytes that are none"}};
    for (const auto& [l_pszName, l_dShare, l_pszWhich] : l_aShares) {
        l_App
            .add_option(l_pszName, l_dShare,
                        std::string("Share of the answers, 0 to 1, ") + l_pszWhich)
            ->type_name("SHARE")
            ->check(CLI::Range(0.0, 1.0));
    }
    l_App.add_option("--seed", l_Trouble.ulSeed, "Seed of what happens to the answers")
        ->type_name("NUMBER")
        ->capture_default_str();
    long l_lSilence = static_cast<long>(o_Options.Line.Silence.count());
    l_App
        .add_option("--silence", l_lSilence,
                    "Milliseconds without a byte after which a command that is not whole is "
                    "dropped; no more than the link's own SILENCE")
        ->type_name("MS")
        ->check(CLI::Range(1L, 1000L))
        ->capture_default_str();
    l_App.footer(
        "Prints \"board: NAME\" and \"milliohm: NAME\" on the standard output as soon as a "
        "port is ready. Ends on SIGINT or SIGTERM. SIGHUP switches the instruments off and on: "
        "what they "
        "do not store is forgotten.");
    try {
        l_App.parse(i_lArguments, i_ppszArguments);
        if (o_Options.strBoard.empty() && o_Options.strMilliOhm.empty() && !o_Options.bPty) {
            throw CLI::ValidationError("one of --board, --milliohm and --pty is needed");
        }
    } catch (const CLI::ParseError& l_Error) {
        return l_App.exit(l_Error, std::cout, std::cerr);
    }
    o_Options.Line.Silence = std::chrono::milliseconds(l_lSilence);
    return std::nullopt;
}

} // namespace emulator
