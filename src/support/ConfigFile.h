/**
 * @file ConfigFile.h
 * @brief Reader of the configuration file: sections in brackets, "key = value" lines, comments.
 */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tornval {

/** One line of a section: a key with its value, or a blank or comment line. */
struct S_CONFIG_KEY
{
    std::string strName;  /**< trimmed; empty in a comment entry */
    std::string strValue; /**< trimmed; quotes stay at this stage */
    bool bComment = false;
    std::string strRawLine; /**< the line as it stood, without its line end */
};

/** One section, or a line from before the first one (a comment entry). */
struct S_CONFIG_SECTION
{
    std::string strName; /**< text between the brackets, not trimmed */
    std::vector<S_CONFIG_KEY> vecKeys;
    bool bComment = false;
    std::string strRawLine;
};

/**
 * Holds a file's lines in their order and answers typed questions about keys. Names are compared
 * without case, the first match counts, and lookups see no comment entries.
 *
 * Belongs to the one thread that built it.
 */
class CConfigFile
{
public:
    /**
     * Reads a file; what was read before is dropped.
     *
     * @return true if it could be opened (and its lines found room), whatever it held.
     */
    bool Load(const char* i_pszPath);

    /**
     * The decimal digits at the head of a value; 0 where there are none, the largest 32-bit number
     * that is positive where there are too many. A missing key gives the default, unchanged.
     */
    [[nodiscard]] uint32_t GetInt(const char* i_pszSection, const char* i_pszKey,
                                  int32_t i_lDefault) const;

    /**
     * Copies a value, or the default where the key is missing, without its quotes and outer blanks.
     *
     * @param i_pszDefault text, or null for an empty one.
     * @param i_lSize      room with the terminator; below 2 stores nothing.
     * @return characters stored, without the terminator.
     */
    int32_t GetString(const char* i_pszSection, const char* i_pszKey, const char* i_pszDefault,
                      char* o_pszValue, int32_t i_lSize) const;

    /** A value as a number; the default where the key is missing, no number, or 0. */
    [[nodiscard]] double GetDouble(const char* i_pszSection, const char* i_pszKey,
                                   double i_dDefault) const;

private:
    [[nodiscard]] const S_CONFIG_SECTION* FindSection(const char* i_pszSection) const;
    [[nodiscard]] static const S_CONFIG_KEY* FindKey(const S_CONFIG_SECTION& i_Section,
                                                     const char* i_pszKey);
    /** The key of a section, or null. */
    [[nodiscard]] const S_CONFIG_KEY* Find(const char* i_pszSection, const char* i_pszKey) const;
    void AddLine(std::string_view i_strLine);

    std::string m_strPath;
    std::vector<S_CONFIG_SECTION> m_vecSections;
    /** Whether a section is under construction: the last of m_vecSections then. */
    bool m_bInSection = false;
};

} // namespace tornval
