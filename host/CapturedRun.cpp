#include "CapturedRun.h"

#include "Program.h"
#include "Stop.h"
#include "wire/ConfigText.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <spawn.h>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

/** A private folder that is gone at the end of the block. */
class CTemporaryFolder
{
public:
    CTemporaryFolder()
    {
        std::string l_strName =
            (std::filesystem::temp_directory_path() / "tornval-XXXXXX").string();
        if (mkdtemp(l_strName.data()) == nullptr) {
            throw S_FAILURE{k_lExitFile, l_strName + ": " + std::strerror(errno)};
        }
        m_Path = l_strName;
    }
    ~CTemporaryFolder()
    {
        std::error_code l_Error;
        std::filesystem::remove_all(m_Path, l_Error);
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return m_Path; }

private:
    std::filesystem::path m_Path;
};

std::string_view Trimmed(std::string_view i_strText)
{
    const size_t l_uBegin = i_strText.find_first_not_of(" \t\r");
    return l_uBegin == std::string_view::npos
               ? std::string_view()
               : i_strText.substr(l_uBegin, i_strText.find_last_not_of(" \t\r") - l_uBegin + 1);
}

bool IsHead(std::string_view i_strLine, const std::string& i_strSection)
{
    const std::string l_strHead(Trimmed(i_strLine));
    return strcasecmp(l_strHead.c_str(), ("[" + i_strSection + "]").c_str()) == 0;
}

/** Takes the first line off a text, without its line end. */
std::string_view TakeLine(std::string_view& io_strText)
{
    const size_t l_uEnd = std::min(io_strText.find('\n'), io_strText.size());
    const std::string_view l_strLine = io_strText.substr(0, l_uEnd);
    io_strText.remove_prefix(std::min(l_uEnd + 1, io_strText.size()));
    return l_strLine;
}

} // namespace

std::vector<std::pair<std::string, std::string>> ConfiguredLinks(std::string_view i_strText)
{
    wire::CConfigText l_Text;
    l_Text.Parse(std::string(i_strText));
    std::vector<std::pair<std::string, std::string>> l_vLinks;
    for (const auto& [l_pszSection, l_pszDefault] :
         {std::pair{"IM", ""}, {"BT", "zondebtc6.dll"}, {"USB", "zondeusbc6.dll"}}) {
        l_vLinks.emplace_back(l_pszSection,
                              l_Text.FindText(l_pszSection, "DRIVER_NAME").value_or(l_pszDefault));
    }
    return l_vLinks;
}

std::string ReplaceLinks(std::string_view i_strText, const std::string& i_strLibrary,
                         const std::string& i_strSection)
{
    const std::string l_strKey = "DRIVER_NAME=" + i_strLibrary + "\n";
    std::string l_strReplaced = i_strSection;
    std::vector<std::string> l_vMissing;
    for (const auto& [l_strSection, l_strName] : ConfiguredLinks(i_strText)) {
        // A board without a library stays one.
        if (!l_strName.empty()) {
            l_vMissing.push_back(l_strSection);
        }
    }
    while (!i_strText.empty()) {
        const std::string_view l_strLine = TakeLine(i_strText);
        l_strReplaced.append(l_strLine).append("\n");
        const auto l_itSection =
            std::find_if(l_vMissing.begin(), l_vMissing.end(), [&](const std::string& i_strName) {
                return IsHead(l_strLine, i_strName);
            });
        if (l_itSection != l_vMissing.end()) {
            l_strReplaced += l_strKey; // the first key of a name counts
            l_vMissing.erase(l_itSection);
        }
    }
    for (const std::string& l_strSection : l_vMissing) {
        l_strReplaced.append("[").append(l_strSection).append("]\n").append(l_strKey);
    }
    return l_strReplaced;
}

std::string OwnLink(const char* i_pszName)
{
    std::error_code l_Error;
    const std::filesystem::path l_Built =
        std::filesystem::read_symlink("/proc/self/exe", l_Error).parent_path().parent_path() /
        "links" / i_pszName;
    return std::filesystem::exists(l_Built, l_Error) ? l_Built.string() : i_pszName;
}

