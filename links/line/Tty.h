/**
 * @file Tty.h
 * @brief A serial port, or a pseudo terminal, held for ourselves alone.
 */
#pragma once

#include "wire/Descriptor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <termios.h>

namespace links {

/** How a port is set. No parity, one stop bit, no flow control. */
struct S_PORT_SETTINGS
{
    uint32_t ulBaudRate = 0; /**< one of the rates that the system knows */
    uint32_t ulDataBits = 8; /**< 5 to 8 */
};

/** Why a port did not open. */
struct S_TTY_ERROR
{
    uint32_t ulError = 0; /**< number for the last error: 2, 5, 8, 31, 87 or 170 */
    std::string strText;  /**< for people, with the name of the port */
};

/** Makes a terminal carry bytes as they are, at the rate it has. False: errno says why. */
bool MakeRaw(int i_lFd);

/**
 * An open port: raw, at a rate, exclusively ours. At the end of its life it is given back with the
 * settings that it had; bytes that were not sent by then are thrown away, so that a closing never
 * waits for the line.
 */
class CTty
{
public:
    /**
     * Opens a port. Never waits for a carrier.
     *
     * A port that another program has opened exclusively or locked, this library's included, is
     * refused with error 170; one that does not take the settings with 87.
     *
     * @param[out] o_Error what is wrong, if the result is null.
     */
    static std::unique_ptr<CTty> Open(const std::string& i_strPath,
                                      const S_PORT_SETTINGS& i_Settings, S_TTY_ERROR& o_Error);

    CTty(const CTty&) = delete;
    CTty& operator=(const CTty&) = delete;
    ~CTty();

    /** Non-blocking, for reading and writing. */
    [[nodiscard]] int Fd() const { return m_Fd.Get(); }

    /** Whether the other side, or the port itself, is gone by now. */
    [[nodiscard]] bool HasHungUp() const;

private:
    explicit CTty(int i_lFd) : m_Fd(i_lFd) {}
    uint32_t Claim(const S_PORT_SETTINGS& i_Settings);

    wire::CDescriptor m_Fd;
    std::optional<termios> m_oBefore;
};

} // namespace links
