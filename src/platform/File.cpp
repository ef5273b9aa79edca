#include "File.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "Clock.h"
#include "Device.h"
#include "Objects.h"
#include "Path.h"
#include "wire/Descriptor.h"
#include "wire/Guarded.h"
#include "wire/SystemError.h"

namespace cecore {
namespace {

using wire::CDescriptor;

/**
 * Opens a regular file; below 0 with the last error set on failure. A pipe or a device could block
 * the caller for good or never end, so it is refused like a file without access.
 */
CDescriptor OpenRegular(const char* i_pszPath, int i_lFlags)
{
    struct stat l_Status = {};
    // Asked for before the open, which alone can have an effect on a device, and once more after it.
    if (stat(i_pszPath, &l_Status) == 0 && !S_ISREG(l_Status.st_mode)) {
        ::SetLastError(CECORE_ERROR_ACCESS_DENIED);
        return CDescriptor(-1);
    }
    CDescriptor l_File(open(i_pszPath, i_lFlags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666));
    if (l_File.Get() < 0 || fstat(l_File.Get(), &l_Status) != 0) {
        ::SetLastError(wire::SystemErrorOf(errno));
        return CDescriptor(-1);
    }
    if (!S_ISREG(l_Status.st_mode)) {
        ::SetLastError(CECORE_ERROR_ACCESS_DENIED);
        return CDescriptor(-1);
    }
    return l_File;
}

using CFileObject = CHolder<E_OBJECT_KIND::FILE, CDescriptor>;

class CDeviceObject final : public CKernelObject
{
public:
    explicit CDeviceObject(std::shared_ptr<IDevice> i_pDevice)
        : CKernelObject(E_OBJECT_KIND::DEVICE), m_pDevice(std::move(i_pDevice))
    {
    }
    void OnClosed() override { m_pDevice->Close(); }
    [[nodiscard]] IDevice& Get() const { return *m_pDevice; }

private:
    std::shared_ptr<IDevice> m_pDevice;
};

struct S_DEVICE_TABLE
{
    wire::CMutex Mutex;
    std::map<std::wstring, std::shared_ptr<IDevice>> mapDevices WIRE_GUARDED_BY(Mutex);
};

std::shared_ptr<IDevice> FindDevice(const wchar_t* i_pwszName)
{
    auto& l_Table = Resident<S_DEVICE_TABLE>();
    const wire::CLock l_Lock(l_Table.Mutex);
    const auto l_It = l_Table.mapDevices.find(FoldCase(i_pwszName));
    return l_It == l_Table.mapDevices.end() ? nullptr : l_It->second;
}

bool WriteAll(int i_lDescriptor, std::string_view i_strHead, std::string_view i_strText)
{
    while (!i_strHead.empty() || !i_strText.empty()) {
        const iovec l_aParts[] = {{const_cast<char*>(i_strHead.data()), i_strHead.size()},
                                  {const_cast<char*>(i_strText.data()), i_strText.size()}};
        const ssize_t l_lWritten = writev(i_lDescriptor, l_aParts, 2);
        if (l_lWritten < 0 && errno != EINTR) {
            ::SetLastError(wire::SystemErrorOf(errno));
            return false;
        }
        const size_t l_ulWritten = l_lWritten < 0 ? 0 : static_cast<size_t>(l_lWritten);
        const size_t l_ulHead = std::min(l_ulWritten, i_strHead.size());
        i_strHead.remove_prefix(l_ulHead);
        i_strText.remove_prefix(l_ulWritten - l_ulHead);
    }
    return true;
}

/** Whether the standard output was open when this library was loaded. */
constinit bool s_bStandardOutput = true;

[[gnu::constructor]] void LookAtStandardOutput()
{
    s_bStandardOutput = fcntl(STDOUT_FILENO, F_GETFD) >= 0;
}

/** Holds the lock of a stream, which another thread may keep for good: it waits for the reader. */
class CStreamLock
{
public:
    CStreamLock(std::FILE* i_pStream, std::chrono::steady_clock::time_point i_End)
        : m_pStream(i_pStream)
    {
        while (ftrylockfile(m_pStream) != 0) {
            if (std::chrono::steady_clock::now() >= i_End) {
                m_pStream = nullptr;
                return;
            }
            Sleep(1);
        }
    }
    CStreamLock(const CStreamLock&) = delete;
    CStreamLock& operator=(const CStreamLock&) = delete;
    ~CStreamLock()
    {
        if (m_pStream != nullptr) {
            funlockfile(m_pStream);
        }
    }
    explicit operator bool() const { return m_pStream != nullptr; }

private:
    std::FILE* m_pStream;
};

/** Waits until a write of a line would not block. A pipe takes 4096 bytes at least then. */
bool WaitForRoom(int i_lDescriptor, std::chrono::steady_clock::time_point i_End)
{
    pollfd l_Poll{i_lDescriptor, POLLOUT, 0};
    while (true) {
        const auto l_Left =
            std::chrono::ceil<std::chrono::milliseconds>(i_End - std::chrono::steady_clock::now());
        const int l_lReady =
            poll(&l_Poll, 1, static_cast<int>(std::max<int64_t>(l_Left.count(), 0)));
        if (l_lReady >= 0 || errno != EINTR) {
            return l_lReady != 0;
        }
    }
}

/** Keeps a write to a pipe without a reader from ending the process by SIGPIPE. A thread is not
 *  cancelled meanwhile. */
class CPipeGuard
{
public:
    CPipeGuard()
    {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_lCancelState);
        sigset_t l_Pending{};
        static_cast<void>(sigpending(&l_Pending));
        m_bWasPending = sigismember(&l_Pending, SIGPIPE) == 1;
        sigemptyset(&m_Pipe);
        sigaddset(&m_Pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_Pipe, &m_Before);
    }
    CPipeGuard(const CPipeGuard&) = delete;
    CPipeGuard& operator=(const CPipeGuard&) = delete;
    ~CPipeGuard()
    {
        // The signal of a write goes to its own thread: what is there now and was not before is ours.
        constexpr timespec k_Now{};
        while (!m_bWasPending && sigtimedwait(&m_Pipe, nullptr, &k_Now) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &m_Before, nullptr);
        pthread_setcancelstate(m_lCancelState, nullptr);
    }

private:
    sigset_t m_Pipe{};
    sigset_t m_Before{};
    bool m_bWasPending = false;
    int m_lCancelState = PTHREAD_CANCEL_ENABLE;
};

} // namespace

