/**
 * @file Explain.h
 * @brief Puts a status record of the library into words: which stage, what the device or its
 *        firmware reported, what the system's error number means.
 *
 * Every number has words, unknown ones included: a record that no table knows is shown with its
 * numbers rather than hidden. TornvalC63Text.h says what each of these gives.
 */
#pragma once

#include "TornvalC63Text.h"

#include <cstdint>
#include <string>

namespace text {

std::string StepInWords(uint32_t i_ulStep);

std::string DriverTypeInWords(uint32_t i_ulDriverType);

std::string LinkTypeInWords(const std::string& i_strLinkType);

std::string SystemErrorInWords(uint32_t i_ulError);

std::string CommandInWords(int32_t i_lCommand);

std::string FirmwareStatusInWords(const S_RESULT& i_Result);

bool IsTimeOut(const S_RESULT& i_Result, const S_TEXT_CALL& i_Call);

std::string ExplainRecord(const S_RESULT& i_Result, const S_TEXT_CALL& i_Call);

} // namespace text
