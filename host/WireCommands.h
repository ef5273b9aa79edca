/**
 * @file WireCommands.h
 * @brief The commands for what passes between drivers and link libraries.
 */
#pragma once

#include "Program.h"

namespace host {

void AddCaptureCommands(CCommand i_Parent, CProgram& io_Program);
void AddWireCommand(CCommand i_Parent, CProgram& io_Program);

} // namespace host
