#include "bench/Roads.h"

#include <array>
#include <charconv>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <malloc.h>
#include <unistd.h>

#include "CsvFile.h"
#include "Samples.h"
#include "TornvalC63.h"
#include "bench/InstantBoard.h"
#include "samples/SampleCode.h"
#include "simulation/IntMeasDriverSimu.h"

namespace {

void Need(bool i_bGood, const char* i_pszWhat)
{
    if (!i_bGood) {
        throw std::runtime_error(i_pszWhat);
    }
}

/** Nanoseconds of one call among that many. */
template <typename Work>
double Time(size_t i_ulCalls, Work&& i_fnWork)
{
    const double l_dStart = ThreadNanoseconds();
    for (size_t l_ul = 0; l_ul < i_ulCalls; ++l_ul) {
        i_fnWork();
    }
    return (ThreadNanoseconds() - l_dStart) / static_cast<double>(i_ulCalls);
}

double Upload(size_t i_ulBefore)
{
    CUpload l_Upload(65000);
    for (size_t l_ul = 0; l_ul < i_ulBefore; ++l_ul) {
        Need(l_Upload.Run(), "the upload failed");
    }
    return Time(1, [&] { Need(l_Upload.Run(), "the upload failed"); }) / 1e3;
}

/** What no road of an upload can be below: its samples decoded and calibrated, and nothing besides. */
double DecodeAlone(size_t i_ulBefore)
{
    const std::vector<uint8_t> l_vCodes = MakeCodes(65000, 100, 3);
    tornval::S_SCALING l_Scaling;
    l_Scaling.bCalibrated = true;
    l_Scaling.aChannels.fill({1, 1, 10000.0, 0.0});
    const auto l_pOutput = std::make_unique_for_overwrite<int32_t[]>(3 * 65544);
    int32_t* const l_aplArrays[] = {l_pOutput.get(), &l_pOutput[65544], &l_pOutput[2 * 65544]};
    const auto l_fnDecode = [&] {
        Need(tornval::DecodeStream({l_vCodes.data(), l_vCodes.size(), 3, 65544, l_aplArrays,
                                    l_Scaling}) == l_vCodes.size(),
             "the samples were not decoded");
    };
    for (size_t l_ul = 0; l_ul < i_ulBefore; ++l_ul) {
        l_fnDecode();
    }
    return Time(1, l_fnDecode) / 1e3;
}

void UsePortableForms()
{
    wire::UseCrcForm(&wire::CrcForms().back());
    tornval::UseSampleForm(&tornval::SampleForms().back());
}

double Measure(const char* i_pszLog)
{
    CInstantBoard l_Board(MeasureAnswer());
    const CTestHome l_Home(i_pszLog);
    uint32_t l_ulCount = 0;
    EnumMeasDrivers(nullptr, 0, &l_ulCount); // the router's construction installs the logger
    int32_t l_lValue = 0;
    return Time(20'000,
                [&] {
                    Need(l_Board.GetInstantMeasure(&l_lValue, 2, 1, 0).ulStatus == 0 &&
                             l_lValue == 12345,
                         "the measure failed");
                }) /
           1e3;
}

constexpr const char* k_pszReal = "[IM]\nDRIVER_NAME=" VIRTUAL_LINK "\nCHANNEL_1=0\nCHANNEL_2=1\n"
                                  "CHANNEL_3=2\n";
constexpr const char* k_pszSimulated = "[IM]\nSIMU=1\n";

double Enumerate(const char* i_pszConfiguration)
{
    const CTestHome l_Home(i_pszConfiguration);
    Need(LoadMeasDrivers(TORNVAL_LOAD_BOARD | TORNVAL_LOAD_MILLIOHM).ulStatus == 0, "no drivers");
    S_DRIVER_INFO l_aInfo[4];
    uint32_t l_ulCount = 0;
    const double l_dTime = Time(200'000, [&] { EnumMeasDrivers(l_aInfo, 4, &l_ulCount); });
    Need(l_ulCount == 2, "two drivers were expected");
    LoadMeasDrivers(0);
    return l_dTime;
}

/** Two records copied, with the language's own mutex held. */
double EnumerateAlone()
{
    std::recursive_mutex l_Mutex;
    const S_DRIVER_INFO l_aKnown[2] = {{"one", "IM", 4000}, {"two", "MO", 5001}};
    S_DRIVER_INFO l_aInfo[2];
    return Time(200'000, [&] {
        const std::lock_guard l_Lock(l_Mutex);
        std::memcpy(l_aInfo, l_aKnown, sizeof l_aInfo);
        asm volatile("" ::"m"(l_aInfo) : "memory"); // the copy stays
    });
}

double Lock()
{
    CInstantBoard l_Board({});
    return Time(2'000'000, [&] {
        l_Board.LockDriver();
        l_Board.UnlockDriver();
    });
}

/** What the language's own mutex costs on this machine: a measure for the one above. */
double StandardLock()
{
    std::recursive_mutex l_Mutex;
    return Time(2'000'000, [&] {
        l_Mutex.lock();
        l_Mutex.unlock();
    });
}

/** Eight threads on eight drivers: what one lock and unlock costs a thread. */
double LockByEight()
{
    std::vector<std::unique_ptr<CInstantBoard>> l_vpBoards;
    std::vector<double> l_vdTimes(8);
    for (size_t l_ul = 0; l_ul < l_vdTimes.size(); ++l_ul) {
        l_vpBoards.push_back(std::make_unique<CInstantBoard>(std::vector<uint8_t>()));
    }
    {
        std::vector<std::jthread> l_vThreads;
        for (size_t l_ul = 0; l_ul < l_vdTimes.size(); ++l_ul) {
            l_vThreads.emplace_back([&, l_ul] {
                l_vdTimes[l_ul] = Time(500'000, [&] {
                    l_vpBoards[l_ul]->LockDriver();
                    l_vpBoards[l_ul]->UnlockDriver();
                });
            });
        }
    }
    std::sort(l_vdTimes.begin(), l_vdTimes.end());
    return l_vdTimes[l_vdTimes.size() / 2];
}

