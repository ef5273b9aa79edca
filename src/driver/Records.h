/**
 * @file Records.h
 * @brief The records of the exported interface as the drivers use them.
 */
#pragma once

#include <cstddef>
#include <cstring>

#include "TornvalC63.h"
#include "wire/Bytes.h"

namespace tornval {

static_assert(sizeof(S_RESULT) == 20 && offsetof(S_RESULT, ulStatus) == 16);
static_assert(sizeof(S_SEND_STRUCT) == 12 && alignof(S_SEND_STRUCT) == 1 &&
              offsetof(S_SEND_STRUCT, CmdeID) == 1 && offsetof(S_SEND_STRUCT, ucCmdeParam) == 2 &&
              offsetof(S_SEND_STRUCT, ulTimeout) == 4 && offsetof(S_SEND_STRUCT, ulSize) == 8);
static_assert(sizeof(S_RECEIVE_STRUCT) == 8 && alignof(S_RECEIVE_STRUCT) == 1 &&
              offsetof(S_RECEIVE_STRUCT, ulNbReturnByte) == 4);
static_assert(sizeof(S_DRIVER_INFO) == 104 && alignof(S_DRIVER_INFO) == 1 &&
              offsetof(S_DRIVER_INFO, szLinkType) == 50 &&
              offsetof(S_DRIVER_INFO, ulDriverID) == 100);

/** A record with its kind, stage and status, all else 0. */
inline S_RESULT MakeResult(uint32_t i_ulDriverType, uint32_t i_ulStep, uint32_t i_ulStatus = 0)
{
    return {i_ulDriverType, i_ulStep, 0, 0, i_ulStatus};
}

/** The numbers of a command record, read from its bytes. */
inline uint32_t GetTimeout(const S_SEND_STRUCT& i_Cmde)
{
    return wire::ReadLe32(reinterpret_cast<const uint8_t*>(&i_Cmde) +
                          offsetof(S_SEND_STRUCT, ulTimeout));
}
inline uint32_t GetSize(const S_SEND_STRUCT& i_Cmde)
{
    return wire::ReadLe32(reinterpret_cast<const uint8_t*>(&i_Cmde) +
                          offsetof(S_SEND_STRUCT, ulSize));
}
inline uint32_t GetNbReturnByte(const S_RECEIVE_STRUCT& i_Receive)
{
    return wire::ReadLe32(reinterpret_cast<const uint8_t*>(&i_Receive) +
                          offsetof(S_RECEIVE_STRUCT, ulNbReturnByte));
}

/** Builds a command record as the library's own commands have it: the other bytes are 0. */
inline S_SEND_STRUCT MakeCommand(uint8_t i_ucCmdeID, uint32_t i_ulTimeout, uint32_t i_ulSize)
{
    S_SEND_STRUCT l_Cmde{};
    l_Cmde.CmdeID = i_ucCmdeID;
    auto* l_pucCmde = reinterpret_cast<uint8_t*>(&l_Cmde);
    wire::WriteLe32(l_pucCmde + offsetof(S_SEND_STRUCT, ulTimeout), i_ulTimeout);
    wire::WriteLe32(l_pucCmde + offsetof(S_SEND_STRUCT, ulSize), i_ulSize);
    return l_Cmde;
}

/** Fills what a send gives back. */
inline void FillReceive(S_RECEIVE_STRUCT* o_pReceive, uint32_t i_ulAnswer, uint32_t i_ulNbReturn)
{
    auto* l_pucReceive = reinterpret_cast<uint8_t*>(o_pReceive);
    wire::WriteLe32(l_pucReceive, i_ulAnswer);
    wire::WriteLe32(l_pucReceive + offsetof(S_RECEIVE_STRUCT, ulNbReturnByte), i_ulNbReturn);
}

} // namespace tornval
