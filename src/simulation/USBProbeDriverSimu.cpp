#include "simulation/USBProbeDriverSimu.h"

#include <atomic>

namespace tornval {
namespace {

constexpr uint32_t k_ulBaseID = 3000;

std::atomic<uint32_t> s_ulCounter{0};

} // namespace

CUSBProbeDriverSimu::CUSBProbeDriverSimu()
{
    ScaleInBulk<CProbeDriver>(this);
    SetIdentity(s_ulCounter++, k_ulBaseID, "USB");
}

CUSBProbeDriverSimu::~CUSBProbeDriverSimu() = default;

} // namespace tornval
