#include "emulator/Firmware.h"

#include "emulator/Crc.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <array>

namespace emulator {

namespace {

/** A fault that overwrites a field of the answer. */
struct S_FIELD_FAULT
{
    E_FAULT eFault;
    size_t ulOffset;
    size_t ulWidth;
    std::optional<uint8_t> oucCmdeID; // the command whose answer has the field; none: all
};

constexpr std::array<S_FIELD_FAULT, 6> k_aFieldFaults{{
    {E_FAULT::ReturnCode, wire::k_ulReturnCodeOffset, 2, std::nullopt},
    {E_FAULT::ErrorCode, wire::k_ulErrorCodeOffset, 4, std::nullopt},
    {E_FAULT::CompressedSize, wire::k_ulBoardDataOffset, 4, wire::ACQUISITION_UPLOAD},
    {E_FAULT::Voie, wire::k_ulBoardDataOffset, 4, wire::MEASURE_INTERNE},
    {E_FAULT::MeasureStatus, wire::k_ulMeasureStatusOffset, 1, wire::COMMAND_MICROOHM_MEASURE},
    {E_FAULT::FrameSize, wire::k_ulSizeOffset, 2, std::nullopt},
}};

} // namespace

size_t FrameLength(std::span<const uint8_t> i_Bytes)
{
    if (i_Bytes.size() < wire::k_ulSizeOffset + 2) {
        return 0;
    }
    return wire::k_ulOuterHead + wire::GetNumber(i_Bytes, wire::k_ulSizeOffset, 2);
}

void SealFrame(std::span<uint8_t> io_Frame)
{
    wire::PutNumber(io_Frame, 0, 2, ComputeCrc(io_Frame.subspan(2)));
}

bool IsSealed(std::span<const uint8_t> i_Frame)
{
    return i_Frame.size() >= 2 && wire::GetNumber(i_Frame, 0, 2) == ComputeCrc(i_Frame.subspan(2));
}

bool CFirmware::Accept(std::span<const uint8_t> i_Frame)
{
    ++m_Counters.ulFramesIn;
    if (i_Frame.size() < wire::k_ulOuterHead + wire::k_ulMinSize ||
        FrameLength(i_Frame) != i_Frame.size()) {
        ++m_Counters.ulMalformed;
        return false;
    }
    if (!IsSealed(i_Frame)) {
        ++m_Counters.ulBadCrc;
        return false;
    }
    return true;
}

S_REPLY CFirmware::Handle(std::span<const uint8_t> i_Frame)
{
    const std::lock_guard l_Lock(m_Mutex);
    S_REPLY l_Reply;
    if (!Accept(i_Frame)) {
        return l_Reply;
    }
    const S_REQUEST l_Request{i_Frame[wire::k_ulCmdeOffset], i_Frame[wire::k_ulCanalOffset],
                              i_Frame[wire::k_ulParamOffset],
                              i_Frame.subspan(wire::k_ulDataOffset)};
    if (Faults().Take(E_FAULT::NoAnswer, l_Request.ucCmdeID)) {
        return l_Reply;
    }
    const S_BODY l_Body = Execute(l_Request);
    m_Counters.ulRefused += l_Body.bRefused ? 1 : 0;

    std::vector<uint8_t>& l_vFrame = l_Reply.vFrame;
    l_vFrame.resize(wire::k_ulDataOffset);
    l_vFrame.insert(l_vFrame.end(), l_Body.vData.begin(), l_Body.vData.end());
    l_vFrame.resize(std::min(l_vFrame.size(), wire::k_ulMaxFrame));
    wire::PutNumber(l_vFrame, wire::k_ulIdOffset, 2, AnswerId(l_Request.ucCmdeID));
    wire::PutNumber(l_vFrame, wire::k_ulSizeOffset, 2,
                    static_cast<uint32_t>(l_vFrame.size() - wire::k_ulOuterHead));
    l_vFrame[wire::k_ulCanalOffset] = l_Request.ucCanal;
    l_vFrame[wire::k_ulCmdeOffset] = l_Request.ucCmdeID;
    Spoil(l_vFrame, l_Request.ucCmdeID);

    l_Reply.bAnswered = true;
    l_Reply.ulDelayMs = Faults().Take(E_FAULT::Late, l_Request.ucCmdeID).value_or(0);
    ++m_Counters.ulFramesOut;
    return l_Reply;
}

/** Lets the faults at the finished frame, and seals it. */
void CFirmware::Spoil(std::vector<uint8_t>& io_vFrame, uint8_t i_ucCmdeID)
{
    for (const S_FIELD_FAULT& l_Field : k_aFieldFaults) {
        if (l_Field.ulOffset + l_Field.ulWidth > io_vFrame.size() ||
            l_Field.oucCmdeID.value_or(i_ucCmdeID) != i_ucCmdeID) {
            continue;
        }
        if (const auto l_oulValue = Faults().Take(l_Field.eFault, i_ucCmdeID)) {
            wire::PutNumber(io_vFrame, l_Field.ulOffset, l_Field.ulWidth, *l_oulValue);
        }
    }
    SealFrame(io_vFrame);
    if (const auto l_oulCount = Faults().Take(E_FAULT::Corrupt, i_ucCmdeID)) {
        // From the end on: the data first, the head last.
        const size_t l_ulCount = std::min<size_t>(*l_oulCount, io_vFrame.size());
        std::for_each(io_vFrame.end() - static_cast<std::ptrdiff_t>(l_ulCount), io_vFrame.end(),
                      [](uint8_t& io_ucByte) { io_ucByte ^= 0x55U; });
    }
    if (const auto l_oulLength = Faults().Take(E_FAULT::Short, i_ucCmdeID)) {
        io_vFrame.resize(std::min<size_t>(*l_oulLength, io_vFrame.size()));
    }
}

S_COUNTERS CFirmware::Counters() const
{
    const std::lock_guard l_Lock(m_Mutex);
    return m_Counters;
}

} // namespace emulator
