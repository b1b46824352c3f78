// The gate that refuses a package not started by the install manager.
#include "frame/frame.h"

extern "C" UINT __stdcall LaunchedFromFerrule(MSIHANDLE hInstall)
{
    wchar_t value[kPropertyChars];
    if (ReadProperty(hInstall, L"LAUNCHED_FROM_FERRULE", value) && FindNoCase(value, L"1") == 0) {
        LogMessage(hInstall, L"TESSEL_CA Launched from Ferrule: %s \n", value);
        return kResultSuccess;
    }

    LogMessage(hInstall, L"TESSEL_CA Not Launched from Ferrule and unable to get property");
    ShowUserMessage(hInstall,
                    L"This package requires Orvel Installer Setup.\nPlease obtain and install Orvel Installer from "
                    KESTRA_MAKER_WEB_SITE L" to continue installing this package.\nThis application will now abort.",
                    0);
    return kResultNotFromInstallManager;
}
