#include "TornvalLinks.h"
#include "links/virtual/VirtualLink.h"

namespace links {

CRsLink& TheLink()
{
    static const COfOneProcess<CVirtualLink> s_Link;
    return *s_Link;
}

} // namespace links

/** Names what is behind the link: tornval tells where its values come from. */
extern "C" TORNVAL_LINK_API const char* TornvalEmulated(void)
{
    return "emulated board and milliohm module";
}
