// Closing the suite's programs before their files are replaced and starting
// them again afterwards: each action finds one program, through the location
// its package recorded or through a system folder, and runs one command line.
// A program that isn't installed is no failure.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <string>

namespace {

const wchar_t kCoreStaticLocation[] = L"SOFTWARE\\Kestra\\Lumen\\Packages\\Core-Static\\Location";
const wchar_t kCoreStaticLocation32[] = L"SOFTWARE\\Wow6432Node\\Kestra\\Lumen\\Packages\\Core-Static\\Location";

// The control centre's location is read from the 32-bit branch on a 64-bit system.
const wchar_t* CoreStaticLocation()
{
    return Is64BitOS() ? kCoreStaticLocation32 : kCoreStaticLocation;
}

struct LocatedTool {
    const wchar_t* program;
    const wchar_t* arguments;  // after the quoted path; empty: none, and no blank
    bool wait;
    bool toolRequired;         // a location without the program is a failure, and the launch's result is dropped
};

const LocatedTool kBrioShutdown = {L"CLI.exe", L" shutdown", true, false};
const LocatedTool kHalyardExit = {L"halyardcmd.exe", L" exit", false, true};
const LocatedTool kDvrExit = {L"CaptureServCmd.exe", L" exit", false, true};
const LocatedTool kSorrelStop = {L"Sorrel.Service.exe", L" /stop", false, false};
const LocatedTool kBrioLaunch = {L"Pylon.exe", L"", false, false};

// The program below the folder the registry records at `location`, both views looked at; false when there is none.
bool LocateTool(const wchar_t* location, const LocatedTool& tool, std::wstring& path)
{
    registry_string value(location);
    if (!value.exists())
        return false;
    const std::wstring folder = value.read();
    path = folder + PathSeparatorFor(folder.c_str()) + tool.program;
    return true;
}

UINT RunLocatedTool(const std::wstring& path, const LocatedTool& tool)
{
    if (tool.toolRequired && !PathFileExistsW(path.c_str()))
        return kResultInstallFailure;
    const bool launched = LaunchCommandLine(LaunchProcess, L"\"" + path + L"\"" + tool.arguments, tool.wait);
    if (tool.toolRequired)
        return kResultSuccess;
    return launched ? kResultOne : kResultSuccess;
}

UINT CloseOrStart(const wchar_t* location, const LocatedTool& tool)
{
    std::wstring path;
    if (!LocateTool(location, tool, path))
        return kResultSuccess;
    return RunLocatedTool(path, tool);
}

// A program of one of the system's folders, the line opening with a quote
// before the folder; the backslash is always written.
UINT RunSystemTool(int csidl, const std::wstring& rest)
{
    std::wstring folder;
    GetSpecialFolder(csidl, folder);
    return LaunchCommandLine(LaunchProcess, L"\"" + folder + L"\\" + rest, true) ? kResultSuccess
                                                                                 : kResultInstallFailure;
}

}  // namespace

extern "C" UINT __stdcall ShutDownBrio(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    std::wstring path;
    if (!LocateTool(CoreStaticLocation(), kBrioShutdown, path))
        return kResultSuccess;
    // The test is of an empty folder, so a tool that is there reads as missing;
    // the tool is run either way.
    if (IsDirectoryEmpty(path))
        LogMessage(g_hSession, L"TESSEL_CA ShutDown Brio location, %s \n", path.c_str());
    else
        LogMessage(g_hSession, L"TESSEL_CA ShutDown Brio location %s, doesn't exist.\n", path.c_str());
    return RunLocatedTool(path, kBrioShutdown);
}

extern "C" UINT __stdcall ShutDownBrioNext(MSIHANDLE /*hInstall*/)
{
    return CloseOrStart(L"SOFTWARE\\Kestra Technologies\\Install\\Halyard\\Location", kHalyardExit);
}

extern "C" UINT __stdcall ShutDownDVR(MSIHANDLE /*hInstall*/)
{
    return CloseOrStart(L"SOFTWARE\\Kestra Technologies\\Install\\Orvel DVR\\Location", kDvrExit);
}

// The same branch on every system.
extern "C" UINT __stdcall KillSorrelUIApp(MSIHANDLE /*hInstall*/)
{
    return CloseOrStart(L"SOFTWARE\\Kestra\\Lumen\\Packages\\Sorrel\\Location", kSorrelStop);
}

extern "C" UINT __stdcall LaunchBrio(MSIHANDLE /*hInstall*/)
{
    return CloseOrStart(CoreStaticLocation(), kBrioLaunch);
}

// The three task-killer lines differ in their quotes, as they always have: the
// last one is a single quoted word that names no program, and fails.
extern "C" UINT __stdcall TerminateHalyardApp(MSIHANDLE /*hInstall*/)
{
    return RunSystemTool(CSIDL_SYSTEM, L"TaskKill.exe\" /IM MarlinSettings.exe /F\"");
}

extern "C" UINT __stdcall TerminateDVRApp(MSIHANDLE /*hInstall*/)
{
    return RunSystemTool(CSIDL_SYSTEM, L"TaskKill.exe\" /IM OrvelCaptureServ.exe /F");
}

extern "C" UINT __stdcall TerminatePixelSharpApp(MSIHANDLE /*hInstall*/)
{
    return RunSystemTool(CSIDL_SYSTEM, L"TaskKill.exe /IM hpvstray.exe /F\"");
}

extern "C" UINT __stdcall RestartExplorerBrioApp(MSIHANDLE /*hInstall*/)
{
    return RunSystemTool(CSIDL_WINDOWS, L"explorer.exe\"");
}

// Windows 7 has no use for the task; 1 either way.
extern "C" UINT __stdcall LaunchHalyard(MSIHANDLE /*hInstall*/)
{
    if (!IsWindows7())
        LaunchCommandLine(LaunchProcess, L"schtasks /run /TN \"StartHalyard\"", true);
    return kResultOne;
}

extern "C" UINT __stdcall LoadProfile(MSIHANDLE /*hInstall*/)
{
    const std::wstring systemFolder = GetSystemFolder();
    const std::wstring line = systemFolder + PathSeparatorFor(systemFolder.c_str()) + L"kestraprof.exe -reload";
    return LaunchCommandLine(LaunchProcess, line, true) ? kResultOne : kResultSuccess;
}
