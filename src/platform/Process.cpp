#include "Process.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cwchar>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Format.h"
#include "Objects.h"
#include "Path.h"
#include "Sync.h"
#include "wire/SystemError.h"

extern char** environ;

namespace cecore {
namespace {

class CProcessObject final : public CKernelObject
{
public:
    CProcessObject() : CKernelObject(E_OBJECT_KIND::PROCESS) {}

    /** Nobody waited for the end: a child that has ended is given back, another lives on. */
    ~CProcessObject() override { HasEnded(); }

    /** Starts the program, once. @return false with the last error set. */
    bool Start(const char* i_pszApplication, const wchar_t* i_pwszArguments,
               uint32_t& o_ulProcessId)
    {
        std::string l_strArguments(std::wcslen(i_pwszArguments) + 1, '\0');
        l_strArguments.resize(
            FormatNarrow(l_strArguments.data(), l_strArguments.size(), "%S", i_pwszArguments));
        std::vector<std::string> l_vstrWords{i_pszApplication};
        std::istringstream l_Line(l_strArguments);
        for (std::string l_strWord; l_Line >> l_strWord;) {
            l_vstrWords.push_back(l_strWord);
        }
        std::vector<char*> l_vpszArguments;
        std::transform(l_vstrWords.begin(), l_vstrWords.end(), std::back_inserter(l_vpszArguments),
                       [](std::string& io_strWord) { return io_strWord.data(); });
        l_vpszArguments.push_back(nullptr);
        const std::lock_guard l_Lock(m_Mutex);
        const int l_lError = posix_spawn(&m_lPid, l_vpszArguments[0], nullptr, nullptr,
                                         l_vpszArguments.data(), environ);
        if (l_lError != 0) {
            ::SetLastError(wire::SystemErrorOf(l_lError));
            return false;
        }
        m_bEnded = false;
        o_ulProcessId = static_cast<uint32_t>(m_lPid);
        return true;
    }

    uint32_t Wait(uint32_t i_ulMilliseconds) override
    {
        const auto l_End =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(i_ulMilliseconds);
        // In short steps, with the lock given away between them: several threads may wait, each
        // with a limit of its own, and a close ends the wait.
        std::unique_lock l_Lock(m_Mutex);
        while (!m_bClosed && !HasEnded()) {
            if (i_ulMilliseconds != INFINITE && std::chrono::steady_clock::now() >= l_End) {
                return WAIT_TIMEOUT;
            }
            m_Closed.wait_for(l_Lock, std::chrono::milliseconds(2));
        }
        if (m_bClosed) {
            ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        return WAIT_OBJECT_0;
    }

    void OnClosed() override
    {
        const std::lock_guard l_Lock(m_Mutex);
        m_bClosed = true;
        m_Closed.notify_all();
    }

private:
    bool HasEnded()
    {
        if (!m_bEnded) {
            const pid_t l_lPid = waitpid(m_lPid, nullptr, WNOHANG);
            // No such child: the host reaps its children by itself, so this one has ended.
            m_bEnded = l_lPid == m_lPid || (l_lPid < 0 && errno == ECHILD);
        }
        return m_bEnded;
    }

    std::mutex m_Mutex;
    std::condition_variable m_Closed;
    pid_t m_lPid = 0;
    /** Until it is started there is nothing to wait for. */
    bool m_bEnded = true;
    bool m_bClosed = false;
};

} // namespace

bool CreateProcessW(const wchar_t* i_pwszApplication, const wchar_t* i_pwszCommandLine,
                    S_PROCESS_INFORMATION* o_pInformation)
{
    if (i_pwszApplication == nullptr || *i_pwszApplication == 0 || o_pInformation == nullptr) {
        ::SetLastError(CECORE_ERROR_INVALID_PARAMETER);
        return false;
    }
    try {
        // Its handle before the start: a program that runs always has one.
        const auto l_pProcess = std::make_shared<CProcessObject>();
        CUniqueHandle l_hProcess(OpenHandle(E_OBJECT_KIND::PROCESS, 0, l_pProcess));
        uint32_t l_ulProcessId = 0;
        if (!l_hProcess ||
            !l_pProcess->Start(FindFile(i_pwszApplication).Get(),
                               i_pwszCommandLine == nullptr ? L"" : i_pwszCommandLine,
                               l_ulProcessId)) {
            return false;
        }
        *o_pInformation = {l_hProcess.Release(), l_ulProcessId};
        return true;
    } catch (const std::bad_alloc&) {
        ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
}

} // namespace cecore
