#include "links/common/ExchangeBook.h"

#include "cecore.h"

#include <algorithm>
#include <utility>

namespace links {

bool CExchangeBook::Add(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent)
{
    const wire::CLock l_Lock(m_Mutex);
    if (m_bClosed) {
        return false;
    }
    std::erase_if(m_Exchanges, [&](const S_EXCHANGE& i_Old) {
        return i_ulEvent != 0 && i_Old.ulEvent == i_ulEvent;
    });
    if (m_Exchanges.size() >= k_ulMaxExchanges) {
        m_Exchanges.pop_front();
    }
    m_Exchanges.push_back({m_ullNextNumber++,
                           std::this_thread::get_id(),
                           i_ulEvent,
                           i_ucCmdeID,
                           E_STATE::Sent,
                           {i_Frame.begin(), i_Frame.end()}});
    m_Changed.NotifyAll();
    return true;
}

CExchangeBook::S_ITERATOR CExchangeBook::FindSent()
{
    return std::find_if(m_Exchanges.begin(), m_Exchanges.end(),
                        [](const S_EXCHANGE& i_Each) { return i_Each.eState == E_STATE::Sent; });
}

CExchangeBook::S_ITERATOR CExchangeBook::FindReady(uint16_t i_usCmdeID)
{
    S_ITERATOR l_itOldest = m_Exchanges.end(), l_itOwn = m_Exchanges.end();
    bool l_bHasOwn = false;
    for (auto l_it = m_Exchanges.begin(); l_it != m_Exchanges.end(); ++l_it) {
        if (l_it->ucCmdeID != i_usCmdeID) {
            continue;
        }
        const bool l_bOwn = l_it->Sender == std::this_thread::get_id();
        l_bHasOwn |= l_bOwn;
        if (l_it->eState == E_STATE::Ready) {
            l_itOwn = l_bOwn ? l_it : l_itOwn;
            l_itOldest = l_itOldest == m_Exchanges.end() ? l_it : l_itOldest;
        }
    }
    return l_bHasOwn ? l_itOwn : l_itOldest;
}

CExchangeBook::S_ITERATOR CExchangeBook::FindNumber(uint64_t i_ullNumber)
{
    return std::find_if(m_Exchanges.begin(), m_Exchanges.end(),
                        [&](const S_EXCHANGE& i_Each) { return i_Each.ullNumber == i_ullNumber; });
}

std::optional<CExchangeBook::S_COMMAND> CExchangeBook::TakeSent()
{
    const S_ITERATOR l_itSent = FindSent();
    if (l_itSent == m_Exchanges.end()) {
        return std::nullopt;
    }
    l_itSent->eState = E_STATE::Taken;
    return S_COMMAND{l_itSent->ullNumber, std::move(l_itSent->vFrame)};
}

std::optional<CExchangeBook::S_COMMAND>
CExchangeBook::Take(const std::function<bool(std::span<const uint8_t>)>& i_fnMayGo)
{
    const wire::CLock l_Lock(m_Mutex);
    const S_ITERATOR l_itSent = FindSent();
    return l_itSent != m_Exchanges.end() && i_fnMayGo(l_itSent->vFrame) ? TakeSent() : std::nullopt;
}

std::optional<CExchangeBook::S_COMMAND>
CExchangeBook::WaitAndTake(std::optional<S_CLOCK::time_point> i_oUntil)
{
    const wire::CLock l_Lock(m_Mutex);
    bool l_bInTime = true;
    while (l_bInTime && !m_bClosed && FindSent() == m_Exchanges.end()) {
        if (i_oUntil) {
            l_bInTime = m_Changed.WaitUntil(m_Mutex, *i_oUntil);
        } else {
            m_Changed.Wait(m_Mutex);
        }
    }
    return TakeSent();
}

void CExchangeBook::Deliver(uint64_t i_ullNumber, std::vector<uint8_t> i_vAnswer)
{
    const wire::CLock l_Lock(m_Mutex);
    const S_ITERATOR l_itExchange = FindNumber(i_ullNumber);
    if (l_itExchange == m_Exchanges.end()) {
        return;
    }
    l_itExchange->eState = E_STATE::Ready;
    l_itExchange->vFrame = std::move(i_vAnswer);
    // Under the lock: no fetch may see an answer whose event turns out to be gone.
    if (l_itExchange->ulEvent != 0 && SetEvent(l_itExchange->ulEvent) == 0) {
        m_Exchanges.erase(l_itExchange);
    }
    m_Changed.NotifyAll();
}

void CExchangeBook::Drop(uint64_t i_ullNumber)
{
    const wire::CLock l_Lock(m_Mutex);
    std::erase_if(m_Exchanges,
                  [&](const S_EXCHANGE& i_Each) { return i_Each.ullNumber == i_ullNumber; });
    m_Changed.NotifyAll();
}

void CExchangeBook::DropUnanswered()
{
    const wire::CLock l_Lock(m_Mutex);
    std::erase_if(m_Exchanges,
                  [](const S_EXCHANGE& i_Each) { return i_Each.eState != E_STATE::Ready; });
    m_Changed.NotifyAll();
}

std::optional<std::vector<uint8_t>> CExchangeBook::Fetch(uint16_t i_usCmdeID)
{
    const auto l_IsWanted = [i_usCmdeID](const S_EXCHANGE& i_Each) {
        return i_Each.ucCmdeID == i_usCmdeID;
    };
    const wire::CLock l_Lock(m_Mutex);
    // An event may still be signalled from an exchange that a later send has dropped: its fetch
    // then comes before the answer.
    const S_CLOCK::time_point l_Until = S_CLOCK::now() + k_FetchWait;
    while (!m_bClosed && FindReady(i_usCmdeID) == m_Exchanges.end() &&
           std::any_of(m_Exchanges.begin(), m_Exchanges.end(), l_IsWanted) &&
           m_Changed.WaitUntil(m_Mutex, l_Until)) {
    }
    const S_ITERATOR l_itReady = FindReady(i_usCmdeID);
    if (m_bClosed || l_itReady == m_Exchanges.end()) {
        return std::nullopt;
    }
    std::optional<std::vector<uint8_t>> l_ovFrame(std::move(l_itReady->vFrame));
    m_Exchanges.erase(l_itReady);
    return l_ovFrame;
}

void CExchangeBook::Close()
{
    const wire::CLock l_Lock(m_Mutex);
    m_bClosed = true;
    m_Exchanges.clear();
    m_Changed.NotifyAll();
}

bool CExchangeBook::IsClosed() const
{
    const wire::CLock l_Lock(m_Mutex);
    return m_bClosed;
}

} // namespace links
