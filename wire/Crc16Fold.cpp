// The CRC by carry-less multiplication. A register holds sixteen bytes as a polynomial, the first
// bit of the first byte being the highest power; bytes that lie D bits before others are moved onto
// them by a multiplication with x^D mod P. The forms differ in the width of their registers only.
#include "wire/Crc16Forms.h"

#if WIRE_CRC_FOLDS

#ifdef __x86_64__
#include <immintrin.h>
#else
#include <arm_neon.h>
#include <sys/auxv.h>
#endif

namespace wire {
namespace {

/** A polynomial of 64 powers in the order of the register: x^63 at bit 0. */
constexpr uint64_t Reflect(uint64_t i_ullPolynomial)
{
    uint64_t l_ullReflected = 0;
    for (int l_lBit = 0; l_lBit < 64; ++l_lBit) {
        l_ullReflected |= ((i_ullPolynomial >> l_lBit) & 1U) << (63 - l_lBit);
    }
    return l_ullReflected;
}

/** x^n mod P, as a factor. */
constexpr uint64_t Power(int i_lPower)
{
    uint32_t l_ulRest = 1;
    for (int l_l = 0; l_l < i_lPower; ++l_l) {
        l_ulRest = (l_ulRest << 1) ^ ((l_ulRest & 0x8000U) != 0 ? k_ulCrcPolynomial | 0x10000U : 0);
    }
    return Reflect(l_ulRest);
}

/** The 49 bits of x^64 / P. */
constexpr uint64_t Quotient()
{
    uint64_t l_ullQuotient = 0;
    uint32_t l_ulRest = 0;
    for (int l_lPower = 64; l_lPower >= 0; --l_lPower) {
        l_ulRest = (l_ulRest << 1) | (l_lPower == 64 ? 1U : 0U);
        l_ullQuotient <<= 1;
        if ((l_ulRest & 0x10000U) != 0) {
            l_ulRest ^= k_ulCrcPolynomial | 0x10000U;
            l_ullQuotient |= 1U;
        }
    }
    return l_ullQuotient;
}

/** Both halves of the factor that moves sixteen bytes by that many bits. A product of two reflected
 *  words is one power short, hence the 1. */
struct S_FACTOR
{
    uint64_t ullLow;
    uint64_t ullHigh;
};

constexpr S_FACTOR Move(int i_lBits)
{
    return {Power(i_lBits + 63), Power(i_lBits - 1)};
}

constexpr S_FACTOR k_Move128 = Move(128);
constexpr S_FACTOR k_Move256 = Move(256);
constexpr S_FACTOR k_Move384 = Move(384);
constexpr S_FACTOR k_Move512 = Move(512);
constexpr S_FACTOR k_Move1024 = Move(1024);
// From sixteen bytes to eighty bits, and from those to sixty-four.
constexpr S_FACTOR k_Narrow = {Power(79), Power(63)};
// From sixty-four bits to the rest: the quotient by P, then what P times it leaves.
constexpr S_FACTOR k_Divide = {Reflect(Quotient() << 15),
                               Reflect((uint64_t{k_ulCrcPolynomial} | 0x10000U) << 47)};

// Picks, from place n on, the bytes that lie n places on, and nothing past the sixteenth.
alignas(16) constexpr uint8_t k_aucShift[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

#ifdef __x86_64__

#define WIRE_TARGET __attribute__((target("pclmul,sse4.1")))
#define WIRE_INLINE __attribute__((target("pclmul,sse4.1"), always_inline)) inline
using Vector = __m128i;

WIRE_INLINE Vector Load(const uint8_t* i_pucData)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(i_pucData));
}
WIRE_INLINE Vector Pair(S_FACTOR i_Factor)
{
    return _mm_set_epi64x(static_cast<int64_t>(i_Factor.ullHigh),
                          static_cast<int64_t>(i_Factor.ullLow));
}
WIRE_INLINE Vector Xor(Vector i_A, Vector i_B)
{
    return _mm_xor_si128(i_A, i_B);
}
WIRE_INLINE Vector MultiplyLow(Vector i_A, Vector i_B)
{
    return _mm_clmulepi64_si128(i_A, i_B, 0x00);
}
WIRE_INLINE Vector MultiplyLowHigh(Vector i_A, Vector i_B)
{
    return _mm_clmulepi64_si128(i_A, i_B, 0x10);
}
WIRE_INLINE Vector MultiplyHigh(Vector i_A, Vector i_B)
{
    return _mm_clmulepi64_si128(i_A, i_B, 0x11);
}
WIRE_INLINE uint64_t High(Vector i_A)
{
    return static_cast<uint64_t>(_mm_extract_epi64(i_A, 1));
}
/** The high half, moved down by two bytes: times x^16. */
WIRE_INLINE Vector HighTimesX16(Vector i_A)
{
    return _mm_srli_si128(_mm_unpackhi_epi64(_mm_setzero_si128(), i_A), 2);
}
WIRE_INLINE Vector Word(uint64_t i_ullWord)
{
    return _mm_cvtsi64_si128(static_cast<int64_t>(i_ullWord));
}
WIRE_INLINE Vector Pick(Vector i_A, Vector i_Places)
{
    return _mm_shuffle_epi8(i_A, i_Places);
}
/** Of each byte the second where the place says none. */
WIRE_INLINE Vector Fill(Vector i_A, Vector i_B, Vector i_Places)
{
    return _mm_blendv_epi8(i_A, i_B, i_Places);
}

#else

#define WIRE_TARGET __attribute__((target("+crypto")))
#define WIRE_INLINE __attribute__((target("+crypto"), always_inline)) inline
using Vector = uint64x2_t;

WIRE_INLINE Vector Load(const uint8_t* i_pucData)
{
    return vreinterpretq_u64_u8(vld1q_u8(i_pucData));
}
WIRE_INLINE Vector Pair(S_FACTOR i_Factor)
{
    return vcombine_u64(vcreate_u64(i_Factor.ullLow), vcreate_u64(i_Factor.ullHigh));
}
WIRE_INLINE Vector Xor(Vector i_A, Vector i_B)
{
    return veorq_u64(i_A, i_B);
}
WIRE_INLINE Vector MultiplyLow(Vector i_A, Vector i_B)
{
    return vreinterpretq_u64_p128(vmull_p64(vgetq_lane_u64(i_A, 0), vgetq_lane_u64(i_B, 0)));
}
WIRE_INLINE Vector MultiplyLowHigh(Vector i_A, Vector i_B)
{
    return vreinterpretq_u64_p128(vmull_p64(vgetq_lane_u64(i_A, 0), vgetq_lane_u64(i_B, 1)));
}
WIRE_INLINE Vector MultiplyHigh(Vector i_A, Vector i_B)
{
    return vreinterpretq_u64_p128(
        vmull_high_p64(vreinterpretq_p64_u64(i_A), vreinterpretq_p64_u64(i_B)));
}
WIRE_INLINE uint64_t High(Vector i_A)
{
    return vgetq_lane_u64(i_A, 1);
}
/** The high half, moved down by two bytes: times x^16. */
WIRE_INLINE Vector HighTimesX16(Vector i_A)
{
    const uint8x16_t l_High = vreinterpretq_u8_u64(vsetq_lane_u64(0, i_A, 0));
    return vreinterpretq_u64_u8(vextq_u8(l_High, vdupq_n_u8(0), 2));
}
WIRE_INLINE Vector Word(uint64_t i_ullWord)
{
    return vcombine_u64(vcreate_u64(i_ullWord), vcreate_u64(0));
}
WIRE_INLINE Vector Pick(Vector i_A, Vector i_Places)
{
    return vreinterpretq_u64_u8(
        vqtbl1q_u8(vreinterpretq_u8_u64(i_A), vreinterpretq_u8_u64(i_Places)));
}
/** Of each byte the second where the place says none. */
WIRE_INLINE Vector Fill(Vector i_A, Vector i_B, Vector i_Places)
{
    const uint8x16_t l_None = vcgeq_u8(vreinterpretq_u8_u64(i_Places), vdupq_n_u8(0x80));
    return vreinterpretq_u64_u8(
        vbslq_u8(l_None, vreinterpretq_u8_u64(i_B), vreinterpretq_u8_u64(i_A)));
}

#endif

/** i_A, moved by the bits of the factor, onto i_B. */
WIRE_INLINE Vector Fold(Vector i_A, Vector i_Factor, Vector i_B)
{
    return Xor(Xor(MultiplyLow(i_A, i_Factor), MultiplyHigh(i_A, i_Factor)), i_B);
}

/** The rest of sixteen bytes and of those behind them, of which there are i_ulLength. */
WIRE_INLINE uint16_t Finish(Vector i_A, const uint8_t* i_pucData, size_t i_ulLength)
{
    const Vector l_Move = Pair(k_Move128);
    for (; i_ulLength >= 16; i_ulLength -= 16, i_pucData += 16) {
        i_A = Fold(i_A, l_Move, Load(i_pucData));
    }
    if (i_ulLength > 0) {
        // The bytes in hand and the last few are cut anew, into few and sixteen.
        const Vector l_First = Pick(i_A, Load(k_aucShift + i_ulLength));
        const Vector l_Places = Load(k_aucShift + 16 + i_ulLength);
        const Vector l_Last = Load(i_pucData + i_ulLength - 16);
        i_A = Fold(l_First, l_Move, Fill(Pick(i_A, l_Places), l_Last, l_Places));
    }
    const Vector l_Narrow = Pair(k_Narrow);
    const Vector l_Divide = Pair(k_Divide);
    const Vector l_Eighty = Xor(MultiplyLow(i_A, l_Narrow), HighTimesX16(i_A));
    const uint64_t l_ullRest = High(Xor(MultiplyLowHigh(l_Eighty, l_Narrow), l_Eighty));
    const Vector l_Quotient = MultiplyLow(Word(l_ullRest << 16), l_Divide);
    return static_cast<uint16_t>(High(MultiplyLowHigh(l_Quotient, l_Divide)) ^ (l_ullRest >> 48));
}

} // namespace

