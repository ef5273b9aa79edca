/**
 * @file Reason.h
 * @brief Why something was refused, left as data by the place that refused it.
 *
 * A record of the exported interface has room for one bit and three numbers. Whoever knows more when
 * something fails notes it here, with the file, the port or the entry point by its name; a host reads
 * it with CeGetReasons (cecore.h).
 */
#pragma once

#include "Api.h"
#include "Format.h"

namespace cecore {

/** For the life of this object, what the calling thread notes is about this driver. */
class CECORE_API CReasonScope
{
public:
    /** @param i_pszAbout link type word, kept by reference. */
    explicit CReasonScope(const char* i_pszAbout);
    CReasonScope(const CReasonScope&) = delete;
    CReasonScope& operator=(const CReasonScope&) = delete;
    ~CReasonScope();

private:
    const char* m_pszOuter;
};

/** Forgets what was noted: a new load of the drivers begins. */
CECORE_API void ForgetReasons();

/** For a forked child: nobody holds the notes there, whatever the other threads of its parent did. */
CECORE_API void RenewReasonsInChild();

/** Notes a reason; the last-error value stays as it is. Never fails its caller, allocates nothing. */
template <typename... Args>
void NoteReason(uint32_t i_ulCode, TNarrowFormat<std::type_identity_t<Args>...> i_Format,
                const Args&... i_Args)
{
    char l_aszText[sizeof(CECORE_REASON::text)];
    FormatNarrow(l_aszText, sizeof(l_aszText), i_Format, i_Args...);
    ::CeNoteReason(i_ulCode, l_aszText);
}

} // namespace cecore
