/**
 * @file ServeHub.h
 * @brief Messages for any number of listeners, in bounded memory.
 */
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace host {

/**
 * Keeps the last messages. A listener asks for the next one at its own pace; one that fell behind
 * what is kept is told so, and is to be dropped. Any thread.
 */
class CServeHub
{
public:
    /** Messages that are kept. */
    static constexpr size_t k_uKept = 128;
    /** Listeners at once. */
    static constexpr size_t k_uMaxListeners = 24;

    void Publish(std::string i_strMessage);

    /** Ends all waiting, for good. */
    void Close();

    /** Counts a listener in. @return its place, or nothing if there are too many. */
    std::optional<uint64_t> Join();
    void Leave();

    enum class E_NEXT
    {
        Message,
        Nothing, /**< none came in time */
        Behind,
        Closed
    };

    /** Waits for the message at a place, and moves the place on. */
    E_NEXT Next(uint64_t& io_ullPlace, std::shared_ptr<const std::string>& o_pMessage,
                std::chrono::milliseconds i_Wait);

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<std::shared_ptr<const std::string>> m_Messages;
    uint64_t m_ullFirst = 0; // place of the first message that is kept
    size_t m_uListeners = 0;
    bool m_bClosed = false;
};

} // namespace host
