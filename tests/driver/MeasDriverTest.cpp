#include "driver/MeasDriver.h"

#include <algorithm>
#include <filesystem>
#include <tuple>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "BareDriver.h"
#include "TestHome.h"
#include "TestRecord.h"
#include "driver/ModuleFolder.h"
#include "platform/Reason.h"

using namespace tornval;

namespace {

/** The base with the least that makes it a driver, its inside open. */
class CPlainDriver : public CBareDriver<CMeasDriver>
{
public:
    explicit CPlainDriver(uint32_t i_ulNbChannel = 0) : CBareDriver(i_ulNbChannel) {}

    using CMeasDriver::m_hDriverDll;
    using CMeasDriver::m_pulVoies;
    using CMeasDriver::m_ulDriverType;
    using CMeasDriver::SetDriverName;
    using CMeasDriver::SetIdentity;

    S_RESULT GetInstantMeasure(int32_t*, uint32_t, uint8_t, uint32_t) override { return {}; }
    /** Shows all that it is given. */
    void ScaleSample(int32_t* o_plValue, uint32_t i_ulChannel, uint32_t i_ulHighRange,
                     uint16_t i_usSample) override
    {
        *o_plValue = static_cast<int32_t>(1000000 * i_ulChannel + 100000 * i_ulHighRange) +
                     static_cast<int16_t>(i_usSample);
    }
};

/** One that tells its scaling, here another one: 7 times the value. */
class CBulkDriver : public CPlainDriver
{
public:
    CBulkDriver() : CPlainDriver(1) { ScaleInBulk<CPlainDriver>(this); }

protected:
    bool GetScaling(S_SCALING& o_Scaling) const override
    {
        o_Scaling.aChannels[0].lLow = 7;
        return true;
    }
};

/** A class below it, with a ScaleSample of its own and nothing else. */
class COwnScaleDriver final : public CBulkDriver
{
public:
    void ScaleSample(int32_t* o_plValue, uint32_t, uint32_t, uint16_t i_usSample) override
    {
        *o_plValue = 1000 + i_usSample;
    }
};

} // namespace

TEST(MeasDriver, AnswersByDefault)
{
    CPlainDriver l_Driver;
    EXPECT_FALSE(l_Driver.IsInitialised());
    l_Driver.m_ulDriverType = 2;
    EXPECT_EQ(l_Driver.CreateDriverInstance(), Failed(ROUTER, LIBRARY));
    EXPECT_EQ(l_Driver.CurrentGeneratorBurst(1), Failed(ROUTER, NO_STEP));
    int32_t l_lFirst = 7, l_lSecond = 8, l_lThird = 9;
    EXPECT_EQ(l_Driver.GetMicroOhmMeasure(&l_lFirst, &l_lSecond, &l_lThird),
              Failed(ROUTER, NO_STEP));
    EXPECT_EQ(l_lFirst | l_lSecond | l_lThird, 0);
    EXPECT_EQ(l_Driver.GetMBCalibrationCoeff(nullptr, nullptr, 1), 0U);
    EXPECT_EQ(l_Driver.SetMBCalibration(nullptr, nullptr, nullptr, 1), Done(USB_PROBE, NO_STEP));
}

TEST(MeasDriver, TellsItsNames)
{
    CPlainDriver l_Driver;
    char l_aszText[260] = "old";
    l_Driver.GetDriverName(l_aszText);
    EXPECT_STREQ(l_aszText, "");
    l_Driver.SetIdentity(3, 4000, "IM");
    EXPECT_EQ(l_Driver.GetDriverID(), 4003U);
    l_Driver.GetDriverName(l_aszText);
    EXPECT_STREQ(l_aszText, "IM");
    for (const size_t l_ulLength : {259U, 5000U}) {
        l_Driver.SetDriverName(std::string(l_ulLength, 'n').c_str());
        l_Driver.GetDriverName(l_aszText);
        EXPECT_EQ(l_aszText, std::string(259, 'n')) << "a name that fits stays whole";
    }
    l_Driver.GetLinkType(l_aszText);
    EXPECT_STREQ(l_aszText, "IM");
    l_Driver.GetDriverName(nullptr);
    l_Driver.GetLinkType(nullptr);
}

