#include "links/common/RsLink.h"

#include "TornvalLinks.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <csignal>
#include <utility>

namespace links {

uint32_t CRsPort::FillBlock(uint32_t i_ulStatus, std::span<const uint8_t> i_Frame,
                            std::span<uint8_t> o_Block)
{
    const size_t l_ulLength = std::min(i_Frame.size(), o_Block.size() - RS_ANSWER_FRAME_OFFSET);
    wire::WriteLe32(o_Block.data(), i_ulStatus);
    std::copy_n(i_Frame.begin(), l_ulLength, o_Block.begin() + RS_ANSWER_FRAME_OFFSET);
    return static_cast<uint32_t>(RS_ANSWER_FRAME_OFFSET + l_ulLength);
}

std::thread CRsPort::StartThread(std::function<void()> i_fnRun)
{
    sigset_t l_All{}, l_Before{};
    sigfillset(&l_All);
    // What the thread itself does wrong is not to be blocked: the host may want to hear of it.
    for (const int l_lFault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        sigdelset(&l_All, l_lFault);
    }
    pthread_sigmask(SIG_SETMASK, &l_All, &l_Before);
    try {
        std::thread l_Thread(std::move(i_fnRun));
        pthread_sigmask(SIG_SETMASK, &l_Before, nullptr);
        return l_Thread;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &l_Before, nullptr);
        throw;
    }
}

CRsLink::~CRsLink()
{
    CloseAll();
}

void CRsLink::CloseAll()
{
    for (S_PORT& l_Port : m_vPorts) {
        if (l_Port.pOpen) {
            l_Port.pOpen->Stop();
            l_Port.pOpen.reset();
        }
    }
}

uint32_t CRsLink::Open(const S_OPEN& i_Open)
{
    const wire::CLock l_Lock(m_Mutex);
    return OpenAs(i_Open, 0);
}

uint32_t CRsLink::OpenEx(const S_OPEN& i_Open, uint32_t* o_pulHandle)
{
    if (o_pulHandle == nullptr) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    const wire::CLock l_Lock(m_Mutex);
    if (OpenAs(i_Open, m_ulNextHandle) == 0) {
        return 0;
    }
    *o_pulHandle = m_ulNextHandle++;
    return 1;
}

uint32_t CRsLink::OpenAs(const S_OPEN& i_Open, uint32_t i_ulHandle)
{
    const CNotCancelled l_Stays;
    if (i_Open.ulConstant != RS_LINK_CONSTANT || i_Open.ulBaudRate == 0) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    if (i_Open.ulPort == 0 || i_Open.ulPort > m_vPorts.size()) {
        return Fail(CECORE_ERROR_FILE_NOT_FOUND);
    }
    if (const uint32_t l_ulError = Prepare(i_Open); l_ulError != 0) {
        return Fail(l_ulError);
    }
    S_PORT& l_Port = m_vPorts[i_Open.ulPort - 1];
    if (l_Port.pOpen || FindOpen(i_ulHandle) != nullptr) {
        return Fail(CECORE_ERROR_BUSY);
    }
    if (const uint32_t l_ulError = MakePort(i_Open, l_Port.pOpen); l_ulError != 0) {
        return Fail(l_ulError);
    }
    l_Port.ulHandle = i_ulHandle;
    return 1;
}

CRsLink::S_PORT* CRsLink::FindOpen(uint32_t i_ulHandle)
{
    const auto l_itPort = std::find_if(m_vPorts.begin(), m_vPorts.end(), [&](const S_PORT& i_Port) {
        return i_Port.pOpen && i_Port.ulHandle == i_ulHandle;
    });
    return l_itPort == m_vPorts.end() ? nullptr : &*l_itPort;
}

uint32_t CRsLink::Control(const S_CONTROL& i_Control, uint32_t i_ulHandle)
{
    std::shared_ptr<CRsPort> l_pPort;
    {
        const wire::CLock l_Lock(m_Mutex);
        const S_PORT* l_pOpen = FindOpen(i_ulHandle);
        if (l_pOpen == nullptr) {
            return Fail(CECORE_ERROR_INVALID_HANDLE);
        }
        // A close from another thread must not take the link away meanwhile.
        l_pPort = l_pOpen->pOpen;
    }
    if (i_Control.ulConstant != RS_LINK_CONSTANT || i_Control.pIn == nullptr ||
        i_Control.pOut == nullptr || i_Control.pulCount == nullptr) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    *i_Control.pulCount = 0;
    if (i_Control.ulCode == IOCTL_RS_SEND_COMMAND && i_Control.ulInSize == RS_BLOCK_SIZE &&
        i_Control.ulOutSize >= 4) {
        const CNotCancelled l_Stays;
        const std::span l_Block(static_cast<const uint8_t*>(i_Control.pIn), RS_BLOCK_SIZE);
        const size_t l_ulLength =
            RS_FRAME_OUTER_HEAD + wire::ReadLe16(&l_Block[RS_FRAME_SIZE_OFFSET]);
        uint32_t l_ulStatus = 0;
        const uint32_t l_ulError =
            l_pPort->Send(l_Block.first(l_ulLength), l_Block[RS_FRAME_CMDE_OFFSET],
                          wire::ReadLe32(&l_Block[RS_BLOCK_EVENT_OFFSET]), l_ulStatus);
        if (l_ulError != 0) {
            return Fail(l_ulError);
        }
        wire::WriteLe32(static_cast<uint8_t*>(i_Control.pOut), l_ulStatus);
        *i_Control.pulCount = 4;
        return 1;
    }
    if (i_Control.ulCode == IOCTL_RS_GET_RESULT && i_Control.ulInSize == 2 &&
        i_Control.ulOutSize == RS_BLOCK_SIZE) {
        const uint32_t l_ulError = l_pPort->Fetch(
            wire::ReadLe16(static_cast<const uint8_t*>(i_Control.pIn)),
            std::span(static_cast<uint8_t*>(i_Control.pOut), RS_BLOCK_SIZE), *i_Control.pulCount);
        return l_ulError == 0 ? 1 : Fail(l_ulError);
    }
    return Fail(CECORE_ERROR_INVALID_PARAMETER);
}

uint32_t CRsLink::Close(uint32_t i_ulHandle)
{
    const CNotCancelled l_Stays;
    std::shared_ptr<CRsPort> l_pPort;
    {
        const wire::CLock l_Lock(m_Mutex);
        S_PORT* l_pOpen = FindOpen(i_ulHandle);
        if (l_pOpen == nullptr) {
            return Fail(CECORE_ERROR_INVALID_HANDLE);
        }
        if (const uint32_t l_ulError = l_pOpen->pOpen->AllowClose(); l_ulError != 0) {
            return Fail(l_ulError);
        }
        l_pPort.swap(l_pOpen->pOpen);
    }
    l_pPort->Stop();
    return 1;
}

} // namespace links
