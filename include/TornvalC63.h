/**
 * @file TornvalC63.h
 * @brief The measurement layer of a Tornval C63 instrument: 14 plain C functions.
 *
 * A host loads the library, asks it to load its measuring hardware, and takes measures. This header
 * is all that a host needs; it compiles as C99 and as C++.
 *
 * @section order Order of calls
 *  1. LoadMeasDrivers() builds and initialises the drivers.
 *  2. EnumMeasDrivers() tells their IDs, which change from load to load.
 *  3. SendMeasBoardCmd(), then GetMeasBoardResult() with the size that the send gave back; or one of
 *     the single measures, each of which runs such a pair and blocks until it is done.
 *  4. ResetMeasBoard() closes a link. Everything is released when the library is unloaded.
 *
 * @section configuration Configuration
 * The file TornvalC63.ini lies in the folder of the host executable, or in the folder named by the
 * environment variable TORNVAL_HOME. It says whether hardware is simulated (SIMU), where the link
 * libraries are (DRIVER_NAME), and whether a trace log is kept (section LOG). SIMU, LOAD and LOG are
 * read once, at the first call of any function; the rest at each load. Without the file every load
 * fails. Its path has 259 characters at most.
 *
 * A DRIVER_NAME with a folder is taken as it stands; a bare one is looked for in that folder, then where
 * link libraries are installed, then by the system's search. A SET_RESET_EXEC or DAT_SIMU_FILE without a slash at its head is looked
 * for in that folder, then in the working folder. CeGetPath() of cecore.h tells these places. In a
 * privileged process environment variables count for nothing.
 *
 * @section trace The trace log
 * With TYPE=0 it is the file log_tornval.txt on the volume that TORNVAL_HD00 names (else the one that
 * the build was told), emptied at the first call. It is a regular file: a symbolic link is not
 * followed, and nothing is written to a link, a pipe or a device that stands there. With TYPE=1 it is
 * the standard output; one that nobody reads is waited for a second, then lines are dropped and
 * counted until it is read again. A process that was started without a standard output gets no lines.
 * A log that cannot be written fails nothing; CeGetReasons() of cecore.h says why.
 *
 * @section errors What an error looks like
 * A function never fails except through what it returns: S_RESULT.ulStatus is 1 (0 is success), or
 * the two functions that return a plain word give 0. The other words say which stage failed
 * (ulStep), why the system refused (ulLastError: 2 file not found, 6 invalid handle, 126 library
 * not found, 127 entry point not found, 193 no library; the others that a link may leave are in
 * cecore.h) and what the device reported (ulFwStatus). Nothing is thrown and nothing stops the
 * process. Most failures that a driver meets are also lines of the trace log, where that is switched
 * on. CeGetReasons() of cecore.h gives what the refusing place itself noted at the last load.
 *
 * @section trust What a success does not say
 *  - The CRC of an answer is the link library's affair. Those of this project drop an answer whose CRC
 *    does not match; one that hands it on delivers wrong values as right ones.
 *  - Values that a short answer of the milliohm module no longer holds read as zero.
 *  - A simulated board whose recording cannot be read delivers uploads that succeed and hold no sample;
 *    the trace log says why.
 *
 * @section owner Who owns what
 * The caller owns every buffer that it passes, before, during and after a call. The library keeps no
 * pointer to any of them.
 *
 * @section threads Which calls may run at the same time
 * Any thread may call any function, with these limits:
 *  - LoadMeasDrivers() runs alone: no other function of this header may run beside it.
 *  - SetMBCalibration() and InitialiseMeasBoard() have the driver to themselves.
 *  - A SendMeasBoardCmd() and its GetMeasBoardResult() on one driver belong together; a second thread
 *    that sends to the same driver in between takes over the exchange. Keep each pair together.
 *  - On the board and the milliohm module the single measures carry buffers of their own: they may
 *    run in parallel with each other and with a pair. A link library that cannot tell two commands
 *    of one kind apart may then exchange their answers; those of this project can. On a probe
 *    GetInstantMeasureOnDevice() is made of several pairs: one thread at a time for each probe.
 *  - On a simulated driver, one thread at a time for each driver.
 *
 * @section life Load, unload, end, fork
 *  - dlclose() destroys the drivers and gives the link libraries back. No call may be inside then, and
 *    no thread may load the library while another unloads it.
 *  - At the end of the process the drivers are destroyed before the link libraries go. It waits a second
 *    at most for calls that are inside; if one stays, the drivers are left as they are, and the trace
 *    log says so. Threads may run on: their calls are refused.
 *  - A forked child, one of daemon() too, has none of the drivers: they are its parent's, and its calls
 *    are refused; the first one is told in the trace log. Fork before the first call.
 *  - A thread that calls needs 16 KB of stack for the library's own part, of which a trace line takes
 *    up to 10.5 and decoding up to 12, and 32 KB where files are looked for: in LoadMeasDrivers(),
 *    SetMBCalibration() and the first upload of a recording. The link library's part comes on top.
 *
 * @section waits How long a call takes
 * A command that the board or the module does not answer fails after 5000 milliseconds plus the key
 * TIMEOUT (plus i_ulTimeout in GetMeasBoardResult(), which also waits that long when nothing was
 * sent). LoadMeasDrivers() may wait twice as long; SetMBCalibration() also waits for the program that
 * resets the board. A probe's library sets its own bounds.
 *
 * @section layout Records
 * The records that are passed by address are little-endian and may lie at any address. Words are 32
 * bits wide on every host.
 */
