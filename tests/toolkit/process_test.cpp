// Child processes started for real in the prefix, with the recording program
// standing in for the tools.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/process.h"

#include <gmock/gmock.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>

using harness::InstallRecorder;
using harness::RecordedCommandLines;
using harness::Session;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Waits, bounded, for children that weren't waited for to write their records.
std::vector<std::wstring> AwaitRecordOf(const std::wstring& program, size_t count = 1)
{
    for (int i = 0; i < 500 && RecordedCommandLines(program).size() < count; ++i)
        Sleep(20);
    return RecordedCommandLines(program);
}

class ProcessTest : public harness::ActionTest {
protected:
    ProcessTest() : ActionTest(ToolkitArea()) {}

protected:
    void SetUp() override
    {
        ActionTest::SetUp();
        tool_ = std::wstring(harness::kScratchFolder) + L"Fake App\\tool.exe";
        InstallRecorder(tool_);
    }
    void TearDown() override
    {
        SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL);
        ActionTest::TearDown();
    }

    // The tool's line as callers build it: quoted path, a blank, switches.
    std::wstring Line(const std::wstring& switches) const { return L"\"" + tool_ + L"\" " + switches; }

    std::vector<std::wstring> AwaitRecord(size_t count) const { return AwaitRecordOf(tool_, count); }

    std::wstring tool_;
};

DWORD Elapsed(DWORD start)
{
    return GetTickCount() - start;
}

TEST_F(ProcessTest, LaunchProcessRunsTheExactLineAndWaitsOnlyWhenAsked)
{
    Session session;
    g_hSession = session.handle();
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"400");

    std::wstring waited = Line(L"/a \"b c\" -d");
    wchar_t buffer[kCommandLineChars + 1];
    BoundedCopy(buffer, kCommandLineChars, waited.c_str(), kCommandLineChars);
    DWORD start = GetTickCount();
    EXPECT_TRUE(LaunchProcess(buffer, waited, true));
    EXPECT_GE(Elapsed(start), 350u);
    EXPECT_THAT(RecordedCommandLines(tool_), ElementsAre(waited));

    std::wstring notWaited = Line(L"/second");
    BoundedCopy(buffer, kCommandLineChars, notWaited.c_str(), kCommandLineChars);
    start = GetTickCount();
    EXPECT_TRUE(LaunchProcess(buffer, notWaited, false));
    EXPECT_LT(Elapsed(start), 350u);
    EXPECT_THAT(AwaitRecord(2), ElementsAre(waited, notWaited));
    // Let the child finish its delay before the fixture removes its folder.
    Sleep(500);
    EXPECT_THAT(session.Log(), IsEmpty());
}

TEST_F(ProcessTest, LaunchProcessOfAMissingProgramFailsSilently)
{
    Session session;
    g_hSession = session.handle();
    wchar_t line[] = L"\"C:\\tessel\\scratch\\missing.exe\" /x";
    EXPECT_FALSE(LaunchProcess(line, line, true));
    EXPECT_THAT(session.Log(), IsEmpty());
}

TEST_F(ProcessTest, LaunchProcessSecuredLogsWhatItDid)
{
    Session session;
    g_hSession = session.handle();
    std::wstring line = Line(L"/uninstall");
    wchar_t buffer[kCommandLineChars + 1];
    BoundedCopy(buffer, kCommandLineChars, line.c_str(), kCommandLineChars);
    EXPECT_TRUE(LaunchProcessSecured(buffer, line, true));
    EXPECT_TRUE(LaunchProcessSecured(buffer, line, false));
    EXPECT_THAT(AwaitRecord(2), ElementsAre(line, line));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"TESSEL_CA Security String converted",
                            L"CreateProcess successfully launched " + line + L" \nWaitng for process to return...",
                            L"CreateProcess successfully returned from wait after launching " + line + L" \n",
                            L"TESSEL_CA Security String converted",
                            L"CreateProcess successfully launched " + line + L" \nWating flag was not set."));
}

