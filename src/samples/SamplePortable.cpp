// The portable form of the decoder. Blocks of steps and blocks with few other codes go through loops
// that a processor predicts well; in the others no jump depends on a code.
#include "samples/SampleForms.h"

#include <bit>
#include <cmath>

#include "wire/Bytes.h"

namespace tornval {
namespace {

/** What a first byte says: the value is usBase, with the second byte and the value before as far as
 *  the masks let them through. */
struct S_CODE
{
    uint16_t usBase;
    uint16_t usSecond;
    uint16_t usKeep;
    uint8_t ucRangeKeep;
    uint8_t ucRange;
};

constexpr std::array<S_CODE, 256> MakeCodes()
{
    std::array<S_CODE, 256> l_aCodes{};
    for (unsigned l_ulFirst = 0; l_ulFirst < 256; ++l_ulFirst) {
        S_SAMPLE_STATE l_State;
        const uint8_t l_aucCode[2] = {static_cast<uint8_t>(l_ulFirst), 0};
        const bool l_bStep = DecodeSample(l_ulFirst, l_aucCode + 1, l_State) == 1;
        l_aCodes[l_ulFirst] = {l_State.usValue, static_cast<uint16_t>(l_bStep ? 0 : 0xFF),
                               static_cast<uint16_t>(l_bStep ? 0xFFFF : 0),
                               static_cast<uint8_t>(l_bStep ? 1 : 0), l_State.ucRange};
    }
    return l_aCodes;
}

constexpr std::array<S_CODE, 256> k_aCodes = MakeCodes();

constexpr uint64_t k_ullTops = 0x8080808080808080U;

/** Bytes with bit 7 clear among eight, the first one in bit 0. */
inline uint64_t ClearOf(const uint8_t* i_pucData)
{
    const uint64_t l_ullTops = ~wire::ReadLe64(i_pucData) & k_ullTops;
    return ((l_ullTops >> 7) * 0x0102040810204080U) >> 56;
}

/** The same among 64. */
inline uint64_t ClearOfBlock(const uint8_t* i_pucData)
{
    uint64_t l_ullClear = 0;
    for (size_t l_ul = 0; l_ul < 8; ++l_ul) {
        l_ullClear |= ClearOf(i_pucData + 8 * l_ul) << (8 * l_ul);
    }
    return l_ullClear;
}

inline void Apply(uint8_t i_ucFirst, unsigned i_ulSecond, S_SAMPLE_STATE& io_State)
{
    const S_CODE& l_Code = k_aCodes[i_ucFirst];
    io_State.usValue = static_cast<uint16_t>(l_Code.usBase + (i_ulSecond & l_Code.usSecond) +
                                             (io_State.usValue & l_Code.usKeep));
    io_State.ucRange =
        static_cast<uint8_t>((io_State.ucRange & l_Code.ucRangeKeep) | l_Code.ucRange);
}

// Up to that many absolute codes in a block are better met by surprise.
constexpr int k_lFew = 10;

/** A block whose codes are steps but for a few. The last code may end behind it. */
inline int32_t* DecodeFew(const uint8_t* i_pucData, const uint8_t* i_pucEnd,
                          S_SAMPLE_STATE& io_State, const int32_t (&i_alCoefs)[2],
                          int32_t* o_plNext)
{
    S_SAMPLE_STATE l_State = io_State;
    int32_t l_lCoef = i_alCoefs[l_State.ucRange];
    while (i_pucData < i_pucEnd) {
        const unsigned l_ulFirst = *i_pucData++;
        if ((l_ulFirst & 0x80U) != 0) {
            l_State.usValue = static_cast<uint16_t>(l_State.usValue + k_aCodes[l_ulFirst].usBase);
        } else {
            DecodeSample(l_ulFirst, i_pucData++, l_State);
            l_lCoef = i_alCoefs[l_State.ucRange];
        }
        *o_plNext++ = ScaleSampleValue(l_State.usValue, l_lCoef);
    }
    io_State = l_State;
    return o_plNext;
}

/** One channel, scaled by coefficients. */
size_t DecodeOnly(const S_STREAM& i_Stream, int32_t* o_plSamples)
{
    const S_CHANNEL_SCALE& l_Scale = i_Stream.Scaling.aChannels[0];
    const int32_t l_alCoefs[2] = {l_Scale.lLow, l_Scale.lHigh};
    const uint8_t* l_pucData = i_Stream.pucData;
    const uint8_t* const l_pucEnd = l_pucData + i_Stream.ulSize;
    int32_t* l_plNext = o_plSamples;
    int32_t* const l_plEnd = o_plSamples + RoomOf(i_Stream);
    S_SAMPLE_STATE l_State;
    CCodeStarts l_Starts;
    // More samples than bytes there are not: a block never runs past the room.
    while (l_pucEnd - l_pucData > static_cast<ptrdiff_t>(k_ulMaskBytes) &&
           l_plEnd - l_plNext >= static_cast<ptrdiff_t>(k_ulMaskBytes)) {
        const bool l_bInside = l_Starts.IsInside();
        auto [l_ullStarts, l_ullAbsolute] = l_Starts.Next(ClearOfBlock(l_pucData));
        if (l_ullAbsolute == 0 && !l_bInside) {
            const int32_t l_lCoef = l_alCoefs[l_State.ucRange];
            unsigned l_ulValue = l_State.usValue;
            const auto l_fnStep = [&](size_t i_ul) {
                l_ulValue += k_aCodes[l_pucData[i_ul]].usBase;
                l_plNext[i_ul] = ScaleSampleValue(static_cast<uint16_t>(l_ulValue), l_lCoef);
            };
            for (size_t l_ul = 0; l_ul < k_ulMaskBytes; l_ul += 4) {
                l_fnStep(l_ul);
                l_fnStep(l_ul + 1);
                l_fnStep(l_ul + 2);
                l_fnStep(l_ul + 3);
            }
            l_plNext += k_ulMaskBytes;
            l_State.usValue = static_cast<uint16_t>(l_ulValue);
        } else if (std::popcount(l_ullAbsolute) <= k_lFew) {
            l_plNext = DecodeFew(l_pucData + (l_bInside ? 1 : 0), l_pucData + k_ulMaskBytes,
                                 l_State, l_alCoefs, l_plNext);
        } else {
            for (; l_ullStarts != 0; l_ullStarts &= l_ullStarts - 1) {
                const uint8_t* l_pucCode = l_pucData + std::countr_zero(l_ullStarts);
                Apply(l_pucCode[0], l_pucCode[1], l_State);
                *l_plNext++ = ScaleSampleValue(l_State.usValue, l_alCoefs[l_State.ucRange]);
            }
        }
        l_pucData += k_ulMaskBytes;
    }
    l_pucData += l_Starts.IsInside() ? 1 : 0;
    while (l_plNext != l_plEnd) {
        const size_t l_ulLength =
            NextSample(l_pucData, static_cast<size_t>(l_pucEnd - l_pucData), l_State);
        if (l_ulLength == 0) {
            break;
        }
        l_pucData += l_ulLength;
        *l_plNext++ = ScaleSampleValue(l_State.usValue, l_alCoefs[l_State.ucRange]);
    }
    return static_cast<size_t>(l_plNext - o_plSamples);
}

size_t ReadWordsPortable(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount)
{
    while (i_ulCount < k_ulPartWords && io_Rest.Size() > k_ulMaskBytes) {
        const uint8_t* l_pucData = io_Rest.pucData;
        const bool l_bInside = io_Rest.Starts.IsInside();
        auto [l_ullStarts, l_ullAbsolute] = io_Rest.Starts.Next(ClearOfBlock(l_pucData));
        if (l_ullAbsolute == 0 && !l_bInside) {
            for (size_t l_ul = 0; l_ul < k_ulMaskBytes; ++l_ul) {
                o_pusWords[i_ulCount + l_ul] = static_cast<uint16_t>(l_pucData[l_ul] << 8);
            }
            i_ulCount += k_ulMaskBytes;
        } else {
            for (; l_ullStarts != 0; l_ullStarts &= l_ullStarts - 1) {
                const uint8_t* l_pucCode = l_pucData + std::countr_zero(l_ullStarts);
                o_pusWords[i_ulCount++] = static_cast<uint16_t>((l_pucCode[0] << 8) | l_pucCode[1]);
            }
        }
        io_Rest.pucData += k_ulMaskBytes;
    }
    return i_ulCount < k_ulPartWords ? ReadLastWords(io_Rest, o_pusWords, i_ulCount) : i_ulCount;
}

/** One channel of a part. @tparam i_bRanges whether the range of a sample counts. */
template <bool i_bRanges, typename Scale>
void DecodeChannelWords(const uint16_t* i_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels,
                        uint32_t i_ulChannel, Scale&& i_fnScale)
{
    const size_t l_ulStride = io_Channels.ulNbChannel;
    int32_t* l_plNext = io_Channels.aplNext[i_ulChannel];
    unsigned l_ulValue = io_Channels.ausValues[i_ulChannel];
    unsigned l_ulRange = io_Channels.ausRanges[i_ulChannel];
    for (size_t l_ul = i_ulChannel; l_ul < i_ulCount; l_ul += l_ulStride) {
        const unsigned l_ulWord = i_pusWords[l_ul];
        const S_CODE& l_Code = k_aCodes[l_ulWord >> 8];
        l_ulValue = l_Code.usBase + (l_ulWord & l_Code.usSecond) + (l_ulValue & l_Code.usKeep);
        if constexpr (i_bRanges) {
            l_ulRange = (l_ulRange & l_Code.ucRangeKeep) | l_Code.ucRange;
        }
        *l_plNext++ = i_fnScale(static_cast<uint16_t>(l_ulValue), l_ulRange);
    }
    io_Channels.aplNext[i_ulChannel] = l_plNext;
    io_Channels.ausValues[i_ulChannel] = static_cast<uint16_t>(l_ulValue);
    io_Channels.ausRanges[i_ulChannel] = static_cast<uint16_t>(l_ulRange);
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

void DecodeWordsPortable(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels)
{
    for (uint32_t l_ul = 0; l_ul < io_Channels.ulNbChannel; ++l_ul) {
        const S_CHANNEL_SCALE l_Scale = io_Channels.Scaling.aChannels[l_ul];
        const auto l_fnDecode = [&](auto&& i_fnScale) {
            DecodeChannelWords<false>(io_pusWords, i_ulCount, io_Channels, l_ul, i_fnScale);
        };
        const auto l_fnCalibrate = [l_dA = l_Scale.dA, l_dB = l_Scale.dB](uint16_t i_usValue) {
            return Calibrate(static_cast<int16_t>(i_usValue), l_dA, l_dB);
        };
        if (io_Channels.aplNext[l_ul] == nullptr) {
            continue; // and nobody asks for its values
        }
        if (io_Channels.eCalibration == E_CALIBRATION::NONE) {
            const int32_t l_alCoefs[2] = {l_Scale.lLow, l_Scale.lHigh};
            DecodeChannelWords<true>(io_pusWords, i_ulCount, io_Channels, l_ul,
                                     [&](uint16_t i_usValue, unsigned i_ulRange) {
                                         return ScaleSampleValue(i_usValue, l_alCoefs[i_ulRange]);
                                     });
        } else if (io_Channels.eCalibration != E_CALIBRATION::SATURATES) {
            int32_t* const l_plFirst = io_Channels.aplNext[l_ul];
            l_fnDecode([](uint16_t i_usValue, unsigned) -> int32_t {
                return static_cast<int16_t>(i_usValue);
            });
            CalibrateInPlace(l_plFirst, io_Channels.aplNext[l_ul], l_Scale);
        } else {
            l_fnDecode([&](uint16_t i_usValue, unsigned) {
                return TruncateToInt32(l_fnCalibrate(i_usValue));
            });
        }
    }
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
    int32_t* l_plOnly = i_Stream.pplArrays[0];
    return i_Stream.ulNbChannel == 1 && !i_Stream.Scaling.bCalibrated && l_plOnly != nullptr
               ? DecodeOnly(i_Stream, l_plOnly)
               : DecodeInParts(i_Stream, ReadWordsPortable, DecodeWordsPortable);
}

} // namespace tornval
