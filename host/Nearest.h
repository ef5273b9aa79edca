/**
 * @file Nearest.h
 * @brief The known word that a misspelt one was probably meant to be.
 */
#pragma once

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/** How many letters must be changed, put in or left out to make one word of another; case is equal. */
inline size_t EditDistance(std::string_view i_strA, std::string_view i_strB)
{
    std::vector<size_t> l_vRow(i_strB.size() + 1);
    for (size_t i = 0; i < l_vRow.size(); ++i) {
        l_vRow[i] = i;
    }
    for (size_t a = 1; a <= i_strA.size(); ++a) {
        size_t l_uDiagonal = l_vRow[0]++;
        for (size_t b = 1; b <= i_strB.size(); ++b) {
            const bool l_bSame = std::tolower(static_cast<unsigned char>(i_strA[a - 1])) ==
                                 std::tolower(static_cast<unsigned char>(i_strB[b - 1]));
            const size_t l_uReplaced = l_uDiagonal + (l_bSame ? 0 : 1);
            l_uDiagonal = l_vRow[b];
            l_vRow[b] = std::min({l_uReplaced, l_vRow[b] + 1, l_vRow[b - 1] + 1});
        }
    }
    return l_vRow.back();
}

/** The nearest of some words; empty if none is near. */
inline std::string Nearest(std::string_view i_strWord, const std::vector<std::string>& i_vKnown)
{
    std::string l_strNearest;
    size_t l_uLeast = std::max<size_t>(2, i_strWord.size() / 3) + 1;
    for (const std::string& l_strKnown : i_vKnown) {
        const size_t l_uDistance = EditDistance(i_strWord, l_strKnown);
        if (l_uDistance < l_uLeast && l_uDistance < l_strKnown.size()) {
            l_uLeast = l_uDistance;
            l_strNearest = l_strKnown;
        }
    }
    return l_strNearest;
}

} // namespace host
