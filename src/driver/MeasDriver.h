/**
 * @file MeasDriver.h
 * @brief The driver contract: what the router knows of every kind of measuring hardware.
 */
#pragma once

#include <atomic>
#include <type_traits>
#include <typeinfo>

#include "driver/Records.h"
#include "platform/Module.h"
#include "platform/Sync.h"
#include "samples/Scaling.h"

namespace tornval {

/**
 * Abstract base of all drivers. Operations report through an S_RESULT and never throw for a reason
 * that has a record. The public records and buffers belong to the caller.
 */
class CMeasDriver
{
public:
    CMeasDriver();
    CMeasDriver(const CMeasDriver&) = delete;
    CMeasDriver& operator=(const CMeasDriver&) = delete;

    /** Frees the library if one is held, closes the mutex, frees the list of channels. */
    virtual ~CMeasDriver();

    /** Reads the configuration and opens the link, on the classes that do. Default: fails. */
    virtual S_RESULT CreateDriverInstance();

    /**
     * Loads the closed library of the driver. With one already held it succeeds and the name is not
     * looked at. No driver overrides it.
     */
    virtual S_RESULT LoadDriver(const wchar_t* i_pwszLibrary);

    virtual S_RESULT Init() = 0;
    virtual S_RESULT Close() = 0;

    /**
     * Sends a command.
     *
     * @param i_pCmde          the record, at any address; null fails.
     * @param o_pReceiveStruct eight bytes, at any address.
     * @param i_pcData         the payload, or null.
     * @param i_ucCanal        address byte of a frame; 0 on every call from the router.
     */
    virtual S_RESULT SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                 const void* i_pcData, uint8_t i_ucCanal) = 0;

    /**
     * Fetches and decodes the answer to the last command.
     *
     * @param i_ulNbReturnByte room in o_pcRawData.
     * @param i_ulTimeout      milliseconds that the board family adds to its fixed wait.
     * @param i_bCompensation  1 applies the board's calibration to a measure.
     */
    virtual S_RESULT GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                               int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                               uint32_t i_ulTimeout, uint8_t i_bCompensation) = 0;

    /** Default: fails. */
    virtual S_RESULT CurrentGeneratorBurst(uint32_t i_ulBurst);

    /** Default: stores 0 three times and fails. */
    virtual S_RESULT GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                        int32_t* o_plValue3);

    /** @return 1 done, 0 not. Default: 0. */
    virtual uint32_t GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff);

    /** Default: succeeds with nothing done. */
    virtual S_RESULT SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB,
                                      uint32_t i_ulNbCoeff);

    /** Turns one decoded sample into a measure. Stores nothing for a null pointer or a channel that
     *  the driver does not have. A class that overrides it is asked for each sample of a stream. */
    virtual void ScaleSample(int32_t* o_plValue, uint32_t i_ulChannel, uint32_t i_ulHighRange,
                             uint16_t i_usSample) = 0;

    virtual S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie,
                                       uint8_t i_bCompensation, uint32_t i_ulMeasureParam) = 0;

    [[nodiscard]] uint32_t GetDriverID() const { return m_ulDriverID; }
    /** Copies the link type word with its terminator, 256 characters at most; null: nothing. */
    void GetLinkType(char* o_pszLinkType) const;
    /** Copies the driver name with its terminator, 260 characters at most; null: nothing. */
    void GetDriverName(char* o_pszDriverName) const;
    /** The same texts where they stand, for who is quick; the driver's. Behind them stand zeros. */
    [[nodiscard]] const char (&LinkType() const)[256] { return m_szLinkType; }
    [[nodiscard]] const char (&DriverName() const)[260] { return m_szDriverName; }
    [[nodiscard]] bool IsInitialised() const { return m_bInitialised != 0; }

    /** The driver's lock; it may be taken again by the thread that holds it. */
    void LockDriver();
    void UnlockDriver();

    /**
     * Decodes one code of the sample stream.
     *
     * @return its length, 1 or 2; 0 with nothing touched if a pointer is null.
     */
    static uint32_t DecompressSample(const uint8_t* i_pcCode, uint16_t i_usPrevious,
                                     uint8_t i_ucPreviousRange, uint16_t* o_pusValue,
                                     uint8_t* o_pucRange);

    /**
     * Decodes a stream of interleaved channels, scaling each sample with ScaleSample, or many at a
     * time by what GetScaling tells where the class has said that the two agree.
     *
     * @param o_plProcessedData_Voie one array for each channel; a null one is counted, not filled.
     * @param o_lProcessedDataSize   one count for each channel.
     * @param i_ulMaxSamples         room in each channel's array; a full one ends the decoding.
     * @return samples in all; 0 with the counts untouched for a null pointer or more channels than
     *         the driver has.
     */
    uint32_t DecompressSamplesMultiChannel(const uint8_t* i_pcData, uint32_t i_ulDataSize,
                                           int32_t** o_plProcessedData_Voie, uint32_t i_lNbChannel,
                                           int32_t* o_lProcessedDataSize, uint32_t i_ulMaxSamples);

protected:
    /** Holds the driver's lock for a scope. */
    class CDriverLock : cecore::CMutexGuard
    {
    public:
        explicit CDriverLock(const CMeasDriver& i_Driver) : CMutexGuard(i_Driver.m_hMutex) {}
    };

    /** Gives the driver its identity: index from the kind's counter, ID, link type and name. */
    void SetIdentity(uint32_t i_ulIndex, uint32_t i_ulBase, const char* i_pszLinkType);
    void SetDriverName(const char* i_pszDriverName);
    /** Zeros behind the name, for who has written it: a list of drivers copies it in its full length. */
    void PadDriverName();

    /**
     * The bulk hook behind ScaleSample: tells beforehand what it does, for a whole stream.
     *
     * @param[out] o_Scaling filled for every channel of the driver.
     * @return false: ask ScaleSample, sample by sample. Default.
     */
    virtual bool GetScaling(S_SCALING& o_Scaling) const;

    /**
     * Says, in the constructor of Driver, that GetScaling of Family tells what ScaleSample does. It
     * holds for objects of exactly that class: one below may have a ScaleSample of its own.
     */
    template <typename Family, typename Driver>
    void ScaleInBulk(const Driver*)
    {
        static_assert(std::is_same_v<decltype(&Driver::ScaleSample),
                                     void (Family::*)(int32_t*, uint32_t, uint32_t, uint16_t)>,
                      "this class has a ScaleSample that GetScaling knows nothing of");
        m_pBulkClass = &typeid(Driver);
    }

    cecore::ModuleHandle m_hDriverDll = nullptr;
    uint32_t m_ulDriverIndex = 0;
    int8_t m_cLastCmdeID = 0;
    uint32_t m_ulDriverID = 0;
    char m_szLinkType[256] = {};
    char m_szDriverName[260] = {};
    /** Atomic: the router looks at it outside the driver's lock. */
    std::atomic<uint8_t> m_bInitialised{0};
    uint32_t m_ulDriverType = 0;
    cecore::CMutex m_hMutex;
    int32_t m_alCoefLowRange[10] = {};
    int32_t m_alCoefHighRange[10] = {};
    uint32_t m_ulNbChannel = 0;
    uint32_t* m_pulVoies = nullptr;

private:
    const std::type_info* m_pBulkClass = nullptr;
};

} // namespace tornval
