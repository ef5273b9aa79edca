#include "support/Trace.h"

#include <cstring>
#include <cwchar>
#include <string_view>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Reason.h"

namespace tornval {
namespace {

constexpr size_t k_ulTextSize = 2048;
constexpr size_t k_ulHeadSize = 64;

/** How long a console that nobody reads is waited for, in milliseconds. */
constexpr uint32_t k_ulConsoleWait = 1000;

/**
 * A text as bytes, its line end included.
 *
 * @param o_pcLine room for k_ulTextSize bytes; may be the place of the text itself.
 */
std::string_view NarrowLine(char* o_pcLine, const wchar_t* i_pwszText)
{
    size_t l_ulLength = 0;
    for (; l_ulLength < k_ulTextSize - 1 && i_pwszText[l_ulLength] != 0; ++l_ulLength) {
        o_pcLine[l_ulLength] = cecore::NarrowChar(i_pwszText[l_ulLength]);
    }
    o_pcLine[l_ulLength] = '\n';
    return {o_pcLine, l_ulLength + 1};
}

const wchar_t* SuffixOf(uint16_t i_usLevel)
{
    switch (i_usLevel) {
    case FW_LEVEL:
        return L" [FW_LEVEL]";
    case ERROR_LEVEL:
        return L" [ERROR_LEVEL]";
    case INFO_GENERAL_LEVEL:
        return L" [INFO_GENERAL_LEVEL]";
    case INFO_LEVEL:
        return L" [INFO_LEVEL]";
    default:
        return L" [...]";
    }
}

} // namespace

namespace detail {

constinit std::atomic<CTraceLog*> s_pTraceLog{nullptr};

void TraceV(CTraceLog& io_Log, uint16_t i_usLevel, const wchar_t* i_pwszFormat,
            const cecore::S_FORMAT_ARG* i_pArgs, size_t i_ulNbArgs)
{
    wchar_t l_awszText[k_ulTextSize];
    const wchar_t* l_pwszSuffix = SuffixOf(i_usLevel);
    const size_t l_ulSuffix = std::wcslen(l_pwszSuffix);
    const size_t l_ulText =
        cecore::FormatV(l_awszText, k_ulTextSize - l_ulSuffix, i_pwszFormat, i_pArgs, i_ulNbArgs);
    std::wmemcpy(l_awszText + l_ulText, l_pwszSuffix, l_ulSuffix + 1);
    // A line tells of a failure whose reason the caller has still to read.
    const uint32_t l_ulLastError = cecore::GetLastError();
    io_Log.WriteOwnText(l_awszText);
    ::SetLastError(l_ulLastError);
}

} // namespace detail

void SetTraceLog(std::unique_ptr<CTraceLog> i_pLog)
{
    delete detail::s_pTraceLog.exchange(i_pLog.release(), std::memory_order_acq_rel);
}

void KeepTraceLogInChild()
{
    CTraceLog* l_pLog = detail::s_pTraceLog.load(std::memory_order_acquire);
    if (l_pLog != nullptr) {
        l_pLog->LeaveMutexToParent();
    }
}

void ResetTraceLog()
{
    CTraceLog* l_pLog = detail::s_pTraceLog.load(std::memory_order_acquire);
    if (l_pLog != nullptr) {
        l_pLog->Reset();
    }
}

CTraceLog::CTraceLog(uint16_t i_usLevel)
    : m_hMutex(cecore::CreateMutexW(false)), m_usLevel(i_usLevel)
{
}

CTraceLog::~CTraceLog() = default;

void CTraceLogBytes::WriteLine(const wchar_t* i_pwszText)
{
    char l_acLine[k_ulTextSize];
    if (i_pwszText != nullptr) {
        WriteNarrow(NarrowLine(l_acLine, i_pwszText));
    }
}

void CTraceLogBytes::WriteOwnText(wchar_t* io_pwszText)
{
    WriteNarrow(NarrowLine(reinterpret_cast<char*>(io_pwszText), io_pwszText));
}

CTraceLogFile::CTraceLogFile(const char* i_pszPath, uint16_t i_usLevel) : CTraceLogBytes(i_usLevel)
{
    if (i_pszPath != nullptr) {
        m_pszPath = cecore::MakeSystemPath(i_pszPath);
        m_bPathHeld = m_pszPath != nullptr;
    }
    Reset();
}

void CTraceLogFile::WriteNarrow(std::string_view i_strLine)
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    const cecore::S_SYSTEMTIME l_Time = cecore::GetSystemTime();
    if (m_pszPath == nullptr) {
        return;
    }
    char l_aszHead[k_ulHeadSize];
    // The hour is one ahead of UTC and does not wrap: 23 hours print as 24.
    const size_t l_ulHead = cecore::FormatNarrow(
        l_aszHead, k_ulHeadSize, "%u/%u/%u AT %.2u:%.2u:%.2u: [%.ld] [th%08x] ", l_Time.usMonth,
        l_Time.usDay, l_Time.usYear, l_Time.usHour + 1, l_Time.usMinute, l_Time.usSecond,
        cecore::GetTickCount(), cecore::GetCurrentThreadId());
    cecore::AppendToFile(m_pszPath.get(), {l_aszHead, l_ulHead}, i_strLine);
}

void CTraceLogFile::Reset()
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    if (m_pszPath != nullptr && !cecore::EmptyFile(m_pszPath.get())) {
        // The lines go without a word; this is the word.
        cecore::NoteReason(cecore::GetLastError(),
                           "the trace log %s cannot be written: it must be a regular file, no "
                           "symbolic link, in a folder that is there",
                           m_pszPath.get());
    }
}

CTraceLogConsole::CTraceLogConsole(uint16_t i_usLevel)
    : CTraceLogBytes(i_usLevel), m_bOutput(cecore::HasStandardOutput())
{
}

void CTraceLogConsole::WriteNarrow(std::string_view i_strLine)
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    if (!m_bOutput) {
        return;
    }
    char l_aszHead[k_ulHeadSize];
    const auto l_fnWrite = [&](std::string_view i_strText, uint32_t i_ulMilliseconds) {
        const size_t l_ulHead =
            cecore::FormatNarrow(l_aszHead, k_ulHeadSize, "[%.ld]", cecore::GetTickCount());
        return cecore::WriteToConsole(stdout, {l_aszHead, l_ulHead}, i_strText, i_ulMilliseconds) ||
               cecore::GetLastError() != CECORE_ERROR_TIMEOUT;
    };
    if (m_ulDropped != 0) {
        char l_aszLost[64];
        const size_t l_ulLost = cecore::FormatNarrow(
            l_aszLost, sizeof(l_aszLost), "CTraceLogConsole> %u lines lost\n", m_ulDropped);
        m_ulDropped = l_fnWrite({l_aszLost, l_ulLost}, 0) ? 0 : m_ulDropped + 1;
    }
    if (m_ulDropped == 0 && !l_fnWrite(i_strLine, k_ulConsoleWait)) {
        m_ulDropped = 1;
    }
}

} // namespace tornval
