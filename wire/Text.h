/**
 * @file Text.h
 * @brief Small text tools: comparison without case, numbers of the files that people write.
 */
#pragma once

#include <string_view>

namespace wire {

/** Whether two texts are equal but for the case of the letters A to Z, in every locale. */
bool EqualsNoCase(std::string_view i_strLeft, std::string_view i_strRight);

/**
 * The number at the head of a text, correctly rounded and in every locale with a point: what atof
 * gives, 0.0 where there is none. Words for infinity and not-a-number are no numbers here.
 */
double TextToDouble(std::string_view i_strText);

} // namespace wire
