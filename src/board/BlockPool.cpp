#include "board/BlockPool.h"

#include <algorithm>
#include <cstring>

#include "wire/Bytes.h"

namespace tornval {

CBlockPool::~CBlockPool()
{
    for (std::atomic<CBlocks*>& l_pIdle : m_apIdle) {
        delete l_pIdle.load();
    }
}

std::unique_ptr<CBlocks> CBlockPool::Take()
{
    for (std::atomic<CBlocks*>& l_pIdle : m_apIdle) {
        std::unique_ptr<CBlocks> l_pBlocks(l_pIdle.exchange(nullptr, std::memory_order_acquire));
        if (l_pBlocks != nullptr) {
            return l_pBlocks;
        }
    }
    std::unique_ptr<CBlocks> l_pNew(new (std::nothrow) CBlocks());
    return l_pNew != nullptr && l_pNew->IsThere() ? std::move(l_pNew) : nullptr;
}

void CBlockPool::GiveBack(std::unique_ptr<CBlocks> i_pBlocks)
{
    // The frame's own size field says how far it was filled.
    uint8_t* l_pucFrame = i_pBlocks->Frame().aucBytes;
    const uint32_t l_ulFilled =
        wire::ReadLe16(l_pucFrame + RS_FRAME_SIZE_OFFSET) + k_ulFrameHeadSize;
    std::memset(l_pucFrame, 0, std::min<uint32_t>(l_ulFilled, RS_BLOCK_EVENT_OFFSET));
    wire::WriteLe32(l_pucFrame + RS_BLOCK_EVENT_OFFSET, 0);
    for (std::atomic<CBlocks*>& l_pIdle : m_apIdle) {
        CBlocks* l_pNone = nullptr;
        if (l_pIdle.compare_exchange_strong(l_pNone, i_pBlocks.get(), std::memory_order_release)) {
            static_cast<void>(i_pBlocks.release());
            return;
        }
    }
}

} // namespace tornval
