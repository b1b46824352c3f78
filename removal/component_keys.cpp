// The components' own keys, and the settings application's branding folder,
// cleared at uninstall. Each action has its fixed result, whatever the delete did.
#include "removal/removal.h"

#include "frame/frame.h"
#include "toolkit/file.h"
#include "toolkit/registry.h"

#include <shlwapi.h>

#include <algorithm>
#include <cstdio>

extern "C" UINT __stdcall DeleteVaneRegistry(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: SearchVaneRegKey  \n");
    // No closing backslash: "Vane" is taken for a value's name, and the whole
    // of SOFTWARE\Kestra goes.
    DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra\\Vane");
    return kResultOne;
}

extern "C" UINT __stdcall DeleteKestraKey(MSIHANDLE /*hInstall*/)
{
    // DeleteKeyRecursive32 works in its caller's buffer; the 32-bit view only.
    wchar_t path[kKeyPathChars] = L"SOFTWARE\\Kestra";
    DeleteKeyRecursive32(path);
    return kResultSuccess;
}

extern "C" UINT __stdcall DeleteHalyardKEY(MSIHANDLE /*hInstall*/)
{
    DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel\\Halyard\\");
    return kResultSuccess;
}

extern "C" UINT __stdcall DeleteSorrelRegistry(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: SearchSorrelRegKey  \n");
    DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel\\Sorrel\\");
    DeleteKeyInBothViews(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel\\Sorrel\\");
    return kResultOne;
}

namespace {

// The settings application's folder; empty when it can't be read.
std::wstring HalyardInstallDir()
{
    std::wstring installDir;
    // 260 bytes, into a buffer of twice that.
    ReadRegistryText(L"SOFTWARE\\Orvel\\Halyard\\", KEY_READ, L"InstallDir", 260, 260, kCloseKey, installDir);
    return installDir;
}

}  // namespace

// Clears the branding folder but for what the branding key names: its
// sub-key names, and its string data as full paths with forward slashes.
// The retain list is process-wide and only ever grows.
extern "C" UINT __stdcall DeleteandRetainValues(MSIHANDLE /*hInstall*/)
{
    const std::wstring keepWord = L"Skins";
    HKEY branding;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrvelBranding", 0, KEY_READ, &branding) == ERROR_SUCCESS) {
        QueryKeyNames(branding);
        RegCloseKey(branding);
    }

    const std::wstring folder = HalyardInstallDir() + L"\\Halyard\\HalyardBranding";
    if (PathFileExistsW(folder.c_str()) != TRUE)
        return kResultSuccess;
    NameList entries;
    FindFiles(folder, entries, L"*.*", false);

    const bool keepWordListed =
        std::find(g_keyNameList.begin(), g_keyNameList.end(), keepWord) != g_keyNameList.end();
    for (const std::wstring& entry : entries) {
        if (entry.find(keepWord) != std::wstring::npos && keepWordListed)
            continue;
        if (std::find(g_keyNameList.begin(), g_keyNameList.end(), entry) != g_keyNameList.end())
            continue;
        const bool isDirectory = PathIsDirectoryW(entry.c_str()) != FALSE;
        std::wstring path = entry;
        std::replace(path.begin(), path.end(), L'/', L'\\');
        if (isDirectory)
            DeleteTree(path.c_str(), 1);
        else
            _wremove(path.c_str());
        // What failed stays; the uninstall goes on.
        (void)GetLastError();
    }
    return kResultSuccess;
}
