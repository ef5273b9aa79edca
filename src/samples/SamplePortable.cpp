// The portable form of the decoder. Jumps depend on what a block of 64 bytes has in all, and on a single code
// only at the end of a stream.
#include "samples/SampleForms.h"

#include <bit>
#include <cmath>

#include "wire/Bytes.h"

namespace tornval {
namespace {

/** A value, with bit 31 set in high range. Bits between them are carries, which the next code drops. */
using State = uint32_t;
constexpr State k_ulHighRange = 0x80000000U;

/** What a byte makes of a state: what it keeps, and then adds. */
struct S_BYTE
{
    State ulKeep;
    State ulAdd;
};

/** Place of second bytes behind first ones. */
constexpr unsigned k_ulSecond = 256;

constexpr std::array<S_BYTE, 512> MakeBytes()
{
    std::array<S_BYTE, 512> l_aBytes{};
    for (unsigned l_ulByte = 0; l_ulByte < 256; ++l_ulByte) {
        S_SAMPLE_STATE l_State;
        const uint8_t l_ucSecond = 0;
        const bool l_bStep = DecodeSample(l_ulByte, &l_ucSecond, l_State) == 1;
        l_aBytes[l_ulByte] = {l_bStep ? 0xFFFFU | k_ulHighRange : 0U,
                              l_State.usValue | (l_State.ucRange != 0 ? k_ulHighRange : 0U)};
        l_aBytes[k_ulSecond + l_ulByte] = {~State{0}, l_ulByte};
    }
    return l_aBytes;
}

constexpr std::array<S_BYTE, 512> k_aBytes = MakeBytes();

/** For each mask of eight bytes: how many are set before each, and in all. */
constexpr std::array<std::array<uint8_t, 9>, 256> MakeCounts()
{
    std::array<std::array<uint8_t, 9>, 256> l_aCounts{};
    for (unsigned l_ulMask = 0; l_ulMask < 256; ++l_ulMask) {
        for (unsigned l_ulBit = 0; l_ulBit < 8; ++l_ulBit) {
            l_aCounts[l_ulMask][l_ulBit + 1] =
                static_cast<uint8_t>(l_aCounts[l_ulMask][l_ulBit] + ((l_ulMask >> l_ulBit) & 1U));
        }
    }
    return l_aCounts;
}

constexpr std::array<std::array<uint8_t, 9>, 256> k_aCounts = MakeCounts();

/** The state behind a byte. */
inline State After(unsigned i_ulByte, State i_ulBefore)
{
    return (i_ulBefore & k_aBytes[i_ulByte].ulKeep) + k_aBytes[i_ulByte].ulAdd;
}

constexpr uint64_t k_ullTops = 0x8080808080808080U;

/** The top bits of eight bytes, the first one in bit 0. */
inline uint64_t GatherTops(uint64_t i_ullBytes)
{
    return (((i_ullBytes & k_ullTops) >> 7) * 0x0102040810204080U) >> 56;
}

/** A bit of each byte of a block. */
template <unsigned i_ulBit>
inline uint64_t BitsOfBlock(const uint8_t* i_pucData)
{
    uint64_t l_ullBits = 0;
#pragma GCC unroll 8
    for (size_t l_ul = 0; l_ul < 8; ++l_ul) {
        l_ullBits |= GatherTops(wire::ReadLe64(i_pucData + 8 * l_ul) << (7 - i_ulBit))
                     << (8 * l_ul);
    }
    return l_ullBits;
}

inline uint64_t ClearOfBlock(const uint8_t* i_pucData)
{
    return ~BitsOfBlock<7>(i_pucData);
}

inline int32_t ScaleState(State i_ulState, const int32_t (&i_alCoefs)[2])
{
    return ScaleSampleValue(static_cast<uint16_t>(i_ulState), i_alCoefs[i_ulState >> 31]);
}

/**
 * Decodes a block byte by byte, with no jump that depends on one: each byte makes a sample, and the next one
 * takes its place unless it ended a code.
 *
 * @return the end of the samples.
 */
template <typename Scale>
inline int32_t* DecodeBlock(const uint8_t* i_pucData, uint64_t i_ullStarts, uint64_t i_ullAbsolute,
                            State& io_ulState, int32_t* o_plNext, Scale&& i_fnScale)
{
    State l_ulState = io_ulState;
    for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 8) {
        const auto l_ulSeconds = static_cast<unsigned>(~i_ullStarts & 0xFFU);
        const auto& l_Ends = k_aCounts[~i_ullAbsolute & 0xFFU];
#pragma GCC unroll 8
        for (unsigned l_ulByte = 0; l_ulByte < 8; ++l_ulByte) {
            const unsigned l_ulSecond = (l_ulSeconds << (8 - l_ulByte)) & k_ulSecond;
            l_ulState = After(i_pucData[l_ul + l_ulByte] | l_ulSecond, l_ulState);
            o_plNext[l_Ends[l_ulByte]] = i_fnScale(l_ulState);
        }
        o_plNext += l_Ends[8];
        i_ullStarts >>= 8;
        i_ullAbsolute >>= 8;
    }
    io_ulState = l_ulState;
    return o_plNext;
}

/** One channel, scaled by the coefficients of low and high range. */
size_t DecodeOnly(const S_STREAM& i_Stream, const int32_t (&i_alCoefs)[2], int32_t* o_plSamples)
{
    const uint8_t* l_pucData = i_Stream.pucData;
    const uint8_t* const l_pucEnd = l_pucData + i_Stream.ulSize;
    int32_t* l_plNext = o_plSamples;
    int32_t* const l_plEnd = o_plSamples + RoomOf(i_Stream);
    State l_ulState = 0;
    CCodeStarts l_Starts;
    // More samples than bytes there are not: a block never runs past the room.
    while (l_pucEnd - l_pucData > static_cast<ptrdiff_t>(k_ulMaskBytes) &&
           l_plEnd - l_plNext >= static_cast<ptrdiff_t>(k_ulMaskBytes)) {
        const bool l_bInside = l_Starts.IsInside();
        const auto l_Masks = l_Starts.Next(ClearOfBlock(l_pucData));
        if (l_Masks.ullAbsolute == 0 && !l_bInside) {
            const int32_t l_lCoef = i_alCoefs[l_ulState >> 31];
            unsigned l_ulValue = l_ulState;
            const auto l_fnStep = [&](size_t i_ul) {
                l_ulValue += k_aBytes[l_pucData[i_ul]].ulAdd;
                l_plNext[i_ul] = ScaleSampleValue(static_cast<uint16_t>(l_ulValue), l_lCoef);
            };
            for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 4) {
                l_fnStep(l_ul);
                l_fnStep(l_ul + 1);
                l_fnStep(l_ul + 2);
                l_fnStep(l_ul + 3);
            }
            l_plNext += k_ulMaskBytes;
            l_ulState = (l_ulState & k_ulHighRange) | (l_ulValue & 0xFFFFU);
        } else {
            const uint64_t l_ullHigh = l_Masks.ullAbsolute & BitsOfBlock<5>(l_pucData);
            const State l_ulRange = l_ulState & k_ulHighRange;
            if (l_ullHigh == (l_ulRange != 0 ? l_Masks.ullAbsolute : 0)) {
                const int32_t l_lCoef = i_alCoefs[l_ulRange != 0 ? 1 : 0];
                l_plNext = DecodeBlock(l_pucData, l_Masks.ullStarts, l_Masks.ullAbsolute, l_ulState,
                                       l_plNext, [l_lCoef](State i_ulState) {
                                           return ScaleSampleValue(static_cast<uint16_t>(i_ulState),
                                                                   l_lCoef);
                                       });
            } else {
                l_plNext = DecodeBlock(
                    l_pucData, l_Masks.ullStarts, l_Masks.ullAbsolute, l_ulState, l_plNext,
                    [&i_alCoefs](State i_ulState) { return ScaleState(i_ulState, i_alCoefs); });
            }
        }
        l_pucData += k_ulMaskBytes;
    }
    if (l_Starts.IsInside()) {
        l_ulState = After(k_ulSecond | *l_pucData++, l_ulState);
        *l_plNext++ = ScaleState(l_ulState, i_alCoefs);
    }
    S_SAMPLE_STATE l_State{static_cast<uint16_t>(l_ulState), static_cast<uint8_t>(l_ulState >> 31)};
    while (l_plNext != l_plEnd) {
        const size_t l_ulLength =
            NextSample(l_pucData, static_cast<size_t>(l_pucEnd - l_pucData), l_State);
        if (l_ulLength == 0) {
            break;
        }
        l_pucData += l_ulLength;
        *l_plNext++ = ScaleSampleValue(l_State.usValue, i_alCoefs[l_State.ucRange]);
    }
    return static_cast<size_t>(l_plNext - o_plSamples);
}

