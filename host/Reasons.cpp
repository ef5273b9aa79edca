#include "Reasons.h"

#include "Words.h"

#include <algorithm>

namespace host {

namespace {

/** Reasons that were there when the load ended. */
size_t s_uAtLoad = 0;

} // namespace

std::vector<CECORE_REASON> Reasons()
{
    std::vector<CECORE_REASON> l_vReasons(CeGetReasons(nullptr, 0));
    const uint32_t l_ulNbReasons =
        CeGetReasons(l_vReasons.data(), static_cast<uint32_t>(l_vReasons.size()));
    l_vReasons.resize(std::min<size_t>(l_ulNbReasons, l_vReasons.size()));
    return l_vReasons;
}

void NoteLoaded()
{
    s_uAtLoad = Reasons().size();
}

std::vector<CECORE_REASON> ReasonsSinceLoad()
{
    std::vector<CECORE_REASON> l_vReasons = Reasons();
    // Once the oldest ones are dropped, where the load ended is no longer known.
    const auto l_uOld = static_cast<std::ptrdiff_t>(std::min(s_uAtLoad, l_vReasons.size()));
    l_vReasons.erase(l_vReasons.begin(), l_vReasons.begin() + l_uOld);
    return l_vReasons;
}

std::vector<CECORE_REASON> ReasonsThatRemain(const std::vector<std::string>& i_vLinkTypesUp)
{
    constexpr uint32_t k_ulModuleNotFound = 126;
    constexpr uint32_t k_ulBadExeFormat = 193;
    std::vector<CECORE_REASON> l_vReasons = Reasons();
    std::erase_if(l_vReasons, [&](const CECORE_REASON& i_Reason) {
        return (i_Reason.code == k_ulModuleNotFound || i_Reason.code == k_ulBadExeFormat) &&
               std::find(i_vLinkTypesUp.begin(), i_vLinkTypesUp.end(), i_Reason.about) !=
                   i_vLinkTypesUp.end();
    });
    return l_vReasons;
}

std::string InWords(const CECORE_REASON& i_Reason)
{
    return i_Reason.text +
           (i_Reason.code == 0 ? "" : " (" + SystemErrorInWords(i_Reason.code) + ")");
}

std::string ReasonLines(const std::vector<CECORE_REASON>& i_vReasons)
{
    std::vector<std::string> l_vAbout;
    for (const CECORE_REASON& l_Reason : i_vReasons) {
        if (std::find(l_vAbout.begin(), l_vAbout.end(), l_Reason.about) == l_vAbout.end()) {
            l_vAbout.emplace_back(l_Reason.about);
        }
    }
    std::string l_strLines;
    for (const std::string& l_strAbout : l_vAbout) {
        l_strLines += l_strAbout.empty()
                          ? "all drivers:\n"
                          : "the " + LinkTypeInWords(l_strAbout) + " (" + l_strAbout + "):\n";
        for (const CECORE_REASON& l_Reason : i_vReasons) {
            if (l_strAbout == l_Reason.about) {
                l_strLines += "  - " + InWords(l_Reason) + "\n";
            }
        }
    }
    return l_strLines;
}

nlohmann::json ReasonDocument(const std::vector<CECORE_REASON>& i_vReasons)
{
    nlohmann::json l_List = nlohmann::json::array();
    for (const CECORE_REASON& l_Reason : i_vReasons) {
        l_List.push_back({{"about", l_Reason.about},
                          {"code", l_Reason.code},
                          {"text", l_Reason.text},
                          {"words", InWords(l_Reason)}});
    }
    return l_List;
}

} // namespace host
