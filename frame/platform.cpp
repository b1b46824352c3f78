// Platform queries. They hold no state and report nothing but the two
// progress lines of GetINSTFolder.
#include "frame/platform.h"

#include "frame/frame.h"

#include <shlobj.h>

namespace {

typedef BOOL(WINAPI* IsWow64ProcessFn)(HANDLE, PBOOL);

const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install";
const wchar_t kInstallDirValue[] = L"InstallDir";

}  // namespace

bool GetOSVersion(OSVERSIONINFOW* info)
{
    return GetVersionExW(info) != 0;
}

BOOL IsWow64()
{
    BOOL isWow64 = FALSE;
    IsWow64ProcessFn isWow64Process = reinterpret_cast<IsWow64ProcessFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "IsWow64Process")));
    if (isWow64Process != NULL)
        isWow64Process(GetCurrentProcess(), &isWow64);
    return isWow64;
}

bool Is64BitOS()
{
    OSVERSIONINFOW version;
    ZeroMemory(&version, sizeof(version));
    version.dwOSVersionInfoSize = kOsVersionInfoSize;
    SYSTEM_INFO system;
    ZeroMemory(&system, sizeof(system));

    GetOSVersion(&version);
    // Only Windows 10 is asked for the native view; older systems answer
    // through IsWow64 below when this process is a 32-bit one.
    if (version.dwMajorVersion == 10)
        GetNativeSystemInfo(&system);
    else
        GetSystemInfo(&system);

    if (system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ||
        system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_IA64)
        return true;
    return IsWow64() != 0;
}

bool IsWindows7()
{
    OSVERSIONINFOW version;
    ZeroMemory(&version, sizeof(version));
    version.dwOSVersionInfoSize = kOsVersionInfoSize;
    return GetOSVersion(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
           version.dwMajorVersion == 6 && version.dwMinorVersion == 1;
}

std::wstring GetBinDirName()
{
    return Is64BitOS() ? L"BIN64" : L"Bin";
}

std::wstring GetInstallDir()
{
    std::wstring installDir;
    ReadRegistryText(kInstallKey, KEY_READ, kInstallDirValue, 260, 520, kCloseKey, installDir);
    return installDir;
}

bool GetINSTFolder(std::wstring& path)
{
    const std::wstring keyPath = std::wstring(kInstallKey) + L"\\";
    HKEY key = NULL;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS)
        return false;

    LogMessage(g_hSession, L"TESSEL_CA Inside GetINSTFolder is, %s \n", keyPath.c_str());
    // A failed read leaves the key open; only a good one closes it.
    if (!ReadKeyText(key, kInstallDirValue, 130, 260, path))
        return false;
    LogMessage(g_hSession, L"TESSEL_CA Inside GetINSTFolder2 is, %s \n", path.c_str());
    RegCloseKey(key);
    return true;
}

std::wstring GetSystemFolder()
{
    wchar_t folder[520] = L"";
    GetSystemDirectoryW(folder, 520);
    return folder;
}

bool GetSpecialFolder(int csidl, std::wstring& path)
{
    LPITEMIDLIST list = NULL;
    HRESULT result = SHGetFolderLocation(NULL, csidl, NULL, 0, &list);
    if (list != NULL) {
        wchar_t buffer[MAX_PATH];
        if (SHGetPathFromIDListW(list, buffer))
            path = buffer;
    }
    IMalloc* allocator = NULL;
    if (SUCCEEDED(SHGetMalloc(&allocator))) {
        allocator->Free(list);
        allocator->Release();
    }
    return result == S_OK;
}
