// The profiler, Tracewell: an older version found in the uninstall root and
// removed, a restart asked for when it predates 3.0.0.0, its kernel drivers
// copied and cleared, and its help content registered and removed.
#include "companions/companions.h"

#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <shellapi.h>
#include <shlobj.h>

#include <functional>
#include <io.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <vector>

namespace {

// Older profilers wrote 32-bit keys: on a 64-bit system the branch is spelled out.
std::wstring SoftwareKey(const std::wstring& tail)
{
    return (Is64BitOS() ? L"SOFTWARE\\Wow6432Node\\" : L"SOFTWARE\\") + tail;
}

std::wstring UninstallRoot()
{
    return SoftwareKey(L"Microsoft\\Windows\\CurrentVersion\\Uninstall\\");
}

// Two spellings of the install folder's value live side by side: the upgrade
// steps read "Installdir", the driver and help steps "InstallDir".
const wchar_t kUpgradeFolderValue[] = L"Orvel\\Tracewell\\Key\\Installdir";
const wchar_t kDriverFolderValue[] = L"Orvel\\Tracewell\\Key\\InstallDir";

// The value's text, which ends in a backslash; false when there is no such value.
bool ReadInstallFolder(const wchar_t* value, std::wstring& folder)
{
    registry_string installFolder(SoftwareKey(value));
    if (!installFolder.exists())
        return false;
    folder = installFolder.read();
    return true;
}

// The text of a value if it exists, else "".
std::wstring ReadIfExists(const std::wstring& path)
{
    registry_string value(path);
    return value.exists() ? value.read() : std::wstring();
}

// Given the subkey of an older profiler's entry; true ends the scan.
typedef std::function<bool(const std::wstring& subkey)> OlderEntryStep;

// Walks the uninstall root for the profiler's entries, leaving out the one of
// the version this package knows. True when a step ended the scan.
bool FindOlderEntry(const OlderEntryStep& step)
{
    const std::wstring root = UninstallRoot();
    const std::wstring productCode = ReadIfExists(SoftwareKey(L"Orvel\\Tracewell\\Install\\ProductCode"));
    registry_key_list entries(HKEY_LOCAL_MACHINE, root);
    entries.list_sub_keys();
    const std::wstring kDisplayName = L"Tracewell Performance Analyzer";
    for (const std::wstring& subkey : entries.names) {
        registry_string displayName(root + subkey + L"\\DisplayName");
        if (!displayName.exists())
            continue;
        if (displayName.read().compare(0, kDisplayName.size(), kDisplayName) != 0)
            continue;
        if (subkey == productCode)
            continue;
        if (step(subkey))
            return true;
    }
    return false;
}

// The program folders that an older profiler or this package's own leave.
void DeleteProgramFolders(const std::wstring& folder)
{
    DeleteTree((folder + L"bin").c_str(), 0);
    DeleteTree((folder + L"API").c_str(), 0);
}

// True when `found` is below `limit`, field by field from major to revision.
bool IsLower(const VersionMask& found, const VersionMask& limit)
{
    const std::wstring VersionMask::*const fields[] = {&VersionMask::major, &VersionMask::minor,
                                                        &VersionMask::build, &VersionMask::revision};
    for (const std::wstring VersionMask::*field : fields) {
        const double a = _wtof((found.*field).c_str()), b = _wtof((limit.*field).c_str());
        if (a != b)
            return a < b;
    }
    return false;
}

bool IsDigits(const std::wstring& text)
{
    return text.find_first_not_of(L"0123456789") == std::wstring::npos;
}

std::wstring DriverFolder()
{
    return GetSystemFolder() + L"\\Drivers";
}

// Each driver's service key and the files it brings, in the order they are cleared.
struct ProfilerDriver {
    const wchar_t* serviceKey;
    const wchar_t* files[2];
};
const ProfilerDriver kDrivers[] = {
    {L"SYSTEM\\CurrentControlSet\\services\\TWKERN\\", {L"twkern.sys", L"twkern.cat"}},
    {L"SYSTEM\\CurrentControlSet\\services\\TWSAMP\\", {L"twsamp.sys", L"twsamp.cat"}},
    {L"SYSTEM\\CurrentControlSet\\services\\TWAUX\\", {L"twaux.sys", NULL}},
};

// The folder named by `property`; "" when it couldn't be read.
std::wstring ReadFolderProperty(const wchar_t* property, const wchar_t* readText)
{
    wchar_t folder[kPropertyChars];
    if (ReadProperty(g_hSession, property, folder)) {
        LogMessage(g_hSession, readText, folder);
        return folder;
    }
    LogMessage(g_hSession, L"TESSEL_CA Could not get INSTALLDIR  \n");
    return std::wstring();
}

// The help library manager, quoted, as both help lines begin.
std::wstring QuotedHelpTool()
{
    std::wstring programFiles;
    GetSpecialFolder(CSIDL_PROGRAM_FILES, programFiles);
    return L"\"" + programFiles + PathSeparatorFor(programFiles.c_str()) +
           L"Microsoft Help Viewer\\v1.0\\HelpLibManager.exe\"";
}

// The file version as "a.b.c.d"; "" when the file has none.
std::wstring GetFileVersionString(const std::wstring& path)
{
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &handle);
    if (size == 0)
        return std::wstring();
    std::vector<BYTE> data(size);
    VS_FIXEDFILEINFO* info = NULL;
    UINT infoBytes = 0;
    if (!GetFileVersionInfoW(path.c_str(), 0, size, data.data()) ||
        !VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&info), &infoBytes) || info == NULL)
        return std::wstring();
    wchar_t text[260];
    wsprintfW(text, L"%d.%d.%d.%d", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
              HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS));
    return text;
}

