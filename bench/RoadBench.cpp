// Whole roads of the serial board, with a link that answers at once: the library's own share.

#include <benchmark/benchmark.h>

#include "bench/InstantBoard.h"

namespace {

/** A send of 211, its fetch, and 65,000 sample bytes decoded and calibrated on three channels. */
void Upload65000(benchmark::State& io_State)
{
    CUpload l_Upload(65000);
    for (auto _ : io_State) {
        if (!l_Upload.Run()) {
            io_State.SkipWithError("the upload failed");
        }
    }
    io_State.SetBytesProcessed(io_State.iterations() * 65000);
}
BENCHMARK(Upload65000)->Unit(benchmark::kMicrosecond);

void BlockingMeasure(benchmark::State& io_State)
{
    CInstantBoard l_Board(MeasureAnswer());
    int32_t l_lValue = 0;
    for (auto _ : io_State) {
        if (l_Board.GetInstantMeasure(&l_lValue, 2, 1, 0).ulStatus != 0) {
            io_State.SkipWithError("the measure failed");
        }
    }
}
BENCHMARK(BlockingMeasure)->Unit(benchmark::kMicrosecond);

/** What the two zeroed blocks of a blocking command cost of that. */
void ZeroTwoBlocks(benchmark::State& io_State)
{
    for (auto _ : io_State) {
        const std::unique_ptr<tornval::S_DATA> l_pFrame(new tornval::S_DATA());
        const std::unique_ptr<tornval::S_DATA> l_pAnswer(new tornval::S_DATA());
        benchmark::DoNotOptimize(l_pFrame.get());
        benchmark::DoNotOptimize(l_pAnswer.get());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(ZeroTwoBlocks)->Unit(benchmark::kMicrosecond);

} // namespace
