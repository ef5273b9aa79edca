/**
 * @file Link.h
 * @brief The library over a link that the fuzzer plays, in this process and without waiting.
 */
#pragma once

#include <string>

#include <dlfcn.h>

#include "Fuzz.h"
#include "TestHome.h"
#include "trust/FastClock.h"
#include "trust/HostileLink.h"

#ifndef FUZZED_SIMULATION
#define FUZZED_SIMULATION ""
#endif

/** A home whose configuration names the hostile link for all drivers; the clock does not wait. */
class CFuzzedHome : public CTestHome
{
public:
    explicit CFuzzedHome(const std::string& i_strMore = "") : CTestHome(Sections() + i_strMore)
    {
        HurryClock(0);
        void* l_pLibrary = dlopen(HOSTILE_LINK, RTLD_NOW);
        Require(l_pLibrary != nullptr);
        m_pScript = static_cast<S_HOSTILE_SCRIPT*>(dlsym(l_pLibrary, "g_HostileScript"));
        Require(m_pScript != nullptr);
    }

    /** Lets a function answer the calls of the link until it goes; then each call succeeds. */
    template <typename F>
    class CPlay
    {
    public:
        CPlay(const CFuzzedHome& i_Home, F i_fnNext)
            : m_Script(*i_Home.m_pScript), m_fnNext(std::move(i_fnNext))
        {
            m_Script.pfnNext = [](void* i_pPlay) {
                return static_cast<CPlay*>(i_pPlay)->m_fnNext();
            };
            m_Script.pContext = this;
        }
        CPlay(const CPlay&) = delete;
        CPlay& operator=(const CPlay&) = delete;
        ~CPlay() { m_Script.pfnNext = nullptr; }

    private:
        S_HOSTILE_SCRIPT& m_Script;
        F m_fnNext;
    };

    static std::string Sections()
    {
        const std::string l_strName = FUZZED_SIMULATION "DRIVER_NAME=" HOSTILE_LINK "\n";
        return "[IM]\n" + l_strName + "CHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n[BT]\n" + l_strName +
               "LOAD=1\n[USB]\n" + l_strName + "LOAD=1\n";
    }

private:
    S_HOSTILE_SCRIPT* m_pScript = nullptr;
};
