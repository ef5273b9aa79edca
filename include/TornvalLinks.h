/**
 * @file TornvalLinks.h
 * @brief What a link library must offer, and the blocks that pass through it.
 *
 * The measurement library loads its link libraries by name at run time: one for the internal board
 * and the milliohm module (six entry points RS_...), one for a Bluetooth probe (PBT_...) and one for
 * a USB probe (PUSB_...). A serial library that lacks one of its entry points is refused; of a probe's
 * library only the operations that need the missing one fail. Declare the entry points with
 * TORNVAL_LINK_API and this header checks their types.
 *
 * At the end of a process the measurement library closes its links before the libraries' own exit
 * lists run.
 *
 * Plain C, self-contained. All numbers in the blocks are little-endian.
 */
#pragma once

#include <stdint.h>
#include <wchar.h>

/** How an entry point is shown. Define it, empty say, to have it otherwise. */
#ifndef TORNVAL_LINK_API
#if defined(__GNUC__)
#define TORNVAL_LINK_API __attribute__((visibility("default")))
#else
#define TORNVAL_LINK_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** First argument of RS_DeviceIoControl and second of RS_Init: a constant of the interface. */
enum
{
    RS_LINK_CONSTANT = 5000
};

/** Control codes of the serial link. */
enum
{
    /** In: command block; out: 4-byte status word, 0 accepted. The event of the block is signalled
     *  when the answer is ready, which may be after the call has returned. */
    IOCTL_RS_SEND_COMMAND = 0x222402,
    /** In: 2-byte CmdeID; out: answer block, the count being the bytes delivered. Nothing tells two
     *  commands with one ID apart: give a thread the answer to its own send. */
    IOCTL_RS_GET_RESULT = 0x222406
};

/** Layout of the two blocks of the serial link, 65548 bytes each. */
enum
{
    RS_BLOCK_SIZE = 65548,
    /** Command block: frame from offset 0 on, 8 + size bytes, the size standing at offset 4. */
    RS_FRAME_CRC_OFFSET = 0,
    RS_FRAME_ID_OFFSET = 2,
    RS_FRAME_SIZE_OFFSET = 4,
    RS_FRAME_TIMEOUT_OFFSET = 6,
    RS_FRAME_CANAL_OFFSET = 8,
    RS_FRAME_CMDE_OFFSET = 9,
    RS_FRAME_PARAM_OFFSET = 11,
    RS_FRAME_DATA_OFFSET = 12,
    /** Bytes of a frame before its sized part. */
    RS_FRAME_OUTER_HEAD = 8,
    /** Largest size field that leaves the event handle intact. */
    RS_FRAME_MAX_SIZE = 65532,
    /** Command block: 32-bit handle of the event that announces the answer. */
    RS_BLOCK_EVENT_OFFSET = 65544,
    /** Answer block: 32-bit status word, then the answer frame. */
    RS_ANSWER_FRAME_OFFSET = 4
};

/** @name Types of the entry points of a serial library
 * @{ */
/** Type of RS_Init(). */
typedef uint32_t (*PFN_RS_INIT)(uint32_t port, uint32_t constant, uint32_t baud_rate,
                                uint32_t data_bits, uint32_t word1, uint32_t word2, uint32_t zero);
/** Type of RS_Init_Ex(). */
typedef uint32_t (*PFN_RS_INIT_EX)(uint32_t port, uint32_t constant, uint32_t baud_rate,
                                   uint32_t data_bits, uint32_t word1, uint32_t word2,
                                   uint32_t zero, uint32_t* link_handle);
/** Type of RS_DeviceIoControl(). */
typedef uint32_t (*PFN_RS_DEVICEIOCONTROL)(uint32_t constant, uint32_t code, const void* in,
                                           uint32_t in_size, void* out, uint32_t out_size,
                                           uint32_t* count, uint32_t zero);