// A file of the system's driver folder, read-only or not.
bool DeleteSystemDriverFile(const std::wstring& name)
{
    const std::wstring folder = DriverFolder();
    const std::wstring path = folder + PathSeparatorFor(folder.c_str()) + name;
    _wchmod(path.c_str(), _S_IWRITE);
    return DeleteFileW(path.c_str()) != FALSE;
}

}  // namespace

VersionMask ParseVersionMask(const std::wstring& text)
{
    VersionMask mask = {L"x", L"x", L"x", L"x", 0};
    if (text == L"*") {
        mask.major = mask.minor = mask.build = mask.revision = L"*";
        mask.precision = 4;
        return mask;
    }
    std::vector<std::wstring> pieces;
    for (size_t start = 0; start <= text.size();) {
        size_t end = text.find(L'.', start);
        if (end == std::wstring::npos)
            end = text.size();
        if (end > start)
            pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    if (pieces.size() < 2 || pieces.size() > 4)
        return mask;
    mask.precision = static_cast<DWORD>(pieces.size() - 1);
    pieces.resize(4, L"0");
    mask.major = pieces[0];
    mask.minor = pieces[1];
    mask.build = pieces[2];
    mask.revision = pieces[3];
    if (!IsDigits(mask.major) || !IsDigits(mask.minor) || !IsDigits(mask.build) || !IsDigits(mask.revision))
        mask = {L"x", L"x", L"x", L"x", 0};
    return mask;
}

extern "C" UINT __stdcall RemoveTracewellEntrance(MSIHANDLE)
{
    const std::wstring root = UninstallRoot();
    UINT result = 0;
    FindOlderEntry([&](const std::wstring& subkey) {
        DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, root + subkey + L"\\");
        result = 1;
        return false;
    });
    return result;
}

extern "C" UINT __stdcall RemoveTracewellFromWise(MSIHANDLE)
{
    std::wstring folder;
    ReadInstallFolder(kUpgradeFolderValue, folder);
    const std::wstring root = UninstallRoot();
    std::wstring uninstaller;
    const bool found = FindOlderEntry([&](const std::wstring& subkey) {
        registry_string uninstallString(root + subkey + L"\\UninstallString");
        if (!uninstallString.exists())
            return false;
        uninstaller = uninstallString.read();
        return true;
    });
    if (!found)
        return 0;
    // The old installer must neither ask nor restart on its own; the reboot flag decides that.
    LaunchCommandLine(LaunchProcess, uninstaller + L" /qn /norestart", true);
    DeleteProgramFolders(folder);
    return 1;
}

