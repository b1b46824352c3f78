// The hand-over of a removal to the install manager, through the DLL in real
// sessions, with the recording program standing in for the install manager.
#include "removal/area.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using harness::InstallRecorder;
using harness::RecordedCommandLines;
using harness::Session;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const wchar_t kInstallManagerKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager";
const wchar_t kUnattendedSwitches[] =
    L"/IGNORE_UPGRADE /FORCE_HIDE_FIRST_RUN /UNATTENDED_UNINSTALL /AUTOACCEPT_ALL /FORCE_CLOSE_WHEN_DONE "
    L"/ON_REBOOT_MESSAGE:NO";
const wchar_t kNoDialog[] = L"Unable to show/hide MSI uninstall window";

struct Action {
    const char* name;
    const wchar_t* switches;
    DWORD mode;          // UninstallMode afterwards; kUntouched when left alone
    const wchar_t* reboot;  // REBOOT afterwards, with Ferrule_Reboot "yes"
    UINT failure;
};

const DWORD kUntouched = 7;  // set before each run; the actions that set no mode leave it

const Action kActions[] = {
    {"LaunchApp_UinstallAll", kUnattendedSwitches, 3, L"F", 1603},
    {"LaunchApp_UinstallCurrent", kUnattendedSwitches, 1, L"F", 1603},
    {"LaunchApp_UinstallComp", L"/UNINSTALL /IGNORE_UPGRADE /ON_REBOOT_MESSAGE:NO", kUntouched, L"F", 1603},
    {"LaunchApp_Update", L"/UPDATE", kUntouched, L"", 1627},
};

void WriteUninstallMode(DWORD value)
{
    harness::SetDword(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"UninstallMode", value);
}

DWORD ReadUninstallMode()
{
    return harness::DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"UninstallMode");
}

LRESULT CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return DefWindowProcW(window, message, wParam, lParam);
}

// A visible, not topmost, stand-in for the installer's progress dialog.
class InstallerDialog {
public:
    InstallerDialog()
    {
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = DialogProc;
        windowClass.hInstance = GetModuleHandleW(NULL);
        windowClass.lpszClassName = L"MsiDialogCloseClass";
        RegisterClassW(&windowClass);  // already there from an earlier test: fine
        window_ = CreateWindowExW(0, L"MsiDialogCloseClass", L"Suite Setup", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10,
                                  10, 300, 200, NULL, NULL, GetModuleHandleW(NULL), NULL);
    }
    ~InstallerDialog() { DestroyWindow(window_); }
    InstallerDialog(const InstallerDialog&) = delete;
    InstallerDialog& operator=(const InstallerDialog&) = delete;

    HWND handle() const { return window_; }
    bool Visible() const { return IsWindowVisible(window_) != FALSE; }
    bool Topmost() const { return (GetWindowLongW(window_, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0; }

private:
    HWND window_;
};

class HandoverTest : public harness::ActionTest {
protected:
    HandoverTest() : ActionTest(RemovalArea()) {}

protected:
    void SetUp() override
    {
        ActionTest::SetUp();
        // A blank in the folder, so that the quoting shows.
        folder_ = std::wstring(harness::kScratchFolder) + L"Quillon Manager\\";
        manager_ = folder_ + L"BIN64\\InstallManagerApp.exe";
    }
    void TearDown() override
    {
        SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL);
        ActionTest::TearDown();
    }

    void InstallManager(const wchar_t* ferruleReboot = L"no")
    {
        harness::SetText(HKEY_LOCAL_MACHINE, kInstallManagerKey, L"InstallDir", folder_);
        harness::SetText(HKEY_LOCAL_MACHINE, kInstallManagerKey, L"Ferrule_Reboot", ferruleReboot);
        InstallRecorder(manager_);
    }

    std::wstring Command(const std::wstring& switches) const { return L"\"" + manager_ + L"\" " + switches; }

    std::wstring folder_;
    std::wstring manager_;
};

TEST_F(HandoverTest, EachActionRunsTheInstallManagerWithItsSwitchesModeAndReboot)
{
    InstallManager(L"yes");
    for (const Action& action : kActions) {
        SCOPED_TRACE(action.name);
        WriteUninstallMode(kUntouched);
        InstallRecorder(manager_);
        Session session;
        EXPECT_EQ(0u, session.Call(action.name));
        EXPECT_THAT(RecordedCommandLines(manager_), ElementsAre(Command(action.switches)));
        EXPECT_EQ(action.mode, ReadUninstallMode());
        EXPECT_EQ(action.reboot, session.Property(L"REBOOT"));
        // A silent installation has no dialog: both attempts say so, around the launcher's lines.
        const std::vector<std::wstring> log = session.Log();
        EXPECT_EQ(5u, log.size());
        EXPECT_EQ(std::make_pair(std::wstring(kNoDialog), std::wstring(kNoDialog)), std::make_pair(log.front(), log.back()));
    }
}

TEST_F(HandoverTest, TheDialogIsHiddenWhileTheInstallManagerRunsAndComesBackTopmost)
{
    InstallManager();
    InstallerDialog dialog;
    ASSERT_NE(nullptr, dialog.handle());
    ASSERT_TRUE(dialog.Visible());
    ASSERT_FALSE(dialog.Topmost());
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"700");

