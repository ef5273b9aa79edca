#include "links/virtual/VirtualLink.h"

namespace links {

CRsLink& TheLink()
{
    static const COfOneProcess<CVirtualLink> s_Link;
    return *s_Link;
}

} // namespace links
