// Child processes started for real in the prefix, the recording program
// standing in for the tools.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/process.h"

using namespace harness;

namespace {

// The shell's answer, fed in: a missing file would bring up its error box first.
INT_PTR g_shellResult = 0;
BOOL WINAPI RefusingShellExecute(SHELLEXECUTEINFOW* info)
{
    info->hInstApp = reinterpret_cast<HINSTANCE>(g_shellResult);
    return FALSE;
}

TEST_F(ToolkitTest, LaunchersRunTheLineWaitOnlyWhenAskedAndSaySo)
{
    const std::wstring tool = std::wstring(kScratchFolder) + L"Fake App\\tool.exe";
    const std::wstring line = L"\"" + tool + L"\" /a \"b c\"", missing = L"\"C:\\tessel\\scratch\\missing.exe\" /x";
    // Each without waiting, then waiting; the shell quotes the file and puts a blank before the parameters.
    const std::function<bool(bool)> launchers[] = {
        [&](bool wait) { return LaunchCommandLine(LaunchProcess, line, wait); },
        [&](bool wait) { return LaunchCommandLine(LaunchProcessSecured, line, wait); },
        [&](bool wait) { return ShellLaunch(tool.c_str(), L"/a \"b c\"", wait); }};
    InstallRecorder(tool);
    Session session;
    g_hSession = session.handle();
    size_t launches = 0;
    for (const auto& launch : launchers) {
        for (int wait = 0; wait < 2; ++wait, ++launches) {
            // A launch that waits returns with the record written; otherwise it is waited for here,
            // before the next copy starts, which would write the same file.
            EXPECT_TRUE(launch(wait == 1) && (!wait || RecordedCommandLines(tool).size() == launches + 1)) << launches;
            for (int i = 0; i < 500 && RecordedCommandLines(tool).size() <= launches; ++i)
                Sleep(20);
        }
    }
    EXPECT_EQ(Lines(6, line), RecordedCommandLines(tool));

    // Failures: a missing program, and the shell's codes (a few of its texts, the last one for any other code).
    EXPECT_FALSE(LaunchCommandLine(LaunchProcess, missing, true) ||
                 LaunchCommandLine(LaunchProcessSecured, missing, true));
    ImportPatch shellPatch(GetModuleHandleW(NULL), "shell32.dll", "ShellExecuteExW",
                           reinterpret_cast<void*>(RefusingShellExecute));
    for (INT_PTR code : {0, 28, 4}) {
        g_shellResult = code;
        EXPECT_FALSE(ShellLaunch(L"C:\\any.exe", L"", true)) << code;
    }
    const std::wstring converted = L"TESSEL_CA Security String converted";
    const std::wstring secured = L"CreateProcess successfully launched ";
    const std::wstring shell = L"Tessel_CA launched the following successfully: " + tool;
    const std::wstring failed = L"Tessel_CA failed to launch the following: ";
    EXPECT_EQ(Lines({converted, secured + line + L" \nWating flag was not set.", converted,
                     secured + line + L" \nWaitng for process to return...",
                     L"CreateProcess successfully returned from wait after launching " + line + L" \n", shell,
                     shell + L" \nWaiting for process to end...",
                     L"Tessel_CA Process: " + tool + L" \nsuccessfully ended launching", converted,
                     L"\nTESSEL_CA Failed to lauch >" + missing + L"<\n Last error return: 2\n",
                     failed + L"The operating system is out of memory or resources",
                     failed + L" The DDE transaction could not be completed because the request timed out",
                     failed + L"Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF"}),
              session.Log());
}

// The kills quote the whole line, switches included.
TEST_F(ToolkitTest, KillsRunTheTaskKiller)
{
    RefusedProcessStarts refused(GetModuleHandleW(NULL));
    EXPECT_TRUE(KillMarlinSettings() == 1603 && !KillProcessByImage(L"a.exe"));
    const std::wstring kill = L"\"C:\\windows\\system32\\TaskKill.exe /IM ";
    EXPECT_EQ((Lines{kill + L"MarlinSettings.exe /F\"", kill + L"a.exe /F\""}), RefusedProcessStarts::CommandLines());
}

}  // namespace
