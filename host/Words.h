/**
 * @file Words.h
 * @brief The words of libTornvalC63Text as strings. TornvalC63Text.h says what each of them gives.
 */
#pragma once

#include "TornvalC63Text.h"

#include <cstdint>
#include <string>

namespace host {

/** No command is known. */
constexpr int32_t k_lNoCommand = TORNVAL_TEXT_NO_COMMAND;

/** What the caller of a failing function knows beside the record; nothing, unless it says so. */
struct S_CALL : S_TEXT_CALL
{
    S_CALL() : S_TEXT_CALL{k_lNoCommand, 0} {}
    S_CALL(int32_t i_lCommand, uint32_t i_ulElapsedMs) : S_TEXT_CALL{i_lCommand, i_ulElapsedMs} {}
};

/** Asks a function of the text library twice: for the length, then for the text. */
template <typename... FunctionArgs, typename... Args>
std::string InWords(uint32_t (*i_pFn)(FunctionArgs...), Args... i_Args)
{
    std::string l_strText(i_pFn(i_Args..., nullptr, 0U), '\0');
    i_pFn(i_Args..., l_strText.data(), static_cast<uint32_t>(l_strText.size() + 1));
    return l_strText;
}

inline std::string LinkTypeInWords(const std::string& i_strLinkType)
{
    return InWords(TornvalTextLinkType, i_strLinkType.c_str());
}

inline std::string SystemErrorInWords(uint32_t i_ulError)
{
    return InWords(TornvalTextSystemError, i_ulError);
}

inline std::string CommandInWords(int32_t i_lCommand)
{
    return InWords(TornvalTextCommand, i_lCommand);
}

inline bool IsTimeOut(const S_RESULT& i_Result, const S_CALL& i_Call)
{
    return TornvalTextIsTimeOut(&i_Result, &i_Call) != 0;
}

inline std::string ExplainRecord(const S_RESULT& i_Result, const S_CALL& i_Call = {})
{
    return InWords(TornvalTextRecord, &i_Result, &i_Call);
}

} // namespace host
