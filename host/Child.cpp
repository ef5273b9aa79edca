#include "Child.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace host {

namespace {

/** The pointer table that the system wants; it points into the given texts. */
std::vector<char*> Pointers(std::vector<std::string>& io_vTexts)
{
    std::vector<char*> l_vPointers;
    l_vPointers.reserve(io_vTexts.size() + 1);
    for (std::string& l_strText : io_vTexts) {
        l_vPointers.push_back(l_strText.data());
    }
    l_vPointers.push_back(nullptr);
    return l_vPointers;
}

/** Settings of a start, freed at the end of the block. */
struct S_SPAWN_SETTINGS
{
    S_SPAWN_SETTINGS()
    {
        posix_spawn_file_actions_init(&Actions);
        posix_spawnattr_init(&Attributes);
        // We ignore a broken pipe and block signals in threads; a child starts afresh.
        sigset_t l_Signals;
        sigemptyset(&l_Signals);
        posix_spawnattr_setsigmask(&Attributes, &l_Signals);
        sigaddset(&l_Signals, SIGPIPE);
        posix_spawnattr_setsigdefault(&Attributes, &l_Signals);
        posix_spawnattr_setflags(&Attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~S_SPAWN_SETTINGS()
    {
        posix_spawn_file_actions_destroy(&Actions);
        posix_spawnattr_destroy(&Attributes);
    }
    S_SPAWN_SETTINGS(const S_SPAWN_SETTINGS&) = delete;
    S_SPAWN_SETTINGS& operator=(const S_SPAWN_SETTINGS&) = delete;

    posix_spawn_file_actions_t Actions{};
    posix_spawnattr_t Attributes{};
};

} // namespace

CChild::~CChild()
{
    Finish();
}

int CChild::Start(const std::vector<std::string>& i_vArguments, bool i_bQuiet)
{
    Finish();
    int l_alPipe[2] = {-1, -1};
    if (pipe2(l_alPipe, O_CLOEXEC) != 0) {
        return errno;
    }
    S_SPAWN_SETTINGS l_Settings;
    posix_spawn_file_actions_adddup2(&l_Settings.Actions, l_alPipe[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&l_Settings.Actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (i_bQuiet) {
        posix_spawn_file_actions_adddup2(&l_Settings.Actions, STDOUT_FILENO, STDERR_FILENO);
    }
    std::vector<std::string> l_vArguments = i_vArguments;
    pid_t l_Pid = -1;
    const int l_lError =
        posix_spawnp(&l_Pid, l_vArguments.front().c_str(), &l_Settings.Actions,
                     &l_Settings.Attributes, Pointers(l_vArguments).data(), environ);
    close(l_alPipe[0]);
    m_lInput = l_alPipe[1];
    m_Pid = l_lError == 0 ? l_Pid : -1;
    if (l_lError != 0) {
        CloseInput();
    }
    return l_lError;
}

bool CChild::Write(std::string_view i_strBytes)
{
    while (m_lInput >= 0 && !i_strBytes.empty()) {
        const ssize_t l_lWritten = write(m_lInput, i_strBytes.data(), i_strBytes.size());
        if (l_lWritten >= 0) {
            i_strBytes.remove_prefix(static_cast<size_t>(l_lWritten));
        } else if (errno != EINTR) {
            CloseInput();
        }
    }
    return m_lInput >= 0;
}

int CChild::Finish()
{
    CloseInput();
    if (m_Pid <= 0) {
        return -1;
    }
    int l_lStatus = 0;
    while (waitpid(m_Pid, &l_lStatus, 0) < 0 && errno == EINTR) {
    }
    m_Pid = -1;
    return WIFEXITED(l_lStatus) ? WEXITSTATUS(l_lStatus) : 128 + WTERMSIG(l_lStatus);
}

void CChild::Kill() const
{
    if (const pid_t l_Pid = m_Pid; l_Pid > 0) {
        kill(l_Pid, SIGKILL);
    }
}

void CChild::CloseInput()
{
    if (m_lInput >= 0) {
        close(m_lInput);
        m_lInput = -1;
    }
}

} // namespace host
