/**
 * @file LiveCommands.h
 * @brief The commands that show the instrument live.
 */
#pragma once

#include "Program.h"

namespace host {

void AddServeCommand(CCommand i_Parent, CProgram& io_Program);
void AddMonitorCommand(CCommand i_Parent, CProgram& io_Program);

} // namespace host
