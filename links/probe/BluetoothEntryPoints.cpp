/**
 * @file BluetoothEntryPoints.cpp
 * @brief The three entry points of zondebtc6.dll.
 */
#include "TornvalLinks.h"
#include "links/probe/ProbeLink.h"

namespace {

links::CProbeLink& Link()
{
    static links::CProbeLink s_Link(
        {"zondebtc6", "bt", IOCTL_PBT_SEND_COMMAND, IOCTL_PBT_GET_RESULT});
    return s_Link;
}

} // namespace

extern "C" {

uint32_t PBT_Init(uint32_t /*port*/, const wchar_t* baud_rate, uint32_t /*timeout*/)
{
    return links::Guarded([&] {
        return baud_rate == nullptr ? links::Fail(CECORE_ERROR_INVALID_PARAMETER) : Link().Open();
    });
}

uint32_t PBT_Close(void)
{
    return links::Guarded([] { return Link().Close(); });
}

uint32_t PBT_DeviceIoControl(uint32_t /*device*/, uint32_t constant, uint32_t code, const void* in,
                             uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                             uint32_t /*zero*/)
{
    return links::Guarded([&] {
        return Link().Control({constant, code, in, in_size, out, out_size, count});
    });
}

/** Names what is behind the link: tornval tells where its values come from. */
TORNVAL_LINK_API const char* TornvalEmulated(void)
{
    return "emulated probe";
}

} // extern "C"
