#include "Reason.h"
#include "wire/Guarded.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace cecore {
namespace {

/** Reasons that are kept; then the oldest goes. */
constexpr uint32_t k_ulKept = 64;

struct S_REASONS
{
    wire::CMutex Mutex;
    std::array<CECORE_REASON, k_ulKept> aReasons WIRE_GUARDED_BY(Mutex);
    /** All that came since the last forgetting; number n stands at n modulo k_ulKept. */
    uint32_t ulCount WIRE_GUARDED_BY(Mutex);
};

// Zero until the first one comes, so that a process without a failure touches no page of it.
constinit S_REASONS s_Reasons{};

constinit thread_local const char* s_pszAbout = "";

template <size_t N>
void CopyText(char (&o_aszText)[N], const char* i_pszText)
{
    const size_t l_ulLength = std::min(std::strlen(i_pszText), N - 1);
    std::memcpy(o_aszText, i_pszText, l_ulLength);
    o_aszText[l_ulLength] = '\0';
}

} // namespace

CReasonScope::CReasonScope(const char* i_pszAbout) : m_pszOuter(s_pszAbout)
{
    s_pszAbout = i_pszAbout;
}

CReasonScope::~CReasonScope()
{
    s_pszAbout = m_pszOuter;
}

void ForgetReasons()
{
    const wire::CLock l_Lock(s_Reasons.Mutex);
    s_Reasons.ulCount = 0;
}

void RenewReasonsInChild()
{
    new (&s_Reasons.Mutex) wire::CMutex();
    const wire::CLock l_Lock(s_Reasons.Mutex);
    s_Reasons.ulCount = 0;
}

} // namespace cecore

void CeNoteReason(uint32_t code, const char* text)
{
    using namespace cecore;
    const wire::CLock l_Lock(s_Reasons.Mutex);
    CECORE_REASON& l_Reason = s_Reasons.aReasons[s_Reasons.ulCount++ % k_ulKept];
    l_Reason.code = code;
    CopyText(l_Reason.about, s_pszAbout);
    CopyText(l_Reason.text, text == nullptr ? "" : text);
}

uint32_t CeGetReasons(CECORE_REASON* reasons, uint32_t max)
{
    using namespace cecore;
    const wire::CLock l_Lock(s_Reasons.Mutex);
    const uint32_t l_ulKeptNow = std::min(s_Reasons.ulCount, k_ulKept);
    for (uint32_t i = 0; reasons != nullptr && i < std::min(max, l_ulKeptNow); ++i) {
        reasons[i] = s_Reasons.aReasons[(s_Reasons.ulCount - l_ulKeptNow + i) % k_ulKept];
    }
    return l_ulKeptNow;
}
