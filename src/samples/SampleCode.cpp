#include "samples/SampleCode.h"

#include <atomic>

#include "samples/SampleForms.h"

namespace tornval {
namespace {

constexpr S_SAMPLE_FORM k_aForms[] = {
#ifdef __x86_64__
    {"AVX-512", RunsDecodeAvx512, DecodeStreamAvx512},
    {"AVX2", RunsDecodeAvx2, DecodeStreamAvx2},
#endif
#ifdef __aarch64__
    {"NEON", [] { return true; }, DecodeStreamNeon},
#endif
    {"portable", [] { return true; }, DecodeStreamPortable}};

// Null until the first use.
std::atomic<const S_SAMPLE_FORM*> s_pForm{nullptr};

const S_SAMPLE_FORM* ChooseForm()
{
    const S_SAMPLE_FORM* l_pForm = k_aForms;
    while (!l_pForm->pfnRuns()) {
        ++l_pForm;
    }
    s_pForm.store(l_pForm, std::memory_order_relaxed);
    return l_pForm;
}

} // namespace

std::span<const S_SAMPLE_FORM> SampleForms()
{
    return k_aForms;
}

void UseSampleForm(const S_SAMPLE_FORM* i_pForm)
{
    s_pForm.store(i_pForm, std::memory_order_relaxed);
}

size_t DecodeStream(const S_STREAM& i_Stream)
{
    const S_SAMPLE_FORM* l_pForm = s_pForm.load(std::memory_order_relaxed);
    return (l_pForm != nullptr ? l_pForm : ChooseForm())->pfnDecode(i_Stream);
}

size_t DecodeOneChannel(const uint8_t* i_pucData, size_t i_ulSize, int32_t i_lCoefLow,
                        int32_t i_lCoefHigh, int32_t* o_plSamples)
{
    S_SCALING l_Scaling;
    l_Scaling.aChannels[0] = {i_lCoefLow, i_lCoefHigh, 0.0, 0.0};
    return DecodeStream(
        {i_pucData, i_ulSize, 1, static_cast<uint32_t>(i_ulSize), &o_plSamples, l_Scaling});
}

} // namespace tornval