/** The words of a block in which every byte starts one: but for the last, they are steps. */
void WidenBlock(const uint8_t* i_pucData, uint16_t* o_pusWords)
{
    std::array<uint8_t, k_ulMaskBytes> l_aucFirst;
    std::array<uint16_t, k_ulMaskBytes> l_ausWords;
    std::copy_n(i_pucData, k_ulMaskBytes, l_aucFirst.begin());
    // A loop over what nobody else has: a compiler makes vectors of it.
    for (size_t l_ul = 0; l_ul < k_ulMaskBytes; ++l_ul) {
        l_ausWords[l_ul] = static_cast<uint16_t>(l_aucFirst[l_ul] << 8);
    }
    std::copy(l_ausWords.begin(), l_ausWords.end(), o_pusWords);
    o_pusWords[k_ulMaskBytes - 1] =
        static_cast<uint16_t>(o_pusWords[k_ulMaskBytes - 1] | i_pucData[k_ulMaskBytes]);
}

size_t ReadWordsPortable(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount)
{
    uint16_t* l_pusNext = o_pusWords + i_ulCount;
    while (l_pusNext < o_pusWords + k_ulPartWords && io_Rest.Size() > k_ulMaskBytes) {
        const uint8_t* const l_pucData = io_Rest.pucData;
        uint64_t l_ullStarts = io_Rest.Starts.Next(ClearOfBlock(l_pucData)).ullStarts;
        io_Rest.pucData += k_ulMaskBytes;
        if (l_ullStarts == ~uint64_t{0}) {
            WidenBlock(l_pucData, l_pusNext);
            l_pusNext += k_ulMaskBytes;
            continue;
        }
        for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 8, l_ullStarts >>= 8) {
            // The next word takes the place of one that does not start here.
            const auto& l_Before = k_aCounts[l_ullStarts & 0xFFU];
#pragma GCC unroll 8
            for (size_t l_ulByte = 0; l_ulByte < 8; ++l_ulByte) {
                l_pusNext[l_Before[l_ulByte]] =
                    std::rotl(wire::ReadLe16(l_pucData + l_ul + l_ulByte), 8);
            }
            l_pusNext += l_Before[8];
        }
    }
    i_ulCount = static_cast<size_t>(l_pusNext - o_pusWords);
    return i_ulCount < k_ulPartWords ? ReadLastWords(io_Rest, o_pusWords, i_ulCount) : i_ulCount;
}

