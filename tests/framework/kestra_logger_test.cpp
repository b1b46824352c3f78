// The logger facade against stand-ins of kestraLog.dll, found as the suite
// finds the real one.
#include "framework/area.h"

#include "framework/kestra_logger.h"

#include <gmock/gmock.h>

#include <regex>

using ::testing::IsEmpty;

namespace {

const wchar_t kLogKey[] = L"SOFTWARE\\Kestra Technologies\\Log";
const wchar_t kRecord[] = L"C:\\tessel\\scratch\\kestraLog.lines";

// The logger opens its key with both view flags, which the registry refuses
// (Wine as Windows). This stand-in records the mask and opens the key in the
// native view, so that the use of Location can be shown.
REGSAM g_requestedAccess = 0;

LSTATUS WINAPI OpenInNativeView(HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key)
{
    g_requestedAccess = access;
    static const auto real = reinterpret_cast<decltype(&RegOpenKeyExW)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"advapi32.dll"), "RegOpenKeyExW")));
    return real(root, path, options, access & ~(KEY_WOW64_32KEY | KEY_WOW64_64KEY), key);
}

class KestraLoggerTest : public harness::ActionTest {
protected:
    KestraLoggerTest()
        : ActionTest(SuiteKeysArea()),
          openPatch_(GetModuleHandleW(NULL), "advapi32.dll", "RegOpenKeyExW",
                     reinterpret_cast<void*>(OpenInNativeView))
    {
    }

    void TearDown() override
    {
        SetEnvironmentVariableW(L"KESTRALOG_LEVEL", NULL);
        DeleteFileW((harness::ProgramFolder() + L"kestraLog.dll").c_str());
        ActionTest::TearDown();
    }

    // Puts a stand-in as kestraLog.dll into `folder` and returns the folder.
    static std::wstring PlaceLibrary(const std::wstring& folder, const wchar_t* standIn = L"kestra_log_standin.dll")
    {
        CreateDirectoryW(harness::kScratchFolder, NULL);
        CreateDirectoryW(folder.c_str(), NULL);
        bool closed = folder.back() == L'\\' || folder.back() == L'/';
        std::wstring target = folder + (closed ? L"" : L"\\") + L"kestraLog.dll";
        CopyFileW((harness::ProgramFolder() + standIn).c_str(), target.c_str(), FALSE);
        return folder;
    }

    // Each record as "level|line", lines with their own line ends.
    static std::string Recorded()
    {
        HANDLE file = CreateFileW(kRecord, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0,
                                  NULL);
        if (file == INVALID_HANDLE_VALUE)
            return std::string();
        std::wstring text(GetFileSize(file, NULL) / sizeof(wchar_t), L'\0');
        DWORD read = 0;
        ReadFile(file, &text[0], static_cast<DWORD>(text.size() * sizeof(wchar_t)), &read, NULL);
        CloseHandle(file);
        return std::string(text.begin(), text.end());
    }

    harness::ImportPatch openPatch_;
};

TEST_F(KestraLoggerTest, WritesTimedLinesThroughTheLibraryAtItsLocation)
{
    std::wstring folder = PlaceLibrary(std::wstring(harness::kScratchFolder) + L"Log Dir");
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", folder);
    {
        KestraLogger logger;
        EXPECT_TRUE(logger.Log("Configuration", 1, L"The directory >%s< is not writable\n", L"C:\\Suite\\Config"));
        EXPECT_TRUE(logger.Log("Configuration", 2, L"Updating settings %s from >%s< to >%s<\n", L"a", L"1", L"2"));
    }
    EXPECT_EQ(0x20319u, g_requestedAccess);
    // gtest's own regular expressions are the simple kind on Windows.
    std::regex expected("1\\|Configuration::\\[[0-3][0-9]-[01][0-9]-20[0-9][0-9] [01][0-9]:[0-5][0-9]:[0-5][0-9]\\] "
                        "The directory >C:\\\\Suite\\\\Config< is not writable\n\r\n"
                        "2\\|Configuration::\\[.{19}\\] Updating settings a from >1< to >2<\n\r\n");
    std::string recorded = Recorded();
    EXPECT_TRUE(std::regex_match(recorded, expected)) << recorded;
}

