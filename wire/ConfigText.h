/**
 * @file ConfigText.h
 * @brief The text of a configuration file as a model: sections in brackets, "key = value" lines,
 *        comments.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wire {

/** One line of a section: a key with its value, or a blank or comment line. Its strings lie in the
 *  text that the model keeps. */
struct S_CONFIG_KEY
{
    std::string_view strName;  /**< trimmed; empty in a comment entry */
    std::string_view strValue; /**< trimmed; quotes stay at this stage */
    bool bComment = false;
    std::string_view strRawLine; /**< the line as it stood, without its line end */
};

/** One section, or a line from before the first one (a comment entry). */
struct S_CONFIG_SECTION
{
    std::string_view strName; /**< text between the brackets, not trimmed */
    std::vector<S_CONFIG_KEY> vecKeys;
    bool bComment = false;
    std::string_view strRawLine;
};

/**
 * Holds the lines of a text in their order and answers typed questions about keys. Names are compared
 * without case, the first match counts, and lookups see no comment entries.
 *
 * Reads no file. Belongs to the one thread that built it; a copy shares the text.
 */
class CConfigText
{
public:
    /**
     * Takes a text over; what was there before is dropped. Every line ends up in the model: there is
     * no such thing as a bad text. A line of more than 4095 characters is two, and of one with a
     * zero byte only what stands before it counts.
     *
     * @throws std::bad_alloc and leaves the model empty.
     */
    void Parse(std::string i_strText);

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

    /** A value whole, without its quotes and outer blanks; none where the key is missing. Lies in the
     *  text of this model. */
    [[nodiscard]] std::optional<std::string_view> FindText(std::string_view i_strSection,
                                                           std::string_view i_strKey) const;

protected:
    std::vector<S_CONFIG_SECTION> m_vecSections;

private:
    /** Where an entry that is no comment stands. A lookup need not walk over two million comments. */
    struct S_PLACE
    {
        size_t ulSection;
        size_t ulKey;
    };

    void Clear();
    bool AddLine(std::string_view i_strLine);
    [[nodiscard]] const S_CONFIG_SECTION* FindSection(std::string_view i_strSection) const;
    [[nodiscard]] const S_CONFIG_KEY* FindKey(const S_CONFIG_SECTION& i_Section,
                                              std::string_view i_strKey) const;
    /** The value of a key as it stands, or none. */
    [[nodiscard]] std::optional<std::string_view> Find(std::string_view i_strSection,
                                                       std::string_view i_strKey) const;

    std::shared_ptr<const std::string> m_pText; // what all strings of the model lie in
    std::vector<size_t> m_vulHeads;             // of m_vecSections
    std::vector<S_PLACE> m_vKeys;               // in file order
};

} // namespace wire