/** The state behind a code. */
inline State AfterWord(uint16_t i_usWord, State i_ulBefore)
{
    const S_BYTE& l_First = k_aBytes[i_usWord >> 8];
    const State l_ulSecond = i_usWord & 0xFFU;
    return (((i_ulBefore ^ l_ulSecond) & l_First.ulKeep) ^ l_ulSecond) + l_First.ulAdd;
}

/** Some channels of a part, from one on: none waits for another. @param i_fnScale called with state and
 *  channel. */
template <size_t i_ulNbTogether, typename Scale>
void DecodeChannelWords(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels,
                        size_t i_ulFirst, Scale&& i_fnScale)
{
    const size_t l_ulStride = io_Channels.ulNbChannel;
    const size_t l_ulWhole = i_ulCount / l_ulStride;
    const size_t l_ulMore = i_ulCount % l_ulStride; // channels that have one more
    int32_t* l_aplNext[i_ulNbTogether];
    State l_aulStates[i_ulNbTogether];
#pragma GCC unroll 3
    for (size_t l_ul = 0; l_ul < i_ulNbTogether; ++l_ul) {
        l_aplNext[l_ul] = io_Channels.aplNext[i_ulFirst + l_ul];
        l_aulStates[l_ul] = io_Channels.ausValues[i_ulFirst + l_ul] |
                            (io_Channels.ausRanges[i_ulFirst + l_ul] != 0 ? k_ulHighRange : 0U);
    }
    const uint16_t* l_pusRound = i_pusWords + i_ulFirst;
    for (size_t l_ulRound = 0; l_ulRound < l_ulWhole; ++l_ulRound, l_pusRound += l_ulStride) {
#pragma GCC unroll 3
        for (size_t l_ul = 0; l_ul < i_ulNbTogether; ++l_ul) {
            l_aulStates[l_ul] = AfterWord(l_pusRound[l_ul], l_aulStates[l_ul]);
            l_aplNext[l_ul][l_ulRound] = i_fnScale(l_aulStates[l_ul], i_ulFirst + l_ul);
        }
    }
#pragma GCC unroll 3
    for (size_t l_ul = 0; l_ul < i_ulNbTogether; ++l_ul) {
        l_aplNext[l_ul] += l_ulWhole;
        if (i_ulFirst + l_ul < l_ulMore) {
            l_aulStates[l_ul] = AfterWord(l_pusRound[l_ul], l_aulStates[l_ul]);
            *l_aplNext[l_ul]++ = i_fnScale(l_aulStates[l_ul], i_ulFirst + l_ul);
        }
        io_Channels.aplNext[i_ulFirst + l_ul] = l_aplNext[l_ul];
        io_Channels.ausValues[i_ulFirst + l_ul] = static_cast<uint16_t>(l_aulStates[l_ul]);
        io_Channels.ausRanges[i_ulFirst + l_ul] = static_cast<uint16_t>(l_aulStates[l_ul] >> 31);
    }
}

