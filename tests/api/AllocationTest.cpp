// The host-level road of a command takes no memory from the heap.

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "board/IntMeasDriverSerial.h"

namespace {

std::atomic<bool> s_bCount{false};
std::atomic<unsigned> s_ulAllocations{0};

} // namespace

namespace {

void* CountedAllocation(size_t i_ulSize) noexcept
{
    if (s_bCount) {
        ++s_ulAllocations;
    }
    return std::malloc(i_ulSize);
}

} // namespace

// All forms, so that each block goes back by the way it came.
[[gnu::noinline]] void* operator new(size_t i_ulSize)
{
    if (void* l_pMemory = CountedAllocation(i_ulSize)) {
        return l_pMemory;
    }
    throw std::bad_alloc();
}
void* operator new[](size_t i_ulSize)
{
    return operator new(i_ulSize);
}
[[gnu::noinline]] void* operator new(size_t i_ulSize, const std::nothrow_t&) noexcept
{
    return CountedAllocation(i_ulSize);
}
[[gnu::noinline]] void* operator new[](size_t i_ulSize, const std::nothrow_t&) noexcept
{
    return CountedAllocation(i_ulSize);
}
[[gnu::noinline]] void operator delete(void* i_pMemory) noexcept
{
    std::free(i_pMemory);
}
[[gnu::noinline]] void operator delete[](void* i_pMemory) noexcept
{
    std::free(i_pMemory);
}
[[gnu::noinline]] void operator delete(void* i_pMemory, size_t) noexcept
{
    std::free(i_pMemory);
}
[[gnu::noinline]] void operator delete[](void* i_pMemory, size_t) noexcept
{
    std::free(i_pMemory);
}

namespace {

/** A board whose link is part of the test, so that nothing but the driver is counted. */
class CQuietBoard : public tornval::CIntMeasDriverSerial
{
protected:
    bool DeviceIo(uint32_t i_ulCode, const void* i_pIn, uint32_t, void* o_pOut, uint32_t,
                  uint32_t* o_pulReturned) override
    {
        auto* l_pucOut = static_cast<uint8_t*>(o_pOut);
        if (i_ulCode == IOCTL_RS_SEND_COMMAND) {
            tornval::WriteLe32(l_pucOut, 0);
            return ::SetEvent(tornval::ReadLe32(static_cast<const uint8_t*>(i_pIn) +
                                                RS_BLOCK_EVENT_OFFSET)) != 0;
        }
        std::memset(l_pucOut, 0, 64);
        l_pucOut[16] = 1;
        *o_pulReturned = 30;
        return true;
    }
};

} // namespace

TEST(Allocation, NoneOnTheRoadOfAHostLevelCommand)
{
    const CTestHome l_Home("[IM]\n");
    CQuietBoard l_Board;
    tornval::CMeasDriver& l_Driver = l_Board;
    l_Board.ReadConfiguration();
    S_SEND_STRUCT l_Cmde = tornval::MakeCommand(212, 0, 8);
    S_RECEIVE_STRUCT l_Receive{};
    char l_cRaw = 0;
    int32_t l_lSize = 0, l_lValue = 0;
    const auto l_fnCount = [&](auto&& i_fnCall) {
        s_ulAllocations = 0;
        s_bCount = true;
        i_fnCall();
        s_bCount = false;
        return s_ulAllocations.load();
    };
    const auto l_fnExchange = [&] {
        ASSERT_EQ(l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0).ulStatus, 0U);
        ASSERT_EQ(l_Driver.GetResult(1, &l_cRaw, &l_lSize, &l_lValue, 0, 1).ulStatus, 0U);
    };
    l_fnExchange();
    EXPECT_EQ(l_fnCount(l_fnExchange), 0U);
    // The count is real: a blocking command has blocks of its own.
    EXPECT_GT(l_fnCount([&] { l_Driver.GetInstantMeasure(&l_lValue, 0, 1, 0); }), 0U);
}
