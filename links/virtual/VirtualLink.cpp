#include "links/virtual/VirtualLink.h"

#include "TornvalLinks.h"
#include "emulator/Bytes.h"

#include <algorithm>
#include <span>
#include <string>

namespace links {

using emulator::E_FAULT;

namespace {

constexpr const char* k_pszLibrary = "virtual_link";

} // namespace

CVirtualLink::CVirtualLink() : m_aPorts{S_PORT{m_Board, "board"}, S_PORT{m_MilliOhm, "milliohm"}} {}

CVirtualLink::~CVirtualLink() = default;

uint32_t CVirtualLink::Open(const S_OPEN& i_Open)
{
    const std::lock_guard l_Lock(m_Mutex);
    return OpenAs(i_Open, 0);
}

uint32_t CVirtualLink::OpenEx(const S_OPEN& i_Open, uint32_t* o_pulHandle)
{
    if (o_pulHandle == nullptr) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    const std::lock_guard l_Lock(m_Mutex);
    if (OpenAs(i_Open, m_ulNextHandle) == 0) {
        return 0;
    }
    *o_pulHandle = m_ulNextHandle++;
    return 1;
}

uint32_t CVirtualLink::OpenAs(const S_OPEN& i_Open, uint32_t i_ulHandle)
{
    if (i_Open.ulConstant != RS_LINK_CONSTANT || i_Open.ulBaudRate == 0 || i_Open.ulDataBits != 8) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    if (i_Open.ulPort == 0 || i_Open.ulPort > m_aPorts.size()) {
        return Fail(CECORE_ERROR_FILE_NOT_FOUND);
    }
    S_PORT& l_Port = m_aPorts[i_Open.ulPort - 1];
    std::string l_strError;
    if (!l_Port.Environment.ReadVariables(l_strError) ||
        !l_Port.Environment.ReadControl(l_strError)) {
        Complain(k_pszLibrary, l_strError);
        return Fail(CECORE_ERROR_INVALID_DATA);
    }
    if (const auto l_oulError = l_Port.Firmware.Faults().Take(E_FAULT::NoOpen)) {
        return Fail(*l_oulError);
    }
    if (l_Port.pOpen || FindOpen(i_ulHandle) != nullptr) {
        return Fail(CECORE_ERROR_BUSY);
    }
    l_Port.Firmware.Restart();
    l_Port.pOpen = std::make_shared<CLinkPort>(l_Port.Firmware);
    l_Port.ulHandle = i_ulHandle;
    return 1;
}

CVirtualLink::S_PORT* CVirtualLink::FindOpen(uint32_t i_ulHandle)
{
    auto* l_pPort = std::find_if(m_aPorts.begin(), m_aPorts.end(), [&](const S_PORT& i_Port) {
        return i_Port.pOpen && i_Port.ulHandle == i_ulHandle;
    });
    return l_pPort == m_aPorts.end() ? nullptr : l_pPort;
}

uint32_t CVirtualLink::Control(const S_CONTROL& i_Control, uint32_t i_ulHandle)
{
    S_PORT* l_pPort = nullptr;
    std::shared_ptr<CLinkPort> l_pLink;
    {
        const std::lock_guard l_Lock(m_Mutex);
        l_pPort = FindOpen(i_ulHandle);
        if (l_pPort == nullptr) {
            return Fail(CECORE_ERROR_INVALID_HANDLE);
        }
        // A close from another thread must not take the link away meanwhile.
        l_pLink = l_pPort->pOpen;
    }
    if (i_Control.ulConstant != RS_LINK_CONSTANT || i_Control.pIn == nullptr ||
        i_Control.pOut == nullptr || i_Control.pulCount == nullptr) {
        return Fail(CECORE_ERROR_INVALID_PARAMETER);
    }
    *i_Control.pulCount = 0;
    std::string l_strError;
    if (!l_pPort->Environment.ReadControl(l_strError)) {
        Complain(k_pszLibrary, l_strError);
    }
    if (i_Control.ulCode == IOCTL_RS_SEND_COMMAND && i_Control.ulInSize == RS_BLOCK_SIZE &&
        i_Control.ulOutSize >= 4) {
        return Send(i_Control, l_pPort->Firmware.Faults(), *l_pLink);
    }
    if (i_Control.ulCode == IOCTL_RS_GET_RESULT && i_Control.ulInSize == 2 &&
        i_Control.ulOutSize == RS_BLOCK_SIZE) {
        return Fetch(i_Control, l_pPort->Firmware.Faults(), *l_pLink);
    }
    return Fail(CECORE_ERROR_INVALID_PARAMETER);
}

uint32_t CVirtualLink::Send(const S_CONTROL& i_Control, emulator::CFaults& io_Faults,
                            CLinkPort& io_Link)
{
    const std::span l_Block(static_cast<const uint8_t*>(i_Control.pIn), RS_BLOCK_SIZE);
    const uint8_t l_ucCmdeID = l_Block[RS_FRAME_CMDE_OFFSET];
    if (const auto l_oulError = io_Faults.Take(E_FAULT::SendFails, l_ucCmdeID)) {
        return Fail(*l_oulError);
    }
    // A refused command does not reach the instrument.
    const uint32_t l_ulStatus = io_Faults.Take(E_FAULT::SendStatus, l_ucCmdeID).value_or(0);
    if (l_ulStatus == 0 && !io_Link.Send(l_Block.first(emulator::FrameLength(l_Block)), l_ucCmdeID,
                                         emulator::GetNumber(l_Block, RS_BLOCK_EVENT_OFFSET, 4))) {
        return Fail(CECORE_ERROR_INVALID_HANDLE);
    }
    emulator::PutNumber(std::span(static_cast<uint8_t*>(i_Control.pOut), 4), 0, 4, l_ulStatus);
    *i_Control.pulCount = 4;
    return 1;
}

uint32_t CVirtualLink::Fetch(const S_CONTROL& i_Control, emulator::CFaults& io_Faults,
                             CLinkPort& io_Link)
{
    const std::span l_Echo(static_cast<const uint8_t*>(i_Control.pIn), 2);
    const auto l_usCmdeID = static_cast<uint16_t>(emulator::GetNumber(l_Echo, 0, 2));
    const auto l_ucCmdeID = static_cast<uint8_t>(l_usCmdeID);
    if (const auto l_oulError = io_Faults.Take(E_FAULT::FetchFails, l_ucCmdeID)) {
        return Fail(*l_oulError);
    }
    const auto l_ovFrame = io_Link.Fetch(l_usCmdeID);
    if (!l_ovFrame) {
        return Fail(CECORE_ERROR_NOT_READY);
    }
    const std::span l_Block(static_cast<uint8_t*>(i_Control.pOut), RS_BLOCK_SIZE);
    const size_t l_ulLength = std::min(l_ovFrame->size(), l_Block.size() - RS_ANSWER_FRAME_OFFSET);
    emulator::PutNumber(l_Block, 0, 4, io_Faults.Take(E_FAULT::LinkStatus, l_ucCmdeID).value_or(0));
    std::copy_n(l_ovFrame->begin(), l_ulLength, l_Block.begin() + RS_ANSWER_FRAME_OFFSET);
    *i_Control.pulCount = io_Faults.Take(E_FAULT::Count, l_ucCmdeID)
                              .value_or(static_cast<uint32_t>(RS_ANSWER_FRAME_OFFSET + l_ulLength));
    return 1;
}

uint32_t CVirtualLink::Close(uint32_t i_ulHandle)
{
    std::shared_ptr<CLinkPort> l_pLink;
    {
        const std::lock_guard l_Lock(m_Mutex);
        S_PORT* l_pPort = FindOpen(i_ulHandle);
        if (l_pPort == nullptr) {
            return Fail(CECORE_ERROR_INVALID_HANDLE);
        }
        std::string l_strError;
        if (!l_pPort->Environment.ReadControl(l_strError)) {
            Complain(k_pszLibrary, l_strError);
        }
        if (const auto l_oulError = l_pPort->Firmware.Faults().Take(E_FAULT::CloseFails)) {
            return Fail(*l_oulError);
        }
        l_pLink.swap(l_pPort->pOpen);
    }
    l_pLink->Stop();
    return 1;
}

} // namespace links
