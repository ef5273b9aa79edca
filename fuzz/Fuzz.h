/**
 * @file Fuzz.h
 * @brief What all fuzz targets use.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/** A finding: what must hold does not. */
inline void Require(bool i_bHolds)
{
    if (!i_bHolds) {
        std::abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize);
