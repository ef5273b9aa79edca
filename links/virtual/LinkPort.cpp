#include "links/virtual/LinkPort.h"

#include "cecore.h"

#include <algorithm>
#include <utility>

namespace links {

CLinkPort::CLinkPort(emulator::CFirmware& i_Firmware) : m_Firmware(i_Firmware)
{
    m_Thread = std::thread([this] { Run(); });
}

CLinkPort::~CLinkPort()
{
    Stop();
}

bool CLinkPort::Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent)
{
    const std::lock_guard l_Lock(m_Mutex);
    if (m_bStop) {
        return false;
    }
    const std::thread::id l_Sender = std::this_thread::get_id();
    std::erase_if(m_Exchanges, [&](const S_EXCHANGE& i_Old) {
        const bool l_bSameEvent = i_ulEvent != 0 && i_Old.ulEvent == i_ulEvent;
        const bool l_bLeft = i_Old.eState == E_STATE::Ready && i_Old.Sender == l_Sender &&
                             i_Old.ucCmdeID == i_ucCmdeID;
        return l_bSameEvent || l_bLeft;
    });
    if (m_Exchanges.size() >= k_ulMaxExchanges) {
        m_Exchanges.pop_front();
    }
    m_Exchanges.push_back({m_ullNextNumber++,
                           l_Sender,
                           i_ulEvent,
                           i_ucCmdeID,
                           E_STATE::Sent,
                           {i_Frame.begin(), i_Frame.end()},
                           {}});
    m_Changed.notify_all();
    return true;
}

CLinkPort::S_ITERATOR CLinkPort::FindReady(uint16_t i_usCmdeID)
{
    const auto l_Find = [&](bool i_bAnySender) {
        return std::find_if(m_Exchanges.begin(), m_Exchanges.end(), [&](const S_EXCHANGE& i_Each) {
            return i_Each.eState == E_STATE::Ready && i_Each.ucCmdeID == i_usCmdeID &&
                   (i_bAnySender || i_Each.Sender == std::this_thread::get_id());
        });
    };
    const S_ITERATOR l_itOwn = l_Find(false);
    return l_itOwn != m_Exchanges.end() ? l_itOwn : l_Find(true);
}

std::optional<std::vector<uint8_t>> CLinkPort::Fetch(uint16_t i_usCmdeID)
{
    const auto l_IsWanted = [i_usCmdeID](const S_EXCHANGE& i_Each) {
        return i_Each.ucCmdeID == i_usCmdeID;
    };
    std::unique_lock l_Lock(m_Mutex);
    // An event may still be signalled from an exchange that a later send has dropped: its fetch
    // then comes before the answer.
    m_Changed.wait_until(l_Lock, S_CLOCK::now() + k_FetchWait, [&] {
        return m_bStop || FindReady(i_usCmdeID) != m_Exchanges.end() ||
               std::none_of(m_Exchanges.begin(), m_Exchanges.end(), l_IsWanted);
    });
    const S_ITERATOR l_itReady = FindReady(i_usCmdeID);
    if (m_bStop || l_itReady == m_Exchanges.end()) {
        return std::nullopt;
    }
    std::optional<std::vector<uint8_t>> l_ovFrame(std::move(l_itReady->vFrame));
    m_Exchanges.erase(l_itReady);
    return l_ovFrame;
}

void CLinkPort::Run()
{
    std::unique_lock l_Lock(m_Mutex);
    while (!m_bStop) {
        AnnounceDue();
        const S_ITERATOR l_itSent =
            std::find_if(m_Exchanges.begin(), m_Exchanges.end(),
                         [](const S_EXCHANGE& i_Each) { return i_Each.eState == E_STATE::Sent; });
        if (l_itSent != m_Exchanges.end()) {
            HandleOne(l_Lock, *l_itSent);
            continue;
        }
        std::optional<S_CLOCK::time_point> l_oNext;
        for (const S_EXCHANGE& l_Each : m_Exchanges) {
            if (l_Each.eState == E_STATE::Handled) {
                l_oNext = std::min(l_oNext.value_or(l_Each.Due), l_Each.Due);
            }
        }
        if (l_oNext) {
            m_Changed.wait_until(l_Lock, *l_oNext);
        } else {
            m_Changed.wait(l_Lock);
        }
    }
}

/** Lets the firmware at one command, without the lock. */
void CLinkPort::HandleOne(std::unique_lock<std::mutex>& io_Lock, S_EXCHANGE& io_Exchange)
{
    const uint64_t l_ullNumber = io_Exchange.ullNumber;
    const std::vector<uint8_t> l_vCommand = std::move(io_Exchange.vFrame);
    io_Lock.unlock();
    emulator::S_REPLY l_Reply = m_Firmware.Handle(l_vCommand);
    io_Lock.lock();
    // A send may have dropped the exchange meanwhile, or moved it.
    const auto l_itExchange =
        std::find_if(m_Exchanges.begin(), m_Exchanges.end(),
                     [&](const S_EXCHANGE& i_Each) { return i_Each.ullNumber == l_ullNumber; });
    if (l_itExchange == m_Exchanges.end()) {
        return;
    }
    if (!l_Reply.bAnswered) {
        m_Exchanges.erase(l_itExchange);
        m_Changed.notify_all();
        return;
    }
    l_itExchange->eState = E_STATE::Handled;
    l_itExchange->vFrame = std::move(l_Reply.vFrame);
    l_itExchange->Due = S_CLOCK::now() + std::chrono::milliseconds(l_Reply.ulDelayMs);
}

/** Announces the answers whose time has come. */
void CLinkPort::AnnounceDue()
{
    const S_CLOCK::time_point l_Now = S_CLOCK::now();
    bool l_bAny = false;
    std::erase_if(m_Exchanges, [&](S_EXCHANGE& io_Each) {
        if (io_Each.eState != E_STATE::Handled || io_Each.Due > l_Now) {
            return false;
        }
        io_Each.eState = E_STATE::Ready;
        l_bAny = true;
        // Under the lock: no fetch may see an answer whose event turns out to be gone.
        return io_Each.ulEvent != 0 && SetEvent(io_Each.ulEvent) == 0;
    });
    if (l_bAny) {
        m_Changed.notify_all();
    }
}

void CLinkPort::Stop()
{
    {
        const std::lock_guard l_Lock(m_Mutex);
        m_bStop = true;
        m_Exchanges.clear();
    }
    m_Changed.notify_all();
    const std::lock_guard l_Lock(m_JoinMutex);
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
}

} // namespace links
