// The display driver's surroundings: where the display core writes its log,
// on every present adapter of ours, the driver version under the settings
// application's key, the dual-graphics block list with its two service
// values, and the version libraries left in the system folder.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/registry.h"

#include <setupapi.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <initguid.h>
#include <devguid.h>

#include <sstream>
#include <string>

namespace {

const wchar_t kBlockListName[] = L"kestradualbl.dat";

// The two driver services that read the block list.
const wchar_t* const kDriverServices[] = {L"SYSTEM\\CurrentControlSet\\Services\\orvelkmd",
                                          L"SYSTEM\\CurrentControlSet\\Services\\intelkmd"};

// The system folder with `tail` behind it.
std::wstring InSystemFolder(const std::wstring& tail)
{
    return GetSystemFolder() + tail;
}

std::wstring BlockListCopy()
{
    return InSystemFolder(std::wstring(L"\\") + kBlockListName);
}

// Device properties are read into a cleared buffer of 4096 bytes.
const DWORD kDeviceTextChars = 2048;

// Only the last error tells whether the read worked. A successful read need
// not touch it, so it starts cleared.
bool ReadDeviceText(HDEVINFO devices, SP_DEVINFO_DATA& device, DWORD property, wchar_t (&text)[kDeviceTextChars])
{
    ZeroMemory(text, sizeof(text));
    SetLastError(ERROR_SUCCESS);
    SetupDiGetDeviceRegistryPropertyW(devices, &device, property, NULL, reinterpret_cast<BYTE*>(text), sizeof(text),
                                      NULL);
    return GetLastError() == ERROR_SUCCESS;
}

// Ours: the legal name anywhere, or either brand at the start, case as written.
bool IsOurAdapter(const wchar_t* manufacturer)
{
    return wcsstr(manufacturer, L"Orvel Corporation") != NULL || wcsncmp(manufacturer, L"Orvel", 5) == 0 ||
           wcsncmp(manufacturer, L"Kestra", 6) == 0;
}

// True if at least one adapter of ours got all four values. An adapter that
// fails a step is skipped. The device list and the driver keys stay open
// until the host process ends.
bool SetDalLogFileValues()
{
    wchar_t temp[MAX_PATH + 1] = L"";
    GetTempPathW(MAX_PATH + 1, temp);
    // The temporary folder ends in a backslash.
    const std::wstring folder = std::wstring(temp) + L"Orvel\\Halyard\\Analytics";
    const std::wstring logPath = folder + L"\\kestrakmd_dce.log";
    // Usually there already.
    SHCreateDirectoryExW(NULL, folder.c_str(), NULL);

    HDEVINFO devices = SetupDiGetClassDevsW(&GUID_DEVCLASS_DISPLAY, NULL, NULL, DIGCF_PRESENT);
    if (devices == INVALID_HANDLE_VALUE)
        return false;

    // The size value is written with the log path's size: the reader stops at
    // the terminator, and the rest is zeros.
    std::wstring pathSize = L"260";
    pathSize.resize(logPath.size(), L'\0');

    bool wentThrough = false;
    SP_DEVINFO_DATA device;
    device.cbSize = sizeof(device);
    for (DWORD index = 0; SetupDiEnumDeviceInfo(devices, index, &device); ++index) {
        wchar_t text[kDeviceTextChars];
        if (!ReadDeviceText(devices, device, SPDRP_MFG, text) || !IsOurAdapter(text))
            continue;
        if (!ReadDeviceText(devices, device, SPDRP_DRIVER, text))
            continue;
        wchar_t driverKey[256];
        wnsprintfW(driverKey, 256, L"SYSTEM\\CurrentControlSet\\Control\\Class\\%s", text);
        HKEY key = NULL;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, driverKey, 0, kNativeViewAccess, &key) != ERROR_SUCCESS)
            continue;
        RegSetValueExW(key, L"DalDCELogFilePath", 0, REG_SZ, TextData(logPath), TextBytes(logPath));
        RegSetValueExW(key, L"DalDCEFilePathSize", 0, REG_SZ, TextData(pathSize), TextBytes(logPath));
        std::wstring version;
        if (!ReadKeyText(key, L"DriverVersion", 256, 256 * sizeof(wchar_t), version))
            continue;
        // No separator: the class key gets the values, named after the instance ("0000DalDCELogFilePath").
        registry_string(std::wstring(driverKey) + L"DalDCELogFilePath").write(logPath);
        registry_string(std::wstring(driverKey) + L"DalDCEFilePathSize").write(L"260");
        wentThrough = true;
    }
    return wentThrough;
}

void LogWithLastError(MSIHANDLE session, const wchar_t* format)
{
    wchar_t code[20] = L"";
    _itow_s(static_cast<int>(GetLastError()), code, 20, 10);
    LogMessage(session, format, code);
}

