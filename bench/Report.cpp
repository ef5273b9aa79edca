// Kernels against plain loops and peers, all interleaved in one process; and whole roads, each in a
// process of its own. script/bench --report puts the parts together.
//
// tornval_report kernels | curve | road NAME | roads
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "bench/Codes.h"
#include "bench/Peers.h"
#include "bench/Roads.h"
#include "samples/PlainLoops.h"
#include "wire/Crc16.h"

namespace {

constexpr size_t k_ulRounds = 11;

/** Kernels by name; each is timed by turns with all others. */
class CRace
{
public:
    void Add(const std::string& i_strName, std::function<void()> i_fnRun)
    {
        m_vRunners.push_back({i_strName, std::move(i_fnRun), 1, {}});
    }

    /** Runs all, a few milliseconds each, round after round. */
    void Run()
    {
        for (S_RUNNER& l_Runner : m_vRunners) {
            while (Time(l_Runner) < 1e6) {
                l_Runner.ulRepeats *= 2;
            }
        }
        for (size_t l_ul = 0; l_ul < k_ulRounds; ++l_ul) {
            for (S_RUNNER& l_Runner : m_vRunners) {
                l_Runner.vdTimes.push_back(Time(l_Runner) /
                                           static_cast<double>(l_Runner.ulRepeats));
            }
        }
        for (S_RUNNER& l_Runner : m_vRunners) {
            std::sort(l_Runner.vdTimes.begin(), l_Runner.vdTimes.end());
            m_Medians[l_Runner.strName] = l_Runner.vdTimes[k_ulRounds / 2];
        }
    }

    /** Nanoseconds of one run; 0 if nobody of that name ran. */
    [[nodiscard]] double Median(const std::string& i_strName) const
    {
        const auto l_Found = m_Medians.find(i_strName);
        return l_Found == m_Medians.end() ? 0 : l_Found->second;
    }

    /** How many times faster the second one is, as text. */
    [[nodiscard]] std::string Ratio(const std::string& i_strPeer,
                                    const std::string& i_strOurs) const
    {
        const double l_dPeer = Median(i_strPeer);
        const double l_dOurs = Median(i_strOurs);
        if (l_dPeer == 0 || l_dOurs == 0) {
            return "not measured";
        }
        char l_acText[32];
        (void)std::snprintf(l_acText, sizeof(l_acText), l_dPeer / l_dOurs < 10 ? "%.2f" : "%.0f",
                            l_dPeer / l_dOurs);
        return l_acText;
    }

private:
    struct S_RUNNER
    {
        std::string strName;
        std::function<void()> fnRun;
        size_t ulRepeats;
        std::vector<double> vdTimes;
    };

    static double Time(const S_RUNNER& i_Runner)
    {
        const double l_dStart = ThreadNanoseconds();
        for (size_t l_ul = 0; l_ul < i_Runner.ulRepeats; ++l_ul) {
            i_Runner.fnRun();
        }
        return ThreadNanoseconds() - l_dStart;
    }

