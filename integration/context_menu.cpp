// The entry the shell's menu shows on a folder's background: the handler key
// that names the extension's class, regsvr32 on the extension library, and
// its unregistration, moving a library the shell still holds out of the way.
// The results here are 1 for done and 0 for not done.
#include "frame/frame.h"
#include "integration/integration.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <sstream>
#include <string>

namespace {

const wchar_t kMenuClassId[] = L"{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}";
const wchar_t kHandlerKey[] = L"Directory\\Background\\shellex\\ContextMenuHandlers\\Lumen";
const wchar_t kServerKey[] = L"CLSID\\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}\\InprocServer32";

// Default values are read into 520 bytes.
const DWORD kValueChars = 260;
const DWORD kValueBytes = 520;

const wchar_t kBrio64Start[] = L"Tessel_CA CreateBrioContextMenu64() start";
const wchar_t kBrio64Created[] = L"Tessel_CA CreateBrioContextMenu64() - Successfully created GUID";
const wchar_t kBrioStart[] = L"Tessel_CA CreateBrioContextMenu() start";

struct MenuLibrary {
    const wchar_t* startText;
    const wchar_t* presentText;  // null: an existing default value is overwritten
    const wchar_t* createdText;
    const wchar_t* file;         // below INSTALLDIR
    const wchar_t* fallbackFile; // below Location when INSTALLDIR is empty; null: no fall-back
};

// The Halyard actions log the Brio texts, the 32-bit one the 64-bit success.
const MenuLibrary kBrio64 = {kBrio64Start, L"Tessel_CA CreateBrioContextMenu64() - GUID is already present",
                             kBrio64Created, L"Kestra.Lumen\\Core-Static\\kestramenu64.dll", NULL};
const MenuLibrary kBrio = {kBrioStart, L"Tessel_CA CreateBrioContextMenu() - GUID is already present",
                           L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID",
                           L"Kestra.Lumen\\Core-Static\\kestramenuxx.dll", NULL};
const MenuLibrary kHalyard64 = {kBrio64Start, NULL, kBrio64Created, L"Halyard\\Halyard\\kestramenu64.dll",
                                L"kestramenu64.dll"};
const MenuLibrary kHalyard = {kBrioStart, NULL, kBrio64Created, L"Halyard\\Halyard\\kestramenuxx.dll",
                              L"kestramenuxx.dll"};

// regsvr32 runs silently and is waited for; neither its start nor its exit code is looked at.
void RunRegsvr32(const wchar_t* switches, const std::wstring& library)
{
    std::wostringstream command;
    command << L"regsvr32.exe " << switches << L"\"" << library << L"\"";
    std::wstring commandLine = command.str();
    LaunchProcess(&commandLine[0], commandLine, true);
}

// 1 when the handler key's default value was there already (where that
// counts) or was written, else 0.
UINT WriteHandlerKey(const MenuLibrary& menu)
{
    HKEY key = NULL;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, kHandlerKey, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) {
        if (RegCreateKeyExW(HKEY_CLASSES_ROOT, kHandlerKey, 0, NULL, 0, KEY_ALL_ACCESS, NULL, &key, NULL) !=
            ERROR_SUCCESS)
            return 0;
    } else if (menu.presentText != NULL) {
        // Whatever the value holds counts as present.
        std::wstring present;
        if (ReadKeyText(key, L"", kValueChars, kValueBytes, present)) {
            LogMessage(g_hSession, menu.presentText);
            RegCloseKey(key);
            return 1;
        }
    }
    UINT result = 0;
    const DWORD bytes = static_cast<DWORD>((wcslen(kMenuClassId) + 1) * sizeof(wchar_t));
    if (RegSetValueExW(key, L"", 0, REG_SZ, reinterpret_cast<const BYTE*>(kMenuClassId), bytes) == ERROR_SUCCESS) {
        LogMessage(g_hSession, menu.createdText);
        result = 1;
    }
    RegCloseKey(key);
    return result;
}