void RegisterDevice(const wchar_t* i_pwszName, std::shared_ptr<IDevice> i_pDevice)
{
    auto& l_Table = Resident<S_DEVICE_TABLE>();
    const wire::CLock l_Lock(l_Table.Mutex);
    l_Table.mapDevices[FoldCase(i_pwszName)] = std::move(i_pDevice);
}

void UnregisterDevice(const wchar_t* i_pwszName)
{
    auto& l_Table = Resident<S_DEVICE_TABLE>();
    const wire::CLock l_Lock(l_Table.Mutex);
    l_Table.mapDevices.erase(FoldCase(i_pwszName));
}

bool DeviceIoControl(Handle i_hDevice, uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize,
                     void* o_pOut, uint32_t i_ulOutSize, uint32_t* o_pulReturned)
{
    const auto l_pDevice = FindObject<CDeviceObject>(i_hDevice, E_OBJECT_KIND::DEVICE);
    uint32_t l_ulReturned = 0;
    const bool l_bDone =
        l_pDevice != nullptr &&
        l_pDevice->Get().IoControl(i_ulCode, i_pIn, i_ulInSize, o_pOut, i_ulOutSize, &l_ulReturned);
    if (o_pulReturned != nullptr) {
        *o_pulReturned = l_ulReturned;
    }
    return l_bDone;
}

Handle CreateFileW(const wchar_t* i_pwszName, uint32_t i_ulAccess, uint32_t, uint32_t, uint32_t)
try {
    Handle l_hObject = 0;
    if (i_pwszName == nullptr) {
        ::SetLastError(CECORE_ERROR_INVALID_PARAMETER);
    } else if (const std::shared_ptr<IDevice> l_pDevice = FindDevice(i_pwszName)) {
        if (l_pDevice->Open()) {
            l_hObject = CreateObject<CDeviceObject>(l_pDevice);
            if (l_hObject == 0) {
                l_pDevice->Close();
            }
        }
    } else {
        const bool l_bWrite = (i_ulAccess & GENERIC_WRITE) != 0;
        CDescriptor l_File = OpenRegular(FindFile(i_pwszName).Get(), l_bWrite ? O_RDWR : O_RDONLY);
        if (l_File) {
            l_hObject = CreateObject<CFileObject>(std::move(l_File));
        }
    }
    return l_hObject == 0 ? INVALID_HANDLE_VALUE : l_hObject;
} catch (const std::bad_alloc&) {
    ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
    return INVALID_HANDLE_VALUE;
}

