/**
 * @file Child.h
 * @brief A program run beside this one: the progress bar, the plotter.
 */
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace host {

/**
 * One child process with a pipe to its standard input. Its standard output is dropped, its
 * standard error is ours. The destructor closes the pipe and waits for the child.
 */
class CChild
{
public:
    /** No child yet. */
    CChild() = default;
    ~CChild();
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    /**
     * Starts a program.
     *
     * @param i_vArguments its name, looked up in PATH, and its arguments.
     * @param i_bQuiet     drops its standard error too.
     * @return 0, or the errno of the failed start.
     */
    int Start(const std::vector<std::string>& i_vArguments, bool i_bQuiet = false);

    /** Writes to the child's standard input. @return false once it no longer reads. */
    bool Write(std::string_view i_strBytes);

    /** Closes the pipe and waits for the end. @return the exit code, 128 + the signal that ended
     *  it, or -1 if there is no child. */
    int Finish();

    /** Ends the child; from any thread, also while another one waits in Finish(). */
    void Kill() const;

    /** Whether a child was started and not yet waited for. */
    bool IsRunning() const { return m_Pid > 0; }

private:
    void CloseInput();

    std::atomic<pid_t> m_Pid = -1;
    int m_lInput = -1;
};

} // namespace host
