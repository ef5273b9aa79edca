/**
 * @file Options.h
 * @brief The command line: commands within commands, and the options of each.
 *
 * A thin face of the CLI11 library, whose header alone costs more time than all of a command's own code:
 * it is read by one file.
 */
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace host {

/** An option of a command. A handle: it may be copied and is good for as long as its CCommandLine. */
class COption
{
public:
    explicit COption(CLI::Option& i_Option) : m_pOption(&i_Option) {}

    /** The command cannot do without it. */
    const COption& Required() const;

    /** Values from a least to a most one, both allowed; anything else is refused, and --help tells. */
    const COption& Within(int i_lLeast, int i_lMost) const;
    const COption& Within(unsigned i_ulLeast, unsigned i_ulMost) const;

    /** Numbers above 0. */
    const COption& Positive() const;

    /** One of these words. */
    const COption& OneOf(const std::vector<std::string>& i_vWords) const;

    /** A folder that is there. */
    const COption& Folder() const;

    /** What a function says of a value: empty, or why it is refused. @param i_strKind what a value is
     *  called in --help; nothing if empty. */
    const COption& Check(std::function<std::string(const std::string&)> i_fnCheck,
                         const std::string& i_strKind = {}) const;

    /** --help shows the value that holds without the option: the variable's own, or a text. */
    const COption& ShowDefault() const;
    const COption& ShowDefault(const std::string& i_strDefault) const;

    /** Not together with another; only together with another. */
    const COption& Excludes(const COption& i_Other) const;
    const COption& Needs(const COption& i_Other) const;

    /** The text that was given; none without the option. Once the command line is read. */
    std::optional<std::string> Text() const;

private:
    CLI::Option* m_pOption;
};

/** A command, or a group of them. A handle: it may be copied and is good for as long as its CCommandLine. */
class CCommand
{
public:
    explicit CCommand(CLI::App& i_App) : m_pApp(&i_App) {}

    /** A command below this one. */
    CCommand Add(const std::string& i_strName, const std::string& i_strDescription) const;

    /** One of the commands below has to be chosen. */
    void RequireCommand() const;

    /** Calls a function when the command line chose this command. */
    void OnChosen(std::function<void()> i_fnChosen) const;

    /** Text below the options in --help. */
    void Footer(const std::string& i_strText) const;

    /** An option without a value. @param o_bGiven has to live until the command line is read. */
    COption Flag(const std::string& i_strNames, bool& o_bGiven,
                 const std::string& i_strWords) const;

    /** An option with a value, or with a list of them. @param i_strNames "--a,--b" or, for a word that is
     *  told by its place, "NAME". @param io_Value its value without the option; has to live until the
     *  command line is read. A number, text, std::optional of text, or a vector: Options.cpp has the list. */
    template <typename T>
    COption Option(const std::string& i_strNames, T& io_Value, const std::string& i_strWords) const;

    /** Takes options away that this command does not have. */
    void Remove(const std::vector<std::string>& i_vNames) const;

    /** From the first word on that is no option of this command, the words are another's. */
    void TakeRest() const;

    /** Those words. Once the command line is read. */
    std::vector<std::string> Rest() const;

    std::string Name() const;

    /** The names of the commands below. */
    std::vector<std::string> Names() const;

private:
    CLI::App* m_pApp;
};

/** A command line that asked for help or for the version, or one that is wrong. */
struct S_COMMAND_LINE_END
{
    bool bAsked;
    /** For standard output. */
    std::string strOutput;
    /** For standard error. */
    std::string strComplaint;
};

/** The whole command line of a program. */
class CCommandLine
{
public:
    CCommandLine(const std::string& i_strName, const std::string& i_strDescription,
                 const std::string& i_strVersion);
    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;
    ~CCommandLine();

    /** The program itself: the command that all others are below of. */
    CCommand Root() const { return CCommand(*m_pApp); }

    /** Reads the arguments of main() into the variables of the options. @return nothing if a command was
     *  chosen. */
    std::optional<S_COMMAND_LINE_END> Read(int i_lArgc, char** i_ppszArgv);

private:
    std::unique_ptr<CLI::App> m_pApp;
};

} // namespace host