uint32_t GetFileSize(Handle i_hFile, uint32_t* o_pulHigh)
{
    const auto l_pFile = FindObject<CFileObject>(i_hFile, E_OBJECT_KIND::FILE);
    struct stat l_Status = {};
    if (l_pFile == nullptr) {
        return INVALID_FILE_SIZE;
    }
    if (fstat(l_pFile->Get().Get(), &l_Status) != 0) {
        ::SetLastError(wire::SystemErrorOf(errno));
        return INVALID_FILE_SIZE;
    }
    const auto l_ullSize = static_cast<uint64_t>(l_Status.st_size);
    if (o_pulHigh != nullptr) {
        *o_pulHigh = static_cast<uint32_t>(l_ullSize >> 32);
    }
    return static_cast<uint32_t>(l_ullSize);
}

bool ReadFile(Handle i_hFile, void* o_pBuffer, uint32_t i_ulSize, uint32_t* o_pulRead)
{
    const auto l_pFile = FindObject<CFileObject>(i_hFile, E_OBJECT_KIND::FILE);
    uint32_t l_ulRead = 0;
    while (l_pFile != nullptr && l_ulRead < i_ulSize) {
        const ssize_t l_lRead = read(l_pFile->Get().Get(), static_cast<char*>(o_pBuffer) + l_ulRead,
                                     i_ulSize - l_ulRead);
        if (l_lRead < 0 && errno == EINTR) {
            continue;
        }
        if (l_lRead < 0) {
            ::SetLastError(wire::SystemErrorOf(errno));
            return false;
        }
        if (l_lRead == 0) {
            break;
        }
        l_ulRead += static_cast<uint32_t>(l_lRead);
    }
    if (o_pulRead != nullptr) {
        *o_pulRead = l_ulRead;
    }
    return l_pFile != nullptr;
}

CStream OpenForReading(const char* i_pszPath)
{
    CDescriptor l_File = OpenRegular(CSystemPath(i_pszPath).Get(), O_RDONLY);
    CStream l_pStream(l_File.Get() < 0 ? nullptr : fdopen(l_File.Get(), "r"));
    if (l_pStream != nullptr) {
        l_File.Release();
    }
    return l_pStream;
}

std::unique_ptr<char[]> MakeSystemPath(const char* i_pszPath)
{
    const CSystemPath l_Path(i_pszPath);
    const size_t l_ulSize = std::strlen(l_Path.Get()) + 1;
    std::unique_ptr<char[]> l_pszPath(new (std::nothrow) char[l_ulSize]);
    if (l_pszPath != nullptr) {
        std::copy_n(l_Path.Get(), l_ulSize, l_pszPath.get());
    }
    return l_pszPath;
}

bool AppendToFile(const char* i_pszPath, std::string_view i_strHead, std::string_view i_strText)
{
    const CDescriptor l_File = OpenRegular(i_pszPath, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW);
    return l_File && WriteAll(l_File.Get(), i_strHead, i_strText);
}

bool EmptyFile(const char* i_pszPath)
{
    const CDescriptor l_File = OpenRegular(i_pszPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
    return static_cast<bool>(l_File);
}

bool HasStandardOutput()
{
    return s_bStandardOutput && fcntl(STDOUT_FILENO, F_GETFD) >= 0;
}

bool WriteToConsole(std::FILE* i_pStream, std::string_view i_strHead, std::string_view i_strText,
                    uint32_t i_ulMilliseconds)
{
    const auto l_End =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(i_ulMilliseconds);
    const int l_lDescriptor = fileno(i_pStream);
    if (l_lDescriptor < 0) {
        ::SetLastError(CECORE_ERROR_INVALID_HANDLE);
        return false;
    }
    const CPipeGuard l_Guard;
    const CStreamLock l_Lock(i_pStream, l_End);
    bool l_bRoom = l_Lock && WaitForRoom(l_lDescriptor, l_End);
    if (l_bRoom) {
        // Past the stream: a host that prints wide characters has a stream that takes no others.
        static_cast<void>(std::fflush(i_pStream));
        l_bRoom = WaitForRoom(l_lDescriptor, l_End);
    }
    if (!l_bRoom) {
        ::SetLastError(CECORE_ERROR_TIMEOUT);
    }
    return l_bRoom && WriteAll(l_lDescriptor, i_strHead, i_strText);
}

} // namespace cecore

void CePrintError(const char* text)
{
    const uint32_t l_ulBefore = cecore::GetLastError();
    (void)cecore::WriteToConsole(stderr, text == nullptr ? "" : text, "\n");
    ::SetLastError(l_ulBefore);
}
