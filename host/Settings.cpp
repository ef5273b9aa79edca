#include "Settings.h"

#include "cecore.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <vector>

namespace host {

namespace {

std::filesystem::path Folder(uint32_t i_ulKind)
{
    std::string l_strFolder(CeGetPath(i_ulKind, nullptr, 0), '\0');
    CeGetPath(i_ulKind, l_strFolder.data(), static_cast<uint32_t>(l_strFolder.size() + 1));
    return l_strFolder;
}

} // namespace

std::filesystem::path HomeFolder()
{
    return Folder(CECORE_PATH_HOME);
}

std::filesystem::path LinksFolder()
{
    return Folder(CECORE_PATH_LINKS);
}

std::filesystem::path LogFile()
{
    return Folder(CECORE_PATH_VOLUME) / "log_tornval.txt";
}

std::filesystem::path ConfigurationFile()
{
    return HomeFolder() / k_pszConfigName;
}

std::optional<std::string> ReadWholeFile(const std::filesystem::path& i_Path)
{
    // A pipe would be waited for.
    std::error_code l_Error;
    const std::filesystem::file_status l_Status = std::filesystem::status(i_Path, l_Error);
    if (std::filesystem::exists(l_Status) && !std::filesystem::is_regular_file(l_Status)) {
        errno = std::filesystem::is_directory(l_Status) ? EISDIR : ENOTSUP;
        return std::nullopt;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> l_pFile(std::fopen(i_Path.c_str(), "rbe"),
                                                                  &std::fclose);
    if (l_pFile == nullptr) {
        return std::nullopt;
    }
    std::string l_strText;
    std::vector<char> l_vPiece(65536);
    size_t l_uRead = 0;
    while ((l_uRead = std::fread(l_vPiece.data(), 1, l_vPiece.size(), l_pFile.get())) != 0) {
        l_strText.append(l_vPiece.data(), l_uRead);
    }
    return std::ferror(l_pFile.get()) != 0 ? std::nullopt
                                           : std::optional<std::string>(std::move(l_strText));
}

std::optional<std::filesystem::path> FindFile(const std::string& i_strName)
{
    std::error_code l_Error;
    for (const std::filesystem::path& l_Path :
         {HomeFolder() / i_strName, std::filesystem::absolute(i_strName, l_Error)}) {
        if (std::filesystem::exists(l_Path, l_Error)) {
            return l_Path;
        }
    }
    return std::nullopt;
}

CSettings::CSettings()
{
    m_Text.Parse(ReadWholeFile(ConfigurationFile()).value_or(""));
}

std::optional<std::string> CSettings::Text(std::string_view i_strSection,
                                           std::string_view i_strKey) const
{
    const std::optional<std::string_view> l_strText = m_Text.FindText(i_strSection, i_strKey);
    return l_strText ? std::optional<std::string>(*l_strText) : std::nullopt;
}

uint32_t CSettings::Number(const char* i_pszSection, const char* i_pszKey, int32_t i_lDefault) const
{
    return m_Text.GetInt(i_pszSection, i_pszKey, i_lDefault);
}

double CSettings::Real(std::string_view i_strSection, std::string_view i_strKey,
                       double i_dDefault) const
{
    const std::string l_strText = Text(i_strSection, i_strKey).value_or("");
    double l_dNumber = i_dDefault;
    std::from_chars(l_strText.data(), l_strText.data() + l_strText.size(), l_dNumber);
    return l_dNumber;
}

char* WriteNumber(char* o_pcFrom, char* i_pcTo, double i_dNumber)
{
    return std::to_chars(o_pcFrom, i_pcTo, i_dNumber, std::chars_format::general, 15).ptr;
}

double S_UNIT::Of(int32_t i_lMeasure) const
{
    std::array<char, 32> l_szText{};
    double l_dNumber = i_lMeasure * dScale + dOffset;
    std::from_chars(l_szText.data(),
                    WriteNumber(l_szText.data(), l_szText.data() + l_szText.size(), l_dNumber),
                    l_dNumber);
    return l_dNumber;
}

S_UNIT UnitOf(const CSettings& i_Settings, const std::string& i_strSection, uint32_t i_ulPlace)
{
    const std::string l_strPlace = "_" + std::to_string(i_ulPlace);
    const auto l_Real = [&](const std::string& i_strKey, double i_dDefault) {
        return i_Settings.Real(i_strSection, i_strKey + l_strPlace,
                               i_Settings.Real(i_strSection, i_strKey, i_dDefault));
    };
    return {i_Settings.Text(i_strSection, "UNIT" + l_strPlace).value_or(""), l_Real("SCALE", 1),
            l_Real("OFFSET", 0)};
}

} // namespace host
