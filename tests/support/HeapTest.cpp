// What must run without the heap does, down to the C library: malloc itself is counted.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "samples/SampleCode.h"
#include "support/Trace.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HEAP_IS_COUNTED 0 // the sanitizer has put its own malloc there
#elif defined(__has_feature)
#define HEAP_IS_COUNTED (!__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer))
#else
#define HEAP_IS_COUNTED 1
#endif

namespace {

std::atomic<uint32_t> s_ulBlocks{0};

} // namespace

#if HEAP_IS_COUNTED
extern "C" void* __libc_malloc(size_t);
extern "C" void* malloc(size_t i_ulSize)
{
    ++s_ulBlocks;
    return __libc_malloc(i_ulSize);
}
#endif

TEST(Heap, IsNotUsedByATraceLineOrTheSampleCode)
{
    if (!HEAP_IS_COUNTED) {
        GTEST_SKIP() << "a sanitizer has the heap";
    }
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
