#include "links/serial/SerialLink.h"

namespace links {

CRsLink& TheLink()
{
    static CSerialLink s_Link;
    return s_Link;
}

} // namespace links
