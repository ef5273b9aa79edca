// A rolling reply as a link delivers it: the first byte picks one channel or two, the rest is the
// reply. All buffers are as large as the contract asks for, so that a byte outside is a finding.
#include "Fuzz.h"

#include <vector>

#include "probes/BareProbe.h"

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    constexpr int32_t k_lUntouched = 0x5AA55AA5;
    if (i_ulSize == 0) {
        return 0;
    }
    CBareProbe l_Probe(1 + (i_pucData[0] & 1U));
    const std::vector<char> l_vReply(i_pucData + 1, i_pucData + i_ulSize);
    std::vector<int32_t> l_vlProcessed(
        l_vReply.size() < tornval::k_ulProbeHeaderSize ? 2 : l_vReply.size() - 2, k_lUntouched);
    int32_t l_lSize = 0;
    S_RESULT l_Result{};
    const bool l_bGood =
        l_Probe.RollingCmdeResultManagement(static_cast<uint32_t>(l_vReply.size()), l_vReply.data(),
                                            &l_lSize, l_vlProcessed.data(), l_Result);
    Require(l_bGood == (l_Result.ulStatus == 0));
    Require(l_Result.ulFwStatus == 0 || l_Result.ulStatus == 1);
    if (l_bGood || l_lSize != 0) {
        Require(l_lSize == l_vlProcessed[0] + l_vlProcessed[1] + 2);
        Require(l_vlProcessed[0] >= l_vlProcessed[1] && l_vlProcessed[1] >= 0);
        Require(static_cast<size_t>(l_lSize) <= l_vlProcessed.size());
    } else {
        Require(l_vlProcessed[0] == k_lUntouched && l_vlProcessed[1] == k_lUntouched);
    }
    return 0;
}
