#include "instrument/LineNoise.h"

#include "emulator/Firmware.h"

#include <algorithm>

namespace emulator {

namespace {

/** Most places that are damaged in one answer, and most bytes lost or added at one. */
constexpr size_t k_ulMostPlaces = 4;
constexpr size_t k_ulMostBytes = 8;
/** Most bytes of a flood, and longest pause between the pieces of an answer. */
constexpr size_t k_ulMostFlood = 20'000;
constexpr std::chrono::milliseconds k_MostPause{3};

} // namespace

CLineNoise::CLineNoise(const S_TROUBLE& i_Trouble)
    : m_Trouble(i_Trouble), m_Engine(i_Trouble.ulSeed)
{
}

/** Rolls the dice, but not for what never happens: the rest then stays the same. */
bool CLineNoise::Happens(double i_dShare)
{
    return i_dShare > 0 &&
           static_cast<double>(m_Engine()) <= std::clamp(i_dShare, 0.0, 1.0) * 4294967295.0;
}

std::chrono::milliseconds CLineNoise::UpTo(std::chrono::milliseconds i_Most)
{
    return std::chrono::milliseconds(Below(static_cast<size_t>(i_Most.count()) + 1));
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
        const std::vector<uint8_t> l_vAdded = Garbage(l_ulBytes);
        io_vAnswer.insert(l_itPlace, l_vAdded.begin(), l_vAdded.end());
        break;
    }
    default: // flipped
        if (l_itPlace != io_vAnswer.end()) {
            *l_itPlace = static_cast<uint8_t>(*l_itPlace ^ (1U + Below(255)));
        }
    }
}

std::vector<uint8_t> CLineNoise::Garbage(size_t i_ulBytes)
{
    std::vector<uint8_t> l_vGarbage(i_ulBytes);
    std::generate(l_vGarbage.begin(), l_vGarbage.end(),
                  [this] { return static_cast<uint8_t>(Below(256)); });
    return l_vGarbage;
}

std::vector<CLineNoise::S_PIECE> CLineNoise::Carry(std::vector<uint8_t> i_vAnswer)
{
    std::vector<S_PIECE> l_vPieces;
    if (Happens(m_Trouble.dNoise)) {
        Damage(i_vAnswer);
    }
    auto l_Delay =
        Happens(m_Trouble.dDelay) ? UpTo(m_Trouble.DelayMost) : std::chrono::milliseconds(0);
    if (Happens(m_Trouble.dFlood)) {
        l_vPieces.push_back({l_Delay, Garbage(1 + Below(k_ulMostFlood))});
    }
    const size_t l_ulCopies =
        (Happens(m_Trouble.dLoss) ? 0 : 1) + (Happens(m_Trouble.dTwice) ? 1 : 0);
    for (size_t l_ulCopy = 0; l_ulCopy < l_ulCopies; ++l_ulCopy) {
        l_Delay += l_ulCopy == 0 ? std::chrono::milliseconds(0) : UpTo(m_Trouble.EchoMost);
        const size_t l_ulFirst =
            Happens(m_Trouble.dSplit) ? Below(i_vAnswer.size()) : i_vAnswer.size();
        const auto l_itSplit = i_vAnswer.begin() + static_cast<std::ptrdiff_t>(l_ulFirst);
        l_vPieces.push_back({l_Delay, {i_vAnswer.begin(), l_itSplit}});
        if (l_itSplit != i_vAnswer.end()) {
            l_Delay += UpTo(k_MostPause);
            l_vPieces.push_back({l_Delay, {l_itSplit, i_vAnswer.end()}});
        }
    }
    return l_vPieces;
}

void CLineNoise::Damage(std::vector<uint8_t>& io_vAnswer)
{
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
