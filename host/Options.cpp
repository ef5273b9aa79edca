#include "Options.h"

#include "Nearest.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <sstream>

namespace host {

namespace {

std::vector<std::string> NamesBelow(const CLI::App& i_App)
{
    std::vector<std::string> l_vNames;
    for (const CLI::App* l_pCommand : i_App.get_subcommands(nullptr)) {
        l_vNames.push_back(l_pCommand->get_name());
    }
    return l_vNames;
}

/** Long names of the options of a command, with their dashes. */
std::vector<std::string> OptionNames(const CLI::App& i_App)
{
    std::vector<std::string> l_vNames;
    for (const CLI::Option* l_pOption : i_App.get_options()) {
        for (const std::string& l_strName : l_pOption->get_lnames()) {
            l_vNames.push_back("--" + l_strName);
        }
    }
    return l_vNames;
}

/** Names the first command or option that there is not, and what was probably meant; empty if the
 *  words are right and something else is wrong. */
std::string WrongWord(const CLI::App& i_App, int i_lArgc, char** i_ppszArgv)
{
    const auto l_IsIn = [](const std::string& i_strWord, const std::vector<std::string>& i_vKnown) {
        return std::find(i_vKnown.begin(), i_vKnown.end(), i_strWord) != i_vKnown.end();
    };
    const CLI::App* l_pApp = &i_App;
    std::string l_strPath = i_App.get_name();
    for (int i = 1; i < i_lArgc && !l_pApp->get_prefix_command(); ++i) {
        std::string l_strWord = i_ppszArgv[i];
        const bool l_bOption = l_strWord.starts_with("--") && l_strWord.size() > 2;
        l_strWord.resize(l_bOption ? std::min(l_strWord.find('='), l_strWord.size())
                                   : l_strWord.size());
        const std::vector<std::string> l_vKnown =
            l_bOption ? OptionNames(*l_pApp) : NamesBelow(*l_pApp);
        if (l_vKnown.empty() || (!l_bOption && l_strWord.starts_with('-'))) {
            continue; // a value
        }
        if (!l_IsIn(l_strWord, l_vKnown)) {
            const std::string l_strNearest = Nearest(l_strWord, l_vKnown);
            l_strPath.append(l_bOption ? " has no option " : " has no command ").append(l_strWord);
            if (!l_strNearest.empty()) {
                l_strPath.append(". Did you mean \"").append(l_strNearest).append("\"?");
            }
            return l_strPath.append("\n");
        }
        if (!l_bOption) {
            l_pApp = l_pApp->get_subcommand(l_strWord);
            l_strPath += " " + l_strWord;
        }
    }
    return {};
}

} // namespace

const COption& COption::Required() const
{
    m_pOption->required();
    return *this;
}

const COption& COption::Within(int i_lLeast, int i_lMost) const
{
    m_pOption->check(CLI::Range(i_lLeast, i_lMost));
    return *this;
}

const COption& COption::Within(unsigned i_ulLeast, unsigned i_ulMost) const
{
    m_pOption->check(CLI::Range(i_ulLeast, i_ulMost));
    return *this;
}

const COption& COption::Positive() const
{
    m_pOption->check(CLI::PositiveNumber);
    return *this;
}

const COption& COption::OneOf(const std::vector<std::string>& i_vWords) const
{
    m_pOption->check(CLI::IsMember(i_vWords));
    return *this;
}

const COption& COption::Folder() const
{
    m_pOption->check(CLI::ExistingDirectory);
    return *this;
}

const COption& COption::Check(std::function<std::string(const std::string&)> i_fnCheck,
                              const std::string& i_strKind) const
{
    m_pOption->check(CLI::Validator(std::move(i_fnCheck), i_strKind));
    return *this;
}

const COption& COption::ShowDefault() const
{
    m_pOption->capture_default_str();
    return *this;
}

const COption& COption::ShowDefault(const std::string& i_strDefault) const
{
    m_pOption->default_str(i_strDefault);
    return *this;
}

const COption& COption::Excludes(const COption& i_Other) const
{
    m_pOption->excludes(i_Other.m_pOption);
    return *this;
}

const COption& COption::Needs(const COption& i_Other) const
{
    m_pOption->needs(i_Other.m_pOption);
    return *this;
}

std::optional<std::string> COption::Text() const
{
    return m_pOption->count() == 0 ? std::nullopt : std::optional(m_pOption->as<std::string>());
}

CCommand CCommand::Add(const std::string& i_strName, const std::string& i_strDescription) const
{
    return CCommand(*m_pApp->add_subcommand(i_strName, i_strDescription));
}

void CCommand::RequireCommand() const
{
    m_pApp->require_subcommand(1);
}

void CCommand::OnChosen(std::function<void()> i_fnChosen) const
{
    m_pApp->callback(std::move(i_fnChosen));
}

void CCommand::Footer(const std::string& i_strText) const
{
    m_pApp->footer(i_strText);
}

COption CCommand::Flag(const std::string& i_strNames, bool& o_bGiven,
                       const std::string& i_strWords) const
{
    return COption(*m_pApp->add_flag(i_strNames, o_bGiven, i_strWords));
}

template <typename T>
COption CCommand::Option(const std::string& i_strNames, T& io_Value,
                         const std::string& i_strWords) const
{
    return COption(*m_pApp->add_option(i_strNames, io_Value, i_strWords));
}

template COption CCommand::Option(const std::string&, uint16_t&, const std::string&) const;
template COption CCommand::Option(const std::string&, int32_t&, const std::string&) const;
template COption CCommand::Option(const std::string&, uint32_t&, const std::string&) const;
template COption CCommand::Option(const std::string&, uint64_t&, const std::string&) const;
template COption CCommand::Option(const std::string&, double&, const std::string&) const;
template COption CCommand::Option(const std::string&, std::string&, const std::string&) const;
template COption CCommand::Option(const std::string&, std::optional<std::string>&,
                                  const std::string&) const;
template COption CCommand::Option(const std::string&, std::vector<uint32_t>&,
                                  const std::string&) const;
template COption CCommand::Option(const std::string&, std::vector<double>&,
                                  const std::string&) const;

void CCommand::Remove(const std::vector<std::string>& i_vNames) const
{
    for (const std::string& l_strName : i_vNames) {
        m_pApp->remove_option(m_pApp->get_option(l_strName));
    }
}

void CCommand::TakeRest() const
{
    m_pApp->prefix_command();
}

std::vector<std::string> CCommand::Rest() const
{
    return m_pApp->remaining();
}

std::string CCommand::Name() const
{
    return m_pApp->get_name();
}

std::vector<std::string> CCommand::Names() const
{
    return NamesBelow(*m_pApp);
}

CCommandLine::CCommandLine(const std::string& i_strName, const std::string& i_strDescription,
                           const std::string& i_strVersion)
    : m_pApp(std::make_unique<CLI::App>(i_strDescription, i_strName))
{
    m_pApp->set_version_flag("-V,--version", i_strVersion);
}

CCommandLine::~CCommandLine() = default;

std::optional<S_COMMAND_LINE_END> CCommandLine::Read(int i_lArgc, char** i_ppszArgv)
{
    try {
        m_pApp->parse(i_lArgc, i_ppszArgv);
        return std::nullopt;
    } catch (const CLI::ParseError& l_Error) {
        std::ostringstream l_Output;
        std::ostringstream l_Complaint;
        const bool l_bAsked = m_pApp->exit(l_Error, l_Output, l_Complaint) == 0;
        const std::string l_strWrong =
            l_bAsked ? std::string() : WrongWord(*m_pApp, i_lArgc, i_ppszArgv);
        return S_COMMAND_LINE_END{l_bAsked, l_Output.str(),
                                  l_strWrong.empty()
                                      ? l_Complaint.str()
                                      : l_strWrong + "Run with --help for more information.\n"};
    }
}

} // namespace host
