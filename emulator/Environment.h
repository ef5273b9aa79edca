/**
 * @file Environment.h
 * @brief Settings that an instrument takes from the environment of its process.
 *
 * For an instrument that stands behind a loaded library, out of its test's direct reach. With NAME
 * being BOARD, MILLIOHM, BT or USB:
 *
 *  - TORNVAL_EMULATOR_RECORDING: the file to play;
 *  - TORNVAL_EMULATOR_STATE: the file that stores the board's calibration;
 *  - TORNVAL_EMULATOR_NAME: settings, applied at the first open of a link after the library was
 *    loaded and, if they have changed since, at a later one; the faults in force end then;
 *  - TORNVAL_EMULATOR_CONTROL: a folder. A file in it named board, milliohm, bt or usb holds
 * settings too; it is taken in, and removed, at the next call of the library. Write it under
 * another name and rename it, so that it is never seen half written.
 */
#pragma once

#include "emulator/Instrument.h"

#include <mutex>
#include <string>

namespace emulator {

/** The environment of one instrument. Safe to use from any thread. */
class CEnvironment
{
public:
    /**
     * @param i_Instrument the instrument to set; must live longer.
     * @param i_strName    its name in small letters, as a control file is called.
     */
    CEnvironment(CInstrument& i_Instrument, std::string i_strName);

    /**
     * Takes in the variables. Each one is applied when it differs from what was applied last.
     *
     * @param[out] o_strError what is wrong, if the result is false.
     */
    bool ReadVariables(std::string& o_strError);

    /**
     * Takes in and removes the control file, if there is one.
     *
     * @param[out] o_strError what is wrong with it, if the result is false. It is removed all the
     *                        same.
     */
    bool ReadControl(std::string& o_strError);

private:
    CInstrument& m_Instrument;
    const std::string m_strName;
    std::mutex m_Mutex;
    std::string m_strRecording;
    std::string m_strSettings;
    std::string m_strStore;
};

} // namespace emulator
