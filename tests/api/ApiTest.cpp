// The exported functions over the simulated instrument: what a host sees of routing and records.

#include <array>
#include <thread>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "TestRecord.h"
#include "driver/Records.h"

namespace {

constexpr const char* k_pszSimu = "[IM]\nSIMU=1\n[LOG]\nENABLE=1\nTYPE=0\nLEVEL=4369\n";

} // namespace

TEST(Api, ListsDriversAtAnyAddress)
{
    const CTestHome l_Home(k_pszSimu);
    // IDs count on from load to load: the board's own, and the module's by the board's counter.
    LoadMeasDrivers(0x11);
    LoadMeasDrivers(0x11);
    alignas(8) std::array<uint8_t, 2 * 104 + 3> l_aucBytes{};
    l_aucBytes.fill(0xEE);
    uint32_t l_ulCount = 0;
    EXPECT_EQ(
        EnumMeasDrivers(reinterpret_cast<S_DRIVER_INFO*>(l_aucBytes.data() + 1), 2, &l_ulCount),
        1U);
    EXPECT_STREQ(reinterpret_cast<const char*>(l_aucBytes.data() + 1), "IM");
    EXPECT_STREQ(reinterpret_cast<const char*>(l_aucBytes.data() + 105 + 50), "MO");
    EXPECT_EQ(wire::ReadLe32(l_aucBytes.data() + 1 + 100), 4001U);
    EXPECT_EQ(wire::ReadLe32(l_aucBytes.data() + 105 + 100), 5003U);
    EXPECT_EQ(l_aucBytes[0], 0xEE);
    EXPECT_EQ(l_aucBytes[209], 0xEE);
    for (const uint32_t l_ulRoom : {1U, 0U}) {
        auto* l_pInfo = reinterpret_cast<S_DRIVER_INFO*>(l_aucBytes.data());
        EXPECT_EQ(EnumMeasDrivers(l_pInfo, l_ulRoom, &l_ulCount), 1U);
        EXPECT_EQ(l_ulCount, l_ulRoom);
    }
    EXPECT_EQ(EnumMeasDrivers(nullptr, 2, &l_ulCount), 0U);
    EXPECT_EQ(l_ulCount, 0U);
    EXPECT_EQ(EnumMeasDrivers(reinterpret_cast<S_DRIVER_INFO*>(l_aucBytes.data()), 2, nullptr), 0U);
}

TEST(Api, MeasuresOnTheSimulatedInstrument)
{
    const CTestHome l_Home(k_pszSimu);
    LoadMeasDrivers(0x11);
    int32_t l_lValue = 0, l_lSecond = 7, l_lThird = 7;
    EXPECT_EQ(GetInstantMeasure(&l_lValue, 3), Done(BOARD, NO_STEP));
    EXPECT_EQ(l_lValue, 1234);
    l_lValue = 0;
    EXPECT_EQ(GetInstantMeasureWithoutCompensation(&l_lValue, 12), Done(BOARD, NO_STEP));
    EXPECT_EQ(l_lValue, 1234);
    EXPECT_EQ(CurrentGeneratorBurst(5), Done(BOARD, NO_STEP));
    EXPECT_EQ(GetAllMicroOhmMeasure(&l_lValue, &l_lSecond, &l_lThird), Done(MODULE, NO_STEP));
    EXPECT_EQ(l_lValue, 3333);
    EXPECT_EQ(l_lSecond + l_lThird, 0);
    l_lValue = 0;
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue).ulStatus, 0U);
    EXPECT_EQ(l_lValue, 3333);
    // Initialised already, so without force the router answers by itself.
    EXPECT_EQ(InitialiseMeasBoard(4000, 0), Done(ROUTER, INIT));
    EXPECT_EQ(InitialiseMeasBoard(4000, 2), Done(ROUTER, INIT));
    EXPECT_EQ(InitialiseMeasBoard(4000, 1), Done(BOARD, INIT));
    EXPECT_EQ(InitialiseMeasBoard(5001, 0), Done(ROUTER, NO_STEP));
    EXPECT_EQ(GetInstantMeasure(nullptr, 0), Failed(BOARD, NO_STEP));
    EXPECT_EQ(ResetMeasBoard(5001), Done(MODULE, CLOSE));
    EXPECT_EQ(ResetMeasBoard(4000), Done(BOARD, CLOSE));
    EXPECT_EQ(InitialiseMeasBoard(4000, 0), Done(BOARD, INIT));
}

