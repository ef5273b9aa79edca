#include "Live.h"

#include "BoardCommands.h"
#include "Samples.h"
#include "Stop.h"

#include <algorithm>
#include <array>
#include <csignal>

namespace host {

namespace {

constexpr uint32_t k_ulModuleValues = 3;
/** Most values that are shown of one block and channel. */
constexpr size_t k_uMostShown = 600;
/** A driver that lets one call wait this long is not asked again in the same round. */
constexpr uint32_t k_ulSlowMs = 1000;

} // namespace

void AddLiveOptions(CCommand i_Command, S_LIVE_SETTINGS& io_Settings)
{
    i_Command
        .Option("--input", io_Settings.vInputs,
                "input that is measured, several times for several; all without it")
        .Within(0, 12);
    i_Command.Option("--interval", io_Settings.ulInterval, "milliseconds from round to round")
        .Within(10U, 3600000U)
        .ShowDefault();
    i_Command.Option("--param", io_Settings.ulProbeParam, "measuring parameter, handed to probes")
        .ShowDefault();
}

std::vector<int32_t> Thin(const std::vector<int32_t>& i_vSamples, size_t i_uMost)
{
    if (i_vSamples.size() <= i_uMost) {
        return i_vSamples;
    }
    std::vector<int32_t> l_vThin;
    const size_t l_uPairs = std::max<size_t>(i_uMost / 2, 1);
    const auto l_At = [&](size_t i_uPair) {
        return i_vSamples.begin() +
               static_cast<std::ptrdiff_t>(i_vSamples.size() * i_uPair / l_uPairs);
    };
    for (size_t i = 0; i < l_uPairs; ++i) {
        const auto [l_itLeast, l_itMost] = std::minmax_element(l_At(i), l_At(i + 1));
        // In the order in which they came.
        l_vThin.push_back(l_itLeast < l_itMost ? *l_itLeast : *l_itMost);
        l_vThin.push_back(l_itLeast < l_itMost ? *l_itMost : *l_itLeast);
    }
    return l_vThin;
}

std::vector<S_LIVE_ROW> LiveRows(const CSession& i_Session, const S_LIVE_SETTINGS& i_Settings)
{
    std::vector<S_LIVE_ROW> l_vRows;
    for (const S_DRIVER& l_Driver : i_Session.Drivers()) {
        if (!l_Driver.bReachable) {
            continue;
        }
        const auto l_Add = [&](const std::string& i_strName, uint32_t i_ulPlace, uint32_t i_ulShown,
                               bool i_bUnit) {
            l_vRows.push_back({i_strName + " " + std::to_string(i_ulShown), l_Driver, i_ulPlace,
                               i_bUnit
                                   ? UnitOf(i_Session.Settings(), l_Driver.strLinkType, i_ulPlace)
                                   : S_UNIT{}});
        };
        if (l_Driver.strLinkType == "IM") {
            for (const uint32_t l_ulInput : i_Settings.vInputs) {
                l_Add("input", l_ulInput, l_ulInput, true);
            }
        } else if (l_Driver.strLinkType == "MO") {
            for (uint32_t i = 0; i < k_ulModuleValues; ++i) {
                l_Add("milliohm", i, i + 1, false);
            }
        } else {
            for (uint32_t i = 0; i < k_uProbeChannels; ++i) {
                l_Add(l_Driver.strLinkType + " channel", i, i, true);
            }
        }
    }
    if (l_vRows.empty()) {
        throw S_FAILURE{k_lExitNoDriver,
                        i_Session.Drivers().empty() ? "no driver is loaded"
                                                    : "no driver reaches its hardware",
                        i_Session.LoadResult()};
    }
    return l_vRows;
}

void CLive::Measure(const S_LIVE_ROW& i_Row, S_LIVE_ROUND& io_Round)
{
    const auto l_pValues = std::make_shared<std::array<int32_t, k_ulModuleValues>>();
    const bool l_bModule = i_Row.Driver.strLinkType == "MO";
    S_CALL l_Call{l_bModule ? 161 : i_Row.Driver.IsProbe() ? k_lNoCommand : 212, 0};
    const S_RESULT l_Result = CallForRecord(
        [l_pValues, l_bModule, i_Row, l_ulParam = m_Settings.ulProbeParam] {
            std::array<int32_t, k_ulModuleValues>& l_Values = *l_pValues;
            return l_bModule ? GetAllMicroOhmMeasure(&l_Values[0], &l_Values[1], &l_Values[2])
                   : i_Row.Driver.IsProbe()
                       ? GetInstantMeasureOnDevice(i_Row.Driver.ulID, l_Values.data(),
                                                   i_Row.ulPlace, l_ulParam)
                       : GetInstantMeasure(l_Values.data(), i_Row.ulPlace);
        },
        l_Call);
    const std::string l_strError = l_Result.ulStatus == 0 ? "" : ExplainRecord(l_Result, l_Call);
    for (size_t i = 0; i < (l_bModule ? k_ulModuleValues : 1); ++i) {
        io_Round.vValues.push_back({i_Row.Unit.Of((*l_pValues)[i]), l_strError, false});
    }
    // A dead board has thirteen inputs, and each would be waited for.
    while (!l_strError.empty() && l_Call.ulElapsedMs >= k_ulSlowMs &&
           io_Round.vValues.size() < m_vRows.size() &&
           m_vRows[io_Round.vValues.size()].Driver.ulID == i_Row.Driver.ulID) {
        io_Round.vValues.push_back({0, l_strError, false});
    }
}

void CLive::Round()
{
    S_LIVE_ROUND l_Round{std::chrono::system_clock::now(), {}};
    while (l_Round.vValues.size() < m_vRows.size()) {
        if (StopSignals() != 0) {
            return;
        }
        const S_LIVE_ROW& l_Row = m_vRows[l_Round.vValues.size()];
        if (Rests(l_Row.Driver)) {
            l_Round.vValues.push_back({0, "", true});
            continue;
        }
        if (m_bStarted) {
            // The blocks do not wait for a slow module or probe.
            Acquire();
        }
        Measure(l_Row, l_Round);
    }
    m_fnRound(l_Round);
}

/** Whether a driver is not to be asked for a measure now: what its firmware makes of one in the middle
 *  of an acquisition nobody knows, and neither may spoil the other. */
bool CLive::Rests(const S_DRIVER& i_Driver) const
{
    return m_bStarted && i_Driver.ulID == m_oBoard->ulID;
}

void CLive::TakeBlock()
{
    if (!m_bStarted) {
        m_ullSamples = 0;
        m_bStarted = true; // whatever becomes of it, a stop does no harm
        m_Exchange.RunOrThrow(*m_oBoard, k_ucStart, {}, k_ulBoardTimeout);
    }
    m_Exchange.RunOrThrow(*m_oBoard, k_ucUpload, {}, k_ulBoardTimeout);
    Channels l_vChannels;
    if (!SplitChannels(m_Exchange.Words(), m_Exchange.Size(), k_uBoardChannels, l_vChannels)) {
        throw S_FAILURE{k_lExitDevice, "the sample counts of a block do not add up to its size"};
    }
    S_LIVE_BLOCK l_Block{true, {}, m_ullSamples, 0, {}};
    for (const std::vector<int32_t>& l_vSamples : l_vChannels) {
        l_Block.ullSamples = std::max<uint64_t>(l_Block.ullSamples, l_vSamples.size());
        l_Block.vChannels.push_back(Thin(l_vSamples, k_uMostShown));
    }
    m_ullSamples += l_Block.ullSamples;
    m_fnBlock(l_Block);
}

void CLive::StopDevice()
{
    if (m_bStarted) {
        m_bStarted = false;
        m_Exchange.RunOrThrow(*m_oBoard, k_ucStop, {}, k_ulBoardTimeout);
    }
}

/** Brings the acquisition a step on, and ends it when it is not wanted any more or fails. */
void CLive::Acquire()
{
    bool l_bWanted = false;
    {
        const std::lock_guard l_Lock(m_Mutex);
        l_bWanted = m_bWanted;
    }
    S_LIVE_BLOCK l_End{false, {}, 0, 0, {}};
    try {
        if (l_bWanted) {
            TakeBlock();
            return;
        }
        if (!m_bStarted) {
            return;
        }
        StopDevice();
    } catch (const S_FAILURE& l_Failure) {
        l_End.strError = l_Failure.strMessage;
        try {
            StopDevice();
        } catch (const S_FAILURE&) {
            // The first failure counts.
        }
        const std::lock_guard l_Lock(m_Mutex);
        m_bWanted = false;
    }
    l_End.ullFirst = m_ullSamples;
    m_fnBlock(l_End);
}

void CLive::Run()
{
    try {
        auto l_Next = std::chrono::steady_clock::now();
        for (;;) {
            {
                std::unique_lock l_Lock(m_Mutex);
                m_Changed.wait_until(l_Lock, l_Next, [&] { return m_bEnding; });
                if (m_bEnding) {
                    break;
                }
            }
            l_Next =
                std::chrono::steady_clock::now() + std::chrono::milliseconds(m_Settings.ulInterval);
            Round();
            Acquire();
        }
    } catch (const S_STOPPED&) {
        // The end was asked for, and a call is left to itself.
    }
    try {
        StopDevice();
    } catch (const S_FAILURE&) {
    } catch (const S_STOPPED&) {
    }
}

CLive::CLive(std::vector<S_LIVE_ROW> i_vRows, const S_LIVE_SETTINGS& i_Settings,
             std::function<void(const S_LIVE_ROUND&)> i_fnRound,
             std::function<void(const S_LIVE_BLOCK&)> i_fnBlock)
    : m_vRows(std::move(i_vRows)), m_Settings(i_Settings), m_fnRound(std::move(i_fnRound)),
      m_fnBlock(std::move(i_fnBlock))
{
    const auto l_itBoard =
        std::find_if(m_vRows.begin(), m_vRows.end(),
                     [](const S_LIVE_ROW& i_Row) { return i_Row.Driver.strLinkType == "IM"; });
    if (l_itBoard != m_vRows.end()) {
        m_oBoard = l_itBoard->Driver;
    }
    sigset_t l_All;
    sigset_t l_Before;
    sigfillset(&l_All); // signals are the main thread's affair
    pthread_sigmask(SIG_BLOCK, &l_All, &l_Before);
    m_Thread = std::thread([this] { Run(); });
    pthread_sigmask(SIG_SETMASK, &l_Before, nullptr);
}

CLive::~CLive()
{
    {
        const std::lock_guard l_Lock(m_Mutex);
        m_bEnding = true;
    }
    m_Changed.notify_all();
    LeaveCalls();
    m_Thread.join();
}

bool CLive::WantAcquisition(bool i_bWanted)
{
    const std::lock_guard l_Lock(m_Mutex);
    m_bWanted = i_bWanted && m_oBoard;
    return m_oBoard.has_value();
}

} // namespace host