/** Type of RS_DeviceIoControl_Ex(). */
typedef uint32_t (*PFN_RS_DEVICEIOCONTROL_EX)(uint32_t constant, uint32_t code, const void* in,
                                              uint32_t in_size, void* out, uint32_t out_size,
                                              uint32_t* count, uint32_t zero, uint32_t link_handle);
/** Type of RS_Close(). */
typedef uint32_t (*PFN_RS_CLOSE)(void);
/** Type of RS_Close_Ex(). */
typedef uint32_t (*PFN_RS_CLOSE_EX)(uint32_t link_handle);
/** @} */

/**
 * Opens the link of a serial port.
 *
 * @param port      1 the board, 2 the milliohm module.
 * @param constant  RS_LINK_CONSTANT.
 * @param baud_rate 460800 for the board, 115200 for the module.
 * @param data_bits 8.
 * @param word1     0.
 * @param word2     0.
 * @param zero      0.
 * @return non-zero: open; zero: failed, the reason is the last error.
 */
TORNVAL_LINK_API uint32_t RS_Init(uint32_t port, uint32_t constant, uint32_t baud_rate,
                                  uint32_t data_bits, uint32_t word1, uint32_t word2,
                                  uint32_t zero);
/**
 * As RS_Init(), with a handle that tells links apart.
 *
 * @param      port        as there.
 * @param      constant    as there.
 * @param      baud_rate   as there.
 * @param      data_bits   as there.
 * @param      word1       as there.
 * @param      word2       as there.
 * @param      zero        as there.
 * @param[out] link_handle filled with the handle, which is not 0.
 * @return as there.
 */
TORNVAL_LINK_API uint32_t RS_Init_Ex(uint32_t port, uint32_t constant, uint32_t baud_rate,
                                     uint32_t data_bits, uint32_t word1, uint32_t word2,
                                     uint32_t zero, uint32_t* link_handle);
/**
 * One exchange on the link that RS_Init() opened.
 *
 * @param      constant RS_LINK_CONSTANT.
 * @param      code     IOCTL_RS_SEND_COMMAND or IOCTL_RS_GET_RESULT, which say what goes in and out.
 * @param      in       what the code takes.
 * @param      in_size  its bytes.
 * @param[out] out      room for what the code brings.
 * @param      out_size its bytes.
 * @param[out] count    how many of them were filled.
 * @param      zero     0.
 * @return non-zero: done; zero: failed, the reason is the last error.
 */
TORNVAL_LINK_API uint32_t RS_DeviceIoControl(uint32_t constant, uint32_t code, const void* in,
                                             uint32_t in_size, void* out, uint32_t out_size,
                                             uint32_t* count, uint32_t zero);
/**
 * One exchange on the link of a handle.
 *
 * @param      constant    as in RS_DeviceIoControl().
 * @param      code        as there.
 * @param      in          as there.
 * @param      in_size     its bytes.
 * @param[out] out         room for what the code brings.
 * @param      out_size    its bytes.
 * @param[out] count       how many of them were filled.
 * @param      zero        0.
 * @param      link_handle from RS_Init_Ex(); 0, which a caller has whose open failed, is none.
 * @return as there.
 */
TORNVAL_LINK_API uint32_t RS_DeviceIoControl_Ex(uint32_t constant, uint32_t code, const void* in,
                                                uint32_t in_size, void* out, uint32_t out_size,
                                                uint32_t* count, uint32_t zero,
                                                uint32_t link_handle);
/**
 * Must exist; the measurement library does not call it.
 *
 * @return non-zero: closed.
 */
TORNVAL_LINK_API uint32_t RS_Close(void);
/**
 * Closes the link of a handle.
 *
 * @param link_handle from RS_Init_Ex(); 0 is the link that RS_Init() opened.
 * @return non-zero: closed.
 */
TORNVAL_LINK_API uint32_t RS_Close_Ex(uint32_t link_handle);

/** Control codes of the probe links. In of a send: the 12-byte command record, its payload and one
 *  byte more; out: 8-byte acknowledgement. In of a fetch: the 32-bit number of bytes; out: reply. */
