/**
 * @file Live.h
 * @brief The instrument measured again and again on a thread of its own, for whoever shows it.
 */
#pragma once

#include "Session.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace host {

/** What is measured, one value a round. */
struct S_LIVE_ROW
{
    /** "input 2" */
    std::string strName;
    S_DRIVER Driver;
    /** Input, place of the module's value, channel of the probe. */
    uint32_t ulPlace = 0;
    S_UNIT Unit;
};

/** One value, or why there is none. */
struct S_LIVE_VALUE
{
    double dValue = 0;
    /** Empty: the value is good, or not asked for. */
    std::string strError;
    /** Not asked for: the board acquires. */
    bool bRests = false;
};

/** One round of measures: a value for each row. */
struct S_LIVE_ROUND
{
    std::chrono::system_clock::time_point Time;
    std::vector<S_LIVE_VALUE> vValues;
};

/** What came of the running acquisition. */
struct S_LIVE_BLOCK
{
    bool bRunning = false;
    /** Why it ended, if it did by itself. */
    std::string strError;
    /** Number of the first sample of the block, and samples in it, of each channel. */
    uint64_t ullFirst = 0;
    uint64_t ullSamples = 0;
    /** Thinned to pairs of minimum and maximum, so that no spike is lost; one vector per channel. */
    std::vector<std::vector<int32_t>> vChannels;
};

struct S_LIVE_SETTINGS
{
    std::vector<uint32_t> vInputs = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    uint32_t ulInterval = 500;
    uint32_t ulProbeParam = 0;
};

/** Adds --input, --interval, --param. */
void AddLiveOptions(CCommand i_Command, S_LIVE_SETTINGS& io_Settings);

/** The rows that the loaded drivers offer. @throws S_FAILURE if there are none. */
std::vector<S_LIVE_ROW> LiveRows(const CSession& i_Session, const S_LIVE_SETTINGS& i_Settings);

/**
 * Measures until it is destroyed. The destructor leaves a call under way to itself after some tenths of
 * a second, as Call() of Stop.h does; meanwhile nobody else may use that.
 */
class CLive
{
public:
    /** Both functions are called on the measuring thread. */
    CLive(std::vector<S_LIVE_ROW> i_vRows, const S_LIVE_SETTINGS& i_Settings,
          std::function<void(const S_LIVE_ROUND&)> i_fnRound,
          std::function<void(const S_LIVE_BLOCK&)> i_fnBlock = {});
    CLive(const CLive&) = delete;
    CLive& operator=(const CLive&) = delete;
    ~CLive();

    /** Wants an acquisition of the board to run, or not to. @return false without a board. */
    bool WantAcquisition(bool i_bWanted);

private:
    void Run();
    void Round();
    void Measure(const S_LIVE_ROW& i_Row, S_LIVE_ROUND& io_Round);
    void Acquire();
    bool Rests(const S_DRIVER& i_Driver) const;
    void TakeBlock();
    void StopDevice();

    const std::vector<S_LIVE_ROW> m_vRows;
    const S_LIVE_SETTINGS m_Settings;
    const std::function<void(const S_LIVE_ROUND&)> m_fnRound;
    const std::function<void(const S_LIVE_BLOCK&)> m_fnBlock;
    std::optional<S_DRIVER> m_oBoard;
    CExchange m_Exchange;
    bool m_bStarted = false; // of the measuring thread, as the number of samples
    uint64_t m_ullSamples = 0;

    std::mutex m_Mutex; // guards the wishes
    std::condition_variable m_Changed;
    bool m_bEnding = false;
    bool m_bWanted = false;

    std::thread m_Thread;
};

/** Thins samples of one channel to at most the given number of values, pairs of minimum and maximum. */
std::vector<int32_t> Thin(const std::vector<int32_t>& i_vSamples, size_t i_uMost);

} // namespace host
