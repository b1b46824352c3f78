// Folders left behind at uninstall: the install manager's own, the filter
// driver's, the components' folders and temp folders, and the shared parents,
// which go only when no file is left anywhere below them.
#include "removal/removal.h"

#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <string>

namespace {

// The install manager's records, where it also leaves its requests to us.
const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\";

// The install manager's own folder. Left as it was when it can't be read.
void GetFerruleInstallDir(std::wstring& path)
{
    try {
        ReadRegistryText(kInstallKey, KEY_READ, L"FerruleInstallDir", 130, 260, kCloseKey, path);
    } catch (...) {
    }
}

// The install manager asks for the filter driver's folder to go by the value
// RemoveFilterDrv. The marker is meant to be cleared after use, but the call
// names a sub-key, so the value stays; the key is left open as it always was.
bool IsFilterDrvFolderExists(std::wstring& path)
{
    bool exists = false;
    try {
        LogMessage(g_hSession, L"TESSEL_CA Inside IsFilterDrvFolderExists \n");
        HKEY key = NULL;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
            return false;
        LogMessage(g_hSession, L"TESSEL_CA Inside IsFilterDrvFolderExists - RegKey Opened\n");
        std::wstring text;
        if (!ReadKeyText(key, L"RemoveFilterDrv", 260, 520, text))
            return false;
        LogMessage(g_hSession, L"TESSEL_CA IsFilterDrvFolderExists - Ferrule_Reboot Flag: , %s \n", text.c_str());
        if (CompareNoCase(text, L"yes") != 0)
            return false;

        wchar_t programFiles[MAX_PATH] = {};
        SHGetSpecialFolderPathW(NULL, programFiles, CSIDL_PROGRAM_FILES, FALSE);
        path = std::wstring(programFiles) + L"\\Orvel\\OrvelFilterDrv";
        exists = PathFileExistsW(path.c_str()) != FALSE;
        RegDeleteKeyW(key, L"RemoveFilterDrv");
    } catch (...) {
    }
    return exists;
}

const wchar_t kDeleteText[] = L"TESSEL_CA Delete directory, %s \n";
const wchar_t kDeletedText[] = L"TESSEL_CA successfully deleted directory, %s \n";
const wchar_t kNotDeletedText[] = L"TESSEL_CA Could not delete directory, %s \n";
const wchar_t kKeptText[] = L"TESSEL_CA Directory, %s, DNE or is not empty and will not be deleted.\n";

// Deletes for good and reports under `shown`, which is not always the path deleted.
bool DeleteAndReport(const std::wstring& path, const std::wstring& shown)
{
    bool deleted = DeleteDirectory(path.c_str(), 0);
    LogMessage(g_hSession, deleted ? kDeletedText : kNotDeletedText, shown.c_str());
    return deleted;
}

void RemoveRecursiveAndReport(const std::wstring& path)
{
    LogMessage(g_hSession, L"TESSEL_CA Delete directory - removeDirRecursive, %s \n", path.c_str());
    if (removeDirRecursive(path))
        LogMessage(g_hSession, L"TESSEL_CA Delete directory - removeDirRecursive Successful, %s \n", path.c_str());
    else
        LogMessage(g_hSession, L"TESSEL_CA Delete directory - removeDirRecursive Failed, %s \n", path.c_str());
}

// A shared parent goes only when no file is left anywhere below it.
void DeleteSharedParent(const std::wstring& path)
{
    if (IsDirectoryEmpty(path)) {
        LogMessage(g_hSession, kDeleteText, path.c_str());
        DeleteAndReport(path, path);
    } else {
        LogMessage(g_hSession, kKeptText, path.c_str());
    }
}

UINT ResultOf(bool deleted)
{
    return deleted ? kResultSuccess : kResultInstallFailure;
}

// The folder an immediate action handed on; empty when it can't be read.
bool ReadFolderData(wchar_t (&folder)[kPropertyChars])
{
    if (ReadProperty(g_hSession, L"CustomActionData", folder))
        return true;
    folder[0] = L'\0';
    LogMessage(g_hSession, L"TESSEL_CA Could not get INSTALLDIR  \n");
    return false;
}

}  // namespace