#ifdef __x86_64__
bool RunsCrcFold128()
{
    return __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("sse4.1") != 0;
}
#else
bool RunsCrcFold128()
{
    return (getauxval(AT_HWCAP) & HWCAP_PMULL) != 0;
}
#endif

WIRE_TARGET uint16_t ComputeCrcFold128(const uint8_t* i_pucData, size_t i_ulLength)
{
    if (i_ulLength < 16) {
        return ContinueCrc(k_usCrcStart, i_pucData, i_ulLength);
    }
    Vector l_A = Xor(Load(i_pucData), Word(k_usCrcStart));
    if (i_ulLength < 64) {
        return Finish(l_A, i_pucData + 16, i_ulLength - 16);
    }
    Vector l_B = Load(i_pucData + 16);
    Vector l_C = Load(i_pucData + 32);
    Vector l_D = Load(i_pucData + 48);
    i_pucData += 64;
    i_ulLength -= 64;
    const Vector l_Move = Pair(k_Move512);
    for (; i_ulLength >= 64; i_ulLength -= 64, i_pucData += 64) {
        l_A = Fold(l_A, l_Move, Load(i_pucData));
        l_B = Fold(l_B, l_Move, Load(i_pucData + 16));
        l_C = Fold(l_C, l_Move, Load(i_pucData + 32));
        l_D = Fold(l_D, l_Move, Load(i_pucData + 48));
    }
    l_D = Fold(l_A, Pair(k_Move384), Fold(l_B, Pair(k_Move256), Fold(l_C, Pair(k_Move128), l_D)));
    return Finish(l_D, i_pucData, i_ulLength);
}

