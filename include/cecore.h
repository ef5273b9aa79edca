/**
 * @file cecore.h
 * @brief What a link library needs of the core services (libcecore): announce an answer, leave the
 *        reason of a failed call.
 *
 * Plain C. Link with libcecore.so, the same one that the measurement library uses.
 */
#ifndef CECORE_H
#define CECORE_H

#include <stdint.h>

#if defined(__GNUC__)
#define CECORE_API __attribute__((visibility("default")))
#else
#define CECORE_API
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

#ifdef __cplusplus
}
#endif

#endif /* CECORE_H */
