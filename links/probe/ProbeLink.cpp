#include "links/probe/ProbeLink.h"

#include "TornvalLinks.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <span>
#include <string>
#include <thread>
#include <utility>

namespace links {

using emulator::E_FAULT;

namespace {

/** Bytes of a send besides the payload: the record, and one byte that carries nothing. */
constexpr size_t k_ulSendExtra = emulator::CProbeFirmware::k_ulRecordSize + 1;
constexpr uint32_t k_ulAckSize = 8;
constexpr size_t k_ulCmdeOffset = 1;
constexpr size_t k_ulSizeOffset = 8;

} // namespace

CProbeLink::CProbeLink(const S_TRAITS& i_Traits)
    : m_Traits(i_Traits), m_Environment(m_Probe, i_Traits.pszName)
{
}

uint32_t CProbeLink::Open()
{
    const CNotCancelled l_Stays;
    const wire::CLock l_Lock(m_Mutex);
    std::string l_strError;
    if (!m_Environment.ReadVariables(l_strError) || !m_Environment.ReadControl(l_strError)) {
        return Fail(Refuse(m_Traits.pszLibrary, CECORE_ERROR_INVALID_DATA, l_strError));
    }
    if (const auto l_oulError = m_Probe.Faults().Take(E_FAULT::NoOpen)) {
        return Fail(*l_oulError);
    }
    m_Probe.Restart();
    m_oWaiting.reset();
    m_bOpen = true;
    return 1;
}

uint32_t CProbeLink::Close()
{
    const CNotCancelled l_Stays;
    const wire::CLock l_Lock(m_Mutex);
    ReadControl();
    if (!m_bOpen) {
        return Fail(CECORE_ERROR_NOT_READY);
    }
    if (const auto l_oulError = m_Probe.Faults().Take(E_FAULT::CloseFails)) {
        return Fail(*l_oulError);
    }
    m_bOpen = false;
    m_oWaiting.reset();
    return 1;
}

void CProbeLink::ReadControl()
{
    const CNotCancelled l_Stays;
    std::string l_strError;
    if (!m_Environment.ReadControl(l_strError)) {
        Complain(m_Traits.pszLibrary, l_strError);
    }
}

uint32_t CProbeLink::Control(const S_CONTROL& i_Control)
{
    if (i_Control.ulConstant != PROBE_LINK_CONSTANT || i_Control.pIn == nullptr ||
        i_Control.pOut == nullptr || i_Control.pulCount == nullptr) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    *i_Control.pulCount = 0;
    {
        const wire::CLock l_Lock(m_Mutex);
        ReadControl();
        if (!m_bOpen) {
            return Fail(CECORE_ERROR_NOT_READY);
        }
    }
    if (i_Control.ulCode == m_Traits.ulSendCode) {
        return Send(i_Control);
    }
    return i_Control.ulCode == m_Traits.ulFetchCode ? Fetch(i_Control)
                                                    : Fail(CECORE_ERROR_INVALID_PARAMETER);
}

uint32_t CProbeLink::Send(const S_CONTROL& i_Control)
{
    const CNotCancelled l_Stays;
    const std::span l_Command(static_cast<const uint8_t*>(i_Control.pIn), i_Control.ulInSize);
    if (l_Command.size() < k_ulSendExtra || i_Control.ulOutSize < k_ulAckSize ||
        wire::ReadLe32(&l_Command[k_ulSizeOffset]) != l_Command.size() - k_ulSendExtra) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    const uint8_t l_ucCmdeID = l_Command[k_ulCmdeOffset];
    if (const auto l_oulError = m_Probe.Faults().Take(E_FAULT::SendFails, l_ucCmdeID)) {
        return Fail(*l_oulError);
    }
    const wire::CLock l_Lock(m_Mutex);
    m_oWaiting.reset();
    emulator::S_PROBE_REPLY l_Reply = m_Probe.Handle(l_Command);
    if (!l_Reply.bAnswered) {
        return Fail(CECORE_ERROR_TIMEOUT);
    }
    auto* l_pucAck = static_cast<uint8_t*>(i_Control.pOut);
    wire::WriteLe32(l_pucAck, l_Reply.ulAnswer);
    wire::WriteLe32(l_pucAck + 4, l_Reply.ulNbReturnByte);
    *i_Control.pulCount = m_Probe.Faults().Take(E_FAULT::Ack, l_ucCmdeID).value_or(k_ulAckSize);
    m_oWaiting = S_WAITING{l_ucCmdeID, std::move(l_Reply.vReply),
                           S_CLOCK::now() + std::chrono::milliseconds(l_Reply.ulDelayMs)};
    return 1;
}

uint32_t CProbeLink::Fetch(const S_CONTROL& i_Control)
{
    if (i_Control.ulInSize != 4) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    const uint32_t l_ulAsked = wire::ReadLe32(static_cast<const uint8_t*>(i_Control.pIn));
    if (l_ulAsked > i_Control.ulOutSize) {
        return Fail(CECORE_ERROR_INSUFFICIENT_BUFFER);
    }
    std::optional<S_WAITING> l_oWaiting;
    {
        const wire::CLock l_Lock(m_Mutex);
        l_oWaiting = m_oWaiting;
    }
    if (!l_oWaiting) {
        return Fail(CECORE_ERROR_NOT_READY);
    }
    if (const auto l_oulError = m_Probe.Faults().Take(E_FAULT::FetchFails, l_oWaiting->ucCmdeID)) {
        return Fail(*l_oulError);
    }
    // The call blocks until the reply is there, as that of a real link does.
    std::this_thread::sleep_until(l_oWaiting->Due);
    const size_t l_ulCount = std::min<size_t>(l_ulAsked, l_oWaiting->vReply.size());
    std::copy_n(l_oWaiting->vReply.begin(), l_ulCount, static_cast<uint8_t*>(i_Control.pOut));
    *i_Control.pulCount = m_Probe.Faults()
                              .Take(E_FAULT::Count, l_oWaiting->ucCmdeID)
                              .value_or(static_cast<uint32_t>(l_ulCount));
    return 1;
}

} // namespace links
