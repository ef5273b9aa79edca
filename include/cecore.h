/**
 * @file cecore.h
 * @brief What a link library needs of the core services (libcecore): announce an answer, leave the
 *        reason of a failed call.
 *
 * Plain C. Link with libcecore.so, the same one that the measurement library uses.
 */
#pragma once

#include <stdint.h>

/** How a function is shown. Define it, empty say, to have it otherwise. */
#ifndef CECORE_API
#if defined(__GNUC__)
#define CECORE_API __attribute__((visibility("default")))
#else
#define CECORE_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** The reasons that a link library is likely to leave, with the system's own numbers. */
enum
{
    CECORE_ERROR_FILE_NOT_FOUND = 2,
    CECORE_ERROR_ACCESS_DENIED = 5,
    CECORE_ERROR_INVALID_HANDLE = 6,
    CECORE_ERROR_NOT_ENOUGH_MEMORY = 8,
    CECORE_ERROR_INVALID_DATA = 13,
    CECORE_ERROR_NOT_READY = 21,
    CECORE_ERROR_CRC = 23,
    CECORE_ERROR_GEN_FAILURE = 31,
    CECORE_ERROR_INVALID_PARAMETER = 87,
    CECORE_ERROR_INSUFFICIENT_BUFFER = 122,
    CECORE_ERROR_BUSY = 170,
    CECORE_ERROR_TIMEOUT = 1460
};

/**
 * Signals an event. A link library calls it with the handle that it found at offset 65544 of a
 * frame, when the answer to that frame is ready; from any thread.
 *
 * @param handle event handle, as it stood in the frame, little-endian.
 * @return 1 done; 0 if there is no such event (any more), with the last error 6. Nothing else is
 *         touched then: a signal that comes too late is harmless.
 */
CECORE_API int SetEvent(uint32_t handle);

/**
 * Sets the calling thread's last-error value, which tells the caller of a failed entry point why.
 *
 * @param code one of the system's error numbers.
 */
CECORE_API void SetLastError(uint32_t code);

/** Why something was refused, in the words of the place that refused it. */
typedef struct CECORE_REASON
{
    char about[16]; /**< link type word of the driver in whose work it happened; empty: none */
    uint32_t code;  /**< the system's error number, 0 if there is none */
    char text[492]; /**< with the file, port or entry point by its name; terminated */
} CECORE_REASON;

/**
 * Notes a reason for the host to read. A link library does so when it knows more than an error number
 * tells, say which port did not open. The last-error value stays as it is.
 *
 * @param code the system's error number, 0 if there is none.
 * @param text copied; cut to its field.
 */
CECORE_API void CeNoteReason(uint32_t code, const char* text);

/**
 * What was noted since the last load of the drivers began, oldest first; of more than 64 the last 64.
 * Any thread.
 *
 * @param reasons room for max of them; null: only the number is asked for.
 * @param max     room in the array.
 * @return how many there are.
 */
CECORE_API uint32_t CeGetReasons(CECORE_REASON* reasons, uint32_t max);

/**
 * Prints a line for the one who runs the host on the standard error output, behind what the host has
 * printed there. Waits a second at most for a reader; the last-error value stays as it is.
 *
 * @param text without a line end.
 */
CECORE_API void CePrintError(const char* text);

/** The folders in which the core services look for files. */
enum
{
    /** Where the configuration lies, and where a name without a folder is looked for first: the
        environment variable TORNVAL_HOME, else the folder of the host executable. */
    CECORE_PATH_HOME = 0,
    /** Where a link library without a folder is looked for next; empty: nowhere. */
    CECORE_PATH_LINKS = 1,
    /** What stands for the volume \\hd00, on which the trace file lies: the environment variable
        TORNVAL_HD00, else what the build was told. */
    CECORE_PATH_VOLUME = 2
};

/**
 * Tells one of the folders. Environment variables count for nothing in a privileged process.
 *
 * @param kind   one of CECORE_PATH_...
 * @param buffer room for size characters; gets the folder with a slash at its end (the volume without
 *               one), cut to the room, terminated. Null with size 0: only the length is asked for.
 * @param size   room in the buffer, bytes.
 * @return length of the folder, without the terminator; 0 for an unknown kind.
 */
CECORE_API uint32_t CeGetPath(uint32_t kind, char* buffer, uint32_t size);

/**
 * Version of the measurement library that these core services belong to, as in "0.1.0". A program
 * compares it with the TORNVAL_VERSION that it was compiled with.
 *
 * @return text that stays as long as the library is loaded.
 */
CECORE_API const char* CeGetVersion(void);

#ifdef __cplusplus
}
#endif
