// A link library that does what it is told, whatever that is: all entry points of all kinds of link
// in one file. Its script is the host's, which finds it with dlsym.

#include "HostileLink.h"

#include <algorithm>
#include <cstring>

#include <unistd.h>

#include "TornvalLinks.h"
#include "cecore.h"

#define LINK_EXPORT extern "C" __attribute__((visibility("default")))

LINK_EXPORT S_HOSTILE_SCRIPT g_HostileScript;
S_HOSTILE_SCRIPT g_HostileScript;

namespace {

S_HOSTILE_STEP NextStep()
{
    S_HOSTILE_SCRIPT& l_Script = g_HostileScript;
    return l_Script.pfnNext == nullptr ? S_HOSTILE_STEP{} : l_Script.pfnNext(l_Script.pContext);
}

/** Gives the bytes of a step; what they do not fill is left alone. */
void Fill(const S_HOSTILE_STEP& i_Step, void* o_pOut, uint32_t i_ulOutSize)
{
    if (o_pOut != nullptr && i_Step.ulSize != 0) {
        std::memcpy(o_pOut, i_Step.pucBytes, std::min(i_Step.ulSize, i_ulOutSize));
    }
}

uint32_t Call(const void* i_pIn, uint32_t i_ulInSize, void* o_pOut, uint32_t i_ulOutSize,
              uint32_t* o_pulCount)
{
    const S_HOSTILE_STEP l_Step = NextStep();
    Fill(l_Step, o_pOut, i_ulOutSize);
    if (o_pulCount != nullptr && l_Step.bCount) {
        *o_pulCount = l_Step.ulCount;
    }
    if (l_Step.bSignal && i_ulInSize == RS_BLOCK_SIZE) {
        uint32_t l_ulEvent = 0;
        std::memcpy(&l_ulEvent, static_cast<const char*>(i_pIn) + RS_BLOCK_EVENT_OFFSET, 4);
        SetEvent(l_ulEvent);
    }
    if (l_Step.bThrow) {
        throw 5;
    }
    SetLastError(l_Step.ulError);
    return l_Step.ulResult;
}

} // namespace

// The words of each entry point, as far as it has them: constant and code, in, out, count, the rest.
#define CONTROL(name, ...)                                                                         \
    LINK_EXPORT uint32_t name(__VA_ARGS__ uint32_t, uint32_t, const void* i_pIn,                   \
                              uint32_t i_ulInSize, void* o_pOut, uint32_t i_ulOutSize,             \
                              uint32_t* o_pulCount, uint32_t)                                      \
    {                                                                                              \
        return Call(i_pIn, i_ulInSize, o_pOut, i_ulOutSize, o_pulCount);                           \
    }
#define PLAIN(name, ...)                                                                           \
    LINK_EXPORT uint32_t name(__VA_ARGS__)                                                         \
    {                                                                                              \
        return Call(nullptr, 0, nullptr, 0, nullptr);                                              \
    }

PLAIN(RS_Init, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)
PLAIN(RS_Close)
PLAIN(RS_Close_Ex, uint32_t)
PLAIN(PBT_Init, uint32_t, const wchar_t*, uint32_t)
PLAIN(PBT_Close)
PLAIN(PUSB_Init, uint32_t)
PLAIN(PUSB_Close)
CONTROL(RS_DeviceIoControl)
CONTROL(PBT_DeviceIoControl, uint32_t, )
CONTROL(PUSB_DeviceIoControl, uint32_t, )
LINK_EXPORT uint32_t RS_Init_Ex(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                uint32_t, uint32_t* o_pulHandle)
{
    return Call(nullptr, 0, o_pulHandle, 4, nullptr);
}
LINK_EXPORT uint32_t RS_DeviceIoControl_Ex(uint32_t, uint32_t, const void* i_pIn,
                                           uint32_t i_ulInSize, void* o_pOut, uint32_t i_ulOutSize,
                                           uint32_t* o_pulCount, uint32_t, uint32_t)
{
    return Call(i_pIn, i_ulInSize, o_pOut, i_ulOutSize, o_pulCount);
}