TEST(MeasDriver, HoldsTheFirstLibraryAndGivesAllBack)
{
    const CTestHome l_Home;
    const std::string l_strLibrary = l_Home.Path("link.dll");
    std::filesystem::copy_file(TEST_ANSWER, l_strLibrary);
    l_Home.Write("text.dll", "no library");
    const uint32_t l_ulHandles = cecore::GetOpenHandleCount();
    {
        CPlainDriver l_Driver;
        ::SetLastError(99);
        EXPECT_EQ(l_Driver.LoadDriver(nullptr), Failed(ROUTER, LIBRARY));
        EXPECT_EQ(l_Driver.LoadDriver(L""), Failed(ROUTER, LIBRARY, {.ulError = 126}));
        EXPECT_EQ(l_Driver.LoadDriver(L"text.dll"), Failed(ROUTER, LIBRARY, {.ulError = 193}));
        EXPECT_EQ(l_Driver.m_hDriverDll, nullptr);
        EXPECT_EQ(l_Driver.LoadDriver(L"link.dll"), Done(ROUTER, LIBRARY));
        cecore::ModuleHandle const l_hFirst = l_Driver.m_hDriverDll;
        EXPECT_EQ(l_Driver.LoadDriver(L"none.dll"), Done(ROUTER, LIBRARY));
        EXPECT_EQ(l_Driver.LoadDriver(nullptr), Failed(ROUTER, LIBRARY));
        EXPECT_EQ(l_Driver.m_hDriverDll, l_hFirst);
        l_Driver.m_pulVoies = new uint32_t[3];
        l_Driver.LockDriver(); // twice by one thread, and closed while held
        l_Driver.LockDriver();
        EXPECT_EQ(cecore::GetOpenHandleCount(), l_ulHandles + 1);
    }
    EXPECT_EQ(dlopen(l_strLibrary.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "freed";
    EXPECT_EQ(cecore::GetOpenHandleCount(), l_ulHandles);
}

TEST(MeasDriver, DecodesOneCode)
{
    const uint8_t l_aucCode[] = {0x2F, 0xFF};
    uint16_t l_usValue = 9;
    uint8_t l_ucRange = 9;
    EXPECT_EQ(CMeasDriver::DecompressSample(nullptr, 1, 0, &l_usValue, &l_ucRange), 0U);
    EXPECT_EQ(CMeasDriver::DecompressSample(l_aucCode, 1, 0, nullptr, &l_ucRange), 0U);
    EXPECT_EQ(CMeasDriver::DecompressSample(l_aucCode, 1, 0, &l_usValue, nullptr), 0U);
    EXPECT_TRUE(l_usValue == 9 && l_ucRange == 9) << "nothing touched";
    EXPECT_EQ(CMeasDriver::DecompressSample(l_aucCode, 1, 0, &l_usValue, &l_ucRange), 2U);
    EXPECT_TRUE(l_usValue == 0x0FFF && l_ucRange == 1);
}

TEST(MeasDriver, DecodesChannelsThroughItsScale)
{
    CPlainDriver l_Driver(2);
    const uint8_t l_aucData[] = {0x01, 0x00, 0x2F, 0xFF, 0x81, 0xC1, 0x81, 0x81, 0x12};
    int32_t l_alSamples[2][4] = {{-1, -1, -1, -1}, {-1, -1, -1, -1}};
    int32_t* l_aplArrays[2] = {l_alSamples[0], l_alSamples[1]};
    int32_t l_alCounts[2] = {-1, -1};
    const auto l_fnDecode = [&](uint32_t i_ulChannels, uint32_t i_ulMax) {
        return l_Driver.DecompressSamplesMultiChannel(l_aucData, 9, l_aplArrays, i_ulChannels,
                                                      l_alCounts, i_ulMax);
    };
    EXPECT_EQ(l_fnDecode(3, 4), 0U);
    EXPECT_EQ(l_fnDecode(~0U, 4), 0U);
    EXPECT_EQ(l_Driver.DecompressSamplesMultiChannel(l_aucData, 9, nullptr, 2, l_alCounts, 4), 0U);
    EXPECT_EQ(l_Driver.DecompressSamplesMultiChannel(l_aucData, 9, l_aplArrays, 2, nullptr, 4), 0U);
    EXPECT_TRUE(l_alCounts[0] == -1 && l_alCounts[1] == -1 && l_alSamples[0][0] == -1);
    // The last byte is half a code: no sample.
    EXPECT_EQ(l_fnDecode(2, 4), 6U);
    EXPECT_TRUE(l_alCounts[0] == 3 && l_alCounts[1] == 3 && l_alSamples[0][3] == -1);
    EXPECT_TRUE(l_alSamples[0][2] == 258 && l_alSamples[1][2] == 1104095);
    EXPECT_EQ(l_fnDecode(2, 1), 2U);
    EXPECT_EQ(l_fnDecode(2, 0), 0U);
    EXPECT_TRUE(l_alCounts[0] == 0 && l_alCounts[1] == 0);
}

TEST(MeasDriver, AsksScaleSampleWhereTheClassHasNotSaidWhatItDoes)
{
    const auto l_fnDecode = [](CMeasDriver&& io_Driver) {
        const uint8_t l_aucData[] = {0x01, 0x00, 0x82};
        int32_t l_alSamples[2] = {}, l_lCount = 0;
        int32_t* l_plArray = l_alSamples;
        EXPECT_EQ(
            io_Driver.DecompressSamplesMultiChannel(l_aucData, 3, &l_plArray, 1, &l_lCount, 2), 2U);
        EXPECT_EQ(l_lCount, 2);
        return std::pair(l_alSamples[0], l_alSamples[1]);
    };
    EXPECT_EQ(l_fnDecode(CPlainDriver(1)), std::pair(256, 258));
    EXPECT_EQ(l_fnDecode(CBulkDriver()), std::pair(7 * 256, 7 * 258));
    EXPECT_EQ(l_fnDecode(COwnScaleDriver()), std::pair(1256, 1258));
}

TEST(ModuleFolder, EndsInOneBackslash)
{
    const CTestHome l_Home("[IM]\nK=1");
    CConfigFile l_Config;
    EXPECT_EQ(LoadModuleConfiguration(l_Config), 0U);
    EXPECT_EQ(l_Config.GetInt("IM", "K", 0), 1U);
    const std::tuple<std::string, uint32_t, std::wstring> l_aCases[] = {
        {"/opt/host", 260, L"\\opt\\host\\"},
        {"/opt/host//", 260, L"\\opt\\host\\"},
        {"/", 260, L"\\"},
        {"caf\xE9", 260, L"caf\xE9\\"},
        {std::string(20, 'x'), 8, L"\\hd01\\"}, // no backslash in what fits
        {"no", 3, L"\\h"},
        {"no", 1, L""}};
    for (const auto& [l_strHome, l_ulSize, l_strExpected] : l_aCases) {
        setenv("TORNVAL_HOME", l_strHome.c_str(), 1);
        std::wstring l_strFolder(300, L'#');
        GetModuleFolder(l_strFolder.data(), l_ulSize);
        EXPECT_EQ(l_strFolder.c_str(), l_strExpected);
        EXPECT_EQ(l_strFolder[l_ulSize], L'#');
    }
    GetModuleFolder(nullptr, 260);
    for (const size_t l_ulLength : {100U, 200U, 230U, 300U, 5000U}) {
        setenv("TORNVAL_HOME", l_Home.Path(std::string(l_ulLength, 'y')).c_str(), 1);
        EXPECT_NE(LoadModuleConfiguration(l_Config), 0U) << "not that of the folder above";
    }
    // A path of 259 characters is the longest.
    for (const size_t l_ulLength : {259U, 260U}) {
        cecore::ForgetReasons();
        std::string l_strHome = l_Home.Path(std::string(100, 'y'));
        l_strHome += "/" + std::string(l_ulLength - l_strHome.size() - 16, 'z');
        std::filesystem::create_directories(l_strHome);
        std::ofstream(l_strHome + "/TornvalC63.ini") << "[IM]\n";
        setenv("TORNVAL_HOME", l_strHome.c_str(), 1);
        EXPECT_EQ(LoadModuleConfiguration(l_Config), l_ulLength == 259 ? 0U : 206U);
        CECORE_REASON l_Reason{};
        EXPECT_EQ(CeGetReasons(&l_Reason, 1), l_ulLength == 259 ? 0U : 1U);
        EXPECT_EQ(l_Reason.code, l_ulLength == 259 ? 0U : 206U);
    }
    unsetenv("TORNVAL_HOME");
    wchar_t l_awszOwn[260];
    GetModuleFolder(l_awszOwn, 260);
    std::string l_strOwn = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "";
    std::replace(l_strOwn.begin(), l_strOwn.end(), '/', '\\');
    EXPECT_EQ(l_awszOwn, std::wstring(l_strOwn.begin(), l_strOwn.end()));
}
