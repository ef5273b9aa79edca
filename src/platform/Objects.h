/**
 * @file Objects.h
 * @brief The table of kernel objects behind the handles. Inner header of the core services.
 */
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "Api.h"

namespace cecore {

/** Kinds of objects; the value stands in the handle. 0 and 15 stay free, so no handle is 0 or -1.
 */
enum class EObjectKind : uint8_t
{
    Mutex = 1,
    Event,
    Process,
    Thread,
    File,
    Device,
    RegistryKey
};

/** Base of what a handle stands for. */
class CKernelObject
{
public:
    explicit CKernelObject(EObjectKind i_Kind) : m_Kind(i_Kind) {}
    CKernelObject(const CKernelObject&) = delete;
    CKernelObject& operator=(const CKernelObject&) = delete;
    virtual ~CKernelObject() = default;

    [[nodiscard]] EObjectKind GetKind() const { return m_Kind; }
    /** Waits for the object; WAIT_FAILED where there is nothing to wait for. */
    virtual uint32_t Wait(uint32_t i_ulMilliseconds);
    /** The handle was closed: whoever waits is let go. */
    virtual void OnClosed() {}

private:
    EObjectKind m_Kind;
};

/** All open handles of the process. */
class CObjectTable
{
public:
    /** Null once the process has ended so far that there are no objects any more. */
    static CObjectTable* Instance();

    CObjectTable() = default;
    CObjectTable(const CObjectTable&) = delete;
    CObjectTable& operator=(const CObjectTable&) = delete;
    ~CObjectTable();

    /** @return the new handle; 0 with error 4 when the table is full. */
    Handle Insert(std::shared_ptr<CKernelObject> i_pObject);
    /** @return null, with error 6, if the handle is not open. */
    std::shared_ptr<CKernelObject> Find(Handle i_hObject);
    bool Remove(Handle i_hObject);
    uint32_t GetCount();

    /** As Find, for one class; null, with error 6, for another kind. */
    template <typename T>
    std::shared_ptr<T> FindAs(Handle i_hObject, EObjectKind i_Kind)
    {
        std::shared_ptr<CKernelObject> l_pObject = Find(i_hObject);
        if (l_pObject != nullptr && l_pObject->GetKind() != i_Kind) {
            SetLastError(ERROR_INVALID_HANDLE);
            l_pObject.reset();
        }
        return std::static_pointer_cast<T>(std::move(l_pObject));
    }

private:
    struct S_SLOT
    {
        std::shared_ptr<CKernelObject> pObject;
        uint32_t ulGeneration = 0;
        uint32_t ulNextFree = 0; /**< the slot that was closed after this one */
    };

    /** The slot of an open handle, or null. The mutex is held. */
    S_SLOT* GetSlot(Handle i_hObject);

    std::mutex m_Mutex;
    std::vector<S_SLOT> m_vSlots;
    // Closed slots are chained in the order of their closing: a close allocates nothing, so it
    // cannot fail in a destructor.
    uint32_t m_ulFirstFree = 0;
    uint32_t m_ulLastFree = 0;
    uint32_t m_ulNbFree = 0;
    uint32_t m_ulCount = 0;
};

/** As the table's Insert, also when there is no table any more. */
Handle InsertObject(std::shared_ptr<CKernelObject> i_pObject);

/** As the table's FindAs, also when there is no table any more. */
template <typename T>
std::shared_ptr<T> FindObject(Handle i_hObject, EObjectKind i_Kind)
{
    CObjectTable* l_pTable = CObjectTable::Instance();
    if (l_pTable == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return l_pTable->FindAs<T>(i_hObject, i_Kind);
}

/** Makes an object and its handle. @return 0 with the last error set on failure. */
template <typename T, typename... Args>
Handle CreateObject(Args&&... i_Args)
{
    try {
        return InsertObject(std::make_shared<T>(std::forward<Args>(i_Args)...));
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}

} // namespace cecore
