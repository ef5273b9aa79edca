/**
 * @file SampleForms.h
 * @brief What the forms of the decoder share, inside this room.
 */
#pragma once

#include <algorithm>

#include "samples/SampleCode.h"

namespace tornval {

/** Bytes that are looked at together: a mask has a bit for each. */
inline constexpr size_t k_ulMaskBytes = 64;

/**
 * Finds where codes start.
 *
 * A byte with bit 7 clear is the first of a two-byte code, unless it is the second byte of one
 * itself; so in a run of such bytes every other one is a first, and the byte behind a run of odd
 * length is a second one whatever it holds.
 */
class CCodeStarts
{
public:
    struct S_MASKS
    {
        uint64_t ullStarts;   /**< bytes that are the first of a code */
        uint64_t ullAbsolute; /**< those of them that start a two-byte code */
    };

    /** @param i_ullClear bytes of the next 64 with bit 7 clear, the first one in bit 0. */
    S_MASKS Next(uint64_t i_ullClear)
    {
        constexpr uint64_t k_ullOdd = 0xAAAAAAAAAAAAAAAAU;
        const uint64_t l_ullFirst = i_ullClear & ~m_ullInside;
        // The subtraction runs through each series and so tells the parity of every place in it.
        const uint64_t l_ullParity = (((l_ullFirst << 1) | k_ullOdd) - l_ullFirst) ^ k_ullOdd;
        const S_MASKS l_Masks{~(l_ullParity ^ (i_ullClear | m_ullInside)),
                              l_ullParity & i_ullClear};
        m_ullInside = l_Masks.ullAbsolute >> 63;
        return l_Masks;
    }

    /** Whether the next byte is the second one of a code. */
    [[nodiscard]] bool IsInside() const { return m_ullInside != 0; }

private:
    uint64_t m_ullInside = 0;
};

/** Samples that a stream has room for in all; no more than it has bytes, and so samples at most. */
inline size_t RoomOf(const S_STREAM& i_Stream)
{
    // Not by the product alone, which does not fit into 32 bits for every room.
    return i_Stream.ulMaxSamples > i_Stream.ulSize / i_Stream.ulNbChannel
               ? i_Stream.ulSize
               : size_t{i_Stream.ulMaxSamples} * i_Stream.ulNbChannel;
}

/** Code words of a stream that are decoded together. */
inline constexpr size_t k_ulPartWords = 768;

/** Room for those, for what the last block adds and for what a vector reads behind them. */
inline constexpr size_t k_ulWordRoom = k_ulPartWords + 2 * k_ulMaskBytes;

/** Puts steps of zero behind the words, as far as a vector reaches. */
inline void PadWords(uint16_t* o_pusEnd)
{
    std::fill_n(o_pusEnd, 32, uint16_t{0x8000});
}

/** What is left of a stream. */
struct S_REST
{
    const uint8_t* pucData;
    const uint8_t* pucEnd;
    CCodeStarts Starts;
    /** Bits for absolute codes of high range among those that were read, where a form asks for it. */
    uint64_t ullHigh = 0;

    [[nodiscard]] size_t Size() const { return static_cast<size_t>(pucEnd - pucData); }
};

/** What calibrating comes to, for every value that the channels may have. */
enum class E_CALIBRATION
{
    NONE, /**< values are scaled by coefficients */
    WHOLE, /**< it FITS, the factor is a whole number of 16 bits, and its product with a value, plus the
                offset, one of 32 bits. A double has that exactly, and times the double next to 0.0001,
                which is above it by less than a part in 2^54, it truncates to the quotient by 10,000, for
                every number of 32 bits: the same measure without a double */
    FITS,     /**< a measure fits into 32 bits */
    SATURATES /**< it may not */
};

E_CALIBRATION CalibrationOf(const S_SCALING& i_Scaling, uint32_t i_ulNbChannel);

/** The channels as decoding goes on. */
struct S_CHANNELS
{
    const S_SCALING& Scaling;
    E_CALIBRATION eCalibration;
    uint32_t ulNbChannel;
    std::array<int32_t*, k_ulMaxScaledChannels> aplNext; /**< null: counted, not filled */
    alignas(32) std::array<uint16_t, 16> ausValues;
    alignas(32) std::array<uint16_t, 16> ausRanges; /**< as the form has them; 0: low */
};

/**
 * Reads code words: a code's first byte above the byte behind it, which counts in a two-byte code
 * only. Reads on until there are k_ulPartWords or the stream ends; a code that is cut off there
 * gives none.
 *
 * @param i_ulCount words that o_pusWords, of k_ulWordRoom, holds already.
 * @return words that it holds then.
 */
using ReadWords = size_t (*)(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount);

/** Decodes words that begin with the first channel. */
using DecodeWords = void (*)(uint16_t* io_pusWords, size_t i_ulCount, S_CHANNELS& io_Channels);

/** Walks through a stream in parts of whole rounds of its channels. */
size_t DecodeInParts(const S_STREAM& i_Stream, ReadWords i_pfnRead, DecodeWords i_pfnDecode);

/** The end of a stream, for every form: fewer bytes than a block and its reach have. */
size_t ReadLastWords(S_REST& io_Rest, uint16_t* o_pusWords, size_t i_ulCount);

size_t DecodeStreamPortable(const S_STREAM& i_Stream);

#ifdef __aarch64__
size_t DecodeStreamNeon(const S_STREAM& i_Stream);
#endif
#ifdef __x86_64__
bool RunsDecodeAvx2();
size_t DecodeStreamAvx2(const S_STREAM& i_Stream);
bool RunsDecodeAvx512();
size_t DecodeStreamAvx512(const S_STREAM& i_Stream);

/** Whether the vectors have what a channel's scale takes: they know no not-a-number, which a calibration of
 *  numbers does not give, and coefficients of 16 bits. */
bool HasLanes(const S_CHANNEL_SCALE& i_Scale, bool i_bCalibrated);
#endif

} // namespace tornval
