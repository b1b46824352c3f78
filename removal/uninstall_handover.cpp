// Hands a removal over to the suite's install manager: records the wanted
// mode, hides the installer's dialog while the install manager runs, waits for
// it, brings the dialog back and carries its reboot request into the session.
#include "frame/frame.h"
#include "frame/platform.h"
#include "removal/removal.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <sstream>
#include <string>

namespace {

// The bytes read of the install manager's folder: a longer one is a failed read.
const DWORD kInstallDirBytes = 260;

// The flags the dialog is hidden and shown with. It comes back topmost, so
// that the installer's progress stands above what the install manager left.
const UINT kHideDialogFlags = SWP_NOSIZE | SWP_NOMOVE | SWP_HIDEWINDOW;  // 0x83
const UINT kShowDialogFlags = SWP_NOSIZE | SWP_NOMOVE | SWP_SHOWWINDOW;  // 0x43

struct Handover {
    DWORD uninstallMode;  // 0: the mode is left as it is
    const wchar_t* switches;
    bool applyRebootFlag;
    UINT failure;
};

const wchar_t kUnattendedUninstallSwitches[] =
    L"/IGNORE_UPGRADE /FORCE_HIDE_FIRST_RUN /UNATTENDED_UNINSTALL /AUTOACCEPT_ALL /FORCE_CLOSE_WHEN_DONE "
    L"/ON_REBOOT_MESSAGE:NO";

// The installer's progress dialog; a silent installation has none, which is no failure.
void PlaceInstallerDialog(HWND insertAfter, UINT flags)
{
    HWND dialog = FindWindowW(L"MsiDialogCloseClass", NULL);
    if (dialog == NULL) {
        LogMessage(g_hSession, L"Unable to show/hide MSI uninstall window");
        return;
    }
    SetWindowPos(dialog, insertAfter, 0, 0, 0, 0, flags);
}

bool ReadInstallManagerFolder(std::wstring& folder)
{
    return ReadRegistryText(kInstallManagerKey, KEY_READ, L"InstallDir", kInstallDirBytes / sizeof(wchar_t),
                            kInstallDirBytes, kCloseKey, folder);
}

std::wstring GetInstallManagerPath(const std::wstring& folder)
{
    // The folder ends in a backslash already; nothing goes between it and the bin folder.
    std::wstring binFolder = folder + GetBinDirName();
    std::wostringstream path;
    path << binFolder << PathSeparatorFor(binFolder.c_str()) << L"InstallManagerApp.exe";
    return path.str();
}

bool RunInstallManager(const std::wstring& switches, bool wait)
{
    std::wstring folder;
    if (!ReadInstallManagerFolder(folder))
        return false;
    std::wstring path = GetInstallManagerPath(folder);

    std::wostringstream command;
    command << L"\"" << path << L"\" " << switches;
    std::wostringstream file;
    file << L"\"" << path << L"\"";

    PlaceInstallerDialog(HWND_BOTTOM, kHideDialogFlags);

    bool launched = LaunchCommandLine(LaunchProcessSecured, command.str(), wait);
    // The shell is the second try; the file goes to it with its quotes.
    if (!launched)
        launched = ShellLaunch(file.str().c_str(), switches.c_str(), wait);

    PlaceInstallerDialog(HWND_TOPMOST, kShowDialogFlags);
    return launched;
}

UINT HandOverToInstallManager(MSIHANDLE hInstall, const Handover& handover)
{
    g_hSession = hInstall;
    // The install manager learns the mode from here, so it is written before the start.
    if (handover.uninstallMode != 0)
        CreateRegDWValue(L"UninstallMode", handover.uninstallMode);
    bool ran = RunInstallManager(handover.switches, true);
    // A reboot the install manager asked for counts also after a failed run.
    if (handover.applyRebootFlag)
        ApplyFerruleRebootFlag(hInstall);
    return ran ? kResultSuccess : handover.failure;
}

}  // namespace

extern "C" UINT __stdcall LaunchApp_UinstallAll(MSIHANDLE hInstall)
{
    static const Handover handover = {3, kUnattendedUninstallSwitches, true, kResultInstallFailure};
    return HandOverToInstallManager(hInstall, handover);
}

extern "C" UINT __stdcall LaunchApp_UinstallCurrent(MSIHANDLE hInstall)
{
    static const Handover handover = {1, kUnattendedUninstallSwitches, true, kResultInstallFailure};
    return HandOverToInstallManager(hInstall, handover);
}

extern "C" UINT __stdcall LaunchApp_UinstallComp(MSIHANDLE hInstall)
{
    static const Handover handover = {0, L"/UNINSTALL /IGNORE_UPGRADE /ON_REBOOT_MESSAGE:NO", true,
                                      kResultInstallFailure};
    return HandOverToInstallManager(hInstall, handover);
}

// The one that removes nothing: no mode, no reboot, and its own failure code.
extern "C" UINT __stdcall LaunchApp_Update(MSIHANDLE hInstall)
{
    static const Handover handover = {0, L"/UPDATE", false, kResultFunctionFailed};
    return HandOverToInstallManager(hInstall, handover);
}
