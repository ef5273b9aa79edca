/**
 * @file TornvalC63Text.cpp
 * @brief The exports of libTornvalC63Text: the words of Explain.h, copied into the caller's room.
 */
#include "Explain.h"

#include <algorithm>
#include <exception>

namespace {

constexpr S_TEXT_CALL k_NothingKnown = {TORNVAL_TEXT_NO_COMMAND, 0};

const S_TEXT_CALL& CallOf(const S_TEXT_CALL* i_pCall)
{
    return i_pCall != nullptr ? *i_pCall : k_NothingKnown;
}

/** Copies what the function makes. Words take memory from the heap, which may be missing. */
template <typename F>
uint32_t Give(const F& i_Words, char* o_pszText, uint32_t i_ulRoom)
{
    const bool l_bRoom = o_pszText != nullptr && i_ulRoom != 0;
    try {
        const std::string l_strText = i_Words();
        if (l_bRoom) {
            const size_t l_ulCopied = std::min<size_t>(l_strText.size(), i_ulRoom - 1);
            std::copy_n(l_strText.data(), l_ulCopied, o_pszText);
            o_pszText[l_ulCopied] = '\0';
        }
        return static_cast<uint32_t>(l_strText.size());
    } catch (const std::exception&) {
        if (l_bRoom) {
            *o_pszText = '\0';
        }
        return 0;
    }
}

} // namespace

extern "C" {

uint32_t TornvalTextRecord(const S_RESULT* i_pResult, const S_TEXT_CALL* i_pCall, char* o_pszText,
                           uint32_t i_ulRoom)
{
    return Give(
        [&] {
            return i_pResult != nullptr ? text::ExplainRecord(*i_pResult, CallOf(i_pCall))
                                        : std::string();
        },
        o_pszText, i_ulRoom);
}

uint32_t TornvalTextFirmwareStatus(const S_RESULT* i_pResult, char* o_pszText, uint32_t i_ulRoom)
{
    return Give(
        [&] {
            return i_pResult != nullptr ? text::FirmwareStatusInWords(*i_pResult) : std::string();
        },
        o_pszText, i_ulRoom);
}

uint32_t TornvalTextStep(uint32_t i_ulStep, char* o_pszText, uint32_t i_ulRoom)
{
    return Give([&] { return text::StepInWords(i_ulStep); }, o_pszText, i_ulRoom);
}

uint32_t TornvalTextDriverType(uint32_t i_ulDriverType, char* o_pszText, uint32_t i_ulRoom)
{
    return Give([&] { return text::DriverTypeInWords(i_ulDriverType); }, o_pszText, i_ulRoom);
}

uint32_t TornvalTextLinkType(const char* i_pszLinkType, char* o_pszText, uint32_t i_ulRoom)
{
    return Give(
        [&] {
            return i_pszLinkType != nullptr ? text::LinkTypeInWords(i_pszLinkType) : std::string();
        },
        o_pszText, i_ulRoom);
}

uint32_t TornvalTextSystemError(uint32_t i_ulError, char* o_pszText, uint32_t i_ulRoom)
{
    return Give([&] { return text::SystemErrorInWords(i_ulError); }, o_pszText, i_ulRoom);
}

uint32_t TornvalTextCommand(int32_t i_lCommand, char* o_pszText, uint32_t i_ulRoom)
{
    return Give([&] { return text::CommandInWords(i_lCommand); }, o_pszText, i_ulRoom);
}

int32_t TornvalTextIsTimeOut(const S_RESULT* i_pResult, const S_TEXT_CALL* i_pCall)
{
    return i_pResult != nullptr && text::IsTimeOut(*i_pResult, CallOf(i_pCall)) ? 1 : 0;
}

} // extern "C"
