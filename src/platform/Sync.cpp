#include "Sync.h"

#include <chrono>
#include <condition_variable>
#include <thread>

#include "Objects.h"

namespace cecore {
namespace {

/** What mutex and event share: a state under a lock, and a wait that a close ends. */
class CWaitable : public CKernelObject
{
public:
    using CKernelObject::CKernelObject;

    uint32_t Wait(uint32_t i_ulMilliseconds) override
    {
        std::unique_lock l_Lock(m_Mutex);
        const auto l_fnDone = [this] { return m_bClosed || IsFree(); };
        if (i_ulMilliseconds == INFINITE) {
            m_Changed.wait(l_Lock, l_fnDone);
        } else if (!l_fnDone() &&
                   // A wait of nothing only looks: the system's timer would cost a thousand looks.
                   (i_ulMilliseconds == 0 ||
                    !m_Changed.wait_for(l_Lock, std::chrono::milliseconds(i_ulMilliseconds),
                                        l_fnDone))) {
            return WAIT_TIMEOUT;
        }
        if (m_bClosed) {
            ::SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        Take();
        return WAIT_OBJECT_0;
    }

    void OnClosed() override
    {
        const std::lock_guard l_Lock(m_Mutex);
        m_bClosed = true;
        m_Changed.notify_all();
    }

protected:
    [[nodiscard]] virtual bool IsFree() const = 0;
    virtual void Take() = 0;

    std::mutex m_Mutex;
    std::condition_variable m_Changed;

private:
    bool m_bClosed = false;
};

class CMutexObject final : public CWaitable
{
public:
    CMutexObject() : CWaitable(EObjectKind::Mutex) {}

    bool Release()
    {
        const std::lock_guard l_Lock(m_Mutex);
        if (m_ulHolds == 0 || m_Owner != std::this_thread::get_id()) {
            ::SetLastError(ERROR_NOT_OWNER);
            return false;
        }
        if (--m_ulHolds == 0) {
            m_Changed.notify_one();
        }
        return true;
    }

private:
    [[nodiscard]] bool IsFree() const override
    {
        return m_ulHolds == 0 || m_Owner == std::this_thread::get_id();
    }
    void Take() override
    {
        m_Owner = std::this_thread::get_id();
        ++m_ulHolds;
    }

    std::thread::id m_Owner;
    uint32_t m_ulHolds = 0;
};

class CEventObject final : public CWaitable
{
public:
    CEventObject(bool i_bManualReset, bool i_bInitialState)
        : CWaitable(EObjectKind::Event), m_bManualReset(i_bManualReset), m_bSet(i_bInitialState)
    {
    }

    void Set()
    {
        const std::lock_guard l_Lock(m_Mutex);
        m_bSet = true;
        if (m_bManualReset) {
            m_Changed.notify_all();
        } else {
            m_Changed.notify_one();
        }
    }

private:
    [[nodiscard]] bool IsFree() const override { return m_bSet; }
    void Take() override { m_bSet = m_bManualReset; }

    bool m_bManualReset;
    bool m_bSet;
};

} // namespace

Handle CreateMutexW(bool i_bInitialOwner)
{
    const Handle l_hMutex = CreateObject<CMutexObject>();
    if (l_hMutex != 0 && i_bInitialOwner) {
        WaitForSingleObject(l_hMutex, INFINITE);
    }
    return l_hMutex;
}

Handle CreateEventW(bool i_bManualReset, bool i_bInitialState)
{
    return CreateObject<CEventObject>(i_bManualReset, i_bInitialState);
}

uint32_t WaitForSingleObject(Handle i_hObject, uint32_t i_ulMilliseconds)
{
    CObjectTable* l_pTable = CObjectTable::Instance();
    if (l_pTable == nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const std::shared_ptr<CKernelObject> l_pObject = l_pTable->Find(i_hObject);
    return l_pObject == nullptr ? WAIT_FAILED : l_pObject->Wait(i_ulMilliseconds);
}

bool ReleaseMutex(Handle i_hMutex)
{
    const auto l_pMutex = FindObject<CMutexObject>(i_hMutex, EObjectKind::Mutex);
    return l_pMutex != nullptr && l_pMutex->Release();
}

} // namespace cecore

int SetEvent(uint32_t handle)
{
    const auto l_pEvent =
        cecore::FindObject<cecore::CEventObject>(handle, cecore::EObjectKind::Event);
    if (l_pEvent == nullptr) {
        return 0;
    }
    l_pEvent->Set();
    return 1;
}
