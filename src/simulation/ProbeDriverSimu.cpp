#include "simulation/ProbeDriverSimu.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>

#include "platform/Clock.h"

namespace tornval {
namespace {

constexpr uint32_t k_ulDelayMs = 20;

/** Head of the canned reply: a read of 798 bytes, and the first of them, a step of 63 down. */
constexpr uint8_t k_aucReplyHead[] = {PROBE_CMDE_READ, 0x1E, 0x03, 0x1F, 0xFF};
constexpr uint32_t k_ulDataSize = 798;
/** All codes behind the first: a step of 0. */
constexpr uint8_t k_ucStill = 0x80;
constexpr uint32_t k_ulReplySize = k_ulProbeHeaderSize + k_ulDataSize + 1;

std::atomic<uint32_t> s_ulBTCounter{0};
std::atomic<uint32_t> s_ulUSBCounter{0};

/** Bytes of the reply to a command; nothing for a command that is refused. */
std::optional<uint32_t> ReplySize(int8_t i_cCmdeID)
{
    switch (i_cCmdeID) {
    case PROBE_CMDE_READ_BOTH:
    case PROBE_CMDE_READ:
        return k_ulReplySize;
    case PROBE_CMDE_START:
    case PROBE_CMDE_STOP:
    case PROBE_CMDE_START_SECOND:
        return 0;
    default:
        return std::nullopt;
    }
}

} // namespace

CBTProbeDriverSimu::CBTProbeDriverSimu()
{
    ScaleInBulk<CProbeDriver>(this);
    m_ulDriverType = TORNVAL_DRIVER_BT_PROBE;
    SetIdentity(s_ulBTCounter++, 2000, "BT");
}

CUSBProbeDriverSimu::CUSBProbeDriverSimu()
{
    ScaleInBulk<CProbeDriver>(this);
    SetIdentity(s_ulUSBCounter++, 3000, "USB");
}

S_RESULT CBTProbeDriverSimu::Init()
{
    m_bInitialised = 1;
    return MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_INIT);
}

S_RESULT CBTProbeDriverSimu::Close()
{
    m_bInitialised = 0;
    return MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_CLOSE);
}

S_RESULT CBTProbeDriverSimu::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                         const void*, uint8_t)
{
    if (i_pCmde == nullptr) {
        return MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_SEND, 1);
    }
    m_cLastCmdeID = static_cast<int8_t>(i_pCmde->CmdeID);
    const std::optional<uint32_t> l_oulSize = ReplySize(m_cLastCmdeID);
    if (!l_oulSize || o_pReceiveStruct == nullptr) {
        return MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_SEND, 1);
    }
    FillReceive(o_pReceiveStruct, 0, *l_oulSize);
    return MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_SEND);
}

S_RESULT CBTProbeDriverSimu::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                       int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                       uint32_t, uint8_t)
{
    const std::optional<uint32_t> l_oulSize = ReplySize(m_cLastCmdeID);
    if (o_pcRawData != nullptr && l_oulSize.value_or(0) != 0) {
        return GenerateRollingSamples(i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize,
                                      o_plProcessedData);
    }
    return MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_RESULT,
                      o_pcRawData == nullptr || !l_oulSize ? 1 : 0);
}

S_RESULT CBTProbeDriverSimu::GenerateRollingSamples(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                                    int32_t* o_plProcessedDataSize,
                                                    int32_t* o_plProcessedData)
{
    cecore::Sleep(k_ulDelayMs);
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_BT_PROBE, TORNVAL_STEP_RESULT);
    if (i_ulNbReturnByte < sizeof(k_aucReplyHead)) {
        l_Result.ulStatus = 1;
    } else {
        std::memset(o_pcRawData, k_ucStill, i_ulNbReturnByte);
        std::memcpy(o_pcRawData, k_aucReplyHead, sizeof(k_aucReplyHead));
        // The head's status byte is fixed and no status: the reply is decoded without a look at it.
        if (o_plProcessedData != nullptr && o_plProcessedDataSize != nullptr) {
            const auto l_ulSize = static_cast<uint16_t>(
                std::min(k_ulDataSize, i_ulNbReturnByte - k_ulProbeHeaderSize));
            DecodeOnlyChannel(reinterpret_cast<const uint8_t*>(o_pcRawData) + k_ulProbeHeaderSize,
                              l_ulSize, o_plProcessedDataSize, o_plProcessedData);
        } else if (o_plProcessedData != nullptr) {
            l_Result.ulStatus = 1;
        }
    }
    cecore::Sleep(0);
    return l_Result;
}

} // namespace tornval
