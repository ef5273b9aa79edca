/**
 * @file BoardOnDevice.h
 * @brief The board driver over a device file of this process, which records.
 */
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include "Exchange.h"
#include "TestHome.h"
#include "TestRecord.h"
#include "board/IntMeasDriver.h"
#include "platform/Device.h"
#include "platform/Registry.h"

/** The driver with its inner side open, so that a test can look at it. */
class COpenBoard : public tornval::CIntMeasDriver
{
public:
    using CIntMeasDriver::already_init;
    using CIntMeasDriver::m_bDecompressData;
    using CIntMeasDriver::m_Frame;
    using CIntMeasDriver::m_hSync;
    using CIntMeasDriver::m_ppVoieData;
    using CIntMeasDriver::m_pulVoies;
    using CIntMeasDriver::m_ucBurst;
    using CIntMeasDriver::m_ulCmdeStatus;
    using CIntMeasDriver::m_ulNbChannel;
    using CIntMeasDriver::m_ulTimeout;
    using CIntMeasDriver::s_dCoefA;
    using CIntMeasDriver::s_dCoefB;
};

/** Keeps the last frame and answers it with a block of the test's own. */
class CScriptedDevice : public cecore::IDevice
{
public:
    bool Open() override { return ++ulOpens > ulRefusedOpens; }
    bool IoControl(uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize, void* o_pOut,
                   uint32_t i_ulOutSize, uint32_t* o_pulReturned) override
    {
        if (i_ulCode == IOCTL_RS_SEND_COMMAND) {
            ++ulSends;
            const std::lock_guard l_Lock(Stuck);
            const auto* l_pucIn = static_cast<const uint8_t*>(i_pIn);
            vFrame.assign(l_pucIn, l_pucIn + i_ulInSize);
            vCmdes.push_back(vFrame[RS_FRAME_CMDE_OFFSET]);
            if (bSucceeds) {
                wire::WriteLe32(static_cast<uint8_t*>(o_pOut), ulStatusWord);
            }
            if (bSignal) {
                ::SetEvent(wire::ReadLe32(l_pucIn + RS_BLOCK_EVENT_OFFSET));
            }
        } else {
            vEcho.assign(static_cast<const uint8_t*>(i_pIn),
                         static_cast<const uint8_t*>(i_pIn) + i_ulInSize);
            std::copy_n(vAnswer.begin(), std::min<size_t>(vAnswer.size(), i_ulOutSize),
                        static_cast<uint8_t*>(o_pOut));
            *o_pulReturned = ulReturned;
        }
        ::SetLastError(ulLastError);
        return bSucceeds;
    }

    /** An answer block: link status, an answer head, return code 1, error 0, and the data. */
    void Answer(const std::vector<uint8_t>& i_vData, uint32_t i_ulReturned)
    {
        vAnswer.assign(tornval::k_ulAnswerDataOffset, 0);
        vAnswer[16] = 1;
        vAnswer.insert(vAnswer.end(), i_vData.begin(), i_vData.end());
        ulReturned = i_ulReturned;
    }

    std::vector<uint8_t> vFrame, vEcho, vAnswer;
    std::vector<uint8_t> vCmdes; // IDs of all commands
    uint32_t ulStatusWord = 0, ulReturned = 0, ulLastError = 0, ulOpens = 0, ulRefusedOpens = 0;
    bool bSignal = true, bSucceeds = true;
    std::mutex Stuck; // held by a test: sends do not come back
    std::atomic<uint32_t> ulSends{0};
};

/** Puts a device where the driver finds it: the registry says unit 7 of the device "DEV". */
inline void PutDevice(std::shared_ptr<cecore::IDevice> i_pDevice)
{
    static constexpr uint8_t s_aucUnit[] = {7, 0, 0, 0};
    cecore::SetRegistryValue(L"system\\board", L"unit", s_aucUnit, sizeof(s_aucUnit));
    cecore::RegisterDevice(L"DEV7:", std::move(i_pDevice));
}

inline constexpr const char* k_pszBoardSection =
    "[IM]\nDRIVER_NAME=DEV\nREGISTRY_KEY=system\\board\nREGISTRY_ENTRY=unit\n"
    "CHANNEL_1=2\nCHANNEL_2=0\nCHANNEL_3=12\n";

/** The driver over a scripted device, its instance created. */
struct S_BENCH
{
    explicit S_BENCH(const std::string& i_strMore = "") : Home(k_pszBoardSection + i_strMore)
    {
        PutDevice(pDevice);
        EXPECT_EQ(Board.CreateDriverInstance(), Done(BOARD, NO_STEP));
    }
    tornval::CMeasDriver& Driver() { return Board; }

    S_RESULT Send(uint8_t i_ucCmdeID, uint32_t i_ulTimeout = 0, uint32_t i_ulSize = 4,
                  const void* i_pcData = nullptr, uint8_t i_ucCanal = 0, uint8_t i_ucParam = 0)
    {
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(i_ucCmdeID, i_ulTimeout, i_ulSize);
        l_Cmde.ucCmdeParam = i_ucParam;
        return Driver().SendCommand(&l_Cmde, &Receive, i_pcData, i_ucCanal);
    }
    /** A send with its fetch. */
    S_RESULT Fetch(uint8_t i_ucCmdeID, char* o_pcRaw, int32_t* o_plSize = nullptr,
                   int32_t* o_plData = nullptr, uint32_t i_ulRaw = 65544)
    {
        return SendAndFetch(
            tornval::MakeCommand(i_ucCmdeID, 0, 4),
            [&](S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceive) {
                return Driver().SendCommand(i_pCmde, o_pReceive, nullptr, 0);
            },
            [&](uint32_t) {
                return Driver().GetResult(i_ulRaw, o_pcRaw, o_plSize, o_plData, 0, 1);
            });
    }

    CTestHome Home;
    std::shared_ptr<CScriptedDevice> pDevice = std::make_shared<CScriptedDevice>();
    COpenBoard Board;
    S_RECEIVE_STRUCT Receive{};
};
