// The telemetry client across install and removal: both generations (the
// Gauge client with its GaugeL service, the Ember programme with its
// EmberLauncher service) share one folder beneath Program Files. Before an
// install the client is stopped and its folder cleared; after it the client
// gets its identity, its consent value, its data folder's rights and its
// service; at removal everything goes, a folder still in use parked in the
// temporary folder until the next restart. Nothing but the event log's
// answer reaches the installer.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"
#include "toolkit/service.h"

#include <aclapi.h>
#include <objbase.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <string>

namespace {

const size_t kFolderChars = 1024;
const size_t kFileChars = 256;
const wchar_t kClientFolder[] = L"%s\\Orvel\\Gauge Client";
const wchar_t kLauncher[] = L"EmberLauncher";

// `format` with the special folder's path into a folder buffer.
void BuildFolder(int csidl, const wchar_t* format, wchar_t (&folder)[kFolderChars])
{
    std::wstring special;
    GetSpecialFolder(csidl, special);
    BoundedFormat(folder, kFolderChars, format, special.c_str());
}

void RemoveIfPresent(const wchar_t* folder)
{
    if (PathFileExistsW(folder))
        removeDirRecursive(folder);
}

// Neither sequence asks whether any of it is running.
void StopGaugeClient()
{
    for (const wchar_t* image : {L"OrvelGaugeM.exe", L"OrvelGaugeDU.exe", L"OrvelGaugeUF.exe"})
        KillProcessByImage(image);
    StopServiceAndWait(L"GaugeL");
    DeleteServiceByName(L"GaugeL");
    // The updater once more, after its service has gone.
    KillProcessByImage(L"OrvelGaugeUF.exe");
}

void StopEmberProgramme()
{
    for (const wchar_t* image : {L"EmberMaster.exe", L"EmberUF.exe", L"EmberDU.exe", L"EmberAC.exe", L"EmberUC.exe"})
        KillProcessByImage(image);
    StopServiceAndWait(kLauncher);
    KillProcessByImage(L"EmberLauncher.exe");
    DeleteServiceByName(kLauncher);
}

// The Gauge client stopped and the client folders cleared while the Ember
// programme may still hold files in them. The first folder is the 64-bit one:
// only it has its two known files deleted by name and goes to the shell's delete.
void StopGaugeAndClear(std::initializer_list<const wchar_t*> folders)
{
    const wchar_t* folder64 = *folders.begin();
    StopGaugeClient();
    for (const wchar_t* folder : folders)
        RemoveIfPresent(folder);
    for (const wchar_t* format : {L"%s\\OrvelGaugeUF.exe", L"%s\\GaugeSL.dll"}) {
        wchar_t file[kFileChars];
        BoundedFormat(file, kFileChars, format, folder64);
        DeleteFileW(file);
    }
    for (const wchar_t* folder : folders)
        RemoveIfPresent(folder);
    DeleteTree(folder64, 0);
}

// The identity survives reinstalls: a GUID already there is kept, the new
// candidate dropped. The candidate is made all the same.
void GiveIdentity()
{
    GUID guid;
    CoCreateGuid(&guid);
    LPOLESTR braced = NULL;
    // The text is never freed; it ends with the process.
    StringFromCLSID(guid, &braced);
    std::wstring identity = braced != NULL ? braced : L"";
    identity.erase(std::remove(identity.begin(), identity.end(), L'{'), identity.end());
    identity.erase(std::remove(identity.begin(), identity.end(), L'}'), identity.end());

    const wchar_t identityKey[] = L"Software\\Ember";
    std::wstring present;
    if (ReadRegistryText(identityKey, KEY_READ, L"GUID", 260, 520, kLeaveKeyOpen, present))
        return;
    CreateRegStringValue(identityKey, L"GUID", identity, HKEY_LOCAL_MACHINE);
}

// Users get full rights on the client's data, inherited below. The handle,
// the SID, the descriptor and the lists are never released: they end with
// the process. No step's failure is looked at but a missing new list.
void OpenToUsers(const wchar_t* folder)
{
    HANDLE handle = CreateFileW(folder, READ_CONTROL | WRITE_DAC, 0, NULL, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                NULL);
    if (handle == INVALID_HANDLE_VALUE)
        return;
    PACL existing = NULL;
    PSECURITY_DESCRIPTOR descriptor = NULL;
    GetSecurityInfo(handle, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, NULL, NULL, &existing, NULL, &descriptor);
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    PSID users = NULL;
    AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_USERS, 0, 0, 0, 0, 0, 0,
                             &users);
    EXPLICIT_ACCESSW entry = {};
    entry.grfAccessPermissions = GENERIC_ALL;
    entry.grfAccessMode = GRANT_ACCESS;
    entry.grfInheritance = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = TRUSTEE_IS_GROUP;
    entry.Trustee.ptstrName = static_cast<LPWSTR>(users);
    PACL widened = NULL;
    SetEntriesInAclW(1, &entry, existing, &widened);
    if (widened != NULL)
        SetSecurityInfo(handle, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, NULL, NULL, widened, NULL);
}

