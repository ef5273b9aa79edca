#include "simulation/MilliOhmDriverSerialSimu.h"

#include "platform/Clock.h"

namespace tornval {
namespace {

constexpr int32_t k_lMeasure = 3333;
constexpr uint32_t k_ulMeasureTime = 2000;
constexpr char k_szVersion[] = "Version Simule";

} // namespace

std::span<const C_MilliOhmDriverSerialSimu::S_SIMULATED> C_MilliOhmDriverSerialSimu::Commands()
{
    static constexpr S_SIMULATED s_aCommands[] = {
        {COMMAND_MICROOHM_MEASURE,
         {INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::SendCommand>"},
         &AnswerMeasure},
        {COMMAND_VERSION,
         {INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::SendCommand> OK"},
         &AnswerVersion},
    };
    return s_aCommands;
}

S_RESULT C_MilliOhmDriverSerialSimu::CreateDriverInstance()
{
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::CreateDriverInstance>");
    return MakeResult(TORNVAL_DRIVER_MILLIOHM, TORNVAL_STEP_NONE);
}

S_RESULT C_MilliOhmDriverSerialSimu::GetMicroOhmMeasure(int32_t* o_plValue1, int32_t* o_plValue2,
                                                        int32_t* o_plValue3)
{
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::GetMicroOhmMeasure>");
    if (o_plValue1 == nullptr || o_plValue2 == nullptr || o_plValue3 == nullptr) {
        return MakeResult(TORNVAL_DRIVER_MILLIOHM, TORNVAL_STEP_NONE, 1);
    }
    *o_plValue1 = *o_plValue2 = *o_plValue3 = 0;
    cecore::Sleep(k_ulMeasureTime);
    *o_plValue1 = k_lMeasure;
    return MakeResult(TORNVAL_DRIVER_MILLIOHM, TORNVAL_STEP_NONE);
}

S_RESULT C_MilliOhmDriverSerialSimu::SendCommand(S_SEND_STRUCT* i_pCmde,
                                                 S_RECEIVE_STRUCT* o_pReceiveStruct, const void*,
                                                 uint16_t* o_pusCmdeID, S_DATA* io_pFrame,
                                                 uint32_t* o_pulStatus, uint8_t i_ucCanal)
{
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::SendCommand> (canal: %d)", i_ucCanal);
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_MILLIOHM, TORNVAL_STEP_SEND);
    if (o_pReceiveStruct != nullptr) {
        FillReceive(o_pReceiveStruct, 0, 0);
    }
    if (i_pCmde == nullptr || o_pusCmdeID == nullptr || io_pFrame == nullptr ||
        o_pulStatus == nullptr || o_pReceiveStruct == nullptr) {
        l_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerialSimu::SendCommand> ERROR");
        return l_Result;
    }
    *o_pusCmdeID = i_pCmde->CmdeID;
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::SendCommand> cmde=%02X", i_pCmde->CmdeID);
    const S_SIMULATED* l_pCommand = FindCommand(Commands(), i_pCmde->CmdeID);
    if (l_pCommand == nullptr) {
        l_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerialSimu::SendCommand> ERROR unknown cmde");
    } else {
        FillReceive(o_pReceiveStruct, 0, k_ulRawResultSize);
        l_pCommand->Sent.Emit();
    }
    return l_Result;
}

S_RESULT C_MilliOhmDriverSerialSimu::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                               int32_t* o_plProcessedDataSize,
                                               int32_t* o_plProcessedData, uint32_t,
                                               S_DATA* i_pFrame, uint16_t* i_pusCmdeID,
                                               S_DATA* o_pAnswer, uint8_t)
{
    if (o_plProcessedDataSize != nullptr) {
        *o_plProcessedDataSize = 0;
    }
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_MILLIOHM, TORNVAL_STEP_RESULT);
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::GetResult>");
    if (i_pFrame == nullptr || i_pusCmdeID == nullptr || o_pAnswer == nullptr) {
        l_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerialSimu::GetResult> ERROR:  NULL");
        return l_Result;
    }
    const S_SIMULATED* l_pCommand = FindCommand(Commands(), *i_pusCmdeID);
    if (l_pCommand == nullptr) {
        l_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerialSimu::GetResult> ERROR unknown command");
    } else if (!l_pCommand->pfnAnswer({.ulRoom = i_ulNbReturnByte,
                                       .pcRawData = o_pcRawData,
                                       .plProcessedDataSize = o_plProcessedDataSize,
                                       .plProcessedData = o_plProcessedData})) {
        // Nothing is allocated here, whatever the line says.
        l_Result.ulStatus = 1;
        Trace(ERROR_LEVEL, L"C_MilliOhmDriverSerialSimu::GetResult> ERROR Allocation");
    }
    return l_Result;
}

bool C_MilliOhmDriverSerialSimu::AnswerMeasure(const S_EXCHANGE& i_Exchange)
{
    cecore::Sleep(k_ulMeasureTime);
    if (i_Exchange.plProcessedData == nullptr || i_Exchange.plProcessedDataSize == nullptr) {
        return false;
    }
    *i_Exchange.plProcessedData = k_lMeasure;
    *i_Exchange.plProcessedDataSize = 1;
    return true;
}

bool C_MilliOhmDriverSerialSimu::AnswerVersion(const S_EXCHANGE& i_Exchange)
{
    if (i_Exchange.ulRoom < sizeof(k_szVersion) || i_Exchange.pcRawData == nullptr) {
        return false;
    }
    std::memcpy(i_Exchange.pcRawData, k_szVersion, sizeof(k_szVersion));
    Trace(INFO_LEVEL, L"C_MilliOhmDriverSerialSimu::GetResult> OK");
    return true;
}

} // namespace tornval
