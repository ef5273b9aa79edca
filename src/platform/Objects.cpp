#include "Objects.h"

#include <atomic>

#include "Sync.h"

namespace {

// A handle from its low end: 14 bits of slot, 14 bits of generation, 4 bits of kind.
constexpr uint32_t k_ulSlotBits = 14;
constexpr uint32_t k_ulGenerationBits = 14;
constexpr uint32_t k_ulMaxSlots = 1U << k_ulSlotBits;
constexpr uint32_t k_ulGenerationMask = (1U << k_ulGenerationBits) - 1;
// Closed slots rest in a queue this long before one is used again, so that a generation comes round
// only after a very large number of handles.
constexpr uint32_t k_ulMinResting = 256;

thread_local uint32_t t_ulLastError = 0;

/** Handles outlive the table at the end of a process: they are refused then like stale ones. */
constinit std::atomic<bool> s_bTableGone{false};

uint32_t SlotOf(cecore::Handle i_hObject)
{
    return i_hObject & (k_ulMaxSlots - 1);
}

uint32_t GenerationOf(cecore::Handle i_hObject)
{
    return (i_hObject >> k_ulSlotBits) & k_ulGenerationMask;
}

uint32_t KindOf(cecore::Handle i_hObject)
{
    return i_hObject >> (k_ulSlotBits + k_ulGenerationBits);
}

} // namespace

void SetLastError(uint32_t code)
{
    t_ulLastError = code;
}

namespace cecore {

uint32_t GetLastError()
{
    return t_ulLastError;
}

uint32_t CKernelObject::Wait(uint32_t)
{
    ::SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

CObjectTable* CObjectTable::Instance()
{
    static CObjectTable s_Table;
    return s_bTableGone ? nullptr : &s_Table;
}

CObjectTable::~CObjectTable()
{
    s_bTableGone = true;
}

Handle InsertObject(std::shared_ptr<CKernelObject> i_pObject)
{
    CObjectTable* l_pTable = CObjectTable::Instance();
    if (l_pTable == nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return l_pTable->Insert(std::move(i_pObject));
}

Handle CObjectTable::Insert(std::shared_ptr<CKernelObject> i_pObject)
{
    const std::lock_guard l_Lock(m_Mutex);
    uint32_t l_ulSlot = 0;
    if (m_ulNbFree > k_ulMinResting || (m_vSlots.size() >= k_ulMaxSlots && m_ulNbFree > 0)) {
        l_ulSlot = m_ulFirstFree;
        m_ulFirstFree = m_vSlots[l_ulSlot].ulNextFree;
        --m_ulNbFree;
    } else if (m_vSlots.size() < k_ulMaxSlots) {
        l_ulSlot = static_cast<uint32_t>(m_vSlots.size());
        m_vSlots.emplace_back();
    } else {
        ::SetLastError(ERROR_TOO_MANY_OPEN_FILES);
        return 0;
    }
    S_SLOT& l_Slot = m_vSlots[l_ulSlot];
    const auto l_ulKind = static_cast<uint32_t>(i_pObject->GetKind());
    l_Slot.pObject = std::move(i_pObject);
    ++m_ulCount;
    return (l_ulKind << (k_ulSlotBits + k_ulGenerationBits)) |
           (l_Slot.ulGeneration << k_ulSlotBits) | l_ulSlot;
}

CObjectTable::S_SLOT* CObjectTable::GetSlot(Handle i_hObject)
{
    const uint32_t l_ulSlot = SlotOf(i_hObject);
    if (l_ulSlot >= m_vSlots.size()) {
        return nullptr;
    }
    S_SLOT& l_Slot = m_vSlots[l_ulSlot];
    const bool l_bSame = l_Slot.pObject != nullptr &&
                         l_Slot.ulGeneration == GenerationOf(i_hObject) &&
                         static_cast<uint32_t>(l_Slot.pObject->GetKind()) == KindOf(i_hObject);
    return l_bSame ? &l_Slot : nullptr;
}

std::shared_ptr<CKernelObject> CObjectTable::Find(Handle i_hObject)
{
    const std::lock_guard l_Lock(m_Mutex);
    const S_SLOT* l_pSlot = GetSlot(i_hObject);
    if (l_pSlot == nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return l_pSlot->pObject;
}

bool CObjectTable::Remove(Handle i_hObject)
{
    std::shared_ptr<CKernelObject> l_pObject;
    {
        const std::lock_guard l_Lock(m_Mutex);
        S_SLOT* l_pSlot = GetSlot(i_hObject);
        if (l_pSlot != nullptr) {
            l_pObject = std::move(l_pSlot->pObject);
            l_pSlot->pObject.reset();
            l_pSlot->ulGeneration = (l_pSlot->ulGeneration + 1) & k_ulGenerationMask;
            const uint32_t l_ulSlot = SlotOf(i_hObject);
            (m_ulNbFree == 0 ? m_ulFirstFree : m_vSlots[m_ulLastFree].ulNextFree) = l_ulSlot;
            m_ulLastFree = l_ulSlot;
            ++m_ulNbFree;
            --m_ulCount;
        }
    }
    if (l_pObject == nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    // Outside the lock: the object may have something to tear down.
    l_pObject->OnClosed();
    return true;
}

uint32_t CObjectTable::GetCount()
{
    const std::lock_guard l_Lock(m_Mutex);
    return m_ulCount;
}

bool CloseHandle(Handle i_hObject)
{
    CObjectTable* l_pTable = CObjectTable::Instance();
    if (l_pTable == nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    return l_pTable->Remove(i_hObject);
}

uint32_t GetOpenHandleCount()
{
    CObjectTable* l_pTable = CObjectTable::Instance();
    return l_pTable == nullptr ? 0 : l_pTable->GetCount();
}

} // namespace cecore
