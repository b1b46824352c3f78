// The logger facade against stand-ins of kestraLog.dll, found as the suite
// finds the real one.
#include "framework/area.h"

#include "framework/kestra_logger.h"

#include <regex>

namespace {

// The logger opens its key with both view flags, which the registry refuses.
// This stand-in records the mask and opens the key in the native view, so
// that the use of Location can be shown.
REGSAM g_requestedAccess = 0;
const wchar_t kLogKey[] = L"SOFTWARE\\Kestra Technologies\\Log";

LSTATUS WINAPI OpenInNativeView(HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key)
{
    g_requestedAccess = access;
    static const auto real = reinterpret_cast<decltype(&RegOpenKeyExW)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"advapi32.dll"), "RegOpenKeyExW")));
    return real(root, path, options, access & ~(KEY_WOW64_32KEY | KEY_WOW64_64KEY), key);
}

class KestraLoggerTest : public FrameworkTest {
protected:
    void TearDown() override
    {
        SetEnvironmentVariableW(L"KESTRALOG_LEVEL", NULL);
        DeleteFileW((harness::ProgramFolder() + L"kestraLog.dll").c_str());
        FrameworkTest::TearDown();
    }
    // Puts a stand-in as kestraLog.dll into `folder`, which ends in its separator.
    static void PlaceLibrary(const std::wstring& folder, const wchar_t* standIn = L"kestra_log_standin.dll")
    {
        harness::MakeFolders(harness::kScratchFolder);  // where the stand-in records
        harness::MakeFolders(folder);
        CopyFileW((harness::ProgramFolder() + standIn).c_str(), (folder + L"kestraLog.dll").c_str(), FALSE);
    }
    // What the stand-in was given, as "level|line" each.
    static std::string Recorded()
    {
        const std::string bytes = harness::ReadFileBytes(std::wstring(harness::kScratchFolder) + L"kestraLog.lines");
        std::string text;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2)
            text += bytes[i];
        return text;
    }
};

TEST_F(KestraLoggerTest, WritesTimedAndSeparatorLinesAtTheLevelsOfTheLibraryOnceFound)
{
    harness::ImportPatch nativeView(GetModuleHandleW(NULL), "advapi32.dll", "RegOpenKeyExW",
                                    reinterpret_cast<void*>(OpenInNativeView));
    const std::wstring folder = std::wstring(harness::kScratchFolder) + L"Log Dir";
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", folder);
    {
        KestraLogger logger;
        EXPECT_EQ(1, logger.GetLogLevel());  // no library yet: nothing fails, nothing is written
        EXPECT_FALSE(logger.Log("Configuration", 1, L"lost"));
        EXPECT_FALSE(logger.WriteLine(L"==== lost too\r\n", 0));
        PlaceLibrary(folder + L"\\");  // found at the next line
        EXPECT_TRUE(logger.Log("Configuration", 1, L"The directory >%s< is not writable\n", L"C:\\Suite\\Config"));
        SetEnvironmentVariableW(L"KESTRALOG_LEVEL", L"1");
        EXPECT_FALSE(logger.Log("Configuration", 2, L"dropped"));
        EXPECT_TRUE(logger.Log("Configuration", 1, L"x ==== y"));
        SetEnvironmentVariableW(L"KESTRALOG_LEVEL", L"-1");
        EXPECT_TRUE(logger.Log("Setup", 0, L"==== %s ====", L"always"));
    }
    EXPECT_EQ(0x20319u, g_requestedAccess);
    const std::regex expected(
        "1\\|Configuration::\\[[0-3][0-9]-[01][0-9]-20[0-9][0-9] [01][0-9]:[0-5][0-9]:[0-5][0-9]\\] "
        "The directory >C:\\\\Suite\\\\Config< is not writable\n\r\n"
        "1\\|Configurationx ==== y\r\n0\\|Setup==== always ====\r\n");
    EXPECT_TRUE(std::regex_match(Recorded(), expected)) << Recorded();

    // A library without the writer takes no line.
    SetEnvironmentVariableW(L"KESTRALOG_LEVEL", NULL);
    PlaceLibrary(folder + L"2\\", L"kestra_log_nowrite.dll");
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", folder + L"2/");
    KestraLogger logger;
    EXPECT_FALSE(logger.Log("Configuration", 1, L"not taken"));
    EXPECT_EQ(2, logger.GetLogLevel());
}

}  // namespace
