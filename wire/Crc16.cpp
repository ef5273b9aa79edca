#include "wire/Crc16.h"

#include <array>
#include <atomic>

#include "wire/Bytes.h"
#include "wire/Crc16Forms.h"

namespace wire {
namespace {

// Eight entries that nobody uses: without them, equal bytes of a frame would look into every table at the
// same place of a cache line, which is read one after the other.
using Table = std::array<uint16_t, 256 + 8>;

// Table n advances a byte by n more bytes of zeros, so that sixteen bytes are folded in one step.
constexpr size_t k_ulNbTables = 16;

constexpr std::array<Table, k_ulNbTables> MakeTables()
{
    std::array<Table, k_ulNbTables> l_aTables{};
    for (uint32_t l_ulByte = 0; l_ulByte < 256; ++l_ulByte) {
        uint32_t l_ulCrc = l_ulByte;
        for (int l_lBit = 0; l_lBit < 8; ++l_lBit) {
            l_ulCrc = (l_ulCrc & 1U) != 0 ? (l_ulCrc >> 1) ^ 0xA001U : l_ulCrc >> 1;
        }
        l_aTables[0][l_ulByte] = static_cast<uint16_t>(l_ulCrc);
    }
    for (size_t l_ulTable = 1; l_ulTable < k_ulNbTables; ++l_ulTable) {
        for (size_t l_ulByte = 0; l_ulByte < 256; ++l_ulByte) {
            const uint16_t l_usCrc = l_aTables[l_ulTable - 1][l_ulByte];
            l_aTables[l_ulTable][l_ulByte] =
                static_cast<uint16_t>((l_usCrc >> 8) ^ l_aTables[0][l_usCrc & 0xFFU]);
        }
    }
    return l_aTables;
}

constexpr std::array<Table, k_ulNbTables> k_aTables = MakeTables();

/** The remainder of i_ulNbBytes bytes, all but the first two as they stand. Every other pair of bytes is read
 *  at once and taken apart, the others one by one: so reading and taking apart share the time. */
template <size_t i_ulNbBytes>
[[gnu::always_inline]] inline uint32_t Look(uint32_t i_ulHead, const uint8_t* i_pucData)
{
    // Most of it does not wait for the remainder of the step before, which the head holds. Several sums: a
    // single one would wait for itself.
    uint32_t l_ulFirst = 0;
    uint32_t l_ulSecond = 0;
    uint32_t l_ulThird = 0;
    uint32_t l_ulFourth = 0;
#pragma GCC unroll 16
    for (size_t l_ul = 2; l_ul < i_ulNbBytes; l_ul += 2) {
        const Table& l_Table = k_aTables[i_ulNbBytes - 1 - l_ul];
        const Table& l_Next = k_aTables[i_ulNbBytes - 2 - l_ul];
        if (l_ul % 4 == 0) {
            const uint32_t l_ulPair = ReadLe16(i_pucData + l_ul);
            l_ulFirst ^= l_Table[l_ulPair & 0xFFU];
            l_ulSecond ^= l_Next[l_ulPair >> 8];
        } else {
            l_ulThird ^= l_Table[i_pucData[l_ul]];
            l_ulFourth ^= l_Next[i_pucData[l_ul + 1]];
        }
    }
    uint32_t l_ulTail = (l_ulFirst ^ l_ulSecond) ^ (l_ulThird ^ l_ulFourth);
    asm("" : "+r"(l_ulTail)); // of 32 bits: nothing is left to widen when the head arrives
    return l_ulTail ^ k_aTables[i_ulNbBytes - 1][i_ulHead & 0xFFU] ^
           k_aTables[i_ulNbBytes - 2][i_ulHead >> 8];
}

/** Sixteen bytes, eight, then one at a time. */
[[gnu::always_inline]] inline uint16_t Continue(uint32_t i_ulCrc, const uint8_t* i_pucData,
                                                size_t i_ulLength)
{
    uint32_t l_ulCrc = i_ulCrc;
    for (; i_ulLength >= 16; i_ulLength -= 16, i_pucData += 16) {
        l_ulCrc = Look<16>(l_ulCrc ^ ReadLe16(i_pucData), i_pucData);
    }
    if (i_ulLength >= 8) {
        l_ulCrc = Look<8>(l_ulCrc ^ ReadLe16(i_pucData), i_pucData);
        i_ulLength -= 8;
        i_pucData += 8;
    }
    for (; i_ulLength > 0; --i_ulLength, ++i_pucData) {
        l_ulCrc = (l_ulCrc >> 8) ^ k_aTables[0][(l_ulCrc ^ *i_pucData) & 0xFFU];
    }
    return static_cast<uint16_t>(l_ulCrc);
}

// P^n = x^(16n) + x^(15n) + x^(2n) + 1 is a multiple of the polynomial P where n is a power of two. So a
// word of n bits may be added to those 1, 14 and 16 places on and then be dropped: neither table nor
// multiplication. Words of 64 bits run through the frame; those of
// 32 leave half a block of its end to the tables.
constexpr size_t k_ulNbWords = 16;
constexpr size_t k_ulBlock = sizeof(uint64_t) * k_ulNbWords;
template <typename Word>
using Words = std::array<Word, k_ulNbWords>;

template <typename Word>
[[gnu::always_inline]] inline Word ReadWord(const uint8_t* i_pucData, size_t i_ulWord)
{
    if constexpr (sizeof(Word) == 4) {
        return ReadLe32(i_pucData + 4 * i_ulWord);
    } else {
        return ReadLe64(i_pucData + 8 * i_ulWord);
    }
}

template <typename Word>
[[gnu::always_inline]] inline void WriteWord(uint8_t* o_pucData, size_t i_ulWord, Word i_Word)
{
    if constexpr (sizeof(Word) == 4) {
        WriteLe32(o_pucData + 4 * i_ulWord, i_Word);
    } else {
        WriteLe64(o_pucData + 8 * i_ulWord, i_Word);
    }
}

/** Takes the words of the first block, each with all that earlier ones add to it. */
template <typename Word>
[[gnu::always_inline]] inline void StartBlocks(Words<Word>& o_aWords, const uint8_t* i_pucFirst,
                                               uint32_t i_ulHead)
{
    auto l_Word = static_cast<Word>(i_ulHead);
#pragma GCC unroll 16
    for (size_t l_ul = 0; l_ul < k_ulNbWords; ++l_ul) {
        l_Word ^= ReadWord<Word>(i_pucFirst, l_ul) ^ (l_ul < 14 ? Word{0} : o_aWords[l_ul - 14]);
        o_aWords[l_ul] = l_Word;
    }
}

/** Takes the words of the next block, each with all that earlier ones add to it. */
inline void TakeBlock(Words<uint64_t>& io_aWords, const uint8_t* i_pucNext)
{
    uint64_t l_ullWord = io_aWords[k_ulNbWords - 1];
    const auto l_fnTake = [&](size_t i_ul, size_t i_ulTwoOn) {
        // At its place stands the word of 16 before, and two places on that of 14 before.
        l_ullWord ^= ReadLe64(i_pucNext + 8 * i_ul) ^ io_aWords[i_ul] ^ io_aWords[i_ulTwoOn];
        io_aWords[i_ul] = l_ullWord;
    };
    for (size_t l_ul = 0; l_ul < k_ulNbWords - 2; l_ul += 2) {
        l_fnTake(l_ul, l_ul + 2);
        l_fnTake(l_ul + 1, l_ul + 3);
    }
    l_fnTake(14, 0);
    l_fnTake(15, 1);
}

/** What the words of a block add to the next one, which is the last, and that block itself. */
template <typename Word>
[[gnu::always_inline]] inline void EndBlocks(const Words<Word>& i_aWords, const uint8_t* i_pucLast,
                                             uint8_t* o_pucRest)
{
#pragma GCC unroll 16
    for (size_t l_ul = 0; l_ul < k_ulNbWords; ++l_ul) {
        const Word l_Before = l_ul == 0 ? i_aWords[k_ulNbWords - 1] : Word{0};
        const Word l_TwoOn = l_ul + 2 < k_ulNbWords ? i_aWords[l_ul + 2] : Word{0};
        const Word l_Word = static_cast<Word>(ReadWord<Word>(i_pucLast, l_ul) ^ l_Before ^
                                              i_aWords[l_ul] ^ l_TwoOn);
        WriteWord(o_pucRest, l_ul, l_Word);
    }
}

/** Drops the first half of two blocks of that word. */
template <typename Word>
[[gnu::always_inline]] inline void DropHalf(const uint8_t* i_pucData, uint32_t i_ulHead,
                                            uint8_t* o_pucRest)
{
    Words<Word> l_aWords;
    StartBlocks<Word>(l_aWords, i_pucData, i_ulHead);
    EndBlocks<Word>(l_aWords, i_pucData + sizeof(Word) * k_ulNbWords, o_pucRest);
}

constexpr S_CRC_FORM k_aForms[] = {
#ifdef __x86_64__
    {"256-bit carry-less multiply", RunsCrcFold256, ComputeCrcFold256},
#endif
#if WIRE_CRC_FOLDS
    {"128-bit carry-less multiply", RunsCrcFold128, ComputeCrcFold128},
#endif
    {"portable", [] { return true; }, ComputeCrcPortable}};

// Null until the first use.
std::atomic<const S_CRC_FORM*> s_pForm{nullptr};

const S_CRC_FORM* ChooseForm()
{
    const S_CRC_FORM* l_pForm = k_aForms;
    while (!l_pForm->pfnRuns()) {
        ++l_pForm;
    }
    s_pForm.store(l_pForm, std::memory_order_relaxed);
    return l_pForm;
}

} // namespace

uint16_t ContinueCrc(uint16_t i_usCrc, const uint8_t* i_pucData, size_t i_ulLength)
{
    return Continue(i_usCrc, i_pucData, i_ulLength);
}

namespace {

/** A block, and what follows. */
[[gnu::noinline]] uint16_t ComputeBlock(const uint8_t* i_pucBlock, uint32_t i_ulHead,
                                        const uint8_t* i_pucData, size_t i_ulLength)
{
    uint8_t l_aucLess[k_ulBlock / 2];
    DropHalf<uint32_t>(i_pucBlock, i_ulHead, l_aucLess);
    return Continue(Continue(0, l_aucLess, sizeof(l_aucLess)), i_pucData, i_ulLength);
}

/** Two blocks or more. */
[[gnu::noinline]] uint16_t ComputeBlocks(const uint8_t* i_pucData, size_t i_ulLength)
{
    uint8_t l_aucRest[k_ulBlock];
    size_t l_ulUsed = k_ulBlock;
    Words<uint64_t> l_aullWords;
    StartBlocks(l_aullWords, i_pucData, k_usCrcStart);
    for (; i_ulLength - l_ulUsed >= 2 * k_ulBlock; l_ulUsed += k_ulBlock) {
        TakeBlock(l_aullWords, i_pucData + l_ulUsed);
    }
    EndBlocks(l_aullWords, i_pucData + l_ulUsed, l_aucRest);
    l_ulUsed += k_ulBlock;
    return ComputeBlock(l_aucRest, 0, i_pucData + l_ulUsed, i_ulLength - l_ulUsed);
}

} // namespace

uint16_t ComputeCrcPortable(const uint8_t* i_pucData, size_t i_ulLength)
{
    return i_ulLength < k_ulBlock ? Continue(k_usCrcStart, i_pucData, i_ulLength)
           : i_ulLength < 2 * k_ulBlock
               ? ComputeBlock(i_pucData, k_usCrcStart, i_pucData + k_ulBlock,
                              i_ulLength - k_ulBlock)
               : ComputeBlocks(i_pucData, i_ulLength);
}

std::span<const S_CRC_FORM> CrcForms()
{
    return k_aForms;
}

void UseCrcForm(const S_CRC_FORM* i_pForm)
{
    s_pForm.store(i_pForm, std::memory_order_relaxed);
}

uint16_t CCrc16::ComputeCrc16(const void* i_pcData, uint32_t i_ulLength) const
{
    const auto* l_pucData = static_cast<const uint8_t*>(i_pcData);
    // A vector has its answer no earlier.
    if (i_ulLength < 32) {
        return Continue(k_usCrcStart, l_pucData, i_ulLength);
    }
    const S_CRC_FORM* l_pForm = s_pForm.load(std::memory_order_relaxed);
    return (l_pForm != nullptr ? l_pForm : ChooseForm())->pfnCompute(l_pucData, i_ulLength);
}

} // namespace wire