TEST_F(ProcessTest, LaunchProcessSecuredReportsAFailedLaunch)
{
    Session session;
    g_hSession = session.handle();
    wchar_t line[] = L"\"C:\\tessel\\scratch\\missing.exe\" /x";
    EXPECT_FALSE(LaunchProcessSecured(line, line, false));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"TESSEL_CA Security String converted",
                            L"\nTESSEL_CA Failed to lauch >\"C:\\tessel\\scratch\\missing.exe\" /x<\n Last error "
                            L"return: 2\n"));
}

BOOL WINAPI RefuseConversion(LPCWSTR, DWORD, PSECURITY_DESCRIPTOR*, PULONG)
{
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

TEST_F(ProcessTest, LaunchProcessSecuredStartsTheChildWithoutItsDescriptor)
{
    Session session;
    g_hSession = session.handle();
    harness::ImportPatch refused(GetModuleHandleW(NULL), "advapi32.dll",
                                 "ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                 reinterpret_cast<void*>(RefuseConversion));
    std::wstring line = Line(L"/x");
    wchar_t buffer[kCommandLineChars + 1];
    BoundedCopy(buffer, kCommandLineChars, line.c_str(), kCommandLineChars);
    EXPECT_TRUE(LaunchProcessSecured(buffer, line, true));
    EXPECT_THAT(RecordedCommandLines(tool_), ElementsAre(line));
    EXPECT_EQ(L"TESSEL_CA Failed to ConvertStringSecurityDescriptorToSecurityDescriptor: error = 87\n",
              session.Log().front());
}

TEST_F(ProcessTest, ShellLaunchOpensTheFileWithItsParameters)
{
    Session session;
    g_hSession = session.handle();
    EXPECT_TRUE(ShellLaunch(tool_.c_str(), L"/p \"q r\"", true));
    EXPECT_TRUE(ShellLaunch(tool_.c_str(), L"/s", false));
    std::vector<std::wstring> lines = AwaitRecord(2);
    ASSERT_EQ(2u, lines.size());
    // The shell quotes the file and puts one blank before the parameters.
    EXPECT_EQ(L"\"" + tool_ + L"\" /p \"q r\"", lines[0]);
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA launched the following successfully: " + tool_ + L" \nWaiting for process to end...",
                            L"Tessel_CA Process: " + tool_ + L" \nsuccessfully ended launching",
                            L"Tessel_CA launched the following successfully: " + tool_));
}

// A real missing file can't be tried here: without SEE_MASK_FLAG_NO_UI the
// shell shows its error box first, on Windows as under Wine, and nobody
// answers it in a silent test. The shell's codes are fed in instead.
INT_PTR g_shellResult = 0;

BOOL WINAPI FailShellExecute(SHELLEXECUTEINFOW* info)
{
    info->hInstApp = reinterpret_cast<HINSTANCE>(g_shellResult);
    return FALSE;
}

TEST_F(ProcessTest, ShellLaunchNamesEachShellFailure)
{
    harness::ImportPatch failing(GetModuleHandleW(NULL), "shell32.dll", "ShellExecuteExW",
                                 reinterpret_cast<void*>(FailShellExecute));
    const std::pair<INT_PTR, const wchar_t*> expected[] = {
        {0, L"The operating system is out of memory or resources"},
        {2, L"File not found."},
        {3, L"Path not found."},
        {5, L"Access denied."},
        {8, L"Out of memory."},
        {26, L"Cannot share an open file."},
        {27, L"File association information not complete."},
        {28, L" The DDE transaction could not be completed because the request timed out"},
        {29, L"DDE operation failed."},
        {30, L"DDE operation is busy."},
        {31, L"File association not available."},
        {32, L"Dynamic-link library not found."},
        {33, L"Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"},
        {4, L"Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"},
    };
    for (const auto& row : expected) {
        Session session;
        g_hSession = session.handle();
        g_shellResult = row.first;
        EXPECT_FALSE(ShellLaunch(L"C:\\any.exe", L"", true));
        EXPECT_THAT(session.Log(), ElementsAre(std::wstring(L"Tessel_CA failed to launch the following: ") + row.second))
            << row.first;
    }
}

