#include "TraceTail.h"

#include <array>
#include <cstdio>
#include <memory>
#include <sys/stat.h>

namespace host {

namespace {

/** Most that is read at once; of a log that grew by more the end is shown. */
constexpr long k_lMostAtOnce = 256L * 1024;
constexpr size_t k_uLongestLine = 1000;

struct S_CLOSE
{
    void operator()(std::FILE* i_pFile) const { (void)std::fclose(i_pFile); }
};

} // namespace

std::vector<std::string> CTraceTail::Read()
{
    std::vector<std::string> l_vNew;
    struct stat l_Status = {};
    // A pipe under that name would be waited for.
    if (stat(m_strPath.c_str(), &l_Status) != 0 || !S_ISREG(l_Status.st_mode)) {
        return l_vNew;
    }
    const std::unique_ptr<std::FILE, S_CLOSE> l_pFile(std::fopen(m_strPath.c_str(), "rbe"));
    if (l_pFile == nullptr) {
        return l_vNew;
    }
    if (l_Status.st_size < m_lOffset) {
        m_lOffset = 0;
        m_strUnfinished.clear();
    }
    if (l_Status.st_size - m_lOffset > k_lMostAtOnce) {
        m_lOffset = l_Status.st_size - k_lMostAtOnce;
    }
    std::array<char, 8192> l_aBlock{};
    size_t l_uRead = 0;
    if (std::fseek(l_pFile.get(), m_lOffset, SEEK_SET) != 0) {
        return l_vNew;
    }
    long l_lLeft = k_lMostAtOnce;
    while (l_lLeft > 0 &&
           (l_uRead = std::fread(l_aBlock.data(), 1, l_aBlock.size(), l_pFile.get())) != 0) {
        l_lLeft -= static_cast<long>(l_uRead);
        m_lOffset += static_cast<long>(l_uRead);
        for (size_t i = 0; i < l_uRead; ++i) {
            if (l_aBlock[i] == '\n') {
                l_vNew.push_back(m_strUnfinished);
                m_Lines.push_back(std::move(m_strUnfinished));
                m_strUnfinished.clear();
            } else if (l_aBlock[i] != '\r' && m_strUnfinished.size() < k_uLongestLine) {
                m_strUnfinished += l_aBlock[i];
            }
        }
    }
    while (m_Lines.size() > m_uLines) {
        m_Lines.pop_front();
    }
    if (l_vNew.size() > m_uLines) {
        l_vNew.erase(l_vNew.begin(), l_vNew.end() - static_cast<std::ptrdiff_t>(m_uLines));
    }
    return l_vNew;
}

} // namespace host
