#include "platform/File.h"

#include <climits>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TestHome.h"

using namespace cecore;

namespace {

Handle OpenWide(const std::string& i_strPath)
{
    std::wstring l_strPath;
    for (const char l_c : i_strPath) {
        l_strPath += static_cast<wchar_t>(static_cast<unsigned char>(l_c));
    }
    return CreateFileW(l_strPath.c_str(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0);
}

bool Append(const char* i_pszTarget, const char* i_pszText)
{
    return AppendToFile(MakeSystemPath(i_pszTarget).get(), std::string_view(i_pszText, 1),
                        i_pszText + 1);
}

} // namespace

TEST(Files, AreFoundByTheTargetsPaths)
{
    const CTestHome l_Home;
    mkdir(l_Home.Path("sub").c_str(), 0777);
    setenv("TORNVAL_HD00", l_Home.Path("").c_str(), 1);
    const struct
    {
        std::string strTarget;
        const char* pszFile; // below the home; null: leads nowhere
    } l_aCases[] = {{"\\hd00\\log.txt", "log.txt"},
                    {"/hd00/sub\\deep.txt", "sub/deep.txt"},
                    {l_Home.Path("sub\\caf\xE9.txt"), "sub/caf\xE9.txt"},
                    {"\\hd00sub\\other.txt", nullptr},
                    {"\\hd00\\missing\\folder.txt", nullptr},
                    {"", nullptr},
                    {"\\hd00\\" + std::string(PATH_MAX, 'x'), nullptr},
                    {std::string(PATH_MAX, '\\'), nullptr}};
    for (const auto& l_Case : l_aCases) {
        EXPECT_EQ(Append(l_Case.strTarget.c_str(), "text"), l_Case.pszFile != nullptr);
        const CUniqueHandle l_hFile(OpenWide(l_Case.strTarget));
        if (l_Case.pszFile == nullptr) {
            EXPECT_EQ(l_hFile.Get(), INVALID_HANDLE_VALUE);
            EXPECT_EQ(GetLastError(), CECORE_ERROR_FILE_NOT_FOUND);
        } else {
            EXPECT_EQ(l_Home.Read(l_Case.pszFile), "text");
            EXPECT_EQ(GetFileSize(l_hFile.Get(), nullptr), 4U);
        }
    }
    unsetenv("TORNVAL_HD00");
    EXPECT_EQ(OpenForReading("\\hd00\\log.txt"), nullptr) << "the volume stands for itself";
}

TEST(Files, ThatCouldBlockOrNeverEndAreRefused)
{
    const CTestHome l_Home;
    const std::string l_strPipe = l_Home.Path("pipe");
    ASSERT_EQ(mkfifo(l_strPipe.c_str(), 0666), 0);
    ASSERT_EQ(symlink(l_strPipe.c_str(), l_Home.Path("link").c_str()), 0);
    for (const std::string& l_strPath :
         {l_strPipe, l_Home.Path("link"), l_Home.Path(""), std::string("/dev/zero"),
          std::string("/dev/full"), std::string("/dev/tty")}) {
        const char* l_psz = l_strPath.c_str();
        for (int l_lRoad = 0; l_lRoad < 4; ++l_lRoad) {
            SetLastError(0);
            EXPECT_FALSE(l_lRoad == 0   ? OpenForReading(l_psz) != nullptr
                         : l_lRoad == 1 ? OpenWide(l_psz) != INVALID_HANDLE_VALUE
                         : l_lRoad == 2 ? AppendToFile(l_psz, "x", "y")
                                        : EmptyFile(l_psz))
                << l_lRoad << " " << l_psz;
            EXPECT_EQ(GetLastError(), CECORE_ERROR_ACCESS_DENIED) << l_lRoad << " " << l_psz;
        }
    }
}

TEST(Files, AreReadWrittenAndEmptied)
{
    const CTestHome l_Home;
    const std::string l_strFile = l_Home.Path("file");
    EXPECT_TRUE(EmptyFile(l_strFile.c_str())) << "made if need be";
    EXPECT_TRUE(Append("\\hd00\\file", "12345") && Append("\\hd00\\file", "678"));
    const CUniqueHandle l_hFile(OpenWide("\\hd00\\file"));
    for (const char* l_pszExpected : {"12345", "678", ""}) {
        char l_aszText[5];
        uint32_t l_ulRead = 9;
        EXPECT_TRUE(ReadFile(l_hFile.Get(), l_aszText, 5, &l_ulRead));
        EXPECT_EQ(std::string(l_aszText, l_ulRead), l_pszExpected);
    }
    EXPECT_TRUE(EmptyFile(l_strFile.c_str()));
    EXPECT_EQ(GetFileSize(l_hFile.Get(), nullptr), 0U);
    uint32_t l_ulHigh = 0;
    ASSERT_EQ(truncate(l_Home.Path("file").c_str(), (1LL << 32) + 5), 0);
    EXPECT_EQ(GetFileSize(l_hFile.Get(), &l_ulHigh), 5U);
    EXPECT_EQ(l_ulHigh, 1U);
}

TEST(Files, OfARelativeNameAreLookedForAtHomeFirst)
{
    const CTestHome l_Home;
    const CTestHome l_Working;
    setenv("TORNVAL_HOME", l_Home.Path("").c_str(), 1);
    ASSERT_EQ(chdir(l_Working.Path("").c_str()), 0);
    mkdir(l_Home.Path("sub").c_str(), 0777);
    l_Home.Write("sub/both", "1");
    mkdir("sub", 0777);
    l_Working.Write("sub/both", "22");
    l_Working.Write("sub/here", "333");
    EXPECT_EQ(GetFileSize(CUniqueHandle(OpenWide("sub\\both")).Get(), nullptr), 1U);
    EXPECT_EQ(GetFileSize(CUniqueHandle(OpenWide("sub\\here")).Get(), nullptr), 3U);
    EXPECT_EQ(OpenWide("sub\\none"), INVALID_HANDLE_VALUE);
    ASSERT_EQ(chdir("/"), 0);
}

TEST(Files, LieWhereThePathsSay)
{
    const CTestHome l_Home;
    char l_aszPath[300];
    EXPECT_EQ(CeGetPath(CECORE_PATH_HOME, l_aszPath, 300), l_Home.Path("").size());
    EXPECT_EQ(l_aszPath, l_Home.Path(""));
    EXPECT_EQ(CeGetPath(CECORE_PATH_VOLUME, l_aszPath, 5), l_Home.Path("").size() - 1);
    EXPECT_EQ(l_aszPath, l_Home.Path("").substr(0, 4)) << "cut to its room";
    EXPECT_EQ(CeGetPath(3, nullptr, 0), 0U);
}

TEST(Files, LieWhereNoVariableSaysInAPrivilegedProcess)
{
    const CTestHome l_Home;
    const std::string l_strProgram = l_Home.Path("places");
    std::filesystem::copy_file(TEST_PLACES, l_strProgram);
    setenv("TORNVAL_HOME", "/elsewhere", 1);
    setenv("TORNVAL_HD00", "/elsewhere", 1);
    const auto l_fnPlaces = [&] {
        EXPECT_EQ(std::system((l_strProgram + " >" + l_Home.Path("said")).c_str()), 0);
        const std::string l_strSaid = l_Home.Read("said");
        return l_strSaid.substr(0, l_strSaid.find('\n')) + " " +
               l_strSaid.substr(l_strSaid.rfind('\n', l_strSaid.size() - 2) + 1);
    };
    EXPECT_EQ(l_fnPlaces(), "/elsewhere/ /elsewhere\n");
    if (chown(l_strProgram.c_str(), getuid(), getgid() + 1) != 0 ||
        chmod(l_strProgram.c_str(), 02755) != 0) {
        GTEST_SKIP() << "another group takes root";
    }
    if (OnEmulatedProcessor()) {
        GTEST_SKIP() << "no program gets another group there";
    }
    EXPECT_EQ(l_fnPlaces(), l_Home.Path("") + " /hd00\n");
}
