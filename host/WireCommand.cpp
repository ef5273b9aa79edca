/** tornval wire: a captured session in words. */
#include "Stop.h"
#include "WireCommands.h"
#include "WireDecode.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace host {

namespace {

struct S_WIRE_OPTIONS
{
    std::string strFile;
    bool bBrief = false;
    size_t uBytes = 32;
};

std::string DateText(uint64_t i_ullTime)
{
    const auto l_Seconds = static_cast<time_t>(i_ullTime / 1'000'000'000);
    std::tm l_Date{};
    std::array<char, 64> l_szText{};
    if (gmtime_r(&l_Seconds, &l_Date) != nullptr) {
        std::strftime(l_szText.data(), l_szText.size(), "%Y-%m-%d %H:%M:%S UTC", &l_Date);
    }
    return l_szText.data();
}

std::string Line(const S_WIRE_MESSAGE& i_Message, uint64_t i_ullFirst, uint32_t i_ulCall)
{
    std::array<char, 64> l_szHead{};
    // A clock that was set may let a record lie before the first one.
    const double l_dTime =
        (static_cast<double>(i_Message.ullTime) - static_cast<double>(i_ullFirst)) / 1e9;
    std::snprintf(l_szHead.data(), l_szHead.size(), "%12.6f  %5u %s ", l_dTime,
                  static_cast<unsigned>(i_ulCall), i_Message.bOut ? "->" : "<-");
    std::string l_strLine = l_szHead.data() + i_Message.strLink;
    l_strLine.resize(std::max<size_t>(l_strLine.size(), 33), ' ');
    l_strLine += i_Message.strTitle;
    if (i_Message.obCrc) {
        l_strLine += *i_Message.obCrc ? ", CRC good" : ", CRC WRONG";
    }
    return l_strLine + "\n";
}

std::string FieldLine(const S_WIRE_FIELD& i_Field)
{
    std::array<char, 96> l_szHead{};
    std::snprintf(l_szHead.data(), l_szHead.size(), "%33s%5zu  %-18s ", "", i_Field.uOffset,
                  i_Field.strName.c_str());
    return l_szHead.data() + i_Field.strValue + "\n";
}

nlohmann::json ToJson(const S_WIRE_MESSAGE& i_Message, const wire::S_CAPTURE_RECORD& i_Record)
{
    nlohmann::json l_Fields = nlohmann::json::array();
    for (const S_WIRE_FIELD& l_Field : i_Message.vFields) {
        l_Fields.push_back(
            {{"offset", l_Field.uOffset}, {"name", l_Field.strName}, {"value", l_Field.strValue}});
    }
    nlohmann::json l_Json = {{"time_ns", i_Message.ullTime},
                             {"call", i_Record.ulCall},
                             {"thread", i_Record.ulThread},
                             {"link", i_Message.strLink},
                             {"out", i_Message.bOut},
                             {"words", i_Message.strTitle},
                             {"fields", l_Fields}};
    if (i_Message.obCrc) {
        l_Json["crc_good"] = *i_Message.obCrc;
    }
    return l_Json;
}

void RunWire(CProgram& io_Program, const S_WIRE_OPTIONS& i_Options)
{
    using E_FOUND = wire::CCaptureReader::E_FOUND;
    wire::CCaptureReader l_Reader;
    if (!l_Reader.Open(i_Options.strFile)) {
        throw S_FAILURE{k_lExitFile, i_Options.strFile + ": " + std::strerror(errno)};
    }
    CatchStopSignals();
    nlohmann::json& l_Records = io_Program.Document()["records"] = nlohmann::json::array();
    CWireDecoder l_Decoder(i_Options.uBytes);
    uint64_t l_ullFirst = 0;
    uint64_t l_ullRecords = 0;
    uint64_t l_ullWrong = 0;
    uint32_t l_ulSection = 0;
    bool l_bNewSection = false;
    E_FOUND l_eFound = E_FOUND::End;
    while ((l_eFound = l_Reader.Next()) == E_FOUND::Record || l_eFound == E_FOUND::Section) {
        ThrowIfStopped(std::to_string(l_ullRecords) + " records were read");
        if (l_eFound == E_FOUND::Section) {
            ++l_ulSection;
            l_bNewSection = true;
            l_Decoder.Begin();
            continue;
        }
        const wire::S_CAPTURE_RECORD& l_Record = l_Reader.Record();
        if (l_bNewSection) {
            l_bNewSection = false;
            l_ullFirst = l_Record.ullTime;
            std::string l_strHead = "load " + std::to_string(l_ulSection) + " of the drivers, " +
                                    DateText(l_ullFirst) + "\n";
            for (const std::string& l_strLibrary : l_Reader.Section().astrLibraries) {
                l_strHead +=
                    l_strLibrary.empty() ? "" : "  link library " + PlainText(l_strLibrary) + "\n";
            }
            io_Program.Print(l_strHead + "     seconds   call    link\n");
        }
        const S_WIRE_MESSAGE l_Message = l_Decoder.Decode(l_Record);
        ++l_ullRecords;
        l_ullWrong += l_Message.obCrc == false ? 1 : 0;
        io_Program.Print(Line(l_Message, l_ullFirst, l_Record.ulCall));
        for (const S_WIRE_FIELD& l_Field : l_Message.vFields) {
            if (!i_Options.bBrief) {
                io_Program.Print(FieldLine(l_Field));
            }
        }
        if (io_Program.Options().bJson) {
            l_Records.push_back(ToJson(l_Message, l_Record));
        }
    }
    io_Program.Document()["wrong_crc"] = l_ullWrong;
    io_Program.Print(std::to_string(l_ullRecords) + " records, " + std::to_string(l_ullWrong) +
                     " of them frames with a wrong CRC\n");
    if (l_eFound == E_FOUND::Damage) {
        throw S_FAILURE{k_lExitFile, i_Options.strFile + ": " + l_Reader.Error() +
                                         "; what came before is shown"};
    }
}

} // namespace

void AddWireCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto [l_Wire, l_Options] = io_Program.AddCommand(
        i_Parent, "wire",
        "Prints a captured session: each frame and answer field by field, with the verdict on its "
        "CRC",
        RunWire);
    l_Wire.Remove({"--mask"});
    l_Wire.Option("FILE", l_Options.strFile, "the session, a pcapng file").Required();
    l_Wire.Flag("--brief", l_Options.bBrief, "one line per frame, without its fields");
    l_Wire.Option("--bytes", l_Options.uBytes, "bytes shown of a field without a meaning")
        .ShowDefault();
}

} // namespace host
