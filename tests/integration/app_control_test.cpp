// Closing and starting the suite's programs through the DLL: the recording
// program stands at each computed location, the system's tools among them.
#include "integration/area.h"

using namespace harness;

namespace {

using AppControlTest = IntegrationTest;
const std::wstring kApp = std::wstring(kScratchFolder) + L"App", kSystem = L"C:\\windows\\system32\\";
const std::wstring kTaskKill = kSystem + L"TaskKill.exe", kExplorer = L"C:\\windows\\explorer.exe";
const std::wstring kProfiler = kSystem + L"kestraprof.exe", kSchtasks = std::wstring(kScratchFolder) + L"schtasks.exe";

TEST_F(AppControlTest, EachActionRunsItsLineFromItsLocation)
{
    NativePrograms native{L"taskkill.exe", L"explorer.exe"};
    StandIn taskKill(kTaskKill), explorer(kExplorer), profiler(kProfiler);
    const std::wstring lumen = L"SOFTWARE\\Kestra\\Lumen\\Packages\\";
    const std::wstring install = L"SOFTWARE\\Kestra Technologies\\Install\\";
    const struct {
        const char* action;
        std::wstring key;     // where the location is written; empty: nowhere
        std::wstring folder;  // the location
        std::wstring tool;    // the recording program, below the folder or a full path
        UINT result;
        std::wstring line;    // empty: nothing run
        Lines log;
        REGSAM view = KEY_WOW64_32KEY;
        bool toolIsFolder = false;
    } rows[] = {
        // A tool that is there reads as missing in the log, and runs.
        {"ShutDownBrio", lumen + L"Core-Static", kApp, L"CLI.exe", 1, L"\"" + kApp + L"\\CLI.exe\" shutdown",
         {L"TESSEL_CA ShutDown Brio location " + kApp + L"\\CLI.exe, doesn't exist.\n"}},
        {"ShutDownBrio", L"", L"", L"", 0, L"", {}},
        // Only an empty folder in the tool's place passes the test, and can't be run.
        {"ShutDownBrio", lumen + L"Core-Static", kApp, L"", 0, L"",
         {L"TESSEL_CA ShutDown Brio location, " + kApp + L"\\CLI.exe \n"}, KEY_WOW64_32KEY, true},
        {"ShutDownBrioNext", install + L"Halyard", kApp + L"\\", L"halyardcmd.exe", 0,
         L"\"" + kApp + L"\\halyardcmd.exe\" exit", {}},
        {"ShutDownDVR", install + L"Orvel DVR", kApp, L"", 1603, L"", {}},
        {"ShutDownDVR", install + L"Orvel DVR", kApp, L"CaptureServCmd.exe", 0,
         L"\"" + kApp + L"\\CaptureServCmd.exe\" exit", {}},
        {"KillSorrelUIApp", lumen + L"Sorrel", kApp, L"Sorrel.Service.exe", 1,
         L"\"" + kApp + L"\\Sorrel.Service.exe\" /stop", {}},
        {"LaunchBrio", lumen + L"Core-Static", kApp, L"Pylon.exe", 1, L"\"" + kApp + L"\\Pylon.exe\"", {}},
        {"LaunchBrio", lumen + L"Core-Static", kApp, L"", 0, L"", {}},  // the tool can't be started
        // On a 64-bit system the control centre's location is the 32-bit branch's alone.
        {"LaunchBrio", lumen + L"Core-Static", kApp, L"Pylon.exe", 0, L"", {}, KEY_WOW64_64KEY},
        {"TerminateHalyardApp", L"", L"", kTaskKill, 0, L"\"" + kTaskKill + L"\" /IM MarlinSettings.exe /F\"", {}},
        {"TerminateDVRApp", L"", L"", kTaskKill, 0, L"\"" + kTaskKill + L"\" /IM OrvelCaptureServ.exe /F", {}},
        {"RestartExplorerBrioApp", L"", L"", kExplorer, 0, L"\"" + kExplorer + L"\"", {}},
        {"LaunchHalyard", L"", L"", kSchtasks, 1, L"schtasks /run /TN \"StartHalyard\"", {}},
        {"LoadProfile", L"", L"", kProfiler, 1, kProfiler + L" -reload", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.action << " row " << (&row - rows));
        ClearArea(IntegrationArea());
        const std::wstring tool = row.tool.empty() || row.tool[1] == L':' ? row.tool : kApp + L"\\" + row.tool;
        for (const std::wstring& record : {kTaskKill, kExplorer, kProfiler})
            DeleteFileW((record + L".cmdline").c_str());
        if (!row.key.empty())
            SetText(HKEY_LOCAL_MACHINE, row.key, L"Location", row.folder, row.view);
        if (!tool.empty() && tool.find(kScratchFolder) == 0)
            InstallRecorder(tool);
        if (row.toolIsFolder)
            MakeFolders(kApp + L"\\CLI.exe");
        SetCurrentDirectoryW(kScratchFolder);
        Session session;
        EXPECT_EQ(row.result, session.Call(row.action));
        EXPECT_EQ(row.log, session.Log());
        if (!tool.empty())
            EXPECT_EQ(row.line.empty() ? Lines() : Lines{row.line}, RecordedCommandLines(tool, !row.line.empty()));
    }
}

// One quoted word that names no program: the system is handed it, and refuses it. A launcher whose tool
// can't start says 0.
TEST_F(AppControlTest, ToolsThatCannotStartGiveTheirFailureResults)
{
    RefusedProcessStarts refused;
    EXPECT_EQ(0u, Session().Call("LoadProfile"));
    EXPECT_EQ(1603u, Session().Call("TerminatePixelSharpApp"));
    EXPECT_EQ((Lines{kProfiler + L" -reload", L"\"" + kTaskKill + L" /IM hpvstray.exe /F\""}),
              RefusedProcessStarts::CommandLines());
}

// Windows 7, as the prefix tells one program: no task is started, and the result is 1 all the same.
TEST_F(AppControlTest, LaunchHalyardOnWindows7RunsNothing)
{
    const wchar_t key[] = L"Software\\Wine\\AppDefaults\\action_host.exe";
    SetText(HKEY_CURRENT_USER, key, L"Version", L"win7");
    InstallRecorder(kSchtasks);
    SetCurrentDirectoryW(kScratchFolder);
    EXPECT_EQ(1u, RunToExit(L"\"" + ProgramFolder() + L"action_host.exe\" LaunchHalyard"));
    DeleteRegTree(HKEY_CURRENT_USER, key);
    EXPECT_EQ(Lines(), RecordedCommandLines(kSchtasks));
}

}  // namespace
