// Whole roads of the serial board, with a link that answers at once: the library's own share.

#include <random>

#include <benchmark/benchmark.h>

#include "TestHome.h"
#include "board/IntMeasDriverSerial.h"
#include "emulator/SampleEncoder.h"

namespace {

/** A board whose link answers each command at once with a block made beforehand. */
class CInstantBoard : public tornval::CIntMeasDriverSerial
{
public:
    explicit CInstantBoard(const std::vector<uint8_t>& i_vData)
    {
        m_Kind.Transport.pfnControl = static_cast<tornval::PFN_CONTROL>(&CInstantBoard::Answer);
        m_pKind = &m_Kind;
        const CTestHome l_Home("[IM]\nCHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n");
        ScaleInBulk<CIntMeasDriver>(this);
        ReadConfiguration();
        for (auto& l_dA : s_dCoefA) {
            l_dA = 10000.0;
        }
        m_vAnswer.assign(tornval::k_ulAnswerDataOffset, 0);
        m_vAnswer[16] = 1;
        m_vAnswer.insert(m_vAnswer.end(), i_vData.begin(), i_vData.end());
    }

private:
    bool Answer(uint32_t i_ulCode, const void* i_pIn, uint32_t, void* o_pOut, uint32_t,
                uint32_t* o_pulReturned)
    {
        if (i_ulCode == IOCTL_RS_SEND_COMMAND) {
            wire::WriteLe32(static_cast<uint8_t*>(o_pOut), 0);
            return ::SetEvent(wire::ReadLe32(static_cast<const uint8_t*>(i_pIn) +
                                             RS_BLOCK_EVENT_OFFSET)) != 0;
        }
        std::memcpy(o_pOut, m_vAnswer.data(), m_vAnswer.size());
        *o_pulReturned = static_cast<uint32_t>(m_vAnswer.size());
        return true;
    }

    tornval::S_WIRE_KIND m_Kind = *m_pKind;
    std::vector<uint8_t> m_vAnswer;
};

/** A send of 211, its fetch, and 65,000 sample bytes decoded and calibrated on three channels. */
void Upload65000(benchmark::State& io_State)
{
    std::mt19937 l_Random(42);
    std::vector<emulator::S_SAMPLE> l_vSamples(65000);
    int l_lValue = 0;
    for (emulator::S_SAMPLE& l_Sample : l_vSamples) {
        l_lValue = std::clamp(l_lValue + static_cast<int>(l_Random() % 127) - 63, -4000, 4000);
        l_Sample.sValue = static_cast<int16_t>(l_lValue);
    }
    std::vector<uint8_t> l_vCodes = emulator::EncodeSamples(l_vSamples, 3).vCodes;
    l_vCodes.resize(65000);
    std::vector<uint8_t> l_vData(4);
    wire::WriteLe32(l_vData.data(), 65000);
    l_vData.insert(l_vData.end(), l_vCodes.begin(), l_vCodes.end());
    CInstantBoard l_Board(l_vData);
    tornval::CMeasDriver& l_Driver = l_Board;
    std::vector<char> l_vRaw(65544);
    std::vector<int32_t> l_vlData(3 + 3 * 65544);
    S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
    S_RECEIVE_STRUCT l_Receive{};
    int32_t l_lSize = 0;
    for (auto _ : io_State) {
        l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0);
        if (l_Driver.GetResult(65544, l_vRaw.data(), &l_lSize, l_vlData.data(), 0, 1).ulStatus !=
            0) {
            io_State.SkipWithError("the upload failed");
        }
    }
    io_State.SetBytesProcessed(io_State.iterations() * 65000);
}
BENCHMARK(Upload65000)->Unit(benchmark::kMicrosecond);

void BlockingMeasure(benchmark::State& io_State)
{
    CInstantBoard l_Board({2, 0, 0, 0, 0x39, 0x30, 0, 0});
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