    std::vector<S_RUNNER> m_vRunners;
    std::map<std::string, double> m_Medians;
};

/** What the compiler must take for read. */
template <typename Value>
void Use(const Value& i_Value)
{
    asm volatile("" : : "r"(&i_Value) : "memory");
}

/** The forms that are told apart: the one that is chosen here, the next best if there is one between them,
 *  and the portable one. */
template <typename Form>
std::vector<std::pair<std::string, const Form*>> Named(std::span<const Form> i_Forms)
{
    std::vector<std::pair<std::string, const Form*>> l_vNamed;
    const char* l_pszName = "chosen";
    for (const Form& l_Form : i_Forms) {
        if (l_Form.pfnRuns() && l_vNamed.size() < 2 && &l_Form != &i_Forms.back()) {
            l_vNamed.emplace_back(std::exchange(l_pszName, "next"), &l_Form);
        }
    }
    if (l_vNamed.empty()) {
        l_vNamed.emplace_back("chosen", &i_Forms.back());
    }
    l_vNamed.emplace_back("portable", &i_Forms.back());
    return l_vNamed;
}

/** Names of the forms of CRC and decoder that come at that place, counted from 0. */
std::string NamesAt(size_t i_ulPlace)
{
    const auto l_vCrc = Named(wire::CrcForms());
    const auto l_vDecoder = Named(tornval::SampleForms());
    const auto l_fnName = [&](const auto& i_vNamed) {
        return i_ulPlace + 1 < i_vNamed.size() ? i_vNamed[i_ulPlace].second->pszName : "none";
    };
    return std::string(l_fnName(l_vCrc)) + ", " + l_fnName(l_vDecoder);
}

// A run is that many: one alone takes no longer than the call of a runner.
constexpr size_t k_ulCrcCalls = 100;

/** Calls that each wait for the one before, as an exchange waits for its CRC. */
template <typename Crc>
void RunCrc(Crc&& i_fnCrc)
{
    size_t l_ulPlace = 0;
    for (size_t l_ul = 0; l_ul < k_ulCrcCalls; ++l_ul) {
        size_t l_ulCrc = i_fnCrc(l_ulPlace);
        asm volatile("" : "+r"(l_ulCrc) : : "memory");
        l_ulPlace = l_ulCrc >> 16; // none, but who knows
    }
}

void AddCrc(CRace& io_Race, std::vector<uint8_t>& io_vBytes)
{
    for (const size_t l_ulSize : {8U, 64U, 256U, 4096U}) {
        const std::string l_strSize = " crc " + std::to_string(l_ulSize);
        for (const auto& [l_strName, l_pForm] : Named(wire::CrcForms())) {
            io_Race.Add(l_strName + l_strSize, [&io_vBytes, l_ulSize, l_pForm = l_pForm] {
                wire::UseCrcForm(l_pForm);
                RunCrc([&](size_t i_ulPlace) {
                    return wire::CCrc16().ComputeCrc16(io_vBytes.data() + i_ulPlace,
                                                       static_cast<uint32_t>(l_ulSize));
                });
            });
        }
#ifdef BENCH_LIBMODBUS
        io_Race.Add("libmodbus" + l_strSize, [&io_vBytes, l_ulSize] {
            RunCrc([&](size_t i_ulPlace) {
                return BenchModbusCrc(io_vBytes.data() + i_ulPlace,
                                      static_cast<uint16_t>(l_ulSize));
            });
        });
#endif
    }
}

/** Codes of one kind, and where their samples go. */
struct S_WORK
{
    S_WORK(unsigned i_ulSteps, uint32_t i_ulNbChannel, size_t i_ulBytes)
        : vCodes(MakeCodes(i_ulBytes, i_ulSteps, i_ulNbChannel)),
          vlOutput(i_ulNbChannel * i_ulBytes)
    {
        for (uint32_t l_ul = 0; l_ul < i_ulNbChannel; ++l_ul) {
            vplArrays.push_back(vlOutput.data() + l_ul * i_ulBytes);
        }
        Scaling.bCalibrated = i_ulNbChannel > 1;
        for (tornval::S_CHANNEL_SCALE& l_Scale : Scaling.aChannels) {
            l_Scale = {4, 64, 10000.0, 123.0};
        }
    }
    [[nodiscard]] tornval::S_STREAM Stream() const
    {
        return {vCodes.data(),
                vCodes.size(),
                static_cast<uint32_t>(vplArrays.size()),
                static_cast<uint32_t>(vCodes.size()),
                vplArrays.data(),
                Scaling};
    }

