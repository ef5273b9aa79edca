/**
 * @file ProbeCommands.h
 * @brief The commands of "tornval probe"; each is added by its own file.
 */
#pragma once

#include "Program.h"

namespace host {

void AddProbeMeasureCommand(CLI::App& io_Probe, CProgram& io_Program);
void AddProbeRecordCommand(CLI::App& io_Probe, CProgram& io_Program);

} // namespace host
