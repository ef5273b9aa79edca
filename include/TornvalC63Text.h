/**
 * @file TornvalC63Text.h
 * @brief Words for what the measurement library reports: a library of its own beside the 14
 *        functions, libTornvalC63Text.
 *
 * Pure functions: they load nothing, keep nothing, need neither the measurement library nor an
 * instrument, and any thread may call any of them at any time. Every number has words, unknown ones
 * included. The words are English, one line, without a full stop, in ASCII but for what a caller
 * hands in; they are for people and may change from version to version.
 *
 * @section buffers How text is given back
 * As snprintf does it: the text is written into the caller's o_pszText, cut to i_ulRoom - 1 bytes and
 * terminated, and the length of the whole text without its terminator is returned, so that a value of
 * i_ulRoom or more says it was cut. With a null o_pszText or an i_ulRoom of 0 nothing is written. 0,
 * with an empty text, when memory is missing.
 */
#pragma once

#include "TornvalC63.h"

#ifdef __cplusplus
extern "C" {
#endif

/** S_TEXT_CALL.lCommand of a call that was no exchange of one command. */
enum
{
    TORNVAL_TEXT_NO_COMMAND = -1
};

/** What the caller of a failing function knows beside the record, 8 bytes. */
typedef struct S_TEXT_CALL
{
    int32_t lCommand; /**< CmdeID of the exchange, 0 to 255, or TORNVAL_TEXT_NO_COMMAND */
    uint32_t
        ulElapsedMs; /**< how long the call took, milliseconds; 0 if it was not measured. Tells a
                               time-out of board or module from an answer that does not decode: the
                               record is the same */
} S_TEXT_CALL;

/**
 * The whole record as one sentence.
 *
 * @param      i_pResult the record; null gives an empty text.
 * @param      i_pCall   what is known beside it; null if nothing is.
 * @param[out] o_pszText room for i_ulRoom bytes.
 * @param      i_ulRoom  its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextRecord(const S_RESULT* i_pResult, const S_TEXT_CALL* i_pCall,
                                       char* o_pszText, uint32_t i_ulRoom);

/**
 * What ulFwStatus means in a record; empty where it carries nothing.
 *
 * @param      i_pResult the record; null gives an empty text.
 * @param[out] o_pszText room for i_ulRoom bytes.
 * @param      i_ulRoom  its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextFirmwareStatus(const S_RESULT* i_pResult, char* o_pszText,
                                               uint32_t i_ulRoom);

/**
 * Name of a stage.
 *
 * @param      i_ulStep  TORNVAL_STEP_...; unknown ones are named by their number.
 * @param[out] o_pszText room for i_ulRoom bytes.
 * @param      i_ulRoom  its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextStep(uint32_t i_ulStep, char* o_pszText, uint32_t i_ulRoom);

/**
 * Name of a kind of driver.
 *
 * @param      i_ulDriverType TORNVAL_DRIVER_...; unknown ones are named by their number.
 * @param[out] o_pszText      room for i_ulRoom bytes.
 * @param      i_ulRoom       its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextDriverType(uint32_t i_ulDriverType, char* o_pszText,
                                           uint32_t i_ulRoom);

/**
 * Name of the kind of hardware behind a link type word.
 *
 * @param      i_pszLinkType S_DRIVER_INFO.szLinkType; unknown words stand as they are, null gives an
 *                           empty text.
 * @param[out] o_pszText     room for i_ulRoom bytes.
 * @param      i_ulRoom      its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextLinkType(const char* i_pszLinkType, char* o_pszText,
                                         uint32_t i_ulRoom);

/**
 * Meaning of a system error number, always with the number itself.
 *
 * @param      i_ulError S_RESULT.ulLastError.
 * @param[out] o_pszText room for i_ulRoom bytes.
 * @param      i_ulRoom  its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextSystemError(uint32_t i_ulError, char* o_pszText, uint32_t i_ulRoom);

/**
 * Name of a command on board, module or probe, always with its number.
 *
 * @param      i_lCommand CmdeID, 0 to 255.
 * @param[out] o_pszText  room for i_ulRoom bytes.
 * @param      i_ulRoom   its size.
 * @return length of the whole text.
 */
TORNVAL_API uint32_t TornvalTextCommand(int32_t i_lCommand, char* o_pszText, uint32_t i_ulRoom);

/**
 * Whether a failing record is that of an answer that did not come in time.
 *
 * @param i_pResult the record.
 * @param i_pCall   what is known beside it; null if nothing is.
 * @return 1 it is; 0 it is not, or the record is null.
 */
TORNVAL_API int32_t TornvalTextIsTimeOut(const S_RESULT* i_pResult, const S_TEXT_CALL* i_pCall);

#ifdef __cplusplus
}
#endif
