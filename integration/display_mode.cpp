// The desktop around a driver change: the wanted display mode packed for the
// deferred change, the change itself after the driver has settled, and the
// system assessment run once at the next start.
#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/registry.h"

#include <string>

namespace {

struct ModeProperty {
    const wchar_t* name;
    const wchar_t* fallback;  // only named in the log
};

const ModeProperty kModeProperties[] = {
    {L"DisplayWidth", L"1024"}, {L"DisplayHeight", L"768"}, {L"DisplayBpp", L"32"}, {L"DisplayFreq", L"60"}};

}  // namespace

extern "C" UINT __stdcall SetDisplayMode(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA SetDisplayMode() start");
    std::wstring packed;
    // One buffer and one count for the four reads: each read leaves in the
    // count the length it found, which is the next read's room. Nobody reads
    // the packed text, so it has always been left so.
    wchar_t value[kPropertyChars] = L"";
    DWORD count = kPropertyChars;
    for (const ModeProperty& property : kModeProperties) {
        if (MsiGetPropertyW(hInstall, property.name, value, &count) == ERROR_SUCCESS)
            LogMessage(g_hSession, L"TESSEL_CA %s: %s \n", property.name, value);
        else
            LogMessage(g_hSession, L"TESSEL_CA Could not get %s. Default to %s  \n", property.name, property.fallback);
        packed += value;
        packed += L";";
    }
    if (MsiSetPropertyW(hInstall, L"DisplayModeChange", packed.c_str()) != ERROR_SUCCESS) {
        LogMessage(g_hSession, L"Tessel_CA SetDisplayMode() failed to set DisplayModeChange in CustomActionData");
        return kResultInstallFailure;
    }
    LogMessage(g_hSession, L"Tessel_CA SetDisplayMode(), %s should be set in CustomActionData \n", packed.c_str());
    return kResultSuccess;
}

// The mode is fixed: what SetDisplayMode packed is never read.
extern "C" UINT __stdcall DisplayModeChange(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: DisplayModeChange  \n");
    // The new driver settles first.
    Sleep(20000);
    LogMessage(g_hSession, L"TESSEL_CA: DisplayModeChange  \n");
    DEVMODEW mode;
    ZeroMemory(&mode, sizeof(mode));
    mode.dmSize = sizeof(mode);
    if (!EnumDisplaySettingsW(NULL, ENUM_CURRENT_SETTINGS, &mode)) {
        LogMessage(g_hSession, L"TESSEL_CA: DisplayModeChange failed enumeration of display settings.\n");
        return kResultInstallFailure;
    }
    mode.dmPelsWidth = 1024;
    mode.dmPelsHeight = 768;
    mode.dmBitsPerPel = 32;
    mode.dmDisplayFrequency = 60;
    mode.dmFields = DM_BITSPERPEL | DM_PELSWIDTH | DM_PELSHEIGHT | DM_DISPLAYFREQUENCY;
    if (ChangeDisplaySettingsW(&mode, CDS_UPDATEREGISTRY) != DISP_CHANGE_SUCCESSFUL) {
        LogMessage(g_hSession, L"TESSEL_CA: DisplayModeChange failed to change display settings.\n");
        return kResultInstallFailure;
    }
    LogMessage(g_hSession, L"TESSEL_CA: DisplayModeChange completed.\n");
    return kResultSuccess;
}

// No registry failure is looked at: 1 whatever happened.
extern "C" UINT __stdcall EnableAero(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"TESSEL_CA: EnableAero  \n");
    const std::wstring value = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce\\EnableAero";
    const wchar_t command[] = L"winsat formal -xml log.xml";
    if (Is64BitOS()) {
        // Whatever the version, the text says Vista.
        LogMessage(g_hSession, L"TESSEL_CA: OS is Vista x64.  Setting 64-bit regkey.\n");
        registry_string64(value).write(command);
        LogMessage(g_hSession, L"TESSEL_CA: EnableAero HKLM 64 run once key set.\n");
    } else {
        registry_string runOnce(value);
        if (runOnce.open(true))
            runOnce.write(command);
        LogMessage(g_hSession, L"TESSEL_CA: EnableAero HKLM run once key set.\n");
    }
    return kResultOne;
}
