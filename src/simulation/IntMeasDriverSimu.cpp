#include "simulation/IntMeasDriverSimu.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <string_view>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Memory.h"
#include "platform/Reason.h"
#include "support/Numbers.h"
#include "wire/Text.h"

namespace tornval {
namespace {

constexpr int32_t k_lMeasure = 1234;
constexpr uint32_t k_ulMeasureTime = 20;
constexpr uint32_t k_ulUploadHalfTime = 10;
constexpr uint32_t k_ulUploadSize = 900;
constexpr double k_dScale = 1000.0;
constexpr uint32_t k_ulHighestLoad = 90;
/** Bytes that a file takes in memory beside its own. */
constexpr uint32_t k_ulSpareBytes = 5;

/** Whether a byte of the data file belongs to a number. */
constexpr bool IsNumberByte(char i_cByte)
{
    return (i_cByte >= '0' && i_cByte <= '9') || i_cByte == '.' || i_cByte == '-';
}

/** Numbers of a text: they end at a separator, and one at the very start ends an empty number. */
size_t CountNumbers(std::string_view i_strText)
{
    // In blocks without a jump: a compiler makes vectors of them.
    constexpr size_t k_ulBlock = 64;
    const auto l_fnEnds = [&](size_t i_ulByte) {
        return static_cast<uint8_t>(static_cast<uint8_t>(IsNumberByte(i_strText[i_ulByte - 1])) &
                                    static_cast<uint8_t>(!IsNumberByte(i_strText[i_ulByte])));
    };
    size_t l_ulCount = !i_strText.empty() && !IsNumberByte(i_strText[0]) ? 1 : 0;
    size_t l_ulByte = 1;
    for (; l_ulByte + k_ulBlock <= i_strText.size(); l_ulByte += k_ulBlock) {
        uint8_t l_ucEnds = 0;
        for (size_t i = 0; i < k_ulBlock; ++i) {
            l_ucEnds = static_cast<uint8_t>(l_ucEnds + l_fnEnds(l_ulByte + i));
        }
        l_ulCount += l_ucEnds;
    }
    for (; l_ulByte < i_strText.size(); ++l_ulByte) {
        l_ulCount += l_fnEnds(l_ulByte);
    }
    return l_ulCount;
}

/**
 * Reads the number at the head of a text, whose every byte up to the next separator is its own.
 *
 * @param[out] o_dNumber the number, as far as its text makes one.
 * @return the separator behind it; the end of the text if there is none, and then it does not count.
 */
const char* ReadNumber(const char* i_pc, const char* i_pcEnd, double& o_dNumber)
{
    const auto [l_pcStop, l_eError] =
        std::from_chars(i_pc, i_pcEnd, o_dNumber, std::chars_format::fixed);
    const bool l_bDigits = l_eError == std::errc() && l_pcStop != i_pcEnd &&
                           !IsNumberByte(*l_pcStop) && i_pc[*i_pc == '-' ? 1 : 0] <= '9';
    if (l_bDigits) {
        return l_pcStop;
    }
    // No number, only the beginning of one, or one too long.
    const char* l_pcNext = std::find_if_not(i_pc, i_pcEnd, IsNumberByte);
    o_dNumber = wire::TextToDouble({i_pc, static_cast<size_t>(l_pcNext - i_pc)});
    return l_pcNext;
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
    if (LoadModuleConfiguration(l_Config) == cecore::ERROR_SUCCESS) {
        char l_aszFile[k_ulMaxPath];
        l_Config.GetString("IM", "DAT_SIMU_FILE", " ", l_aszFile, sizeof(l_aszFile));
        cecore::Widen(m_wszSimuFile, l_aszFile);
        m_dProbeCorrection = l_Config.GetDouble("IM", "SIMU_KELNOR_PROBE_CORRECTION", 0.0);
    }
}

std::span<const CIntMeasDriverSimu::S_SIMULATED> CIntMeasDriverSimu::Commands()
{
    using T = CIntMeasDriverSimu;
    static constexpr S_SIMULATED s_aCommands[] = {
        {GENERATOR_BURST, true},
        {ACQUSITION_INIT, false},
        {ACQUISITION_START, true, 0, true},
        {ACQUISITION_RESET, true, 0, true},
        {ACQUISITION_UPLOAD, true, k_ulUploadSize, false, &T::GetSimuUpload},
        {MEASURE_INTERNE, true, 0, false, &T::AnswerMeasure},
        {CALIBRATION_WRITE, true},
        {CALIBRATION_COMMIT, true},
    };
    return s_aCommands;
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
    m_cLastCmdeID = static_cast<int8_t>(i_pCmde->CmdeID);
    const S_SIMULATED* l_pCommand = FindCommand(Commands(), i_pCmde->CmdeID);
    if (l_pCommand == nullptr || !l_pCommand->bAccepted || o_pReceiveStruct == nullptr) {
        l_Result.ulStatus = 1;
        return l_Result;
    }
    FillReceive(o_pReceiveStruct, 0, l_pCommand->ulNbReturnByte);
    m_ulReadIndex = l_pCommand->bRewinds ? 0 : m_ulReadIndex;
    return l_Result;
}

S_RESULT CIntMeasDriverSimu::GetResult(uint32_t i_ulNbReturnByte, char* o_pcRawData,
                                       int32_t* o_plProcessedDataSize, int32_t* o_plProcessedData,
                                       uint32_t, uint8_t)
{
    S_EXCHANGE l_Exchange{.ulRoom = i_ulNbReturnByte,
                          .pcRawData = o_pcRawData,
                          .plProcessedDataSize = o_plProcessedDataSize,
                          .plProcessedData = o_plProcessedData,
                          .Result = MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_RESULT)};
    const S_SIMULATED* l_pCommand = FindCommand(Commands(), static_cast<uint8_t>(m_cLastCmdeID));
    if (o_pcRawData == nullptr || l_pCommand == nullptr) {
        l_Exchange.Fail();
    } else if (l_pCommand->pfnAnswer != nullptr) {
        (this->*l_pCommand->pfnAnswer)(l_Exchange);
    }
    return l_Exchange.Result;
}

void CIntMeasDriverSimu::AnswerMeasure(S_EXCHANGE& io_Exchange)
{
    if (io_Exchange.plProcessedData == nullptr) {
        io_Exchange.Fail();
        return;
    }
    *io_Exchange.plProcessedData = k_lMeasure;
    cecore::Sleep(k_ulMeasureTime);
}

S_RESULT CIntMeasDriverSimu::GetInstantMeasure(int32_t* o_plValue, uint32_t, uint8_t, uint32_t)
{
    S_EXCHANGE l_Exchange{.plProcessedData = o_plValue,
                          .Result = MakeResult(TORNVAL_DRIVER_BOARD, TORNVAL_STEP_NONE)};
    AnswerMeasure(l_Exchange);
    return l_Exchange.Result;
}

void CIntMeasDriverSimu::GetSimuUpload(S_EXCHANGE& io_Exchange)
{
    cecore::Sleep(k_ulUploadHalfTime);
    std::memset(io_Exchange.pcRawData, 0, io_Exchange.ulRoom);
    int32_t* l_plSize = io_Exchange.plProcessedDataSize;
    if (io_Exchange.plProcessedData != nullptr && l_plSize == nullptr) {
        io_Exchange.Fail();
    } else if (io_Exchange.plProcessedData != nullptr) {
        *l_plSize = 0;
        if (m_vdChannel2.empty()) {
            LoadSimuFile(m_wszSimuFile, m_vdFileColumn0, m_vdChannel0, m_vdChannel1, m_vdChannel2);
        }
        if (!m_vdChannel2.empty()) {
            DeliverBlock(l_plSize, io_Exchange.plProcessedData);
        }
    }
    cecore::Sleep(k_ulUploadHalfTime);
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
        cecore::NoteReason(cecore::GetLastError(), "replay file %S did not open", i_pwszPath);
        return 0;
    }
    const cecore::CUniqueHandle l_hFile(l_hOpened);
    const uint32_t l_ulSize = cecore::GetFileSize(l_hFile.Get(), nullptr);
    if (l_ulSize == cecore::INVALID_FILE_SIZE) {
        Trace(ERROR_LEVEL, L"GetFileSize error LastError=%ld", cecore::GetLastError());
        return 0;
    }
    std::unique_ptr<char[]> l_pcText;
    const int32_t l_lLimit = GetMemoryLimit();
    if (static_cast<int64_t>(l_ulSize) + k_ulSpareBytes > l_lLimit) {
        // The next line tells neither the reason nor the figures.
        Trace(ERROR_LEVEL, L"Simu file refused: %u bytes, limit %d", l_ulSize, l_lLimit);
        cecore::NoteReason(0, "replay file %S: %u bytes are more than %d, the limit by free memory",
                           i_pwszPath, l_ulSize, l_lLimit);
    } else {
        l_pcText.reset(new (std::nothrow) char[static_cast<size_t>(l_ulSize) + k_ulSpareBytes]);
        if (l_pcText == nullptr) {
            ::SetLastError(CECORE_ERROR_NOT_ENOUGH_MEMORY);
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
    // By the number's place in a row: the second column is channel 1, the third channel 0.
    std::vector<double>* const l_apvdColumns[] = {&io_vdColumn0, &io_vdChannel1, &io_vdChannel0,
                                                  &io_vdChannel2};
    constexpr size_t l_ulNbColumns = std::size(l_apvdColumns);
    size_t l_aulBefore[l_ulNbColumns];
    std::ranges::transform(l_apvdColumns, l_aulBefore, [](const auto* c) { return c->size(); });
    const std::string_view l_strText(l_pcText.get(), l_ulRead);
    try {
        // Room for all at once: columns that grow are copied, and touch twice the memory.
        const size_t l_ulNumbers = CountNumbers(l_strText);
        for (size_t i = 0; i < l_ulNbColumns; ++i) {
            l_apvdColumns[i]->reserve(l_aulBefore[i] +
                                      (l_ulNumbers + l_ulNbColumns - 1 - i) / l_ulNbColumns);
        }
        const char* l_pc = l_strText.data();
        const char* const l_pcEnd = l_pc + l_strText.size();
        for (size_t l_ulNumber = 0; l_ulNumber < l_ulNumbers; ++l_ulNumber) {
            const size_t l_ulColumn = l_ulNumber % l_ulNbColumns;
            double l_dNumber = 0.0;
            l_pc = ReadNumber(l_pc, l_pcEnd, l_dNumber);
            l_pc = std::find_if(l_pc, l_pcEnd, IsNumberByte);
            if (l_ulColumn != 0) {
                l_dNumber *= k_dScale;
            }
            if (l_ulColumn == l_ulNbColumns - 1) {
                l_dNumber = k_lMeasure - l_dNumber * l_dScale;
            }
            l_apvdColumns[l_ulColumn]->push_back(l_dNumber);
        }
    } catch (const std::bad_alloc&) {
        // Half a file is none: the next upload tries again.
        for (size_t i = 0; i < l_ulNbColumns; ++i) {
            l_apvdColumns[i]->resize(l_aulBefore[i]);
        }
        Trace(ERROR_LEVEL, L"Error allocation: LastError=%ld", CECORE_ERROR_NOT_ENOUGH_MEMORY);
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
