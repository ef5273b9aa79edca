/**
 * @file Instrument.h
 * @brief What every emulated instrument has: faults, settings, a recording to play.
 */
#pragma once

#include "emulator/Faults.h"
#include "emulator/Recording.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace emulator {

/** Base of the emulated instruments. All operations may be called from any thread at any time. */
class CInstrument
{
public:
    explicit CInstrument(E_INSTRUMENT i_eKind);
    virtual ~CInstrument();
    CInstrument(const CInstrument&) = delete;
    CInstrument& operator=(const CInstrument&) = delete;

    E_INSTRUMENT Kind() const { return m_eKind; }

    /** The faults that are dialled in. */
    CFaults& Faults() { return m_Faults; }
    const CFaults& Faults() const { return m_Faults; }

    /**
     * Applies a list of settings, separated by commas or line ends, in order. A setting is
     *  - a fault, in the form of Faults.h;
     *  - "clear": removes all faults;
     *  - "recording=PATH": the file to play (board and probe);
     *  - an option of the instrument's own, name=value; each class lists its own.
     * Blanks around a setting do not count; an empty one and one that begins with # is skipped.
     *
     * @param[out] o_strError what is wrong, if the result is false.
     * @return false at the first setting that is not understood; those before it are in force.
     */
    bool Configure(std::string_view i_Text, std::string& o_strError);

    /**
     * Applies one option, as it stands: its value may hold any character.
     *
     * @param[out] o_strError what is wrong, if the result is false.
     */
    bool Set(std::string_view i_Name, std::string_view i_Value, std::string& o_strError);

    /** Sets the signal that is played. Null is the built-in one. */
    void SetRecording(std::shared_ptr<const CRecording> i_pRecording);

    /** Power off and on: what the instrument does not store is forgotten. Faults stay. */
    virtual void Restart() = 0;

protected:
    /**
     * Applies an option of the instrument's own. False: no such option, or a bad value; o_strError
     * may then tell more.
     */
    virtual bool SetOption(std::string_view i_Name, std::string_view i_Value,
                           std::string& o_strError) = 0;

    /** The signal that is played, never null. Call it with m_Mutex held. */
    const CRecording& Recording() const { return *m_pRecording; }

    /** Guards the state of the instrument. */
    mutable std::mutex m_Mutex;

private:
    bool ApplySetting(std::string_view i_Setting, std::string& o_strError);

    const E_INSTRUMENT m_eKind;
    CFaults m_Faults;
    std::shared_ptr<const CRecording> m_pRecording;
};

} // namespace emulator