#ifdef __x86_64__

namespace {

#define WIRE_WIDE __attribute__((target("avx2,pclmul,vpclmulqdq")))
#define WIRE_WIDE_INLINE __attribute__((target("avx2,pclmul,vpclmulqdq"), always_inline)) inline

WIRE_WIDE_INLINE __m256i LoadWide(const uint8_t* i_pucData)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(i_pucData));
}

WIRE_WIDE_INLINE __m256i FoldWide(__m256i i_A, __m256i i_Factor, __m256i i_B)
{
    return _mm256_xor_si256(_mm256_xor_si256(_mm256_clmulepi64_epi128(i_A, i_Factor, 0x00),
                                             _mm256_clmulepi64_epi128(i_A, i_Factor, 0x11)),
                            i_B);
}

WIRE_WIDE_INLINE __m256i PairWide(S_FACTOR i_Factor)
{
    return _mm256_broadcastsi128_si256(Pair(i_Factor));
}

} // namespace

bool RunsCrcFold256()
{
    return RunsCrcFold128() && __builtin_cpu_supports("avx2") != 0 &&
           __builtin_cpu_supports("vpclmulqdq") != 0;
}

WIRE_WIDE uint16_t ComputeCrcFold256(const uint8_t* i_pucData, size_t i_ulLength)
{
    if (i_ulLength < 256) {
        return ComputeCrcFold128(i_pucData, i_ulLength);
    }
    __m256i l_A = _mm256_xor_si256(LoadWide(i_pucData), _mm256_zextsi128_si256(Word(k_usCrcStart)));
    __m256i l_B = LoadWide(i_pucData + 32);
    __m256i l_C = LoadWide(i_pucData + 64);
    __m256i l_D = LoadWide(i_pucData + 96);
    i_pucData += 128;
    i_ulLength -= 128;
    const __m256i l_Move = PairWide(k_Move1024);
    for (; i_ulLength >= 128; i_ulLength -= 128, i_pucData += 128) {
        l_A = FoldWide(l_A, l_Move, LoadWide(i_pucData));
        l_B = FoldWide(l_B, l_Move, LoadWide(i_pucData + 32));
        l_C = FoldWide(l_C, l_Move, LoadWide(i_pucData + 64));
        l_D = FoldWide(l_D, l_Move, LoadWide(i_pucData + 96));
    }
    const __m256i l_Half = PairWide(k_Move512);
    const __m256i l_Quarter = PairWide(k_Move256);
    l_D = FoldWide(FoldWide(l_A, l_Half, l_C), l_Quarter, FoldWide(l_B, l_Half, l_D));
    const __m128i l_Last =
        Fold(_mm256_castsi256_si128(l_D), Pair(k_Move128), _mm256_extracti128_si256(l_D, 1));
    return Finish(l_Last, i_pucData, i_ulLength);
}

#endif

} // namespace wire

#endif