enum
{
    IOCTL_PBT_SEND_COMMAND = 0x222010,
    IOCTL_PBT_GET_RESULT = 0x222014,
    IOCTL_PUSB_SEND_COMMAND = 0x22200C,
    IOCTL_PUSB_GET_RESULT = 0x222010
};

/** Second argument of the control calls of a probe: a constant of the interface. */
enum
{
    PROBE_LINK_CONSTANT = 1000
};

/** @name Types of the entry points of a probe's library
 * @{ */
/** Type of PBT_Init(). */
typedef uint32_t (*PFN_PBT_INIT)(uint32_t port, const wchar_t* baud_rate, uint32_t timeout);
/** Type of PUSB_Init(). */
typedef uint32_t (*PFN_PUSB_INIT)(uint32_t port);
/** Type of PBT_Close() and PUSB_Close(). */
typedef uint32_t (*PFN_PROBE_CLOSE)(void);
/** Type of PBT_DeviceIoControl() and PUSB_DeviceIoControl(). */
typedef uint32_t (*PFN_PROBE_DEVICEIOCONTROL)(uint32_t device, uint32_t constant, uint32_t code,
                                              const void* in, uint32_t in_size, void* out,
                                              uint32_t out_size, uint32_t* count, uint32_t zero);
/** @} */

/**
 * Opens the port of a Bluetooth probe.
 *
 * @param port      the key PORT_NUMBER.
 * @param baud_rate the key BAUD_RATE, as text.
 * @param timeout   the key INIT_TIMEOUT.
 * @return non-zero: open; zero: failed, the reason is the last error.
 */
TORNVAL_LINK_API uint32_t PBT_Init(uint32_t port, const wchar_t* baud_rate, uint32_t timeout);
/**
 * Closes it.
 *
 * @return non-zero: closed.
 */
TORNVAL_LINK_API uint32_t PBT_Close(void);
/**
 * One exchange.
 *
 * @param      device   number of the driver among its kind.
 * @param      constant PROBE_LINK_CONSTANT.
 * @param      code     IOCTL_PBT_SEND_COMMAND or IOCTL_PBT_GET_RESULT.
 * @param      in       what the code takes.
 * @param      in_size  its bytes.
 * @param[out] out      room for what the code brings.
 * @param      out_size its bytes.
 * @param[out] count    how many of them were filled.
 * @param      zero     0.
 * @return non-zero: done; zero: failed, the reason is the last error.
 */
TORNVAL_LINK_API uint32_t PBT_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code,
                                              const void* in, uint32_t in_size, void* out,
                                              uint32_t out_size, uint32_t* count, uint32_t zero);
/**
 * Opens the port of a USB probe.
 *
 * @param port the key PORT_NUMBER.
 * @return non-zero: open; zero: failed, the reason is the last error.
 */
TORNVAL_LINK_API uint32_t PUSB_Init(uint32_t port);
/**
 * Closes it.
 *
 * @return non-zero: closed.
 */
TORNVAL_LINK_API uint32_t PUSB_Close(void);
/**
 * One exchange.
 *
 * @param      device   number of the driver among its kind.
 * @param      constant PROBE_LINK_CONSTANT.
 * @param      code     IOCTL_PUSB_SEND_COMMAND or IOCTL_PUSB_GET_RESULT.
 * @param      in       what the code takes.
 * @param      in_size  its bytes.
 * @param[out] out      room for what the code brings.
 * @param      out_size its bytes.
 * @param[out] count    how many of them were filled.
 * @param      zero     0.
 * @return non-zero: done; zero: failed, the reason is the last error.
 */
TORNVAL_LINK_API uint32_t PUSB_DeviceIoControl(uint32_t device, uint32_t constant, uint32_t code,
                                               const void* in, uint32_t in_size, void* out,
                                               uint32_t out_size, uint32_t* count, uint32_t zero);

#ifdef __cplusplus
}
#endif
