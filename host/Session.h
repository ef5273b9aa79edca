/**
 * @file Session.h
 * @brief The loaded drivers, and one exchange with one of them.
 */
#pragma once

#include "Program.h"
#include "Settings.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/** One loaded driver. */
struct S_DRIVER
{
    uint32_t ulID = 0;
    std::string strLinkType;
    std::string strName;
    /** "simulated", "emulated", "replayed", "serial /dev/ttyUSB0" or "link NAME". */
    std::string strKind;
    /** Whether the load told nothing against it. */
    bool bReady = true;
    /** Whether there is anything behind the driver: the load told of no link that failed. */
    bool bReachable = true;

    bool IsSimulated() const { return strKind == "simulated"; }
    bool IsProbe() const { return strLinkType == "BT" || strLinkType == "USB"; }
};

/** The drivers of the mask, loaded for as long as the process runs. */
class CSession
{
public:
    /** Loads and lists the drivers. A driver that is missing is no failure yet. */
    explicit CSession(const S_OPTIONS& i_Options);

    const std::vector<S_DRIVER>& Drivers() const { return m_vDrivers; }

    /** Record of the load. */
    const S_RESULT& LoadResult() const { return m_LoadResult; }

    /** What to say of a driver of which the load told that its link did not open. */
    std::optional<S_FAILURE> WhyNotReached(const S_DRIVER& i_Driver) const;

    /** The driver with a link type word, "IM" or "MO". @throws S_FAILURE, also if it reaches nothing. */
    const S_DRIVER& ByLinkType(const std::string& i_strLinkType) const;

    /** The driver with a name: a link type word in any case, or an ID. @throws S_FAILURE,
     *  also if it reaches nothing. */
    const S_DRIVER& ByName(const std::string& i_strName) const;

    /** The probe with a name. @throws S_FAILURE, also if the driver is no probe. */
    const S_DRIVER& ProbeByName(const std::string& i_strName) const;

    /** The driver with the name, or all if there is none. */
    std::vector<S_DRIVER> Select(const std::optional<std::string>& i_strName) const;

    /** Reasons of drivers that are missing, or that came up with something amiss. */
    std::vector<CECORE_REASON> RemainingReasons() const;

    /** The configuration as it was at the load. */
    const CSettings& Settings() const { return m_Settings; }

private:
    /** The driver. @throws S_FAILURE if it reaches nothing. */
    const S_DRIVER& Reached(const S_DRIVER& i_Driver) const;

    S_OPTIONS m_Options;
    S_RESULT m_LoadResult{};
    CSettings m_Settings;
    std::vector<S_DRIVER> m_vDrivers;
};

/** A measure as it is shown: scaled, in text with its unit. */
nlohmann::json ValueJson(const S_UNIT& i_Unit, int32_t i_lMeasure);
std::string ValueText(const S_UNIT& i_Unit, int32_t i_lMeasure);

/** Puts the driver of a command into the document, and says loudly if it is simulated. */
void Announce(CProgram& io_Program, const S_DRIVER& i_Driver);

/** One command to a driver and its answer. The buffers are kept from one exchange to the next. */
class CExchange
{
public:
    CExchange();

    /**
     * Sends a command and fetches its answer.
     *
     * @param i_ulTimeout milliseconds, handed to the device and added to the wait of board and
     *                    module.
     * @return The record of the stage that failed, or of the fetch.
     * @throws S_FAILURE if the driver announces an answer beyond all measure.
     */
    S_RESULT Run(const S_DRIVER& i_Driver, uint8_t i_ucCommand, uint8_t i_ucParam,
                 const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout);

    /** As Run(), and a failing record is thrown. */
    void RunOrThrow(const S_DRIVER& i_Driver, uint8_t i_ucCommand,
                    const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout);

    /** What the last exchange was, for ExplainRecord(). */
    const S_CALL& Call() const { return m_Call; }
    /** Bytes of the raw answer, as many as the send announced. */
    const std::vector<char>& Raw() const { return m_pRoom->vRaw; }
    /** The processed array in its full length. */
    const std::vector<int32_t>& Words() const { return m_pRoom->vWords; }
    /** The size word of the processed array. */
    int32_t Size() const { return m_pRoom->lSize; }

private:
    /** What the library fills. It outlives an exchange that nobody waits for any more. */
    struct S_ROOM
    {
        std::vector<uint8_t> vPayload;
        std::vector<char> vRaw;
        std::vector<int32_t> vWords;
        int32_t lSize = 0;
        uint32_t ulElapsedMs = 0;
        S_RESULT Result{};
        bool bTooLarge = false;
    };

    void MakeRoom();

    S_CALL m_Call;
    std::shared_ptr<S_ROOM> m_pRoom;
};

/** Runs one call of the library that gives a record, as Call() of Stop.h. @throws S_STOPPED. */
S_RESULT CallForRecord(const std::function<S_RESULT()>& i_fnCall, S_CALL& io_Call,
                       const std::function<void()>& i_fnTick = {});

/** A stop watch for S_CALL::ulElapsedMs. */
class CElapsed
{
public:
    /** Milliseconds since the construction, at least 1. */
    uint32_t Ms() const;

private:
    std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
};

} // namespace host
