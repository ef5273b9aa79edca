#include "instrument/LineNoise.h"

#include "emulator/Firmware.h"

#include <algorithm>

namespace emulator {

namespace {

/** Most places that are damaged in one answer, and most bytes lost or added at one. */
constexpr size_t k_ulMostPlaces = 4;
constexpr size_t k_ulMostBytes = 8;

} // namespace

CLineNoise::CLineNoise(double i_dShare, uint32_t i_ulSeed)
    : m_Engine(i_ulSeed),
      m_ulShare(static_cast<uint32_t>(std::clamp(i_dShare, 0.0, 1.0) * 4294967295.0))
{
}

/** A number from 0 to one below the limit; 0 for a limit of 0. */
uint32_t CLineNoise::Below(size_t i_ulLimit)
{
    const auto l_ulNumber = static_cast<uint32_t>(m_Engine());
    return static_cast<uint32_t>((static_cast<uint64_t>(l_ulNumber) * i_ulLimit) >> 32U);
}

void CLineNoise::DamageOnce(std::vector<uint8_t>& io_vAnswer)
{
    const size_t l_ulPlace = Below(io_vAnswer.size() + 1);
    const auto l_itPlace = io_vAnswer.begin() + static_cast<std::ptrdiff_t>(l_ulPlace);
    const size_t l_ulBytes = 1 + Below(k_ulMostBytes);
    switch (Below(3)) {
    case 0: // lost
        io_vAnswer.erase(l_itPlace, l_itPlace + static_cast<std::ptrdiff_t>(std::min(
                                                    l_ulBytes, io_vAnswer.size() - l_ulPlace)));
        break;
    case 1: { // added
        std::vector<uint8_t> l_vAdded(l_ulBytes);
        std::generate(l_vAdded.begin(), l_vAdded.end(),
                      [this] { return static_cast<uint8_t>(Below(256)); });
        io_vAnswer.insert(l_itPlace, l_vAdded.begin(), l_vAdded.end());
        break;
    }
    default: // flipped
        if (l_itPlace != io_vAnswer.end()) {
            *l_itPlace = static_cast<uint8_t>(*l_itPlace ^ (1U + Below(255)));
        }
    }
}

void CLineNoise::Damage(std::vector<uint8_t>& io_vAnswer)
{
    if (m_Engine() >= m_ulShare) {
        return;
    }
    const std::vector<uint8_t> l_vBefore = io_vAnswer;
    for (size_t l_ulPlaces = 1 + Below(k_ulMostPlaces); l_ulPlaces > 0 || io_vAnswer == l_vBefore;
         l_ulPlaces -= l_ulPlaces > 0 ? 1 : 0) {
        DamageOnce(io_vAnswer);
    }
    ++m_Counters.ullDamaged;
    const size_t l_ulLength = FrameLength(io_vAnswer);
    if (l_ulLength == 0 || l_ulLength > io_vAnswer.size()) {
        return;
    }
    const auto l_Frame = std::span(io_vAnswer).first(l_ulLength);
    if (std::equal(l_Frame.begin(), l_Frame.end(), l_vBefore.begin(), l_vBefore.end())) {
        ++m_Counters.ullIntact;
    } else if (IsSealed(l_Frame)) {
        ++m_Counters.ullMatching;
    }
}

} // namespace emulator
