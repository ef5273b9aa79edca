/**
 * @file VirtualPort.h
 * @brief One open port of the virtual link.
 */
#pragma once

#include "emulator/Environment.h"
#include "emulator/Firmware.h"
#include "links/common/ExchangeBook.h"
#include "links/common/RsLink.h"

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace links {

/**
 * Hands frames to a firmware on a thread of its own and announces the answers; lets the faults of
 * an in-process link at the calls.
 */
class CVirtualPort final : public CRsPort
{
public:
    /** Starts the thread. Firmware and environment must live longer. */
    CVirtualPort(emulator::CFirmware& i_Firmware, emulator::CEnvironment& i_Environment);
    /** As Stop(). */
    ~CVirtualPort() override;

    uint32_t Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID, uint32_t i_ulEvent,
                  uint32_t& o_ulStatus) override;
    uint32_t Fetch(uint16_t i_usCmdeID, std::span<uint8_t> o_Block, uint32_t& o_ulCount) override;
    uint32_t AllowClose() override;
    /** Does not wait for answers that are late. */
    void Stop() override;

private:
    /** An answer whose time has not come. */
    struct S_LATE
    {
        CExchangeBook::S_CLOCK::time_point Due;
        uint64_t ullNumber;
        std::vector<uint8_t> vAnswer;
    };

    void Run();
    void Step();
    void DeliverDue();
    void ReadControl();

    emulator::CFirmware& m_Firmware;
    emulator::CEnvironment& m_Environment;
    CExchangeBook m_Book;
    std::vector<S_LATE> m_vLate; // of the thread
    std::mutex m_JoinMutex;
    std::thread m_Thread;
};

} // namespace links