extern "C" UINT __stdcall SetTracewellRebootFlag(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    std::wstring folder;
    ReadInstallFolder(kUpgradeFolderValue, folder);
    UINT result = 0;
    FindOlderEntry([&](const std::wstring&) {
        const VersionMask found = ParseVersionMask(GetFileVersionString(folder + L"bin\\" + L"Tracewell.exe"));
        const VersionMask limit = ParseVersionMask(L"3.0.0.0");
        if (found.precision != 4 && limit.precision != 4) {
            // The first older entry with an unreadable or current version settles it.
            if (found.precision == 0 || limit.precision == 0 || !IsLower(found, limit))
                return true;
        }
        if (MsiSetPropertyW(g_hSession, L"REBOOT", L"Force") != ERROR_SUCCESS)
            return false;
        result = 1;
        return true;
    });
    return result;
}

extern "C" UINT __stdcall CopyTracewellDrivers64(MSIHANDLE)
{
    const std::wstring drivers = DriverFolder();
    std::wstring folder;
    if (!ReadInstallFolder(kDriverFolderValue, folder))
        return 0;
    if (IsDirectoryEmpty(folder))
        return 0;
    return CopyDirectory(folder + L"bin\\Drivers64", drivers) ? 1 : 0;
}

extern "C" UINT __stdcall RemoveTracewellDriverSettings(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: SearchTracewellDriverRegKey  \n");
    for (const ProfilerDriver& driver : kDrivers)
        DeleteKeyInBothViews(HKEY_LOCAL_MACHINE, driver.serviceKey);
    return 1;
}

extern "C" UINT __stdcall ClearTracewellDir(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA GetInstallTracewellDir() start");
    const std::wstring folder = ReadFolderProperty(L"INSTALLDIR", L"TESSEL_CA ClearTracewellDir: %s \n");
    // The shell wants a list ending in two nulls.
    const std::wstring from = folder + L'\0';
    SHFILEOPSTRUCTW operation = {};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_ALLOWUNDO;
    if (SHFileOperationW(&operation) != 0) {
        LogMessage(g_hSession, L"TESSEL_CA can not ClearTracewellDir: %s \n", folder.c_str());
        return 0;
    }
    LogMessage(g_hSession, L"TESSEL_CA ClearTracewellDir: %s \n", folder.c_str());
    return 1;
}

extern "C" UINT __stdcall RemoveTracewellDDir(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    DeleteProgramFolders(ReadFolderProperty(L"CustomActionData", L"TESSEL_CA DelInstallTracewellDir: %s \n"));
    return 1;
}

extern "C" UINT __stdcall UnLoadOldDriver(MSIHANDLE)
{
    // Nothing is unloaded: the files go, and the drivers with the next restart.
    for (const ProfilerDriver& driver : kDrivers)
        for (const wchar_t* file : driver.files)
            if (file != NULL)
                DeleteSystemDriverFile(file);
    return 1;
}

extern "C" UINT __stdcall InstallHelp64(MSIHANDLE)
{
    if (!Is64BitOS())
        return 0;
    std::wstring line = QuotedHelpTool() + L" /product VS /version 100 /locale en-us /sourceMedia";
    std::wstring folder;
    if (!ReadInstallFolder(kDriverFolderValue, folder))
        return 0;
    if (IsDirectoryEmpty(folder))
        return 0;
    line += L" \"" + folder + L"help\\helpcontentsetup.msha\"";
    return LaunchCommandLine(LaunchProcess, line, true) ? 1 : 0;
}

extern "C" UINT __stdcall RemoveHelp64(MSIHANDLE)
{
    if (!Is64BitOS())
        return 0;
    const std::wstring line = QuotedHelpTool() +
                              L" /product VS /version 100 /locale en-us /uninstall /vendor \"Orvel Corporation\" "
                              L"/mediaBookList \"Orvel Tracewell\" /productName \"Orvel Tracewell Performance "
                              L"Analyzer\" /silent";
    return LaunchCommandLine(LaunchProcess, line, true) ? 1 : 0;
}
