// The install manager's reboot flag: carried into the session before a
// removal is handed over, and reset afterwards.
#include "removal/removal.h"

#include "frame/frame.h"
#include "toolkit/registry.h"

namespace {

// Always 0, whatever the write did: ResetRebootKey's log depends on that.
UINT WriteFerruleRebootFlag(BYTE flag)
{
    registry_string rebootFlag(std::wstring(L"SOFTWARE\\Kestra Technologies\\Install\\") +
                               L"Kestra Quillon Install Manager\\Ferrule_Reboot");
    rebootFlag.write(flag != 0 ? L"Yes" : L"No");
    return 0;
}

}  // namespace

UINT ApplyFerruleRebootFlag(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallManagerKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return 0;
    // The key is left open, as the install manager's hand-over always did.
    wchar_t flag[260] = L"";
    DWORD bytes = 520;
    if (RegQueryValueExW(key, L"Ferrule_Reboot", NULL, NULL, reinterpret_cast<BYTE*>(flag), &bytes) !=
        ERROR_SUCCESS)
        return 0;
    if (CompareNoCase(flag, L"yes") != 0)
        return 0;
    return MsiSetPropertyW(g_hSession, L"REBOOT", L"F") == ERROR_SUCCESS ? 1 : 0;
}

extern "C" UINT __stdcall ResetRebootKey(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    // The helper never answers 1, so the log says "failed" after a good write too.
    if (WriteFerruleRebootFlag(0) == 1)
        LogMessage(g_hSession, L"TESSEL_CA ResetRebootKey succeeded");
    else
        LogMessage(g_hSession, L"TESSEL_CA ResetRebootKey failed");
    return kResultSuccess;
}
