#include "Progress.h"

#include "Stop.h"

#include <algorithm>
#include <unistd.h>

namespace host {

CProgress::CProgress(bool i_bForced, const std::string& i_strLabel, uint64_t i_uTotal)
{
    if (!i_bForced && isatty(STDERR_FILENO) == 0) {
        return;
    }
    std::vector<std::string> l_vArguments = {"pv",         "--line-mode", "--progress", "--timer",
                                             "--interval", "0.1",         "--name",     i_strLabel};
    if (i_uTotal != 0) {
        l_vArguments.insert(l_vArguments.end(), {"--eta", "--size", std::to_string(i_uTotal)});
    }
    if (i_bForced) {
        l_vArguments.insert(l_vArguments.end(), {"--force", "--width", "79"});
    }
    // A bar that cannot be drawn is no reason to fail.
    m_Bar.Start(l_vArguments);
}

void CProgress::Advance(uint64_t i_uSteps)
{
    // Only line ends count, so their number is all that is piped.
    constexpr uint64_t k_uPiece = 4096;
    while (i_uSteps != 0 && m_Bar.IsRunning()) {
        const uint64_t l_uNow = std::min(i_uSteps, k_uPiece);
        if (!m_Bar.Write(std::string(static_cast<size_t>(l_uNow), '\n'))) {
            return;
        }
        i_uSteps -= l_uNow;
    }
}

void CallWithProgress(bool i_bForced, const std::string& i_strLabel,
                      const std::function<void()>& i_fnOperation)
{
    CProgress l_Progress(i_bForced, i_strLabel, 0);
    Call(i_fnOperation, [&] { l_Progress.Advance(); });
}

} // namespace host
