#include "Bytes.h"
#include "Capture.h"

#include <algorithm>

namespace wire {

namespace {

/** Longest block that is read: the largest record and its options. */
constexpr uint32_t k_ulMaxBlock = k_ulCaptureMaxData + 128 * 1024;
constexpr size_t k_uMaxInterfaces = 256;

} // namespace

bool CCaptureReader::Open(const std::string& i_strPath)
{
    *this = {};
    m_pFile.reset(std::fopen(i_strPath.c_str(), "rbe"));
    return m_pFile != nullptr;
}

CCaptureReader::E_FOUND CCaptureReader::Damage(const char* i_pszWhy)
{
    m_strError = "byte " + std::to_string(m_ullOffset) + ": " + i_pszWhy;
    m_pFile.reset();
    return E_FOUND::Damage;
}

bool CCaptureReader::ReadBlock(uint32_t& o_ulType, E_FOUND& o_eEnd)
{
    std::array<uint8_t, 12> l_aHead{};
    const size_t l_uRead = std::fread(l_aHead.data(), 1, l_aHead.size(), m_pFile.get());
    if (l_uRead != l_aHead.size()) {
        o_eEnd = l_uRead != 0 || std::ferror(m_pFile.get()) != 0
                     ? Damage("the file ends in the head of a block")
                     : E_FOUND::End;
        return false;
    }
    o_ulType = ReadLe32(l_aHead.data());
    const uint32_t l_ulLength = ReadLe32(&l_aHead[4]);
    if (!m_bInSection && o_ulType != k_ulPcapngSection) {
        o_eEnd = Damage("this is no pcapng file");
        return false;
    }
    // The order of bytes is told inside the block, and needed for its length.
    if (o_ulType == k_ulPcapngSection && ReadLe32(&l_aHead[8]) != k_ulPcapngByteOrder) {
        o_eEnd = Damage("a section of another byte order, or no pcapng file");
        return false;
    }
    const uint32_t l_ulLeast = o_ulType == k_ulPcapngSection     ? 28
                               : o_ulType == k_ulPcapngInterface ? 20
                               : o_ulType == k_ulPcapngPacket    ? 32
                                                                 : 12;
    if (l_ulLength < l_ulLeast || l_ulLength > k_ulMaxBlock || l_ulLength % 4 != 0) {
        o_eEnd = Damage("a block of an impossible length");
        return false;
    }
    // The body from here on, and the second length behind it, of which the head may hold the first word.
    m_vBody.assign(l_ulLength - 8, 0);
    std::copy(l_aHead.begin() + 8, l_aHead.end(), m_vBody.begin());
    const size_t l_uRest = m_vBody.size() - 4;
    if (std::fread(m_vBody.data() + 4, 1, l_uRest, m_pFile.get()) != l_uRest) {
        o_eEnd = Damage("the file ends in the middle of a block");
        return false;
    }
    if (ReadLe32(&m_vBody[m_vBody.size() - 4]) != l_ulLength) {
        o_eEnd = Damage("the two lengths of a block differ");
        return false;
    }
    m_vBody.resize(m_vBody.size() - 4);
    m_ullOffset += l_ulLength;
    return true;
}

CCaptureReader::E_FOUND CCaptureReader::Next()
{
    while (m_pFile != nullptr) {
        uint32_t l_ulType = 0;
        E_FOUND l_eEnd = E_FOUND::End;
        if (!ReadBlock(l_ulType, l_eEnd)) {
            m_pFile.reset();
            return l_eEnd;
        }
        if (l_ulType == k_ulPcapngSection) {
            TakeSection();
        } else if (l_ulType == k_ulPcapngInterface) {
            TakeInterface();
            if (m_vInterfaces.size() == m_Section.astrLibraries.size()) {
                return E_FOUND::Section;
            }
        } else if (l_ulType == k_ulPcapngPacket && TakePacket()) {
            return E_FOUND::Record;
        }
    }
    return E_FOUND::End;
}

template <typename F>
void CCaptureReader::ForEachOption(size_t i_uFrom, F&& i_fnOption) const
{
    while (i_uFrom + 4 <= m_vBody.size()) {
        const uint16_t l_usCode = ReadLe16(&m_vBody[i_uFrom]);
        const size_t l_uLength = ReadLe16(&m_vBody[i_uFrom + 2]);
        i_uFrom += 4;
        if (l_usCode == 0 || l_uLength > m_vBody.size() - i_uFrom) {
            return;
        }
        i_fnOption(l_usCode,
                   std::string(m_vBody.begin() + static_cast<std::ptrdiff_t>(i_uFrom),
                               m_vBody.begin() + static_cast<std::ptrdiff_t>(i_uFrom + l_uLength)));
        i_uFrom += (l_uLength + 3) & ~size_t{3};
    }
}

void CCaptureReader::TakeSection()
{
    m_bInSection = true;
    m_Section = {};
    m_vInterfaces.clear();
    ForEachOption(16, [&](uint16_t i_usCode, std::string i_strText) {
        if (i_usCode == k_usOptionApplication) {
            m_Section.strApplication = std::move(i_strText);
        } else if (i_usCode == k_usOptionComment) {
            m_Section.strConfiguration = std::move(i_strText);
        }
    });
}

void CCaptureReader::TakeInterface()
{
    if (m_vInterfaces.size() >= k_uMaxInterfaces) {
        return; // what refers to them is passed over
    }
    S_INTERFACE l_Interface;
    l_Interface.bOurs = ReadLe16(m_vBody.data()) == k_usPcapngUser0;
    const size_t l_uPlace = m_vInterfaces.size();
    ForEachOption(8, [&](uint16_t i_usCode, std::string i_strValue) {
        if (i_usCode == k_usOptionResolution && i_strValue.size() == 1) {
            const auto l_ucDigits = static_cast<uint8_t>(i_strValue[0]);
            l_Interface.bOurs = l_Interface.bOurs && l_ucDigits <= 18;
            l_Interface.ullNsPerTick = l_Interface.ullTicksPerNs = 1;
            for (int i = l_ucDigits; i < 9; ++i) {
                l_Interface.ullNsPerTick *= 10;
            }
            for (int i = 9; i < std::min<int>(l_ucDigits, 18); ++i) {
                l_Interface.ullTicksPerNs *= 10;
            }
        } else if (i_usCode == k_usOptionDescription && l_uPlace < m_Section.astrLibraries.size()) {
            m_Section.astrLibraries[l_uPlace] = std::move(i_strValue);
        }
    });
    m_vInterfaces.push_back(l_Interface);
}

bool CCaptureReader::TakePacket()
{
    const uint32_t l_ulInterface = ReadLe32(m_vBody.data());
    const uint64_t l_ullTicks =
        (uint64_t{ReadLe32(&m_vBody[4])} << 32) | uint64_t{ReadLe32(&m_vBody[8])};
    const uint32_t l_ulLength = ReadLe32(&m_vBody[12]);
    constexpr size_t k_uBegin = 20;
    if (l_ulInterface >= m_vInterfaces.size() || !m_vInterfaces[l_ulInterface].bOurs ||
        l_ulLength > m_vBody.size() - k_uBegin || l_ulLength < k_uCaptureHead) {
        return false;
    }
    const uint8_t* l_pucRecord = m_vBody.data() + k_uBegin;
    const size_t l_uWords = l_pucRecord[7];
    if (ReadLe32(l_pucRecord) != k_ulCaptureMagic || k_uCaptureHead + 4 * l_uWords > l_ulLength ||
        l_pucRecord[4] < 1 || l_pucRecord[4] > static_cast<uint8_t>(E_CAPTURE_KIND::Event) ||
        l_pucRecord[5] < 1 || l_pucRecord[5] > static_cast<uint8_t>(E_CAPTURE_LIBRARY::Usb) ||
        l_pucRecord[6] > static_cast<uint8_t>(E_CAPTURE_FUNCTION::CloseEx)) {
        return false;
    }
    const S_INTERFACE& l_Interface = m_vInterfaces[l_ulInterface];
    m_Record.eKind = static_cast<E_CAPTURE_KIND>(l_pucRecord[4]);
    m_Record.eLibrary = static_cast<E_CAPTURE_LIBRARY>(l_pucRecord[5]);
    m_Record.eFunction = static_cast<E_CAPTURE_FUNCTION>(l_pucRecord[6]);
    m_Record.ulCall = ReadLe32(l_pucRecord + 8);
    m_Record.ulThread = ReadLe32(l_pucRecord + 12);
    m_Record.ullTime = l_ullTicks * l_Interface.ullNsPerTick / l_Interface.ullTicksPerNs;
    m_Record.vWords.clear();
    for (size_t i = 0; i < l_uWords; ++i) {
        m_Record.vWords.push_back(ReadLe32(l_pucRecord + k_uCaptureHead + 4 * i));
    }
    m_Record.vData.assign(l_pucRecord + k_uCaptureHead + 4 * l_uWords, l_pucRecord + l_ulLength);
    return true;
}

} // namespace wire
