/** tornval microohm: a measure of the milliohm module. */
#include "Progress.h"
#include "Session.h"

#include <array>

namespace host {

namespace {

void RunMicroOhm(CProgram& io_Program)
{
    const CSession l_Session(io_Program.Options());
    Announce(io_Program, l_Session.ByLinkType("MO"));
    const auto l_pValues = std::make_shared<std::array<int32_t, 3>>();
    S_CALL l_Call{161, 0};
    CProgress l_Progress(io_Program.Options().bProgress, "milliohm measure", 0);
    const S_RESULT l_Result = CallForRecord(
        [l_pValues] {
            return GetAllMicroOhmMeasure(&(*l_pValues)[0], &(*l_pValues)[1], &(*l_pValues)[2]);
        },
        l_Call, [&] { l_Progress.Advance(); });
    l_Progress.Finish();
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, l_Call);
    }
    io_Program.Document()["values"] = *l_pValues;
    for (size_t i = 0; i < l_pValues->size(); ++i) {
        io_Program.Print("value " + std::to_string(i + 1) + ": " + std::to_string((*l_pValues)[i]) +
                         "\n");
    }
}

} // namespace

void AddMicroOhmCommand(CCommand i_Parent, CProgram& io_Program)
{
    io_Program.AddCommand(
        i_Parent, "microohm",
        "Takes a measure of the milliohm module and prints its three values, in the "
        "order of the module's answer",
        [&io_Program] { RunMicroOhm(io_Program); });
}

} // namespace host
