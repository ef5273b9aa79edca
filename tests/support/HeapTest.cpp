// What must run without the heap does.
#include <memory>

#include <gtest/gtest.h>

#include "HeapCount.h"
#include "TestHome.h"
#include "samples/SampleCode.h"
#include "support/Trace.h"

TEST(Heap, IsNotUsedByATraceLineOrTheSampleCode)
{
    const CTestHome l_Home;
    tornval::SetTraceLog(
        std::make_unique<tornval::CTraceLogFile>("\\hd00\\log_tornval.txt", uint16_t{0x1111}));
    static uint8_t s_aucCodes[5000];
    static int32_t s_alSamples[5000];
    std::fill(std::begin(s_aucCodes), std::end(s_aucCodes), uint8_t{0x81});
    EXPECT_EQ(CountBlocks([] {
                  for (int i = 0; i < 10; ++i) {
                      tornval::Trace(tornval::ERROR_LEVEL, L"%s %S %f %d", L"w", "n", 1e300, i);
                  }
                  tornval::DecodeOneChannel(s_aucCodes, 5000, 4, 64, s_alSamples);
              }),
              0U);
    EXPECT_EQ(s_alSamples[4999], 20000);
    EXPECT_NE(CountBlocks([&] { EXPECT_EQ(l_Home.TraceLines().size(), 10U); }), 0U) << "it counts";
}