/** Megabytes a second of a replay file of many copies of the recording. */
double Replay()
{
    const CTestHome l_Home("[IM]\n");
    std::ostringstream l_Rows;
    l_Rows << std::ifstream(TORNVAL_RECORDING, std::ios::binary).rdbuf();
    std::string l_strText;
    while (l_strText.size() < 14'000'000) {
        l_strText += l_Rows.str();
    }
    l_Home.Write("replay.txt", l_strText);
    const tornval::CIntMeasDriverSimu l_Board;
    wchar_t l_awszPath[300];
    cecore::Widen(l_awszPath, l_Home.Path("replay.txt").c_str());
    std::vector<double> l_avdColumns[4];
    const double l_dTime = Time(1, [&] {
        Need(l_Board.LoadSimuFile(l_awszPath, l_avdColumns[0], l_avdColumns[1], l_avdColumns[2],
                                  l_avdColumns[3]) == 1,
             "the recording does not load");
    });
    return static_cast<double>(l_strText.size()) / l_dTime * 1e3;
}

/** Nanoseconds a row. */
double WriteCsv(size_t i_ulRows)
{
    const CTestHome l_Home("");
    host::Channels l_vChannels(3);
    for (size_t l_ul = 0; l_ul < i_ulRows; ++l_ul) {
        for (size_t l_ulChannel = 0; l_ulChannel < 3; ++l_ulChannel) {
            l_vChannels[l_ulChannel].push_back(static_cast<int32_t>(l_ul * 7919) % 400'000 -
                                               200'000);
        }
    }
    host::S_CSV_FORM l_Form;
    l_Form.vColumns = {"channel 0", "channel 1", "channel 2"};
    host::CCsvFile l_File(l_Home.Path("rows.csv"), std::move(l_Form));
    const size_t l_ulBlocks = 600'000 / i_ulRows;
    return Time(l_ulBlocks, [&] { l_File.Append(l_vChannels); }) / static_cast<double>(i_ulRows);
}

/** The numbers of those rows, put into words and kept nowhere. */
double WordCsv()
{
    std::array<char, 64> l_szRow{};
    int32_t l_lRow = 0;
    return Time(600'000, [&] {
        char* l_pEnd = std::to_chars(l_szRow.data(), l_szRow.data() + 20, l_lRow++).ptr;
        const int32_t l_lValue = l_lRow % 400'000 - 200'000;
        for (int l_lChannel = 0; l_lChannel < 3; ++l_lChannel) {
            l_pEnd = std::to_chars(l_pEnd, l_szRow.data() + l_szRow.size(), l_lValue).ptr;
        }
        asm volatile("" ::"m"(l_szRow) : "memory");
    });
}

