// The video transcoding feature's database folder, cache files and start-up
// shortcut. Each action is one command of the 32-bit command interpreter,
// which expands the variables in its text as a 32-bit program sees them.
// None looks at its session or logs, and all give 0: a folder not made, a
// file not deleted and a failed launch look the same to the installer.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/process.h"

#include <shlobj.h>

#include <string>

namespace {

// The line is the interpreter's path, unquoted, then the text, which begins
// with its file name. Without the folder the line starts with a backslash and
// the launch fails unseen.
UINT RunCommand(const std::wstring& text)
{
    std::wstring systemFolder;
    GetSpecialFolder(CSIDL_SYSTEMX86, systemFolder);
    LaunchCommandLine(LaunchProcess, systemFolder + L"\\" + text, true);
    return kResultSuccess;
}

}  // namespace

extern "C" UINT __stdcall CreateDIR_CA(MSIHANDLE /*hInstall*/)
{
    return RunCommand(L"cmd.exe /c mkdir \"%PROGRAMDATA%\\Orvel\\VDB\"");
}

// Users may modify the folder, its files and sub-folders.
extern "C" UINT __stdcall SetFolderPermission_CA(MSIHANDLE /*hInstall*/)
{
    return RunCommand(L"Cmd.exe /c Icacls \"%ProgramData%\\Orvel\\VDB\" /grant Users:(OI)(CI)M");
}

// start needs a window title ahead of a quoted program, and returns at once:
// only the interpreter is waited for.
extern "C" UINT __stdcall launchVidsync_CA(MSIHANDLE /*hInstall*/)
{
    const wchar_t* programFiles = Is64BitOS() ? L"%programfiles(x86)%" : L"%programfiles%";
    return RunCommand(std::wstring(L"Cmd.exe /c start \"Orvel Vidcast device initialization\" /min \"") +
                      programFiles + L"\\Orvel Vidcast\\bin\\vidsync.exe\" vml");
}

extern "C" UINT __stdcall RemoveFolder_CA(MSIHANDLE /*hInstall*/)
{
    return RunCommand(L"Cmd.exe /c rd /s /q \"%ProgramData%\\Orvel\\VDB\"");
}

extern "C" UINT __stdcall RemoveVDB_CA(MSIHANDLE /*hInstall*/)
{
    return RunCommand(L"Cmd.exe /c del \"%systemroot%\\vdb\\vml_*.vdb\"");
}

extern "C" UINT __stdcall RemoveShortcut_CA(MSIHANDLE /*hInstall*/)
{
    return RunCommand(L"Cmd.exe /c del \"%ProgramData%\\Microsoft\\Windows\\Start Menu\\Programs\\Startup\\VML*.*\"");
}
