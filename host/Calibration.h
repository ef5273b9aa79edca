/**
 * @file Calibration.h
 * @brief The pairs a, b of the board: read, kept in a file, written so that nothing is lost.
 */
#pragma once

#include "Session.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/** Measuring inputs of the board. */
constexpr uint32_t k_ulNbInputs = 13;

/** The pairs of all inputs. A measure is (x * a + b) * 0.0001. */
struct S_PAIRS
{
    std::array<double, k_ulNbInputs> adA{};
    std::array<double, k_ulNbInputs> adB{};
};

/** One pair that is to be written. */
struct S_NEW_PAIR
{
    uint32_t ulInput;
    double dA;
    double dB;
};

/** How pairs are written. */
struct S_WRITE_OPTIONS
{
    /** Writes what is unusual too: a factor of 0, numbers that the board rounds. */
    bool bYes = false;
    bool bDryRun = false;
    bool bVerify = false;
    /** File for the pairs as they were before; empty: a new one in the working folder. */
    std::string strKeep;
};

/** The pairs as the board delivered them at the load. @throws S_FAILURE. */
S_PAIRS ReadPairs();

/** Prints a pair as a row and puts it into a list. */
void TellPair(CProgram& io_Program, nlohmann::json& io_List, uint32_t i_ulInput, double i_dA,
              double i_dB);

/** The head of such rows. */
std::string PairHead();

/** Writes the pairs to a file: comment lines, "input,a,b", a row per input. @throws S_FILE_ERROR. */
void SavePairs(const std::string& i_strPath, const S_PAIRS& i_Pairs, const S_DRIVER& i_Board,
               bool i_bForce);

/** Reads such a file. @throws S_FILE_ERROR, also if it is none. */
std::vector<S_NEW_PAIR> LoadPairs(const std::string& i_strPath);

/**
 * Checks everything that the write will need, keeps the old pairs in a file, writes, and restarts the
 * board. After a failure it says what the board holds.
 *
 * @throws S_FAILURE, S_FILE_ERROR.
 */
void WritePairs(CProgram& io_Program, const std::vector<S_NEW_PAIR>& i_vPairs,
                const S_WRITE_OPTIONS& i_Options);

/** Adds --yes, --dry-run, --verify, --keep. */
void AddWriteOptions(CCommand i_Command, S_WRITE_OPTIONS& io_Options);

// Each adds its command to "calibration".
void AddCalibrationReadCommands(CCommand i_Calibration, CProgram& io_Program);
void AddCalibrationSetCommand(CCommand i_Calibration, CProgram& io_Program);
void AddCalibrationRestoreCommand(CCommand i_Calibration, CProgram& io_Program);

} // namespace host