#ifndef TORNVAL_C63_H
#define TORNVAL_C63_H

#include <stdint.h>

/**
 * @name Version of this header
 * Before 1.0.0 a new minor version may change what a host sees.
 * @{
 */
#define TORNVAL_VERSION_MAJOR 0 /**< in the name of the library, libTornvalC63.so.0 */
#define TORNVAL_VERSION_MINOR 1 /**< more than before, or other than before while it is 0.x */
#define TORNVAL_VERSION_PATCH 0 /**< the same, mended */
#define TORNVAL_VERSION "0.1.0" /**< the three as text */
/** @} */

/** How a function is shown. Define it, empty say for a parser of headers, to have it otherwise. */
#ifndef TORNVAL_API
#if defined(__GNUC__)
#define TORNVAL_API __attribute__((visibility("default")))
#else
#define TORNVAL_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Bits of the mask of LoadMeasDrivers(). No other bit has a meaning. */
enum
{
    TORNVAL_LOAD_MILLIOHM = 0x01, /**< the milliohm module */
    TORNVAL_LOAD_BOARD = 0x10     /**< the internal measurement board */
};

/** Values of S_RESULT.ulDriverType. */
enum
{
    TORNVAL_DRIVER_NONE = 0,      /**< no driver: the record comes from the routing itself */
    TORNVAL_DRIVER_BT_PROBE = 1,  /**< Bluetooth probe (also a simulated USB probe) */
    TORNVAL_DRIVER_USB_PROBE = 2, /**< USB probe */
    TORNVAL_DRIVER_BOARD = 3,     /**< internal measurement board */
    TORNVAL_DRIVER_MILLIOHM = 4   /**< milliohm module */
};

/** Values of S_RESULT.ulStep: the stage that produced the record. */
enum
{
    TORNVAL_STEP_NONE = 0,    /**< no stage of its own */
    TORNVAL_STEP_LIBRARY = 1, /**< load of a link library */
    TORNVAL_STEP_SEND = 2,    /**< send of a command */
    TORNVAL_STEP_INIT = 3,    /**< initialisation, opening of a link */
    TORNVAL_STEP_CLOSE = 4,   /**< close of a link */
    TORNVAL_STEP_RESULT = 5,  /**< fetch of a result */
    TORNVAL_STEP_LOAD = 6,    /**< loading of the drivers */
    TORNVAL_STEP_REFUSED = 7  /**< the device refused the command; its word is in ulFwStatus */
};

/**
 * Status record of every operation: five words, 20 bytes, returned by value.
 */
typedef struct S_RESULT
{
    uint32_t ulDriverType; /**< kind of the driver, TORNVAL_DRIVER_... */
    uint32_t ulStep;       /**< stage that produced the record, TORNVAL_STEP_... */
    uint32_t ulLastError;  /**< the system's error code at the failing call; 0 if none was taken */
    uint32_t ulFwStatus;   /**< status of the device or its firmware; 0 if none. In a fetch
                                (ulStep 5) of the board or the milliohm module 2 stands for a failed
                                call of the link (see ulLastError) and 5 for a status field of the
                                answer that is not 0 */
    uint32_t ulStatus;     /**< 0 success, 1 failure */
} S_RESULT;

