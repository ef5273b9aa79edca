/**
 * @file Capture.h
 * @brief A record of what passed between the drivers and a link library, and the file of records.
 *
 * The file is pcapng; docs/capture.md describes it.
 */
#pragma once

#include "Descriptor.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace wire {

enum class E_CAPTURE_KIND : uint8_t
{
    Call = 1,
    Return,
    Event
};

enum class E_CAPTURE_LIBRARY : uint8_t
{
    Serial = 1,
    Bluetooth,
    Usb
};

enum class E_CAPTURE_FUNCTION : uint8_t
{
    None,
    Init,
    InitEx,
    Control,
    ControlEx,
    Close,
    CloseEx
};

/** Places of the words of a record. */
enum E_CAPTURE_WORD : size_t
{
    // the call of an open
    CaptureOpenPort = 0,
    CaptureOpenBaud = 2,
    CaptureOpenBits = 3,
    // the call of a control
    CaptureControlDevice = 0,
    CaptureControlConstant,
    CaptureControlCode,
    CaptureControlInSize,
    CaptureControlOutSize,
    CaptureControlZero,
    CaptureControlPointers, // 1 in, 2 out, 4 count: which of them were none
    CaptureControlHandle,
    CaptureControlEvent,
    // the call of a close
    CaptureCloseHandle = 0,
    // every return
    CaptureReturnResult = 0,
    CaptureReturnError,
    CaptureReturnCount, // a control's count; the link handle of an open
    // an event
    CaptureEventHandle = 0,
    CaptureEventResult
};

/** One record. */
struct S_CAPTURE_RECORD
{
    E_CAPTURE_KIND eKind = E_CAPTURE_KIND::Call;
    E_CAPTURE_LIBRARY eLibrary = E_CAPTURE_LIBRARY::Serial;
    E_CAPTURE_FUNCTION eFunction = E_CAPTURE_FUNCTION::None;
    uint32_t ulCall = 0; /**< number of the call; a return and an event carry that of their call */
    uint32_t ulThread = 0;        /**< number of the calling thread; 0 in an event */
    uint64_t ullTime = 0;         /**< nanoseconds since 1970 */
    std::vector<uint32_t> vWords; /**< 255 at most */
    std::vector<uint8_t> vData;   /**< bytes that went in (call) or came out (return) */

    /** A word; 0 where the record has none. */
    [[nodiscard]] uint32_t Word(size_t i_uPlace) const
    {
        return i_uPlace < vWords.size() ? vWords[i_uPlace] : 0;
    }
};

/** What stands at the head of a section: one load of the capturing link. */
struct S_CAPTURE_SECTION
{
    std::string strApplication;
    std::string strConfiguration; /**< of the host that was captured; cut to 65000 bytes */
    std::array<std::string, 3> astrLibraries; /**< serial, Bluetooth, USB, as configured */
};

/** Most data of one record that is kept. */
inline constexpr uint32_t k_ulCaptureMaxData = 16U * 1024 * 1024;

/**
 * Appends records to a file, each by one write, so that the file is whole whenever the process ends.
 * For one thread at a time.
 */
class CCaptureWriter
{
public:
    /**
     * Opens the file, makes it if need be, and begins a section.
     *
     * @return 0, or the errno of the failure: EWOULDBLOCK where another process writes to the file.
     */
    int Open(const std::string& i_strPath, const S_CAPTURE_SECTION& i_Section);

    /** Appends a record. @return 0, or the errno of the failure; the file is as it was then. */
    int Write(const S_CAPTURE_RECORD& i_Record);

private:
    int Append();

    CDescriptor m_File;
    std::vector<uint8_t> m_vBlock;
};

/** Reads a file of records. Every length in it is looked at before it is believed. */
class CCaptureReader
{
public:
    enum class E_FOUND
    {
        Record,
        Section,
        End,
        Damage
    };

    /** @return whether the file could be opened; errno tells why not. */
    bool Open(const std::string& i_strPath);

    /**
     * Looks for the next record or head of a section. What other programs put into the file is passed
     * over.
     *
     * @return Damage where the file cannot be read any further; Error() tells why, and that what came
     *         before is good.
     */
    E_FOUND Next();

    [[nodiscard]] const S_CAPTURE_RECORD& Record() const { return m_Record; }
    [[nodiscard]] const S_CAPTURE_SECTION& Section() const { return m_Section; }
    [[nodiscard]] const std::string& Error() const { return m_strError; }

private:
    struct S_INTERFACE
    {
        bool bOurs = false;
        uint64_t ullNsPerTick = 1000;
        uint64_t ullTicksPerNs = 1;
    };
    struct S_CLOSE
    {
        void operator()(std::FILE* i_pFile) const { (void)std::fclose(i_pFile); }
    };

    E_FOUND Damage(const char* i_pszWhy);
    bool ReadBlock(uint32_t& o_ulType, E_FOUND& o_eEnd);
    void TakeSection();
    void TakeInterface();
    bool TakePacket();
    template <typename F>
    void ForEachOption(size_t i_uFrom, F&& i_fnOption) const;

    std::unique_ptr<std::FILE, S_CLOSE> m_pFile;
    std::vector<uint8_t> m_vBody; // of the block at hand
    std::vector<S_INTERFACE> m_vInterfaces;
    uint64_t m_ullOffset = 0;
    bool m_bInSection = false;
    S_CAPTURE_SECTION m_Section;
    S_CAPTURE_RECORD m_Record;
    std::string m_strError;
};

// Of the format, for writer and reader.
inline constexpr uint32_t k_ulPcapngSection = 0x0A0D0D0A;
inline constexpr uint32_t k_ulPcapngInterface = 1;
inline constexpr uint32_t k_ulPcapngPacket = 6;
inline constexpr uint32_t k_ulPcapngByteOrder = 0x1A2B3C4D;
inline constexpr uint16_t k_usPcapngUser0 = 147;
inline constexpr uint16_t k_usOptionComment = 1;
inline constexpr uint16_t k_usOptionFlags = 2;
inline constexpr uint16_t k_usOptionInterfaceName = 2;
inline constexpr uint16_t k_usOptionDescription = 3;
inline constexpr uint16_t k_usOptionApplication = 4;
inline constexpr uint16_t k_usOptionResolution = 9;
inline constexpr uint32_t k_ulCaptureMagic = 0x314C7654; // "TvL1"
inline constexpr size_t k_uCaptureHead = 16;

} // namespace wire
