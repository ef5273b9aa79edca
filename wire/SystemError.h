/**
 * @file SystemError.h
 * @brief The target's number for an error of this system.
 */
#pragma once

#include <cstdint>

namespace wire {

/** The target's error number for an errno value; 31, a general failure, for one that it has not. */
uint32_t SystemErrorOf(int i_lErrno);

} // namespace wire
