// The exported functions: each hands its arguments to the router and gives the record back.

#include "TornvalC63.h"

#include <type_traits>

#include <cxxabi.h>

#include "api/Router.h"
#include "support/Trace.h"

namespace {

using tornval::CRouter;
using tornval::Trace;

/** The failure of a stage, where no driver's record tells more. */
template <typename T>
T Failed(uint32_t i_ulStep)
{
    if constexpr (std::is_same_v<T, S_RESULT>) {
        return tornval::MakeResult(TORNVAL_DRIVER_NONE, i_ulStep, 1);
    } else {
        return 0;
    }
}

/**
 * Runs an operation of the router. Nothing is thrown out of it but the cancelling of the thread; a
 * call that is refused, or that something escaped from, fails with its stage.
 */
template <typename R, typename... Formal>
R Guarded(uint32_t i_ulStep, R (CRouter::*i_pfn)(Formal...), std::type_identity_t<Formal>... i_Args)
{
    try {
        const CRouter::CCall l_Call;
        return l_Call.Get() == nullptr ? Failed<R>(i_ulStep) : (l_Call.Get()->*i_pfn)(i_Args...);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return Failed<R>(i_ulStep);
    }
}

} // namespace

S_RESULT LoadMeasDrivers(int32_t i_lMask)
{
    return Guarded(TORNVAL_STEP_LOAD, &CRouter::LoadMeasDrivers, i_lMask);
}

uint32_t EnumMeasDrivers(S_DRIVER_INFO* o_pDrivers, uint32_t i_ulMaxDrivers,
                         uint32_t* o_pulNbDrivers)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::EnumMeasDrivers, o_pDrivers, i_ulMaxDrivers,
                   o_pulNbDrivers);
}

S_RESULT InitialiseMeasBoard(uint32_t i_ulDriverID, int32_t bForceInit)
{
    return Guarded(TORNVAL_STEP_INIT, &CRouter::InitDriver, i_ulDriverID, bForceInit);
}

S_RESULT ResetMeasBoard(uint32_t i_ulDriverID)
{
    return Guarded(TORNVAL_STEP_CLOSE, &CRouter::ResetDriver, i_ulDriverID);
}

S_RESULT SendMeasBoardCmd(uint32_t i_ulDriverID, S_SEND_STRUCT* i_pCmde,
                          S_RECEIVE_STRUCT* o_pReceiveStruct, const void* i_pcData)
{
    Trace(tornval::INFO_LEVEL, L"API::SendMeasBoardCmd> DriverID=%d", i_ulDriverID);
    const S_RESULT l_Result = Guarded(TORNVAL_STEP_SEND, &CRouter::SendCommand, i_ulDriverID,
                                      i_pCmde, o_pReceiveStruct, i_pcData);
    if (l_Result.ulStatus == 1) {
        Trace(tornval::ERROR_LEVEL, L"API::SendMeasBoardCmd> Error");
    }
    return l_Result;
}

S_RESULT GetMeasBoardResult(uint32_t i_ulDriverID, uint32_t i_ulNbReturnByte, char* o_pcRawData,
                            int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                            uint32_t i_ulTimeout)
{
    Trace(tornval::INFO_LEVEL, L"API::GetMeasBoardResult> DriverID=%d", i_ulDriverID);
    const S_RESULT l_Result =
        Guarded(TORNVAL_STEP_RESULT, &CRouter::GetResult, i_ulDriverID, i_ulNbReturnByte,
                o_pcRawData, o_plProcessedDataSize, o_plProcessedData, i_ulTimeout, 1);
    if (l_Result.ulStatus == 1) {
        Trace(tornval::ERROR_LEVEL, L"API::GetMeasBoardResult> Error");
    }
    return l_Result;
}

S_RESULT CurrentGeneratorBurst(uint32_t i_ulBurst)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::CurrentGeneratorBurst, i_ulBurst);
}

S_RESULT GetInstantMeasure(int32_t* o_plValue, uint32_t i_ulVoie)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::GetInstantMeasure, o_plValue, i_ulVoie, 1);
}

S_RESULT GetInstantMeasureWithoutCompensation(int32_t* o_plValue, uint32_t i_ulVoie)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::GetInstantMeasure, o_plValue, i_ulVoie, 0);
}

S_RESULT GetInstantMeasureOnDevice(uint32_t i_ulDriverID, int32_t* o_plValue, uint32_t i_ulVoie,
                                   uint32_t i_ulMeasureParam)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::GetInstantMeasureOnDevice, i_ulDriverID, o_plValue,
                   i_ulVoie, i_ulMeasureParam);
}

S_RESULT GetAllMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2, int32_t* o_plValue3)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::GetMicroOhmMeasure, o_plValue1, o_plValue2,
                   o_plValue3);
}

S_RESULT GetMicroOhmMeasure(int32_t* o_plValue)
{
    int32_t l_alValues[3] = {};
    const S_RESULT l_Result =
        Guarded(TORNVAL_STEP_NONE, &CRouter::GetMicroOhmMeasure,
                o_plValue == nullptr ? nullptr : &l_alValues[0], &l_alValues[1], &l_alValues[2]);
    if (o_plValue != nullptr) {
        *o_plValue = l_alValues[0];
    }
    return l_Result;
}

uint32_t GetMBCalibrationCoeff(double* o_pdA, double* o_pdB, uint32_t i_ulNbCoeff)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::GetMBCalibrationCoeff, o_pdA, o_pdB, i_ulNbCoeff);
}

S_RESULT SetMBCalibration(uint32_t* i_pulIndex, double* i_pdA, double* i_pdB, uint32_t i_ulNbCoeff)
{
    return Guarded(TORNVAL_STEP_NONE, &CRouter::SetMBCalibration, i_pulIndex, i_pdA, i_pdB,
                   i_ulNbCoeff);
}
