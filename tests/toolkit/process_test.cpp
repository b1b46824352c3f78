// Child processes started for real in the prefix, with the recording program
// standing in for the tools.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/process.h"

#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>

using harness::Lines;
using harness::RecordedCommandLines;

namespace {

const std::wstring kTool = std::wstring(harness::kScratchFolder) + L"Fake App\\tool.exe";
const std::wstring kMissing = L"\"C:\\tessel\\scratch\\missing.exe\" /x";

// Waits, bounded, for children that weren't waited for to write their records.
Lines AwaitRecordOf(const std::wstring& program, size_t count)
{
    for (int i = 0; i < 500 && RecordedCommandLines(program).size() < count; ++i)
        Sleep(20);
    return RecordedCommandLines(program);
}

bool Running(const wchar_t* image)
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {sizeof(entry)};
    bool found = false;
    for (BOOL more = Process32FirstW(snapshot, &entry); more && !found; more = Process32NextW(snapshot, &entry))
        found = _wcsicmp(entry.szExeFile, image) == 0;
    CloseHandle(snapshot);
    return found;
}

class ProcessTest : public harness::ActionTest {
protected:
    ProcessTest() : ActionTest(ToolkitArea()) {}
    void SetUp() override
    {
        ActionTest::SetUp();
        harness::InstallRecorder(kTool);
    }
    ~ProcessTest() override { SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL); }
    harness::Session session_;
    const bool stored_ = (g_hSession = session_.handle()) != 0;
};

TEST_F(ProcessTest, LaunchProcessRunsTheExactLineSilentlyAndWaitsOnlyWhenAsked)
{
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"400");
    const std::wstring line = L"\"" + kTool + L"\" /a \"b c\" -d";
    const DWORD start = GetTickCount();
    EXPECT_TRUE(LaunchCommandLine(LaunchProcess, line, true));
    EXPECT_GE(GetTickCount() - start, 350u);
    EXPECT_EQ(Lines{line}, RecordedCommandLines(kTool));
    EXPECT_FALSE(LaunchCommandLine(LaunchProcess, kMissing, true));

    // A child that sleeps a minute is not waited for; taskkill ends it by its image name.
    const std::wstring sleeper = std::wstring(harness::kScratchFolder) + L"tessel_sleeper.exe";
    harness::InstallRecorder(sleeper);
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"60000");
    EXPECT_TRUE(LaunchCommandLine(LaunchProcess, L"\"" + sleeper + L"\"", false));
    EXPECT_EQ(1u, AwaitRecordOf(sleeper, 1).size());
    EXPECT_TRUE(Running(L"tessel_sleeper.exe"));
    std::wstring system;
    GetSpecialFolder(CSIDL_SYSTEM, system);
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL);
    EXPECT_TRUE(LaunchCommandLine(LaunchProcess, L"\"" + system + L"\\taskkill.exe\" /IM tessel_sleeper.exe /F", true));
    for (int poll = 0; poll < 100 && Running(L"tessel_sleeper.exe"); ++poll)
        Sleep(50);
    EXPECT_FALSE(Running(L"tessel_sleeper.exe"));
    EXPECT_EQ(Lines(), session_.Log());
}

