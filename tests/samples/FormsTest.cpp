// Every form that this machine can run, against the plain loops.
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "StackTaken.h"
#include "samples/PlainLoops.h"
#include "wire/Crc16.h"

using namespace tornval;

namespace {

using Bytes = std::vector<uint8_t>;

/** Bytes in a block that ends with them: a read behind them is a fault for the sanitizer. */
class CTightBytes
{
public:
    CTightBytes(const Bytes& i_vBytes, size_t i_ulOffset, size_t i_ulSize)
        : m_ulOffset(i_ulOffset), m_pBlock(new uint8_t[i_ulOffset + i_ulSize])
    {
        std::copy_n(i_vBytes.begin(), i_ulSize, m_pBlock.get() + i_ulOffset);
    }
    [[nodiscard]] const uint8_t* Get() const { return m_pBlock.get() + m_ulOffset; }

private:
    size_t m_ulOffset;
    std::unique_ptr<uint8_t[]> m_pBlock;
};

/** Numbers below a bound. */
class CRandom
{
public:
    explicit CRandom(uint32_t i_ulSeed) : m_Engine(i_ulSeed) {}
    uint32_t operator()(uint64_t i_ulBound)
    {
        return static_cast<uint32_t>(m_Engine() % i_ulBound);
    }

private:
    std::mt19937 m_Engine;
};

/** Random codes: that many of 100 are steps, that many of the others are of high range. */
Bytes MakeCodes(CRandom& io_Random, size_t i_ulBytes, unsigned i_ulSteps, unsigned i_ulHigh)
{
    Bytes l_vCodes;
    while (l_vCodes.size() < i_ulBytes) {
        const unsigned l_ulBits = io_Random(0x10000);
        if (io_Random(100) < i_ulSteps) {
            l_vCodes.push_back(static_cast<uint8_t>(0x80 | l_ulBits));
        } else {
            const unsigned l_ulRange = io_Random(100) < i_ulHigh ? 0x20 : 0;
            l_vCodes.push_back(static_cast<uint8_t>((l_ulBits & 0x5F) | l_ulRange));
            l_vCodes.push_back(static_cast<uint8_t>(l_ulBits >> 8));
        }
    }
    l_vCodes.resize(i_ulBytes);
    return l_vCodes;
}

constexpr int32_t k_lUntouched = 0x5AA55AA5;

template <typename Decode>
S_DECODED RunForm(Decode&& i_fnDecode, const uint8_t* i_pucData, size_t i_ulSize,
                  uint32_t i_ulChannels, uint32_t i_ulMaxSamples, const S_SCALING& i_Scaling,
                  uint32_t i_ulNull)
{
    S_DECODED l_Decoded;
    std::vector<std::unique_ptr<int32_t[]>> l_vpArrays;
    std::vector<int32_t*> l_vplArrays;
    for (uint32_t l_ul = 0; l_ul < i_ulChannels; ++l_ul) {
        l_vpArrays.emplace_back(new int32_t[i_ulMaxSamples]);
        std::fill_n(l_vpArrays.back().get(), i_ulMaxSamples, k_lUntouched);
        l_vplArrays.push_back(l_ul == i_ulNull ? nullptr : l_vpArrays.back().get());
    }
    l_Decoded.ulTotal = i_fnDecode(
        S_STREAM{i_pucData, i_ulSize, i_ulChannels, i_ulMaxSamples, l_vplArrays.data(), i_Scaling});
    for (const auto& l_pArray : l_vpArrays) {
        l_Decoded.vvlArrays.emplace_back(l_pArray.get(), l_pArray.get() + i_ulMaxSamples);
    }
    return l_Decoded;
}

/** Coefficients and calibrations of any size, with fractions, or as instruments have them. */
S_SCALING MakeScaling(CRandom& io_Random, bool i_bCalibrated, uint32_t i_ulSort)
{
    const bool l_bWild = i_ulSort == 0;
    const double l_dPart = i_ulSort == 1 ? 7.0 : 1.0;
    const uint32_t l_ulMost = io_Random(2) == 0 ? 30000 : 70000;
    const double k_adWild[] = {4294967295.0,
                               -2147483648.0,
                               1e300,
                               0.0,
                               std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN()};
    S_SCALING l_Scaling;
    l_Scaling.bCalibrated = i_bCalibrated;
    for (S_CHANNEL_SCALE& l_Scale : l_Scaling.aChannels) {
        l_Scale = {static_cast<int32_t>(io_Random(l_bWild ? 0x100000000U : 256)),
                   static_cast<int32_t>(io_Random(l_bWild ? 0x100000000U : 4096)),
                   l_bWild ? k_adWild[io_Random(6)]
                           : (static_cast<int32_t>(io_Random(l_ulMost)) - 10000) / l_dPart,
                   l_bWild ? k_adWild[io_Random(6)]
                           : static_cast<int32_t>(io_Random(0x100000000U)) / 8 / l_dPart};
        if (i_ulSort == 1 && io_Random(2) == 0) {
            // A small value on the border of two measures, which a fused multiply-add would miss.
            const double l_dValue = static_cast<int32_t>(io_Random(127)) - 63;
            const double l_dMeasure = static_cast<int32_t>(io_Random(9)) - 4;
            l_Scale.dB = l_dMeasure * 10000.0 - l_dValue * l_Scale.dA;
        }
    }
    return l_Scaling;
}

} // namespace