/** Calibrates values, none of which saturates. */
void CalibrateInPlace(int32_t* io_plNext, const int32_t* i_plEnd, const S_CHANNEL_SCALE& i_Scale)
{
    const double l_dA = i_Scale.dA;
    const double l_dB = i_Scale.dB;
    // A loop of known length: a compiler makes vectors of it.
    constexpr ptrdiff_t k_lBlock = 8;
    for (; i_plEnd - io_plNext >= k_lBlock; io_plNext += k_lBlock) {
        for (ptrdiff_t l_l = 0; l_l < k_lBlock; ++l_l) {
            io_plNext[l_l] = static_cast<int32_t>(Calibrate(io_plNext[l_l], l_dA, l_dB));
        }
    }
    for (; io_plNext != i_plEnd; ++io_plNext) {
        *io_plNext = static_cast<int32_t>(Calibrate(*io_plNext, l_dA, l_dB));
    }
}

/** Some channels of a part, all of which are filled. */
template <size_t i_ulNbTogether>
void DecodeTogether(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels,
                    size_t i_ulFirst)
{
    const auto l_fnDecode = [&](auto&& i_fnScale) {
        DecodeChannelWords<i_ulNbTogether>(i_pusWords, i_ulCount, io_Channels, i_ulFirst,
                                           i_fnScale);
    };
    const auto& l_aScales = io_Channels.Scaling.aChannels;
    if (io_Channels.eCalibration == E_CALIBRATION::NONE) {
        l_fnDecode([&](State i_ulState, size_t i_ulChannel) {
            const S_CHANNEL_SCALE& l_Scale = l_aScales[i_ulChannel];
            return ScaleSampleValue(static_cast<uint16_t>(i_ulState),
                                    (i_ulState & k_ulHighRange) != 0 ? l_Scale.lHigh
                                                                     : l_Scale.lLow);
        });
    } else if (io_Channels.eCalibration == E_CALIBRATION::SATURATES) {
        l_fnDecode([&](State i_ulState, size_t i_ulChannel) {
            const S_CHANNEL_SCALE& l_Scale = l_aScales[i_ulChannel];
            return TruncateToInt32(
                Calibrate(static_cast<int16_t>(i_ulState), l_Scale.dA, l_Scale.dB));
        });
    } else {
        std::array<int32_t*, i_ulNbTogether> l_aplFirst;
        std::copy_n(io_Channels.aplNext.begin() + i_ulFirst, i_ulNbTogether, l_aplFirst.begin());
        l_fnDecode(
            [](State i_ulState, size_t) -> int32_t { return static_cast<int16_t>(i_ulState); });
        for (size_t l_ul = 0; l_ul < i_ulNbTogether; ++l_ul) {
            CalibrateInPlace(l_aplFirst[l_ul], io_Channels.aplNext[i_ulFirst + l_ul],
                             l_aScales[i_ulFirst + l_ul]);
        }
    }
}

