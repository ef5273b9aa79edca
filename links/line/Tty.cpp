#include "links/line/Tty.h"

#include "cecore.h"
#include "wire/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace links {

namespace {

constexpr std::array<std::pair<uint32_t, speed_t>, 23> k_aRates{
    {{1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
     {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
     {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
     {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
     {3500000, B3500000}, {4000000, B4000000}, {300, B300}}};
constexpr std::array<tcflag_t, 4> k_aDataBits{CS5, CS6, CS7, CS8};

/** A terminal whose far end keeps it open: the exclusive mode would outlive an owner that was killed,
 *  and shut the next one out. The lock goes with its owner. */
bool IsPseudoTerminal(int i_lFd)
{
    constexpr unsigned k_ulFirstMajor = 136, k_ulLastMajor = 143; // of /dev/pts
    struct stat l_Status = {};
    return fstat(i_lFd, &l_Status) == 0 && major(l_Status.st_rdev) >= k_ulFirstMajor &&
           major(l_Status.st_rdev) <= k_ulLastMajor;
}

void SetRaw(termios& io_Settings)
{
    cfmakeraw(&io_Settings);
    io_Settings.c_iflag &= ~static_cast<tcflag_t>(IXOFF | IXANY | IGNPAR | INPCK);
    io_Settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS | PARENB);
    io_Settings.c_cflag |= static_cast<tcflag_t>(CLOCAL | CREAD);
    io_Settings.c_cc[VMIN] = 1; // a read of 0 bytes then means that the line has hung up
    io_Settings.c_cc[VTIME] = 0;
}

} // namespace

bool MakeRaw(int i_lFd)
{
    termios l_Settings{};
    if (tcgetattr(i_lFd, &l_Settings) != 0) {
        return false;
    }
    SetRaw(l_Settings);
    return tcsetattr(i_lFd, TCSANOW, &l_Settings) == 0;
}

std::unique_ptr<CTty> CTty::Open(const std::string& i_strPath, const S_PORT_SETTINGS& i_Settings,
                                 S_TTY_ERROR& o_Error)
{
    const int l_lFd = open(i_strPath.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    std::unique_ptr<CTty> l_pTty;
    if (l_lFd < 0) {
        o_Error.ulError = wire::SystemErrorOf(errno);
    } else {
        l_pTty.reset(new CTty(l_lFd));
        errno = 0;
        o_Error.ulError = l_pTty->Claim(i_Settings);
    }
    if (o_Error.ulError != 0) {
        o_Error.strText =
            i_strPath + ": " +
            (errno != 0 ? std::strerror(errno)
                        : "does not take " + std::to_string(i_Settings.ulBaudRate) + " baud and " +
                              std::to_string(i_Settings.ulDataBits) + " data bits");
        l_pTty.reset();
    }
    return l_pTty;
}

/** Locks and sets the port. 0, or an error; errno is 0 if it is the settings that do not fit. */
uint32_t CTty::Claim(const S_PORT_SETTINGS& i_Settings)
{
    termios l_Before{};
    // The lock keeps out whoever locks too, whatever his rights; the exclusive mode keeps out
    // everyone but root. The lock comes first: it tells whether there is someone to disturb.
    if (tcgetattr(m_Fd.Get(), &l_Before) != 0 || flock(m_Fd.Get(), LOCK_EX | LOCK_NB) != 0 ||
        (!IsPseudoTerminal(m_Fd.Get()) && ioctl(m_Fd.Get(), TIOCEXCL) != 0)) {
        return wire::SystemErrorOf(errno);
    }
    m_oBefore = l_Before;
    const auto* l_pRate = std::find_if(k_aRates.begin(), k_aRates.end(), [&](const auto& i_Rate) {
        return i_Rate.first == i_Settings.ulBaudRate;
    });
    if (l_pRate == k_aRates.end() || i_Settings.ulDataBits < 5 || i_Settings.ulDataBits > 8) {
        errno = 0;
        return CECORE_ERROR_INVALID_PARAMETER;
    }
    termios l_Wanted = l_Before;
    SetRaw(l_Wanted);
    l_Wanted.c_cflag &= ~static_cast<tcflag_t>(CSIZE);
    l_Wanted.c_cflag |= k_aDataBits[i_Settings.ulDataBits - 5];
    termios l_Now{};
    if (cfsetspeed(&l_Wanted, l_pRate->second) != 0 ||
        tcsetattr(m_Fd.Get(), TCSANOW, &l_Wanted) != 0 || tcgetattr(m_Fd.Get(), &l_Now) != 0) {
        return wire::SystemErrorOf(errno);
    }
    // The call succeeds as soon as it could change anything at all.
    if (cfgetospeed(&l_Now) != l_pRate->second || cfgetispeed(&l_Now) != l_pRate->second ||
        (l_Now.c_cflag & CSIZE) != (l_Wanted.c_cflag & CSIZE) || (l_Now.c_lflag & ICANON) != 0) {
        errno = 0;
        return CECORE_ERROR_INVALID_PARAMETER;
    }
    (void)tcflush(m_Fd.Get(), TCIOFLUSH);
    return 0;
}

bool CTty::HasHungUp() const
{
    pollfd l_Polled{m_Fd.Get(), 0, 0};
    return poll(&l_Polled, 1, 0) > 0;
}

CTty::~CTty()
{
    if (m_oBefore) {
        // What still waits to be sent would hold up the settings and the close.
        (void)tcflush(m_Fd.Get(), TCIOFLUSH);
        (void)tcsetattr(m_Fd.Get(), TCSANOW, &*m_oBefore);
        (void)ioctl(m_Fd.Get(), TIOCNXCL);
        (void)flock(m_Fd.Get(), LOCK_UN);
    }
}

} // namespace links
