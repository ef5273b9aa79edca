/**
 * @file Capture.h
 * @brief A link library that stands in front of others and records what passes.
 */
#pragma once

#include "links/LinkCall.h"
#include "platform/Module.h"
#include "wire/Capture.h"
#include "wire/Guarded.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace links {

/**
 * Hands each call on to the link library that the configuration names, section CAPTURE, and writes
 * call, return and announced events to its file. What the caller gets is what the other library gave,
 * the last-error value included. A record that cannot be written is given up, never an answer.
 *
 * All operations may be called from any thread; only the writing of records is one at a time.
 */
class CCapture
{
public:
    using E_LIBRARY = wire::E_CAPTURE_LIBRARY;
    using E_FUNCTION = wire::E_CAPTURE_FUNCTION;

    CCapture();
    CCapture(const CCapture&) = delete;
    CCapture& operator=(const CCapture&) = delete;
    ~CCapture();

    /**
     * An open or a close.
     *
     * @param i_pwszEntry name of the entry point.
     * @param i_vWords    the arguments.
     * @param i_fnCall    calls the entry point.
     * @param i_pulHandle word that the call fills; may be null.
     */
    template <typename T_FUNCTION, typename F>
    uint32_t Call(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, const wchar_t* i_pwszEntry,
                  std::vector<uint32_t> i_vWords, std::vector<uint8_t> i_vData, F&& i_fnCall,
                  const uint32_t* i_pulHandle = nullptr)
    {
        T_FUNCTION l_pFn = nullptr;
        if (!Find(i_eLibrary, i_pwszEntry, l_pFn)) {
            return 0;
        }
        const uint32_t l_ulCall =
            NoteCall(i_eLibrary, i_eFunction, std::move(i_vWords), std::move(i_vData));
        const uint32_t l_ulResult = i_fnCall(l_pFn);
        NoteReturn(i_eLibrary, i_eFunction, l_ulCall, l_ulResult, i_pulHandle, {});
        return l_ulResult;
    }

    /** A control call. @param i_ulDevice first argument of a probe's. */
    template <typename T_FUNCTION, typename F>
    uint32_t Control(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, const wchar_t* i_pwszEntry,
                     const S_CONTROL& i_Control, uint32_t i_ulDevice, uint32_t i_ulZero,
                     uint32_t i_ulHandle, F&& i_fnCall)
    {
        T_FUNCTION l_pFn = nullptr;
        if (!Find(i_eLibrary, i_pwszEntry, l_pFn)) {
            return 0;
        }
        uint32_t l_ulCall = 0;
        std::vector<uint8_t> l_vBefore;
        try {
            l_ulCall =
                NoteControl(i_eLibrary, i_eFunction, i_Control, i_ulDevice, i_ulZero, i_ulHandle);
            l_vBefore = OutBytes(i_Control);
        } catch (...) {
            // Without memory for the record the call is made all the same.
        }
        const uint32_t l_ulResult = i_fnCall(l_pFn);
        NoteReturn(i_eLibrary, i_eFunction, l_ulCall, l_ulResult, i_Control.pulCount,
                   [&] { return Delivered(i_Control, l_vBefore); });
        return l_ulResult;
    }

private:
    template <typename T_FUNCTION>
    bool Find(E_LIBRARY i_eLibrary, const wchar_t* i_pwszEntry, T_FUNCTION& o_pFn)
    {
        const cecore::ModuleHandle l_hLibrary = Library(i_eLibrary);
        return l_hLibrary != nullptr && cecore::GetProcAddressInto(l_hLibrary, i_pwszEntry, o_pFn);
    }

    cecore::ModuleHandle Library(E_LIBRARY i_eLibrary);
    uint32_t NoteCall(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, std::vector<uint32_t> i_vWords,
                      std::vector<uint8_t> i_vData);
    uint32_t NoteControl(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, const S_CONTROL& i_Control,
                         uint32_t i_ulDevice, uint32_t i_ulZero, uint32_t i_ulHandle);
    void NoteReturn(E_LIBRARY i_eLibrary, E_FUNCTION i_eFunction, uint32_t i_ulCall,
                    uint32_t i_ulResult, const uint32_t* i_pulCount,
                    const std::function<std::vector<uint8_t>()>& i_fnData);
    int NoteEvent(uint32_t i_ulHandle, int (*i_pFnSetEvent)(uint32_t));
    template <typename F>
    void Write(F&& i_fnRecord);
    void GiveUp(const std::string& i_strWhy);
    [[nodiscard]] uint64_t Now() const;

    static std::vector<uint8_t> OutBytes(const S_CONTROL& i_Control);
    static std::vector<uint8_t> Delivered(const S_CONTROL& i_Control,
                                          const std::vector<uint8_t>& i_vBefore);
    static int WatchEvent(uint32_t i_ulHandle, int (*i_pFnSetEvent)(uint32_t));

    const std::chrono::system_clock::time_point m_Began = std::chrono::system_clock::now();
    const std::chrono::steady_clock::time_point m_BeganSteady = std::chrono::steady_clock::now();

    std::array<std::string, 3> m_astrNames;
    wire::CMutex m_LibraryMutex;
    std::array<cecore::ModuleHandle, 3> m_ahLibraries WIRE_GUARDED_BY(m_LibraryMutex){};

    std::mutex m_Mutex; // guards what follows
    wire::CCaptureWriter m_Writer;
    std::atomic<bool> m_bWriting{false};
    uint32_t m_ulCalls = 0;
    std::map<std::thread::id, uint32_t> m_mapThreads;
    std::map<uint32_t, uint32_t> m_mapEvents; // handle: the newest send that carried it
};

/** The capture of this process; goes when the library is unloaded. */
CCapture& TheCapture();

} // namespace links
