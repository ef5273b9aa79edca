/**
 * @file BlockPool.h
 * @brief The blocks of blocking exchanges, kept from one to the next.
 */
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <new>

#include "board/Frame.h"
#include "platform/Memory.h"

namespace tornval {

/** Frame and answer block of one blocking exchange. */
class CBlocks
{
public:
    [[nodiscard]] S_DATA& Frame() const { return m_pBlocks.Get()[0]; }
    [[nodiscard]] S_DATA& Answer() const { return m_pBlocks.Get()[1]; }
    [[nodiscard]] bool IsThere() const { return m_pBlocks.Get() != nullptr; }

private:
    cecore::CZeroed<S_DATA> m_pBlocks{2};
};

/**
 * Keeps the blocks of a few exchanges that are over. Several exchanges may be under way at once, and
 * no two of them have the same blocks. It takes no lock: a wait that is over is not to wait again.
 */
class CBlockPool
{
public:
    CBlockPool() = default;
    CBlockPool(const CBlockPool&) = delete;
    CBlockPool& operator=(const CBlockPool&) = delete;
    ~CBlockPool();

    /** Blocks for one exchange, the frame zeroed; null if there is no memory. */
    std::unique_ptr<CBlocks> Take();
    /**
     * Zeroes what the exchange left in the frame. The answer needs nothing: each fetch zeroes what is
     * decoded before it asks the link, whatever the link wrote the last time and wherever.
     */
    void GiveBack(std::unique_ptr<CBlocks> i_pBlocks);

private:
    static constexpr size_t k_ulKept = 4;

    std::array<std::atomic<CBlocks*>, k_ulKept> m_apIdle{};
};

} // namespace tornval