TEST(Api, FailsCleanlyWithoutTheDriver)
{
    const CTestHome l_Home(k_pszSimu);
    int32_t l_lValue = 5, l_lSecond = 5, l_lThird = 5;
    double l_dA = 5;
    uint32_t l_ulIndex = 0;
    // The first call of the process builds the router, whichever it is.
    EXPECT_EQ(GetMBCalibrationCoeff(&l_dA, &l_dA, 1), 0U);
    for (const uint32_t l_ulID : {0U, 4000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        S_SEND_STRUCT l_Cmde{};
        S_RECEIVE_STRUCT l_Receive{};
        char l_cRaw = 0;
        EXPECT_EQ(InitialiseMeasBoard(l_ulID, 1), Failed(ROUTER, INIT));
        EXPECT_EQ(ResetMeasBoard(l_ulID), Failed(ROUTER, CLOSE));
        EXPECT_EQ(SendMeasBoardCmd(l_ulID, &l_Cmde, &l_Receive, nullptr), Failed(ROUTER, SEND));
        EXPECT_EQ(GetMeasBoardResult(l_ulID, 1, &l_cRaw, nullptr, nullptr, 0),
                  Failed(ROUTER, RESULT));
        EXPECT_EQ(GetInstantMeasureOnDevice(l_ulID, &l_lValue, 0, 0), Failed(ROUTER, NO_STEP));
    }
    const S_RESULT l_None = Failed(ROUTER, NO_STEP);
    EXPECT_EQ(GetInstantMeasure(&l_lValue, 0), l_None);
    EXPECT_EQ(GetInstantMeasureWithoutCompensation(&l_lValue, 0), l_None);
    EXPECT_EQ(CurrentGeneratorBurst(0), l_None);
    EXPECT_EQ(SetMBCalibration(&l_ulIndex, &l_dA, &l_dA, 1), l_None);
    EXPECT_EQ(GetAllMicroOhmMeasure(&l_lValue, &l_lSecond, &l_lThird), l_None);
    EXPECT_EQ(l_lValue + l_lSecond + l_lThird, 0);
    l_lValue = 5;
    EXPECT_EQ(GetMicroOhmMeasure(&l_lValue), l_None);
    EXPECT_EQ(l_lValue, 0);
    EXPECT_EQ(GetMicroOhmMeasure(nullptr), l_None);
    EXPECT_EQ(GetAllMicroOhmMeasure(nullptr, &l_lSecond, &l_lThird), l_None);
}

TEST(Api, TracesTheLoadInItsOrder)
{
    const CTestHome l_Home(k_pszSimu);
    S_SEND_STRUCT l_Cmde{};
    S_RECEIVE_STRUCT l_Receive{};
    SendMeasBoardCmd(1, &l_Cmde, &l_Receive, nullptr);
    LoadMeasDrivers(0x11);
    S_DRIVER_INFO l_Info{};
    uint32_t l_ulCount = 0;
    EnumMeasDrivers(&l_Info, 1, &l_ulCount);
    InitialiseMeasBoard(77, 1);
    GetMeasBoardResult(77, 0, nullptr, nullptr, nullptr, 0);
    // The entry line of the very first call came before there was a logger.
    EXPECT_EQ(l_Home.MaskedTrace(), R"(CRouter::SendCommand> DriverID:1 CMID:00 [INFO_GENERAL_LEVEL]
CRouter::GetDriverFromID> driver ID: 1 Nb Drivers: 0 [INFO_GENERAL_LEVEL]
CRouter::SendCommand> DriverNot Found [ERROR_LEVEL]
API::SendMeasBoardCmd> Error [ERROR_LEVEL]
CRouter::LoadMeasDriver> START [INFO_LEVEL]
CRouter::LoadMODriver> START [INFO_LEVEL]
CRouter::CreateDriver> DriverType: 4 [INFO_GENERAL_LEVEL]
C_MilliOhmDriverSerialSimu::CreateDriverInstance> [INFO_LEVEL]
CRouter::LoadMODriver> driver: # [INFO_LEVEL]
CRouter::InitAndAddDriverToMap> [INFO_LEVEL]
CRouter::InitAndAddDriverToMap> add driver to the map: id=5001 [INFO_LEVEL]
CRouter::LoadMODriver> STOP status=1 [INFO_LEVEL]
CRouter::LoadIMBDriver> START [INFO_LEVEL]
CRouter::CreateDriver> DriverType: 3 [INFO_GENERAL_LEVEL]
driver: # [INFO_LEVEL]
CRouter::InitAndAddDriverToMap> [INFO_LEVEL]
CRouter::InitAndAddDriverToMap> add driver to the map: id=4000 [INFO_LEVEL]
CRouter::LoadIMBDriver> STOP status=1 [INFO_LEVEL]
CRouter::LoadMeasDriver> STOP status=0 [INFO_LEVEL]
CRouter::EnumMeasDrivers> driver=# DriverID=4000 LinkType=IM DriverName=IM [INFO_LEVEL]
CRouter::InitDriver> DriverID=77 bForceInit=1 [INFO_LEVEL]
CRouter::GetDriverFromID> driver ID: 77 Nb Drivers: 2 [INFO_GENERAL_LEVEL]
CRouter::InitDriver> Driver 77 Not found [ERROR_LEVEL]
API::GetMeasBoardResult> DriverID=77 [INFO_LEVEL]
CRouter::GetDriverFromID> driver ID: 77 Nb Drivers: 2 [INFO_GENERAL_LEVEL]
API::GetMeasBoardResult> Error [ERROR_LEVEL]
)");
}

TEST(Api, FirstCallsOfManyThreadsBuildOneRouter)
{
    const CTestHome l_Home(k_pszSimu);
    std::vector<std::thread> l_vThreads;
    for (int i = 0; i < 8; ++i) {
        l_vThreads.emplace_back([] {
            S_DRIVER_INFO l_Info{};
            uint32_t l_ulCount = 1;
            for (int j = 0; j < 50; ++j) {
                EXPECT_EQ(EnumMeasDrivers(&l_Info, 1, &l_ulCount), 1U);
                EXPECT_EQ(l_ulCount, 0U);
            }
        });
    }
    for (std::thread& l_Thread : l_vThreads) {
        l_Thread.join();
    }
}
