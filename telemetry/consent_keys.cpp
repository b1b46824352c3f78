// Whether the user accepted analytics, as one text value that this library
// writes and never reads, and the note that the capture feature's use has
// been counted once. No failure here reaches the installer: all give 0.
#include "frame/frame.h"
#include "toolkit/registry.h"

#include <string>

namespace {

const wchar_t kAnalyticsKey[] = L"SOFTWARE\\Orvel\\OrvelAnalytics";
const wchar_t kTrackedKey[] = L"SOFTWARE\\OrvelDVR";

// Opened with full access; the handle is the caller's.
bool OpenMachineKey(const wchar_t* path, HKEY& key)
{
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_ALL_ACCESS, &key) == ERROR_SUCCESS;
}

// Stored with its terminator; the result is not looked at.
void WriteConsent(HKEY key, const wchar_t* text)
{
    RegSetValueExW(key, L"AnalyticsAccepted", 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>(lstrlenW(text) * 2 + 2));
}

}  // namespace

// The consent keys' handles are left open, as they always were: they end with the process.
extern "C" UINT __stdcall EnableAnalyticsKey(MSIHANDLE /*hInstall*/)
{
    HKEY key = NULL;
    if (!OpenMachineKey(kAnalyticsKey, key)) {
        CreateKeyWithAcl(kAnalyticsKey);
        if (!OpenMachineKey(kAnalyticsKey, key))
            return kResultSuccess;
    }
    WriteConsent(key, L"true");
    return kResultSuccess;
}

// Only a value that begins with "yes", in any case, withdraws a consent, and
// only one already given: the key is never made here.
extern "C" UINT __stdcall DisabelAnalyticsKey(MSIHANDLE hInstall)
{
    wchar_t value[kPropertyChars];
    if (!ReadProperty(hInstall, L"DISABLEANALYTICS", value) || FindNoCase(value, L"YES") != 0)
        return kResultSuccess;
    HKEY key = NULL;
    if (OpenMachineKey(kAnalyticsKey, key))
        WriteConsent(key, L"false");
    return kResultSuccess;
}

// Logs through the session an earlier action stored. A key with sub-keys stays.
extern "C" UINT __stdcall DeleteAnalyticsKey(MSIHANDLE /*hInstall*/)
{
    HKEY key = NULL;
    if (!OpenMachineKey(kAnalyticsKey, key))
        LogMessage(g_hSession, L"Could not access Gauge Key");
    else if (RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kAnalyticsKey, KEY_ALL_ACCESS, 0) == ERROR_SUCCESS)
        LogMessage(g_hSession, L"Gauge Key deleted");
    else
        LogMessage(g_hSession, L"Gauge Key not deleted");
    RegCloseKey(key);
    return kResultSuccess;
}

// The capture feature's use is counted once: the key's presence says it was.
extern "C" UINT __stdcall TrackDVRAnalytics(MSIHANDLE /*hInstall*/)
{
    HKEY install = NULL;
    bool enabled = false;
    if (OpenMachineKey(L"SOFTWARE\\Kestra Technologies\\Install", install)) {
        DWORD value = static_cast<DWORD>(-1);
        DWORD bytes = sizeof(value);
        if (RegQueryValueExW(install, L"OrvelDVR_Enabled", NULL, NULL, reinterpret_cast<BYTE*>(&value), &bytes) ==
            ERROR_SUCCESS) {
            RegCloseKey(install);
            enabled = value == 1;
        }
    }
    // Closed again in every case, as it always was; the failures are ignored.
    RegCloseKey(install);
    if (!enabled)
        return kResultSuccess;

    HKEY tracked = NULL;
    if (OpenMachineKey(kTrackedKey, tracked)) {
        RegCloseKey(tracked);
        return kResultSuccess;
    }
    CreateKeyWithAcl(kTrackedKey);
    if (OpenMachineKey(kTrackedKey, tracked) ||
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kTrackedKey, 0, NULL, 0, KEY_ALL_ACCESS, NULL, &tracked, NULL) ==
            ERROR_SUCCESS) {
        const DWORD one = 1;
        RegSetValueExW(tracked, L"OrvelDVR_Tracked", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof(one));
        RegCloseKey(tracked);
    }
    return kResultSuccess;
}
