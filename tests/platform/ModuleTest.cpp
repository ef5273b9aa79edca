#include "platform/Module.h"

#include <csignal>
#include <filesystem>

#include <dlfcn.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "TestHome.h"
#include "platform/Process.h"
#include "platform/Sync.h"

using namespace cecore;
namespace fs = std::filesystem;

namespace {

std::wstring ToWide(const std::string& i_strText)
{
    return {i_strText.begin(), i_strText.end()};
}

} // namespace

TEST(Modules, AreLoadedByNameBesideTheHostFirst)
{
    const CTestHome l_Home;
    fs::create_directory(l_Home.Path("sub"));
    // The last one bears the name of a library of the system.
    for (const char* l_pszName : {"good.dll", "sub/deep.so", "libresolv.so.2"}) {
        fs::copy_file(TEST_ANSWER, l_Home.Path(l_pszName));
    }
    l_Home.Write("text.dll", "no library");
    ASSERT_EQ(mkfifo(l_Home.Path("pipe.dll").c_str(), 0666), 0);
    const struct
    {
        std::string strName;
        uint32_t ulError; // 0: it loads
        bool bAnswers;    // whether it is the tests' own library
    } l_aCases[] = {{"", 126, false},
                    {"none.dll", 126, false},
                    {"text.dll", 193, false},
                    {"pipe.dll", 193, false},
                    {l_Home.Path("none.dll"), 126, false},
                    {l_Home.Path("sub"), 193, false},
                    {"good.dll", 0, true},
                    {"libresolv.so.2", 0, true},
                    {l_Home.Path("sub\\deep.so"), 0, true},
                    {"libm.so.6", 0, false}}; // not beside the host: the system's search
    for (const auto& l_Case : l_aCases) {
        SCOPED_TRACE(l_Case.strName);
        SetLastError(55);
        ModuleHandle l_hModule = LoadLibraryW(ToWide(l_Case.strName).c_str());
        EXPECT_EQ(l_hModule != nullptr, l_Case.ulError == 0);
        EXPECT_EQ(GetLastError(), l_Case.ulError == 0 ? 55U : l_Case.ulError);
        int (*l_pfnAnswer)() = nullptr;
        EXPECT_EQ(GetProcAddressInto(l_hModule, L"Answer", l_pfnAnswer), l_Case.bAnswers);
        EXPECT_EQ(l_Case.bAnswers ? l_pfnAnswer() : static_cast<int>(GetLastError()),
                  l_Case.bAnswers ? 42 : 127);
        // The library that it needs has this one.
        EXPECT_EQ(GetProcAddressW(l_hModule, L"printf"), nullptr);
        EXPECT_EQ(FreeLibrary(l_hModule), l_hModule != nullptr);
    }
    EXPECT_EQ(dlopen(l_Home.Path("good.dll").c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "freed";
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
}

TEST(Processes, AreStartedWithTheirWordsAndWaitedFor)
{
    const CTestHome l_Home;
    l_Home.Write("program", "#!/bin/sh\nprintf '%s|' $# \"$@\" > \"${0%/*}/said\"\nexit 3\n");
    l_Home.Write("plain", "a text without the line that names its interpreter\n");
    l_Home.Write("locked", "#!/bin/sh\n");
    for (const char* l_pszProgram : {"program", "plain"}) {
        fs::permissions(l_Home.Path(l_pszProgram), fs::perms::owner_all);
    }
    const uint32_t l_ulHandles = GetOpenHandleCount();
    const struct
    {
        std::string strProgram;
        const wchar_t* pwszLine;
        uint32_t ulError;
        const char* pszSaid;
    } l_aCases[] = {{l_Home.Path("program"), L"162 0", 0, "2|162|0|"},
                    {l_Home.Path("program"), L"  a \t bb  ", 0, "2|a|bb|"},
                    {"\\hd00\\program", nullptr, 0, "0|"},
                    {"program", L"home", 0, "1|home|"},
                    {l_Home.Path("none"), L"1", 2, ""},
                    {l_Home.Path("locked"), L"1", 5, ""},
                    {l_Home.Path(""), L"1", 5, ""},
                    {l_Home.Path("plain"), L"1", 193, ""},
                    {"", L"1", 87, ""}};
    // A host that has its children reaped by the system must not change the outcome.
    for (const auto l_pfnHost : {SIG_DFL, SIG_IGN}) {
        std::signal(SIGCHLD, l_pfnHost);
        for (const auto& l_Case : l_aCases) {
            SCOPED_TRACE(l_Case.strProgram);
            if (OnEmulatedProcessor() && l_Case.ulError != 0 && l_Case.ulError != 87) {
                continue;
            }
            l_Home.Write("said", "");
            S_PROCESS_INFORMATION l_Process{};
            if (!CreateProcessW(ToWide(l_Case.strProgram).c_str(), l_Case.pwszLine, &l_Process)) {
                EXPECT_EQ(GetLastError(), l_Case.ulError);
                continue;
            }
            EXPECT_EQ(l_Case.ulError, 0U);
            const CUniqueHandle l_hProcess(l_Process.hProcess);
            EXPECT_EQ(WaitForSingleObject(l_hProcess.Get(), INFINITE), WAIT_OBJECT_0);
            EXPECT_EQ(WaitForSingleObject(l_hProcess.Get(), 0), WAIT_OBJECT_0) << "it stays so";
            EXPECT_EQ(l_Home.Read("said"), l_Case.pszSaid);
        }
    }
    EXPECT_EQ(GetOpenHandleCount(), l_ulHandles);
}
