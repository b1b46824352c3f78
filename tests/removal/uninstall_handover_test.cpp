// The hand-over of a removal to the install manager, through the DLL in real
// sessions, with the recording program standing in for the install manager.
#include "removal/area.h"

#include <thread>

using namespace harness;

namespace {

const wchar_t kManagerKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager";
const wchar_t kNoDialog[] = L"Unable to show/hide MSI uninstall window";
// A blank in the folder, so that the quoting shows.
const std::wstring kManager = std::wstring(harness::kScratchFolder) + L"Quillon Manager\\BIN64\\InstallManagerApp.exe";
const std::wstring kQuoted = L"\"" + kManager + L"\"";
const DWORD kUntouched = 7;  // UninstallMode before each run

struct Action {
    const char* name;
    const wchar_t* switches;
    DWORD mode;             // UninstallMode afterwards
    const wchar_t* reboot;  // REBOOT afterwards, with Ferrule_Reboot "YeS"
    UINT failure;
};
const wchar_t kUnattended[] = L"/IGNORE_UPGRADE /FORCE_HIDE_FIRST_RUN /UNATTENDED_UNINSTALL /AUTOACCEPT_ALL "
                              L"/FORCE_CLOSE_WHEN_DONE /ON_REBOOT_MESSAGE:NO";
const Action kActions[] = {
    {"LaunchApp_UinstallAll", kUnattended, 3, L"F", 1603},
    {"LaunchApp_UinstallCurrent", kUnattended, 1, L"F", 1603},
    {"LaunchApp_UinstallComp", L"/UNINSTALL /IGNORE_UPGRADE /ON_REBOOT_MESSAGE:NO", kUntouched, L"F", 1603},
    {"LaunchApp_Update", L"/UPDATE", kUntouched, L"", 1627},
};

DWORD UninstallMode()
{
    return harness::DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"UninstallMode");
}

// A visible, not topmost, stand-in for the installer's progress dialog.
struct InstallerDialog {
    InstallerDialog()
    {
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = DefWindowProcW;
        windowClass.lpszClassName = L"MsiDialogCloseClass";
        RegisterClassW(&windowClass);  // already there from an earlier test: fine
        window = CreateWindowExW(0, windowClass.lpszClassName, L"Setup", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 300,
                                 200, NULL, NULL, NULL, NULL);
    }
    ~InstallerDialog() { DestroyWindow(window); }
    // "visible topmost", "hidden", ...
    std::string State() const
    {
        return std::string(IsWindowVisible(window) ? "visible" : "hidden") +
               ((GetWindowLongW(window, GWL_EXSTYLE) & WS_EX_TOPMOST) ? " topmost" : "");
    }
    HWND window;
};

class HandoverTest : public RemovalTest {
protected:
    void TearDown() override
    {
        SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL);
        RemovalTest::TearDown();
    }
    // Runs each action with UninstallMode at kUntouched; `check` sees the session and the recorded lines.
    void EachAction(std::function<void(const Action&, Session&, const Lines&)> check)
    {
        for (const Action& action : kActions) {
            SCOPED_TRACE(action.name);
            harness::SetDword(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"UninstallMode", kUntouched);
            DeleteFileW((kManager + L".cmdline").c_str());
            Session session;
            const UINT result = session.Call(action.name);
            check(action, session, RecordedCommandLines(kManager));
            EXPECT_EQ(result, Ran(kManager) ? 0u : action.failure);
        }
    }
    static bool Ran(const std::wstring& program) { return harness::Exists(program + L".cmdline"); }
    void InstallManager()
    {
        const std::wstring folder = kManager.substr(0, kManager.find(L"BIN64"));
        harness::SetText(HKEY_LOCAL_MACHINE, kManagerKey, L"InstallDir", folder);
        harness::SetText(HKEY_LOCAL_MACHINE, kManagerKey, L"Ferrule_Reboot", L"YeS");  // any case
        harness::InstallRecorder(kManager);
    }
};

