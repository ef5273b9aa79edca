/**
 * @file InstantBoard.h
 * @brief The serial board over a link that answers at once: the library's own share of a road.
 */
#pragma once

#include <cstring>
#include <vector>

#include "TestHome.h"
#include "bench/Codes.h"
#include "board/IntMeasDriverSerial.h"

/** A board of three channels whose link answers each command with a block made beforehand. */
class CInstantBoard : public tornval::CIntMeasDriverSerial
{
public:
    explicit CInstantBoard(const std::vector<uint8_t>& i_vData)
    {
        m_Kind.Transport.pfnControl = static_cast<tornval::PFN_CONTROL>(&CInstantBoard::Answer);
        m_pKind = &m_Kind;
        const CTestHome l_Home("[IM]\nCHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n");
        ScaleInBulk<CIntMeasDriver>(this);
        ReadConfiguration();
        for (auto& l_dA : s_dCoefA) {
            l_dA = 10000.0;
        }
        m_vAnswer.assign(tornval::k_ulAnswerDataOffset, 0);
        m_vAnswer[16] = 1;
        m_vAnswer.insert(m_vAnswer.end(), i_vData.begin(), i_vData.end());
    }

private:
    bool Answer(const tornval::S_CONTROL& i_Control)
    {
        if (i_Control.ulCode == IOCTL_RS_SEND_COMMAND) {
            wire::WriteLe32(static_cast<uint8_t*>(i_Control.pOut), 0);
            return ::SetEvent(wire::ReadLe32(static_cast<const uint8_t*>(i_Control.pIn) +
                                             RS_BLOCK_EVENT_OFFSET)) != 0;
        }
        std::memcpy(i_Control.pOut, m_vAnswer.data(), m_vAnswer.size());
        *i_Control.pulReturned = static_cast<uint32_t>(m_vAnswer.size());
        return true;
    }

    tornval::S_WIRE_KIND m_Kind = *m_pKind;
    std::vector<uint8_t> m_vAnswer;
};

/** An answer to 212: input 2, value 12345. */
inline std::vector<uint8_t> MeasureAnswer()
{
    return {2, 0, 0, 0, 0x39, 0x30, 0, 0};
}

/** Uploads over such a board, with everything that a host provides. */
class CUpload
{
public:
    explicit CUpload(size_t i_ulBytes)
        : m_Board(Answer(i_ulBytes)), m_vcRaw(65544), m_vlData(3 + 3 * 65544)
    {
    }
    /** A send of 211 and its fetch: the samples decoded and calibrated. @return whether it went well. */
    bool Run()
    {
        tornval::CMeasDriver& l_Driver = m_Board;
        S_SEND_STRUCT l_Cmde = tornval::MakeCommand(211, 0, 4);
        S_RECEIVE_STRUCT l_Receive{};
        l_Driver.SendCommand(&l_Cmde, &l_Receive, nullptr, 0);
        return l_Driver.GetResult(65544, m_vcRaw.data(), &m_lSize, m_vlData.data(), 0, 1)
                   .ulStatus == 0;
    }

private:
    static std::vector<uint8_t> Answer(size_t i_ulBytes)
    {
        std::vector<uint8_t> l_vData(4);
        wire::WriteLe32(l_vData.data(), static_cast<uint32_t>(i_ulBytes));
        const std::vector<uint8_t> l_vCodes = MakeCodes(i_ulBytes, 100, 3);
        l_vData.insert(l_vData.end(), l_vCodes.begin(), l_vCodes.end());
        return l_vData;
    }

    CInstantBoard m_Board;
    std::vector<char> m_vcRaw;
    std::vector<int32_t> m_vlData;
    int32_t m_lSize = 0;
};
