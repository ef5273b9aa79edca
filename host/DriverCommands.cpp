/** tornval drivers, init, reset: what is loaded, why something is not, opening and closing. */
#include "Configuration.h"
#include "Program.h"

#include <array>

namespace host {

namespace {

struct S_DRIVER_OPTIONS
{
    std::optional<uint32_t> ulDriver;
    bool bForce = false;
};

std::string Row(const std::string& i_strID, const std::string& i_strLink,
                const std::string& i_strKind, const std::string& i_strName)
{
    std::array<char, 400> l_szRow{};
    std::snprintf(l_szRow.data(), l_szRow.size(), "%6s  %-4s  %-26s  %s\n", i_strID.c_str(),
                  i_strLink.c_str(), i_strKind.c_str(), i_strName.c_str());
    return l_szRow.data();
}

void PrintDrivers(CProgram& io_Program, const std::vector<S_DRIVER>& i_vDrivers)
{
    nlohmann::json l_List = nlohmann::json::array();
    io_Program.Print(Row("ID", "link", "kind", "name"));
    for (const S_DRIVER& l_Driver : i_vDrivers) {
        const std::string l_strKind = LinkTypeInWords(l_Driver.strLinkType);
        io_Program.Print(
            Row(std::to_string(l_Driver.ulID), l_Driver.strLinkType, l_strKind, l_Driver.strName));
        l_List.push_back({{"id", l_Driver.ulID},
                          {"link_type", l_Driver.strLinkType},
                          {"kind", l_strKind},
                          {"name", l_Driver.strName}});
    }
    io_Program.Document()["drivers"] = l_List;
}

void RunDrivers(CProgram& io_Program)
{
    const CSession l_Session(io_Program.Options());
    PrintDrivers(io_Program, l_Session.Drivers());
    io_Program.Document()["configuration"] = (HomeFolder() / k_pszConfigName).string();
    if (l_Session.LoadResult().ulStatus != 0) {
        throw S_FAILURE{k_lExitNoDriver, "not all drivers came up", l_Session.LoadResult()};
    }
    std::vector<std::string> l_vUp;
    for (const S_DRIVER& l_Driver : l_Session.Drivers()) {
        l_vUp.push_back(l_Driver.strLinkType);
    }
    io_Program.TellReasons(ReasonsThatRemain(l_vUp));
}

/** Runs one operation on the chosen drivers and reports each record. */
void RunOnDrivers(CProgram& io_Program, const std::optional<uint32_t>& i_ID, const char* i_pszDone,
                  const std::function<S_RESULT(uint32_t)>& i_fnOperation)
{
    const CSession l_Session(io_Program.Options());
    std::optional<S_FAILURE> l_Failure;
    nlohmann::json l_List = nlohmann::json::array();
    for (const S_DRIVER& l_Driver : l_Session.Select(i_ID)) {
        const CElapsed l_Elapsed;
        const S_RESULT l_Result = i_fnOperation(l_Driver.ulID);
        const S_CALL l_Call{k_lNoCommand, l_Elapsed.Ms()};
        l_List.push_back({{"id", l_Driver.ulID}, {"record", ToJson(l_Result, l_Call)}});
        io_Program.Print(
            std::to_string(l_Driver.ulID) + " " + LinkTypeInWords(l_Driver.strLinkType) + ": " +
            (l_Result.ulStatus == 0 ? i_pszDone : ExplainRecord(l_Result, l_Call)) + "\n");
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

void AddDriverCommands(CLI::App& io_App, CProgram& io_Program)
{
    auto l_pOptions = std::make_shared<S_DRIVER_OPTIONS>();
    io_Program.AddCommand(io_App, "drivers",
                          "Loads and lists the drivers, and says why one is missing",
                          [&io_Program] { RunDrivers(io_Program); });

    CLI::App& l_Init =
        io_Program.AddCommand(io_App, "init", "Initialises one driver or all", [=, &io_Program] {
            RunOnDrivers(io_Program, l_pOptions->ulDriver, "initialised", [&](uint32_t i_ulID) {
                return InitialiseMeasBoard(i_ulID, l_pOptions->bForce ? 1 : 0);
            });
        });
    l_Init.add_option("--driver", l_pOptions->ulDriver, "ID of the driver; all without it");
    l_Init.add_flag("--force", l_pOptions->bForce, "also a driver that is initialised already");

    io_Program
        .AddCommand(io_App, "reset", "Closes the link of one driver or of all",
                    [=, &io_Program] {
                        RunOnDrivers(io_Program, l_pOptions->ulDriver, "link closed",
                                     ResetMeasBoard);
                    })
        .add_option("--driver", l_pOptions->ulDriver, "ID of the driver; all without it");
}

} // namespace host
