/** tornval drivers: what is loaded, and why something is not. */
#include "Session.h"
#include "Settings.h"

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

void RunDrivers(CProgram& io_Program)
{
    const CSession l_Session(io_Program.Options());
    nlohmann::json l_List = nlohmann::json::array();
    bool l_bAllReady = true;
    io_Program.Print(Row("driver", "ID", "hardware", "kind", "state"));
    for (const S_DRIVER& l_Driver : l_Session.Drivers()) {
        const std::string l_strHardware = LinkTypeInWords(l_Driver.strLinkType);
        l_bAllReady = l_bAllReady && l_Driver.bReady;
        io_Program.Print(Row(l_Driver.strLinkType, std::to_string(l_Driver.ulID), l_strHardware,
                             l_Driver.strKind, l_Driver.bReady ? "ready" : "not ready, see below"));
        l_List.push_back({{"id", l_Driver.ulID},
                          {"link_type", l_Driver.strLinkType},
                          {"hardware", l_strHardware},
                          {"kind", l_Driver.strKind},
                          {"ready", l_Driver.bReady},
                          {"name", l_Driver.strName}});
    }
    io_Program.Document()["drivers"] = l_List;
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
