/**
 * @file LinkCall.h
 * @brief What the entry points of all link libraries have in common.
 */
#pragma once

#include "cecore.h"

#include <cstdint>
#include <string>

#include <cxxabi.h>
#include <pthread.h>

#include <unistd.h>

namespace links {

/** A control call, as it comes in. */
struct S_CONTROL
{
    uint32_t ulConstant;
    uint32_t ulCode;
    const void* pIn;
    uint32_t ulInSize;
    void* pOut;
    uint32_t ulOutSize;
    uint32_t* pulCount;
};

/** Leaves the reason of a failure, and gives the result that says so. */
inline uint32_t Fail(uint32_t i_ulError)
{
    SetLastError(i_ulError);
    return 0;
}

/** Tells on the standard error output what goes wrong on a link that is open. */
inline void Complain(const char* i_pszLibrary, const std::string& i_strTrouble)
{
    CePrintError((i_pszLibrary + (": " + i_strTrouble)).c_str());
}

/** Tells why a link does not open, there and as a reason for the host. @return the error. */
inline uint32_t Refuse(const char* i_pszLibrary, uint32_t i_ulError, const std::string& i_strReason)
{
    CeNoteReason(i_ulError, i_strReason.c_str());
    Complain(i_pszLibrary, i_strReason);
    return i_ulError;
}

/**
 * Holds off the cancelling of the calling thread, for the life of this object: where files are opened
 * and closed, a thread that goes would leave the link half done, or end the process in a destructor.
 * Where a link waits for an answer a thread may go.
 */
class CNotCancelled
{
public:
    CNotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_lBefore); }
    CNotCancelled(const CNotCancelled&) = delete;
    CNotCancelled& operator=(const CNotCancelled&) = delete;
    ~CNotCancelled() { pthread_setcancelstate(m_lBefore, nullptr); }

private:
    int m_lBefore = PTHREAD_CANCEL_ENABLE;
};

/** Runs the operation behind an entry point; nothing is thrown into the caller but the cancelling of
 *  its thread, which must pass: whoever holds it up ends the process. */
template <typename T_OPERATION>
uint32_t Guarded(T_OPERATION i_Operation)
{
    try {
        return i_Operation();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return Fail(CECORE_ERROR_NOT_ENOUGH_MEMORY);
    }
}

/**
 * The link of a library: goes with the library, and its threads with it. Not in a forked child, which
 * has none of the threads and perhaps their locks: there it is left alone.
 */
template <typename T_LINK>
class COfOneProcess
{
public:
    COfOneProcess() : m_pLink(new T_LINK) {}
    COfOneProcess(const COfOneProcess&) = delete;
    COfOneProcess& operator=(const COfOneProcess&) = delete;
    ~COfOneProcess()
    {
        if (getpid() == m_lOwner) {
            delete m_pLink;
        }
    }

    T_LINK& operator*() const { return *m_pLink; }

private:
    const pid_t m_lOwner = getpid();
    T_LINK* const m_pLink;
};

} // namespace links
