#include "emulator/SampleEncoder.h"

#include <algorithm>

namespace emulator {

CSampleEncoder::CSampleEncoder(size_t i_ulNbChannel, E_UNREACHABLE i_eUnreachable)
    : m_vPrevious(std::max<size_t>(i_ulNbChannel, 1)), m_eUnreachable(i_eUnreachable)
{
}

bool CSampleEncoder::Append(S_SAMPLE i_Sample)
{
    S_SAMPLE& l_Previous = m_vPrevious[m_ulChannel];
    // The difference is taken modulo 2^16, as the decoder adds it.
    const auto l_sStep = static_cast<int16_t>(static_cast<uint16_t>(i_Sample.sValue) -
                                              static_cast<uint16_t>(l_Previous.sValue));
    const bool l_bStep = i_Sample.bHighRange == l_Previous.bHighRange && l_sStep >= -k_lStepMax &&
                         l_sStep <= k_lStepMax;
    if (l_bStep) {
        const int l_lCode = l_sStep >= 0 ? 0x80 | l_sStep : 0xC0 | -l_sStep;
        m_vCodes.push_back(static_cast<uint8_t>(l_lCode));
    } else {
        const int32_t l_lValue =
            std::clamp<int32_t>(i_Sample.sValue, k_lAbsoluteMin, k_lAbsoluteMax);
        if (l_lValue != i_Sample.sValue) {
            if (m_eUnreachable == E_UNREACHABLE::Refuse) {
                return false;
            }
            i_Sample.sValue = static_cast<int16_t>(l_lValue);
            ++m_ulClamped;
        }
        // 13 bits of two's complement, the high ones first; bit 4 of the first byte is the sign.
        const uint32_t l_ulBits = static_cast<uint32_t>(l_lValue) & 0x1FFFU;
        const uint32_t l_ulRange = i_Sample.bHighRange ? 0x20U : 0U;
        m_vCodes.push_back(static_cast<uint8_t>(l_ulRange | (l_ulBits >> 8)));
        m_vCodes.push_back(static_cast<uint8_t>(l_ulBits));
    }
    l_Previous = i_Sample;
    m_ulChannel = (m_ulChannel + 1) % m_vPrevious.size();
    return true;
}

S_ENCODED EncodeSamples(std::span<const S_SAMPLE> i_Samples, size_t i_ulNbChannel,
                        E_UNREACHABLE i_eUnreachable)
{
    CSampleEncoder l_Encoder(i_ulNbChannel, i_eUnreachable);
    S_ENCODED l_Encoded;
    for (const S_SAMPLE& l_Sample : i_Samples) {
        if (!l_Encoder.Append(l_Sample)) {
            break;
        }
        ++l_Encoded.ulSamples;
    }
    l_Encoded.vCodes = l_Encoder.Codes();
    l_Encoded.ulClamped = l_Encoder.Clamped();
    return l_Encoded;
}

} // namespace emulator
