#include "links/common/Configuration.h"

#include "cecore.h"
#include "wire/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/stat.h>

namespace links {

wire::CConfigText ReadConfiguration()
{
    std::string l_strPath(CeGetPath(CECORE_PATH_HOME, nullptr, 0), '\0');
    (void)CeGetPath(CECORE_PATH_HOME, l_strPath.data(),
                    static_cast<uint32_t>(l_strPath.size() + 1));
    l_strPath += "TornvalC63.ini";
    const wire::CDescriptor l_File(
        open(l_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat l_Status = {};
    wire::CConfigText l_Config;
    if (!l_File || fstat(l_File.Get(), &l_Status) != 0 || !S_ISREG(l_Status.st_mode)) {
        return l_Config;
    }
    std::string l_strText;
    constexpr size_t k_ulPiece = 65536;
    l_strText.reserve(static_cast<size_t>(l_Status.st_size) + k_ulPiece);
    ssize_t l_lRead = 0;
    do {
        const size_t l_ulBefore = l_strText.size();
        l_strText.resize(l_ulBefore + k_ulPiece);
        l_lRead = read(l_File.Get(), l_strText.data() + l_ulBefore, k_ulPiece);
        l_strText.resize(l_ulBefore + static_cast<size_t>(std::max<ssize_t>(l_lRead, 0)));
    } while (l_lRead > 0 || (l_lRead < 0 && errno == EINTR));
    l_Config.Parse(std::move(l_strText));
    return l_Config;
}

} // namespace links
