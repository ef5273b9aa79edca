#include "support/ConfigFile.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <new>

#include "platform/File.h"
#include "support/Text.h"

namespace tornval {
namespace {

// A longer line arrives as two: the rest of it is the next one.
constexpr int k_lLineSize = 4096;

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

/** The first entry of that name that is no comment, or null. */
template <typename T>
const T* FindEntry(const std::vector<T>& i_vEntries, const char* i_pszName)
{
    const auto l_It = std::find_if(i_vEntries.begin(), i_vEntries.end(), [&](const T& i_Entry) {
        return !i_Entry.bComment && EqualsNoCase(i_Entry.strName, i_pszName);
    });
    return l_It == i_vEntries.end() ? nullptr : &*l_It;
}

} // namespace

bool CConfigFile::Load(const char* i_pszPath)
{
    m_vecSections.clear();
    m_bInSection = false;
    try {
        m_strPath = i_pszPath;
        const cecore::CStream l_pFile = cecore::OpenForReading(i_pszPath);
        if (l_pFile == nullptr) {
            return false;
        }
        char l_aszLine[k_lLineSize];
        while (std::fgets(l_aszLine, k_lLineSize, l_pFile.get()) != nullptr) {
            AddLine({l_aszLine, std::strlen(l_aszLine)});
        }
    } catch (const std::bad_alloc&) {
        m_vecSections.clear();
        return false;
    }
    return true;
}

void CConfigFile::AddLine(std::string_view i_strLine)
{
    while (i_strLine.ends_with('\n') || i_strLine.ends_with('\r')) {
        i_strLine.remove_suffix(1);
    }
    const std::string_view l_strText = Trim(i_strLine);
    const bool l_bComment = l_strText.empty() || l_strText.front() == ';';
    if (!l_bComment && l_strText.front() == '[' && l_strText.back() == ']') {
        m_vecSections.push_back({std::string(l_strText.substr(1, l_strText.size() - 2)),
                                 {},
                                 false,
                                 std::string(i_strLine)});
        m_bInSection = true;
    } else if (!m_bInSection) {
        m_vecSections.push_back({{}, {}, true, std::string(i_strLine)});
    } else {
        S_CONFIG_KEY l_Key;
        l_Key.bComment = l_bComment;
        l_Key.strRawLine = i_strLine;
        if (!l_bComment) {
            const size_t l_ulEqual = l_strText.find('=');
            l_Key.strName = Trim(l_strText.substr(0, l_ulEqual));
            if (l_ulEqual != std::string_view::npos) {
                l_Key.strValue = Trim(l_strText.substr(l_ulEqual + 1));
            }
        }
        m_vecSections.back().vecKeys.push_back(std::move(l_Key));
    }
}

const S_CONFIG_SECTION* CConfigFile::FindSection(const char* i_pszSection) const
{
    return FindEntry(m_vecSections, i_pszSection);
}

const S_CONFIG_KEY* CConfigFile::FindKey(const S_CONFIG_SECTION& i_Section, const char* i_pszKey)
{
    return FindEntry(i_Section.vecKeys, i_pszKey);
}

const S_CONFIG_KEY* CConfigFile::Find(const char* i_pszSection, const char* i_pszKey) const
{
    const S_CONFIG_SECTION* l_pSection = FindSection(i_pszSection);
    return l_pSection == nullptr ? nullptr : FindKey(*l_pSection, i_pszKey);
}

uint32_t CConfigFile::GetInt(const char* i_pszSection, const char* i_pszKey,
                             int32_t i_lDefault) const
{
    const S_CONFIG_KEY* l_pKey = Find(i_pszSection, i_pszKey);
    if (l_pKey == nullptr) {
        return static_cast<uint32_t>(i_lDefault);
    }
    const std::string& l_strValue = l_pKey->strValue;
    if (l_strValue.starts_with('-')) {
        return 0;
    }
    int32_t l_lNumber = 0;
    const auto l_Read =
        std::from_chars(l_strValue.data(), l_strValue.data() + l_strValue.size(), l_lNumber);
    if (l_Read.ec == std::errc::result_out_of_range) {
        return static_cast<uint32_t>(std::numeric_limits<int32_t>::max());
    }
    return static_cast<uint32_t>(l_lNumber);
}

int32_t CConfigFile::GetString(const char* i_pszSection, const char* i_pszKey,
                               const char* i_pszDefault, char* o_pszValue, int32_t i_lSize) const
{
    if (o_pszValue == nullptr || i_lSize < 2) {
        return 0;
    }
    const S_CONFIG_KEY* l_pKey = Find(i_pszSection, i_pszKey);
    std::string_view l_strText;
    if (l_pKey != nullptr) {
        l_strText = l_pKey->strValue;
    } else if (i_pszDefault != nullptr) {
        l_strText = i_pszDefault;
    }
    if (!l_strText.empty() && l_strText.front() == l_strText.back() &&
        (l_strText.front() == '\'' || l_strText.front() == '"')) {
        l_strText.remove_prefix(1);
        // A quote alone was both the first and the last.
        l_strText.remove_suffix(l_strText.empty() ? 0 : 1);
    }
    l_strText = Trim(l_strText, " ").substr(0, static_cast<size_t>(i_lSize) - 1);
    std::copy(l_strText.begin(), l_strText.end(), o_pszValue);
    o_pszValue[l_strText.size()] = '\0';
    return static_cast<int32_t>(l_strText.size());
}

double CConfigFile::GetDouble(const char* i_pszSection, const char* i_pszKey,
                              double i_dDefault) const
{
    char l_aszValue[50];
    if (Find(i_pszSection, i_pszKey) == nullptr ||
        GetString(i_pszSection, i_pszKey, "", l_aszValue, sizeof(l_aszValue)) == 0) {
        return i_dDefault;
    }
    const double l_dNumber = TextToDouble(l_aszValue);
    return l_dNumber == 0.0 ? i_dDefault : l_dNumber;
}

} // namespace tornval
