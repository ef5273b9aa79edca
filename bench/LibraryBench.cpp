// The small pieces: decoders, CRC, parser, trace, routing.

#include <benchmark/benchmark.h>

#include "TestHome.h"
#include "TornvalC63.h"
#include "bench/Codes.h"
#include "board/IntMeasDriver.h"
#include "samples/SampleCode.h"
#include "simulation/IntMeasDriverSimu.h"

namespace {

void DecodeOne(benchmark::State& io_State)
{
    const auto l_vCodes = MakeCodes(65536, static_cast<unsigned>(io_State.range(0)), 1);
    std::vector<int32_t> l_vlSamples(l_vCodes.size());
    size_t l_ulSamples = 0;
    for (auto _ : io_State) {
        l_ulSamples +=
            tornval::DecodeOneChannel(l_vCodes.data(), l_vCodes.size(), 4, 64, l_vlSamples.data());
        benchmark::ClobberMemory();
    }
    io_State.SetItemsProcessed(static_cast<int64_t>(l_ulSamples));
}
BENCHMARK(DecodeOne)->ArgName("steps%")->Arg(100)->Arg(95)->Arg(50);

/** The driver with three channels and their stores. */
class CBoard : public tornval::CIntMeasDriver
{
public:
    CBoard()
    {
        const CTestHome l_Home("[IM]\nCHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n");
        ScaleInBulk<CIntMeasDriver>(this);
        ReadConfiguration();
        for (auto& l_dA : s_dCoefA) {
            l_dA = 10000.0;
        }
    }
    size_t Decode(const std::vector<uint8_t>& i_vCodes)
    {
        int32_t* l_aplStores[] = {m_ppVoieData[0].Get(), m_ppVoieData[1].Get(),
                                  m_ppVoieData[2].Get()};
        int32_t l_alCounts[3];
        return DecompressSamplesMultiChannel(i_vCodes.data(),
                                             static_cast<uint32_t>(i_vCodes.size()), l_aplStores, 3,
                                             l_alCounts, tornval::k_ulMaxSamples);
    }
};

void DecodeThree(benchmark::State& io_State)
{
    CBoard l_Board;
    const auto l_vCodes = MakeCodes(65000, static_cast<unsigned>(io_State.range(0)), 3);
    size_t l_ulSamples = 0;
    for (auto _ : io_State) {
        l_ulSamples += l_Board.Decode(l_vCodes);
        benchmark::ClobberMemory();
    }
    io_State.SetItemsProcessed(static_cast<int64_t>(l_ulSamples));
}
BENCHMARK(DecodeThree)->ArgName("steps%")->Arg(100)->Arg(95)->Arg(50);

void Crc(benchmark::State& io_State)
{
    const std::vector<uint8_t> l_vBytes(static_cast<size_t>(io_State.range(0)), 0x5A);
    const wire::CCrc16 l_Crc;
    for (auto _ : io_State) {
        benchmark::DoNotOptimize(
            l_Crc.ComputeCrc16(l_vBytes.data(), static_cast<uint32_t>(l_vBytes.size())));
    }
    io_State.SetBytesProcessed(io_State.iterations() * io_State.range(0));
}
BENCHMARK(Crc)->ArgName("bytes")->Arg(8)->Arg(64)->Arg(256)->Arg(4096)->Arg(65536);

void ParseRecording(benchmark::State& io_State)
{
    const CTestHome l_Home("[IM]\n");
    const tornval::CIntMeasDriverSimu l_Board;
    wchar_t l_awszPath[300];
    cecore::Widen(l_awszPath, TORNVAL_RECORDING);
    for (auto _ : io_State) {
        std::vector<double> l_avdColumns[4];
        if (l_Board.LoadSimuFile(l_awszPath, l_avdColumns[0], l_avdColumns[1], l_avdColumns[2],
                                 l_avdColumns[3]) != 1) {
            io_State.SkipWithError("the recording does not load");
        }
    }
    io_State.SetBytesProcessed(io_State.iterations() *
                               static_cast<int64_t>(std::filesystem::file_size(TORNVAL_RECORDING)));
}
BENCHMARK(ParseRecording);

void DisabledTrace(benchmark::State& io_State)
{
    uint32_t l_ulNumber = 0;
    for (auto _ : io_State) {
        tornval::Trace(tornval::INFO_LEVEL, L"a line that goes nowhere: %d %d", l_ulNumber, 7);
        benchmark::DoNotOptimize(++l_ulNumber);
    }
}
BENCHMARK(DisabledTrace);

void ExportedEnum(benchmark::State& io_State)
{
    const CTestHome l_Home("[IM]\nSIMU=1\n");
    LoadMeasDrivers(TORNVAL_LOAD_BOARD | TORNVAL_LOAD_MILLIOHM);
    S_DRIVER_INFO l_aInfo[4];
    uint32_t l_ulCount = 0;
    for (auto _ : io_State) {
        EnumMeasDrivers(l_aInfo, 4, &l_ulCount);
        benchmark::DoNotOptimize(l_ulCount);
    }
    if (l_ulCount != 2) {
        io_State.SkipWithError("two drivers were expected");
    }
}
BENCHMARK(ExportedEnum);

} // namespace