// Steps run in a fixed order and each goes ahead whatever the one before did;
// the result is that of the last delete among the Common Files folder, the
// folder named by InstallDir and the install root.
extern "C" UINT __stdcall DeleteFolder(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    std::wstring programFiles;
    GetSpecialFolder(CSIDL_PROGRAM_FILES, programFiles);
    const std::wstring orvel = programFiles + L"\\Orvel";
    const std::wstring kestra = programFiles + L"\\Kestra Technologies\\";
    const std::wstring commonKestra = programFiles + L"\\Common Files" + L"\\Kestra Technologies\\";
    const std::wstring installRoot = GetInstallDir();
    // Without InstallDir this is a lone backslash.
    const std::wstring installFolder = installRoot + PathSeparatorFor(installRoot.c_str());

    wchar_t installDir[kPropertyChars];
    if (ReadFolderData(installDir)) {
        LogMessage(g_hSession, L"TESSEL_CA DeleteFolder: %s \n", installDir);
        if (!DeleteDirectory(installDir, 0))
            LogMessage(g_hSession, L"TESSEL_CA Could not delete INSTALLDIR  \n");
    }

    DeleteSharedParent(orvel);
    DeleteSharedParent(kestra);
    UINT result = ResultOf(DeleteAndReport(commonKestra, commonKestra));

    // One text serves the next three steps: a read that fails keeps what the
    // step before left in it.
    std::wstring folder;
    if (IsFilterDrvFolderExists(folder))
        RemoveRecursiveAndReport(folder);
    // The install manager's folder goes whether or not other products remain.
    GetFerruleInstallDir(folder);
    RemoveRecursiveAndReport(folder);

    folder.clear();
    if (GetINSTFolder(folder)) {
        folder += L"\\";
        LogMessage(g_hSession, L"TESSEL_CA Delete directory - szModifiedInstPath is:, %s \n", folder.c_str());
        if (IsDirectoryEmpty(folder)) {
            LogMessage(g_hSession, L"TESSEL_CA Before Delete directory and szModifiedInstPath, %s \n", folder.c_str());
            result = ResultOf(DeleteAndReport(folder, folder));
        } else {
            // Names the Orvel folder rather than the one tested, as it always has.
            LogMessage(g_hSession, kKeptText, orvel.c_str());
        }
    }

    // The steps above may have emptied the Orvel folder by now. The messages
    // from here on name other folders than the one at hand; they stay so.
    if (!IsDirectoryEmpty(orvel)) {
        LogMessage(g_hSession, kKeptText, kestra.c_str());
        return result;
    }
    LogMessage(g_hSession, kDeleteText, installFolder.c_str());
    if (DeleteDirectory(orvel.c_str(), 0)) {
        LogMessage(g_hSession, kDeletedText, orvel.c_str());
    } else {
        removeDirRecursive(orvel);
        LogMessage(g_hSession, kNotDeletedText, orvel.c_str());
    }
    return ResultOf(DeleteAndReport(installFolder, kestra));
}

bool CleanUninstallerFiles()
{
    std::wstring programFiles;
    GetSpecialFolder(CSIDL_PROGRAM_FILESX86, programFiles);
    const std::wstring uninstaller = programFiles + L"\\Kestra Technologies\\UninstallAll\\";
    if (!PathExists(uninstaller))
        return true;
    if (!DeleteDirectory(uninstaller.c_str(), 0))
        return false;
    LogMessage(g_hSession, L"Tessel_CA CleanUninstallerFiles folder deleted\n");
    return true;
}

namespace {

struct TempFolder {
    const wchar_t* tail;
    const wchar_t* deletedText;
    const wchar_t* failedText;
};

// The two temp folders differ in their literals only.
const TempFolder kVaneTemp = {L"\\ProgramData\\Orvel\\Vane", L"TESSEL_CA deletes Vane Temp DIR\n",
                              L"TESSEL_CA Could not delete Vane Temp DIR  \n"};
const TempFolder kSorrelTemp = {L"\\ProgramData\\Orvel\\Sorrel", L"TESSEL_CA deletes Sorrel Temp DIR\n",
                                L"TESSEL_CA Could not delete Sorrel Temp DIR  \n"};

// Temp folders live on the system drive, whichever drive that is.
UINT DeleteTempFolder(MSIHANDLE hInstall, const TempFolder& temp)
{
    g_hSession = hInstall;
    wchar_t systemFolder[MAX_PATH];
    // Nothing to clear without a system folder; the result says done.
    if (GetSystemDirectoryW(systemFolder, MAX_PATH) == 0)
        return kResultOne;
    const std::wstring system(systemFolder);
    const size_t colon = system.find(L':');
    const std::wstring drive = colon == std::wstring::npos ? std::wstring() : system.substr(0, colon + 1);
    // Sent to the recycle bin rather than deleted for good.
    if (DeleteTree((drive + temp.tail).c_str(), 0)) {
        LogMessage(g_hSession, temp.deletedText);
        return kResultOne;
    }
    LogMessage(g_hSession, temp.failedText);
    return kResultSuccess;
}

const wchar_t kSorrelDeleted[] = L"TESSEL_CA DelInstallSorrelDir: %s \n";
const wchar_t kSorrelNotDeleted[] = L"TESSEL_CA can not DelInstallSorrelDir: %s \n";

// Sends a component's tree to the recycle bin and reports it either way.
bool DeleteTreeAndReport(const std::wstring& path, const wchar_t* deletedText, const wchar_t* failedText)
{
    bool deleted = DeleteTree(path.c_str(), 0);
    LogMessage(g_hSession, deleted ? deletedText : failedText, path.c_str());
    return deleted;
}

// A component folder with no file left goes whole. Vane reports it with
// Sorrel's texts as well: the two actions have always shared them.
bool DeletedWhenEmpty(const std::wstring& folder)
{
    if (!IsDirectoryEmpty(folder))
        return false;
    DeleteTreeAndReport(folder, kSorrelDeleted, kSorrelNotDeleted);
    return true;
}

}  // namespace

