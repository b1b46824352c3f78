// The hand-over of a removal to the install manager, through the DLL in real
// sessions, with the recording program standing in for the install manager.
#include "removal/area.h"

#include <algorithm>
#include <memory>
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

BOOL WINAPI RefuseShellExecute(SHELLEXECUTEINFOW* info)
{
    info->hInstApp = reinterpret_cast<HINSTANCE>(SE_ERR_ACCESSDENIED);
    return FALSE;
}


class HandoverTest : public RemovalTest {
protected:
    void TearDown() override
    {
        SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL);
        RemovalTest::TearDown();
    }
    static void InstallManager()
    {
        SetText(HKEY_LOCAL_MACHINE, kManagerKey, L"InstallDir", kManager.substr(0, kManager.find(L"BIN64")));
        SetText(HKEY_LOCAL_MACHINE, kManagerKey, L"Ferrule_Reboot", L"YeS");  // any case
        InstallRecorder(kManager);
    }
};

// Each action in each scene. The mode is written whatever follows; the shell is the second try, handed the
// file with its quotes; a reboot the install manager asked for counts also after a failed run. Without a
// dialog (a silent installation) both attempts to place it say so, around the launcher's lines.
TEST_F(HandoverTest, EachActionRunsTheInstallManagerOrFallsBackToTheShellOrFails)
{
    std::unique_ptr<InstallerDialog> dialog;
    const struct {
        const char* scene;
        bool installed, noProcess, noShell;
        size_t logLines;
        std::wstring lastLine;  // empty: not checked
    } scenes[] = {
        {"no dialog", true, false, false, 5, kNoDialog},
        {"no install manager", false, false, false, 0, L""},
        {"by the shell", true, true, false, 4, L"Tessel_CA Process: " + kQuoted + L" \nsuccessfully ended launching"},
        {"no launch", true, true, true, 3, L"Tessel_CA failed to launch the following: Access denied."},
    };
    for (const auto& scene : scenes) {
        SCOPED_TRACE(scene.scene);
        ClearArea(RemovalArea());
        if (scene.installed)
            InstallManager();
        const std::unique_ptr<RefusedProcessStarts> noProcess(scene.noProcess ? new RefusedProcessStarts : nullptr);
        const std::unique_ptr<ImportPatch> noShell(
            scene.noShell ? new ImportPatch(TesselDll(), "shell32.dll", "ShellExecuteExW",
                                            reinterpret_cast<void*>(RefuseShellExecute))
                          : nullptr);
        for (const Action& action : kActions) {
            SCOPED_TRACE(action.name);
            SetDword(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"UninstallMode", kUntouched);
            DeleteFileW((kManager + L".cmdline").c_str());
            if (dialog)
                SetWindowPos(dialog->window, HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
            Session session;
            const bool ran = scene.installed && !scene.noShell;
            EXPECT_EQ(ran ? 0u : action.failure, session.Call(action.name));
            EXPECT_EQ(ran ? Lines{kQuoted + L" " + action.switches} : Lines(), RecordedCommandLines(kManager));
            EXPECT_EQ(action.mode, UninstallMode());
            EXPECT_EQ(scene.installed ? action.reboot : L"", session.Property(L"REBOOT"));
            const Lines log = session.Log();
            EXPECT_EQ(scene.logLines, log.size());
            EXPECT_EQ(dialog || !scene.installed ? 0 : 2, std::count(log.begin(), log.end(), kNoDialog));
            if (!scene.lastLine.empty() && !log.empty())
                EXPECT_EQ(scene.lastLine, log.back());
            if (dialog)
                EXPECT_EQ(scene.installed ? "visible topmost" : "visible", dialog->State());
        }
        dialog.reset(new InstallerDialog);
    }
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
        for (int i = 0; i < 500 && !Exists(kManager + L".cmdline"); ++i)
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

}  // namespace
