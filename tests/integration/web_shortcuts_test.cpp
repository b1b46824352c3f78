// The web shortcuts: the fill procedures from the static library over install-key
// values of chosen sizes, the four actions through the DLL in real sessions.
#include "integration/area.h"

#include "frame/platform.h"
#include "integration/integration.h"

#include <shlobj.h>

#include <stdexcept>

using namespace harness;

namespace {

const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install";
const wchar_t kVaneLink[] = L"\\Orvel Vane Technology.lnk";

// A shell folder; never empty, so that no path below starts at a drive's root.
std::wstring Folder(int csidl)
{
    std::wstring path;
    if (!GetSpecialFolder(csidl, path) || path.empty())
        throw std::runtime_error("no such shell folder");
    return path;
}

std::wstring Desktop() { return Folder(CSIDL_DESKTOPDIRECTORY) + L"\\"; }

// A target of `chars` characters.
std::wstring Url(size_t chars) { return L"https://" + Repeat(L'u', chars - 8); }

// Every file these tests make on the desktop and in the start menus goes too.
Area WebShortcutArea()
{
    Area area = IntegrationArea();
    area.folders.insert(area.folders.end(),
                        {Desktop() + L"Quake Champions.url", Desktop() + L"GridCoupon.url", Desktop() + L"Other.url",
                         Folder(CSIDL_COMMON_PROGRAMS) + kVaneLink, Folder(CSIDL_PROGRAMS) + kVaneLink});
    return area;
}

class WebShortcutTest : public ActionTest {
protected:
    WebShortcutTest() : ActionTest(WebShortcutArea()) {}
};

TEST_F(WebShortcutTest, FillOffersTheTargetTheNamesSize)
{
    WebShortcutInfo bethesda, gridCoupon;
    ASSERT_TRUE(FillBethesdaShortcut(bethesda) && FillBlockChainShortcut(gridCoupon));
    const std::wstring orvel = Folder(CSIDL_PROGRAM_FILES) + L"\\Orvel\\", quake = L"Quake Champions.url";
    EXPECT_EQ(orvel + L"Bethesda\\quakechamps.ico", bethesda.icon_path);
    EXPECT_EQ(L"Download link for Bethesda Launcher and access to various Bethesda content", bethesda.description);
    EXPECT_EQ(Desktop() + L"GridCoupon.url", gridCoupon.file_path);
    EXPECT_EQ(orvel + L"GridCoupon\\kestra.ico", gridCoupon.icon_path);
    EXPECT_EQ(L"GridCoupon allows you to exchange your PC's computation power for coupons", gridCoupon.description);

    // "Coupons.url" is 11 characters: with its terminator a target of 11 fits, one of 12 doesn't.
    struct FillCase { const char* row; bool (*fill)(WebShortcutInfo&); Rows values; std::wstring file, url; };
    const FillCase rows[] = {
        {"target as long as the name", FillBlockChainShortcut,
         {{L"BlockChainName", L"Coupons.url"}, {L"BlockChainLink", Url(11)}}, L"Coupons.url.url", Url(11)},
        {"target longer than the name", FillBlockChainShortcut,
         {{L"BlockChainName", L"Coupons.url"}, {L"BlockChainLink", Url(12)}}, L"Coupons.url.url", gridCoupon.url},
        {"empty name leaves room for no target", FillBlockChainShortcut,
         {{L"BlockChainName", L""}, {L"BlockChainLink", L"h"}}, L".url", gridCoupon.url},
        {"no name: 520 bytes offered", FillBethesdaShortcut, {{L"BethesdaHyperlink", Url(259)}}, quake, Url(259)},
        {"no name: 522 bytes too many", FillBethesdaShortcut, {{L"BethesdaHyperlink", Url(260)}}, quake, bethesda.url},
        {"name without extension, empty target", FillBethesdaShortcut,
         {{L"BethesdaSCName", L"Quake Champions"}, {L"BethesdaHyperlink", L""}}, L"Quake Champions", bethesda.url},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.row);
        DeleteRegTree(HKEY_LOCAL_MACHINE, kInstallKey);
        for (const Row& value : row.values)
            SetText(HKEY_LOCAL_MACHINE, kInstallKey, value.name, value.value);
        WebShortcutInfo info;
        EXPECT_TRUE(row.fill(info));
        EXPECT_EQ(Desktop() + row.file, info.file_path);
        EXPECT_EQ(row.url, info.url);
    }

    // The last row left no BlockChainName: the shortcut's default name is taken, and it is there now.
    MakeFile(gridCoupon.file_path);
    EXPECT_FALSE(FillBlockChainShortcut(gridCoupon));
    // Wine's InternetShortcut has no IShellLinkW: the making stops there, and no file is saved.
    EXPECT_EQ(E_NOINTERFACE, CreateInternetShortcut(bethesda.file_path.c_str(), bethesda.url.c_str(),
                                                    bethesda.description.c_str(), bethesda.icon_path.c_str(), 0));
    EXPECT_FALSE(Exists(bethesda.file_path));
}

// SHGetFolderPathW as the DLL sees it at the end: failing, then throwing as a failed allocation would.
bool g_throw = false;
HRESULT WINAPI NoDesktop(HWND, int, HANDLE, DWORD, LPWSTR) { return g_throw ? throw std::runtime_error("") : E_FAIL; }

TEST_F(WebShortcutTest, ActionsLogNothingAndGiveTheirOwnResults)
{
    const std::wstring quake = Desktop() + L"Quake Champions.url", coupon = Desktop() + L"GridCoupon.url";
    const std::wstring other = Desktop() + L"Other.url";  // a BlockChainName the removal doesn't know
    const std::wstring common = Folder(CSIDL_COMMON_PROGRAMS) + kVaneLink, own = Folder(CSIDL_PROGRAMS) + kVaneLink;
    RunCases({
        {"Bethesda shortcut there", "CreateBethasdaShortcut", {}, Make({quake}), 0, Exactly({}), Present({quake})},
        {"default name", "DeleteBCShortcut", {}, Make({coupon, other}), 0, Exactly({}), Present({other}, {coupon})},
        {"user's link only", "RemoveVaneStartMenu", {}, Make({own}), 1, Exactly({}), Present({}, {own})},
        {"both links", "RemoveVaneStartMenu", {}, Make({common, own}), 1, Exactly({}), Present({own}, {common})},
        {"no link", "RemoveVaneStartMenu", {}, nullptr, 0, Exactly({}), nullptr},
    });
    ImportPatch failing(TesselDll(), "shell32.dll", "SHGetFolderPathW", reinterpret_cast<void*>(&NoDesktop));
    Session session;
    EXPECT_EQ(1603u, session.Call("DeleteBCShortcut"));
    EXPECT_EQ(0u, session.Call("CreateBethasdaShortcut"));
    g_throw = true;
    EXPECT_EQ(1603u, session.Call("CreateBlockChainShortcut"));
}

}  // namespace
