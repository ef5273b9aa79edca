/**
 * @file Explain.h
 * @brief Puts a status record of the library into words: which stage, what the device or its
 *        firmware reported, what the system's error number means.
 *
 * Every number has words, unknown ones included: a record that no table knows is shown with its
 * numbers rather than hidden.
 */
#ifndef HOST_EXPLAIN_H
#define HOST_EXPLAIN_H

#include "TornvalC63.h"

#include <cstdint>
#include <string>

namespace host {

/** Milliseconds that board and milliohm module wait for an answer at the least. */
constexpr uint32_t k_ulAnswerWaitMs = 5000;

/** No command is known. */
constexpr int32_t k_lNoCommand = -1;

/** What the caller of a failing function knows beside the record. */
struct S_CALL
{
    /** CmdeID of the exchange, 0 to 255, or k_lNoCommand. */
    int32_t lCommand = k_lNoCommand;
    /** How long the call took, milliseconds; 0 if it was not measured. Tells a time-out of board
     *  or module from an answer that does not decode: the record is the same. */
    uint32_t ulElapsedMs = 0;
};

/** Name of a stage, TORNVAL_STEP_...; unknown ones with their number. */
std::string StepInWords(uint32_t i_ulStep);

/** Name of a kind of driver, TORNVAL_DRIVER_...; unknown ones with their number. */
std::string DriverTypeInWords(uint32_t i_ulDriverType);

/** Name of the kind of hardware behind a link type word; unknown words stand as they are. */
std::string LinkTypeInWords(const std::string& i_strLinkType);

/** Meaning of a system error number, always with the number itself. */
std::string SystemErrorInWords(uint32_t i_ulError);

/** Name of a command on board, module or probe, always with its number. */
std::string CommandInWords(int32_t i_lCommand);

/** What ulFwStatus means in this record; empty where it carries nothing. */
std::string FirmwareStatusInWords(const S_RESULT& i_Result);

/** Whether a failing record is that of an answer that did not come in time. */
bool IsTimeOut(const S_RESULT& i_Result, const S_CALL& i_Call);

/** The whole record as one sentence without a full stop at its end. */
std::string ExplainRecord(const S_RESULT& i_Result, const S_CALL& i_Call = {});

} // namespace host

#endif // HOST_EXPLAIN_H
