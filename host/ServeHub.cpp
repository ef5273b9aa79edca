#include "ServeHub.h"

namespace host {

void CServeHub::Publish(std::string i_strMessage)
{
    auto l_pMessage = std::make_shared<const std::string>(std::move(i_strMessage));
    const std::lock_guard l_Lock(m_Mutex);
    m_Messages.push_back(std::move(l_pMessage));
    if (m_Messages.size() > k_uKept) {
        m_Messages.pop_front();
        ++m_ullFirst;
    }
    m_Changed.notify_all();
}

void CServeHub::Close()
{
    const std::lock_guard l_Lock(m_Mutex);
    m_bClosed = true;
    m_Changed.notify_all();
}

std::optional<uint64_t> CServeHub::Join()
{
    const std::lock_guard l_Lock(m_Mutex);
    if (m_bClosed || m_uListeners == k_uMaxListeners) {
        return std::nullopt;
    }
    ++m_uListeners;
    return m_ullFirst + m_Messages.size();
}

void CServeHub::Leave()
{
    const std::lock_guard l_Lock(m_Mutex);
    --m_uListeners;
}

CServeHub::E_NEXT CServeHub::Next(uint64_t& io_ullPlace,
                                  std::shared_ptr<const std::string>& o_pMessage,
                                  std::chrono::milliseconds i_Wait)
{
    std::unique_lock l_Lock(m_Mutex);
    m_Changed.wait_for(l_Lock, i_Wait,
                       [&] { return m_bClosed || io_ullPlace < m_ullFirst + m_Messages.size(); });
    if (m_bClosed) {
        return E_NEXT::Closed;
    }
    if (io_ullPlace < m_ullFirst) {
        return E_NEXT::Behind;
    }
    if (io_ullPlace == m_ullFirst + m_Messages.size()) {
        return E_NEXT::Nothing;
    }
    o_pMessage = m_Messages[io_ullPlace++ - m_ullFirst];
    return E_NEXT::Message;
}

} // namespace host
