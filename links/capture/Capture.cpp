#include "links/capture/Capture.h"

#include "TornvalLinks.h"
#include "links/common/Configuration.h"
#include "platform/EventWatch.h"
#include "wire/Bytes.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <iterator>

#include <pthread.h>

namespace links {

using wire::S_CAPTURE_RECORD;

namespace {

std::atomic<CCapture*> s_pCapture{nullptr};

/** More than a process has threads and commands under way; a bound, should one make them forever. */
constexpr size_t k_uMaxKnown = 4096;

std::string ReadKey(const wire::CConfigText& i_Config, const char* i_pszKey)
{
    return std::string(i_Config.FindText("CAPTURE", i_pszKey).value_or(""));
}

bool IsSend(uint32_t i_ulCode)
{
    return i_ulCode == IOCTL_RS_SEND_COMMAND;
}

} // namespace

CCapture::CCapture()
{
    const wire::CConfigText l_Config = ReadConfiguration();
    static constexpr std::array<const char*, 3> l_apszKeys = {"SERIAL", "BLUETOOTH", "USB"};
    for (size_t i = 0; i < l_apszKeys.size(); ++i) {
        m_astrNames[i] = ReadKey(l_Config, l_apszKeys[i]);
    }
    wire::S_CAPTURE_SECTION l_Section{"tornval capture_link", {}, m_astrNames};
    const std::string l_strConfiguration = ReadKey(l_Config, "CONFIGURATION");
    if (std::ifstream l_File(l_strConfiguration, std::ios::binary); l_File) {
        l_Section.strConfiguration.assign(std::istreambuf_iterator<char>(l_File), {});
    }
    const std::string l_strPath = ReadKey(l_Config, "FILE");
    const int l_lError = l_strPath.empty() ? ENOENT : m_Writer.Open(l_strPath, l_Section);
    m_bWriting = l_lError == 0;
    if (!m_bWriting) {
        GiveUp(l_strPath.empty()         ? "[CAPTURE] FILE names no file"
               : l_lError == EWOULDBLOCK ? l_strPath + ": another process writes to it"
                                         : l_strPath + ": " + std::strerror(l_lError));
    }
    s_pCapture = this;
    cecore::WatchSetEvent(WatchEvent);
}

CCapture::~CCapture()
{
    // The threads of a library end with it; until then they may announce answers.
    for (const cecore::ModuleHandle l_hLibrary : m_ahLibraries) {
        if (l_hLibrary != nullptr) {
            cecore::FreeLibrary(l_hLibrary);
        }
    }
    cecore::WatchSetEvent(nullptr);
    s_pCapture = nullptr;
}

void CCapture::GiveUp(const std::string& i_strWhy)
{
    m_bWriting = false;
    Complain("capture_link", i_strWhy + "; the instrument is used without being recorded");
}

uint64_t CCapture::Now() const
{
    // Not the clock of the day alone: it may be set while the link is captured.
    const auto l_Time =
        m_Began.time_since_epoch() + (std::chrono::steady_clock::now() - m_BeganSteady);
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(l_Time).count());
}

cecore::ModuleHandle CCapture::Library(E_LIBRARY i_eLibrary)
{
    const wire::CLock l_Lock(m_LibraryMutex);
    const size_t l_uPlace = static_cast<size_t>(i_eLibrary) - 1;
    if (m_ahLibraries[l_uPlace] == nullptr) {
        const std::string& l_strName = m_astrNames[l_uPlace];
        // A name is bytes; each is the wide character of its value.
        std::wstring l_wstrName;
        for (const char l_cByte : l_strName) {
            l_wstrName.push_back(static_cast<unsigned char>(l_cByte));
        }
        m_ahLibraries[l_uPlace] = cecore::LoadLibraryW(l_wstrName.c_str());
    }
    return m_ahLibraries[l_uPlace];
}

template <typename F>
void CCapture::Write(F&& i_fnRecord)
{
    const CNotCancelled l_NoCancelling;
    try {
        const std::lock_guard l_Lock(m_Mutex);
        if (!m_bWriting) {
            return;
        }
        const S_CAPTURE_RECORD l_Record = i_fnRecord();
        if (const int l_lError = m_Writer.Write(l_Record); l_lError != 0) {
            GiveUp(std::string("the file cannot be written: ") + std::strerror(l_lError));
        }
    } catch (...) {
        m_bWriting = false; // no memory: a gap that nothing shows would be worse than an end
    }
}

uint32_t CCapture::NoteCall(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction,
                            std::vector<uint32_t> i_vWords, std::vector<uint8_t> i_vData)
{
    uint32_t l_ulCall = 0;
    Write([&] {
        if (m_mapThreads.size() > k_uMaxKnown) {
            m_mapThreads.clear();
        }
        const auto l_ulThread = static_cast<uint32_t>(m_mapThreads.size() + 1);
        l_ulCall = ++m_ulCalls;
        if (i_vWords.size() > wire::CaptureControlEvent &&
            IsSend(i_vWords[wire::CaptureControlCode])) {
            if (m_mapEvents.size() > k_uMaxKnown) {
                m_mapEvents.clear();
            }
            m_mapEvents[i_vWords[wire::CaptureControlEvent]] = l_ulCall;
        }
        return S_CAPTURE_RECORD{
            wire::E_CAPTURE_KIND::Call,
            i_eLibrary,
            i_eFunction,
            l_ulCall,
            m_mapThreads.try_emplace(std::this_thread::get_id(), l_ulThread).first->second,
            Now(),
            std::move(i_vWords),
            std::move(i_vData)};
    });
    return l_ulCall;
}

