#include "wire/ConfigText.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "wire/Text.h"

namespace wire {
namespace {

/** Most characters of a line, its end included; the rest of a longer one is the next line. */
constexpr size_t k_ulMaxLine = 4095;

std::string_view Trim(std::string_view i_strText, std::string_view i_strBlanks)
{
    const size_t l_ulFirst = i_strText.find_first_not_of(i_strBlanks);
    if (l_ulFirst == std::string_view::npos) {
        return {};
    }
    return i_strText.substr(l_ulFirst, i_strText.find_last_not_of(i_strBlanks) - l_ulFirst + 1);
}

std::string_view Trim(std::string_view i_strText)
{
    return Trim(i_strText, " \t");
}

/** Without a pair of quotes, and then without outer blanks. */
std::string_view Unquote(std::string_view i_strText)
{
    if (!i_strText.empty() && i_strText.front() == i_strText.back() &&
        (i_strText.front() == '\'' || i_strText.front() == '"')) {
        i_strText.remove_prefix(1);
        // A quote alone was both the first and the last.
        i_strText.remove_suffix(i_strText.empty() ? 0 : 1);
    }
    return Trim(i_strText, " ");
}

/** Whether a trimmed line is the head of a section. */
bool IsHead(std::string_view i_strText)
{
    return i_strText.starts_with('[') && i_strText.ends_with(']');
}

/** Gives the lines of a text one after the other, without their ends. */
template <typename T_FUNCTION>
void ForEachLine(std::string_view i_strText, const T_FUNCTION& i_fnLine)
{
    while (!i_strText.empty()) {
        const std::string_view l_strMost = i_strText.substr(0, k_ulMaxLine);
        const std::string_view l_strWhole = l_strMost.substr(0, l_strMost.find('\n'));
        std::string_view l_strLine = l_strWhole.substr(0, l_strWhole.find('\0'));
        while (l_strLine.ends_with('\r')) {
            l_strLine.remove_suffix(1);
        }
        i_fnLine(l_strLine);
        i_strText.remove_prefix(std::min(l_strWhole.size() + 1, l_strMost.size()));
    }
}

} // namespace

void CConfigText::Clear()
{
    m_vecSections.clear();
    m_vulHeads.clear();
    m_vKeys.clear();
    m_pText.reset();
}

void CConfigText::Parse(std::string i_strText)
try {
    Clear();
    m_pText = std::make_shared<const std::string>(std::move(i_strText));
    // Counted first: what grows step by step touches its memory twice, which is most of the time that
    // a long text takes.
    size_t l_ulEntries = 0;
    std::vector<size_t> l_vulKeys; // of each section
    ForEachLine(*m_pText, [&](std::string_view i_strLine) {
        if (IsHead(Trim(i_strLine))) {
            ++l_ulEntries;
            l_vulKeys.push_back(0);
        } else {
            ++(l_vulKeys.empty() ? l_ulEntries : l_vulKeys.back());
        }
    });
    m_vecSections.reserve(l_ulEntries);
    ForEachLine(*m_pText, [&](std::string_view i_strLine) {
        if (AddLine(i_strLine)) {
            m_vecSections.back().vecKeys.reserve(l_vulKeys[m_vulHeads.size() - 1]);
        }
    });
} catch (...) {
    Clear();
    throw;
}

/** @return whether the line is the head of a section. */
bool CConfigText::AddLine(std::string_view i_strLine)
{
    const std::string_view l_strText = Trim(i_strLine);
    if (IsHead(l_strText)) {
        m_vulHeads.push_back(m_vecSections.size());
        m_vecSections.push_back({l_strText.substr(1, l_strText.size() - 2), {}, false, i_strLine});
        return true;
    }
    if (m_vulHeads.empty()) {
        m_vecSections.push_back({{}, {}, true, i_strLine});
        return false;
    }
    std::vector<S_CONFIG_KEY>& l_vecKeys = m_vecSections.back().vecKeys;
    S_CONFIG_KEY l_Key{{}, {}, l_strText.empty() || l_strText.front() == ';', i_strLine};
    if (!l_Key.bComment) {
        const size_t l_ulEqual = l_strText.find('=');
        l_Key.strName = Trim(l_strText.substr(0, l_ulEqual));
        if (l_ulEqual != std::string_view::npos) {
            l_Key.strValue = Trim(l_strText.substr(l_ulEqual + 1));
        }
        m_vKeys.push_back({m_vecSections.size() - 1, l_vecKeys.size()});
    }
    l_vecKeys.push_back(l_Key);
    return false;
}

const S_CONFIG_SECTION* CConfigText::FindSection(std::string_view i_strSection) const
{
    const auto l_It = std::find_if(m_vulHeads.begin(), m_vulHeads.end(), [&](size_t i_ulHead) {
        return EqualsNoCase(m_vecSections[i_ulHead].strName, i_strSection);
    });
    return l_It == m_vulHeads.end() ? nullptr : &m_vecSections[*l_It];
}

const S_CONFIG_KEY* CConfigText::FindKey(const S_CONFIG_SECTION& i_Section,
                                         std::string_view i_strKey) const
{
    const auto l_ulSection = static_cast<size_t>(&i_Section - m_vecSections.data());
    auto l_It = std::lower_bound(
        m_vKeys.begin(), m_vKeys.end(), l_ulSection,
        [](const S_PLACE& i_Place, size_t i_ulSection) { return i_Place.ulSection < i_ulSection; });
    for (; l_It != m_vKeys.end() && l_It->ulSection == l_ulSection; ++l_It) {
        if (EqualsNoCase(i_Section.vecKeys[l_It->ulKey].strName, i_strKey)) {
            return &i_Section.vecKeys[l_It->ulKey];
        }
    }
    return nullptr;
}

std::optional<std::string_view> CConfigText::Find(std::string_view i_strSection,
                                                  std::string_view i_strKey) const
{
    const S_CONFIG_SECTION* l_pSection = FindSection(i_strSection);
    const S_CONFIG_KEY* l_pKey = l_pSection == nullptr ? nullptr : FindKey(*l_pSection, i_strKey);
    return l_pKey == nullptr ? std::nullopt : std::optional(l_pKey->strValue);
}

std::optional<std::string_view> CConfigText::FindText(std::string_view i_strSection,
                                                      std::string_view i_strKey) const
{
    const auto l_ostrValue = Find(i_strSection, i_strKey);
    return l_ostrValue ? std::optional(Unquote(*l_ostrValue)) : std::nullopt;
}

uint32_t CConfigText::GetInt(const char* i_pszSection, const char* i_pszKey,
                             int32_t i_lDefault) const
{
    const auto l_ostrValue = Find(i_pszSection, i_pszKey);
    if (!l_ostrValue) {
        return static_cast<uint32_t>(i_lDefault);
    }
    if (l_ostrValue->starts_with('-')) {
        return 0;
    }
    int32_t l_lNumber = 0;
    const auto l_Read =
        std::from_chars(l_ostrValue->data(), l_ostrValue->data() + l_ostrValue->size(), l_lNumber);
    if (l_Read.ec == std::errc::result_out_of_range) {
        return static_cast<uint32_t>(std::numeric_limits<int32_t>::max());
    }
    return static_cast<uint32_t>(l_lNumber);
}

int32_t CConfigText::GetString(const char* i_pszSection, const char* i_pszKey,
                               const char* i_pszDefault, char* o_pszValue, int32_t i_lSize) const
{
    if (o_pszValue == nullptr || i_lSize < 2) {
        return 0;
    }
    std::string_view l_strText =
        FindText(i_pszSection, i_pszKey)
            .value_or(Unquote(i_pszDefault == nullptr ? "" : i_pszDefault));
    l_strText = l_strText.substr(0, static_cast<size_t>(i_lSize) - 1);
    std::copy(l_strText.begin(), l_strText.end(), o_pszValue);
    o_pszValue[l_strText.size()] = '\0';
    return static_cast<int32_t>(l_strText.size());
}

double CConfigText::GetDouble(const char* i_pszSection, const char* i_pszKey,
                              double i_dDefault) const
{
    char l_aszValue[50];
    if (GetString(i_pszSection, i_pszKey, "", l_aszValue, sizeof(l_aszValue)) == 0) {
        return i_dDefault;
    }
    const double l_dNumber = TextToDouble(l_aszValue);
    return l_dNumber == 0.0 ? i_dDefault : l_dNumber;
}

} // namespace wire
