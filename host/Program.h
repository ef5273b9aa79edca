/**
 * @file Program.h
 * @brief What all commands of tornval share: options, output, failures with their exit code, the
 *        loaded drivers, one exchange with a driver.
 */
#pragma once

#include "Reasons.h"
#include "TornvalC63.h"
#include "Words.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace host {

/** Exit codes; --help tells them to the user. Ended by a signal: 128 plus its number. */
enum E_EXIT : int
{
    k_lExitDone = 0,
    k_lExitUsage = 1,
    k_lExitNoDriver = 2,
    k_lExitDevice = 3,
    k_lExitTimeOut = 4,
    k_lExitFile = 5
};

/** The exit codes in words, for --help. */
const char* ExitCodesHelp();

/** Ends a command with an exit code and a message; thrown by the host's own code only. */
struct S_FAILURE
{
    int lExitCode;
    std::string strMessage;
    std::optional<S_RESULT> Record = std::nullopt;
};

/** The failure that a failing record of a loaded driver stands for: a time-out or any other. */
S_FAILURE FailureOf(const S_RESULT& i_Result, const S_CALL& i_Call = {});

/** Options that every command has. */
struct S_OPTIONS
{
    bool bJson = false;
    bool bProgress = false;
    int32_t lMask = TORNVAL_LOAD_MILLIOHM | TORNVAL_LOAD_BOARD;
};

/** Options, standard output and the command that was chosen. */
class CProgram
{
public:
    /** Adds a command with the options that all of them have. It is run after the parsing. */
    CLI::App& AddCommand(CLI::App& io_App, const std::string& i_strName,
                         const std::string& i_strDescription, std::function<void()> i_fnRun);

    /** Runs the chosen command and reports its outcome. @return the exit code. */
    int Run();

    const S_OPTIONS& Options() const { return m_Options; }

    /** What --json prints at the end; commands add to it whatever the form of the output is. */
    nlohmann::json& Document() { return m_Document; }

    /** Prints text on standard output, unless --json is on. */
    void Print(const std::string& i_strText);

    /** Prints why drivers are missing, and puts it into the document. */
    void TellReasons(const std::vector<CECORE_REASON>& i_vReasons);

    /** Prints a note on standard error. */
    static void Note(const std::string& i_strText);

private:
    void TakeStandardOutput();
    void Deliver(const std::string& i_strText);

    S_OPTIONS m_Options;
    nlohmann::json m_Document = nlohmann::json::object();
    std::function<void()> m_fnRun;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_JsonOutput{nullptr, &std::fclose};
};

/** One loaded driver. */
struct S_DRIVER
{
    uint32_t ulID = 0;
    std::string strLinkType;
    std::string strName;

    bool IsProbe() const { return strLinkType == "BT" || strLinkType == "USB"; }
};

/** The drivers of the mask, loaded for as long as the process runs. */
class CSession
{
public:
    /** Loads and lists the drivers. A driver that is missing is no failure yet. */
    explicit CSession(const S_OPTIONS& i_Options);

    const std::vector<S_DRIVER>& Drivers() const { return m_vDrivers; }

    /** Record of the load. */
    const S_RESULT& LoadResult() const { return m_LoadResult; }

    /** The driver with a link type word, "IM" or "MO". @throws S_FAILURE. */
    const S_DRIVER& ByLinkType(const std::string& i_strLinkType) const;

    /** The driver with an ID. @throws S_FAILURE. */
    const S_DRIVER& ByID(uint32_t i_ulID) const;

    /** The probe with an ID. @throws S_FAILURE, also if the driver is no probe. */
    const S_DRIVER& ProbeByID(uint32_t i_ulID) const;

    /** The driver with the ID, or all if there is none. */
    std::vector<S_DRIVER> Select(const std::optional<uint32_t>& i_ID) const;

private:
    S_OPTIONS m_Options;
    S_RESULT m_LoadResult{};
    std::vector<S_DRIVER> m_vDrivers;
};

/** One command to a driver and its answer. The buffers are kept from one exchange to the next. */
class CExchange
{
public:
    CExchange();

    /**
     * Sends a command and fetches its answer.
     *
     * @param i_ulTimeout milliseconds, handed to the device and added to the wait of board and
     *                    module.
     * @return The record of the stage that failed, or of the fetch.
     * @throws S_FAILURE if the driver announces an answer beyond all measure.
     */
    S_RESULT Run(const S_DRIVER& i_Driver, uint8_t i_ucCommand, uint8_t i_ucParam,
                 const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout);

    /** As Run(), and a failing record is thrown. */
    void RunOrThrow(const S_DRIVER& i_Driver, uint8_t i_ucCommand,
                    const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout);

    /** What the last exchange was, for ExplainRecord(). */
    const S_CALL& Call() const { return m_Call; }
    /** Bytes of the raw answer, as many as the send announced. */
    const std::vector<char>& Raw() const { return m_vRaw; }
    /** The processed array in its full length. */
    const std::vector<int32_t>& Words() const { return m_vWords; }
    /** The size word of the processed array. */
    int32_t Size() const { return m_lSize; }

private:
    S_CALL m_Call;
    std::vector<char> m_vRaw;
    std::vector<int32_t> m_vWords;
    int32_t m_lSize = 0;
};

/** A stop watch for S_CALL::ulElapsedMs. */
class CElapsed
{
public:
    /** Milliseconds since the construction, at least 1. */
    uint32_t Ms() const;

private:
    std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
};

/** A record as a JSON object, its words included. */
nlohmann::json ToJson(const S_RESULT& i_Result, const S_CALL& i_Call = {});

/** A number as text, short and exact, "." as decimal sign. */
std::string NumberText(double i_dNumber);

/** Ends a command that a signal cut short; does nothing without one. @throws S_FAILURE. */
void ThrowIfStopped(const std::string& i_strWhatStands);

// Each adds its commands.
void AddDriverCommands(CLI::App& io_App, CProgram& io_Program);
void AddMeasureCommands(CLI::App& io_App, CProgram& io_Program);
void AddUploadCommand(CLI::App& io_App, CProgram& io_Program);
void AddCalibrationCommands(CLI::App& io_App, CProgram& io_Program);
void AddSendCommand(CLI::App& io_App, CProgram& io_Program);
void AddProbeCommands(CLI::App& io_App, CProgram& io_Program);

} // namespace host