#pragma pack(push, 1)

/**
 * Command record, 12 bytes: what a host sends. The payload is an argument of its own.
 */
typedef struct S_SEND_STRUCT
{
    uint8_t ucReserved0; /**< 0 */
    uint8_t CmdeID;      /**< ID of the command; each driver has its own set */
    uint8_t ucCmdeParam; /**< one further byte of the command */
    uint8_t ucReserved3; /**< 0 */
    uint32_t ulTimeout;  /**< time-out handed to the device, milliseconds */
    uint32_t ulSize;     /**< probes: bytes of payload. Board and milliohm module: 4 more than that,
                              at most 65532 */
} S_SEND_STRUCT;

/**
 * What a send fills, 8 bytes.
 */
typedef struct S_RECEIVE_STRUCT
{
    uint32_t ulAnswer;       /**< what the link answered to the send; 0 from simulated drivers */
    uint32_t ulNbReturnByte; /**< number of raw bytes that the following GetMeasBoardResult()
                                  delivers: allocate by it and pass it back */
} S_RECEIVE_STRUCT;

/**
 * One loaded driver, 104 bytes.
 */
typedef struct S_DRIVER_INFO
{
    char
        szDriverName[50]; /**< file name of the driver's link library, cut to the field, or its link
                                type word where it is simulated; zero-terminated */
    char szLinkType[50];  /**< link type word: "BT", "USB", "IM" or "MO" */
    uint32_t ulDriverID;  /**< the number by which the other functions know the driver */
} S_DRIVER_INFO;

#pragma pack(pop)

/**
 * Destroys all loaded drivers, then builds and initialises those of the mask, the milliohm module
 * first. A probe joins them when the key LOAD of its section is set and the mask is not 0.
 *
 * @param i_lMask TORNVAL_LOAD_... values, or 0 to unload everything.
 * @return ulStep 6; ulStatus 1 if one of the drivers did not come up, with no further reason: that
 *         is in the trace log. The others stand all the same: EnumMeasDrivers() tells which.
 * @note Threads: runs alone.
 * @par Example
 * @snippet snippets.c LoadMeasDrivers
 */
TORNVAL_API S_RESULT LoadMeasDrivers(int32_t i_lMask);

/**
 * Lists the loaded drivers in ascending order of their IDs.
 *
 * @param[out] o_pDrivers     array of i_ulMaxDrivers records; may not be null.
 * @param      i_ulMaxDrivers room in the array; 0 is allowed. There are four drivers at most, and
 *                            those that find no room are left out.
 * @param[out] o_pulNbDrivers number of records written; may not be null.
 * @return 1 done; 0 if a pointer is null (the number is then 0).
 * @note Threads: beside everything but LoadMeasDrivers().
 * @par Example
 * @snippet snippets.c EnumMeasDrivers
 */
TORNVAL_API uint32_t EnumMeasDrivers(S_DRIVER_INFO* o_pDrivers, uint32_t i_ulMaxDrivers,
                                     uint32_t* o_pulNbDrivers);

/**
 * Initialises a driver.
 *
 * @param i_ulDriverID ID from EnumMeasDrivers().
 * @param bForceInit   1 also initialises a driver that is initialised; any other value leaves it
 *                     alone then, with success.
 * @return The driver's record: ulStep 5 from a real board, all words 0 from the milliohm module and
 *         from a board whose coefficients are read already. ulStep 3 with ulDriverType 0 if there was
 *         nothing to do, and with ulStatus 1 if there is no such driver.
 * @note Threads: nothing else on this driver meanwhile.
 * @par Example
 * @snippet snippets.c InitialiseMeasBoard
 */
TORNVAL_API S_RESULT InitialiseMeasBoard(uint32_t i_ulDriverID, int32_t bForceInit);

/**
 * Closes the link of a driver. The driver stays loaded. A probe opens its link again at the next
 * InitialiseMeasBoard(); board and milliohm module need a new LoadMeasDrivers().
 *
 * @param i_ulDriverID ID from EnumMeasDrivers().
 * @return The driver's record, ulStep 4; ulStatus 1 if there is no such driver or the link did not
 *         close.
 * @note Threads: beside everything but LoadMeasDrivers().
 * @par Example
 * @snippet snippets.c ResetMeasBoard
 */
