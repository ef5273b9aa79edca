/** tornval init, reset: opening and closing the links of this process. */
#include "Session.h"

namespace host {

namespace {

struct S_LINK_OPTIONS
{
    std::optional<std::string> strDriver;
    bool bForce = false;
};

/** Runs one operation on the chosen drivers and reports each record. */
void RunOnDrivers(CProgram& io_Program, const std::optional<std::string>& i_strName,
                  const char* i_pszDone, const std::function<S_RESULT(uint32_t)>& i_fnOperation)
{
    const CSession l_Session(io_Program.Options());
    std::optional<S_FAILURE> l_Failure;
    nlohmann::json l_List = nlohmann::json::array();
    for (const S_DRIVER& l_Driver : l_Session.Select(i_strName)) {
        if (const std::optional<S_FAILURE> l_Why = l_Session.WhyNotReached(l_Driver)) {
            io_Program.Print(l_Driver.strLinkType + " " + std::to_string(l_Driver.ulID) + ": " +
                             l_Why->strMessage + "\n");
            if (!l_Failure) {
                l_Failure.emplace(*l_Why);
            }
            continue;
        }
        S_CALL l_Call;
        const S_RESULT l_Result = CallForRecord(
            [i_fnOperation, l_ulID = l_Driver.ulID] { return i_fnOperation(l_ulID); }, l_Call);
        l_List.push_back({{"id", l_Driver.ulID},
                          {"link_type", l_Driver.strLinkType},
                          {"kind", l_Driver.strKind},
                          {"record", ToJson(l_Result, l_Call)}});
        io_Program.Print(l_Driver.strLinkType + " " + std::to_string(l_Driver.ulID) + ": " +
                         (l_Result.ulStatus == 0 ? i_pszDone : ExplainRecord(l_Result, l_Call)) +
                         "\n");
        if (l_Result.ulStatus != 0 && !l_Failure) {
            l_Failure = FailureOf(l_Result, l_Call);
        }
    }
    io_Program.Document()["drivers"] = l_List;
    if (l_Failure) {
        throw S_FAILURE(*l_Failure);
    }
    if (l_List.empty()) {
        throw S_FAILURE{k_lExitNoDriver, "no driver is loaded", l_Session.LoadResult()};
    }
}

} // namespace

void AddLinkCommands(CCommand i_Parent, CProgram& io_Program)
{
    auto l_pOptions = std::make_shared<S_LINK_OPTIONS>();
    const CCommand l_Init = io_Program.AddCommand(
        i_Parent, "init",
        "Loads the drivers and runs their initialisation: of the board it asks the coefficients "
        "anew. "
        "Nothing of it outlasts this command",
        [=, &io_Program] {
            RunOnDrivers(io_Program, l_pOptions->strDriver, "initialised",
                         [l_lForce = l_pOptions->bForce ? 1 : 0](uint32_t i_ulID) {
                             return InitialiseMeasBoard(i_ulID, l_lForce);
                         });
        });
    AddDriverOption(l_Init, l_pOptions->strDriver,
                    "driver, IM, MO, BT, USB or a number; all without it");
    l_Init.Flag("--force", l_pOptions->bForce, "also a driver that is initialised already");

    const CCommand l_Reset = io_Program.AddCommand(
        i_Parent, "reset",
        "Loads the drivers and closes their links again, as a check of the links. The board itself "
        "is "
        "not reset",
        [=, &io_Program] {
            RunOnDrivers(io_Program, l_pOptions->strDriver,
                         "link closed, the board was not touched", ResetMeasBoard);
        });
    AddDriverOption(l_Reset, l_pOptions->strDriver,
                    "driver, IM, MO, BT, USB or a number; all without it");
}

} // namespace host
