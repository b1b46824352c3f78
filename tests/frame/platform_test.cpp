// Platform queries against the prefix's own registry and folders.
#include "frame/area.h"

#include "frame/frame.h"
#include "frame/platform.h"

#include <shlobj.h>

namespace {

using PlatformTest = FrameTest;

// What GetVersionExW says on Windows 7.
BOOL WINAPI Windows7(LPOSVERSIONINFOW info)
{
    info->dwMajorVersion = 6;
    info->dwMinorVersion = 1;
    info->dwPlatformId = VER_PLATFORM_WIN32_NT;
    return TRUE;
}

TEST(PlatformQueries, AnswerForA64BitWindows10)
{
    OSVERSIONINFOW version = {};
    EXPECT_FALSE(GetOSVersion(&version));  // without its size
    version.dwOSVersionInfoSize = kOsVersionInfoSize;
    EXPECT_TRUE(GetOSVersion(&version));
    EXPECT_EQ(std::make_tuple(true, FALSE, false), std::make_tuple(Is64BitOS(), IsWow64(), IsWindows7()));
    EXPECT_EQ(L"BIN64", GetBinDirName());
    std::wstring path = L"untouched";
    EXPECT_TRUE(GetSpecialFolder(CSIDL_DRIVES, path));  // no file-system path
    EXPECT_FALSE(GetSpecialFolder(0x7F, path));
    EXPECT_EQ(L"untouched", path);
    EXPECT_TRUE(GetSpecialFolder(CSIDL_PROGRAM_FILESX86, path));
    EXPECT_EQ(L"C:\\Program Files (x86)", path);
    harness::ImportPatch seven(GetModuleHandleW(NULL), "kernel32.dll", "GetVersionExW",
                               reinterpret_cast<void*>(Windows7));
    EXPECT_TRUE(IsWindows7());
}

// GetINSTFolder reads at most 129 characters, GetInstallDir 259; a failed read leaves the path alone.
TEST_F(PlatformTest, TheInstallManagersFolderIsReadWithTwoLimits)
{
    harness::Session session;
    g_hSession = session.handle();
    std::wstring path = L"untouched";
    EXPECT_FALSE(GetINSTFolder(path));
    EXPECT_EQ(L"", GetInstallDir());
    auto store = [](const std::wstring& value) {
        harness::SetText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install", L"InstallDir", value);
        return value;
    };
    const std::wstring fits = store(L"C:\\" + harness::Repeat(L'f', 126));
    EXPECT_TRUE(GetINSTFolder(path));
    const std::wstring tooLong = store(fits + L"g");
    EXPECT_FALSE(GetINSTFolder(path));
    EXPECT_EQ(fits, path);
    EXPECT_EQ(tooLong, GetInstallDir());
    const std::wstring longest = store(L"C:\\" + harness::Repeat(L'd', 256));
    EXPECT_EQ(longest, GetInstallDir());
    store(longest + L"d");
    EXPECT_EQ(L"", GetInstallDir());
    g_hSession = 0;
}

}  // namespace