TEST(Forms, OfTheCrcAgreeAtEveryLengthAndAlignment)
{
    CRandom l_Random(1);
    Bytes l_vBytes(70000);
    for (uint8_t& l_ucByte : l_vBytes) {
        l_ucByte = static_cast<uint8_t>(l_Random(256));
    }
    std::vector<size_t> l_vulLengths{4096, 65538, 70000};
    for (size_t l_ul = 0; l_ul < 700; ++l_ul) {
        l_vulLengths.push_back(l_ul);
    }
    for (const size_t l_ulLength : l_vulLengths) {
        const CTightBytes l_Tight(l_vBytes, l_ulLength % 17, l_ulLength);
        const uint16_t l_usExpected = PlainCrc(l_Tight.Get(), l_ulLength);
        for (const wire::S_CRC_FORM& l_Form : wire::CrcForms()) {
            if (l_Form.pfnRuns()) {
                ASSERT_EQ(l_Form.pfnCompute(l_Tight.Get(), l_ulLength), l_usExpected)
                    << l_Form.pszName << ", " << l_ulLength;
                wire::UseCrcForm(&l_Form);
                ASSERT_EQ(
                    wire::CCrc16().ComputeCrc16(l_Tight.Get(), static_cast<uint32_t>(l_ulLength)),
                    l_usExpected);
            }
        }
    }
    wire::UseCrcForm(nullptr);
}

TEST(Forms, OfTheDecoderAgreeWithThePlainLoop)
{
    CRandom l_Random(2);
    for (int l_lRound = 0; l_lRound < 4000; ++l_lRound) {
        // Many short streams, some that fill a few parts, and a few as long as an answer.
        const size_t l_ulMost = l_lRound % 500 == 0 ? 65000 : l_lRound % 10 == 0 ? 4000 : 300;
        const size_t l_ulSize = l_Random(l_ulMost);
        const unsigned l_aulSteps[] = {100, 99, 95, 50, 0};
        const unsigned l_aulHigh[] = {0, 0, 10, 50, 100};
        const Bytes l_vCodes =
            MakeCodes(l_Random, l_ulSize, l_aulSteps[l_Random(5)], l_aulHigh[l_Random(5)]);
        const uint32_t l_ulChannels = l_Random(2) == 0 ? 1 : 1 + l_Random(10);
        // A stream has no more samples than bytes; less room ends it early.
        const auto l_ulMax =
            static_cast<uint32_t>(l_Random(4) == 0 ? l_Random(l_ulSize + 1)
                                                   : (l_ulSize + l_ulChannels - 1) / l_ulChannels);
        const uint32_t l_ulNull = l_Random(8) == 0 ? l_Random(l_ulChannels) : 10;
        const S_SCALING l_Scaling = MakeScaling(l_Random, l_Random(2) == 0, l_Random(4));
        const CTightBytes l_Tight(l_vCodes, l_Random(33), l_ulSize);
        const S_DECODED l_Expected = RunForm(PlainDecode, l_Tight.Get(), l_ulSize, l_ulChannels,
                                             l_ulMax, l_Scaling, l_ulNull);
        for (const S_SAMPLE_FORM& l_Form : SampleForms()) {
            if (l_Form.pfnRuns()) {
                ASSERT_EQ(RunForm(l_Form.pfnDecode, l_Tight.Get(), l_ulSize, l_ulChannels, l_ulMax,
                                  l_Scaling, l_ulNull),
                          l_Expected)
                    << l_Form.pszName << ", round " << l_lRound << ", bytes " << l_ulSize
                    << ", channels " << l_ulChannels << ", room " << l_ulMax;
            }
        }
    }
}

TEST(Forms, OfTheDecoderTakeAnyRoom)
{
    const Bytes l_vCodes(400, 0xBF);
    std::vector<int32_t> l_vlRoom(400 * 4);
    int32_t* const l_aplArrays[] = {&l_vlRoom[0], &l_vlRoom[400], &l_vlRoom[800], &l_vlRoom[1200]};
    for (const uint32_t l_ulMax : {0x40000010U, 0x80000000U, 0xFFFFFFFFU}) {
        for (uint32_t l_ul = 0; l_ul < 4 * SampleForms().size(); ++l_ul) {
            const S_SAMPLE_FORM& l_Form = SampleForms()[l_ul / 4];
            EXPECT_TRUE(!l_Form.pfnRuns() ||
                        l_Form.pfnDecode({l_vCodes.data(), 400, 1 + l_ul % 4, l_ulMax, l_aplArrays,
                                          S_SCALING{}}) == 400)
                << l_Form.pszName << ", room " << l_ulMax;
        }
    }
}

#ifdef TORNVAL_TELLS_STACK
TEST(Forms, OfTheDecoderTakeLittleOfTheirThreadsStack)
{
    CRandom l_Random(3);
    const Bytes l_vCodes = MakeCodes(l_Random, 4000, 70, 50);
    std::vector<int32_t> l_vlRoom(l_vCodes.size());
    std::vector<int32_t*> l_vplArrays;
    for (size_t l_ul = 0; l_ul < 10; ++l_ul) {
        l_vplArrays.push_back(l_vlRoom.data() + 400 * l_ul);
    }
    ptrdiff_t l_lMost = 0;
    for (const S_SAMPLE_FORM& l_Form : SampleForms()) {
        for (uint32_t l_ul = 0; l_ul < 40 && l_Form.pfnRuns(); ++l_ul) {
            const S_SCALING l_Scaling = MakeScaling(l_Random, l_ul % 2 == 0, l_ul / 20);
            const auto l_lTaken = StackTaken([&] {
                l_Form.pfnDecode({l_vCodes.data(), l_vCodes.size(), 1 + l_ul / 2 % 10, 400,
                                  l_vplArrays.data(), l_Scaling});
            });
            EXPECT_LE(l_lTaken, 12288) << l_Form.pszName << ", round " << l_ul;
            l_lMost = std::max(l_lMost, l_lTaken);
        }
    }
    EXPECT_GT(l_lMost, 1024) << "it was measured";
}
#endif
