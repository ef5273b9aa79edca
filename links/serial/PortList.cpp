#include "links/serial/PortList.h"

#include <glob.h>

namespace links {

namespace {

/** Names beyond this length are not listed one by one: a machine may claim 32 ports of old. */
constexpr size_t k_ulMostText = 250;

} // namespace

std::string ListPorts()
{
    std::string l_strPorts;
    for (const char* l_pszPattern :
         {"/dev/serial/by-id/*", "/dev/ttyUSB*", "/dev/ttyACM*", "/dev/ttyS*"}) {
        glob_t l_Found{};
        if (glob(l_pszPattern, 0, nullptr, &l_Found) == 0) {
            for (size_t i = 0; i < l_Found.gl_pathc && l_strPorts.size() < k_ulMostText; ++i) {
                l_strPorts += (l_strPorts.empty() ? "" : ", ") + std::string(l_Found.gl_pathv[i]);
            }
        }
        globfree(&l_Found);
    }
    return l_strPorts.empty()                  ? "none"
           : l_strPorts.size() >= k_ulMostText ? l_strPorts + ", ..."
                                               : l_strPorts;
}

} // namespace links
