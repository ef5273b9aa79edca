#include "LoadProbe.h"

#include "Child.h"
#include "Configuration.h"
#include "Progress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <memory>
#include <unistd.h>

namespace host {

namespace {

/** Longest load that is waited for: two drivers, each with two answers that never come. */
constexpr std::chrono::seconds k_LoadLimit{60};

/** A private folder that is gone at the end of the block. */
class CTemporaryFolder
{
public:
    CTemporaryFolder()
    {
        std::error_code l_Error;
        std::string l_strName =
            (std::filesystem::temp_directory_path(l_Error) / "tornval-XXXXXX").string();
        if (!l_Error && mkdtemp(l_strName.data()) != nullptr) {
            m_Path = l_strName;
        }
    }
    ~CTemporaryFolder()
    {
        std::error_code l_Error;
        if (!m_Path.empty()) {
            std::filesystem::remove_all(m_Path, l_Error);
        }
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    /** Empty if the folder could not be made. */
    const std::filesystem::path& Path() const { return m_Path; }

private:
    std::filesystem::path m_Path;
};

/** Links every entry of a folder into another one, the configuration left out. */
void MirrorFolder(const std::filesystem::path& i_From, const std::filesystem::path& i_To)
{
    std::error_code l_Error;
    for (auto l_It = std::filesystem::directory_iterator(i_From, l_Error);
         !l_Error && l_It != std::filesystem::directory_iterator(); l_It.increment(l_Error)) {
        std::error_code l_LinkError;
        if (l_It->path().filename() != k_pszConfigName) {
            std::filesystem::create_symlink(l_It->path(), i_To / l_It->path().filename(),
                                            l_LinkError);
        }
    }
}

/** Runs the load in a second process and gives its trace, or an empty text. */
std::string TraceOfLoad(int32_t i_lMask, const std::filesystem::path& i_Home,
                        const std::string& i_strConfiguration)
{
    const CTemporaryFolder l_Folder;
    const std::filesystem::path l_Home = l_Folder.Path() / "home";
    const std::filesystem::path l_Volume = l_Folder.Path() / "hd00";
    std::error_code l_Error;
    if (l_Folder.Path().empty() || !std::filesystem::create_directory(l_Home, l_Error) ||
        !std::filesystem::create_directory(l_Volume, l_Error)) {
        return {};
    }
    MirrorFolder(i_Home, l_Home);
    // The first section of a name counts, so this one takes the place of the user's.
    std::ofstream l_Config(l_Home / k_pszConfigName, std::ios::binary);
    l_Config << "[LOG]\nENABLE=1\nTYPE=0\nLEVEL=4369\n" << i_strConfiguration;
    l_Config.close();
    CChild l_Child;
    const std::string l_strSelf = std::filesystem::read_symlink("/proc/self/exe", l_Error).string();
    if (!l_Config || l_Error ||
        l_Child.Start({l_strSelf, k_pszLoadCommand, std::to_string(i_lMask)},
                      {"TORNVAL_HOME=" + l_Home.string(), "TORNVAL_HD00=" + l_Volume.string()},
                      true) != 0) {
        return {};
    }
    l_Child.Finish(k_LoadLimit);
    return ReadWholeFile(l_Volume / "log_tornval.txt").value_or("");
}

const std::vector<std::string>& EntryPoints(const std::string& i_strLinkType)
{
    static const std::vector<std::string> s_vSerial = {
        "RS_Init",    "RS_DeviceIoControl",    "RS_Close",
        "RS_Init_Ex", "RS_DeviceIoControl_Ex", "RS_Close_Ex"};
    static const std::vector<std::string> s_vBluetooth = {"PBT_Init", "PBT_Close",
                                                          "PBT_DeviceIoControl"};
    static const std::vector<std::string> s_vUsb = {"PUSB_Init", "PUSB_Close",
                                                    "PUSB_DeviceIoControl"};
    return i_strLinkType == "BT" ? s_vBluetooth : i_strLinkType == "USB" ? s_vUsb : s_vSerial;
}

/** Name of a driver's link library as the configuration tells it. */
std::string LibraryName(const std::string& i_strConfiguration, const std::string& i_strLinkType)
{
    if (i_strLinkType == "BT" || i_strLinkType == "USB") {
        return FindKey(i_strConfiguration, i_strLinkType, "DRIVER_NAME")
            .value_or(i_strLinkType == "BT" ? "zondebtc6.dll" : "zondeusbc6.dll");
    }
    return FindKey(i_strConfiguration, "IM", "DRIVER_NAME").value_or("");
}

struct S_CLOSE_LIBRARY
{
    void operator()(void* i_pLibrary) const { dlclose(i_pLibrary); }
};
using LibraryHandle = std::unique_ptr<void, S_CLOSE_LIBRARY>;

/** One attempt to load; the outcome is added to the lines. */
LibraryHandle TryLibrary(const std::string& i_strPath, const std::string& i_strWhere,
                         std::vector<std::string>& io_vLines)
{
    LibraryHandle l_Library(dlopen(i_strPath.c_str(), RTLD_NOW | RTLD_LOCAL));
    const char* l_pszError = l_Library ? nullptr : dlerror();
    io_vLines.push_back("tried " + i_strWhere + ": " +
                        (l_Library               ? "loaded"
                         : l_pszError != nullptr ? l_pszError
                                                 : "failed"));
    return l_Library;
}

} // namespace

std::vector<std::string> ExamineLibrary(const std::string& i_strName,
                                        const std::filesystem::path& i_Home,
                                        const std::vector<std::string>& i_vEntryPoints)
{
    std::vector<std::string> l_vLines;
    std::string l_strName = i_strName;
    std::replace(l_strName.begin(), l_strName.end(), '\\', '/');
    if (l_strName.empty()) {
        return {"no library is named: the key DRIVER_NAME is missing or empty"};
    }
    LibraryHandle l_Library;
    if (l_strName.find('/') != std::string::npos) {
        l_Library = TryLibrary(l_strName, l_strName, l_vLines);
    } else {
        const std::string l_strBeside = (i_Home / l_strName).string();
        l_Library = TryLibrary(l_strBeside, l_strBeside, l_vLines);
        if (!l_Library) {
            l_Library = TryLibrary(
                l_strName, "\"" + l_strName + "\" by the system's library search", l_vLines);
        }
    }
    for (const std::string& l_strEntry : i_vEntryPoints) {
        if (l_Library && dlsym(l_Library.get(), l_strEntry.c_str()) == nullptr) {
            l_vLines.push_back("missing in it: the entry point " + l_strEntry);
        }
    }
    return l_vLines;
}

namespace {

S_LOAD_REPORT Examine(int32_t i_lMask)
{
    // An interrupt ends the second process; this one lives on to remove its folder.
    CatchStopSignals();
    S_LOAD_REPORT l_Report;
    const std::filesystem::path l_Home = HomeFolder();
    l_Report.Configuration = l_Home / k_pszConfigName;
    errno = 0;
    const auto l_Configuration = ReadWholeFile(l_Report.Configuration);
    if (!l_Configuration) {
        const int l_lError = errno;
        l_Report.strGeneral =
            "the configuration file " + l_Report.Configuration.string() + " cannot be read (" +
            (l_lError != 0 ? std::strerror(l_lError) : "not a readable file") +
            "); without it no driver can be built. TORNVAL_HOME names the folder of the file, "
            "otherwise the folder of the executable is used";
        return l_Report;
    }
    const std::string l_strTrace = TraceOfLoad(i_lMask, l_Home, *l_Configuration);
    l_Report.vDrivers = ReadLoads(ParseTrace(l_strTrace));
    if (l_strTrace.empty()) {
        l_Report.strGeneral = "a second load with the trace switched on left no trace, so nothing "
                              "more can be said; is the folder for temporary files writable?";
    }
    for (S_DRIVER_LOAD& l_Driver : l_Report.vDrivers) {
        if (l_Driver.bLibraryFailed) {
            if (l_Driver.strLibrary.empty()) {
                l_Driver.strLibrary = LibraryName(*l_Configuration, l_Driver.strLinkType);
            }
            for (std::string& l_strLine :
                 ExamineLibrary(l_Driver.strLibrary, l_Home, EntryPoints(l_Driver.strLinkType))) {
                l_Driver.vReasons.push_back(std::move(l_strLine));
            }
        }
    }
    return l_Report;
}

} // namespace

S_LOAD_REPORT ExamineLoad(int32_t i_lMask, bool i_bProgress)
{
    S_LOAD_REPORT l_Report;
    RunWithProgress(i_bProgress, "looking for the reason", [&] { l_Report = Examine(i_lMask); });
    return l_Report;
}

} // namespace host
