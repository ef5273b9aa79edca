/**
 * @file UsbEntryPoints.cpp
 * @brief The three entry points of zondeusbc6.dll.
 */
#include "TornvalLinks.h"
#include "links/probe/ProbeLink.h"

namespace {

links::CProbeLink& Link()
{
    static links::CProbeLink s_Link(
        {"zondeusbc6", "usb", IOCTL_PUSB_SEND_COMMAND, IOCTL_PUSB_GET_RESULT});
    return s_Link;
}

} // namespace

extern "C" {

uint32_t PUSB_Init(uint32_t /*port*/)
{
    return links::Guarded([] { return Link().Open(); });
}

uint32_t PUSB_Close(void)
{
    return links::Guarded([] { return Link().Close(); });
}

uint32_t PUSB_DeviceIoControl(uint32_t /*device*/, uint32_t constant, uint32_t code, const void* in,
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
