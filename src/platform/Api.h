/**
 * @file Api.h
 * @brief What all headers of the core services share: visibility, handles, error numbers.
 */
#pragma once

#include <cstdint>

#include "cecore.h"

namespace cecore {

/**
 * A kernel object: 32 bits that also travel in frames. Holds the object's kind and a generation, so
 * that a handle which was closed is refused and never reaches another object. Never 0 or -1.
 */
using Handle = uint32_t;

/** What a failed open gives where the system does not give 0. */
inline constexpr Handle INVALID_HANDLE_VALUE = 0xFFFFFFFFU;

/** The system's error numbers that these services set, beside those of cecore.h. */
inline constexpr uint32_t ERROR_SUCCESS = 0;
inline constexpr uint32_t ERROR_PATH_NOT_FOUND = 3;
inline constexpr uint32_t ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr uint32_t ERROR_MOD_NOT_FOUND = 126;
inline constexpr uint32_t ERROR_PROC_NOT_FOUND = 127;
inline constexpr uint32_t ERROR_BAD_EXE_FORMAT = 193;
inline constexpr uint32_t ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr uint32_t ERROR_MORE_DATA = 234;
inline constexpr uint32_t ERROR_NOT_OWNER = 288;

/** The calling thread's last-error value. A call that succeeds leaves it alone. */
CECORE_API uint32_t GetLastError();

/**
 * Gives a handle of any kind back.
 *
 * A thread that waits for the object ends its wait as failed. @return false, with error 6, if there
 * is no such object (any more).
 */
CECORE_API bool CloseHandle(Handle i_hObject);

/** Number of handles now open in the process, for tests that look for leaks. */
CECORE_API uint32_t GetOpenHandleCount();

/**
 * Whether the process ends. What a library gives back when it is unloaded is left alone then: threads
 * that nobody joined may still use it.
 */
CECORE_API bool IsProcessEnding();

/** Owner of one handle; closes it at the end of its life. */
class CUniqueHandle
{
public:
    CUniqueHandle() = default;
    explicit CUniqueHandle(Handle i_hObject) : m_hObject(i_hObject) {}
    CUniqueHandle(const CUniqueHandle&) = delete;
    CUniqueHandle& operator=(const CUniqueHandle&) = delete;
    CUniqueHandle(CUniqueHandle&& io_Other) noexcept : m_hObject(io_Other.Release()) {}
    CUniqueHandle& operator=(CUniqueHandle&& io_Other) noexcept
    {
        Reset(io_Other.Release());
        return *this;
    }
    ~CUniqueHandle() { Reset(); }

    [[nodiscard]] Handle Get() const { return m_hObject; }
    explicit operator bool() const { return m_hObject != 0; }
    /** For calls that fill a handle; what was held is closed first. */
    [[nodiscard]] Handle* Receive()
    {
        Reset();
        return &m_hObject;
    }
    Handle Release()
    {
        const Handle l_hObject = m_hObject;
        m_hObject = 0;
        return l_hObject;
    }
    void Reset(Handle i_hObject = 0)
    {
        if (m_hObject != 0) {
            CloseHandle(m_hObject);
        }
        m_hObject = i_hObject;
    }

private:
    Handle m_hObject = 0;
};

} // namespace cecore