// The text behind the system folder, per deleting action.
const wchar_t kIOVLibrary[] = L"\\OrvelIOVVer.dll";
const wchar_t kSMBusLibrary[] = L"\\OrvelSMBusVer.dll";

UINT DeleteVersionLibrary(const wchar_t* tail)
{
    DeleteFileW(InSystemFolder(tail).c_str());
    return kResultOne;
}

}  // namespace

extern "C" UINT __stdcall SetDCLogFileRegistry(MSIHANDLE /*hInstall*/)
{
    SetDalLogFileValues();
    return kResultSuccess;
}

// 1 for done; 0 only when the query can't run.
extern "C" UINT __stdcall UpdateDriverVersionInReg(MSIHANDLE hInstall)
{
    PMSIHANDLE database = MsiGetActiveDatabase(hInstall);
    std::wostringstream query;
    query << L"SELECT `Value` FROM `" << L"Kestra_InstallProperties" << L"` WHERE `Property`='" << L"DriverVersion"
          << L"'";
    PMSIHANDLE view;
    if (MsiDatabaseOpenViewW(database, query.str().c_str(), &view) != ERROR_SUCCESS) {
        LogWithLastError(hInstall, L"Failed in call to MsiDatabaseOpenView. Error: %s");
        return kResultSuccess;
    }
    if (MsiViewExecute(view, 0) != ERROR_SUCCESS) {
        LogWithLastError(hInstall, L"Failed in call to MsiViewExecute. Error: %s");
        MsiViewClose(view);
        return kResultSuccess;
    }
    PMSIHANDLE record;
    wchar_t version[8192] = L"";
    DWORD count = 8192;
    HKEY key = NULL;
    if (MsiViewFetch(view, &record) == ERROR_SUCCESS && MsiRecordGetStringW(record, 1, version, &count) == 0 &&
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel\\Halyard", 0, NULL, 0, kNativeViewAccess, NULL, &key,
                        NULL) == ERROR_SUCCESS) {
        // Stored without its terminator.
        RegSetValueExW(key, L"DriverVersion", 0, REG_SZ, reinterpret_cast<const BYTE*>(version),
                       static_cast<DWORD>(wcslen(version) * sizeof(wchar_t)));
        RegCloseKey(key);
        LogMessage(hInstall, L"TESSEL_CA: Driver version Registry values updated.");
    }
    MsiViewClose(view);
    return kResultOne;
}

// 1 if a service got the value. The failure line follows every opened key,
// after a success too.
extern "C" UINT __stdcall SetDualisBLRegKey(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: Search Service RegKey  \n");
    const std::wstring path = BlockListCopy();
    bool set = false;
    for (const wchar_t* service : kDriverServices) {
        HKEY key = NULL;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, service, 0, kNativeViewAccess, &key) != ERROR_SUCCESS)
            continue;
        // One terminator only, where the type asks for two.
        if (RegSetValueExW(key, L"Blacklist", 0, REG_MULTI_SZ, TextData(path), TextBytes(path)) ==
            ERROR_SUCCESS) {
            LogMessage(g_hSession, L"TESSEL_CA: Set key successfully  \n");
            set = true;
        }
        RegCloseKey(key);
        LogMessage(g_hSession, L"TESSEL_CA: failed to set key  \n");
    }
    return set ? kResultOne : kResultSuccess;
}

// A service key that was absent is made, empty, by the removal.
extern "C" UINT __stdcall DelDualisBLRegKey(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: SearchDriverRegKey  \n");
    for (const wchar_t* service : kDriverServices)
        registry_value(std::wstring(service) + L"\\Blacklist").remove_value();
    return kResultOne;
}

// A copy already in the system folder is kept. 1 if the package's file is there.
extern "C" UINT __stdcall CopyDualisFile(MSIHANDLE /*hInstall*/)
{
    const std::wstring destination = BlockListCopy();
    std::wstring programFiles;
    GetSpecialFolder(CSIDL_PROGRAM_FILES, programFiles);
    const std::wstring source =
        programFiles + L"\\Kestra Technologies\\" + L"Dualis" + L"\\" + kBlockListName;
    if (!PathExists(source))
        return kResultSuccess;
    CopyFileW(source.c_str(), destination.c_str(), TRUE);
    return kResultOne;
}

extern "C" UINT __stdcall DelDualisBLFile(MSIHANDLE /*hInstall*/)
{
    const std::wstring path = BlockListCopy();
    if (PathExists(path)) {
        SetWritable(path, true);
        CFileInfo(path).Remove();
    }
    return kResultOne;
}

extern "C" UINT __stdcall DeleteIOVDll(MSIHANDLE /*hInstall*/)
{
    return DeleteVersionLibrary(kIOVLibrary);
}

extern "C" UINT __stdcall DeleteSMBusDll(MSIHANDLE /*hInstall*/)
{
    return DeleteVersionLibrary(kSMBusLibrary);
}
