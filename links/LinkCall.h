/**
 * @file LinkCall.h
 * @brief What the entry points of all link libraries have in common.
 */
#ifndef LINKS_LINK_CALL_H
#define LINKS_LINK_CALL_H

#include "cecore.h"
#include "platform/File.h"

#include <cstdint>
#include <cstdio>
#include <string>

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

/** Tells what is wrong with the settings of an instrument: a link has no other way to say it. */
inline void Complain(const char* i_pszLibrary, const std::string& i_strError)
{
    const std::string l_strLine = i_pszLibrary + (": " + i_strError + "\n");
    (void)cecore::WriteToConsole(stderr, l_strLine.data(), l_strLine.size());
}

/** Runs the operation behind an entry point; nothing is thrown into the caller. */
template <typename T_OPERATION>
uint32_t Guarded(T_OPERATION i_Operation)
{
    try {
        return i_Operation();
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

#endif // LINKS_LINK_CALL_H
