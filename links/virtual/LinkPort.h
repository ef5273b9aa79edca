/**
 * @file LinkPort.h
 * @brief One open port of the virtual link: commands under way, answers that wait to be fetched.
 */
#ifndef LINKS_LINK_PORT_H
#define LINKS_LINK_PORT_H

#include "emulator/Firmware.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

namespace links {

/**
 * Hands frames to a firmware on a thread of its own and announces the answers.
 *
 * Several commands may be under way at once. Three rules keep an answer from reaching the wrong
 * command, since a fetch names no more than the CmdeID:
 *  - a fetch takes the oldest ready answer with its CmdeID that answers a send of the same thread;
 * if there is none, the oldest with its CmdeID;
 *  - an answer whose event is gone is dropped: whoever sent the command has given up;
 *  - a send drops the earlier exchange that has its event, and an answer to the same CmdeID that
 * the same thread has left unfetched.
 *
 * All operations may be called from any thread.
 */
class CLinkPort
{
public:
    /** Most exchanges at once. One more drops the oldest. */
    static constexpr size_t k_ulMaxExchanges = 64;
    /** How long a fetch waits for an answer that is under way. */
    static constexpr std::chrono::milliseconds k_FetchWait{500};

    /** Starts the thread. The firmware must live longer. */
    explicit CLinkPort(emulator::CFirmware& i_Firmware);
    /** As Stop(). */
    ~CLinkPort();
    CLinkPort(const CLinkPort&) = delete;
    CLinkPort& operator=(const CLinkPort&) = delete;

    /**
     * Takes a command. Its answer is made on the port's thread, which then signals the event.
     *
     * @param i_Frame   the frame proper.
     * @param i_ulEvent handle of its event; 0: nothing is signalled, and the answer can be fetched.
     * @return false if the port is stopped.
     */
    bool Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent);

    /**
     * Takes the answer frame to a command. Waits for it if it is under way, at most k_FetchWait.
     *
     * @return none if there is no such answer.
     */
    std::optional<std::vector<uint8_t>> Fetch(uint16_t i_usCmdeID);

    /** Drops everything and ends the thread, without waiting for answers that are late. */
    void Stop();

private:
    using S_CLOCK = std::chrono::steady_clock;

    enum class E_STATE : uint8_t
    {
        Sent,
        Handled,
        Ready
    };

    struct S_EXCHANGE
    {
        uint64_t ullNumber;
        std::thread::id Sender;
        uint32_t ulEvent;
        uint8_t ucCmdeID;
        E_STATE eState;
        std::vector<uint8_t> vFrame; // Sent: the command; later: its answer
        S_CLOCK::time_point Due;     // Handled: when the answer is ready
    };

    using S_ITERATOR = std::deque<S_EXCHANGE>::iterator;

    void Run();
    void HandleOne(std::unique_lock<std::mutex>& io_Lock, S_EXCHANGE& io_Exchange);
    void AnnounceDue();
    S_ITERATOR FindReady(uint16_t i_usCmdeID);

    emulator::CFirmware& m_Firmware;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<S_EXCHANGE> m_Exchanges; // in the order of the sends
    uint64_t m_ullNextNumber = 0;
    bool m_bStop = false;
    std::mutex m_JoinMutex;
    std::thread m_Thread;
};

} // namespace links

#endif // LINKS_LINK_PORT_H
