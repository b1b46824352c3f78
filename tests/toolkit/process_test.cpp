// Child processes started for real in the prefix, the recording program
// standing in for the tools; the library's waits are counted at its import.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/process.h"

#include <shlobj.h>

using namespace harness;

namespace {

int g_waits = 0;
DWORD WINAPI CountedWait(HANDLE handle, DWORD ms)
{
    g_waits += ms == INFINITE;
    return WaitForSingleObjectEx(handle, ms, FALSE);
}

TEST_F(ToolkitTest, LaunchersRunTheLineWaitOnlyWhenAskedAndSaySo)
{
    const std::wstring tool = std::wstring(kScratchFolder) + L"Fake App\\tool.exe";
    const std::wstring line = L"\"" + tool + L"\" /a \"b c\"";
    const std::wstring secured = L"CreateProcess successfully launched " + line;
    const std::wstring shell = L"Tessel_CA launched the following successfully: " + tool;
    // The shell quotes the file and puts a blank before the parameters.
    const struct { std::function<bool(bool)> launch; Lines waited, notWaited; } rows[] = {
        {[&](bool wait) { return LaunchCommandLine(LaunchProcess, line, wait); }, {}, {}},
        {[&](bool wait) { return LaunchCommandLine(LaunchProcessSecured, line, wait); },
         {L"TESSEL_CA Security String converted", secured + L" \nWaitng for process to return...",
          L"CreateProcess successfully returned from wait after launching " + line + L" \n"},
         {L"TESSEL_CA Security String converted", secured + L" \nWating flag was not set."}},
        {[&](bool wait) { return ShellLaunch(tool.c_str(), L"/a \"b c\"", wait); },
         {shell + L" \nWaiting for process to end...",
          L"Tessel_CA Process: " + tool + L" \nsuccessfully ended launching"},
         {shell}},
    };
    InstallRecorder(tool);
    size_t launches = 0;
    for (const auto& row : rows) {
        for (bool wait : {false, true}) {
            Session session;
            g_hSession = session.handle();
            g_waits = 0;
            ImportPatch counted(GetModuleHandleW(NULL), "kernel32.dll", "WaitForSingleObject",
                                reinterpret_cast<void*>(CountedWait));
            EXPECT_TRUE(row.launch(wait)) << launches;
            EXPECT_EQ(wait ? 1 : 0, g_waits) << launches;
            EXPECT_EQ(wait ? row.waited : row.notWaited, session.Log()) << launches;
            for (int i = 0; i < 500 && RecordedCommandLines(tool).size() <= launches; ++i)
                Sleep(20);
            EXPECT_EQ(Lines(++launches, line), RecordedCommandLines(tool));
        }
    }
}

BOOL WINAPI RefuseConversion(LPCWSTR, DWORD, PSECURITY_DESCRIPTOR*, PULONG)
{
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

// The shell's answers, fed in: a missing file would bring up its error box first. -1 stands
// for a success without a process handle.
INT_PTR g_shellResult = 0;
BOOL WINAPI FakeShellExecute(SHELLEXECUTEINFOW* info)
{
    info->hInstApp = reinterpret_cast<HINSTANCE>(g_shellResult);
    info->hProcess = NULL;
    return g_shellResult == -1;
}

Lines g_created;
BOOL WINAPI RecordCreateProcess(LPCWSTR, LPWSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                                LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    g_created.push_back(line);
    return FALSE;
}

TEST_F(ToolkitTest, FailedLaunchesAndWhatTheySay)
{
    Session session;
    g_hSession = session.handle();
    const std::wstring missing = L"\"C:\\tessel\\scratch\\missing.exe\" /x";
    EXPECT_FALSE(LaunchCommandLine(LaunchProcess, missing, true) ||
                 LaunchCommandLine(LaunchProcessSecured, missing, true));
    {
        // Without its descriptor the child is launched all the same.
        const char conversion[] = "ConvertStringSecurityDescriptorToSecurityDescriptorW";
        ImportPatch refused(GetModuleHandleW(NULL), "advapi32.dll", conversion,
                            reinterpret_cast<void*>(RefuseConversion));
        EXPECT_FALSE(LaunchCommandLine(LaunchProcessSecured, missing, false));
    }
    const std::wstring failed = L"\nTESSEL_CA Failed to lauch >" + missing + L"<\n Last error return: 2\n";
    Lines expected = {L"TESSEL_CA Security String converted", failed,
                      L"TESSEL_CA Failed to ConvertStringSecurityDescriptorToSecurityDescriptor: error = 87\n", failed};
    // Each text is the log's account of a failed launch.
    const std::pair<INT_PTR, const wchar_t*> shell[] = {
        {0, L"The operating system is out of memory or resources"}, {2, L"File not found."}, {3, L"Path not found."},
        {5, L"Access denied."}, {8, L"Out of memory."}, {26, L"Cannot share an open file."},
        {27, L"File association information not complete."},
        {28, L" The DDE transaction could not be completed because the request timed out"},
        {29, L"DDE operation failed."}, {30, L"DDE operation is busy."}, {31, L"File association not available."},
        {32, L"Dynamic-link library not found."}, {33, L"Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"},
        {4, L"Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"}};
    ImportPatch shellPatch(GetModuleHandleW(NULL), "shell32.dll", "ShellExecuteExW",
                           reinterpret_cast<void*>(FakeShellExecute));
    for (const auto& row : shell) {
        g_shellResult = row.first;
        EXPECT_FALSE(ShellLaunch(L"C:\\any.exe", L"", true)) << row.first;
        expected.push_back(std::wstring(L"Tessel_CA failed to launch the following: ") + row.second);
    }
    g_shellResult = -1;  // a handle-less success: nothing to wait for
    EXPECT_TRUE(ShellLaunch(L"C:\\any.exe", L"", true));
    expected.push_back(L"Tessel_CA launched the following successfully: C:\\any.exe \nWaiting for process to end...");
    expected.push_back(L"Tessel_CA Process: C:\\any.exe \nsuccessfully ended launching");
    EXPECT_EQ(expected, session.Log());

    // The kills quote the whole line, switches included.
    std::wstring system;
    GetSpecialFolder(CSIDL_SYSTEM, system);
    ImportPatch recording(GetModuleHandleW(NULL), "kernel32.dll", "CreateProcessW",
                          reinterpret_cast<void*>(RecordCreateProcess));
    EXPECT_TRUE(KillMarlinSettings() == 1603 && !KillProcessByImage(L"a.exe"));
    const std::wstring kill = L"\"" + system + L"\\TaskKill.exe /IM ";
    EXPECT_EQ((Lines{kill + L"MarlinSettings.exe /F\"", kill + L"a.exe /F\""}), g_created);
}

}  // namespace