TORNVAL_API S_RESULT ResetMeasBoard(uint32_t i_ulDriverID);

/**
 * Sends a command. Its answer is fetched by GetMeasBoardResult().
 *
 * @param         i_ulDriverID      ID from EnumMeasDrivers().
 * @param[in,out] i_pCmde           the command. A probe rewrites CmdeID 1 to 33 here. Null fails.
 * @param[out]    o_pReceiveStruct  8 bytes; board and milliohm module fill them also when the link
 *                                  refused the command.
 * @param         i_pcData          payload, or null: ulSize bytes on a probe, ulSize - 4 on board and
 *                                  milliohm module.
 * @return ulStep 2, or 7 when the device refused the command (its word is in ulFwStatus).
 * @note Threads: see the head of this file; keep the send and its fetch together.
 * @par Example
 * @snippet snippets.c SendMeasBoardCmd
 */
TORNVAL_API S_RESULT SendMeasBoardCmd(uint32_t i_ulDriverID, S_SEND_STRUCT* i_pCmde,
                                      S_RECEIVE_STRUCT* o_pReceiveStruct, const void* i_pcData);

/**
 * Waits for the answer to the last command of a driver and delivers it, with calibration.
 *
 * @param      i_ulDriverID         ID from EnumMeasDrivers().
 * @param      i_ulNbReturnByte     ulNbReturnByte of the send: the room in o_pcRawData, in bytes.
 * @param[out] o_pcRawData          raw bytes of the answer; may not be null, whatever the command,
 *                                  also where ulNbReturnByte is 0.
 * @param[out] o_plProcessedDataSize a size, where the command has one; preset it to 0. An upload: all
 *                                  words of o_plProcessedData, but without the counts from a
 *                                  simulated board. A milliohm measure: 3, from a simulated module 1.
 *                                  A read of a probe: all words, added to what is there once two
 *                                  channels were read. A measure of the board leaves it alone.
 * @param[out] o_plProcessedData    decoded values. A measure: one word. A milliohm measure: four
 *                                  words, of which the last is 0. An upload of the board: a count for
 *                                  each of its three channels, then the samples channel by channel,
 *                                  up to 3 + 3 * 65544 words. A read of a probe: two counts, then
 *                                  the samples, up to ulNbReturnByte + 2 words. Go by the counts.
 * @param      i_ulTimeout          milliseconds on top of the 5000 that board and module wait.
 * @return ulStep 5; ulStatus 1 on a time-out, on a refusal by the firmware (its number is in
 *         ulFwStatus) or on an answer that does not decode.
 * @note Threads: see the head of this file; keep the send and its fetch together.
 * @par Example
 * @snippet snippets.c GetMeasBoardResult
 */
TORNVAL_API S_RESULT GetMeasBoardResult(uint32_t i_ulDriverID, uint32_t i_ulNbReturnByte,
                                        char* o_pcRawData, int32_t* o_plProcessedDataSize,
                                        int32_t* o_plProcessedData, uint32_t i_ulTimeout);

/**
 * Sends a value to the current generator of the board. Boards on a serial link have no path for
 * this command and refuse it.
 *
 * @param i_ulBurst the value; its low 8 bits count.
 * @return ulStep 2 and ulStatus 1 from a board on a serial link; success with ulStep 0 from a
 *         simulated one; ulStep 0 and ulStatus 1 without a board.
 * @note Threads: beside everything but LoadMeasDrivers().
 * @par Example
 * @snippet snippets.c CurrentGeneratorBurst
 */
TORNVAL_API S_RESULT CurrentGeneratorBurst(uint32_t i_ulBurst);

/**
 * Takes one measure on the board, with calibration. Blocks until it is in or failed.
 *
 * @param[out] o_plValue the measure. 0 when an answer did not decode, untouched when there was none.
 *                       May not be null.
 * @param      i_ulVoie  measuring input, 0 to 12.
 * @return ulStep 5 from a real board, or the stage that failed (2 send, 7 refused by the device, 5);
 *         0 from a simulated board or when no board is loaded.
 * @note Threads: beside everything but LoadMeasDrivers().
 * @par Example
 * @snippet snippets.c GetInstantMeasure
 */
