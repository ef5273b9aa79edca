/** tornval generator: a value for the current generator of the board. */
#include "Session.h"

namespace host {

namespace {

void RunGenerator(CProgram& io_Program, uint32_t i_ulValue)
{
    const CSession l_Session(io_Program.Options());
    Announce(io_Program, l_Session.ByLinkType("IM"));
    S_CALL l_Call{0, 0};
    const S_RESULT l_Result =
        CallForRecord([i_ulValue] { return CurrentGeneratorBurst(i_ulValue); }, l_Call);
    if (l_Result.ulStatus != 0) {
        throw FailureOf(l_Result, l_Call);
    }
    io_Program.Document()["value"] = i_ulValue;
    io_Program.Print("sent " + std::to_string(i_ulValue) + " to the current generator\n");
}

} // namespace

void AddGeneratorCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto l_pValue = std::make_shared<uint32_t>(0);
    io_Program
        .AddCommand(i_Parent, "generator",
                    "Sends a value to the current generator of the board; a board on a serial link "
                    "refuses it",
                    [=, &io_Program] { RunGenerator(io_Program, *l_pValue); })
        .Option("--value", *l_pValue, "the value")
        .Required()
        .Within(0, 255);
}

} // namespace host
