// What must run without the heap does, down to the C library: malloc itself is counted, so a
// sanitizer, which brings its own, leaves this file out.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "samples/SampleCode.h"
#include "support/Trace.h"

namespace {

std::atomic<uint32_t> s_ulBlocks{0};

} // namespace

extern "C" void* __libc_malloc(size_t);
extern "C" void* malloc(size_t i_ulSize)
{
    ++s_ulBlocks;
    return __libc_malloc(i_ulSize);
}

TEST(Heap, IsNotUsedByATraceLineOrTheSampleCode)
{
    const CTestHome l_Home;
    tornval::SetTraceLog(
        std::make_unique<tornval::CTraceLogFile>("\\hd00\\log_tornval.txt", uint16_t{0x1111}));
    static uint8_t s_aucCodes[5000];
    static int32_t s_alSamples[5000];
    std::fill(std::begin(s_aucCodes), std::end(s_aucCodes), uint8_t{0x81});
    uint32_t l_ulBefore = s_ulBlocks;
    for (int i = 0; i < 10; ++i) {
        tornval::Trace(tornval::ERROR_LEVEL, L"%s %S %f %d", L"w", "n", 1e300, i);
    }
    const size_t l_ulSamples = tornval::DecodeOneChannel(s_aucCodes, 5000, 4, 64, s_alSamples);
    EXPECT_EQ(s_ulBlocks - l_ulBefore, 0U);
    EXPECT_EQ(l_ulSamples, 5000U);
    l_ulBefore = s_ulBlocks;
    EXPECT_EQ(l_Home.TraceLines().size(), 10U);
    EXPECT_NE(s_ulBlocks - l_ulBefore, 0U) << "it counts";
}
