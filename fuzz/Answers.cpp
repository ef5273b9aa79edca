// An answer block of board, module or a probe, fetched by the real drivers through the exports. The
// input: which command, the room of the host, the count that the link tells, the block.
#include "Link.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <memory>
#include <span>
#include <utility>

#include "TornvalC63.h"
#include "wire/Bytes.h"

namespace {

constexpr uint32_t k_ulBlock = 65548;
constexpr int32_t k_lUntouched = 0x5AA55AA5;

uint32_t g_ulBoard = 0;
uint32_t g_ulModule = 0;

std::vector<uint8_t> GoodAnswer()
{
    std::vector<uint8_t> l_vBlock(22 + 13 * 8 + 64);
    l_vBlock[16] = 1;
    for (size_t i = 0; i < 13; ++i) {
        wire::WriteLe32(&l_vBlock[22 + 8 * i], static_cast<uint32_t>(10000 + i));
        wire::WriteLe32(&l_vBlock[26 + 8 * i], static_cast<uint32_t>(0 - i));
    }
    return l_vBlock;
}

/** What a link gives: these bytes, and their count. */
S_HOSTILE_STEP Giving(std::span<const uint8_t> i_Bytes)
{
    S_HOSTILE_STEP l_Step;
    l_Step.pucBytes = i_Bytes.data();
    l_Step.ulCount = l_Step.ulSize = static_cast<uint32_t>(i_Bytes.size());
    return l_Step;
}

/** Loads board and module over a link that answers well. */
const CFuzzedHome& Home()
{
    static CFuzzedHome s_Home;
    static const bool s_bLoaded = [] {
        const std::vector<uint8_t> l_vGood = GoodAnswer();
        const CFuzzedHome::CPlay l_Play(s_Home, [&] { return Giving(l_vGood); });
        S_DRIVER_INFO l_aInfo[8];
        uint32_t l_ulCount = 0;
        Require(LoadMeasDrivers(0x11).ulStatus == 0 &&
                EnumMeasDrivers(l_aInfo, 8, &l_ulCount) == 1);
        for (uint32_t i = 0; i < l_ulCount; ++i) {
            if (std::strcmp(l_aInfo[i].szLinkType, "IM") == 0) {
                g_ulBoard = l_aInfo[i].ulDriverID;
            } else if (std::strcmp(l_aInfo[i].szLinkType, "MO") == 0) {
                g_ulModule = l_aInfo[i].ulDriverID;
            }
        }
        return true;
    }();
    Require(s_bLoaded && g_ulBoard != 0 && g_ulModule != 0);
    return s_Home;
}

int32_t Calibrated(uint32_t i_ulVoie, uint32_t i_ulRaw)
{
    const double l_dMeasure =
        (i_ulRaw * (10000.0 + i_ulVoie) - static_cast<double>(i_ulVoie)) * 0.0001;
    return l_dMeasure >= 2147483647.0 ? 2147483647 : static_cast<int32_t>(l_dMeasure);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* i_pucData, size_t i_ulSize)
{
    const CFuzzedHome& l_Home = Home();
    FuzzedDataProvider l_Input(i_pucData, i_ulSize);
    static constexpr uint8_t k_aucCommands[] = {208, 209, 210, 211, 212, 213, 214, 215, 0xA1, 0xFF};
    const uint8_t l_ucCmde = l_Input.PickValueInArray(k_aucCommands);
    const bool l_bModule = l_ucCmde == 0xA1 || l_ucCmde == 0xFF;
    const auto l_usRoom = l_Input.ConsumeIntegral<uint16_t>();
    const bool l_bLies = l_Input.ConsumeBool();
    const auto l_ulLie = l_Input.ConsumeIntegral<uint32_t>();
    const std::vector<uint8_t> l_vBlock = l_Input.ConsumeRemainingBytes<uint8_t>();
    const auto l_ulBlock = static_cast<uint32_t>(l_vBlock.size());

    static const uint8_t s_aucAccepted[4] = {};
    bool l_bSend = true;
    const auto l_fnNext = [&] {
        S_HOSTILE_STEP l_Step = l_bSend ? Giving(s_aucAccepted) : Giving(l_vBlock);
        l_Step.ulCount = l_bLies && !l_bSend ? l_ulLie : l_Step.ulCount;
        l_bSend = false;
        return l_Step;
    };
    const CFuzzedHome::CPlay l_Play(l_Home, l_fnNext);
    S_SEND_STRUCT l_Cmde{};
    l_Cmde.CmdeID = l_ucCmde;
    l_Cmde.ulSize = 4;
    S_RECEIVE_STRUCT l_Receive{};
    const uint32_t l_ulID = l_bModule ? g_ulModule : g_ulBoard;
    Require(SendMeasBoardCmd(l_ulID, &l_Cmde, &l_Receive, nullptr).ulStatus == 0);
    // As much room as the host says and not a byte more, so that a byte outside is a finding.
    const auto l_pcRaw = std::make_unique<char[]>(std::max<size_t>(l_usRoom, 1));
    static std::vector<int32_t> s_vlData(3 + 3 * 65544);
    s_vlData[0] = s_vlData[3] = k_lUntouched;
    int32_t l_lSize = 0;
    const S_RESULT l_Result =
        GetMeasBoardResult(l_ulID, l_usRoom, l_pcRaw.get(), &l_lSize, s_vlData.data(), 0);
    Require(l_Result.ulStatus <= 1 && l_Result.ulStep == 5 && l_Result.ulLastError == 0);
    Require(l_Result.ulDriverType == (l_bModule ? 4U : 3U));
    if (l_Result.ulStatus != 0) {
        Require(l_ucCmde != 212 || s_vlData[0] == 0 || s_vlData[0] == k_lUntouched);
        Require(l_ucCmde != 211 || l_lSize == 0);
        return 0;
    }
    // A success: what it rests on has been there.
    const uint32_t l_ulCount = l_bLies ? l_ulLie : l_ulBlock;
    Require(l_Result.ulFwStatus == 0 && l_ulCount >= 12);
    std::vector<uint8_t> l_vSeen = l_vBlock;
    l_vSeen.resize(std::min(k_ulBlock, std::max<uint32_t>(l_ulBlock, 64)));
    if (l_ulBlock >= 22) {
        const uint32_t l_ulError = wire::ReadLe32(&l_vBlock[18]);
        Require(wire::ReadLe32(l_vBlock.data()) == 0 && wire::ReadLe16(&l_vBlock[16]) == 1);
        Require(l_bModule || l_ulError == 0 || l_ulError == 2006);
    }
    if (l_ucCmde == 212 && l_ulBlock >= 30) {
        const uint32_t l_ulVoie = wire::ReadLe32(&l_vBlock[22]);
        Require(l_ulVoie <= 12);
        Require(s_vlData[0] == Calibrated(l_ulVoie, wire::ReadLe32(&l_vBlock[26])));
    } else if (l_ucCmde == 211) {
        const int64_t l_llSum = int64_t{s_vlData[0]} + s_vlData[1] + s_vlData[2] + 3;
        Require(l_lSize == l_llSum && l_lSize <= static_cast<int32_t>(s_vlData.size()));
    } else if (l_ucCmde == 0xA1 && l_ulBlock >= 34) {
        Require(l_lSize == 3 && s_vlData[3] == 0);
        for (size_t i = 0; i < 3; ++i) {
            Require(static_cast<uint32_t>(s_vlData[i]) == wire::ReadLe32(&l_vBlock[22 + 4 * i]));
        }
    } else if (l_ucCmde == 0xFF && l_ulCount <= l_ulBlock) {
        Require(l_usRoom >= l_ulCount - 12);
    }
    if (l_ucCmde == 208) {
        // The coefficients are the family's: put back what the other inputs count on.
        const std::vector<uint8_t> l_vGood = GoodAnswer();
        bool l_bFirst = true;
        const CFuzzedHome::CPlay l_PlayGood(l_Home, [&] {
            return std::exchange(l_bFirst, false) ? Giving(s_aucAccepted) : Giving(l_vGood);
        });
        char l_acRaw[1];
        Require(SendMeasBoardCmd(l_ulID, &l_Cmde, &l_Receive, nullptr).ulStatus == 0);
        Require(GetMeasBoardResult(l_ulID, 1, l_acRaw, &l_lSize, s_vlData.data(), 0).ulStatus == 0);
    }
    return 0;
}
