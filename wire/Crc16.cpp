#include "wire/Crc16.h"

#include <array>
#include <atomic>

#include "wire/Bytes.h"
#include "wire/Crc16Forms.h"

namespace wire {
namespace {

using Table = std::array<uint16_t, 256>;

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

/** The remainder of a word that has i_ulTable more bytes behind it in its step. */
inline uint32_t Look(uint64_t i_ullWord, size_t i_ulTable)
{
    const auto l_fnByte = [i_ullWord](int i_lByte) {
        return static_cast<uint8_t>(i_ullWord >> (8 * i_lByte));
    };
    const Table* l_pTable = k_aTables.data() + i_ulTable;
    return static_cast<uint32_t>(l_pTable[7][l_fnByte(0)] ^ l_pTable[6][l_fnByte(1)] ^
                                 l_pTable[5][l_fnByte(2)] ^ l_pTable[4][l_fnByte(3)] ^
                                 l_pTable[3][l_fnByte(4)] ^ l_pTable[2][l_fnByte(5)] ^
                                 l_pTable[1][l_fnByte(6)] ^ l_pTable[0][l_fnByte(7)]);
}

/** A step of sixteen bytes, as two words. */
inline uint32_t LookTwice(uint32_t i_ulCrc, uint64_t i_ullFirst, uint64_t i_ullSecond)
{
    // Most of the step does not wait for the remainder of the one before.
    return Look(i_ullSecond, 0) ^ Look(i_ullFirst & ~uint64_t{0xFFFF}, 8) ^
           k_aTables[15][static_cast<uint8_t>(i_ullFirst ^ i_ulCrc)] ^
           k_aTables[14][static_cast<uint8_t>((i_ullFirst ^ i_ulCrc) >> 8)];
}

// A block of sixteen words of eight bytes. P^64 = x^1024 + x^960 + x^128 + 1 is a multiple of the
// polynomial P, so a word may be added to those 1, 14 and 16 places on and then be dropped: neither
// table nor multiplication.
constexpr size_t k_ulNbWords = 16;
constexpr size_t k_ulBlock = 8 * k_ulNbWords;
using Words = std::array<uint64_t, k_ulNbWords>;

/** Takes the words of the first block, each with all that earlier ones add to it. */
inline void StartBlocks(Words& o_aullWords, const uint8_t* i_pucFirst)
{
    uint64_t l_ullWord = k_usCrcStart;
    for (size_t l_ul = 0; l_ul < k_ulNbWords; ++l_ul) {
        l_ullWord ^= ReadLe64(i_pucFirst + 8 * l_ul) ^ (l_ul < 14 ? 0 : o_aullWords[l_ul - 14]);
        o_aullWords[l_ul] = l_ullWord;
    }
}

/** Takes the words of the next block, each with all that earlier ones add to it. */
inline void TakeBlock(Words& io_aullWords, const uint8_t* i_pucNext)
{
    uint64_t l_ullWord = io_aullWords[k_ulNbWords - 1];
    const auto l_fnTake = [&](size_t i_ul, size_t i_ulTwoOn) {
        // At its place stands the word of 16 before, and two places on that of 14 before.
        l_ullWord ^= ReadLe64(i_pucNext + 8 * i_ul) ^ io_aullWords[i_ul] ^ io_aullWords[i_ulTwoOn];
        io_aullWords[i_ul] = l_ullWord;
    };
    for (size_t l_ul = 0; l_ul < k_ulNbWords - 2; l_ul += 2) {
        l_fnTake(l_ul, l_ul + 2);
        l_fnTake(l_ul + 1, l_ul + 3);
    }
    l_fnTake(14, 0);
    l_fnTake(15, 1);
}

/** The remainder of the last block, of which nothing is dropped. */
inline uint32_t EndWithBlock(const Words& i_aullWords, const uint8_t* i_pucLast)
{
    uint32_t l_ulCrc = 0;
    uint64_t l_ullBefore = i_aullWords[k_ulNbWords - 1];
    for (size_t l_ul = 0; l_ul < k_ulNbWords; l_ul += 2) {
        const bool l_bTwoOn = l_ul + 2 < k_ulNbWords;
        const uint64_t l_ullFirst = l_ullBefore ^ ReadLe64(i_pucLast + 8 * l_ul) ^
                                    i_aullWords[l_ul] ^ (l_bTwoOn ? i_aullWords[l_ul + 2] : 0);
        const uint64_t l_ullSecond = ReadLe64(i_pucLast + 8 * l_ul + 8) ^ i_aullWords[l_ul + 1] ^
                                     (l_bTwoOn ? i_aullWords[l_ul + 3] : 0);
        l_ulCrc = LookTwice(l_ulCrc, l_ullFirst, l_ullSecond);
        l_ullBefore = 0;
    }
    return l_ulCrc;
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

uint16_t ContinueCrc(uint32_t i_ulCrc, const uint8_t* i_pucData, size_t i_ulLength)
{
    uint32_t l_ulCrc = i_ulCrc;
    for (; i_ulLength >= 16; i_ulLength -= 16, i_pucData += 16) {
        l_ulCrc = LookTwice(l_ulCrc, ReadLe64(i_pucData), ReadLe64(i_pucData + 8));
    }
    if (i_ulLength >= 8) {
        l_ulCrc = Look(ReadLe64(i_pucData) ^ l_ulCrc, 0);
        i_ulLength -= 8;
        i_pucData += 8;
    }
    for (; i_ulLength > 0; --i_ulLength, ++i_pucData) {
        l_ulCrc = (l_ulCrc >> 8) ^ k_aTables[0][(l_ulCrc ^ *i_pucData) & 0xFFU];
    }
    return static_cast<uint16_t>(l_ulCrc);
}

uint16_t ComputeCrcPortable(const uint8_t* i_pucData, size_t i_ulLength)
{
    if (i_ulLength < 2 * k_ulBlock) {
        return ContinueCrc(k_usCrcStart, i_pucData, i_ulLength);
    }
    Words l_aullWords;
    StartBlocks(l_aullWords, i_pucData);
    size_t l_ulUsed = k_ulBlock;
    for (; i_ulLength - l_ulUsed >= 2 * k_ulBlock; l_ulUsed += k_ulBlock) {
        TakeBlock(l_aullWords, i_pucData + l_ulUsed);
    }
    const uint32_t l_ulCrc = EndWithBlock(l_aullWords, i_pucData + l_ulUsed);
    l_ulUsed += k_ulBlock;
    return ContinueCrc(l_ulCrc, i_pucData + l_ulUsed, i_ulLength - l_ulUsed);
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
    if (i_ulLength < 16) {
        return ContinueCrc(k_usCrcStart, l_pucData, i_ulLength);
    }
    const S_CRC_FORM* l_pForm = s_pForm.load(std::memory_order_relaxed);
    return (l_pForm != nullptr ? l_pForm : ChooseForm())->pfnCompute(l_pucData, i_ulLength);
}

} // namespace wire