BOOL WINAPI RefuseConversion(LPCWSTR, DWORD, PSECURITY_DESCRIPTOR*, PULONG)
{
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

TEST_F(ProcessTest, LaunchProcessSecuredLogsWhatItDid)
{
    const std::wstring line = L"\"" + kTool + L"\" /uninstall";
    EXPECT_TRUE(LaunchCommandLine(LaunchProcessSecured, line, true));
    EXPECT_TRUE(LaunchCommandLine(LaunchProcessSecured, line, false));
    EXPECT_FALSE(LaunchCommandLine(LaunchProcessSecured, kMissing, false));
    {
        // Without its descriptor the child starts all the same.
        harness::ImportPatch refused(GetModuleHandleW(NULL), "advapi32.dll",
                                     "ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                     reinterpret_cast<void*>(RefuseConversion));
        EXPECT_TRUE(LaunchCommandLine(LaunchProcessSecured, line, true));
    }
    EXPECT_EQ(Lines(3, line), AwaitRecordOf(kTool, 3));
    const std::wstring converted = L"TESSEL_CA Security String converted";
    EXPECT_EQ((Lines{converted, L"CreateProcess successfully launched " + line + L" \nWaitng for process to return...",
                     L"CreateProcess successfully returned from wait after launching " + line + L" \n", converted,
                     L"CreateProcess successfully launched " + line + L" \nWating flag was not set.", converted,
                     L"\nTESSEL_CA Failed to lauch >" + kMissing + L"<\n Last error return: 2\n",
                     L"TESSEL_CA Failed to ConvertStringSecurityDescriptorToSecurityDescriptor: error = 87\n",
                     L"CreateProcess successfully launched " + line + L" \nWaitng for process to return...",
                     L"CreateProcess successfully returned from wait after launching " + line + L" \n"}),
              session_.Log());
}

TEST_F(ProcessTest, ShellLaunchOpensTheFileWithItsParameters)
{
    EXPECT_TRUE(ShellLaunch(kTool.c_str(), L"/p \"q r\"", true));
    EXPECT_TRUE(ShellLaunch(kTool.c_str(), L"/s", false));
    // The shell quotes the file and puts one blank before the parameters.
    EXPECT_EQ(L"\"" + kTool + L"\" /p \"q r\"", AwaitRecordOf(kTool, 2).front());
    EXPECT_EQ((Lines{L"Tessel_CA launched the following successfully: " + kTool + L" \nWaiting for process to end...",
                     L"Tessel_CA Process: " + kTool + L" \nsuccessfully ended launching",
                     L"Tessel_CA launched the following successfully: " + kTool}),
              session_.Log());
}

// A real missing file can't be tried here: without SEE_MASK_FLAG_NO_UI the shell shows its error box first,
// on Windows as under Wine, and nobody answers it in a silent test. The shell's codes are fed in instead;
// Each text is the installer log's account of a failed launch, so each is pinned. -1 stands for a success
// without a process handle, which isn't waited for.
INT_PTR g_shellResult = 0;

BOOL WINAPI FakeShellExecute(SHELLEXECUTEINFOW* info)
{
    info->hInstApp = reinterpret_cast<HINSTANCE>(g_shellResult);
    info->hProcess = NULL;
    return g_shellResult == -1;
}

TEST_F(ProcessTest, ShellLaunchNamesTheShellsFailures)
{
    harness::ImportPatch failing(GetModuleHandleW(NULL), "shell32.dll", "ShellExecuteExW",
                                 reinterpret_cast<void*>(FakeShellExecute));
    const std::pair<INT_PTR, std::wstring> rows[] = {
        {0, L"failed to launch the following: The operating system is out of memory or resources"},
        {2, L"failed to launch the following: File not found."},
        {3, L"failed to launch the following: Path not found."},
        {5, L"failed to launch the following: Access denied."},
        {8, L"failed to launch the following: Out of memory."},
        {26, L"failed to launch the following: Cannot share an open file."},
        {27, L"failed to launch the following: File association information not complete."},
        {28, L"failed to launch the following:  The DDE transaction could not be completed because the request "
             L"timed out"},
        {29, L"failed to launch the following: DDE operation failed."},
        {30, L"failed to launch the following: DDE operation is busy."},
        {31, L"failed to launch the following: File association not available."},
        {32, L"failed to launch the following: Dynamic-link library not found."},
        {33, L"failed to launch the following: Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"},
        {4, L"failed to launch the following: Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"},
        {-1, L"launched the following successfully: C:\\any.exe \nWaiting for process to end..."}};
    Lines expected;
    for (const auto& row : rows) {
        g_shellResult = row.first;
        EXPECT_EQ(row.first == -1, ShellLaunch(L"C:\\any.exe", L"", true)) << row.first;
        expected.push_back(L"Tessel_CA " + row.second);
    }
    expected.push_back(L"Tessel_CA Process: C:\\any.exe \nsuccessfully ended launching");
    EXPECT_EQ(expected, session_.Log());
}

Lines g_createdLines;

BOOL WINAPI RecordCreateProcess(LPCWSTR, LPWSTR commandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                                DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    g_createdLines.push_back(commandLine);
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
}

TEST_F(ProcessTest, TheKillsQuoteTheWholeLineSoTheLaunchFails)
{
    std::wstring system;
    GetSpecialFolder(CSIDL_SYSTEM, system);
    harness::ImportPatch recording(GetModuleHandleW(NULL), "kernel32.dll", "CreateProcessW",
                                   reinterpret_cast<void*>(RecordCreateProcess));
    EXPECT_EQ(1603u, KillMarlinSettings());
    EXPECT_FALSE(KillProcessByImage(L"a.exe"));
    EXPECT_EQ((Lines{L"\"" + system + L"\\TaskKill.exe /IM MarlinSettings.exe /F\"",
                     L"\"" + system + L"\\TaskKill.exe /IM a.exe /F\""}),
              g_createdLines);
    wchar_t text[260] = L"untouched";
    FormatSystemMessage(ERROR_FILE_NOT_FOUND, text, 260);
    EXPECT_EQ(std::wstring(L"File not found.\r\n"), text);  // Wine's wording; Windows has its own
}

}  // namespace
