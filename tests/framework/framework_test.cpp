// The framework's error catalogue, and the logger facade against stand-ins of
// kestraLog.dll, found as the suite finds the real one.
#include "harness/harness.h"

#include "framework/error_handler.h"
#include "framework/kestra_logger.h"

#include <map>
#include <regex>

namespace {

class RecordingListener : public IErrorListener {
public:
    void OnErrorCode(int code) override { codes.push_back(code); }
    std::vector<int> codes;
};

// Each code with a text has a name of its own; a count per level and a few telling rows guard the table.
// Errors registered at run time follow it, named by their text, and each becomes the last error.
TEST(ErrorCatalogue, Holds201UniquelyNamedCodesThoseRegisteredAfterThemAndTheLastError)
{
    ErrorHandler catalogue;
    std::map<UINT, int> levels;
    for (int code = 0; code < ErrorHandler::kFirstRegisteredCode; ++code) {
        if (catalogue.GetErrorText(code) == L"Failed to return Error String")
            continue;
        ++levels[catalogue.GetErrorLevel(code)];
        EXPECT_EQ(code, catalogue.GetErrorCode(catalogue.GetErrorName(code))) << code;
    }
    EXPECT_EQ((std::map<UINT, int>{{0, 2}, {1, 47}, {2, 50}, {3, 67}, {4, 35}}), levels);
    auto row = [&catalogue](int code) {
        return std::to_wstring(catalogue.GetErrorLevel(code)) + L" " + catalogue.GetErrorName(code) + L" " +
               catalogue.GetErrorText(code);
    };
    EXPECT_EQ(L"3 IM_ERROR_DLM_NOT_INITIALIZED Install Manager: Failed to initialize Download Managerr", row(21));
    EXPECT_EQ(L"1 ERROR_UNKNOWN Unknown Error", row(1607));
    // The one text that breaks a line.
    EXPECT_EQ(row(1606), L"2 IM_BLOCK_RAIDUPGRADE Previously installed RAID driver is not compatible with new RAID "
                         L"driver, installing new driver may damage existing RAID array.\r\n If you wish to proceed "
                         L"with new RAID driver installation then take back up of your array install the new RAID "
                         L"driver manually with fresh OS installation.");
    EXPECT_EQ(1607, catalogue.GetErrorCode(L"error_none"));  // names are found exactly

    RecordingListener listener;
    catalogue.AddListener(&listener);
    catalogue.AddListener(&listener);
    EXPECT_EQ(1608, catalogue.RegisterError(L"Plug-in failed to load", 3));
    EXPECT_EQ(1609, catalogue.RegisterError(L"Plug-in timed out", 1));
    EXPECT_EQ(1609, catalogue.GetLastErrorCode());
    EXPECT_EQ(L"3 Plug-in failed to load Plug-in failed to load", row(1608));
    EXPECT_EQ(1607, catalogue.GetErrorCode(L"Plug-in timed out"));  // not found by name
    catalogue.SetLastErrorCode(165);
    catalogue.SetLastErrorCodeEx(1607, false);
    EXPECT_EQ(1607, catalogue.GetLastErrorCode());
    catalogue.RemoveListener(&listener);
    catalogue.SetLastErrorCodeEx(5, true);
    // Held once though added twice; not told of the quiet set nor after its removal.
    EXPECT_EQ((std::vector<int>{1608, 1609, 165}), listener.codes);
    // Each set lets the lock go: another thread takes it at once.
    auto setElsewhere = [](LPVOID handler) -> DWORD {
        static_cast<ErrorHandler*>(handler)->SetLastErrorCodeEx(8, false);
        return 0;
    };
    HANDLE other = CreateThread(NULL, 0, setElsewhere, &catalogue, 0, NULL);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(other, 5000));
    CloseHandle(other);

    // The process's one catalogue; one set from outside is not owned, so releasing forgets it undeleted.
    EXPECT_EQ(ErrorHandler::GetInstance(), ErrorHandler::GetInstance());
    ErrorHandler::SetInstance(&catalogue);
    EXPECT_EQ(&catalogue, ErrorHandler::GetInstance());
    ErrorHandler::ReleaseInstance();
    EXPECT_NE(&catalogue, ErrorHandler::GetInstance());
    ErrorHandler::ReleaseInstance();
}

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

// The logger's test touches the install manager's keys.
class KestraLoggerTest : public harness::ActionTest {
protected:
    KestraLoggerTest() : ActionTest({{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"}}, {}, {}}) {}
};

TEST_F(KestraLoggerTest, WritesTimedAndSeparatorLinesAtTheLevelsOfTheLibraryOnceFound)
{
    harness::ImportPatch nativeView(GetModuleHandleW(NULL), "advapi32.dll", "RegOpenKeyExW",
                                    reinterpret_cast<void*>(OpenInNativeView));
    // The library's folder is in the scratch folder, where the stand-in records.
    const std::wstring folder = std::wstring(harness::kScratchFolder) + L"Log Dir";
    const std::wstring library = folder + L"\\kestraLog.dll";
    harness::MakeFolders(folder);
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", folder);
    {
        KestraLogger logger;
        EXPECT_EQ(1, logger.GetLogLevel());  // no library yet: nothing fails, nothing is written
        EXPECT_FALSE(logger.Log("Configuration", 1, L"lost"));
        CopyFileW((harness::ProgramFolder() + L"kestra_log_standin.dll").c_str(), library.c_str(), FALSE);
        EXPECT_TRUE(logger.Log("Configuration", 1, L"The directory >%s< is not writable\n", L"C:\\Suite\\Config"));
        SetEnvironmentVariableW(L"KESTRALOG_LEVEL", L"1");
        EXPECT_FALSE(logger.Log("Configuration", 2, L"dropped"));
        EXPECT_TRUE(logger.Log("Configuration", 1, L"x ==== y"));
        SetEnvironmentVariableW(L"KESTRALOG_LEVEL", L"-1");
        EXPECT_TRUE(logger.Log("Setup", 0, L"==== %s ====", L"always"));
    }
    EXPECT_EQ(0x20319u, g_requestedAccess);
    const std::wregex expected(
        L"1\\|Configuration::\\[[0-3][0-9]-[01][0-9]-20[0-9][0-9] [01][0-9]:[0-5][0-9]:[0-5][0-9]\\] "
        L"The directory >C:\\\\Suite\\\\Config< is not writable\n\r\n"
        L"1\\|Configurationx ==== y\r\n0\\|Setup==== always ====\r\n");
    // What the stand-in was given, as "level|line" each.
    const std::string bytes = harness::ReadFileBytes(std::wstring(harness::kScratchFolder) + L"kestraLog.lines");
    const std::wstring recorded(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
    EXPECT_TRUE(std::regex_match(recorded, expected)) << recorded;

    // A library without the writer takes no line.
    SetEnvironmentVariableW(L"KESTRALOG_LEVEL", NULL);
    CopyFileW((harness::ProgramFolder() + L"kestra_log_nowrite.dll").c_str(), library.c_str(), FALSE);
    harness::SetText(HKEY_LOCAL_MACHINE, kLogKey, L"Location", folder + L"/");
    KestraLogger logger;
    EXPECT_FALSE(logger.Log("Configuration", 1, L"not taken"));
    EXPECT_EQ(2, logger.GetLogLevel());
}

}  // namespace
