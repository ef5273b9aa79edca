#include "links/virtual/VirtualPort.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace links {

using emulator::E_FAULT;

CVirtualPort::CVirtualPort(emulator::CFirmware& i_Firmware, emulator::CEnvironment& i_Environment)
    : m_Firmware(i_Firmware), m_Environment(i_Environment)
{
    m_Thread = StartThread([this] { Run(); });
}

CVirtualPort::~CVirtualPort()
{
    Stop();
}

void CVirtualPort::ReadControl()
{
    const CNotCancelled l_Stays;
    std::string l_strError;
    if (!m_Environment.ReadControl(l_strError)) {
        Complain("virtual_link", l_strError);
    }
}

uint32_t CVirtualPort::Send(std::span<const uint8_t> i_Frame, uint8_t i_ucCmdeID,
                            uint32_t i_ulEvent, uint32_t& o_ulStatus)
{
    ReadControl();
    if (const auto l_oulError = m_Firmware.Faults().Take(E_FAULT::SendFails, i_ucCmdeID)) {
        return *l_oulError;
    }
    // A refused command does not reach the instrument.
    o_ulStatus = m_Firmware.Faults().Take(E_FAULT::SendStatus, i_ucCmdeID).value_or(0);
    if (o_ulStatus == 0 && !m_Book.Add(i_Frame, i_ucCmdeID, i_ulEvent)) {
        return CECORE_ERROR_INVALID_HANDLE;
    }
    return 0;
}

uint32_t CVirtualPort::Fetch(uint16_t i_usCmdeID, std::span<uint8_t> o_Block, uint32_t& o_ulCount)
{
    ReadControl();
    emulator::CFaults& l_Faults = m_Firmware.Faults();
    const auto l_ucCmdeID = static_cast<uint8_t>(i_usCmdeID);
    if (const auto l_oulError = l_Faults.Take(E_FAULT::FetchFails, l_ucCmdeID)) {
        return *l_oulError;
    }
    const auto l_ovAnswer = m_Book.Fetch(i_usCmdeID);
    if (!l_ovAnswer) {
        return CECORE_ERROR_NOT_READY;
    }
    o_ulCount =
        FillBlock(l_Faults.Take(E_FAULT::LinkStatus, l_ucCmdeID).value_or(0), *l_ovAnswer, o_Block);
    o_ulCount = l_Faults.Take(E_FAULT::Count, l_ucCmdeID).value_or(o_ulCount);
    return 0;
}

uint32_t CVirtualPort::AllowClose()
{
    ReadControl();
    return m_Firmware.Faults().Take(E_FAULT::CloseFails).value_or(0);
}

void CVirtualPort::Run()
{
    while (!m_Book.IsClosed()) {
        try {
            Step();
        } catch (const std::bad_alloc&) {
            // The host goes on without these answers.
            m_Book.DropUnanswered();
        }
    }
}

/** Takes a command, or waits until an answer is due. */
void CVirtualPort::Step()
{
    std::optional<CExchangeBook::S_CLOCK::time_point> l_oNext;
    for (const S_LATE& l_Late : m_vLate) {
        l_oNext = std::min(l_oNext.value_or(l_Late.Due), l_Late.Due);
    }
    if (const auto l_oCommand = m_Book.WaitAndTake(l_oNext)) {
        emulator::S_REPLY l_Reply = m_Firmware.Handle(l_oCommand->vFrame);
        if (l_Reply.bAnswered) {
            m_vLate.push_back(
                {CExchangeBook::S_CLOCK::now() + std::chrono::milliseconds(l_Reply.ulDelayMs),
                 l_oCommand->ullNumber, std::move(l_Reply.vFrame)});
        } else {
            m_Book.Drop(l_oCommand->ullNumber);
        }
    }
    DeliverDue();
}

void CVirtualPort::DeliverDue()
{
    const auto l_Now = CExchangeBook::S_CLOCK::now();
    std::erase_if(m_vLate, [&](S_LATE& io_Late) {
        if (io_Late.Due > l_Now) {
            return false;
        }
        m_Book.Deliver(io_Late.ullNumber, std::move(io_Late.vAnswer));
        return true;
    });
}

void CVirtualPort::Stop()
{
    m_Book.Close();
    const std::lock_guard l_Lock(m_JoinMutex);
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
}

} // namespace links
