#include <array>

#include <gtest/gtest.h>

#include "platform/Device.h"
#include "platform/File.h"
#include "platform/Memory.h"
#include "platform/Registry.h"

using namespace cecore;

namespace {

/** A device that counts its handles, refuses on demand and echoes one code. */
class CEchoDevice final : public IDevice
{
public:
    bool Open() override
    {
        ::SetLastError(170);
        lOpen += bRefuses ? 0 : 1;
        return !bRefuses;
    }
    void Close() override { --lOpen; }
    bool IoControl(uint32_t i_ulCode, const void*, uint32_t, void*, uint32_t,
                   uint32_t* o_pulReturned) override
    {
        *o_pulReturned = i_ulCode;
        return i_ulCode == 77;
    }
    bool bRefuses = true;
    int lOpen = 0;
};

Handle OpenDevice()
{
    return CreateFileW(L"IMB1:", GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING, 0);
}

} // namespace

TEST(Devices, AreFoundByNameUsedAndClosed)
{
    const auto l_pDevice = std::make_shared<CEchoDevice>();
    EXPECT_EQ(OpenDevice(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), CECORE_ERROR_FILE_NOT_FOUND);
    RegisterDevice(L"Imb1:", l_pDevice);
    EXPECT_EQ(OpenDevice(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 170U) << "the device's own reason";
    l_pDevice->bRefuses = false;

    // An open for which there is no handle left is taken back.
    std::vector<CUniqueHandle> l_vOpen;
    for (Handle l_h = 0; (l_h = OpenDevice()) != INVALID_HANDLE_VALUE;) {
        l_vOpen.emplace_back(l_h);
    }
    EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_GT(l_vOpen.size(), 10000U);
    EXPECT_EQ(l_pDevice->lOpen, static_cast<int>(l_vOpen.size()));
    l_vOpen.clear();
    EXPECT_EQ(l_pDevice->lOpen, 0);

    const Handle l_hDevice = OpenDevice();
    UnregisterDevice(L"IMB1:");
    EXPECT_EQ(OpenDevice(), INVALID_HANDLE_VALUE);
    uint32_t l_ulReturned = 0;
    EXPECT_FALSE(DeviceIoControl(l_hDevice, 78, nullptr, 0, nullptr, 0, &l_ulReturned));
    EXPECT_TRUE(DeviceIoControl(l_hDevice, 77, nullptr, 0, nullptr, 0, &l_ulReturned));
    EXPECT_EQ(l_ulReturned, 77U);
    CloseHandle(l_hDevice);
    EXPECT_FALSE(DeviceIoControl(l_hDevice, 77, nullptr, 0, nullptr, 0, nullptr));
    EXPECT_EQ(GetLastError(), CECORE_ERROR_INVALID_HANDLE);
}

TEST(Registry, AnswersAsTheSystemDoes)
{
    Handle l_hKey = 0;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Drivers\\Imb", 0, &l_hKey), 2U);
    SetRegistryValue(L"Drivers\\Imb", L"Unit", "\3\0\0\0", 4);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE + 1, L"Drivers\\Imb", 0, &l_hKey), 6U);
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"DRIVERS\\imb", KEY_READ, &l_hKey), 0U);
    uint32_t l_ulValue = 9;
    uint32_t l_ulSize = 3;
    EXPECT_EQ(RegQueryValueExW(l_hKey, L"none", &l_ulValue, &l_ulSize), 2U);
    EXPECT_EQ(RegQueryValueExW(l_hKey, L"unit", &l_ulValue, &l_ulSize), 234U);
    EXPECT_TRUE(l_ulSize == 4 && l_ulValue == 9) << "the room that it takes, and nothing stored";
    EXPECT_EQ(RegQueryValueExW(l_hKey, L"UNIT", &l_ulValue, &l_ulSize), 0U);
    EXPECT_TRUE(l_ulSize == 4 && l_ulValue == 3);
    EXPECT_TRUE(CloseHandle(l_hKey));
    EXPECT_EQ(RegQueryValueExW(l_hKey, L"unit", &l_ulValue, &l_ulSize), 6U);
}

TEST(Memory, IsReportedAtTheTargetsScale)
{
    // In MiB: total and available, what is reported of them, and the load.
    const std::array<uint32_t, 5> l_aulCases[] = {{16384, 9000, 512, 256, 50},
                                                  {16384, 128, 512, 128, 75},
                                                  {16384, 0, 512, 0, 100},
                                                  {256, 256, 256, 128, 50}};
    S_MEMORYSTATUS l_Status{};
    for (const auto& l_aul : l_aulCases) {
        ScaleMemoryStatus(uint64_t{l_aul[0]} << 20, uint64_t{l_aul[1]} << 20, &l_Status);
        EXPECT_EQ(l_Status.dwTotalPhys, l_aul[2] << 20);
        EXPECT_EQ(l_Status.dwAvailPhys, l_aul[3] << 20);
        EXPECT_EQ(l_Status.dwMemoryLoad, l_aul[4]);
    }
    const S_MEMORYSTATUS l_Override{32, 91, 1000, 90};
    OverrideMemoryStatus(&l_Override);
    GlobalMemoryStatus(&l_Status);
    EXPECT_TRUE(l_Status.dwMemoryLoad == 91 && l_Status.dwAvailPhys == 90);
    OverrideMemoryStatus(nullptr);
    GlobalMemoryStatus(&l_Status);
    EXPECT_TRUE(l_Status.dwMemoryLoad >= 50 && l_Status.dwMemoryLoad <= 100);
    EXPECT_GT(l_Status.dwTotalPhys, 16U << 20) << "the machine's own table was read";
}
