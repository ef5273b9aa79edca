#include "Session.h"

#include "LibraryCheck.h"
#include "Samples.h"
#include "Stop.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

namespace host {

namespace {

/** Largest answer that is believed, in bytes. */
constexpr uint32_t k_ulMaxAnswer = 16U * 1024 * 1024;

std::string FieldText(const char* i_pszField, size_t i_uSize)
{
    return {i_pszField, strnlen(i_pszField, i_uSize)};
}

std::vector<S_DRIVER> ListDrivers()
{
    std::vector<S_DRIVER_INFO> l_vInfos(8);
    uint32_t l_ulNbDrivers = 0;
    while (EnumMeasDrivers(l_vInfos.data(), static_cast<uint32_t>(l_vInfos.size()),
                           &l_ulNbDrivers) == 1 &&
           l_ulNbDrivers == l_vInfos.size() && l_vInfos.size() < 4096) {
        l_vInfos.resize(l_vInfos.size() * 2);
    }
    l_vInfos.resize(std::min<size_t>(l_ulNbDrivers, l_vInfos.size()));
    std::vector<S_DRIVER> l_vDrivers;
    l_vDrivers.reserve(l_vInfos.size());
    for (const S_DRIVER_INFO& l_Info : l_vInfos) {
        S_DRIVER& l_Driver = l_vDrivers.emplace_back();
        l_Driver.ulID = l_Info.ulDriverID;
        l_Driver.strLinkType = FieldText(l_Info.szLinkType, sizeof l_Info.szLinkType);
        l_Driver.strName = FieldText(l_Info.szDriverName, sizeof l_Info.szDriverName);
    }
    return l_vDrivers;
}

/** What stands behind a driver: the configuration that the library has just read tells it. */
std::string KindOf(const S_DRIVER& i_Driver, const CSettings& i_Settings)
{
    const std::string l_strSection = i_Driver.strLinkType == "MO" ? "IM" : i_Driver.strLinkType;
    if (i_Settings.Number(l_strSection.c_str(), "SIMU", 0) != 0) {
        return "simulated";
    }
    const auto l_fnFile = [](const std::string& i_strPath) {
        return std::filesystem::path(i_strPath).filename().string();
    };
    std::string l_strLink = i_Driver.strName;
    if (l_fnFile(l_strLink) == "replay_link.so") {
        return "replayed";
    }
    if (l_fnFile(l_strLink) == "capture_link.so") {
        const char* l_pszKey = l_strSection == "IM"   ? "SERIAL"
                               : l_strSection == "BT" ? "BLUETOOTH"
                                                      : "USB";
        l_strLink = i_Settings.Text("CAPTURE", l_pszKey).value_or("");
    }
    if (IsEmulatedLink(l_strLink)) {
        return "emulated";
    }
    if (l_fnFile(l_strLink) == "serial_link.so") {
        const char* l_pszPort = i_Driver.strLinkType == "MO" ? "PORT_2" : "PORT_1";
        return "serial " + i_Settings.Text("SERIAL_LINK", l_pszPort).value_or("");
    }
    return "link " + l_fnFile(l_strLink);
}

bool SameWord(const std::string& i_strA, const std::string& i_strB)
{
    return strcasecmp(i_strA.c_str(), i_strB.c_str()) == 0;
}

} // namespace

CSession::CSession(const S_OPTIONS& i_Options) : m_Options(i_Options)
{
    S_CALL l_Call;
    m_LoadResult =
        CallForRecord([l_lMask = m_Options.lMask] { return LoadMeasDrivers(l_lMask); }, l_Call);
    NoteLoaded();
    m_vDrivers = ListDrivers();
    const std::vector<CECORE_REASON> l_vReasons = RemainingReasons();
    for (S_DRIVER& l_Driver : m_vDrivers) {
        l_Driver.strKind = KindOf(l_Driver, m_Settings);
        for (const CECORE_REASON& l_Reason : l_vReasons) {
            if (l_Driver.strLinkType == l_Reason.about) {
                l_Driver.bReady = false;
                // An answer that is amiss has no code of the system, a link that does not open has one.
                l_Driver.bReachable =
                    l_Driver.bReachable && (l_Reason.code == 0 || l_Driver.IsSimulated());
            }
        }
    }
}

std::vector<CECORE_REASON> CSession::RemainingReasons() const
{
    std::vector<std::string> l_vUp;
    for (const S_DRIVER& l_Driver : m_vDrivers) {
        l_vUp.push_back(l_Driver.strLinkType);
    }
    return ReasonsThatRemain(l_vUp);
}

std::optional<S_FAILURE> CSession::WhyNotReached(const S_DRIVER& i_Driver) const
{
    if (i_Driver.bReachable) {
        return std::nullopt;
    }
    return S_FAILURE{k_lExitNoDriver,
                     "the " + LinkTypeInWords(i_Driver.strLinkType) +
                         " is loaded and does not reach its hardware: " + i_Driver.strKind,
                     m_LoadResult};
}

const S_DRIVER& CSession::Reached(const S_DRIVER& i_Driver) const
{
    if (const std::optional<S_FAILURE> l_Why = WhyNotReached(i_Driver)) {
        throw S_FAILURE(*l_Why);
    }
    return i_Driver;
}

const S_DRIVER& CSession::ByLinkType(const std::string& i_strLinkType) const
{
    for (const S_DRIVER& l_Driver : m_vDrivers) {
        if (l_Driver.strLinkType == i_strLinkType) {
            return Reached(l_Driver);
        }
    }
    throw S_FAILURE{k_lExitNoDriver,
                    "the " + LinkTypeInWords(i_strLinkType) + " is not loaded" +
                        (m_LoadResult.ulStatus == 0 ? ": the mask does not ask for it" : ""),
                    m_LoadResult};
}

const S_DRIVER& CSession::ByName(const std::string& i_strName) const
{
    std::string l_strLoaded;
    for (const S_DRIVER& l_Driver : m_vDrivers) {
        if (SameWord(l_Driver.strLinkType, i_strName) ||
            std::to_string(l_Driver.ulID) == i_strName) {
            return Reached(l_Driver);
        }
        l_strLoaded += (l_strLoaded.empty() ? "" : ", ") + l_Driver.strLinkType + " " +
                       std::to_string(l_Driver.ulID) +
                       (l_Driver.bReachable ? "" : " (not reachable)");
    }
    throw S_FAILURE{k_lExitNoDriver, "no driver " + i_strName + "; loaded: " +
                                         (l_strLoaded.empty() ? "none" : l_strLoaded)};
}

nlohmann::json ValueJson(const S_UNIT& i_Unit, int32_t i_lMeasure)
{
    return i_Unit.IsScaled() ? nlohmann::json(i_Unit.Of(i_lMeasure)) : nlohmann::json(i_lMeasure);
}

std::string ValueText(const S_UNIT& i_Unit, int32_t i_lMeasure)
{
    return NumberText(i_Unit.Of(i_lMeasure)) + (i_Unit.strUnit.empty() ? "" : " " + i_Unit.strUnit);
}

void Announce(CProgram& io_Program, const S_DRIVER& i_Driver)
{
    io_Program.Document()["driver"] = i_Driver.ulID;
    io_Program.Document()["link_type"] = i_Driver.strLinkType;
    io_Program.Document()["kind"] = i_Driver.strKind;
    if (i_Driver.IsSimulated()) {
        CProgram::Note("SIMULATED: the " + LinkTypeInWords(i_Driver.strLinkType) +
                       " is simulated, its values come from no instrument");
    }
}

const S_DRIVER& CSession::ProbeByName(const std::string& i_strName) const
{
    const S_DRIVER& l_Driver = ByName(i_strName);
    if (!l_Driver.IsProbe()) {
        throw S_FAILURE{k_lExitNoDriver, "the driver " + i_strName + " is no probe but the " +
                                             LinkTypeInWords(l_Driver.strLinkType)};
    }
    return l_Driver;
}

std::vector<S_DRIVER> CSession::Select(const std::optional<std::string>& i_strName) const
{
    return i_strName ? std::vector<S_DRIVER>{ByName(*i_strName)} : m_vDrivers;
}

CExchange::CExchange()
{
    MakeRoom();
}

void CExchange::MakeRoom()
{
    m_pRoom = std::make_shared<S_ROOM>();
    m_pRoom->vWords.resize(k_uBoardChannels + k_uBoardChannels * k_uMaxSamples);
}

S_RESULT CExchange::Run(const S_DRIVER& i_Driver, uint8_t i_ucCommand, uint8_t i_ucParam,
                        const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout)
{
    m_Call = {i_ucCommand, 0};
    m_pRoom->vPayload = i_vPayload;
    m_pRoom->bTooLarge = false;
    S_SEND_STRUCT l_Send{};
    l_Send.CmdeID = i_ucCommand;
    l_Send.ucCmdeParam = i_ucParam;
    l_Send.ulTimeout = i_ulTimeout;
    // Board and module count the four bytes of their frame's own head as well.
    l_Send.ulSize = static_cast<uint32_t>(i_vPayload.size()) + (i_Driver.IsProbe() ? 0U : 4U);
    const auto l_fnExchange = [l_pRoom = m_pRoom, l_Send, l_ulID = i_Driver.ulID,
                               i_ulTimeout]() mutable {
        S_ROOM& l_Room = *l_pRoom;
        l_Room.lSize = 0;
        l_Room.ulElapsedMs = 0;
        std::fill(l_Room.vWords.begin(), l_Room.vWords.end(), 0);
        S_RECEIVE_STRUCT l_Receive{};
        l_Room.Result =
            SendMeasBoardCmd(l_ulID, &l_Send, &l_Receive,
                             l_Room.vPayload.empty() ? nullptr : l_Room.vPayload.data());
        l_Room.bTooLarge = l_Room.Result.ulStatus == 0 && l_Receive.ulNbReturnByte > k_ulMaxAnswer;
        if (l_Room.Result.ulStatus != 0 || l_Room.bTooLarge) {
            l_Room.vRaw.clear();
            return;
        }
        // The library wants a buffer even where nothing comes back.
        l_Room.vRaw.assign(std::max<size_t>(l_Receive.ulNbReturnByte, 1), 0);
        if (l_Room.vWords.size() < l_Room.vRaw.size() + k_uProbeChannels) {
            l_Room.vWords.resize(l_Room.vRaw.size() + k_uProbeChannels);
        }
        const CElapsed l_Elapsed;
        l_Room.Result = GetMeasBoardResult(l_ulID, l_Receive.ulNbReturnByte, l_Room.vRaw.data(),
                                           &l_Room.lSize, l_Room.vWords.data(), i_ulTimeout);
        l_Room.ulElapsedMs = l_Elapsed.Ms();
        l_Room.vRaw.resize(l_Receive.ulNbReturnByte);
    };
    try {
        host::Call(l_fnExchange);
    } catch (const S_STOPPED&) {
        // The exchange that is left may still fill its room.
        MakeRoom();
        throw;
    }
    if (m_pRoom->bTooLarge) {
        throw S_FAILURE{k_lExitDevice, "the answer to " + CommandInWords(i_ucCommand) +
                                           " is announced with too many bytes and refused"};
    }
    m_Call.ulElapsedMs = m_pRoom->ulElapsedMs;
    return m_pRoom->Result;
}

void CExchange::RunOrThrow(const S_DRIVER& i_Driver, uint8_t i_ucCommand,
                           const std::vector<uint8_t>& i_vPayload, uint32_t i_ulTimeout)
{
    const S_RESULT l_Result = Run(i_Driver, i_ucCommand, 0, i_vPayload, i_ulTimeout);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, m_Call);
    }
}

S_RESULT CallForRecord(const std::function<S_RESULT()>& i_fnCall, S_CALL& io_Call,
                       const std::function<void()>& i_fnTick)
{
    struct S_OUTCOME
    {
        S_RESULT Result{};
        uint32_t ulElapsedMs = 0;
    };
    const auto l_pOutcome = std::make_shared<S_OUTCOME>();
    Call(
        [l_pOutcome, i_fnCall] {
            const CElapsed l_Elapsed;
            l_pOutcome->Result = i_fnCall();
            l_pOutcome->ulElapsedMs = l_Elapsed.Ms();
        },
        i_fnTick);
    io_Call.ulElapsedMs = l_pOutcome->ulElapsedMs;
    return l_pOutcome->Result;
}

uint32_t CElapsed::Ms() const
{
    const auto l_Time = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - m_Start);
    return static_cast<uint32_t>(std::clamp<int64_t>(l_Time.count(), 1, INT32_MAX));
}

} // namespace host
