/** tornval paths: where the library looks. */
#include "Program.h"
#include "Settings.h"

namespace host {

namespace {

void RunPaths(CProgram& io_Program)
{
    const auto l_Tell = [&](const char* i_pszKey, const char* i_pszWords,
                            const std::string& i_str) {
        io_Program.Document()[i_pszKey] = i_str;
        io_Program.Print(std::string(i_pszWords) + (i_str.empty() ? "none" : i_str) + "\n");
    };
    l_Tell("configuration", "configuration:  ", ConfigurationFile().string());
    l_Tell("log", "trace log:      ", LogFile().string());
    l_Tell("home", "home:           ", HomeFolder().string());
    l_Tell("links", "link libraries: ", LinksFolder().string());
}

} // namespace

void AddPathsCommand(CCommand i_Parent, CProgram& io_Program)
{
    io_Program.AddCommand(
        i_Parent, "paths",
        "Prints where the configuration, the trace log and the link libraries lie",
        [&io_Program] { RunPaths(io_Program); });
}

} // namespace host