void DecodeWordsPortable(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    for (size_t l_ul = 0; l_ul < io_Channels.ulNbChannel;) {
        const auto l_fnFilled = [&](size_t i_ulNb) {
            return l_ul + i_ulNb <= io_Channels.ulNbChannel &&
                   std::find(&io_Channels.aplNext[l_ul], &io_Channels.aplNext[l_ul] + i_ulNb,
                             nullptr) == &io_Channels.aplNext[l_ul] + i_ulNb;
        };
        if (l_fnFilled(3)) {
            DecodeTogether<3>(io_pusWords, i_ulCount, io_Channels, l_ul);
            l_ul += 3;
        } else if (l_fnFilled(2)) {
            DecodeTogether<2>(io_pusWords, i_ulCount, io_Channels, l_ul);
            l_ul += 2;
        } else {
            if (l_fnFilled(1)) { // else nobody asks for its values
                DecodeTogether<1>(io_pusWords, i_ulCount, io_Channels, l_ul);
            }
            ++l_ul;
        }
    }
}

/** The only channel of a stream, whose measures neither saturate nor are left out. */
size_t DecodeOnly(const S_STREAM& i_Stream)
{
    const S_CHANNEL_SCALE& l_Scale = i_Stream.Scaling.aChannels[0];
    int32_t* const l_plSamples = i_Stream.pplArrays[0];
    if (!i_Stream.Scaling.bCalibrated) {
        return DecodeOnly(i_Stream, {l_Scale.lLow, l_Scale.lHigh}, l_plSamples);
    }
    const size_t l_ulCount = DecodeOnly(i_Stream, {1, 1}, l_plSamples);
    CalibrateInPlace(l_plSamples, l_plSamples + l_ulCount, l_Scale);
    return l_ulCount;
}

} // namespace

