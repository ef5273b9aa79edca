#include "simulation/IntMeasDriverSimu.h"

#include <array>
#include <new>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Memory.h"
#include "support/Numbers.h"
#include "support/Text.h"

namespace tornval {
namespace {

constexpr int32_t k_lMeasure = 1234;
constexpr uint32_t k_ulMeasureTime = 20;
constexpr uint32_t k_ulUploadHalfTime = 10;
constexpr uint32_t k_ulUploadSize = 900;
constexpr double k_dScale = 1000.0;
constexpr uint32_t k_ulHighestLoad = 90;

/** Bytes of the data file that belong to a number. */
constexpr std::array<bool, 256> MakeNumberBytes()
{
    std::array<bool, 256> l_abBytes{};
    for (unsigned l_ulByte = '0'; l_ulByte <= '9'; ++l_ulByte) {
        l_abBytes[l_ulByte] = true;
    }
    l_abBytes['.'] = l_abBytes['-'] = true;
    return l_abBytes;
}

constexpr std::array<bool, 256> k_abNumberBytes = MakeNumberBytes();

bool IsNumberByte(char i_cByte)
{
    return k_abNumberBytes[static_cast<unsigned char>(i_cByte)];
}

} // namespace

uint32_t CIntMeasDriverSimu::s_ulSimuCounter = 0;

double PowerOfTen(int32_t i_lExponent)
{
    const double l_dFactor = i_lExponent < 0 ? 0.1 : 10.0;
    double l_dPower = 1.0;
    for (int64_t i = i_lExponent < 0 ? -static_cast<int64_t>(i_lExponent) : i_lExponent; i > 0;
         --i) {
        l_dPower *= l_dFactor;
    }
    return l_dPower;
}

CIntMeasDriverSimu::CIntMeasDriverSimu()
{
    SetIdentity(s_ulSimuCounter++, 4000, "IM");
    CConfigFile l_Config;
    if (LoadModuleConfiguration(l_Config)) {
        char l_aszFile[k_ulMaxPath];
        l_Config.GetString("IM", "DAT_SIMU_FILE", " ", l_aszFile, sizeof(l_aszFile));
        cecore::Widen(m_wszSimuFile, l_aszFile);
        m_dProbeCorrection = l_Config.GetDouble("IM", "SIMU_KELNOR_PROBE_CORRECTION", 0.0);
    }
}

S_RESULT CIntMeasDriverSimu::CreateDriverInstance()
{
    return MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_NONE);
}

S_RESULT CIntMeasDriverSimu::CurrentGeneratorBurst(uint32_t)
{
    return CIntMeasDriverSimu::CreateDriverInstance();
}

S_RESULT CIntMeasDriverSimu::Init()
{
    m_bInitialised = 1;
    return MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_INIT);
}

S_RESULT CIntMeasDriverSimu::Close()
{
    m_bInitialised = 0;
    return MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_CLOSE);
}

S_RESULT CIntMeasDriverSimu::SendCommand(S_SEND_STRUCT* i_pCmde, S_RECEIVE_STRUCT* o_pReceiveStruct,
                                         const void*, uint8_t)
{
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_SEND);
    if (i_pCmde == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    const uint8_t l_ucCmdeID = i_pCmde->CmdeID;
    m_cLastCmdeID = static_cast<int8_t>(l_ucCmdeID);
    const bool l_bAccepted = l_ucCmdeID == 3 || (l_ucCmdeID >= 209 && l_ucCmdeID <= 214);
    if (!l_bAccepted || o_pReceiveStruct == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    FillReceive(o_pReceiveStruct, 0, l_ucCmdeID == ACQUISITION_UPLOAD ? k_ulUploadSize : 0);
    if (l_ucCmdeID == 209 || l_ucCmdeID == 210) {
        m_ulReadIndex = 0;
    }
    return l_Result;
}

S_RESULT CIntMeasDriverSimu::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                       int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                       uint32_t, uint8_t)
{
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_RESULT);
    if (o_pcRawData == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    switch (static_cast<uint8_t>(m_cLastCmdeID)) {
    case 3:
    case ACQUSITION_INIT:
    case 209:
    case 210:
    case 213:
    case 214:
        break;
    case ACQUISITION_UPLOAD:
        return GetSimuUpload(i_ulNbReturnByte, o_pcRawData, o_plProcessedDataSize,
                             o_plProcessedData);
    case MEASURE_INTERNE:
        if (o_plProcessedData == nullptr) {
            l_Result.ulStatus = 1;
        } else {
            o_plProcessedData[0] = k_lMeasure;
            cecore::Sleep(k_ulMeasureTime);
        }
        break;
    default:
        l_Result.ulStatus = 1;
        break;
    }
    return l_Result;
}

