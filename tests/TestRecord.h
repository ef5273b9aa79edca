/**
 * @file TestRecord.h
 * @brief Comparison and print of status records.
 */
#pragma once

#include <cstring>
#include <ostream>

#include "TornvalC63.h"

/** A record against five words in the order of its fields. */
inline bool operator==(const S_RESULT& i_Left, const S_RESULT& i_Right)
{
    return std::memcmp(&i_Left, &i_Right, sizeof(S_RESULT)) == 0;
}
inline std::ostream& operator<<(std::ostream& io_Stream, const S_RESULT& i_Result)
{
    return io_Stream << "type " << i_Result.ulDriverType << " step " << i_Result.ulStep << " error "
                     << i_Result.ulLastError << " firmware " << i_Result.ulFwStatus << " status "
                     << i_Result.ulStatus;
}
