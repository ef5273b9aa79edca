/**
 * @file Trace.h
 * @brief The trace: one function through which all code says what it does, and the one logger.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/Format.h"
#include "platform/Sync.h"

namespace tornval {

/**
 * Levels. A level is a mask, and a line passes if all its bits are in the logger's mask: INFO_LEVEL
 * never passes without INFO_GENERAL_LEVEL.
 */
enum ETraceLevel : uint16_t
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

    [[nodiscard]] bool LetsPass(uint16_t i_usLevel) const
    {
        return (m_usLevel & i_usLevel) == i_usLevel;
    }

protected:
    cecore::Handle m_hMutex;
    uint16_t m_usLevel;
};

/**
 * Logger into a file that is opened, written and closed for each line. A file that cannot be opened
 * loses the line without a word.
 */
class CTraceLogFile final : public CTraceLog
{
public:
    /** @param i_pszPath path in the target's form, copied; null: no output. Empties the file. */
    CTraceLogFile(const char* i_pszPath, uint16_t i_usLevel);
    ~CTraceLogFile() override;

    void WriteLine(const wchar_t* i_pwszText) override;
    void Reset() override;

private:
    char* m_pszPath = nullptr;
};

/** Logger onto the standard output. */
class CTraceLogConsole final : public CTraceLog
{
public:
    using CTraceLog::CTraceLog;

    void WriteLine(const wchar_t* i_pwszText) override;
    void Reset() override {}
};

namespace detail {

/** The current logger. Written at the router's construction, read without a lock. */
extern std::atomic<CTraceLog*> s_pTraceLog;

void TraceV(CTraceLog& io_Log, uint16_t i_usLevel, const wchar_t* i_pwszFormat,
            const cecore::S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs);

} // namespace detail

/** Installs the logger and owns it; one already installed is released. Null leaves none. */
void SetTraceLog(std::unique_ptr<CTraceLog> i_pLog);

/**
 * Leaves the logger alone for good, without giving anything back: for a forked child, whose locks may
 * be held by threads that it does not have.
 */
void AbandonTraceLog();

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
 * @param i_usLevel a level of ETraceLevel.
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