uint32_t CCapture::NoteControl(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction,
                               const S_CONTROL& i_Control, uint32_t i_ulDevice, uint32_t i_ulZero,
                               uint32_t i_ulHandle)
{
    const auto* l_pucIn = static_cast<const uint8_t*>(i_Control.pIn);
    size_t l_uLength = l_pucIn == nullptr ? 0 : i_Control.ulInSize;
    uint32_t l_ulEvent = 0;
    if (IsSend(i_Control.ulCode) && l_uLength == RS_BLOCK_SIZE) {
        // Behind the frame stand remains of earlier ones.
        l_uLength = size_t{RS_FRAME_OUTER_HEAD} + wire::ReadLe16(l_pucIn + RS_FRAME_SIZE_OFFSET);
        l_ulEvent = wire::ReadLe32(l_pucIn + RS_BLOCK_EVENT_OFFSET);
    }
    l_uLength = std::min<size_t>(l_uLength, wire::k_ulCaptureMaxData);
    const uint32_t l_ulPointers = (l_pucIn != nullptr ? 1U : 0U) |
                                  (i_Control.pOut != nullptr ? 2U : 0U) |
                                  (i_Control.pulCount != nullptr ? 4U : 0U);
    return NoteCall(i_eLibrary, i_eFunction,
                    {i_ulDevice, i_Control.ulConstant, i_Control.ulCode, i_Control.ulInSize,
                     i_Control.ulOutSize, i_ulZero, l_ulPointers, i_ulHandle, l_ulEvent},
                    std::vector<uint8_t>(l_pucIn, l_pucIn + l_uLength));
}

void CCapture::NoteReturn(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, uint32_t i_ulCall,
                          uint32_t i_ulResult, const uint32_t* i_pulCount,
                          const std::function<std::vector<uint8_t>()>& i_fnData)
{
    const uint32_t l_ulError = cecore::GetLastError();
    Write([&] {
        return S_CAPTURE_RECORD{wire::E_CAPTURE_KIND::Return,
                                i_eLibrary,
                                i_eFunction,
                                i_ulCall,
                                0,
                                Now(),
                                {i_ulResult, l_ulError, i_pulCount == nullptr ? 0 : *i_pulCount},
                                i_fnData ? i_fnData() : std::vector<uint8_t>()};
    });
    ::SetLastError(l_ulError);
}

std::vector<uint8_t> CCapture::OutBytes(const S_CONTROL& i_Control)
{
    const auto* l_pucOut = static_cast<const uint8_t*>(i_Control.pOut);
    return {l_pucOut, l_pucOut + (l_pucOut == nullptr
                                      ? 0
                                      : std::min(i_Control.ulOutSize, wire::k_ulCaptureMaxData))};
}

std::vector<uint8_t> CCapture::Delivered(const S_CONTROL& i_Control,
                                         const std::vector<uint8_t>& i_vBefore)
{
    // A count may say less than was written: the last byte that changed counts too.
    size_t l_uLength = i_vBefore.size();
    const auto* l_pucOut = static_cast<const uint8_t*>(i_Control.pOut);
    while (l_uLength > 0 && l_pucOut[l_uLength - 1] == i_vBefore[l_uLength - 1]) {
        --l_uLength;
    }
    if (i_Control.pulCount != nullptr) {
        l_uLength = std::max(l_uLength, std::min<size_t>(*i_Control.pulCount, i_vBefore.size()));
    }
    return {l_pucOut, l_pucOut + l_uLength};
}

int CCapture::WatchEvent(uint32_t i_ulHandle, int (*i_pFnSetEvent)(uint32_t))
{
    CCapture* l_pCapture = s_pCapture;
    return l_pCapture == nullptr ? i_pFnSetEvent(i_ulHandle)
                                 : l_pCapture->NoteEvent(i_ulHandle, i_pFnSetEvent);
}

int CCapture::NoteEvent(uint32_t i_ulHandle, int (*i_pFnSetEvent)(uint32_t))
{
    // Whoever waits is not kept waiting for the record, whose time is that of the announcement.
    const uint64_t l_ullTime = Now();
    const int l_lResult = i_pFnSetEvent(i_ulHandle);
    const uint32_t l_ulError = cecore::GetLastError();
    Write([&] {
        const auto l_itSend = m_mapEvents.find(i_ulHandle);
        return S_CAPTURE_RECORD{wire::E_CAPTURE_KIND::Event,
                                E_LIBRARY::Serial,
                                E_FUNCTION::None,
                                l_itSend == m_mapEvents.end() ? 0 : l_itSend->second,
                                0,
                                l_ullTime,
                                {i_ulHandle, static_cast<uint32_t>(l_lResult)},
                                {}};
    });
    ::SetLastError(l_ulError);
    return l_lResult;
}

CCapture& TheCapture()
{
    static const COfOneProcess<CCapture> s_Capture;
    return *s_Capture;
}

} // namespace links
