// The components that run as services: the quick-resume component's service,
// handled through its own program's switches, and the external-events and
// dynamic local mode services, started through the service manager. The
// external-events service goes at removal unless one of the maker's display
// adapters is still present.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"
#include "toolkit/service.h"

#include <setupapi.h>

#include <cwctype>
#include <string>

namespace {

// The external-events service's name, shared by its two actions.
const wchar_t* g_relayServiceName = L"Orvel Signal Relay";

const wchar_t kVaneProgram[] = L"VaneSleepService.exe";

// The quick-resume component's install folder; false when it isn't recorded.
bool ReadVaneFolder(std::wstring& folder)
{
    registry_string installDir(Is64BitOS() ? L"SOFTWARE\\Wow6432Node\\Kestra Technologies\\Install\\Vane64\\InstallDir"
                                           : L"SOFTWARE\\Kestra Technologies\\Install\\Vane\\InstallDir");
    if (!installDir.exists())
        return false;
    folder = installDir.read() + L"Kestra.Lumen\\Vane\\";
    return true;
}

// The program runs detached with its switch; true when it could be started.
bool RunVaneProgram(const std::wstring& folder, const wchar_t* switches)
{
    return LaunchCommandLine(LaunchProcess, L"\"" + folder + kVaneProgram + L"\"" + switches, false);
}

// Tells the install manager that the feature manager's service must be looked at.
void MarkFeatureManagerNeeded(REGSAM access)
{
    HKEY key = NULL;
    const wchar_t path[] = L"SOFTWARE\\Kestra Technologies\\Install\\";
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, &key) != ERROR_SUCCESS &&
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, NULL, 0, access, NULL, &key, NULL) != ERROR_SUCCESS)
        return;
    const wchar_t yes[] = L"Yes";
    RegSetValueExW(key, L"NeedFeatureManagerSC", 0, REG_SZ, reinterpret_cast<const BYTE*>(yes), sizeof(yes));
    RegCloseKey(key);
}

// A present display adapter whose description names the maker, in any case.
// The list is left undestroyed when one is found, as it always was.
bool MakersAdapterPresent()
{
    const GUID displayClass = {0x4D36E968, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
    HDEVINFO devices = SetupDiGetClassDevsW(&displayClass, NULL, NULL, DIGCF_PRESENT);
    if (devices == INVALID_HANDLE_VALUE)
        return false;
    SP_DEVINFO_DATA device;
    device.cbSize = sizeof(device);
    for (DWORD index = 0; SetupDiEnumDeviceInfo(devices, index, &device); ++index) {
        wchar_t description[260] = L"";
        if (SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_DEVICEDESC, NULL,
                                              reinterpret_cast<BYTE*>(description), sizeof(description), NULL)) {
            std::wstring text = description;
            ToLowerInPlace(text);
            if (text.find(L"orvel") != std::wstring::npos)
                return true;
        }
    }
    SetupDiDestroyDeviceInfoList(devices);
    return false;
}

}  // namespace

extern "C" UINT __stdcall StartVaneService(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    std::wstring folder;
    if (!ReadVaneFolder(folder) || !PathExists(folder + kVaneProgram) || !RunVaneProgram(folder, L" -i"))
        return 0;
    MarkFeatureManagerNeeded(kNativeViewAccess);
    if (Is64BitOS())
        MarkFeatureManagerNeeded(kView32Access);
    return 1;
}

// The folder is tested here, the program in the start.
extern "C" UINT __stdcall StopVaneService(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    std::wstring folder;
    if (ReadVaneFolder(folder) && PathExists(folder))
        RunVaneProgram(folder, L" -u");
    return kResultSuccess;
}

// A relay that doesn't start doesn't fail the install.
extern "C" UINT __stdcall StartRelayService(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    StartServiceAndWait(g_relayServiceName);
    return kResultSuccess;
}

// The relay serves the maker's adapters: it stays while one is present, and a
// relay that won't stop within the limit stays installed.
extern "C" UINT __stdcall StopandDeleteRelay(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    if (!MakersAdapterPresent() && StopServiceQuietly(g_relayServiceName))
        DeleteServiceByName(g_relayServiceName);
    return kResultSuccess;
}

extern "C" UINT __stdcall LaunchDynamicLocalModeService(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    return StartServiceAndWait(L"OrvelDynamicLocalModeService") ? kResultSuccess : kResultInstallFailure;
}
