// Immediate actions that hand a value to a deferred action through a
// property named after it; the deferred one reads it as CustomActionData.
#include "frame/frame.h"

namespace {

struct HandOff {
    const wchar_t* startText;
    const wchar_t* target;
    const wchar_t* setText;
    const wchar_t* setFailureText;
    const wchar_t* readFailureText;
    UINT success;
    UINT failure;
};

// Sets one target property and logs the outcome; true when it was set.
bool SetTarget(MSIHANDLE session, const wchar_t* target, const wchar_t* value, const wchar_t* setText,
               const wchar_t* setFailureText)
{
    if (MsiSetPropertyW(session, target, value) != ERROR_SUCCESS) {
        LogMessage(session, setFailureText);
        return false;
    }
    LogMessage(session, setText, value);
    return true;
}

UINT HandInstallDirTo(MSIHANDLE hInstall, const HandOff& handOff)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, handOff.startText);
    wchar_t value[kPropertyChars];
    if (!ReadProperty(g_hSession, L"INSTALLDIR", value)) {
        LogMessage(g_hSession, handOff.readFailureText);
        return handOff.failure;
    }
    if (!SetTarget(g_hSession, handOff.target, value, handOff.setText, handOff.setFailureText))
        return handOff.failure;
    return handOff.success;
}

}  // namespace

extern "C" UINT __stdcall GetInstallVaneDir(MSIHANDLE hInstall)
{
    static const HandOff handOff = {
        L"Tessel_CA GetInstallVaneDir() start",
        L"DeleteInstallVane",
        L"Tessel_CA DeleteInstallVane, %s should be set in CustomActionData \n",
        L"Tessel_CA DeleteInstallVane failed to set Pid in CustomActionData",
        L"Tessel_CA SetInstallVaneDir() failed.",
        kResultSuccess,
        kResultInstallFailure,
    };
    return HandInstallDirTo(hInstall, handOff);
}

// The next three give 1 for done and 0 for not done.
extern "C" UINT __stdcall GetInstallTracewellDir(MSIHANDLE hInstall)
{
    static const HandOff handOff = {
        L"Tessel_CA GetInstallTracewellDir() start",
        L"DeleteInstallTracewell",
        L"Tessel_CA DeleteInstallTracewell, %s should be set in CustomActionData \n",
        L"Tessel_CA DeleteInstallTracewell failed to be set in CustomActionData",
        L"Tessel_CA SetInstallTracewellDir() failed.",
        kResultOne,
        kResultSuccess,
    };
    return HandInstallDirTo(hInstall, handOff);
}

extern "C" UINT __stdcall GetInstallSorrelDir(MSIHANDLE hInstall)
{
    static const HandOff handOff = {
        L"Tessel_CA GetInstallSorrelDir() start",
        L"DeleteInstallSorrel",
        L"Tessel_CA DeleteInstallSorrel, %s should be set in CustomActionData \n",
        L"Tessel_CA DeleteInstallSorrel failed to set Pid in CustomActionData",
        L"Tessel_CA SetInstallSorrelDir() failed.",
        kResultOne,
        kResultSuccess,
    };
    return HandInstallDirTo(hInstall, handOff);
}

extern "C" UINT __stdcall GetInstallUSBMonDir(MSIHANDLE hInstall)
{
    static const HandOff handOff = {
        L"Tessel_CA GetInstallUSBMonDir() start",
        L"DeleteUSBMONDir",
        L"Tessel_CA DeleteUSBMONDir, %s should be set in CustomActionData \n",
        L"Tessel_CA DeleteUSBMONDir failed to set Installdir in CustomActionData",
        L"Tessel_CA SetInstallUSBMONDir() failed.",
        kResultOne,
        kResultSuccess,
    };
    return HandInstallDirTo(hInstall, handOff);
}

// Two targets; the result follows the second one alone.
extern "C" UINT __stdcall GetInstallProxyDir(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA GetInstallProxyDir() start");
    wchar_t value[kPropertyChars];
    if (!ReadProperty(g_hSession, L"INSTALLDIR", value)) {
        LogMessage(g_hSession, L"Tessel_CA SetInstallProxyDir() failed.");
        return kResultSuccess;
    }
    SetTarget(g_hSession, L"LaunchInstallProxyExe", value,
              L"Tessel_CA LaunchInstallProxyExe, %s should be set in CustomActionData \n",
              L"Tessel_CA LaunchInstallProxyExe failed to set Pid in CustomActionData");
    if (!SetTarget(g_hSession, L"SetInstallProxyReg", value,
                   L"Tessel_CA SetInstallProxyReg, %s should be set in CustomActionData \n",
                   L"Tessel_CA SetInstallProxyReg failed to set Pid in CustomActionData"))
        return kResultSuccess;
    return kResultOne;
}

// Two targets; a failure of either makes the result 1603, but both are tried.
extern "C" UINT __stdcall SetInstallDir(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA SetInstallDir() start");
    UINT result = kResultSuccess;
    wchar_t value[kPropertyChars];
    if (!ReadProperty(g_hSession, L"INSTALLDIR", value)) {
        LogMessage(g_hSession, L"Tessel_CA SetInstallDir() failed to get Pid from Kestra Property table.");
        return kResultInstallFailure;
    }
    if (!SetTarget(g_hSession, L"DeleteFerruleDir", value,
                   L"Tessel_CA DeleteFerruleDir SetInstallDir(), %s should be set in CustomActionData \n",
                   L"Tessel_CA DeleteFerruleDir SetInstallDir() failed to set Pid in CustomActionData"))
        result = kResultInstallFailure;
    if (!SetTarget(g_hSession, L"UpdateCfg", value,
                   L"Tessel_CA UpdateCfg SetInstallDir(), %s should be set in CustomActionData \n",
                   L"Tessel_CA UpdateCfg SetInstallDir() failed to set Pid in CustomActionData"))
        result = kResultInstallFailure;
    return result;
}

// Hands the package's Kestra_PID, from its private table, to CleanRegistry.
extern "C" UINT __stdcall SetFerruleKestraPid(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    LogMessage(g_hSession, L"Tessel_CA SetFerruleKestraPid() start");
    std::wstring pid;
    if (!GetFromMSITable(kKestraPropertyQuery, L"Kestra_PID", pid)) {
        LogMessage(g_hSession, L"Tessel_CA SetFerruleKestraPid() failed to get Pid from Kestra Property table.");
        return kResultInstallFailure;
    }
    if (!SetTarget(g_hSession, L"CleanRegistry", pid.c_str(),
                   L"Tessel_CA SetFerruleKestraPid(), %s should be set in CustomActionData \n",
                   L"Tessel_CA SetFerruleKestraPid() failed to set Pid in CustomActionData"))
        return kResultInstallFailure;
    return kResultSuccess;
}
