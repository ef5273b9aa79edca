#include "Bytes.h"
#include "Capture.h"

#include <algorithm>
#include <span>

#include <sys/file.h>
#include <sys/stat.h>

namespace wire {

namespace {

constexpr size_t k_uMaxText = 65000;

void Put16(std::vector<uint8_t>& io_vBlock, uint16_t i_usNumber)
{
    io_vBlock.resize(io_vBlock.size() + 2);
    WriteLe16(&io_vBlock[io_vBlock.size() - 2], i_usNumber);
}

void Put32(std::vector<uint8_t>& io_vBlock, uint32_t i_ulNumber)
{
    io_vBlock.resize(io_vBlock.size() + 4);
    WriteLe32(&io_vBlock[io_vBlock.size() - 4], i_ulNumber);
}

void Pad(std::vector<uint8_t>& io_vBlock)
{
    io_vBlock.resize((io_vBlock.size() + 3) & ~size_t{3});
}

void PutOption(std::vector<uint8_t>& io_vBlock, uint16_t i_usCode, std::span<const uint8_t> i_Value)
{
    Put16(io_vBlock, i_usCode);
    Put16(io_vBlock, static_cast<uint16_t>(i_Value.size()));
    io_vBlock.insert(io_vBlock.end(), i_Value.begin(), i_Value.end());
    Pad(io_vBlock);
}

void PutText(std::vector<uint8_t>& io_vBlock, uint16_t i_usCode, const std::string& i_strText)
{
    const std::vector<uint8_t> l_vText(
        i_strText.begin(),
        i_strText.begin() + static_cast<std::ptrdiff_t>(std::min(i_strText.size(), k_uMaxText)));
    if (!l_vText.empty()) {
        PutOption(io_vBlock, i_usCode, l_vText);
    }
}

/** Writes a block around what the function puts, its length at both ends. */
template <typename F>
void PutBlock(std::vector<uint8_t>& io_vBlock, uint32_t i_ulType, F&& i_fnBody)
{
    const size_t l_uBegin = io_vBlock.size();
    Put32(io_vBlock, i_ulType);
    Put32(io_vBlock, 0);
    i_fnBody();
    Put32(io_vBlock, 0); // end of the options
    const auto l_ulLength = static_cast<uint32_t>(io_vBlock.size() + 4 - l_uBegin);
    WriteLe32(&io_vBlock[l_uBegin + 4], l_ulLength);
    Put32(io_vBlock, l_ulLength);
}

} // namespace

int CCaptureWriter::Open(const std::string& i_strPath, const S_CAPTURE_SECTION& i_Section)
{
    m_File = CDescriptor(open(i_strPath.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    // Two writers would mix their sections.
    if (!m_File || flock(m_File.Get(), LOCK_EX | LOCK_NB) != 0) {
        return errno;
    }
    m_vBlock.clear();
    PutBlock(m_vBlock, k_ulPcapngSection, [&] {
        Put32(m_vBlock, k_ulPcapngByteOrder);
        Put16(m_vBlock, 1); // version 1.0
        Put16(m_vBlock, 0);
        Put32(m_vBlock, 0xFFFFFFFF); // length of the section: not known
        Put32(m_vBlock, 0xFFFFFFFF);
        PutText(m_vBlock, k_usOptionApplication, i_Section.strApplication);
        PutText(m_vBlock, k_usOptionComment, i_Section.strConfiguration);
    });
    static constexpr std::array<const char*, 3> l_apszNames = {"serial", "bluetooth", "usb"};
    for (size_t i = 0; i < l_apszNames.size(); ++i) {
        PutBlock(m_vBlock, k_ulPcapngInterface, [&] {
            Put16(m_vBlock, k_usPcapngUser0);
            Put16(m_vBlock, 0);
            Put32(m_vBlock, 0); // no limit of a packet's length
            PutText(m_vBlock, k_usOptionInterfaceName, l_apszNames[i]);
            PutText(m_vBlock, k_usOptionDescription, i_Section.astrLibraries[i]);
            PutOption(m_vBlock, k_usOptionResolution, std::array<uint8_t, 1>{9}); // nanoseconds
        });
    }
    return Append();
}

int CCaptureWriter::Write(const S_CAPTURE_RECORD& i_Record)
{
    const size_t l_uWords = std::min<size_t>(i_Record.vWords.size(), 255);
    const size_t l_uData = std::min<size_t>(i_Record.vData.size(), k_ulCaptureMaxData);
    const size_t l_uLength = k_uCaptureHead + 4 * l_uWords + l_uData;
    m_vBlock.clear();
    PutBlock(m_vBlock, k_ulPcapngPacket, [&] {
        Put32(m_vBlock, static_cast<uint32_t>(i_Record.eLibrary) - 1);
        Put32(m_vBlock, static_cast<uint32_t>(i_Record.ullTime >> 32));
        Put32(m_vBlock, static_cast<uint32_t>(i_Record.ullTime));
        Put32(m_vBlock, static_cast<uint32_t>(l_uLength));
        Put32(m_vBlock, static_cast<uint32_t>(l_uLength - l_uData + i_Record.vData.size()));
        Put32(m_vBlock, k_ulCaptureMagic);
        m_vBlock.push_back(static_cast<uint8_t>(i_Record.eKind));
        m_vBlock.push_back(static_cast<uint8_t>(i_Record.eLibrary));
        m_vBlock.push_back(static_cast<uint8_t>(i_Record.eFunction));
        m_vBlock.push_back(static_cast<uint8_t>(l_uWords));
        Put32(m_vBlock, i_Record.ulCall);
        Put32(m_vBlock, i_Record.ulThread);
        for (size_t i = 0; i < l_uWords; ++i) {
            Put32(m_vBlock, i_Record.vWords[i]);
        }
        m_vBlock.insert(m_vBlock.end(), i_Record.vData.begin(),
                        i_Record.vData.begin() + static_cast<std::ptrdiff_t>(l_uData));
        Pad(m_vBlock);
        const bool l_bOut = i_Record.eKind == E_CAPTURE_KIND::Call;
        PutOption(m_vBlock, k_usOptionFlags,
                  std::array<uint8_t, 4>{static_cast<uint8_t>(l_bOut ? 2 : 1), 0, 0, 0});
    });
    return Append();
}

int CCaptureWriter::Append()
{
    struct stat l_Status = {};
    if (fstat(m_File.Get(), &l_Status) != 0) {
        return errno;
    }
    size_t l_uDone = 0;
    while (l_uDone < m_vBlock.size()) {
        const ssize_t l_lWritten =
            write(m_File.Get(), &m_vBlock[l_uDone], m_vBlock.size() - l_uDone);
        if (l_lWritten >= 0) {
            l_uDone += static_cast<size_t>(l_lWritten);
        } else if (errno != EINTR) {
            // Half a block would hide whatever came behind it.
            const int l_lError = errno;
            (void)!ftruncate(m_File.Get(), l_Status.st_size);
            return l_lError;
        }
    }
    return 0;
}

} // namespace wire
