// The install manager's records that the package's own tables don't know:
// the package keys under Install, the Add or Remove Programs entries and the
// install-wide values. Each action keeps its own result; several give 1.
#include "removal/removal.h"

#include "config/config_store.h"
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/registry.h"

#include <fstream>

namespace {

const wchar_t kInstallRoot[] = L"SOFTWARE\\Kestra Technologies\\Install\\";
const wchar_t kPackageList[] = L"SOFTWARE\\Kestra Technologies\\Install\\Packages\\";
const wchar_t kUninstallRoot[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";

// A package key's name, read by hand.
const DWORD kPackageNameChars = 260;

// The packages that RemoveARPEntries never hides.
const wchar_t* const kFixedPackages[] = {
    L"W-05-000U-000-003-002-001-00-00",
    L"W-06-2U00-000-002-188-001-00-25",
    L"W-06-2U01-000-002-189-001-00-25",
};

// Logs, deletes and logs again; the wording says "should" because the
// outcome isn't looked at.
void DeleteLoggedKey(const std::wstring& path)
{
    LogMessage(g_hSession, L"Tessel_CA DeletePackageKey(), Key to delete is %s \n", path.c_str());
    DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, path);
    LogMessage(g_hSession, L"Tessel_CA DeletePackageKey(), %s key should be deleted \n", path.c_str());
}

bool DeletePackageKey(const std::wstring& packageId)
{
    DeleteLoggedKey(kPackageList + packageId + L"\\");

    // The per-user key stays; only its values go.
    const wchar_t kUserRoot[] = L"SOFTWARE\\Orvel\\";
    HKEY userRoot;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kUserRoot, 0, kView32Access, &userRoot) == ERROR_SUCCESS) {
        DeleteKeyValues(userRoot, std::wstring());
        RegCloseKey(userRoot);
        LogMessage(g_hSession, L"Tessel_CA DeletePackageKey(), %s Attempted to delete key \n", kUserRoot);
    }
    return true;
}

// Deletes the key only when neither view holds a sub-key and no value is set.
bool DeleteTesselRegKey(HKEY root, const std::wstring& path)
{
    registry_key_list list(root, path);
    list.list_sub_keys();
    if (!list.names.empty()) {
        LogMessage(g_hSession,
                   L"Tessel_CA DeleteTesselRegKey(), Tessel key has sub keys and is not empty thus it will not be "
                   L"deleted %s \n",
                   path.c_str());
        return false;
    }
    list.list_values();
    if (!list.names.empty()) {
        LogMessage(g_hSession, L"Tessel_CA DeleteTesselRegKey(), Tessel key is not empty thus it will not be deleted %s \n",
                   path.c_str());
        return false;
    }
    DeleteKeyInBothViews(root, path);
    LogMessage(g_hSession, L"Tessel_CA DeleteTesselRegKey(), key deleted successfully %s \n", path.c_str());
    return true;
}

// Package record first, then the list, then the root: the parents fall only
// with the last package.
bool CleanTesselRegKeys()
{
    wchar_t packageId[kPropertyChars];
    if (!ReadProperty(g_hSession, L"CustomActionData", packageId))
        return false;
    LogMessage(g_hSession, L"Tessel_CA DeleteFerruleRegKey: PID=%s\n", packageId);
    if (!DeletePackageKey(packageId))
        return false;
    LogMessage(g_hSession, L"Tessel_CA CleanTesselRegKeys(), Ferrule Package key deleted, will now attempt the Tessel "
                           L"(Package) key\n");
    // An emptied parent that stays is a normal outcome.
    DeleteTesselRegKey(HKEY_LOCAL_MACHINE, kPackageList);
    DeleteTesselRegKey(HKEY_LOCAL_MACHINE, kInstallRoot);
    return true;
}

bool CleanUninstallerKeys()
{
    DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, std::wstring(kUninstallRoot) + L"All Kestra Software\\");
    return true;
}

// Sets `valueName` to DWORD 1 in a product's uninstall entry, found in the
// native view or else in the 32-bit one. True when the value was written.
bool FlagUninstallEntry(const std::wstring& productCode, const wchar_t* valueName)
{
    const std::wstring path = kUninstallRoot + productCode;
    HKEY entry;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, kNativeViewAccess, &entry) != ERROR_SUCCESS &&
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, kView32Access, &entry) != ERROR_SUCCESS)
        return false;
    const DWORD one = 1;
    const bool written = RegSetValueExW(entry, valueName, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one),
                                        sizeof(one)) == ERROR_SUCCESS;
    RegCloseKey(entry);
    return written;
}

bool IsFixedPackage(const wchar_t* name)
{
    for (const wchar_t* fixed : kFixedPackages) {
        if (wcscmp(name, fixed) == 0)
            return true;
    }
    return false;
}

// The path of the install manager's settings file, from the database it was
// installed from. A value without "\Packages" throws out_of_range, and
// nothing catches it; an empty or unreadable one gives no path.
std::wstring InstallManagerSettingsPath()
{
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallManagerKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return std::wstring();
    std::wstring path;
    DWORD bytes = 0;
    if (RegQueryValueExW(key, L"OriginalDB", NULL, NULL, NULL, &bytes) == ERROR_SUCCESS && bytes > 0) {
        std::wstring data(bytes / sizeof(wchar_t) + 1, L'\0');
        if (RegQueryValueExW(key, L"OriginalDB", NULL, NULL, reinterpret_cast<BYTE*>(&data[0]), &bytes) ==
            ERROR_SUCCESS)
            path = data.c_str();
    }
    if (!path.empty()) {
        path.erase(path.find(L"\\Packages"));
        path += L"\\Config\\InstallManager.cfg";
    }
    RegCloseKey(key);
    return path;
}

}  // namespace