extern "C" UINT __stdcall DelVaneTempDir(MSIHANDLE hInstall)
{
    return DeleteTempFolder(hInstall, kVaneTemp);
}

extern "C" UINT __stdcall DelSorrelTempDir(MSIHANDLE hInstall)
{
    return DeleteTempFolder(hInstall, kSorrelTemp);
}

// 1 whatever happened. The folder comes with its trailing backslash, so the
// component's part is appended as it stands.
extern "C" UINT __stdcall DelInstallVaneDir(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    wchar_t folder[kPropertyChars];
    if (ReadFolderData(folder))
        LogMessage(g_hSession, L"TESSEL_CA DelInstallVaneDir: %s \n", folder);
    const std::wstring install(folder);
    if (!DeletedWhenEmpty(install))
        DeleteTreeAndReport(install + L"Kestra.Lumen\\Vane\\", L"TESSEL_CA DelInstallVaneDir: %s \n",
                            L"TESSEL_CA couldn't DelInstallVaneDir: %s \n");
    return kResultOne;
}

// 1 whatever happened. Kestra.Lumen, and then the install folder, go only
// once the component's two folders have left them empty.
extern "C" UINT __stdcall DelInstallSorrelDir(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    wchar_t folder[kPropertyChars];
    if (ReadFolderData(folder))
        LogMessage(g_hSession, kSorrelDeleted, folder);
    const std::wstring install(folder);
    if (DeletedWhenEmpty(install))
        return kResultOne;
    const std::wstring lumen = install + PathSeparatorFor(install.c_str()) + L"Kestra.Lumen";
    DeleteTreeAndReport(lumen + L"\\Sorrel\\", kSorrelDeleted, L"TESSEL_CA couldn't DelInstallSorrelDir: %s \n");
    DeleteTreeAndReport(lumen + L"\\Reservation Manager", kSorrelDeleted, kSorrelNotDeleted);
    if (IsDirectoryEmpty(lumen) && DeleteTreeAndReport(lumen, kSorrelDeleted, kSorrelNotDeleted))
        DeletedWhenEmpty(install);
    return kResultOne;
}

// 0, or the type of the Location value when its folder has already gone: 1
// for the usual string. The key is left open, as it always was.
extern "C" UINT __stdcall DeleteHalyardFolder(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    // The settings application holds files in the folder.
    KillMarlinSettings();
    DWORD type = 0;
    std::wstring location;
    ReadRegistryText(L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", KEY_READ, L"Location", 260, 520,
                     kLeaveKeyOpen, location, &type);
    if (!PathFileExistsW(location.c_str()))
        return type;
    removeDirRecursive(location);
    // The shared parent goes when empty. With a trailing backslash in
    // Location the cut gives the folder itself, which has gone by now.
    const std::wstring parent = location.substr(0, location.rfind(L'\\'));
    if (PathIsDirectoryEmptyW(parent.c_str()))
        DeleteDirectory(parent.c_str(), 0);
    return kResultSuccess;
}

// 1 when the detector's folder was deleted, else 0.
extern "C" UINT __stdcall RemoveUSBMON(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    wchar_t folder[kPropertyChars];
    if (ReadFolderData(folder))
        LogMessage(g_hSession, L"TESSEL_CA RemoveUSBMON Directory: %s \n", folder);
    if (folder[0] == L'\0')
        return kResultSuccess;
    if (!PathExists(folder) || !DeleteDirectory(folder, 0))
        return kResultSuccess;
    LogMessage(g_hSession, L"Tessel_CA OrvelUSB3DeviceDetector folder deleted\n");
    return kResultOne;
}
