// The legacy control centre's managed framework: its install tool precompiles
// and uncaches the assemblies, its command-line tool installs the proxy that
// other installers call, and the proxy's path lives in a registry value. The
// tools are found through the framework folder's value and run with fixed
// argument words. Here 1 means done and 0 not done.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <string>

namespace {

// On a 64-bit system the control centre's keys lie in the 32-bit branch, spelled out in the path.
std::wstring LumenPath(const wchar_t* rest)
{
    return std::wstring(Is64BitOS() ? L"SOFTWARE\\Wow6432Node\\" : L"SOFTWARE\\") + L"Kestra\\Lumen\\" + rest;
}

std::wstring FrameworkFolderPath()
{
    return LumenPath(L"Packages\\Core-Static\\Location");
}

std::wstring ProxyValuePath()
{
    return LumenPath(L"Settings\\Pylon\\Install\\Install");
}

std::wstring InFolder(const std::wstring& folder, const wchar_t* name)
{
    return folder + PathSeparatorFor(folder.c_str()) + name;
}

// False when the framework folder's value is missing.
bool ReadFrameworkFolder(std::wstring& folder)
{
    registry_string location(FrameworkFolderPath());
    if (!location.exists())
        return false;
    folder = location.read();
    return true;
}

// The tool's exit code is never read: 1 when it could be started.
UINT RunTool(const std::wstring& line)
{
    return LaunchCommandLine(LaunchProcess, line, true) ? 1 : 0;
}

// The folder test only chooses the message; nothing depends on it.
void LogFolderTest(const std::wstring& path, const wchar_t* empty, const wchar_t* other, const std::wstring& shown)
{
    LogMessage(g_hSession, IsDirectoryEmpty(path) ? empty : other, shown.c_str());
}

// What the two proxy actions log of the install folder they were handed.
struct ProxyTexts {
    const wchar_t* read;
    const wchar_t* empty;
    const wchar_t* other;
};

// The texts of the launch speak of deleting, though nothing is deleted.
const ProxyTexts kLaunchProxyTexts = {L"TESSEL_CA DeleteFolder: %s \n", L"TESSEL_CA Delete directory, %s \n",
                                      L"TESSEL_CA Directory, %s, DNE or is not empty and will not be deleted.\n"};
const ProxyTexts kSetProxyTexts = {L"TESSEL_CA SetInstallProxyKey: %s \n", L"TESSEL_CA SetInstallProxyKey, %s \n",
                                   L"TESSEL_CA SetInstallProxyKey failed, %s.\n"};

// The proxy below the install folder in CustomActionData. A failed read is
// logged and the action goes on with an empty folder.
std::wstring ProxyPath(MSIHANDLE hInstall, const ProxyTexts& texts)
{
    wchar_t data[kPropertyChars] = L"";
    if (ReadProperty(hInstall, L"CustomActionData", data))
        LogMessage(g_hSession, texts.read, data);
    else
        LogMessage(g_hSession, L"TESSEL_CA Could not get INSTALLDIR  \n");
    const std::wstring installDir = data;
    LogFolderTest(installDir, texts.empty, texts.other, installDir);
    return InFolder(InFolder(installDir, L"Kestra.Lumen\\Pylon-InstallProxy"), L"Pylon.InstallProxy.exe");
}

// The precompilation goes through the command interpreter, which always
// starts: a missing install tool still gives 1.
UINT RunNgen(MSIHANDLE hInstall, const wchar_t* words)
{
    std::wstring folder;
    if (!ReadFrameworkFolder(folder))
        return 0;
    g_hSession = hInstall;
    return RunTool(L"cmd /c \"" + InFolder(folder, L"BrioInstall.exe") + L"\"" + words);
}

}  // namespace

// Logs through whatever session an earlier action left in g_hSession.
extern "C" UINT __stdcall BrioUnloadGAC(MSIHANDLE /*hInstall*/)
{
    std::wstring folder;
    if (!ReadFrameworkFolder(folder))
        return 0;
    const std::wstring tool = InFolder(folder, L"BrioInstall.exe");
    // A file is never an empty folder: the second text is the usual one.
    LogFolderTest(tool, L"TESSEL_CA ShutDown Brio location, %s \n",
                  L"TESSEL_CA ShutDown Brio location %s, doesn't exist.\n", folder);
    return RunTool(L"\"" + tool + L"\" gac:u -fa");
}

extern "C" UINT __stdcall LaunchNGEN(MSIHANDLE hInstall)
{
    return RunNgen(hInstall, L" ngen:i -a");
}

extern "C" UINT __stdcall LaunchNGENUninstall(MSIHANDLE hInstall)
{
    return RunNgen(hInstall, L" ngen:u -a");
}

// The proxy's path goes unquoted: a folder with a blank splits it in two words.
extern "C" UINT __stdcall LaunchInstallProxy(MSIHANDLE hInstall)
{
    std::wstring folder;
    if (!ReadFrameworkFolder(folder))
        return 0;
    g_hSession = hInstall;
    const std::wstring cli = InFolder(folder, L"CLI.exe");
    return RunTool(L"\"" + cli + L"\" Install " + ProxyPath(hInstall, kLaunchProxyTexts));
}

// The value is written in both views, even for a folder that doesn't exist;
// 1 says only that the framework was there.
extern "C" UINT __stdcall SetInstallProxyKey(MSIHANDLE hInstall)
{
    if (!registry_value(FrameworkFolderPath()).exists())
        return 0;
    g_hSession = hInstall;
    registry_string(ProxyValuePath()).write(ProxyPath(hInstall, kSetProxyTexts));
    return 1;
}

// The value goes from both views; its key stays.
extern "C" UINT __stdcall DelInstallProxyKey(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: DelInstallProxyKey  \n");
    registry_value proxy(ProxyValuePath());
    if (!proxy.exists())
        return 0;
    proxy.remove_value();
    LogMessage(g_hSession, L"TESSEL_CA: DelInstallProxyKey successfully  \n");
    return 1;
}