TEST_F(KestraLoggerTest, ASeparatorLineHasNoTime)
{
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location",
                            PlaceLibrary(std::wstring(harness::kScratchFolder) + L"logs/"));
    KestraLogger logger;
    EXPECT_TRUE(logger.Log("Configuration", 0, L"==== %s ====", L"start"));
    EXPECT_TRUE(logger.Log("Configuration", 1, L"x ==== y"));
    EXPECT_EQ("0|Configuration==== start ====\r\n1|Configurationx ==== y\r\n", Recorded());
}

TEST_F(KestraLoggerTest, DropsLinesMoreDetailedThanTheLibrarysLevel)
{
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location",
                            PlaceLibrary(std::wstring(harness::kScratchFolder) + L"logs"));
    SetEnvironmentVariableW(L"KESTRALOG_LEVEL", L"1");
    KestraLogger logger;
    EXPECT_EQ(1, logger.GetLogLevel());
    EXPECT_FALSE(logger.Log("Configuration", 2, L"detail"));
    EXPECT_TRUE(logger.Log("Configuration", 1, L"==== kept"));
    SetEnvironmentVariableW(L"KESTRALOG_LEVEL", L"0");
    EXPECT_TRUE(logger.Log("Configuration", 0, L"==== always"));
    EXPECT_EQ("1|Configuration==== kept\r\n0|Configuration==== always\r\n", Recorded());
}

TEST_F(KestraLoggerTest, WithoutTheLibraryNothingHappensAndNothingFails)
{
    // The key names a folder without the library; nothing in the search order has it either.
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", L"C:\\tessel\\scratch\\empty");
    KestraLogger logger;
    EXPECT_EQ(1, logger.GetLogLevel());
    EXPECT_FALSE(logger.Log("Configuration", 2, L"dropped before formatting"));
    EXPECT_FALSE(logger.Log("Configuration", 1, L"formatted and lost"));
    EXPECT_FALSE(logger.Log("Configuration", 0, L"==== lost too"));
    EXPECT_FALSE(logger.WriteLine(L"line\r\n", 0));
    EXPECT_TRUE(logger.Unload());
    EXPECT_EQ("", Recorded());

    // A failed load is tried again at the next line.
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location",
                            PlaceLibrary(L"C:\\tessel\\scratch\\empty"));
    EXPECT_TRUE(logger.Log("Configuration", 0, L"==== found"));
}

TEST_F(KestraLoggerTest, WithoutTheKeyTheSystemsSearchOrderFindsTheLibrary)
{
    PlaceLibrary(harness::ProgramFolder());
    KestraLogger logger;
    EXPECT_TRUE(logger.Log("Setup", 0, L"===="));
    EXPECT_TRUE(logger.Unload());
    EXPECT_EQ("0|Setup====\r\n", Recorded());
}

TEST_F(KestraLoggerTest, ALibraryWithoutTheWriterTakesNoLine)
{
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location",
                            PlaceLibrary(std::wstring(harness::kScratchFolder) + L"logs", L"kestra_log_nowrite.dll"));
    KestraLogger logger;
    EXPECT_FALSE(logger.Log("Configuration", 1, L"one"));
    EXPECT_FALSE(logger.Log("Configuration", 1, L"two"));
    EXPECT_EQ(2, logger.GetLogLevel());
    EXPECT_TRUE(logger.Unload());
}

class KestraLoggerOnTheRealRegistryTest : public harness::ActionTest {
protected:
    KestraLoggerOnTheRealRegistryTest() : ActionTest(SuiteKeysArea()) {}
};

TEST_F(KestraLoggerOnTheRealRegistryTest, TheKeyCannotBeOpenedSoTheSearchOrderDecides)
{
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", L"C:\\tessel\\scratch\\nowhere");
    HKEY key = NULL;
    EXPECT_NE(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLogKey, 0, 0x20319, &key));
    KestraLogger logger;
    std::wstring location = L"stale";
    logger.FindLibraryLocation(location);
    EXPECT_EQ(L"", location);

    CopyFileW((harness::ProgramFolder() + L"kestra_log_standin.dll").c_str(),
              (harness::ProgramFolder() + L"kestraLog.dll").c_str(), FALSE);
    EXPECT_TRUE(logger.Load());
    EXPECT_TRUE(logger.Unload());
    DeleteFileW((harness::ProgramFolder() + L"kestraLog.dll").c_str());
}

TEST(KestraLoggerInstance, IsBuiltAtLoadAndOpensNothing)
{
    EXPECT_EQ(&g_kestraLogger, &KestraLogger::GetInstance());
    // Nothing loaded yet: unloading has nothing to do.
    EXPECT_TRUE(KestraLogger::GetInstance().Unload());
}

}  // namespace
