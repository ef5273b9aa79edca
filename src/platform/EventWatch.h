/**
 * @file EventWatch.h
 * @brief Sees the announcements of answers pass.
 */
#pragma once

#include "Api.h"

namespace cecore {

/** Stands in front of SetEvent: does with the handle what it wants, calls the second for it, and gives
 *  back what that gave. Any thread. */
using SetEventWatcher = int (*)(uint32_t i_ulHandle, int (*i_pFnSetEvent)(uint32_t));

/** Puts a watcher in front of SetEvent; null takes it away, and returns when nobody is in it any more. */
CECORE_API void WatchSetEvent(SetEventWatcher i_pFnWatcher);

} // namespace cecore