// Runs as the local system account, started with the system after a delay.
// An existing service stays as it is. The manager's handle is left open.
void CreateEmberLauncherService()
{
    wchar_t binaryPath[kFolderChars];
    BuildFolder(CSIDL_PROGRAM_FILES, L"\"%s\\Orvel\\Gauge Client\\EmberLauncher.exe\"", binaryPath);
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    if (manager == NULL) {
        printf("Error: Failed to open SCM.\n");
        return;
    }
    SC_HANDLE service = CreateServiceW(manager, kLauncher, L"Orvel Ember Program Launcher", SERVICE_ALL_ACCESS,
                                       SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS, SERVICE_AUTO_START,
                                       SERVICE_ERROR_NORMAL, binaryPath, NULL, NULL, NULL, NULL, NULL);
    if (service != NULL) {
        SERVICE_DELAYED_AUTO_START_INFO delayed = {TRUE};
        ChangeServiceConfig2W(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &delayed);
    }
    CloseServiceHandle(service);
}

// A folder that can't go now is moved to its parking place, and the place
// goes at the next restart. Either move fails, and is logged, when the
// folder has already gone.
void Park(const wchar_t* folder, const wchar_t* place)
{
    const wchar_t failed[] = L"Tessel_CA Failed to MoveFile UnInstallGauge() - %s";
    if (!MoveFileExW(folder, place, MOVEFILE_COPY_ALLOWED))
        LogMessage(g_hSession, failed, folder);
    if (!MoveFileExW(place, NULL, MOVEFILE_DELAY_UNTIL_REBOOT))
        LogMessage(g_hSession, failed, place);
}

}  // namespace

// Only the 64-bit folder is cleared; each step runs whatever the ones before did.
extern "C" UINT __stdcall PreInstallGauge(MSIHANDLE /*hInstall*/)
{
    wchar_t folder[kFolderChars];
    BuildFolder(CSIDL_PROGRAM_FILES, kClientFolder, folder);
    StopGaugeAndClear({folder});
    StopEmberProgramme();
    RemoveIfPresent(folder);
    DeleteTree(folder, 0);
    return kResultSuccess;
}

// Logs through the session an earlier action stored. Only the event log's
// refusal fails the install, before anything is done.
extern "C" UINT __stdcall PostInstallGauge(MSIHANDLE /*hInstall*/)
{
    // A test that the event log answers; the handle isn't used or deregistered.
    if (RegisterEventSourceW(NULL, L"Application") == NULL)
        return kResultInstallFailure;
    CreateRegStringValue(L"SYSTEM\\CurrentControlSet\\Services\\PerfOS\\Performance\\",
                         L"Disable Performance Counters", L"0");
    GiveIdentity();
    // On a first install the key isn't under HKLM, so the value goes to HKCR.
    CreateRegStringValue(L"Software\\Orvel\\Gauge", L"DCSEnabled", L"Yes");
    wchar_t dataFolder[kFolderChars];
    BuildFolder(CSIDL_COMMON_APPDATA, L"%s\\Orvel\\Gauge", dataFolder);
    OpenToUsers(dataFolder);
    CreateEmberLauncherService();
    StartServiceAndWait(kLauncher);
    return kResultSuccess;
}

extern "C" UINT __stdcall AfterInstallGauge(MSIHANDLE /*hInstall*/)
{
    StartServiceAndWait(kLauncher);
    return kResultSuccess;
}

// Logs through the session an earlier action stored. The identity and the
// data folder stay for a later install.
extern "C" UINT __stdcall UnInstallGauge(MSIHANDLE /*hInstall*/)
{
    wchar_t places[2][kFolderChars] = {};
    wchar_t temp[MAX_PATH];
    if (GetTempPathW(MAX_PATH, temp) != 0) {
        BoundedFormat(places[0], kFolderChars, L"%sGaugetemp", temp);
        BoundedFormat(places[1], kFolderChars, L"%sGaugex86", temp);
    }
    wchar_t folder64[kFolderChars], folder32[kFolderChars];
    BuildFolder(CSIDL_PROGRAM_FILES, kClientFolder, folder64);
    BuildFolder(CSIDL_PROGRAM_FILESX86, kClientFolder, folder32);
    StopGaugeAndClear({folder64, folder32});
    StopEmberProgramme();
    for (const wchar_t* folder : {folder64, folder32}) {
        SetWritable(folder, true);
        RemoveIfPresent(folder);
    }
    Park(folder64, places[0]);
    Park(folder32, places[1]);
    DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel\\Gauge\\");
    return kResultSuccess;
}
