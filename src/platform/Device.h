/**
 * @file Device.h
 * @brief The device table: device files are objects of this process, registered under a name.
 */
#pragma once

#include <memory>

#include "Api.h"

namespace cecore {

/** One device that CreateFileW finds by its name. Its operations may come from any thread. */
class IDevice
{
public:
    virtual ~IDevice() = default;

    /** A handle is about to be opened. @return false, with the last error set, to refuse. */
    virtual bool Open() = 0;
    /** A handle was closed. */
    virtual void Close() {}
    /**
     * @param[out] o_pulReturned bytes delivered; never null.
     * @return false with the last error set on failure.
     */
    virtual bool IoControl(uint32_t i_ulCode, const void* i_pIn, uint32_t i_ulInSize, void* o_pOut,
                           uint32_t i_ulOutSize, uint32_t* o_pulReturned) = 0;
};

/** Registers a device, as "COM1:" say; it takes the place of one of the same name. */
CECORE_API void RegisterDevice(const wchar_t* i_pwszName, std::shared_ptr<IDevice> i_pDevice);

/** Takes a device out of the table; handles that are open keep it alive. */
CECORE_API void UnregisterDevice(const wchar_t* i_pwszName);

/**
 * One control call on an open device.
 *
 * @return false with the last error set: 6 if the handle is no device, else the device's own.
 */
CECORE_API bool DeviceIoControl(Handle i_hDevice, uint32_t i_ulCode, const void* i_pIn,
                                uint32_t i_ulInSize, void* o_pOut, uint32_t i_ulOutSize,
                                uint32_t* o_pulReturned);

} // namespace cecore