extern "C" UINT __stdcall CleanRegistry(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    return CleanTesselRegKeys() ? kResultSuccess : kResultFunctionFailed;
}

extern "C" UINT __stdcall RmLegacyUninstall(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    // The files are only reported on; the keys decide the result.
    if (CleanUninstallerFiles())
        LogMessage(g_hSession, L"TESSEL_CA RemoveLegacyUninstall cleaned files \n");
    else
        LogMessage(g_hSession, L"TESSEL_CA RemoveLegacyUninstall failed to clean files \n");
    if (CleanUninstallerKeys()) {
        LogMessage(g_hSession, L"TESSEL_CA RemoveLegacyUninstall cleaned registry keys \n");
        return kResultSuccess;
    }
    LogMessage(g_hSession, L"TESSEL_CA RemoveLegacyUninstall failed to clean registry keys \n");
    return kResultFunctionFailed;
}

// Logs through the handle an earlier action left: this one never stores its own.
extern "C" UINT __stdcall RemoveFerruleEntry(MSIHANDLE /*hInstall*/)
{
    // The extra backslash shows in the log; registry_value takes it off again.
    DeleteLoggedKey(std::wstring(kUninstallRoot) + L"Orvel Quillon Install Manager\\" + L"\\");
    return kResultOne;
}

// Hides the packages' own entries from Add or Remove Programs. After a fixed
// package the name length stays at that package's, so the next long name
// ends the scan.
extern "C" UINT __stdcall RemoveARPEntries(MSIHANDLE /*hInstall*/)
{
    HKEY packages;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Packages", 0,
                      KEY_ENUMERATE_SUB_KEYS, &packages) != ERROR_SUCCESS)
        return kResultOne;
    wchar_t name[kPackageNameChars];
    DWORD nameLength = kPackageNameChars;
    DWORD index = 0;
    if (RegEnumKeyExW(packages, index, name, &nameLength, NULL, NULL, NULL, NULL) != ERROR_SUCCESS) {
        RegCloseKey(packages);
        return kResultOne;
    }
    do {
        if (IsFixedPackage(name))
            continue;
        HKEY package;
        if (RegOpenKeyExW(packages, name, 0, KEY_ALL_ACCESS, &package) == ERROR_SUCCESS) {
            DWORD level = 0;
            DWORD dataSize = sizeof(level);
            wchar_t productCode[260] = L"";
            if (RegQueryValueExW(package, L"iPackageLevel", NULL, NULL, reinterpret_cast<BYTE*>(&level),
                                 &dataSize) == ERROR_SUCCESS &&
                level != 2) {
                dataSize = 260;  // bytes, into a buffer of twice that
                if (RegQueryValueExW(package, L"ProductGUID", NULL, NULL, reinterpret_cast<BYTE*>(productCode),
                                     &dataSize) == ERROR_SUCCESS)
                    FlagUninstallEntry(productCode, L"SystemComponent");
            }
            RegCloseKey(package);
        }
        nameLength = kPackageNameChars;
    } while (RegEnumKeyExW(packages, ++index, name, &nameLength, NULL, NULL, NULL, NULL) == ERROR_SUCCESS);
    RegCloseKey(packages);
    return kResultOne;
}

// Success is 1 here, not 0. The session handle is stored only once the
// settings ask for it.
extern "C" UINT __stdcall DisableRepairForFerrule(MSIHANDLE hInstall)
{
    const std::wstring path = InstallManagerSettingsPath();
    if (!PathExists(path))
        return kResultSuccess;
    Config* config = GetConfig();
    if (!config->LoadFile(path)) {
        ReleaseConfig();
        return kResultSuccess;
    }
    std::wifstream settings(ToNarrowString(path).c_str());
    if (!settings.is_open())
        return kResultSuccess;

    UINT result = kResultSuccess;
    if (FindLineInStream(settings, L"NoRepair=Yes")) {
        g_hSession = hInstall;
        LogMessage(g_hSession, L"Tessel_CA DisableRepairForFerrule() start");
        wchar_t productCode[kPropertyChars];
        if (ReadProperty(g_hSession, L"CustomActionData", productCode) &&
            FlagUninstallEntry(productCode, L"NoRepair"))
            result = kResultOne;
    }
    settings.close();
    ReleaseConfig();
    return result;
}

extern "C" UINT __stdcall ClearInstallRegValues(MSIHANDLE /*hInstall*/)
{
    const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install";
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallKey, 0, kView32Access, &key) == ERROR_SUCCESS) {
        DeleteKeyValues(key, std::wstring());
        RegCloseKey(key);
    }
    if (Is64BitOS() && RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallKey, 0, kView64Access, &key) == ERROR_SUCCESS) {
        DeleteKeyValues(key, std::wstring());
        RegCloseKey(key);
    }
    return kResultOne;
}
