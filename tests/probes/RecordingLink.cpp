#include "RecordingLink.h"

#include <algorithm>

#include "TornvalLinks.h"
#include "cecore.h"

extern "C" TORNVAL_LINK_API S_RECORDING_LINK* RecordingLink()
{
    static S_RECORDING_LINK s_Link;
    return &s_Link;
}

namespace {

uint32_t Result()
{
    if (RecordingLink()->ulResult == 0) {
        SetLastError(RecordingLink()->ulLastError);
    }
    return RecordingLink()->ulResult;
}

uint32_t Note(std::string i_strCall)
{
    RecordingLink()->vstrOpenings.push_back(std::move(i_strCall));
    return Result();
}

uint32_t Control(uint32_t i_ulSendCode, S_LINK_CALL i_Call, void* o_pOut, uint32_t* o_pulCount)
{
    S_RECORDING_LINK& l_Link = *RecordingLink();
    std::vector<uint8_t> l_vOut = l_Link.vReply;
    if (i_Call.ulCode == i_ulSendCode) {
        l_vOut = {0xA0, 0xA1, 0xA2, 0xA3};
        for (unsigned l_ulShift = 0; l_ulShift < 32; l_ulShift += 8) {
            l_vOut.push_back(static_cast<uint8_t>(l_Link.ulNbReturnByte >> l_ulShift));
        }
    }
    *o_pulCount = i_Call.ulCode == i_ulSendCode ? l_Link.ulAckCount : 0xFFFFFFFF;
    const size_t l_ulSize = std::min<size_t>(l_vOut.size(), i_Call.ulOutSize);
    std::copy_n(l_vOut.begin(), l_ulSize, static_cast<uint8_t*>(o_pOut));
    l_Link.vCalls.push_back(std::move(i_Call));
    return Result();
}

std::vector<uint8_t> BytesOf(const void* i_pIn, uint32_t i_ulSize)
{
    const auto* l_pucIn = static_cast<const uint8_t*>(i_pIn);
    return {l_pucIn, l_pucIn + i_ulSize};
}

} // namespace

uint32_t PBT_Init(uint32_t port, const wchar_t* baud_rate, uint32_t timeout)
{
    std::string l_strBaudRate;
    for (; *baud_rate != 0; ++baud_rate) {
        l_strBaudRate += static_cast<char>(*baud_rate);
    }
    return Note("PBT_Init " + std::to_string(port) + " " + l_strBaudRate + " " +
                std::to_string(timeout));
}
uint32_t PUSB_Init(uint32_t port)
{
    return Note("PUSB_Init " + std::to_string(port));
}
uint32_t PBT_Close()
{
    return Note("PBT_Close");
}
uint32_t PUSB_Close()
{
    return Note("PUSB_Close");
}
uint32_t PBT_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code, const void* in,
                             uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                             uint32_t zero)
{
    return Control(IOCTL_PBT_SEND_COMMAND,
                   {device, constant, code, out_size, zero, BytesOf(in, in_size)}, out, count);
}
uint32_t PUSB_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code, const void* in,
                              uint32_t in_size, void* out, uint32_t out_size, uint32_t* count,
                              uint32_t zero)
{
    return Control(IOCTL_PUSB_SEND_COMMAND,
                   {device, constant, code, out_size, zero, BytesOf(in, in_size)}, out, count);
}
