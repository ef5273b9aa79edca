#include "support/Trace.h"

#include <cstring>
#include <cwchar>

#include "platform/Clock.h"
#include "platform/File.h"

namespace tornval {
namespace {

constexpr size_t k_ulTextSize = 2048;
constexpr size_t k_ulPrefixSize = 96;

/** Gives the logger back when the library goes; whoever traces after that finds none. */
struct S_LOG_OWNER
{
    std::unique_ptr<CTraceLog> pLog;

    S_LOG_OWNER() = default;
    S_LOG_OWNER(const S_LOG_OWNER&) = delete;
    S_LOG_OWNER& operator=(const S_LOG_OWNER&) = delete;
    ~S_LOG_OWNER() { detail::s_pTraceLog.store(nullptr, std::memory_order_release); }
};

S_LOG_OWNER& Owner()
{
    static S_LOG_OWNER s_Owner;
    return s_Owner;
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
    io_Log.WriteLine(l_awszText);
    ::SetLastError(l_ulLastError);
}

} // namespace detail

void SetTraceLog(std::unique_ptr<CTraceLog> i_pLog)
{
    detail::s_pTraceLog.store(i_pLog.get(), std::memory_order_release);
    Owner().pLog = std::move(i_pLog);
}

void AbandonTraceLog()
{
    detail::s_pTraceLog.store(nullptr, std::memory_order_release);
    static CTraceLog* s_pAbandoned = nullptr;
    s_pAbandoned = Owner().pLog.release();
    static_cast<void>(s_pAbandoned);
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

CTraceLog::~CTraceLog()
{
    if (m_hMutex != 0) {
        cecore::CloseHandle(m_hMutex);
    }
}

CTraceLogFile::CTraceLogFile(const char* i_pszPath, uint16_t i_usLevel) : CTraceLog(i_usLevel)
{
    if (i_pszPath != nullptr) {
        const size_t l_ulSize = std::strlen(i_pszPath) + 1;
        m_pszPath = new char[l_ulSize];
        std::memcpy(m_pszPath, i_pszPath, l_ulSize);
    }
    Reset();
}

CTraceLogFile::~CTraceLogFile()
{
    delete[] m_pszPath;
}

void CTraceLogFile::WriteLine(const wchar_t* i_pwszText)
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    const cecore::S_SYSTEMTIME l_Time = cecore::GetSystemTime();
    if (i_pwszText == nullptr || m_pszPath == nullptr) {
        return;
    }
    char l_aszLine[k_ulPrefixSize + k_ulTextSize];
    // The hour is one ahead of UTC and does not wrap: 23 hours print as 24.
    size_t l_ulLength = cecore::FormatNarrow(
        l_aszLine, k_ulPrefixSize, "%u/%u/%u AT %.2u:%.2u:%.2u: [%.ld] [th%08x] ", l_Time.usMonth,
        l_Time.usDay, l_Time.usYear, l_Time.usHour + 1, l_Time.usMinute, l_Time.usSecond,
        cecore::GetTickCount(), cecore::GetCurrentThreadId());
    l_ulLength += cecore::FormatNarrow(l_aszLine + l_ulLength, sizeof(l_aszLine) - l_ulLength,
                                       "%S\n", i_pwszText);
    cecore::AppendToFile(m_pszPath, l_aszLine, l_ulLength);
}

void CTraceLogFile::Reset()
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    if (m_pszPath != nullptr) {
        cecore::EmptyFile(m_pszPath);
    }
}

void CTraceLogConsole::WriteLine(const wchar_t* i_pwszText)
{
    const cecore::CMutexGuard l_Lock(m_hMutex);
    if (i_pwszText == nullptr) {
        return;
    }
    char l_aszLine[k_ulPrefixSize + k_ulTextSize];
    const size_t l_ulLength = cecore::FormatNarrow(l_aszLine, sizeof(l_aszLine), "[%.ld]%S\n",
                                                   cecore::GetTickCount(), i_pwszText);
    cecore::WriteToConsole(stdout, l_aszLine, l_ulLength);
}

} // namespace tornval
