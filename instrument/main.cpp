/**
 * @file main.cpp
 * @brief tornval-instrument: board and milliohm module at the far end of serial lines.
 */
#include "emulator/BoardFirmware.h"
#include "emulator/MilliOhmFirmware.h"
#include "instrument/LineEnd.h"
#include "instrument/Options.h"
#include "instrument/Pty.h"
#include "instrument/Status.h"
#include "links/line/Tty.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace emulator;

namespace {

/** A link with a name that is the same at each start; it goes with the program. */
class CStableName
{
public:
    CStableName(std::filesystem::path i_Name, const std::string& i_strTarget)
        : m_Name(std::move(i_Name)), m_strTarget(i_strTarget)
    {
        // Over an old one in one step: who opens the name finds the old terminal or the new one.
        const std::filesystem::path l_New = m_Name.string() + "." + std::to_string(getpid());
        std::filesystem::create_symlink(i_strTarget, l_New);
        std::filesystem::rename(l_New, m_Name);
    }
    CStableName(const CStableName&) = delete;
    CStableName& operator=(const CStableName&) = delete;
    ~CStableName()
    {
        // Not that of a successor.
        std::error_code l_Error;
        if (std::filesystem::read_symlink(m_Name, l_Error) == m_strTarget) {
            std::filesystem::remove(m_Name, l_Error);
        }
    }

private:
    const std::filesystem::path m_Name;
    const std::string m_strTarget;
};

/** One instrument with its port and its line; the line ends first. */
struct S_INSTRUMENT
{
    const char* pszName;
    CFirmware& Firmware;
    uint32_t ulBaudRate;
    std::unique_ptr<links::CTty> pTty;
    std::optional<CPty> oPty;
    std::unique_ptr<CStableName> pStableName;
    std::unique_ptr<CLineEnd> pLine;
};

void OpenPort(S_INSTRUMENT& io_Instrument, const std::string& i_strDevice,
              const S_OPTIONS& i_Options)
{
    if (!i_strDevice.empty()) {
        links::S_TTY_ERROR l_Error;
        io_Instrument.pTty = links::CTty::Open(i_strDevice, {io_Instrument.ulBaudRate, 8}, l_Error);
        if (!io_Instrument.pTty) {
            throw std::runtime_error(l_Error.strText);
        }
    } else if (i_Options.bPty) {
        io_Instrument.oPty = CPty::Make();
        if (!io_Instrument.oPty) {
            throw std::runtime_error(std::string("no pseudo terminal: ") + std::strerror(errno));
        }
        if (!i_Options.strNames.empty()) {
            io_Instrument.pStableName = std::make_unique<CStableName>(
                std::filesystem::path(i_Options.strNames) / io_Instrument.pszName,
                io_Instrument.oPty->Name());
        }
    }
}

/** Applies one setting to the instrument that it names, or to each that knows it. */
void Apply(const std::string& i_strSetting, std::array<S_INSTRUMENT, 2>& io_aInstruments)
{
    std::string l_strError;
    bool l_bApplied = false;
    for (const S_INSTRUMENT& l_Instrument : io_aInstruments) {
        const std::string l_strPrefix = std::string(l_Instrument.pszName) + ":";
        if (i_strSetting.starts_with(l_strPrefix)) {
            l_strError.clear();
            l_bApplied = l_Instrument.Firmware.Configure(i_strSetting.substr(l_strPrefix.size()),
                                                         l_strError);
            break;
        }
        l_bApplied = l_Instrument.Firmware.Configure(i_strSetting, l_strError) || l_bApplied;
    }
    if (!l_bApplied) {
        throw std::runtime_error(l_strError);
    }
}

void SetOption(CFirmware& io_Firmware, const char* i_pszName, const std::string& i_strValue)
{
    std::string l_strError;
    if (!i_strValue.empty() && !io_Firmware.Set(i_pszName, i_strValue, l_strError)) {
        throw std::runtime_error(l_strError);
    }
}

/** The state of all lines. @throws std::runtime_error if one of them has hung up. */
std::string Status(const std::array<S_INSTRUMENT, 2>& i_aInstruments)
{
    std::vector<std::pair<std::string, S_LINE_COUNTERS>> l_vCounters;
    for (const S_INSTRUMENT& l_Instrument : i_aInstruments) {
        if (l_Instrument.pLine) {
            l_vCounters.emplace_back(l_Instrument.pszName, l_Instrument.pLine->Counters());
            if (l_vCounters.back().second.bHungUp) {
                throw std::runtime_error(l_vCounters.back().first + ": the line has hung up");
            }
        }
    }
    return StatusText(l_vCounters);
}

/** Serves until a signal ends it. */
void Serve(const std::array<S_INSTRUMENT, 2>& i_aInstruments, const sigset_t& i_Signals)
{
    CStatusLine l_Status;
    while (true) {
        l_Status.Show(Status(i_aInstruments));
        constexpr timespec k_Refresh{0, 200'000'000};
        const int l_lSignal = sigtimedwait(&i_Signals, nullptr, &k_Refresh);
        if (l_lSignal == SIGHUP) {
            for (const S_INSTRUMENT& l_Instrument : i_aInstruments) {
                l_Instrument.Firmware.Restart();
            }
        } else if (l_lSignal > 0) {
            l_Status.End(Status(i_aInstruments));
            return;
        }
    }
}

void Run(const S_OPTIONS& i_Options)
{
    // Before the first thread: all inherit it, and Serve() takes the signals one by one.
    sigset_t l_Signals;
    sigemptyset(&l_Signals);
    for (const int l_lSignal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&l_Signals, l_lSignal);
    }
    pthread_sigmask(SIG_BLOCK, &l_Signals, nullptr);