// A silent installation has no dialog: both attempts say so, around the launcher's lines.
TEST_F(HandoverTest, EachActionRunsTheInstallManagerWithItsSwitchesModeAndReboot)
{
    InstallManager();
    EachAction([](const Action& action, Session& session, const Lines& recorded) {
        EXPECT_EQ(Lines{kQuoted + L" " + action.switches}, recorded);
        EXPECT_EQ(action.mode, UninstallMode());
        EXPECT_EQ(action.reboot, session.Property(L"REBOOT"));
        const Lines log = session.Log();
        EXPECT_EQ(5u, log.size());
        EXPECT_EQ(kNoDialog + std::wstring(L"|") + kNoDialog, log.front() + L"|" + log.back());
    });
}

// Hidden while the install manager runs (and after the mode is written), back on top after.
TEST_F(HandoverTest, TheDialogIsHiddenWhileTheInstallManagerRunsAndComesBackTopmost)
{
    InstallManager();
    InstallerDialog dialog;
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"700");
    std::string during;
    DWORD modeDuring = 0;
    std::thread watcher([&] {
        for (int i = 0; i < 500 && !Ran(kManager); ++i)
            Sleep(10);
        during = dialog.State();
        modeDuring = UninstallMode();
    });
    Session session;
    EXPECT_EQ(0u, session.Call("LaunchApp_UinstallAll"));
    watcher.join();
    EXPECT_EQ("hidden", during);
    EXPECT_EQ(3u, modeDuring);
    EXPECT_EQ("visible topmost", dialog.State());
    EXPECT_EQ(3u, session.Log().size());  // the launcher's alone
}

// No folder, or one of 130 characters, too long for the 260 bytes read: nothing starts, nothing is said.
TEST_F(HandoverTest, WithoutTheInstallManagersFolderNothingStartsAndTheFailureCodeIsReturned)
{
    InstallerDialog dialog;
    EachAction([](const Action&, Session& session, const Lines&) {
        EXPECT_EQ(Lines(), session.Log());
        EXPECT_EQ(L"", session.Property(L"REBOOT"));
    });
    const std::wstring longFolder = harness::kScratchFolder + harness::Repeat(L'q', 111) + L"\\";
    harness::SetText(HKEY_LOCAL_MACHINE, kManagerKey, L"InstallDir", longFolder);
    harness::InstallRecorder(longFolder + L"BIN64\\InstallManagerApp.exe");
    Session session;
    EXPECT_EQ(1627u, session.Call("LaunchApp_Update"));
    EXPECT_EQ(Lines(), session.Log());
    EXPECT_FALSE(Ran(longFolder + L"BIN64\\InstallManagerApp.exe"));
    EXPECT_EQ("visible", dialog.State());
}

BOOL WINAPI RefuseCreateProcess(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                                LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

BOOL WINAPI RefuseShellExecute(SHELLEXECUTEINFOW* info)
{
    info->hInstApp = reinterpret_cast<HINSTANCE>(SE_ERR_ACCESSDENIED);
    return FALSE;
}

// The shell is the second try, handed the file with its quotes; when both fail the reboot flag is applied
// and the dialog brought back all the same.
TEST_F(HandoverTest, AFailedSecuredLaunchFallsBackToTheShell)
{
    InstallManager();
    InstallerDialog dialog;
    harness::ImportPatch noCreateProcess(harness::TesselDll(), "kernel32.dll", "CreateProcessW",
                                         reinterpret_cast<void*>(RefuseCreateProcess));
    {
        Session session;
        EXPECT_EQ(0u, session.Call("LaunchApp_Update"));
        EXPECT_EQ(Lines{kQuoted + L" /UPDATE"}, RecordedCommandLines(kManager));
        EXPECT_EQ(4u, session.Log().size());
    }
    harness::ImportPatch noShell(harness::TesselDll(), "shell32.dll", "ShellExecuteExW",
                                 reinterpret_cast<void*>(RefuseShellExecute));
    SetWindowPos(dialog.window, HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
    DeleteFileW((kManager + L".cmdline").c_str());
    EachAction([](const Action& action, Session& session, const Lines& recorded) {
        EXPECT_EQ(Lines(), recorded);
        EXPECT_EQ(action.reboot, session.Property(L"REBOOT"));
        EXPECT_EQ(L"Tessel_CA failed to launch the following: Access denied.", session.Log().back());
    });
    EXPECT_EQ("visible topmost", dialog.State());
}

}  // namespace
