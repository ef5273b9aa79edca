// The serial road over pseudo terminals: what the link adds to an exchange, and how much of a line's
// rate uploads reach.

#include <fcntl.h>
#include <poll.h>

#include <benchmark/benchmark.h>

#include "driver/Records.h"
#include "emulator/Recording.h"
#include "links/SerialLine.h"

namespace {

using S_CLOCK = std::chrono::steady_clock;

double Seconds(S_CLOCK::duration i_Time)
{
    return std::chrono::duration<double>(i_Time).count();
}

/** A measure by hand: the bytes written, the answer read, nothing between. */
bool MeasureByHand(int i_lFd, const Bytes& i_vCommand)
{
    if (write(i_lFd, i_vCommand.data(), i_vCommand.size()) !=
        static_cast<ssize_t>(i_vCommand.size())) {
        return false;
    }
    std::array<uint8_t, 64> l_aucAnswer{};
    constexpr ssize_t k_lAnswer = 26;
    for (ssize_t l_lRead = 0; l_lRead < k_lAnswer;) {
        pollfd l_Polled{i_lFd, POLLIN, 0};
        const ssize_t l_lCount = poll(&l_Polled, 1, 1000) == 1
                                     ? read(i_lFd, l_aucAnswer.data(), l_aucAnswer.size())
                                     : -1;
        if (l_lCount <= 0) {
            return false;
        }
        l_lRead += l_lCount;
    }
    return true;
}

/** A measure with and without the link, by turns, over the same terminal, which the link has known for
 *  a while. */
void SerialExchange(benchmark::State& io_State)
{
    const S_FAR_ENDS l_Far;
    const CTestHome l_Home(l_Far.Section());
    const Bytes l_vCommand = Request(212, {2});
    S_CLOCK::duration l_Bare{}, l_Linked{};
    constexpr int k_lTurn = 200;
    int64_t l_lExchanges = 0;
    while (io_State.KeepRunningBatch(k_lTurn)) {
        {
            const wire::CDescriptor l_Fd(
                open(l_Far.BoardPty.Name().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
            const auto l_Start = S_CLOCK::now();
            for (int i = 0; i < k_lTurn; ++i) {
                if (!MeasureByHand(l_Fd.Get(), l_vCommand)) {
                    io_State.SkipWithError("no answer by hand");
                    return;
                }
            }
            l_Bare += S_CLOCK::now() - l_Start;
        }
        links::CSerialLink l_Link;
        l_Link.Open(k_OpenBoard);
        S_LINK_EXCHANGE l_Exchange{l_Link};
        // Behind a load a measure of the same input waits for a copy of the answer before.
        constexpr int k_lUnknown = 20;
        for (int i = 0; i < k_lUnknown; ++i) {
            l_Exchange.Send(l_vCommand);
            l_Exchange.Value();
        }
        const auto l_Start = S_CLOCK::now();
        for (int i = 0; i < k_lTurn; ++i) {
            if (l_Exchange.Send(l_vCommand) != 0 || l_Exchange.Value() != 3002) {
                io_State.SkipWithError("no answer over the link");
                return;
            }
        }
        const auto l_Time = S_CLOCK::now() - l_Start;
        l_Linked += l_Time;
        io_State.SetIterationTime(Seconds(l_Time));
        l_lExchanges += k_lTurn;
    }
    const auto l_dExchanges = static_cast<double>(l_lExchanges);
    io_State.counters["bare_us"] = 1e6 * Seconds(l_Bare) / l_dExchanges;
    io_State.counters["link_us"] = 1e6 * Seconds(l_Linked) / l_dExchanges;
    io_State.counters["added_us"] = 1e6 * Seconds(l_Linked - l_Bare) / l_dExchanges;
}
BENCHMARK(SerialExchange)->UseManualTime()->Iterations(10'000);

/** The real drivers over serial_link.so, with a line of the given rate. */
class CSerialHost
{
public:
    explicit CSerialHost(uint32_t i_ulPace)
        : m_Far(emulator::S_LINE{std::chrono::milliseconds(400), i_ulPace}),
          m_Home("[IM]\nDRIVER_NAME=" SERIAL_LINK "\nCHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n" +
                 m_Far.Section())
    {
        std::string l_strError;
        m_Far.Board.SetRecording(emulator::CRecording::Load(TORNVAL_RECORDING, l_strError));
        LoadMeasDrivers(0x10);
        S_DRIVER_INFO l_Info{};
        uint32_t l_ulCount = 0;
        EnumMeasDrivers(&l_Info, 1, &l_ulCount);
        m_ulBoard = l_Info.ulDriverID;
    }
    CSerialHost(const CSerialHost&) = delete;
    CSerialHost& operator=(const CSerialHost&) = delete;
    ~CSerialHost() { LoadMeasDrivers(0); }

    S_FAR_ENDS m_Far;
    const CTestHome m_Home;
    uint32_t m_ulBoard = 0;
};

void SerialInstantMeasure(benchmark::State& io_State)
{
    const CSerialHost l_Host(0);
    for (auto l_Each : io_State) {
        int32_t l_lValue = 0;
        if (GetInstantMeasure(&l_lValue, 2).ulStatus != 0) {
            io_State.SkipWithError("no measure");
            return;
        }
        benchmark::DoNotOptimize(l_lValue);
    }
}
BENCHMARK(SerialInstantMeasure)->UseRealTime();

/** Blocks uploaded back to back, decoded and calibrated, at 460800 baud. */
void SerialUpload(benchmark::State& io_State)
{
    constexpr uint32_t k_ulBaudRate = 460800;
    CSerialHost l_Host(k_ulBaudRate);
    l_Host.m_Far.Board.SetRows(static_cast<uint32_t>(io_State.range(0)));
    std::vector<char> l_vcRaw(65544);
    std::vector<int32_t> l_vlData(3 + 3 * 65544);
    uint64_t l_ullAnswers = 0, l_ullCommands = 0;
    const auto l_Start = S_CLOCK::now();
    for (auto l_Each : io_State) {
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
        S_RECEIVE_STRUCT l_Receive{};
        int32_t l_lSize = 0;
        if (SendMeasBoardCmd(l_Host.m_ulBoard, &l_Cmde, &l_Receive, nullptr).ulStatus != 0 ||
            GetMeasBoardResult(l_Host.m_ulBoard, l_Receive.ulNbReturnByte, l_vcRaw.data(), &l_lSize,
                               l_vlData.data(), 0)
                    .ulStatus != 0) {
            io_State.SkipWithError("no upload");
            return;
        }
        l_ullAnswers += emulator::FrameLength(
            std::span(reinterpret_cast<const uint8_t*>(l_vcRaw.data()), l_vcRaw.size()));
        l_ullCommands += RS_FRAME_DATA_OFFSET;
    }
    const double l_dLine = Seconds(S_CLOCK::now() - l_Start) * k_ulBaudRate / 10.0;
    io_State.counters["bytes"] =
        static_cast<double>(l_ullAnswers) / static_cast<double>(io_State.iterations());
    io_State.counters["answers_%"] = 100.0 * static_cast<double>(l_ullAnswers) / l_dLine;
    io_State.counters["line_%"] =
        100.0 * static_cast<double>(l_ullAnswers + l_ullCommands) / l_dLine;
}
BENCHMARK(SerialUpload)
    ->ArgName("rows")
    ->Args({300})
    ->Args({3000})
    ->Args({21'000})
    ->Iterations(5)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
