#include "instrument/Pty.h"

#include "links/line/Tty.h"

#include <array>
#include <cstdlib>

#include <fcntl.h>

namespace emulator {

std::optional<CPty> CPty::Make()
{
    CPty l_Pty;
    l_Pty.m_Near = wire::CDescriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::array<char, 128> l_aszName{};
    if (!l_Pty.m_Near || grantpt(l_Pty.Fd()) != 0 || unlockpt(l_Pty.Fd()) != 0 ||
        ptsname_r(l_Pty.Fd(), l_aszName.data(), l_aszName.size()) != 0 ||
        fcntl(l_Pty.Fd(), F_SETFL, O_NONBLOCK) != 0) {
        return std::nullopt;
    }
    l_Pty.m_strName = l_aszName.data();
    l_Pty.m_Far = wire::CDescriptor(open(l_aszName.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    // Raw from the start: what comes in before the port is opened shall not be echoed.
    if (!l_Pty.m_Far || !links::MakeRaw(l_Pty.m_Far.Get())) {
        return std::nullopt;
    }
    return l_Pty;
}

} // namespace emulator
