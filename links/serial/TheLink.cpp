#include "links/serial/SerialLink.h"

namespace links {

CRsLink& TheLink()
{
    static const COfOneProcess<CSerialLink> s_Link;
    return *s_Link;
}

} // namespace links
