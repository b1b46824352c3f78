// Platform queries against the prefix's own registry and folders.
#include "frame/area.h"

#include "frame/frame.h"
#include "frame/platform.h"

#include <gmock/gmock.h>
#include <shlobj.h>

using harness::Repeat;
using harness::Session;
using harness::SetText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install";

class PlatformTest : public harness::ActionTest {
protected:
    PlatformTest() : ActionTest(SuiteKeysArea()) {}
};

TEST(PlatformQueries, AnswerForA64BitWindows10)
{
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = kOsVersionInfoSize;
    EXPECT_TRUE(GetOSVersion(&version));
    EXPECT_EQ(static_cast<DWORD>(VER_PLATFORM_WIN32_NT), version.dwPlatformId);

    EXPECT_TRUE(Is64BitOS());
    EXPECT_EQ(FALSE, IsWow64());
    EXPECT_FALSE(IsWindows7());
    EXPECT_EQ(L"BIN64", GetBinDirName());

    OSVERSIONINFOW wrongSize = {};
    wrongSize.dwOSVersionInfoSize = 12;
    EXPECT_FALSE(GetOSVersion(&wrongSize));
}

TEST_F(PlatformTest, GetInstallDirReadsTheInstallManagersRoot)
{
    EXPECT_EQ(L"", GetInstallDir());

    SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"Other", L"x");
    EXPECT_EQ(L"", GetInstallDir());

    std::wstring deep = L"C:\\Program Files\\Kestra Technologies\\" + Repeat(L'd', 150) + L"\\";
    SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"InstallDir", deep);
    EXPECT_EQ(deep, GetInstallDir());
}

TEST_F(PlatformTest, GetINSTFolderReadsShortPathsAndLogsTwice)
{
    Session session;
    g_hSession = session.handle();
    std::wstring path = L"untouched";
    EXPECT_FALSE(GetINSTFolder(path));
    EXPECT_EQ(L"untouched", path);
    EXPECT_THAT(session.Log(), IsEmpty());

    SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"InstallDir", L"C:\\Kestra\\");
    EXPECT_TRUE(GetINSTFolder(path));
    EXPECT_EQ(L"C:\\Kestra\\", path);
    EXPECT_THAT(session.Log(),
                ElementsAre(L"TESSEL_CA Inside GetINSTFolder is, SOFTWARE\\Kestra Technologies\\Install\\ \n",
                            L"TESSEL_CA Inside GetINSTFolder2 is, C:\\Kestra\\ \n"));
}

TEST_F(PlatformTest, GetINSTFolderFailsOnPathsOf130CharactersWhereGetInstallDirReadsThem)
{
    Session session;
    g_hSession = session.handle();
    std::wstring fits = L"C:\\" + Repeat(L'f', 126);  // 129 characters
    SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"InstallDir", fits);
    std::wstring path;
    EXPECT_TRUE(GetINSTFolder(path));
    EXPECT_EQ(fits, path);

    std::wstring tooLong = L"C:\\" + Repeat(L'g', 127);  // 130 characters
    SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"InstallDir", tooLong);
    path = L"untouched";
    EXPECT_FALSE(GetINSTFolder(path));
    EXPECT_EQ(L"untouched", path);
    EXPECT_EQ(tooLong, GetInstallDir());
    // The second read logged its first line only.
    EXPECT_EQ(3u, session.Log().size());
}

TEST(PlatformQueries, GetSpecialFolderFindsTheFoldersTheActionsUse)
{
    std::wstring path;
    EXPECT_TRUE(GetSpecialFolder(CSIDL_PROGRAM_FILES, path));
    EXPECT_EQ(L"C:\\Program Files", path);
    EXPECT_TRUE(GetSpecialFolder(CSIDL_PROGRAM_FILESX86, path));
    EXPECT_EQ(L"C:\\Program Files (x86)", path);
    EXPECT_TRUE(GetSpecialFolder(CSIDL_SYSTEM, path));
    EXPECT_EQ(L"C:\\windows\\system32", path);
    EXPECT_TRUE(GetSpecialFolder(CSIDL_WINDOWS, path));
    EXPECT_EQ(L"C:\\windows", path);
}

TEST(PlatformQueries, GetSpecialFolderWithoutAFileSystemPathLeavesThePathAlone)
{
    std::wstring path = L"untouched";
    EXPECT_TRUE(GetSpecialFolder(CSIDL_DRIVES, path));
    EXPECT_EQ(L"untouched", path);

    EXPECT_FALSE(GetSpecialFolder(0x7F, path));
    EXPECT_EQ(L"untouched", path);
}

}  // namespace
