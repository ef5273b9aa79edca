/**
 * @file Pty.h
 * @brief A pseudo terminal whose far side plays the serial port of an instrument.
 */
#pragma once

#include "wire/Descriptor.h"

#include <optional>
#include <string>

namespace emulator {

/**
 * Both sides of a pseudo terminal. The far side is held open too, so that the near one goes on when
 * a program closes the terminal and opens it again.
 */
class CPty
{
public:
    /** None: the system has no pseudo terminal to give; errno says why. */
    static std::optional<CPty> Make();

    /** The near side: raw, non-blocking. */
    [[nodiscard]] int Fd() const { return m_Near.Get(); }
    /** Name of the terminal that the others open. */
    [[nodiscard]] const std::string& Name() const { return m_strName; }

private:
    wire::CDescriptor m_Near;
    wire::CDescriptor m_Far;
    std::string m_strName;
};

} // namespace emulator