    // Looks once the install manager has written its record, while it waits.
    std::atomic<int> visibleDuringRun(-1);
    std::atomic<DWORD> modeDuringRun(0);
    Session session;
    harness::ActionFn action = harness::Export("LaunchApp_UinstallAll");
    std::thread watcher([&] {
        for (int i = 0; i < 500 && RecordedCommandLines(manager_).empty(); ++i)
            Sleep(10);
        if (RecordedCommandLines(manager_).empty())
            return;
        visibleDuringRun = IsWindowVisible(dialog.handle()) ? 1 : 0;
        modeDuringRun = ReadUninstallMode();
    });
    DWORD start = GetTickCount();
    UINT result = action(session.handle());
    DWORD elapsed = GetTickCount() - start;
    watcher.join();

    EXPECT_EQ(0u, result);
    EXPECT_GE(elapsed, 650u);  // it waited for the install manager
    EXPECT_EQ(0, visibleDuringRun.load());
    EXPECT_EQ(3u, modeDuringRun.load());  // written before the start
    EXPECT_TRUE(dialog.Visible());
    EXPECT_TRUE(dialog.Topmost());
    EXPECT_EQ(3u, session.Log().size());  // the launcher's alone
}

TEST_F(HandoverTest, WithoutTheInstallManagersFolderNothingStartsAndTheFailureCodeIsReturned)
{
    InstallerDialog dialog;
    ASSERT_NE(nullptr, dialog.handle());

    // No key at all.
    for (const Action& action : kActions) {
        SCOPED_TRACE(action.name);
        Session session;
        EXPECT_EQ(action.failure, session.Call(action.name));
        EXPECT_THAT(session.Log(), IsEmpty());
        EXPECT_EQ(L"", session.Property(L"REBOOT"));
    }
    // A folder of 130 characters doesn't fit the 260 bytes read: no launch is even tried.
    std::wstring longFolder = std::wstring(harness::kScratchFolder) + harness::Repeat(L'q', 111) + L"\\";
    ASSERT_EQ(130u, longFolder.size());
    harness::SetText(HKEY_LOCAL_MACHINE, kInstallManagerKey, L"InstallDir", longFolder);
    Session session;
    EXPECT_EQ(1627u, session.Call("LaunchApp_Update"));
    EXPECT_THAT(session.Log(), IsEmpty());

    // The dialog was never touched.
    EXPECT_TRUE(dialog.Visible());
    EXPECT_FALSE(dialog.Topmost());
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

TEST_F(HandoverTest, AFailedSecuredLaunchFallsBackToTheShell)
{
    InstallManager(L"yes");
    InstallerDialog dialog;
    ASSERT_NE(nullptr, dialog.handle());
    harness::ImportPatch noCreateProcess(harness::TesselDll(), "kernel32.dll", "CreateProcessW",
                                         reinterpret_cast<void*>(RefuseCreateProcess));
    const std::wstring quotedFile = L"\"" + manager_ + L"\"";
    {
        Session session;
        EXPECT_EQ(0u, session.Call("LaunchApp_Update"));
        // The shell is handed the file with its quotes and the switches apart.
        EXPECT_THAT(RecordedCommandLines(manager_), ElementsAre(quotedFile + L" /UPDATE"));
        EXPECT_EQ(4u, session.Log().size());
        EXPECT_TRUE(dialog.Visible());
        EXPECT_TRUE(dialog.Topmost());
    }

    // Both launches failed: the failure code, yet the reboot flag is applied
    // and the dialog brought back.
    harness::ImportPatch noShell(harness::TesselDll(), "shell32.dll", "ShellExecuteExW",
                                 reinterpret_cast<void*>(RefuseShellExecute));
    SetWindowPos(dialog.handle(), HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
    ASSERT_FALSE(dialog.Topmost());
    for (const Action& action : kActions) {
        SCOPED_TRACE(action.name);
        Session session;
        EXPECT_EQ(action.failure, session.Call(action.name));
        EXPECT_EQ(action.reboot, session.Property(L"REBOOT"));
        EXPECT_EQ(L"Tessel_CA failed to launch the following: Access denied.", session.Log().back());
    }
    EXPECT_THAT(RecordedCommandLines(manager_), ElementsAre(quotedFile + L" /UPDATE"));
    EXPECT_TRUE(dialog.Visible());
    EXPECT_TRUE(dialog.Topmost());
}

}  // namespace
