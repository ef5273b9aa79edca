#include "links/virtual/VirtualLink.h"

namespace links {

CRsLink& TheLink()
{
    static CVirtualLink s_Link;
    return s_Link;
}

} // namespace links
