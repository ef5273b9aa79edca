/**
 * @file Program.h
 * @brief What all commands of tornval share: options, output, failures with their exit code.
 */
#pragma once

#include "Failure.h"
#include "Options.h"
#include "Reasons.h"
#include "TornvalC63.h"
#include "Words.h"
#include "wire/Descriptor.h"

#include <cstdio>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace host {

/** The exit codes in words, for --help. */
const char* ExitCodesHelp();

/** The failure that a failing record of a loaded driver stands for: a time-out or any other. */
S_FAILURE FailureOf(const S_RESULT& i_Result, const S_CALL& i_Call = {});

/** Options that every command has. */
struct S_OPTIONS
{
    bool bJson = false;
    bool bProgress = false;
    std::string strHome;
    int32_t lMask = TORNVAL_LOAD_MILLIOHM | TORNVAL_LOAD_BOARD;
};

/** Options, standard output and the command that was chosen. */
class CProgram
{
public:
    /** Adds a command with the options that all of them have. It is run after the parsing. */
    CCommand AddCommand(CCommand i_Parent, const std::string& i_strName,
                        const std::string& i_strDescription, std::function<void()> i_fnRun);

    /** As above, for a command with options of its own. @return the command, and its options, which
     *  stay as long as the program. */
    template <typename T>
    std::pair<CCommand, T&> AddCommand(CCommand i_Parent, const std::string& i_strName,
                                       const std::string& i_strDescription,
                                       void (*i_pFnRun)(CProgram&, const T&))
    {
        const auto l_pOptions = std::make_shared<T>();
        const CCommand l_Command = AddCommand(i_Parent, i_strName, i_strDescription,
                                              [=, this] { i_pFnRun(*this, *l_pOptions); });
        return {l_Command, *l_pOptions};
    }

    /** Runs the chosen command and reports its outcome. @return the exit code. */
    int Run();

    const S_OPTIONS& Options() const { return m_Options; }

    /** What --json prints at the end; commands add to it whatever the form of the output is. */
    nlohmann::json& Document() { return m_Document; }

    /** Prints text on standard output, unless --json is on. */
    void Print(const std::string& i_strText);

    /** Prints an object of its own on one line at once, where --json is on: a run without an end has no
     *  document that could wait for it. From the first one on the document is one line too. */
    void Stream(const nlohmann::json& i_Object);

    /** The descriptor that a table goes to which is asked for on standard output. From then on text goes
     *  to standard error. */
    int TakeOutputForTable();

    /** Prints why drivers are missing, and puts it into the document. */
    void TellReasons(const std::vector<CECORE_REASON>& i_vReasons);

    /** Prints a note on standard error. */
    static void Note(const std::string& i_strText);

private:
    void TakeStandardOutput();
    void Deliver(const nlohmann::json& i_Object, int i_lIndent);
    int RunCommand();
    void Fail(const S_FAILURE& i_Failure);

    S_OPTIONS m_Options;
    nlohmann::json m_Document = nlohmann::json::object();
    std::function<void()> m_fnRun;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_JsonOutput{nullptr, &std::fclose};
    wire::CDescriptor m_TableOutput;
    bool m_bStreamed = false;
    int m_lExitCode = k_lExitDone;
};

/** A record as a JSON object, its words included. */
nlohmann::json ToJson(const S_RESULT& i_Result, const S_CALL& i_Call = {});

/** A number as text, short and exact, "." as decimal sign. */
std::string NumberText(double i_dNumber);

/** The failure that a signal to stop stands for. */
S_FAILURE StoppedBySignal(const std::string& i_strWhatStands);

/** Ends a command that a signal cut short; does nothing without one. @throws S_FAILURE. */
void ThrowIfStopped(const std::string& i_strWhatStands);

/** Whether a text is what --driver takes, a link type word in any case or a number. @return empty, or what
 *  is wrong with it. */
std::string NotADriver(const std::string& i_strName);

/** Adds the option --driver, whose value is a link type word or an ID. */
template <typename T>
COption AddDriverOption(CCommand i_Command, T& io_strDriver, const std::string& i_strWords)
{
    return i_Command.Option("--driver", io_strDriver, i_strWords).Check(&NotADriver, "DRIVER");
}

// Each adds its commands.
void AddDriversCommand(CCommand i_Parent, CProgram& io_Program);
void AddLinkCommands(CCommand i_Parent, CProgram& io_Program);
void AddMeasureCommand(CCommand i_Parent, CProgram& io_Program);
void AddMicroOhmCommand(CCommand i_Parent, CProgram& io_Program);
void AddGeneratorCommand(CCommand i_Parent, CProgram& io_Program);
void AddUploadCommand(CCommand i_Parent, CProgram& io_Program);
void AddCalibrationCommands(CCommand i_Parent, CProgram& io_Program);
void AddSendCommand(CCommand i_Parent, CProgram& io_Program);
void AddProbeCommands(CCommand i_Parent, CProgram& io_Program);
void AddCheckCommand(CCommand i_Parent, CProgram& io_Program);
void AddPathsCommand(CCommand i_Parent, CProgram& io_Program);

} // namespace host