S_RESULT CIntMeasDriverSimu::GetInstantMeasure(int32_t* o_plValue, uint32_t, uint8_t, uint32_t)
{
    if (o_plValue == nullptr) {
        return MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_NONE, 1);
    }
    *o_plValue = k_lMeasure;
    cecore::Sleep(k_ulMeasureTime);
    return MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_NONE);
}

S_RESULT CIntMeasDriverSimu::GetSimuUpload(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                           int32_t* o_plProcessedDataSize,
                                           int32_t* o_plProcessedData)
{
    cecore::Sleep(k_ulUploadHalfTime);
    S_RESULT l_Result = MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_RESULT);
    if (o_pcRawData != nullptr) {
        std::memset(o_pcRawData, 0, i_ulNbReturnByte);
        if (o_plProcessedData != nullptr && o_plProcessedDataSize == nullptr) {
            l_Result.ulStatus = 1;
        } else if (o_plProcessedData != nullptr) {
            *o_plProcessedDataSize = 0;
            if (m_vdChannel2.empty()) {
                LoadSimuFile(m_wszSimuFile, m_vdFileColumn0, m_vdChannel0, m_vdChannel1,
                             m_vdChannel2);
            }
            if (!m_vdChannel2.empty()) {
                DeliverBlock(o_plProcessedDataSize, o_plProcessedData);
            }
        }
    }
    cecore::Sleep(k_ulUploadHalfTime);
    return l_Result;
}

void CIntMeasDriverSimu::DeliverBlock(int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData)
{
    const uint32_t l_ulSamples = k_ulUploadSize / m_ulNbSimuChannels;
    int32_t* l_plOutput = o_plProcessedData + m_ulNbSimuChannels;
    uint32_t l_ulEnd = 0;
    for (const std::vector<double>* l_pvdChannel : {&m_vdChannel0, &m_vdChannel1, &m_vdChannel2}) {
        *o_plProcessedData++ = static_cast<int32_t>(l_ulSamples);
        l_ulEnd = m_ulReadIndex;
        for (uint32_t i = 0; i < l_ulSamples; ++i) {
            const auto l_ulRow = static_cast<uint32_t>(l_ulEnd % l_pvdChannel->size());
            *l_plOutput++ = TruncateToInt32((*l_pvdChannel)[l_ulRow]);
            l_ulEnd = l_ulRow + 1;
        }
        *o_plProcessedDataSize += static_cast<int32_t>(l_ulSamples);
    }
    m_ulReadIndex = l_ulEnd;
}