E_CALIBRATION CalibrationOf(const S_SCALING& i_Scaling, uint32_t i_ulNbChannel)
{
    if (!i_Scaling.bCalibrated) {
        return E_CALIBRATION::NONE;
    }
    constexpr double k_dMostValue = 32768.0;
    const auto l_fnAll = [&](auto&& i_fnIs) {
        return std::all_of(i_Scaling.aChannels.begin(), i_Scaling.aChannels.begin() + i_ulNbChannel,
                           i_fnIs);
    };
    if (l_fnAll([](const S_CHANNEL_SCALE& i_Scale) {
            // Not for what is not a number.
            return std::fabs(i_Scale.dA) < k_dMostValue &&
                   std::fabs(i_Scale.dA) * k_dMostValue + std::fabs(i_Scale.dB) < 2147483647.0 &&
                   std::trunc(i_Scale.dA) == i_Scale.dA && std::trunc(i_Scale.dB) == i_Scale.dB;
        })) {
        return E_CALIBRATION::WHOLE;
    }
    return l_fnAll([](const S_CHANNEL_SCALE& i_Scale) {
        const double l_dMost = std::fabs(i_Scale.dA) * k_dMostValue + std::fabs(i_Scale.dB);
        return l_dMost * 0.0001 < 2147483000.0;
    })
               ? E_CALIBRATION::FITS
               : E_CALIBRATION::SATURATES;
}

size_t ReadLastWords(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount)
{
    const uint8_t* l_pucData = io_Rest.pucData + (io_Rest.Starts.IsInside() ? 1 : 0);
    while (l_pucData != io_Rest.pucEnd) {
        const unsigned l_ulFirst = *static_cast<const volatile uint8_t*>(l_pucData++);
        unsigned l_ulSecond = 0;
        if ((l_ulFirst & 0x80U) == 0) {
            if (l_pucData == io_Rest.pucEnd) {
                break;
            }
            l_ulSecond = *l_pucData++;
            io_Rest.ullHigh |= l_ulFirst & 0x20U;
        }
        o_pusWords[i_ulCount++] = static_cast<uint16_t>((l_ulFirst << 8) | l_ulSecond);
    }
    io_Rest.pucData = io_Rest.pucEnd;
    io_Rest.Starts = {};
    return i_ulCount;
}

size_t DecodeInParts(const S_STREAM& i_Stream, ReadWords i_pfnRead, DecodeWords i_pfnDecode)
{
    alignas(32) uint16_t l_ausWords[k_ulWordRoom];
    S_REST l_Rest{i_Stream.pucData, i_Stream.pucData + i_Stream.ulSize, {}};
    S_CHANNELS l_Channels{i_Stream.Scaling,
                          CalibrationOf(i_Stream.Scaling, i_Stream.ulNbChannel),
                          i_Stream.ulNbChannel,
                          {},
                          {},
                          {}};
    std::copy_n(i_Stream.pplArrays, i_Stream.ulNbChannel, l_Channels.aplNext.begin());
    const size_t l_ulRoom = RoomOf(i_Stream);
    size_t l_ulTotal = 0;
    size_t l_ulRead = 0;
    do {
        l_ulRead = i_pfnRead(l_Rest, l_ausWords, l_ulRead);
        PadWords(l_ausWords + l_ulRead);
        const bool l_bEnd = l_Rest.Size() == 0;
        const size_t l_ulPart = std::min(
            l_bEnd ? l_ulRead : l_ulRead - l_ulRead % i_Stream.ulNbChannel, l_ulRoom - l_ulTotal);
        i_pfnDecode(l_ausWords, l_ulPart, l_Channels);
        l_ulTotal += l_ulPart;
        l_ulRead -= l_ulPart;
        std::copy_n(l_ausWords + l_ulPart, l_ulRead, l_ausWords);
        if (l_bEnd) {
            break;
        }
    } while (l_ulTotal < l_ulRoom);
    return l_ulTotal;
}

size_t DecodeStreamPortable(const S_STREAM& i_Stream)
{
    return i_Stream.ulNbChannel == 1 && i_Stream.pplArrays[0] != nullptr &&
                   CalibrationOf(i_Stream.Scaling, 1) != E_CALIBRATION::SATURATES
               ? DecodeOnly(i_Stream)
               : DecodeInParts(i_Stream, ReadWordsPortable, DecodeWordsPortable);
}

} // namespace tornval
