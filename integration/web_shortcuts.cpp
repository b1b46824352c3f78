// Desktop shortcuts to the partners' web pages, the removal of the
// compute-sharing partner's, and the quick-resume component's start-menu link.
// None of these actions reads a property or logs: their inputs are the install
// key's values and the shell's folders.
#include "integration/integration.h"

#include "frame/frame.h"
#include "frame/platform.h"
#include "toolkit/file.h"

#include <intshcut.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <vector>

namespace {

// The partners' public download pages: a shortcut points there when the
// install key names no target of its own. A deployment setting.
const wchar_t kBethesdaLauncherPage[] = L"https://bethesda.net/en/game/bethesda-launcher";
const wchar_t kGridCouponSetup[] = L"https://download.gridcoupon.com/GridCouponSetup.exe";

// Written by the package; this library only reads it.
const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install";

// The removal knows the partner's shortcut by this name only.
const wchar_t kGridCouponFile[] = L"GridCoupon.url";

// What tells one web shortcut from the other.
struct WebShortcut {
    const wchar_t* nameValue;    // the file's name in the install key
    const wchar_t* nameSuffix;   // appended to a name read from there
    const wchar_t* defaultName;
    const wchar_t* targetValue;  // the target in the install key
    const wchar_t* defaultTarget;
    const wchar_t* icon;         // below the Program Files folder
    const wchar_t* description;
};

const WebShortcut kBethesdaShortcut = {
    L"BethesdaSCName", L"", L"Quake Champions.url", L"BethesdaHyperlink", kBethesdaLauncherPage,
    L"Orvel\\Bethesda\\quakechamps.ico",
    L"Download link for Bethesda Launcher and access to various Bethesda content"};

const WebShortcut kBlockChainShortcut = {
    L"BlockChainName", L".url", kGridCouponFile, L"BlockChainLink", kGridCouponSetup,
    L"Orvel\\GridCoupon\\kestra.ico",
    L"GridCoupon allows you to exchange your PC's computation power for coupons"};

// The install key, opened for reading when first asked and closed at the end.
class InstallKey {
public:
    InstallKey() = default;
    InstallKey(const InstallKey&) = delete;
    InstallKey& operator=(const InstallKey&) = delete;
    ~InstallKey()
    {
        if (key_ != NULL)
            RegCloseKey(key_);
    }

    bool Open()
    {
        return key_ != NULL || RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallKey, 0, KEY_READ, &key_) == ERROR_SUCCESS;
    }

    // Reads a text value with `size` bytes offered, into a cleared buffer that
    // holds them; `size` is left as the registry leaves it.
    bool Read(const wchar_t* name, DWORD& size, std::wstring& text)
    {
        if (!Open())
            return false;
        std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 1, L'\0');
        if (RegQueryValueExW(key_, name, NULL, NULL, reinterpret_cast<BYTE*>(buffer.data()), &size) != ERROR_SUCCESS)
            return false;
        text = buffer.data();
        return true;
    }

private:
    HKEY key_ = NULL;
};

// `name` on the current user's desktop; false when the shell can't say where that is.
bool OnDesktop(const std::wstring& name, std::wstring& path)
{
    wchar_t desktop[261] = {};
    if (SHGetFolderPathW(NULL, CSIDL_DESKTOPDIRECTORY, NULL, 0, desktop) != S_OK)
        return false;
    path = desktop + PathSeparatorFor(desktop) + name;
    return true;
}

bool FillWebShortcut(const WebShortcut& shortcut, WebShortcutInfo& info)
{
    // One size for both reads: once a name was read it holds that name's size,
    // so a longer target doesn't fit and the default takes over. Shortcuts
    // have always been made so.
    DWORD size = 520;
    InstallKey key;
    std::wstring name;
    const bool named = key.Read(shortcut.nameValue, size, name);
    if (!OnDesktop(named ? name + shortcut.nameSuffix : shortcut.defaultName, info.file_path))
        return false;
    // A shortcut already there is the user's now: it is never updated.
    if (PathFileExistsW(info.file_path.c_str()))
        return false;
    if (!key.Read(shortcut.targetValue, size, info.url) || info.url.empty())
        info.url = shortcut.defaultTarget;

    std::wstring programFiles;
    GetSpecialFolder(CSIDL_PROGRAM_FILES, programFiles);
    info.icon_path = programFiles + PathSeparatorFor(programFiles.c_str()) + shortcut.icon;
    info.description = shortcut.description;
    return true;
}

