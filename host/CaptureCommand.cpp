/** tornval capture, replay: a session with an instrument is recorded, and run again without it. */
#include "CapturedRun.h"
#include "WireCommands.h"
#include "wire/Capture.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace host {

namespace {

struct S_CAPTURE_OPTIONS
{
    std::string strFile;
    bool bForce = false;
    bool bFast = false;
};

/** How many calls a captured session holds, and the configuration of its first load. */
std::pair<uint64_t, std::string> LookInto(const std::string& i_strFile)
{
    using E_FOUND = wire::CCaptureReader::E_FOUND;
    wire::CCaptureReader l_Reader;
    if (!l_Reader.Open(i_strFile)) {
        throw S_FAILURE{k_lExitFile, i_strFile + ": " + std::strerror(errno)};
    }
    uint64_t l_ullCalls = 0;
    std::string l_strConfiguration;
    for (E_FOUND l_eFound = l_Reader.Next();
         l_eFound == E_FOUND::Record || l_eFound == E_FOUND::Section; l_eFound = l_Reader.Next()) {
        if (l_eFound == E_FOUND::Section && l_strConfiguration.empty()) {
            l_strConfiguration = l_Reader.Section().strConfiguration;
        }
        l_ullCalls +=
            l_eFound == E_FOUND::Record && l_Reader.Record().eKind == wire::E_CAPTURE_KIND::Call
                ? 1
                : 0;
    }
    if (l_ullCalls == 0 && !l_Reader.Error().empty()) {
        throw S_FAILURE{k_lExitFile, i_strFile + ": " + l_Reader.Error()};
    }
    return {l_ullCalls, std::move(l_strConfiguration)};
}

std::vector<std::string> Arguments(CCommand i_Root, CCommand i_Command)
{
    std::vector<std::string> l_vArguments = ProgramOf(i_Command.Rest(), i_Root.Names());
    if (l_vArguments.empty()) {
        throw S_FAILURE{k_lExitUsage, "a command is missing: tornval " + i_Command.Name() +
                                          " FILE measure --input 2"};
    }
    return l_vArguments;
}

std::string Absolute(const std::string& i_strFile)
{
    std::error_code l_Error;
    return std::filesystem::absolute(i_strFile, l_Error).string();
}

void EndLikeProgram(int i_lExitCode, const std::string& i_strWords)
{
    if (i_lExitCode != 0) {
        throw S_FAILURE{i_lExitCode, i_strWords + "; the command ended with exit code " +
                                         std::to_string(i_lExitCode)};
    }
    CProgram::Note(i_strWords);
}

void RunCapture(const std::vector<std::string>& i_vArguments, const S_CAPTURE_OPTIONS& i_Options)
{
    const std::string l_strFile = Absolute(i_Options.strFile);
    const std::filesystem::path l_Home = HomeOf(i_vArguments.front());
    std::ifstream l_File(l_Home / k_pszConfigurationName, std::ios::binary);
    const std::string l_strConfiguration{std::istreambuf_iterator<char>(l_File), {}};
    if (!l_File) {
        throw S_FAILURE{k_lExitNoDriver,
                        (l_Home / k_pszConfigurationName).string() + ": " + std::strerror(errno)};
    }
    std::error_code l_Error;
    if (std::filesystem::exists(l_strFile, l_Error)) {
        if (!i_Options.bForce || !std::filesystem::is_regular_file(l_strFile, l_Error)) {
            throw S_FAILURE{k_lExitFile, i_Options.strFile + " is there already" +
                                             (i_Options.bForce ? " and no regular file"
                                                               : "; --force replaces it")};
        }
        std::filesystem::remove(l_strFile, l_Error);
    }
    std::string l_strSection = "[CAPTURE]\nFILE=" + l_strFile +
                               "\nCONFIGURATION=" + (l_Home / k_pszConfigurationName).string() +
                               "\n";
    const char* const l_apszKeys[] = {"SERIAL", "BLUETOOTH", "USB"};
    size_t l_uKey = 0;
    for (const auto& [l_strSectionName, l_strName] : ConfiguredLinks(l_strConfiguration)) {
        l_strSection += std::string(l_apszKeys[l_uKey++]) + "=" + l_strName + "\n";
    }
    const int l_lExitCode =
        RunInHome(i_vArguments, l_Home,
                  ReplaceLinks(l_strConfiguration, OwnLink("capture_link.so"), l_strSection));
    if (!std::filesystem::exists(l_strFile, l_Error)) {
        throw S_FAILURE{l_lExitCode != 0 ? l_lExitCode : k_lExitNoDriver,
                        i_Options.strFile +
                            " was not written: no driver called a link library. Simulated drivers "
                            "have none"};
    }
    EndLikeProgram(l_lExitCode, i_Options.strFile + " holds " +
                                    std::to_string(LookInto(l_strFile).first) + " calls");
}

void RunReplay(const std::vector<std::string>& i_vArguments, const S_CAPTURE_OPTIONS& i_Options)
{
    const std::string l_strFile = Absolute(i_Options.strFile);
    const auto [l_ullCalls, l_strConfiguration] = LookInto(l_strFile);
    if (l_ullCalls == 0) {
        throw S_FAILURE{k_lExitFile, i_Options.strFile + " holds no call"};
    }
    const std::string l_strSection =
        "[REPLAY]\nFILE=" + l_strFile + "\nPACE=" + (i_Options.bFast ? "0" : "1") + "\n";
    const int l_lExitCode =
        RunInHome(i_vArguments, HomeOf(i_vArguments.front()),
                  ReplaceLinks(l_strConfiguration, OwnLink("replay_link.so"), l_strSection));
    if (l_lExitCode != 0) {
        throw S_FAILURE{l_lExitCode,
                        "the command ended with exit code " + std::to_string(l_lExitCode)};
    }
}

/** A command that takes the words behind FILE as they are, options included. */
CCommand AddRun(CCommand i_Parent, CProgram& io_Program, const std::string& i_strName,
                const std::string& i_strDescription, S_CAPTURE_OPTIONS& o_Options,
                std::function<void(const std::vector<std::string>&)> i_fnRun)
{
    const auto l_pCommand = std::make_shared<std::optional<CCommand>>();
    const CCommand l_Command = l_pCommand->emplace(io_Program.AddCommand(
        i_Parent, i_strName, i_strDescription,
        [=, l_fnRun = std::move(i_fnRun)] { l_fnRun(Arguments(i_Parent, **l_pCommand)); }));
    // These belong to the command that is run.
    l_Command.Remove({"--json", "--progress", "--mask"});
    l_Command.TakeRest();
    l_Command.Option("FILE", o_Options.strFile, "the session, a pcapng file").Required();
    return l_Command;
}

} // namespace

void AddCaptureCommands(CCommand i_Parent, CProgram& io_Program)
{
    auto l_pOptions = std::make_shared<S_CAPTURE_OPTIONS>();
    AddRun(i_Parent, io_Program, "capture",
           "Runs COMMAND and records every exchange of its drivers with their link libraries.\n"
           "COMMAND is one of tornval's own, \"measure --input 2\", or any program that uses the "
           "library",
           *l_pOptions,
           [=](const std::vector<std::string>& i_vArguments) {
               RunCapture(i_vArguments, *l_pOptions);
           })
        .Flag("--force", l_pOptions->bForce, "replace FILE if it is there");
    AddRun(
        i_Parent, io_Program, "replay",
        "Runs COMMAND with a captured session in the place of the instrument. The session "
        "brings\nits configuration; the answers are those of FILE, byte by byte",
        *l_pOptions,
        [=](const std::vector<std::string>& i_vArguments) { RunReplay(i_vArguments, *l_pOptions); })
        .Flag("--fast", l_pOptions->bFast,
              "answer at once, not after the time that the instrument took");
}

} // namespace host
