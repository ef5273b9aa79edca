/**
 * @file RsEntryPoints.cpp
 * @brief The six entry points of a serial link library, in front of its TheLink().
 */
#include "TornvalLinks.h"
#include "links/common/RsLink.h"

using links::Guarded;
using links::TheLink;

extern "C" {

uint32_t RS_Init(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                 uint32_t /*word1*/, uint32_t /*word2*/, uint32_t /*zero*/)
{
    return Guarded([&] { return TheLink().Open({port, constant, baud_rate, data_bits}); });
}

uint32_t RS_Init_Ex(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                    uint32_t /*word1*/, uint32_t /*word2*/, uint32_t /*zero*/,
                    uint32_t* link_handle)
{
    return Guarded([&] {
        return TheLink().OpenEx({port, constant, baud_rate, data_bits}, link_handle);
    });
}

uint32_t RS_DeviceIoControl(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                            void* out, uint32_t out_size, uint32_t* count, uint32_t /*zero*/)
{
    return Guarded([&] {
        return TheLink().Control({constant, code, in, in_size, out, out_size, count}, 0);
    });
}

uint32_t RS_DeviceIoControl_Ex(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                               void* out, uint32_t out_size, uint32_t* count, uint32_t /*zero*/,
                               uint32_t link_handle)
{
    return Guarded([&] {
        // 0 is what the caller has whose open failed. It must not reach the link of RS_Init().
        return link_handle == 0
                   ? links::Fail(CECORE_ERROR_INVALID_HANDLE)
                   : TheLink().Control({constant, code, in, in_size, out, out_size, count},
                                       link_handle);
    });
}

uint32_t RS_Close(void)
{
    return RS_Close_Ex(0);
}

uint32_t RS_Close_Ex(uint32_t link_handle)
{
    return Guarded([&] { return TheLink().Close(link_handle); });
}

} // extern "C"
