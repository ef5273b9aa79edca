/**
 * @file Peers.h
 * @brief What the kernels are timed against, each where script/bench found it in the registry.
 */
#pragma once

#include <cstdint>

/** @name libmodbus: its crc16, which the library keeps to itself, from the source package. */
///@{
#ifdef BENCH_LIBMODBUS
extern "C" uint16_t BenchModbusCrc(uint8_t* i_pucData, uint16_t i_usLength);
#endif
///@}

/** @name libmseed: Steim-1, from the source package. */
///@{
#ifdef BENCH_LIBMSEED
extern "C" int msr_decode_steim1(int32_t* i_plInput, int i_lInputLength, int i_lSamples,
                                 int32_t* o_plOutput, int i_lOutputLength, char* i_pszName,
                                 int i_lSwap);
extern "C" int msr_encode_steim1(int32_t* i_plInput, int i_lSamples, int32_t* o_plOutput,
                                 int i_lOutputLength, int32_t i_lDifference, int i_lSwap);
#endif
///@}

/** @name streamvbyte with zigzag differences, the library package. */
///@{
#ifdef BENCH_STREAMVBYTE
#include <streamvbyte.h>
extern "C" {
#include <streamvbyte_zigzag.h>
}
#endif
///@}
