/**
 * @file EntryPoints.cpp
 * @brief The entry points of all three kinds of link libraries, in front of the captured ones.
 */
#include "TornvalLinks.h"
#include "links/capture/Capture.h"

using links::Guarded;
using links::TheCapture;
using E_LIBRARY = wire::E_CAPTURE_LIBRARY;
using E_FUNCTION = wire::E_CAPTURE_FUNCTION;

extern "C" {

uint32_t RS_Init(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                 uint32_t word1, uint32_t word2, uint32_t zero)
{
    return Guarded([&] {
        return TheCapture().Call<PFN_RS_INIT>(
            E_LIBRARY::Serial, E_FUNCTION::Init, L"RS_Init",
            {port, constant, baud_rate, data_bits, word1, word2, zero}, {}, [&](PFN_RS_INIT i_pFn) {
                return i_pFn(port, constant, baud_rate, data_bits, word1, word2, zero);
            });
    });
}

uint32_t RS_Init_Ex(uint32_t port, uint32_t constant, uint32_t baud_rate, uint32_t data_bits,
                    uint32_t word1, uint32_t word2, uint32_t zero, uint32_t* link_handle)
{
    return Guarded([&] {
        return TheCapture().Call<PFN_RS_INIT_EX>(
            E_LIBRARY::Serial, E_FUNCTION::InitEx, L"RS_Init_Ex",
            {port, constant, baud_rate, data_bits, word1, word2, zero}, {},
            [&](PFN_RS_INIT_EX i_pFn) {
                return i_pFn(port, constant, baud_rate, data_bits, word1, word2, zero, link_handle);
            },
            link_handle);
    });
}

uint32_t RS_DeviceIoControl(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                            void* out, uint32_t out_size, uint32_t* count, uint32_t zero)
{
    return Guarded([&] {
        return TheCapture().Control<PFN_RS_DEVICEIOCONTROL>(
            E_LIBRARY::Serial, E_FUNCTION::Control, L"RS_DeviceIoControl",
            {constant, code, in, in_size, out, out_size, count}, 0, zero, 0,
            [&](PFN_RS_DEVICEIOCONTROL i_pFn) {
                return i_pFn(constant, code, in, in_size, out, out_size, count, zero);
            });
    });
}

uint32_t RS_DeviceIoControl_Ex(uint32_t constant, uint32_t code, const void* in, uint32_t in_size,
                               void* out, uint32_t out_size, uint32_t* count, uint32_t zero,
                               uint32_t link_handle)
{
    return Guarded([&] {
        return TheCapture().Control<PFN_RS_DEVICEIOCONTROL_EX>(
            E_LIBRARY::Serial, E_FUNCTION::ControlEx, L"RS_DeviceIoControl_Ex",
            {constant, code, in, in_size, out, out_size, count}, 0, zero, link_handle,
            [&](PFN_RS_DEVICEIOCONTROL_EX i_pFn) {
                return i_pFn(constant, code, in, in_size, out, out_size, count, zero, link_handle);
            });
    });
}

uint32_t RS_Close(void)
{
    return Guarded([] {
        return TheCapture().Call<PFN_RS_CLOSE>(E_LIBRARY::Serial, E_FUNCTION::Close, L"RS_Close",
                                               {}, {}, [](PFN_RS_CLOSE i_pFn) { return i_pFn(); });
    });
}

uint32_t RS_Close_Ex(uint32_t link_handle)
{
    return Guarded([&] {
        return TheCapture().Call<PFN_RS_CLOSE_EX>(
            E_LIBRARY::Serial, E_FUNCTION::CloseEx, L"RS_Close_Ex", {link_handle}, {},
            [&](PFN_RS_CLOSE_EX i_pFn) { return i_pFn(link_handle); });
    });
}

uint32_t PBT_Init(uint32_t port, const wchar_t* baud_rate, uint32_t timeout)
{
    return Guarded([&] {
        std::vector<uint8_t> l_vBaudRate;
        for (const wchar_t* l_pwcText = baud_rate;
             l_pwcText != nullptr && *l_pwcText != 0 && l_vBaudRate.size() < 256; ++l_pwcText) {
            l_vBaudRate.push_back(static_cast<uint8_t>(*l_pwcText));
        }
        return TheCapture().Call<PFN_PBT_INIT>(
            E_LIBRARY::Bluetooth, E_FUNCTION::Init, L"PBT_Init", {port, timeout},
            std::move(l_vBaudRate),
            [&](PFN_PBT_INIT i_pFn) { return i_pFn(port, baud_rate, timeout); });
    });
}

uint32_t PBT_Close(void)
{
    return Guarded([] {
        return TheCapture().Call<PFN_PROBE_CLOSE>(E_LIBRARY::Bluetooth, E_FUNCTION::Close,
                                                  L"PBT_Close", {}, {},
                                                  [](PFN_PROBE_CLOSE i_pFn) { return i_pFn(); });
    });
}

uint32_t PUSB_Init(uint32_t port)
{
    return Guarded([&] {
        return TheCapture().Call<PFN_PUSB_INIT>(E_LIBRARY::Usb, E_FUNCTION::Init, L"PUSB_Init",
                                                {port}, {},
                                                [&](PFN_PUSB_INIT i_pFn) { return i_pFn(port); });
    });
}

uint32_t PUSB_Close(void)
{
    return Guarded([] {
        return TheCapture().Call<PFN_PROBE_CLOSE>(E_LIBRARY::Usb, E_FUNCTION::Close, L"PUSB_Close",
                                                  {}, {},
                                                  [](PFN_PROBE_CLOSE i_pFn) { return i_pFn(); });
    });
}

} // extern "C"

namespace {

uint32_t ProbeControl(E_LIBRARY i_eLibrary, const wchar_t* i_pwszEntry, uint32_t i_ulDevice,
                      const links::S_CONTROL& i_Control, uint32_t i_ulZero)
{
    return Guarded([&] {
        return TheCapture().Control<PFN_PROBE_DEVICEIOCONTROL>(
            i_eLibrary, E_FUNCTION::Control, i_pwszEntry, i_Control, i_ulDevice, i_ulZero, 0,
            [&](PFN_PROBE_DEVICEIOCONTROL i_pFn) {
                return i_pFn(i_ulDevice, i_Control.ulConstant, i_Control.ulCode, i_Control.pIn,
                             i_Control.ulInSize, i_Control.pOut, i_Control.ulOutSize,
                             i_Control.pulCount, i_ulZero);
            });
    });
}

} // namespace

extern "C" {

uint32_t PBT_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code, const void* in,
                             uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                             uint32_t zero)
{
    return ProbeControl(E_LIBRARY::Bluetooth, L"PBT_DeviceIoControl", device,
                        {constant, code, in, in_size, out, out_size, count}, zero);
}

uint32_t PUSB_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code, const void* in,
                              uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                              uint32_t zero)
{
    return ProbeControl(E_LIBRARY::Usb, L"PUSB_DeviceIoControl", device,
                        {constant, code, in, in_size, out, out_size, count}, zero);
}

} // extern "C"