std::filesystem::path HomeOf(const std::string& i_strProgram)
{
    std::error_code l_Error;
    const char* l_pszHome = secure_getenv("TORNVAL_HOME");
    if (l_pszHome != nullptr && *l_pszHome != '\0') {
        return std::filesystem::absolute(l_pszHome, l_Error);
    }
    std::filesystem::path l_Program = i_strProgram;
    if (i_strProgram.find('/') == std::string::npos) {
        const char* l_pszPath = std::getenv("PATH");
        std::string_view l_strPath = l_pszPath == nullptr ? "/usr/bin:/bin" : l_pszPath;
        while (!l_strPath.empty()) {
            const size_t l_uEnd = std::min(l_strPath.find(':'), l_strPath.size());
            const auto l_Tried = std::filesystem::path(l_strPath.substr(0, l_uEnd)) / i_strProgram;
            l_strPath.remove_prefix(std::min(l_uEnd + 1, l_strPath.size()));
            if (access(l_Tried.c_str(), X_OK) == 0) {
                l_Program = l_Tried;
                break;
            }
        }
    }
    return std::filesystem::canonical(l_Program, l_Error).parent_path();
}

std::vector<std::string> ProgramOf(const std::vector<std::string>& i_vWords,
                                   const std::vector<std::string>& i_vCommands)
{
    std::vector<std::string> l_vArguments = i_vWords;
    if (!i_vWords.empty() &&
        std::find(i_vCommands.begin(), i_vCommands.end(), i_vWords.front()) != i_vCommands.end()) {
        std::error_code l_Error;
        l_vArguments.insert(l_vArguments.begin(),
                            std::filesystem::read_symlink("/proc/self/exe", l_Error).string());
    }
    return l_vArguments;
}

int RunInHome(const std::vector<std::string>& i_vArguments, const std::filesystem::path& i_Home,
              const std::string& i_strConfiguration)
{
    // An interrupt ends the program; this one lives on to remove its folder.
    CatchStopSignals();
    const CTemporaryFolder l_Folder;
    std::error_code l_Error;
    for (auto l_It = std::filesystem::directory_iterator(i_Home, l_Error);
         !l_Error && l_It != std::filesystem::directory_iterator(); l_It.increment(l_Error)) {
        std::error_code l_LinkError;
        if (l_It->path().filename() != k_pszConfigurationName) {
            std::filesystem::create_symlink(l_It->path(), l_Folder.Path() / l_It->path().filename(),
                                            l_LinkError);
        }
    }
    std::ofstream l_Config(l_Folder.Path() / k_pszConfigurationName, std::ios::binary);
    l_Config << i_strConfiguration;
    l_Config.close();
    if (!l_Config) {
        throw S_FAILURE{k_lExitFile, l_Folder.Path().string() + " cannot be written"};
    }
    setenv("TORNVAL_HOME", l_Folder.Path().c_str(), 1);
    std::vector<char*> l_vArguments;
    std::vector<std::string> l_vTexts = i_vArguments;
    l_vArguments.reserve(l_vTexts.size() + 1);
    for (std::string& l_strText : l_vTexts) {
        l_vArguments.push_back(l_strText.data());
    }
    l_vArguments.push_back(nullptr);
    posix_spawnattr_t l_Attributes;
    posix_spawnattr_init(&l_Attributes);
    sigset_t l_Default;
    sigemptyset(&l_Default);
    sigaddset(&l_Default, SIGPIPE); // this program ignores it
    posix_spawnattr_setsigdefault(&l_Attributes, &l_Default);
    posix_spawnattr_setflags(&l_Attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t l_Pid = -1;
    const int l_lError = posix_spawnp(&l_Pid, l_vArguments.front(), nullptr, &l_Attributes,
                                      l_vArguments.data(), environ);
    posix_spawnattr_destroy(&l_Attributes);
    if (l_lError != 0) {
        throw S_FAILURE{k_lExitFile, i_vArguments.front() + ": " + std::strerror(l_lError)};
    }
    int l_lStatus = 0;
    int l_lHandedOn = 0;
    while (waitpid(l_Pid, &l_lStatus, WNOHANG) != l_Pid) {
        // From the terminal the program has it already, and a second one changes nothing.
        if (StopSignal() != 0 && l_lHandedOn == 0) {
            l_lHandedOn = StopSignal();
            kill(l_Pid, l_lHandedOn);
        }
        usleep(5000);
    }
    return WIFEXITED(l_lStatus) ? WEXITSTATUS(l_lStatus) : 128 + WTERMSIG(l_lStatus);
}

} // namespace host