uint32_t CIntMeasDriverSimu::LoadSimuFile(const wchar_t* i_pwszPath,
                                          std::vector<double>& io_vdColumn0,
                                          std::vector<double>& io_vdChannel0,
                                          std::vector<double>& io_vdChannel1,
                                          std::vector<double>& io_vdChannel2) const
{
    const double l_dScale = m_dProbeCorrection * PowerOfTen(-3);
    const cecore::Handle l_hOpened =
        cecore::CreateFileW(i_pwszPath, cecore::GENERIC_READ, cecore::FILE_SHARE_READ,
                            cecore::OPEN_EXISTING, cecore::FILE_ATTRIBUTE_NORMAL);
    if (l_hOpened == cecore::INVALID_HANDLE_VALUE) {
        Trace(ERROR_LEVEL, L"Could not open file LastError=%ld", cecore::GetLastError());
        return 0;
    }
    const cecore::CUniqueHandle l_hFile(l_hOpened);
    const uint32_t l_ulSize = cecore::GetFileSize(l_hFile.Get(), nullptr);
    if (l_ulSize == cecore::INVALID_FILE_SIZE) {
        Trace(ERROR_LEVEL, L"GetFileSize error LastError=%ld", cecore::GetLastError());
        return 0;
    }
    std::unique_ptr<char[]> l_pcText;
    if (static_cast<int64_t>(l_ulSize) + 5 <= GetMemoryLimit()) {
        l_pcText.reset(new (std::nothrow) char[static_cast<size_t>(l_ulSize) + 5]);
        if (l_pcText == nullptr) {
            ::SetLastError(cecore::ERROR_NOT_ENOUGH_MEMORY);
        }
    }
    if (l_pcText == nullptr) {
        Trace(ERROR_LEVEL, L"Error allocation: LastError=%ld", cecore::GetLastError());
        return 0;
    }
    uint32_t l_ulRead = 0;
    if (!cecore::ReadFile(l_hFile.Get(), l_pcText.get(), l_ulSize, &l_ulRead)) {
        Trace(ERROR_LEVEL, L"Error while readind simu file: LastError=%ld", cecore::GetLastError());
        return 0;
    }
    const char* l_pcNumber = l_pcText.get();
    const char* const l_pcEnd = l_pcNumber + l_ulRead;
    uint32_t l_ulPosition = 0;
    const size_t l_aulSizes[] = {io_vdColumn0.size(), io_vdChannel0.size(), io_vdChannel1.size(),
                                 io_vdChannel2.size()};
    try {
        for (const char* l_pc = l_pcNumber; l_pc != l_pcEnd; ++l_ulPosition) {
            while (l_pc != l_pcEnd && IsNumberByte(*l_pc)) {
                ++l_pc;
            }
            if (l_pc == l_pcEnd) {
                // No separator behind it: the number may have been cut short, and does not count.
                break;
            }
            const double l_dNumber =
                TextToDouble({l_pcNumber, static_cast<size_t>(l_pc - l_pcNumber)});
            switch (l_ulPosition % 4) {
            case 0:
                io_vdColumn0.push_back(l_dNumber);
                break;
            case 1:
                io_vdChannel1.push_back(l_dNumber * k_dScale);
                break;
            case 2:
                io_vdChannel0.push_back(l_dNumber * k_dScale);
                break;
            default:
                io_vdChannel2.push_back(k_lMeasure - (l_dNumber * k_dScale) * l_dScale);
                break;
            }
            while (l_pc != l_pcEnd && !IsNumberByte(*l_pc)) {
                ++l_pc;
            }
            l_pcNumber = l_pc;
        }
    } catch (const std::bad_alloc&) {
        // Half a file is none: the next upload tries again.
        io_vdColumn0.resize(l_aulSizes[0]);
        io_vdChannel0.resize(l_aulSizes[1]);
        io_vdChannel1.resize(l_aulSizes[2]);
        io_vdChannel2.resize(l_aulSizes[3]);
        Trace(ERROR_LEVEL, L"Error allocation: LastError=%ld", cecore::ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    return 1;
}

int32_t CIntMeasDriverSimu::GetMemoryLimit()
{
    cecore::S_MEMORYSTATUS l_Status{};
    l_Status.dwLength = 32;
    cecore::GlobalMemoryStatus(&l_Status);
    if (l_Status.dwMemoryLoad > k_ulHighestLoad) {
        Trace(ERROR_LEVEL, L"Out of memory (<%d%% memory Load)", l_Status.dwMemoryLoad);
        return 0;
    }
    // In 64 bits: at the figures of an idle machine the products do not fit in 32.
    const uint64_t l_ullAvailable = l_Status.dwAvailPhys;
    const auto l_llLimit = static_cast<int64_t>(l_ullAvailable * l_Status.dwMemoryLoad / 100) -
                           static_cast<int64_t>(l_ullAvailable * 10 / 100);
    return TruncateToInt32(static_cast<double>(l_llLimit));
}

} // namespace tornval