UINT CreateContextMenu(MSIHANDLE hInstall, const MenuLibrary& menu)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, menu.startText);
    wchar_t installDir[kPropertyChars];
    if (!ReadProperty(hInstall, L"INSTALLDIR", installDir))
        return 0;
    const UINT result = WriteHandlerKey(menu);

    std::wstring folder = installDir;
    const wchar_t* file = menu.file;
    if (folder.empty() && menu.fallbackFile != NULL) {
        // An unreadable Location leaves the folder empty: nothing is registered.
        ReadRegistryText(kHalyardInstallKey, KEY_ALL_ACCESS, L"Location", kValueChars, kValueBytes, kCloseKey, folder);
        file = menu.fallbackFile;
    }
    const std::wstring library = folder + PathSeparatorFor(folder.c_str()) + file;
    if (PathExists(library))
        RunRegsvr32(L"/s ", library);
    return result;
}

// The library that the class key names; false when the key can't be opened
// (`opened` false) or its default value can't be read. The key is closed
// only after a read, as it always was.
bool ReadRegisteredLibrary(bool& opened, std::wstring& library)
{
    HKEY key = NULL;
    opened = RegOpenKeyExW(HKEY_CLASSES_ROOT, kServerKey, 0, KEY_READ, &key) == ERROR_SUCCESS;
    if (!opened || !ReadKeyText(key, L"", kValueChars, kValueBytes, library))
        return false;
    LogMessage(g_hSession, L"Tessel_CA UnregisterHalyardContextMenu() - GUID is already present unregister it");
    if (PathExists(library))
        RunRegsvr32(L"/s /u", library);
    RegCloseKey(key);
    return true;
}

void LogFailedMove(const std::wstring& path)
{
    LogMessage(g_hSession, L"Tessel_CA MoveFile UnregisterBrioN() - %s", path.c_str());
}

}  // namespace

extern "C" UINT __stdcall CreateBrioContextMenu64(MSIHANDLE hInstall)
{
    return CreateContextMenu(hInstall, kBrio64);
}

extern "C" UINT __stdcall CreateBrioContextMenu(MSIHANDLE hInstall)
{
    return CreateContextMenu(hInstall, kBrio);
}

extern "C" UINT __stdcall CreateHalyardContextMenu64(MSIHANDLE hInstall)
{
    return CreateContextMenu(hInstall, kHalyard64);
}

extern "C" UINT __stdcall CreateHalyardContextMenu(MSIHANDLE hInstall)
{
    return CreateContextMenu(hInstall, kHalyard);
}

extern "C" UINT __stdcall UnregisterHalyardContextMenu(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA UnregisterHalyardContextMenu() start");
    bool opened = false;
    std::wstring library;
    return ReadRegisteredLibrary(opened, library) ? 1 : 0;
}

// A shell that holds the library loaded stops a delete but not a move: the
// library goes to the temporary folder at once and from there at the next
// start, and the older build beside it with it.
extern "C" UINT __stdcall UnregisterHalyardContextMenu64(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA UnregisterHalyardContextMenu() start");
    wchar_t tempFolder[MAX_PATH] = L"";
    std::wstring parked;
    if (GetTempPathW(MAX_PATH, tempFolder) > 0)
        parked = std::wstring(tempFolder) + L"attemp.dll";

    bool opened = false;
    std::wstring library;
    const bool read = ReadRegisteredLibrary(opened, library);
    if (!opened)
        return 0;
    const size_t lastBackslash = library.rfind(L'\\');
    const std::wstring folder = lastBackslash == std::wstring::npos ? std::wstring() : library.substr(0, lastBackslash);
    const std::wstring older = folder + L"\\kestramenu.dll";

    // The parked name is fixed and never replaced: a second unregister before
    // a restart fails its first move.
    if (!MoveFileExW(library.c_str(), parked.c_str(), MOVEFILE_COPY_ALLOWED))
        LogFailedMove(library);
    if (!MoveFileExW(parked.c_str(), NULL, MOVEFILE_DELAY_UNTIL_REBOOT))
        LogFailedMove(parked);
    if (!MoveFileExW(older.c_str(), NULL, MOVEFILE_DELAY_UNTIL_REBOOT))
        LogFailedMove(older);
    return read ? 1 : 0;
}

extern "C" UINT __stdcall DeleteHalyardShellRegistry(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: HalyardShellRegKey  \n");
    // The closing backslash keeps Lumen itself as the key that goes.
    DeleteKeyInBothViews(HKEY_CLASSES_ROOT, std::wstring(kHandlerKey) + L"\\");
    return 1;
}
