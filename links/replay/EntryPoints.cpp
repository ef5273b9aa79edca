/**
 * @file EntryPoints.cpp
 * @brief The entry points of all three kinds of link libraries, in front of a captured session.
 */
#include "TornvalLinks.h"
#include "links/replay/Replay.h"

using links::Guarded;
using E_LIBRARY = wire::E_CAPTURE_LIBRARY;
using E_FUNCTION = wire::E_CAPTURE_FUNCTION;

namespace {

links::CReplay& Replay()
{
    static const links::COfOneProcess<links::CReplay> s_Replay;
    return *s_Replay;
}

uint32_t Call(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, std::vector<uint32_t> i_vWords,
              uint32_t* o_pulHandle = nullptr)
{
    return Replay().Call(i_eLibrary, i_eFunction, std::move(i_vWords), {}, o_pulHandle);
}

} // namespace

extern "C" {

uint32_t RS_Init(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                 uint32_t word1, uint32_t word2, uint32_t zero)
{
    return Guarded([&] {
        return Call(E_LIBRARY::Serial, E_FUNCTION::Init,
                    {port, constant, baud_rate, data_bits, word1, word2, zero});
    });
}

uint32_t RS_Init_Ex(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                    uint32_t word1, uint32_t word2, uint32_t zero, uint32_t* link_handle)
{
    return Guarded([&] {
        return Call(E_LIBRARY::Serial, E_FUNCTION::InitEx,
                    {port, constant, baud_rate, data_bits, word1, word2, zero}, link_handle);
    });
}

uint32_t RS_DeviceIoControl(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                            void* out, uint32_t out_size, uint32_t* count, uint32_t zero)
{
    return Guarded([&] {
        return Replay().Control(E_LIBRARY::Serial, E_FUNCTION::Control,
                                {constant, code, in, in_size, out, out_size, count}, 0, zero, 0);
    });
}

uint32_t RS_DeviceIoControl_Ex(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                               void* out, uint32_t out_size, uint32_t* count, uint32_t zero,
                               uint32_t link_handle)
{
    return Guarded([&] {
        return Replay().Control(E_LIBRARY::Serial, E_FUNCTION::ControlEx,
                                {constant, code, in, in_size, out, out_size, count}, 0, zero,
                                link_handle);
    });
}

uint32_t RS_Close(void)
{
    return Guarded([] { return Call(E_LIBRARY::Serial, E_FUNCTION::Close, {}); });
}

uint32_t RS_Close_Ex(uint32_t link_handle)
{
    return Guarded([&] { return Call(E_LIBRARY::Serial, E_FUNCTION::CloseEx, {link_handle}); });
}

uint32_t PBT_Init(uint32_t port, const wchar_t* baud_rate, uint32_t timeout)
{
    return Guarded([&] {
        std::vector<uint8_t> l_vBaudRate;
        for (; baud_rate != nullptr && *baud_rate != 0 && l_vBaudRate.size() < 256; ++baud_rate) {
            l_vBaudRate.push_back(static_cast<uint8_t>(*baud_rate));
        }
        return Replay().Call(E_LIBRARY::Bluetooth, E_FUNCTION::Init, {port, timeout},
                             std::move(l_vBaudRate));
    });
}

uint32_t PBT_Close(void)
{
    return Guarded([] { return Call(E_LIBRARY::Bluetooth, E_FUNCTION::Close, {}); });
}

uint32_t PBT_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code, const void* in,
                             uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                             uint32_t zero)
{
    return Guarded([&] {
        return Replay().Control(E_LIBRARY::Bluetooth, E_FUNCTION::Control,
                                {constant, code, in, in_size, out, out_size, count}, device, zero,
                                0);
    });
}

uint32_t PUSB_Init(uint32_t port)
{
    return Guarded([&] { return Call(E_LIBRARY::Usb, E_FUNCTION::Init, {port}); });
}

uint32_t PUSB_Close(void)
{
    return Guarded([] { return Call(E_LIBRARY::Usb, E_FUNCTION::Close, {}); });
}

uint32_t PUSB_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code, const void* in,
                              uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                              uint32_t zero)
{
    return Guarded([&] {
        return Replay().Control(E_LIBRARY::Usb, E_FUNCTION::Control,
                                {constant, code, in, in_size, out, out_size, count}, device, zero,
                                0);
    });
}

} // extern "C"