// The fill and the making are guarded: what throws in them (the strings'
// allocations) ends the action with 1603 instead of reaching the host.
UINT CreateWebShortcut(bool (*fill)(WebShortcutInfo&))
{
    try {
        WebShortcutInfo info;
        if (fill(info))
            CreateInternetShortcut(info.file_path.c_str(), info.url.c_str(), info.description.c_str(),
                                   info.icon_path.c_str(), info.icon_index);
    } catch (...) {
        return kResultInstallFailure;
    }
    return kResultSuccess;
}

// The quick-resume component's link in the start menu of `csidl`.
std::wstring VaneStartMenuLink(int csidl)
{
    std::wstring folder;
    GetSpecialFolder(csidl, folder);
    return folder + L"\\Orvel Vane Technology.lnk";
}

}  // namespace

bool FillBethesdaShortcut(WebShortcutInfo& info)
{
    return FillWebShortcut(kBethesdaShortcut, info);
}

bool FillBlockChainShortcut(WebShortcutInfo& info)
{
    return FillWebShortcut(kBlockChainShortcut, info);
}

HRESULT CreateInternetShortcut(LPCWSTR filePath, LPCWSTR url, LPCWSTR description, LPCWSTR iconPath, int iconIndex)
{
    // Never uninitialised: the installer's thread stays in this apartment for good.
    CoInitialize(NULL);
    IUniformResourceLocatorW* locator = NULL;
    HRESULT result = CoCreateInstance(CLSID_InternetShortcut, NULL, CLSCTX_INPROC_SERVER,
                                      IID_IUniformResourceLocatorW, reinterpret_cast<void**>(&locator));
    if (FAILED(result))
        return result;
    IPersistFile* file = NULL;
    locator->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file));
    IShellLinkW* link = NULL;
    result = locator->QueryInterface(IID_IShellLinkW, reinterpret_cast<void**>(&link));
    // Without a shell link the file interface is left unreleased, as it always was.
    if (SUCCEEDED(result)) {
        locator->SetURL(url, 0);
        result = link->SetIconLocation(iconPath, iconIndex);
        if (SUCCEEDED(result))
            result = link->SetDescription(description);
        if (SUCCEEDED(result))
            result = file->Save(filePath, TRUE);
        if (file != NULL)
            file->Release();
        link->Release();
    }
    locator->Release();
    return result;
}

extern "C" UINT __stdcall CreateBethasdaShortcut(MSIHANDLE)
{
    return CreateWebShortcut(FillBethesdaShortcut);
}

extern "C" UINT __stdcall CreateBlockChainShortcut(MSIHANDLE)
{
    return CreateWebShortcut(FillBlockChainShortcut);
}

// Only the default name goes: a shortcut named by BlockChainName stays.
extern "C" UINT __stdcall DeleteBCShortcut(MSIHANDLE)
{
    std::wstring path;
    if (!OnDesktop(kGridCouponFile, path))
        return kResultInstallFailure;
    if (PathFileExistsW(path.c_str()))
        DeleteFileW(path.c_str());
    return kResultSuccess;
}

// The all-users link goes if there is one, else the user's own; 1 when the
// shell removed it.
extern "C" UINT __stdcall RemoveVaneStartMenu(MSIHANDLE)
{
    std::wstring link = VaneStartMenuLink(CSIDL_COMMON_PROGRAMS);
    if (!PathExists(link))
        link = VaneStartMenuLink(CSIDL_PROGRAMS);
    // The shell wants a list ending in two nulls.
    const std::wstring from = link + L'\0';
    SHFILEOPSTRUCTW operation = {};
    operation.hwnd = NULL;
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_NOCONFIRMATION | FOF_NOERRORUI;
    return SHFileOperationW(&operation) == 0 ? kResultOne : kResultSuccess;
}