TORNVAL_API S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie);

/**
 * As GetInstantMeasure(), without calibration.
 *
 * @param[out] o_plValue the value of the converter; may not be null.
 * @param      i_ulVoie  measuring input, 0 to 12.
 * @return as there.
 * @note Threads: as there.
 * @par Example
 * @snippet snippets.c GetInstantMeasureWithoutCompensation
 */
TORNVAL_API S_RESULT GetInstantMeasureWithoutCompensation(int32_t* o_plValue, uint32_t i_ulVoie);

/**
 * Takes one measure on the driver with the given ID, board or probe, with calibration.
 *
 * @param      i_ulDriverID     ID from EnumMeasDrivers().
 * @param[out] o_plValue        the measure; may not be null.
 * @param      i_ulVoie         board: measuring input, 0 to 12; probe: channel, 0 or 1.
 * @param      i_ulMeasureParam handed to a probe; a board ignores it.
 * @return The record of the stage that ran last, as from GetInstantMeasure(); ulStep 0 and ulStatus 1
 *         if there is no such driver.
 * @note Threads: see the head of this file.
 * @par Example
 * @snippet snippets.c GetInstantMeasureOnDevice
 */
TORNVAL_API S_RESULT GetInstantMeasureOnDevice(uint32_t i_ulDriverID, int32_t* o_plValue,
                                               uint32_t i_ulVoie, uint32_t i_ulMeasureParam);

/**
 * Takes one measure of the milliohm module and gives its three values, in the order of the answer.
 * All three are 0 after a failure.
 *
 * @param[out] o_plValue1 the first value, as the module sends it; may not be null, as the others.
 * @param[out] o_plValue2 the second.
 * @param[out] o_plValue3 the third.
 * @return ulStep 5 from a real module, or the stage that failed; 0 from a simulated one or when no
 *         module is loaded. A measure that the module refused has its status byte in ulFwStatus,
 *         with its sign extended to 32 bits.
 * @note Threads: beside everything but LoadMeasDrivers(). Blocks until the measure is in or failed.
 * @par Example
 * @snippet snippets.c GetAllMicroOhmMeasure
 */
TORNVAL_API S_RESULT GetAllMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                           int32_t* o_plValue3);

/**
 * As GetAllMicroOhmMeasure(), with the first value alone.
 *
 * @param[out] o_plValue the value, as the module sends it; 0 after a failure. May not be null.
 * @return as there.
 * @note Threads: as there.
 * @par Example
 * @snippet snippets.c GetMicroOhmMeasure
 */
TORNVAL_API S_RESULT GetMicroOhmMeasure(int32_t* o_plValue);

/**
 * Reads the calibration of the board as it was delivered at its initialisation. A measure is
 * (x * a + b) * 0.0001.
 *
 * @param[out] o_pdA       i_ulNbCoeff factors a, one per measuring input; 0.0 from index 13 on.
 * @param[out] o_pdB       the same for the offsets b.
 * @param      i_ulNbCoeff number of entries in each array.
 * @return 1 done; 0 without a board, for a null array or for 0 entries.
 * @note Threads: beside everything but LoadMeasDrivers().
 * @par Example
 * @snippet snippets.c GetMBCalibrationCoeff
 */
TORNVAL_API uint32_t GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff);

/**
 * Writes calibration pairs into the board and restarts it through the program named by the key
 * SET_RESET_EXEC. The new pairs are seen after a new LoadMeasDrivers(). Takes a good second.
 *
 * @param i_pulIndex  i_ulNbCoeff measuring inputs, 0 to 12.
 * @param i_pdA       their factors a, truncated to signed 32 bits.
 * @param i_pdB       their offsets b, likewise.
 * @param i_ulNbCoeff number of entries in each array.
 * @return The record of the last command that was run; ulStep 0 and ulStatus 1 for a null array or
 *         no entry. A simulated board reports success, whatever it is given, and stores nothing.
 * @note Threads: nothing else on the board meanwhile; it is restarted.
 * @par Example
 * @snippet snippets.c SetMBCalibration
 */
TORNVAL_API S_RESULT SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB,
                                      uint32_t i_ulNbCoeff);

#ifdef __cplusplus
}
#endif

#endif /* TORNVAL_C63_H */
