// Deferred actions that change the install manager's settings file. Whatever
// happens to the file, the install goes on: both return 0.
#include "config/config_store.h"

#include "frame/frame.h"
#include "toolkit/file.h"

#include <sstream>

namespace {

// The colour settings that the suite's own look replaces.
const wchar_t* const kColourSettings[] = {
    L"UseCustomColor", L"BackgroundColor",   L"FontColor",       L"FontDisableColor", L"ButtonColor",
    L"ButtonDisableColor", L"TextColorPast", L"TextColorPresent", L"TextColorFuture", L"ButtonBrightness",
};

}  // namespace

extern "C" UINT __stdcall UpdateCfg(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    wchar_t installDir[kPropertyChars];
    if (!ReadProperty(g_hSession, L"CustomActionData", installDir)) {
        LogMessage(g_hSession, L"TESSEL_CA Could not get INSTALLDIR in UpdateCfg  \n");
        return kResultSuccess;
    }
    LogMessage(g_hSession, L"TESSEL_CA UpdateCfg: %s \n", installDir);

    std::wostringstream composed;
    composed << installDir;
    composed << PathSeparatorFor(composed.str().c_str()) << L"Config";
    composed << PathSeparatorFor(composed.str().c_str()) << L"InstallManager.cfg";
    std::wstring path = composed.str();
    ReplaceAll(path, L"/", L"\\");
    if (!PathExists(path))
        return kResultSuccess;

    // The singleton stays alive when the load fails, as it always has.
    Config* config = GetConfig();
    if (!config->LoadFile(path))
        return kResultSuccess;
    for (const wchar_t* setting : kColourSettings) {
        if (config->Remove(setting, false))
            LogMessage(g_hSession, L"TESSEL_CA successfully deleted %s setting\n", setting);
        else
            LogMessage(g_hSession, L"TESSEL_CA failed to delete %s setting\n", setting);
    }
    if (config->SaveFile(path))
        LogMessage(g_hSession, L"TESSEL_CA successfully saved with %s new settings \n", path.c_str());
    ReleaseConfig();
    return kResultSuccess;
}

extern "C" UINT __stdcall UpdateTesselCfg(MSIHANDLE hInstall)
{
    g_hSession = hInstall;
    Config config;
    LogMessage(g_hSession, L"TESSEL_CA: UpdateTesselCfg  \n");

    // This one read takes up to 1024 characters: three items travel in it.
    wchar_t data[1024];
    if (!ReadProperty(g_hSession, L"CustomActionData", data))
        return kResultSuccess;
    StringList items;
    Tokenize(data, L";", items);
    if (items.size() <= 2)
        return kResultSuccess;

    StringList::const_iterator item = items.begin();
    // The directory is expected to end in its separator; none is added.
    std::wstring path = *item++ + L"InstallManager.cfg";
    if (!config.LoadFile(path))
        return kResultSuccess;
    LogMessage(g_hSession, L"TESSEL_CA Update config file %s\n", path.c_str());

    std::wstring useCustomColor = *item++;
    ToLowerInPlace(useCustomColor);
    config.SetString(L"UseCustomColor", useCustomColor, 0);
    if (items.size() == 3) {
        std::wstring loadDlm = *item;
        ToLowerInPlace(loadDlm);
        config.SetString(L"load_DLM", loadDlm, 0);
    }
    config.SaveFile(path);
    return kResultSuccess;
}
