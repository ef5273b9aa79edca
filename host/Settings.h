/**
 * @file Settings.h
 * @brief What the configuration file says, read as the library reads it, and the folders in which files
 *        are looked for.
 */
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "wire/ConfigText.h"

namespace host {

/** Name of the configuration file. */
constexpr const char* k_pszConfigName = "TornvalC63.ini";

/** Folder of the configuration, where names without a folder are looked for first. */
std::filesystem::path HomeFolder();

/** Folder where link libraries are looked for next; empty if there is none. */
std::filesystem::path LinksFolder();

/** Where the trace log is written. */
std::filesystem::path LogFile();

/** Path of the configuration file. */
std::filesystem::path ConfigurationFile();

/** Content of a file; nothing if it cannot be read, errno then telling why. */
std::optional<std::string> ReadWholeFile(const std::filesystem::path& i_Path);

/** A file that the configuration names: a relative name is looked for in the home folder first, then in
 *  the working folder. Nothing if it is in neither. */
std::optional<std::filesystem::path> FindFile(const std::string& i_strName);

/** The configuration file as it is now. A missing one is empty. */
class CSettings
{
public:
    CSettings();

    /** Value of a key as a text, without quotes; nothing if it is missing. */
    std::optional<std::string> Text(std::string_view i_strSection, std::string_view i_strKey) const;

    /** The decimal digits at the head of a value; the default if the key is missing. */
    uint32_t Number(const char* i_pszSection, const char* i_pszKey, int32_t i_lDefault) const;

    /** A value as a number with a point; the default if it is missing or none. */
    double Real(std::string_view i_strSection, std::string_view i_strKey, double i_dDefault) const;

private:
    wire::CConfigText m_Text;
};

/** How the values of an input are shown. */
struct S_UNIT
{
    /** Empty: raw values. */
    std::string strUnit;
    double dScale = 1;
    double dOffset = 0;

    bool IsScaled() const { return dScale != 1 || dOffset != 0; }

    /** The unit's name, or "raw". */
    std::string Name() const { return strUnit.empty() ? "raw" : strUnit; }

    /** What is shown of a measure. */
    double Of(int32_t i_lMeasure) const;
};

/** Writes a number with at most 15 digits, which are those that somebody would write: a scale of 0.1
 *  makes 0.3 of 3, and not 0.30000000000000004. @return behind the last character. */
char* WriteNumber(char* o_pcFrom, char* i_pcTo, double i_dNumber);

/** Unit of an input of the board, 0 to 12 (section IM), or of a channel of a probe, 0 or 1 (section BT,
 *  USB): keys UNIT_n, SCALE_n or SCALE, OFFSET_n or OFFSET. */
S_UNIT UnitOf(const CSettings& i_Settings, const std::string& i_strSection, uint32_t i_ulPlace);

} // namespace host
