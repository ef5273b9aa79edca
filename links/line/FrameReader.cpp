#include "links/line/FrameReader.h"

#include "wire/Bytes.h"
#include "wire/Crc16.h"

#include <algorithm>
#include <utility>

namespace links {

namespace {

/** Bytes up to the end of the size field. */
constexpr size_t k_ulSized = wire::k_ulSizeOffset + 2;

} // namespace

uint16_t FrameCrc(std::span<const uint8_t> i_Bytes)
{
    return wire::CCrc16().ComputeCrc16(i_Bytes.data(), static_cast<uint32_t>(i_Bytes.size()));
}

void CFrameReader::Feed(std::span<const uint8_t> i_Bytes, const FN_FRAME& i_fnFrame)
{
    while (!i_Bytes.empty()) {
        if (m_bSkipping) {
            m_ullDropped += i_Bytes.size();
            return;
        }
        const bool l_bSized = m_vFrame.size() >= k_ulSized;
        const size_t l_ulSize = l_bSized ? wire::ReadLe16(&m_vFrame[wire::k_ulSizeOffset]) : 0;
        const size_t l_ulWanted = l_bSized ? wire::k_ulOuterHead + l_ulSize : k_ulSized;
        const auto l_Part = i_Bytes.first(std::min(l_ulWanted - m_vFrame.size(), i_Bytes.size()));
        m_vFrame.insert(m_vFrame.end(), l_Part.begin(), l_Part.end());
        i_Bytes = i_Bytes.subspan(l_Part.size());
        if (m_vFrame.size() < l_ulWanted) {
            return;
        }
        if (!l_bSized) {
            if (wire::ReadLe16(&m_vFrame[wire::k_ulSizeOffset]) < wire::k_ulMinSize) {
                ++m_ullBroken;
                Skip();
            }
            continue;
        }
        if (wire::ReadLe16(m_vFrame.data()) != FrameCrc(std::span(m_vFrame).subspan(2))) {
            ++m_ullBadCrc;
            Skip();
            continue;
        }
        ++m_ullFrames;
        i_fnFrame(std::exchange(m_vFrame, {}));
    }
}

void CFrameReader::Skip()
{
    m_ullDropped += m_vFrame.size();
    m_vFrame.clear();
    m_bSkipping = true;
}

void CFrameReader::Silence()
{
    if (InFrame()) {
        ++m_ullBroken;
        Skip();
    }
    m_bSkipping = false;
}

S_READER_COUNTERS CFrameReader::Counters() const
{
    return {m_ullFrames, m_ullBadCrc, m_ullBroken, m_ullDropped};
}

} // namespace links
