/**
 * @file Reasons.h
 * @brief Why a driver did not come up, as the places that refused something noted it.
 */
#pragma once

#include "cecore.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace host {

/** What was noted since the last load of the drivers began, oldest first. */
std::vector<CECORE_REASON> Reasons();

/** From here on ReasonsSinceLoad() tells only what is noted later. */
void NoteLoaded();

/** What was noted since the load ended. */
std::vector<CECORE_REASON> ReasonsSinceLoad();

/** The same without the places where the link library of a driver that came up was looked for in
 *  vain before it was found. */
std::vector<CECORE_REASON> ReasonsThatRemain(const std::vector<std::string>& i_vLinkTypesUp);

/** One line: the words, with the system's error where they come with one. */
std::string InWords(const CECORE_REASON& i_Reason);

/** The reasons as lines for a terminal, grouped by the driver that they are about, each group in the
 *  order in which it came. Empty if there are none. */
std::string ReasonLines(const std::vector<CECORE_REASON>& i_vReasons);

/** The reasons in the order in which they came: about, code, text, words. */
nlohmann::json ReasonDocument(const std::vector<CECORE_REASON>& i_vReasons);

} // namespace host
