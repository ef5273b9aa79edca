/**
 * @file Exchange.h
 * @brief A send with its fetch, for the exported functions and for a driver alike.
 */
#pragma once

#include "driver/Records.h"

/**
 * @param i_fnSend  called with the command and what it gives back.
 * @param i_fnFetch called with the number of bytes that the send announced, if it succeeded.
 * @return the record of the last of the two that ran.
 */
template <typename Send, typename Fetch>
S_RESULT SendAndFetch(S_SEND_STRUCT i_Cmde, const Send& i_fnSend, const Fetch& i_fnFetch)
{
    S_RECEIVE_STRUCT l_Receive{};
    const S_RESULT l_Sent = i_fnSend(&i_Cmde, &l_Receive);
    return l_Sent.ulStatus != 0 ? l_Sent : i_fnFetch(tornval::GetNbReturnByte(l_Receive));
}

/** The same through the exports. @param i_ulRaw room for raw bytes; 0: as many as were announced. */
inline S_RESULT Exchange(uint32_t i_ulID, const S_SEND_STRUCT& i_Cmde, const void* i_pcData,
                         char* o_pcRaw, int32_t* o_plSize, int32_t* o_plData, uint32_t i_ulRaw = 0)
{
    return SendAndFetch(
        i_Cmde,
        [&](S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceive) {
            return SendMeasBoardCmd(i_ulID, i_pCmde, o_pReceive, i_pcData);
        },
        [&](uint32_t i_ulBytes) {
            return GetMeasBoardResult(i_ulID, i_ulRaw == 0 ? i_ulBytes : i_ulRaw, o_pcRaw, o_plSize,
                                      o_plData, 0);
        });
}
