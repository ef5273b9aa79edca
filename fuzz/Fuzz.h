/**
 * @file Fuzz.h
 * @brief What all fuzz targets use.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

/** A finding: what must hold does not. */
inline void Require(bool i_bHolds)
{
    if (!i_bHolds) {
        std::abort();
    }
}

/** Puts bytes into a file in memory. @return its path. */
inline std::string FileOf(const uint8_t* i_pucData, size_t i_ulSize)
{
    static const int s_lFile = memfd_create("fuzzed", 0);
    Require(ftruncate(s_lFile, 0) == 0 &&
            pwrite(s_lFile, i_pucData, i_ulSize, 0) == static_cast<ssize_t>(i_ulSize));
    return "/proc/self/fd/" + std::to_string(s_lFile);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize);