BOOL WINAPI SucceedWithoutProcess(SHELLEXECUTEINFOW* info)
{
    info->hProcess = NULL;
    return TRUE;
}

TEST_F(ProcessTest, ShellLaunchWithoutAProcessHandleDoesNotWait)
{
    Session session;
    g_hSession = session.handle();
    harness::ImportPatch noProcess(GetModuleHandleW(NULL), "shell32.dll", "ShellExecuteExW",
                                   reinterpret_cast<void*>(SucceedWithoutProcess));
    EXPECT_TRUE(ShellLaunch(L"http://example.invalid/", L"", true));
    EXPECT_EQ(2u, session.Log().size());
}

std::vector<std::wstring> g_createdLines;

BOOL WINAPI RecordCreateProcess(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                                LPSECURITY_ATTRIBUTES threadAttributes, BOOL inherit, DWORD flags, LPVOID environment,
                                LPCWSTR directory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION process)
{
    g_createdLines.push_back(commandLine);
    // The import slot now leads here: reach the real one by name.
    static const auto real = reinterpret_cast<decltype(&CreateProcessW)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "CreateProcessW")));
    return real(application, commandLine, processAttributes, threadAttributes, inherit, flags, environment,
                          directory, startup, process);
}

TEST_F(ProcessTest, TheKillsQuoteTheWholeLineSoTheLaunchFails)
{
    std::wstring system;
    GetSpecialFolder(CSIDL_SYSTEM, system);
    g_createdLines.clear();
    harness::ImportPatch recording(GetModuleHandleW(NULL), "kernel32.dll", "CreateProcessW",
                                   reinterpret_cast<void*>(RecordCreateProcess));
    EXPECT_EQ(1603u, KillMarlinSettings());
    EXPECT_FALSE(KillProcessByImage(L"a.exe"));
    EXPECT_THAT(g_createdLines,
                ElementsAre(L"\"" + system + L"\\TaskKill.exe /IM MarlinSettings.exe /F\"",
                            L"\"" + system + L"\\TaskKill.exe /IM a.exe /F\""));
}

TEST_F(ProcessTest, TaskKillEndsARunningProgramByItsImageName)
{
    std::wstring sleeper = std::wstring(harness::kScratchFolder) + L"tessel_sleeper.exe";
    InstallRecorder(sleeper);
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"60000");
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION child = {};
    std::wstring childLine = L"\"" + sleeper + L"\"";
    ASSERT_TRUE(CreateProcessW(NULL, &childLine[0], NULL, NULL, FALSE, 0, NULL, NULL, &startup, &child));
    ASSERT_EQ(1u, AwaitRecordOf(sleeper).size());

    std::wstring system;
    GetSpecialFolder(CSIDL_SYSTEM, system);
    std::wstring kill = L"\"" + system + L"\\taskkill.exe\" /IM tessel_sleeper.exe /F";
    wchar_t buffer[kCommandLineChars + 1];
    BoundedCopy(buffer, kCommandLineChars, kill.c_str(), kCommandLineChars);
    EXPECT_TRUE(LaunchProcess(buffer, kill, true));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(child.hProcess, 10000));
    TerminateProcess(child.hProcess, 0);
    CloseHandle(child.hProcess);
    CloseHandle(child.hThread);
}

TEST(ProcessMessages, FormatSystemMessageGivesTheSystemsText)
{
    wchar_t text[260] = L"untouched";
    FormatSystemMessage(ERROR_FILE_NOT_FOUND, text, 260);
    // Wine's message table; Windows says "The system cannot find the file specified."
    EXPECT_EQ(std::wstring(L"File not found.\r\n"), text);
}

}  // namespace
