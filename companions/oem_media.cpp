// The OEM media application: its two plug-ins are registered and unregistered
// by their hosts' tools, the browser's assembly by the framework's RegAsm and
// the media player's plug-in by Regsvr32, and its keys and folder are cleared
// at removal. A tool counts as succeeded when it could be started.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <shlobj.h>

#include <string>

namespace {

const wchar_t kApplicationFolder[] = L"\\Krelople\\HP Pixel Sharp\\";
const wchar_t kParentFolder[] = L"\\Krelople\\";
const wchar_t kMachineKey[] = L"SOFTWARE\\Orvel\\PixelSharp";
const wchar_t kUserKey[] = L"Software\\Orvel\\PixelSharp\\";

const wchar_t kFolderDeletedText[] = L"Tessel_CA CleanUninstallerFiles folder deleted\n";

std::wstring InProgramFiles(const wchar_t* rest)
{
    std::wstring folder;
    GetSpecialFolder(CSIDL_PROGRAM_FILES, folder);
    return folder + rest;
}

std::wstring WindowsFolder()
{
    wchar_t folder[MAX_PATH] = L"";
    GetWindowsDirectoryW(folder, MAX_PATH);
    return folder;
}

std::wstring SystemFolder()
{
    std::wstring folder;
    GetSpecialFolder(CSIDL_SYSTEM, folder);
    return folder;
}

// One registration line: the tool below its folder, behind a separator that
// the RegAsm literals repeat, the switches, and the component in the
// application folder.
struct Registration {
    std::wstring (*folder)();
    const wchar_t* tool;
    const wchar_t* switches;
    const wchar_t* component;
};

const wchar_t kRegAsm64[] = L"\\Microsoft.NET\\Framework64\\v4.0.30319\\RegAsm.exe";
const wchar_t kRegAsm32[] = L"\\Microsoft.NET\\Framework\\v4.0.30319\\RegAsm.exe";
const wchar_t kBrowserComponent[] = L"HPInternetExplorerUrl.dll";
const wchar_t kPlayerComponent[] = L"wmpplugin2.dll";

const Registration kRegisterBrowser64 = {WindowsFolder, kRegAsm64, L" /s /codebase ", kBrowserComponent};
const Registration kRegisterBrowser32 = {WindowsFolder, kRegAsm32, L" /s /codebase ", kBrowserComponent};
const Registration kUnregisterBrowser64 = {WindowsFolder, kRegAsm64, L" /s /u ", kBrowserComponent};
const Registration kUnregisterBrowser32 = {WindowsFolder, kRegAsm32, L" /s /u ", kBrowserComponent};
const Registration kRegisterPlayer = {SystemFolder, L"Regsvr32.exe", L" /s ", kPlayerComponent};
const Registration kUnregisterPlayer = {SystemFolder, L"Regsvr32.exe", L" /s /u ", kPlayerComponent};

// The tool's exit code is never read; only a failed start is a failure.
UINT Run(const Registration& registration)
{
    const std::wstring tool = registration.folder() + L"\\" + registration.tool;
    const std::wstring component = InProgramFiles(kApplicationFolder) + registration.component;
    const std::wstring line = L"\"" + tool + L"\"" + registration.switches + L"\"" + component + L"\"";
    return LaunchCommandLine(LaunchProcess, line, true) ? kResultSuccess : kResultInstallFailure;
}

// The maker's folder goes only when no other product of it left a file there.
void DeleteParentIfEmpty(const std::wstring& parent)
{
    if (IsDirectoryEmpty(parent))
        DeleteDirectory(parent.c_str(), 0);
}

}  // namespace

extern "C" UINT __stdcall RegisterInternetExplorerUrl64(MSIHANDLE /*hInstall*/)
{
    return Run(kRegisterBrowser64);
}

extern "C" UINT __stdcall RegisterInternetExplorerUrl(MSIHANDLE /*hInstall*/)
{
    return Run(kRegisterBrowser32);
}

extern "C" UINT __stdcall UnRegisterInternetExplorerUrl64(MSIHANDLE /*hInstall*/)
{
    return Run(kUnregisterBrowser64);
}

extern "C" UINT __stdcall UnRegisterInternetExplorerUrl(MSIHANDLE /*hInstall*/)
{
    return Run(kUnregisterBrowser32);
}

extern "C" UINT __stdcall RegisterWMPPlugin(MSIHANDLE /*hInstall*/)
{
    return Run(kRegisterPlayer);
}

extern "C" UINT __stdcall UnRegisterWMPPlugin(MSIHANDLE /*hInstall*/)
{
    return Run(kUnregisterPlayer);
}

// The machine key's values go and the key stays. Logs through whatever
// session an earlier action left in g_hSession.
extern "C" UINT __stdcall ClearPixelRegValues(MSIHANDLE /*hInstall*/)
{
    HKEY key = NULL;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMachineKey, 0, KEY_ALL_ACCESS, &key) == ERROR_SUCCESS) {
        DeleteKeyValues(key, std::wstring());
        RegCloseKey(key);
    }
    const std::wstring folder = InProgramFiles(kApplicationFolder), parent = InProgramFiles(kParentFolder);
    if (!PathExists(folder))
        return kResultSuccess;
    if (!DeleteDirectory(folder.c_str(), 0))
        return kResultInstallFailure;
    LogMessage(g_hSession, kFolderDeletedText);
    DeleteParentIfEmpty(parent);
    return kResultSuccess;
}

// Despite the name, the whole user key goes.
extern "C" UINT __stdcall ClearHKCUPixelRegValues(MSIHANDLE /*hInstall*/)
{
    DeleteKeyInBothViews(HKEY_CURRENT_USER, kUserKey);
    return kResultSuccess;
}

// Never fails. The parent goes when empty even if the application folder
// wasn't there. Logs through whatever session an earlier action left.
extern "C" UINT __stdcall DeletePixelDirectory(MSIHANDLE /*hInstall*/)
{
    const std::wstring folder = InProgramFiles(kApplicationFolder), parent = InProgramFiles(kParentFolder);
    if (PathExists(folder) && DeleteDirectory(folder.c_str(), 0)) {
        LogMessage(g_hSession, kFolderDeletedText);
        DeleteParentIfEmpty(parent);
    }
    if (PathExists(parent))
        DeleteParentIfEmpty(parent);
    return kResultSuccess;
}
