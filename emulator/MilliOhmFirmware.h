/**
 * @file MilliOhmFirmware.h
 * @brief Firmware of the emulated milliohm module.
 *
 * Body of its answers: return code (16 bits, 1 good), then
 *
 * | command | payload | data of the answer                                       |
 * | ------- | ------- | -------------------------------------------------------- |
 * | 0xA1    | 2 bytes | measure status (8), three bytes 0, three values (32 each) |
 * | 0xFF    | any     | the version text and a zero                              |
 *
 * A refusal is a return code alone.
 */
#pragma once

#include "emulator/Firmware.h"

#include <array>
#include <cstdint>
#include <string>

namespace emulator {

/** Return codes of the module. */
enum E_MILLIOHM_RETURN : uint16_t
{
    k_usReturnGood = 1,
    k_usReturnUnknownCommand = 2, /**< neither 0xA1 nor 0xFF */
    k_usReturnLength = 3          /**< the payload is too short */
};

/**
 * The module. Options of its own for Configure():
 *  - "values=V1/V2/V3": the three values, signed; 123456/-2345/67 at first;
 *  - "version=TEXT": the version text; what does not fit the frame is cut.
 */
class CMilliOhmFirmware final : public CFirmware
{
public:
    CMilliOhmFirmware();

    void SetValues(const std::array<int32_t, 3>& i_alValues);
    void SetVersion(std::string i_strVersion);

    void Restart() override {}

protected:
    bool SetOption(std::string_view i_Name, std::string_view i_Value,
                   std::string& o_strError) override;
    S_BODY Execute(const S_REQUEST& i_Request) override;
    uint16_t AnswerId(uint8_t) const override { return 0; }

private:
    std::array<int32_t, 3> m_alValues{123456, -2345, 67};
    std::string m_strVersion = "Emulated milliohm module 1.0";
};

} // namespace emulator