    std::vector<uint8_t> vCodes;
    std::vector<int32_t> vlOutput;
    std::vector<int32_t*> vplArrays;
    tornval::S_SCALING Scaling;
    std::vector<int32_t> vlSteim;
    std::vector<uint8_t> vStreamVByte;
    std::vector<uint32_t> vulZigzag;
};

[[gnu::noinline]] size_t DecodePlainly(const tornval::S_STREAM& i_Stream)
{
    return PlainDecode(i_Stream);
}

/** The same values for those who code them their own way. */
void AddPeers(CRace& io_Race, const std::string& i_strKind, S_WORK& io_Work)
{
    const size_t l_ulSamples = DecodePlainly(io_Work.Stream());
    std::vector<int32_t> l_vlValues(io_Work.vlOutput.begin(),
                                    io_Work.vlOutput.begin() + static_cast<ptrdiff_t>(l_ulSamples));
    for (int32_t& l_lValue : l_vlValues) {
        l_lValue /= io_Work.Scaling.aChannels[0].lLow;
    }
    const auto l_lSamples = static_cast<int>(l_ulSamples);
#ifdef BENCH_LIBMSEED
    io_Work.vlSteim.resize(2 * l_ulSamples + 64);
    const auto l_lRoom = static_cast<int>(io_Work.vlSteim.size() / 16 * 64);
    if (msr_encode_steim1(l_vlValues.data(), l_lSamples, io_Work.vlSteim.data(), l_lRoom, 0, 0) ==
        l_lSamples) {
        io_Race.Add("steim" + i_strKind, [&io_Work, l_lRoom, l_lSamples] {
            Use(msr_decode_steim1(io_Work.vlSteim.data(), l_lRoom, l_lSamples,
                                  io_Work.vlOutput.data(), 4 * l_lSamples, nullptr, 0));
        });
    }
#endif
#ifdef BENCH_STREAMVBYTE
    io_Work.vulZigzag.resize(l_ulSamples);
    io_Work.vStreamVByte.resize(streamvbyte_max_compressedbytes(static_cast<uint32_t>(l_lSamples)));
    zigzag_delta_encode(l_vlValues.data(), io_Work.vulZigzag.data(), l_ulSamples, 0);
    streamvbyte_encode(io_Work.vulZigzag.data(), static_cast<uint32_t>(l_lSamples),
                       io_Work.vStreamVByte.data());
    io_Race.Add("streamvbyte" + i_strKind, [&io_Work, l_ulSamples] {
        streamvbyte_decode(io_Work.vStreamVByte.data(), io_Work.vulZigzag.data(),
                           static_cast<uint32_t>(l_ulSamples));
        zigzag_delta_decode(io_Work.vulZigzag.data(), io_Work.vlOutput.data(), l_ulSamples, 0);
        Use(io_Work.vlOutput[0]);
    });
#endif
    (void)io_Race;
    (void)i_strKind;
    (void)l_lSamples;
}

constexpr unsigned k_aulSteps[] = {100, 95, 50};

void AddDecoders(CRace& io_Race, std::vector<std::unique_ptr<S_WORK>>& io_vWorks)
{
    for (const uint32_t l_ulNbChannel : {1U, 3U}) {
        for (const unsigned l_ulSteps : k_aulSteps) {
            io_vWorks.push_back(std::make_unique<S_WORK>(l_ulSteps, l_ulNbChannel, 65536));
            S_WORK& l_Work = *io_vWorks.back();
            const std::string l_strKind =
                " " + std::to_string(l_ulNbChannel) + " " + std::to_string(l_ulSteps);
            io_Race.Add("plain" + l_strKind, [&l_Work] { Use(DecodePlainly(l_Work.Stream())); });
            for (const auto& [l_strName, l_pForm] : Named(tornval::SampleForms())) {
                io_Race.Add(l_strName + l_strKind, [&l_Work, l_pForm = l_pForm] {
                    Use(l_pForm->pfnDecode(l_Work.Stream()));
                });
            }
            if (l_ulNbChannel == 1) {
                AddPeers(io_Race, l_strKind, l_Work);
            }
        }
    }
}

/** Millions of samples a second over works with the same number of channels, with slashes between. */
void PrintSpeeds(const CRace& i_Race, const std::string& i_strWho,
                 std::span<const std::unique_ptr<S_WORK>> i_Works)
{
    const char* l_pszBetween = " ";
    for (size_t l_ul = 0; l_ul < i_Works.size(); ++l_ul) {
        const std::string l_strKind = " " + std::to_string(i_Works[l_ul]->vplArrays.size()) + " " +
                                      std::to_string(k_aulSteps[l_ul]);
        std::printf("%s%.0f", l_pszBetween,
                    1e3 * static_cast<double>(DecodePlainly(i_Works[l_ul]->Stream())) /
                        i_Race.Median(i_strWho + l_strKind));
        l_pszBetween = " / ";
    }
}

void PrintKernels()
{
    std::vector<uint8_t> l_vBytes(4096, 0x5A);
    std::vector<std::unique_ptr<S_WORK>> l_vWorks;
    CRace l_Race;
    AddCrc(l_Race, l_vBytes);
    AddDecoders(l_Race, l_vWorks);
    l_Race.Run();
    const auto l_fnRow = [&](const std::string& i_strPeer, const char* i_pszForm,
                             std::initializer_list<std::string> i_Kinds) {
        std::string l_strRow;
        for (const std::string& l_strKind : i_Kinds) {
            l_strRow += (l_strRow.empty() ? "" : " / ") +
                        l_Race.Ratio(i_strPeer + l_strKind, i_pszForm + l_strKind);
        }
        return l_strRow;
    };
    const auto l_fnPrint = [&](const char* i_pszWork, const std::string& i_strPeer,
                               std::initializer_list<std::string> i_Kinds) {
        std::printf("| %s |", i_pszWork);
        for (const char* l_pszForm : {"chosen", "next", "portable"}) {
            std::printf(" %s |", l_fnRow(i_strPeer, l_pszForm, i_Kinds).c_str());
        }
        std::printf("\n");
    };
    std::printf(
        "| work | chosen here: %s | next best: %s | portable |\n| --- | --- | --- | --- |\n",
        NamesAt(0).c_str(), NamesAt(1).c_str());
    l_fnPrint("CRC, times `crc16` of libmodbus at 8 / 64 / 256 B / 4 KiB", "libmodbus",
              {" crc 8", " crc 64", " crc 256", " crc 4096"});
    const std::initializer_list<std::string> k_One = {" 1 100", " 1 95", " 1 50"};
    l_fnPrint("decode one channel, times the plain loop: all steps / 95 in 100 / half and half",
              "plain", k_One);
    l_fnPrint("the same, times Steim-1 of libmseed", "steim", k_One);
    l_fnPrint("the same, times streamvbyte with zigzag differences", "streamvbyte", k_One);
    l_fnPrint("decode and calibrate three channels, times the plain loop", "plain",
              {" 3 100", " 3 95", " 3 50"});
    std::printf("\nIn millions of samples a second, all steps / 95 in 100 / half and half");
    const char* l_pszBefore = "; one channel:";
    for (size_t l_ul = 0; l_ul < l_vWorks.size(); l_ul += std::size(k_aulSteps)) {
        for (const char* l_pszWho : {"plain", "portable", "next", "chosen"}) {
            if (l_Race.Median(std::string(l_pszWho) + " 1 100") == 0) {
                continue; // there is none between the others
            }
            std::printf("%s %s", l_pszBefore, l_pszWho);
            PrintSpeeds(l_Race, l_pszWho, std::span(l_vWorks).subspan(l_ul, std::size(k_aulSteps)));
            l_pszBefore = ",";
        }
        l_pszBefore = "; three channels, calibrated:";
    }
    std::printf(".\n");
}

/** Nanoseconds for a sample, by samples a channel: plain, portable, chosen. */
void PrintCurve()
{
    for (const size_t l_ulSamples :
         {300U, 600U, 1200U, 2400U, 4800U, 9600U, 19200U, 38400U, 65544U}) {
        S_WORK l_Work(95, 3, 3 * l_ulSamples * 21 / 20);
        CRace l_Race;
        l_Race.Add("plain", [&] { Use(DecodePlainly(l_Work.Stream())); });
        for (const auto& [l_strName, l_pForm] : Named(tornval::SampleForms())) {
            l_Race.Add(l_strName,
                       [&, l_pForm = l_pForm] { Use(l_pForm->pfnDecode(l_Work.Stream())); });
        }
        l_Race.Run();
        const auto l_dSamples = static_cast<double>(DecodePlainly(l_Work.Stream()));
        std::printf("%zu %.3f %.3f %.3f\n", l_ulSamples, l_Race.Median("plain") / l_dSamples,
                    l_Race.Median("portable") / l_dSamples, l_Race.Median("chosen") / l_dSamples);
    }
}

} // namespace

int main(int i_lNbArgs, char** i_ppszArgs)
{
    const std::string l_strWhat = i_lNbArgs > 1 ? i_ppszArgs[1] : "";
    try {
        if (l_strWhat == "kernels") {
            PrintKernels();
        } else if (l_strWhat == "curve") {
            PrintCurve();
        } else if (l_strWhat == "roads") {
            for (const S_ROAD& l_Road : Roads()) {
                std::printf("%s|%s|%s\n", l_Road.pszName, l_Road.pszUnit, l_Road.pszWork);
            }
        } else if (l_strWhat == "road" && i_lNbArgs == 3) {
            for (const S_ROAD& l_Road : Roads()) {
                if (l_Road.pszName == std::string(i_ppszArgs[2])) {
                    std::printf("%.6g\n", l_Road.pfnMeasure());
                    return 0;
                }
            }
            return 2;
        } else {
            (void)std::fprintf(stderr, "use: tornval_report kernels|curve|roads|road NAME\n");
            return 2;
        }
    } catch (const std::exception& l_Error) {
        (void)std::fprintf(stderr, "tornval_report: %s\n", l_Error.what());
        return 1;
    }
    return 0;
}
