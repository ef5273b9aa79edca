/**
 * @file Router.h
 * @brief The single object behind the exported functions: owns the drivers and picks one per call.
 */
#pragma once

#include <map>
#include <memory>

#include "driver/MeasDriver.h"

namespace tornval {

struct S_LOAD_ROAD;

/** Values of the driver modes. */
enum E_DRIVER_MODE : uint32_t
{
    MODE_NONE = 0,
    MODE_REAL = 1,
    MODE_SIMU = 2
};

/**
 * Builds the drivers that the host asks for, real or simulated by the configuration, owns them in a
 * map by their IDs, and hands each call to one of them. Its lock covers the map only: a driver runs
 * outside it.
 */
class CRouter
{
public:
    /**
     * One call of an exported function: holds the router for its length.
     *
     * Refused once the drivers are on their way out: at the end of the process, while the library is
     * unloaded, and in a forked child, whose links belong to its parent.
     */
    class CCall
    {
    public:
        CCall();
        CCall(const CCall&) = delete;
        CCall& operator=(const CCall&) = delete;
        ~CCall();

        /** The router, built at the first call of the process; null if the call is refused. */
        [[nodiscard]] CRouter* Get() const { return m_pRouter; }

    private:
        CRouter* m_pRouter = nullptr;
    };

    CRouter(const CRouter&) = delete;
    CRouter& operator=(const CRouter&) = delete;
    /** Destroys the drivers, unless a call does not end. */
    virtual ~CRouter();

    // Each as the exported function of its name.
    S_RESULT LoadMeasDrivers(int32_t i_lMask);
    uint32_t EnumMeasDrivers(S_DRIVER_INFO* o_pDrivers, uint32_t i_ulMaxDrivers,
                             uint32_t* o_pulNbDrivers);
    S_RESULT InitDriver(uint32_t i_ulDriverID, int32_t bForceInit);
    S_RESULT ResetDriver(uint32_t i_ulDriverID);
    S_RESULT SendCommand(uint32_t i_ulDriverID, S_SEND_STRUCT* i_pCmde,
                         S_RECEIVE_STRUCT* o_pReceiveStruct, const void* i_pcData);
    S_RESULT GetResult(uint32_t i_ulDriverID, uint32_t i_ulNbReturnByte, char* o_pcRawData,
                       int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                       uint32_t i_ulTimeout, uint8_t i_bCompensation);
    S_RESULT GetInstantMeasureOnDevice(uint32_t i_ulDriverID, int32_t* o_plValue, uint32_t i_ulVoie,
                                       uint32_t i_ulMeasureParam);
    S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie, uint8_t i_bCompensation);
    S_RESULT CurrentGeneratorBurst(uint32_t i_ulBurst);
    S_RESULT GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2, int32_t* o_plValue3);
    uint32_t GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff);
    S_RESULT SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB,
                              uint32_t i_ulNbCoeff);

private:
    CRouter();

    static CRouter& Instance();
    /** Of the entry in the exit list: destroys the router, once. */
    static void OnExit(void*);
    /** Puts that entry behind all others. */
    static void PutExitEntryLast();

    /** Modes, probes to load and logger, from the configuration file. */
    void ReadConfiguration();
    /** @return the driver, its instance created where the kind has one; null if that fails. */
    std::unique_ptr<CMeasDriver> CreateDriver(uint32_t i_ulDriverType);
    [[nodiscard]] std::unique_ptr<CMeasDriver> BuildDriver(uint32_t i_ulDriverType) const;
    /** Initialises a driver and gives it to the map; one that fails is destroyed. */
    S_RESULT InitAndAddDriverToMap(std::unique_ptr<CMeasDriver>& io_pDriver);
    uint32_t LoadIMBDriver(S_RESULT& io_Result);
    uint32_t LoadMODriver(S_RESULT& io_Result);
    uint32_t LoadByRoad(const S_LOAD_ROAD& i_Road, S_RESULT& io_Result);
    void UnloadMeasDrivers();
    CMeasDriver* GetDriverFromID(uint32_t i_ulDriverID);
    CMeasDriver* GetDriverFromLinkType(const char* i_pszLinkType);

    cecore::CMutex m_hMutex;
    std::map<int32_t, std::unique_ptr<CMeasDriver>> m_mapDrivers WIRE_GUARDED_BY(m_hMutex);
    uint32_t m_ulBTMode = MODE_NONE;
    uint32_t m_ulUSBMode = MODE_NONE;
    uint32_t m_ulIMMode = MODE_NONE;
    /** Whether a load brings the probe up too: no bit of the mask asks for one. */
    bool m_bLoadBT = false;
    bool m_bLoadUSB = false;

    /** Why the configuration could not be read at the construction, by the system's number; 0: it was. */
    uint32_t m_ulConfigurationError = 0;
    /** Whether a load has begun: what was noted at the construction outlasts the first one. */
    bool m_bLoadBegun = false;
};

} // namespace tornval
