#include "samples/SampleCode.h"

namespace tornval {

size_t DecodeOneChannel(const uint8_t* i_pucData, size_t i_ulSize, int32_t i_lCoefLow,
                        int32_t i_lCoefHigh, int32_t* o_plSamples)
{
    S_SAMPLE_STATE l_State;
    size_t l_ulUsed = 0;
    size_t l_ulCount = 0;
    while (const size_t l_ulLength =
               NextSample(i_pucData + l_ulUsed, i_ulSize - l_ulUsed, l_State)) {
        l_ulUsed += l_ulLength;
        o_plSamples[l_ulCount++] =
            ScaleSampleValue(l_State.usValue, l_State.ucRange != 0 ? i_lCoefHigh : i_lCoefLow);
    }
    return l_ulCount;
}

} // namespace tornval
