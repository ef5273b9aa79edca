/**
 * @file ProbeCommands.h
 * @brief The commands of "tornval probe"; each is added by its own file.
 */
#pragma once

#include "Program.h"

namespace host {

void AddProbeMeasureCommand(CCommand i_Probe, CProgram& io_Program);
void AddProbeRecordCommand(CCommand i_Probe, CProgram& io_Program);

} // namespace host
