/**
 * @file WireCommands.h
 * @brief The commands for what passes between drivers and link libraries.
 */
#pragma once

#include "Program.h"

namespace host {

void AddCaptureCommands(CLI::App& io_App, CProgram& io_Program);
void AddWireCommand(CLI::App& io_App, CProgram& io_Program);

} // namespace host