    CBoardFirmware l_Board;
    CMilliOhmFirmware l_MilliOhm;
    SetOption(l_Board, "recording", i_Options.strRecording);
    SetOption(l_Board, "store", i_Options.strState);
    std::array<S_INSTRUMENT, 2> l_aInstruments{
        {{"board", l_Board, 460800, nullptr, std::nullopt, nullptr, nullptr},
         {"milliohm", l_MilliOhm, 115200, nullptr, std::nullopt, nullptr, nullptr}}};
    for (const std::string& l_strSetting : i_Options.vstrSettings) {
        Apply(l_strSetting, l_aInstruments);
    }
    OpenPort(l_aInstruments[0], i_Options.strBoard, i_Options);
    OpenPort(l_aInstruments[1], i_Options.strMilliOhm, i_Options);
    const std::array<std::string, 2> l_astrDevices{i_Options.strBoard, i_Options.strMilliOhm};
    for (size_t i = 0; i < l_aInstruments.size(); ++i) {
        S_INSTRUMENT& l_Instrument = l_aInstruments[i];
        if (l_Instrument.pTty || l_Instrument.oPty) {
            const int l_lFd = l_Instrument.pTty ? l_Instrument.pTty->Fd() : l_Instrument.oPty->Fd();
            l_Instrument.pLine =
                std::make_unique<CLineEnd>(l_Instrument.Firmware, l_lFd, i_Options.Line);
            // Whoever started us reads here that the port is ready, and its name.
            std::cout << l_Instrument.pszName << ": "
                      << (l_Instrument.oPty ? l_Instrument.oPty->Name() : l_astrDevices[i])
                      << std::endl;
        }
    }
    Serve(l_aInstruments, l_Signals);
}

} // namespace

int main(int i_lArguments, char** i_ppszArguments)
{
    // Who starts us with a closed output would find the next file in its place.
    for (int l_lFd = STDIN_FILENO; l_lFd <= STDERR_FILENO; ++l_lFd) {
        if (fcntl(l_lFd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != l_lFd) {
            return 1;
        }
    }
    try {
        S_OPTIONS l_Options;
        if (const auto l_olExit = ReadOptions(i_lArguments, i_ppszArguments, l_Options)) {
            return *l_olExit;
        }
        Run(l_Options);
        return 0;
    } catch (const std::exception& l_Error) {
        std::cerr << "tornval-instrument: " << l_Error.what() << '\n';
        return 1;
    }
}
