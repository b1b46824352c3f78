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
    // The key is left open, as the install manager's hand-over always did.
    std::wstring flag;
    if (!ReadRegistryText(kInstallManagerKey, KEY_READ, L"Ferrule_Reboot", 260, 520, kLeaveKeyOpen, flag))
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
