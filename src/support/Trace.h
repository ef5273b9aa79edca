/**
 * @file Trace.h
 * @brief The trace: one function through which all code says what it does, and the one logger.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/Format.h"
#include "platform/Sync.h"

namespace tornval {

/**
 * Levels. A level is a mask, and a line passes if all its bits are in the logger's mask: INFO_LEVEL
 * never passes without INFO_GENERAL_LEVEL.
 */
enum E_TRACE_LEVEL : uint16_t
{
    FW_LEVEL = 0x0001,           /**< what the firmware reported */
    ERROR_LEVEL = 0x0010,        /**< failures */
    INFO_GENERAL_LEVEL = 0x0100, /**< commands and main steps */
    INFO_LEVEL = 0x1100          /**< details and timings */
};

/** A logger: puts out finished lines that its mask lets pass. */
class CTraceLog
{
public:
    explicit CTraceLog(uint16_t i_usLevel);
    CTraceLog(const CTraceLog&) = delete;
    CTraceLog& operator=(const CTraceLog&) = delete;

    /** Puts out one line; null puts out nothing. Any thread; lines never mix. */
    virtual void WriteLine(const wchar_t* i_pwszText) = 0;
    /** Starts the output afresh. */
    virtual void Reset() = 0;
    virtual ~CTraceLog();
    /** As WriteLine, for a text that may be used up: a narrow copy of it would double the stack. */
    virtual void WriteOwnText(wchar_t* io_pwszText) { WriteLine(io_pwszText); }

    [[nodiscard]] bool LetsPass(uint16_t i_usLevel) const
    {
        return (m_usLevel & i_usLevel) == i_usLevel;
    }
    /** Whether it found the memory that it needs. One that did not is not installed. */
    [[nodiscard]] virtual bool IsWhole() const { return static_cast<bool>(m_hMutex); }
    /** For a forked child: a thread that it does not have may hold the mutex, so it goes without. */
    void LeaveMutexToParent() { m_hMutex.Release(); }

protected:
    cecore::CMutex m_hMutex;
    uint16_t m_usLevel;
};

/** A logger whose output takes bytes: what file and console have in common. */
class CTraceLogBytes : public CTraceLog
{
public:
    using CTraceLog::CTraceLog;

    void WriteLine(const wchar_t* i_pwszText) final;
    void WriteOwnText(wchar_t* io_pwszText) final;

private:
    /** @param i_strLine with its line end. */
    virtual void WriteNarrow(std::string_view i_strLine) = 0;
};

/**
 * Logger into a file that is opened, written and closed for each line. A file that cannot be opened
 * loses the line without a word; so does one that is no regular file, or a symbolic link.
 */
class CTraceLogFile final : public CTraceLogBytes
{
public:
    /** @param i_pszPath path in the target's form, copied; null: no output. Empties the file. */
    CTraceLogFile(const char* i_pszPath, uint16_t i_usLevel);

    void Reset() override;
    [[nodiscard]] bool IsWhole() const override { return CTraceLog::IsWhole() && m_bPathHeld; }

private:
    void WriteNarrow(std::string_view i_strLine) override;

    /** As this system has it: a line takes little of its caller's stack. */
    std::unique_ptr<char[]> m_pszPath;
    bool m_bPathHeld = true;
};

/**
 * Logger onto the standard output. Waits a second at most for one that nobody reads; from then on
 * lines are dropped and counted until it is read again. A process that was started without a standard
 * output has none.
 */
class CTraceLogConsole final : public CTraceLogBytes
{
public:
    explicit CTraceLogConsole(uint16_t i_usLevel);

    void Reset() override {}

private:
    void WriteNarrow(std::string_view i_strLine) override;

    bool m_bOutput;
    uint32_t m_ulDropped WIRE_GUARDED_BY(m_hMutex) = 0;
};

namespace detail {

/** The current logger. Written at the router's construction, read without a lock. */
extern std::atomic<CTraceLog*> s_pTraceLog;

void TraceV(CTraceLog& io_Log, uint16_t i_usLevel, const wchar_t* i_pwszFormat,
            const cecore::S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs);

} // namespace detail

/**
 * Installs the logger and owns it; one already installed is released, so nobody may be tracing then.
 * Null leaves none. The last one stays until the process ends: threads may trace to the very end.
 */
void SetTraceLog(std::unique_ptr<CTraceLog> i_pLog);

/** Lets the logger work in a forked child. */
void KeepTraceLogInChild();

/** Starts the output of the current logger afresh, if there is one. */
void ResetTraceLog();

/** Whether a logger is installed, whatever its mask: says if a costly text is worth preparing. */
inline bool IsTraceActive()
{
    return detail::s_pTraceLog.load(std::memory_order_acquire) != nullptr;
}

/** Whether a line of that level would be put out: asked before its text or its figures are made. */
inline bool IsTraceLevel(uint16_t i_usLevel)
{
    const CTraceLog* l_pLog = detail::s_pTraceLog.load(std::memory_order_acquire);
    return l_pLog != nullptr && l_pLog->LetsPass(i_usLevel);
}

template <typename... Args>
using TTraceFormat = cecore::TWideFormat<std::type_identity_t<Args>...>;

/**
 * Passes one line to the current logger, if there is one and if it lets the level pass. Never fails
 * its caller, allocates nothing, and cuts a text that is too long so that its level still shows.
 *
 * @param i_usLevel a level of E_TRACE_LEVEL.
 * @param i_Format  wide format, checked against the arguments when it is compiled.
 */
template <typename... Args>
inline void Trace(uint16_t i_usLevel, TTraceFormat<Args...> i_Format, const Args&... i_Args)
{
    CTraceLog* l_pLog = detail::s_pTraceLog.load(std::memory_order_acquire);
    if (l_pLog == nullptr || !l_pLog->LetsPass(i_usLevel)) [[likely]] {
        return;
    }
    const cecore::S_FORMAT_ARG l_aArgs[sizeof...(Args) + 1] = {
        cecore::detail::MakeArg<Args>(i_Args)..., {}};
    detail::TraceV(*l_pLog, i_usLevel, i_Format.Get(), l_aArgs, sizeof...(Args));
}

/** A line with its level, for tables of texts; an empty one is no line. */
template <typename... Args>
struct S_TRACE_TEXT
{
    uint16_t usLevel = 0;
    cecore::TWideFormat<Args...> Format{};

    void Emit(const Args&... i_Args) const
    {
        if (Format) {
            Trace<Args...>(usLevel, Format, i_Args...);
        }
    }
};

} // namespace tornval
