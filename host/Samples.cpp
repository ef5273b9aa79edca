#include "Samples.h"

namespace host {

bool SplitChannels(const std::vector<int32_t>& i_vWords, int32_t i_lSize, size_t i_uNbChannels,
                   Channels& o_vChannels)
{
    o_vChannels.assign(i_uNbChannels, {});
    if (i_lSize == 0) {
        return true;
    }
    if (i_lSize < 0 || i_vWords.size() < i_uNbChannels) {
        return false;
    }
    uint64_t l_uSum = 0;
    for (size_t i = 0; i < i_uNbChannels; ++i) {
        if (i_vWords[i] < 0) {
            return false;
        }
        l_uSum += static_cast<uint64_t>(i_vWords[i]);
    }
    const auto l_uSize = static_cast<uint64_t>(i_lSize);
    if (l_uSum + i_uNbChannels > i_vWords.size() ||
        (l_uSize != l_uSum && l_uSize != l_uSum + i_uNbChannels)) {
        return false;
    }
    auto l_It = i_vWords.begin() + static_cast<std::ptrdiff_t>(i_uNbChannels);
    for (size_t i = 0; i < i_uNbChannels; ++i) {
        o_vChannels[i].assign(l_It, l_It + i_vWords[i]);
        l_It += i_vWords[i];
    }
    return true;
}

} // namespace host
