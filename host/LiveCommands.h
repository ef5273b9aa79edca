/**
 * @file LiveCommands.h
 * @brief The commands that show the instrument live.
 */
#pragma once

#include "Program.h"

namespace host {

void AddServeCommand(CLI::App& io_App, CProgram& io_Program);
void AddMonitorCommand(CLI::App& io_App, CProgram& io_Program);

} // namespace host
