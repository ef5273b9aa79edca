#include "support/ConfigFile.h"

#include <cstdio>
#include <new>

#include "platform/File.h"

namespace tornval {
namespace {

/** The rest of a file; of one that fails half-way, what came before. */
std::string ReadAll(std::FILE* i_pFile)
{
    constexpr size_t k_ulPiece = 65536;
    std::string l_strText;
    size_t l_ulRead = 0;
    do {
        const size_t l_ulBefore = l_strText.size();
        l_strText.resize(l_ulBefore + k_ulPiece);
        l_ulRead = std::fread(l_strText.data() + l_ulBefore, 1, k_ulPiece, i_pFile);
        l_strText.resize(l_ulBefore + l_ulRead);
    } while (l_ulRead == k_ulPiece);
    return l_strText;
}

} // namespace

bool CConfigFile::Load(const char* i_pszPath)
try {
    Parse({});
    m_strPath = i_pszPath;
    const cecore::CStream l_pFile = cecore::OpenForReading(i_pszPath);
    if (l_pFile == nullptr) {
        return false;
    }
    Parse(ReadAll(l_pFile.get()));
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

} // namespace tornval
