/** tornval drivers: what is loaded, and why something is not. */
#include "Session.h"
#include "Settings.h"

#include <algorithm>
#include <array>

namespace host {

namespace {

std::string Row(const std::string& i_strDriver, const std::string& i_strID,
                const std::string& i_strHardware, const std::string& i_strKind,
                const std::string& i_strState)
{
    std::array<char, 700> l_szRow{};
    std::snprintf(l_szRow.data(), l_szRow.size(), "%-6s  %5s  %-26s  %-24s  %s\n",
                  i_strDriver.c_str(), i_strID.c_str(), i_strHardware.c_str(), i_strKind.c_str(),
                  i_strState.c_str());
    return l_szRow.data();
}

/** Drivers of one sort, in a table and as a list. */
void List(CProgram& io_Program, const std::vector<S_DRIVER>& i_vDrivers, bool i_bReachable)
{
    nlohmann::json l_List = nlohmann::json::array();
    if (i_bReachable) {
        io_Program.Print(Row("driver", "ID", "hardware", "kind", "state"));
    }
    for (const S_DRIVER& l_Driver : i_vDrivers) {
        if (l_Driver.bReachable != i_bReachable) {
            continue;
        }
        if (l_List.empty() && !i_bReachable) {
            io_Program.Print("not reachable:\n");
        }
        const std::string l_strHardware = LinkTypeInWords(l_Driver.strLinkType);
        io_Program.Print(Row(l_Driver.strLinkType, std::to_string(l_Driver.ulID), l_strHardware,
                             l_Driver.strKind, l_Driver.bReady ? "ready" : "not ready, see below"));
        l_List.push_back({{"id", l_Driver.ulID},
                          {"link_type", l_Driver.strLinkType},
                          {"hardware", l_strHardware},
                          {"kind", l_Driver.strKind},
                          {"ready", l_Driver.bReady},
                          {"name", l_Driver.strName}});
    }
    io_Program.Document()[i_bReachable ? "drivers" : "not_reachable"] = l_List;
}

void RunDrivers(CProgram& io_Program)
{
    const CSession l_Session(io_Program.Options());
    // The library keeps a driver whose port did not open; for who looks for hardware it is not there.
    List(io_Program, l_Session.Drivers(), true);
    List(io_Program, l_Session.Drivers(), false);
    const bool l_bAllReady = std::all_of(l_Session.Drivers().begin(), l_Session.Drivers().end(),
                                         [](const S_DRIVER& i_Driver) { return i_Driver.bReady; });
    io_Program.Document()["configuration"] = ConfigurationFile().string();
    if (l_Session.LoadResult().ulStatus != 0) {
        throw S_FAILURE{k_lExitNoDriver, "not all drivers came up", l_Session.LoadResult()};
    }
    if (!l_bAllReady) {
        throw S_FAILURE{k_lExitNoDriver, "not all drivers are ready", l_Session.LoadResult()};
    }
    io_Program.TellReasons(l_Session.RemainingReasons());
}

} // namespace

void AddDriversCommand(CCommand i_Parent, CProgram& io_Program)
{
    io_Program.AddCommand(i_Parent, "drivers",
                          "Loads and lists the drivers, and says why one is missing",
                          [&io_Program] { RunDrivers(io_Program); });
}

} // namespace host