double ResidentMegabytes()
{
    size_t l_ulPages = 0, l_ulResident = 0;
    std::ifstream("/proc/self/statm") >> l_ulPages >> l_ulResident;
    return static_cast<double>(l_ulResident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

double LoadedMemory()
{
    const CTestHome l_Home(k_pszReal);
    LoadMeasDrivers(0);
    const double l_dBefore = ResidentMegabytes();
    Need(LoadMeasDrivers(TORNVAL_LOAD_BOARD | TORNVAL_LOAD_MILLIOHM).ulStatus == 0, "no drivers");
    return ResidentMegabytes() - l_dBefore;
}

/** Bytes of heap that each of many loads leaves behind. */
double HeapOfLoads()
{
    constexpr int k_lLoads = 20'000;
    const CTestHome l_Home(k_pszSimulated);
    size_t l_ulBefore = 0;
    for (int l_l = 0; l_l < k_lLoads + 100; ++l_l) {
        if (l_l == 100) {
            l_ulBefore = mallinfo2().uordblks;
        }
        LoadMeasDrivers(TORNVAL_LOAD_BOARD | TORNVAL_LOAD_MILLIOHM);
    }
    const auto l_lGrown = static_cast<ptrdiff_t>(mallinfo2().uordblks - l_ulBefore);
    return static_cast<double>(l_lGrown) / k_lLoads;
}

constexpr S_ROAD k_aRoads[] = {
    {"upload", "us", "upload of 65,000 sample bytes, sent, fetched, decoded, calibrated: first use",
     [] { return Upload(0); }},
    {"upload-again", "us", "the same, the twentieth in a process", [] { return Upload(19); }},
    {"decode", "us", "to compare: those samples decoded and calibrated alone: first use",
     [] { return DecodeAlone(0); }},
    {"decode-again", "us", "the same, the twentieth in a process", [] { return DecodeAlone(19); }},
    {"upload-portable", "us", "the upload with the portable kernels: first use",
     [] {
         UsePortableForms();
         return Upload(0);
     }},
    {"measure", "us", "blocking measure over a link that answers at once",
     [] { return Measure("[IM]\n"); }},
    {"measure-log", "us", "the same with a log on at `LEVEL=16`",
     [] { return Measure("[LOG]\nENABLE=1\nTYPE=1\nLEVEL=16\n[IM]\n"); }},
    {"enum-simulated", "ns", "`EnumMeasDrivers`, two simulated drivers",
     [] { return Enumerate(k_pszSimulated); }},
    {"enum-real", "ns", "`EnumMeasDrivers`, two real drivers", [] { return Enumerate(k_pszReal); }},
    {"enum-alone", "ns", "to compare: two records copied under a `std::recursive_mutex`",
     [] { return EnumerateAlone(); }},
    {"lock", "ns", "lock and unlock of a driver", [] { return Lock(); }},
    {"lock-standard", "ns", "to compare: the same of a `std::recursive_mutex`",
     [] { return StandardLock(); }},
    {"lock-8", "ns", "the same by each of 8 threads, on 8 drivers", [] { return LockByEight(); }},
    {"replay", "MB/s", "replay file of 14 MB: first use", [] { return Replay(); }},
    {"csv-300", "ns", "CSV row, 300 a block", [] { return WriteCsv(300); }},
    {"csv-21000", "ns", "CSV row, 21,000 a block", [] { return WriteCsv(21'000); }},
    {"csv-alone", "ns", "to compare: the numbers of a row by `std::to_chars`",
     [] { return WordCsv(); }},
    {"memory", "MB", "resident memory that a load of both real drivers adds",
     [] { return LoadedMemory(); }},
    {"heap", "B", "heap that a load leaves behind, over 20,000 loads",
     [] { return HeapOfLoads(); }}};

} // namespace

std::span<const S_ROAD> Roads()
{
    return k_aRoads;
}
