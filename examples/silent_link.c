/* A link library at its shortest: takes every command and answers none. Start from here. */
#include <TornvalLinks.h>
#include <cecore.h>

uint32_t RS_Init_Ex(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                    uint32_t word1, uint32_t word2, uint32_t zero, uint32_t* link_handle)
{
    (void)constant, (void)baud_rate, (void)data_bits, (void)word1, (void)word2, (void)zero;
    *link_handle = port;
    return 1;
}

uint32_t RS_Init(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                 uint32_t word1, uint32_t word2, uint32_t zero)
{
    uint32_t handle;
    return RS_Init_Ex(port, constant, baud_rate, data_bits, word1, word2, zero, &handle);
}

uint32_t RS_DeviceIoControl_Ex(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                               void* out, uint32_t out_size, uint32_t* count, uint32_t zero,
                               uint32_t link_handle)
{
    (void)constant, (void)code, (void)in, (void)in_size, (void)out, (void)out_size, (void)count;
    (void)zero, (void)link_handle;
    /* A real link puts the frame on its line here, and calls SetEvent() when the answer is there. */
    CeNoteReason(CECORE_ERROR_NOT_READY, "silent_link has nothing behind it");
    SetLastError(CECORE_ERROR_NOT_READY);
    return 0;
}

uint32_t RS_DeviceIoControl(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                            void* out, uint32_t out_size, uint32_t* count, uint32_t zero)
{
    return RS_DeviceIoControl_Ex(constant, code, in, in_size, out, out_size, count, zero, 0);
}

uint32_t RS_Close(void)
{
    return 1;
}

uint32_t RS_Close_Ex(uint32_t link_handle)
{
    (void)link_handle;
    return 1;
}
