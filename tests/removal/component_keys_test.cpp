// The components' keys and the branding folder, in real sessions on the
// prefix's registry and files.
#include "removal/area.h"

using namespace harness;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE, HKCU = HKEY_CURRENT_USER;

using RecordComponentKeysTest = RemovalTest;

const std::wstring kKestra = L"SOFTWARE\\Kestra", kKestra32 = L"SOFTWARE\\Wow6432Node\\Kestra";
const std::wstring kOrvel = L"SOFTWARE\\Orvel\\", kOrvel32 = L"SOFTWARE\\Wow6432Node\\Orvel\\";

TEST_F(RecordComponentKeysTest, EachComponentsKeysGoInTheViewsOfItsAction)
{
    auto both = [](std::vector<std::wstring> paths, bool user = false) {
        return [=] {
            for (const std::wstring& path : paths) {
                SetText(HKLM, path, L"x", L"x");
                SetText(HKLM, L"SOFTWARE\\Wow6432Node\\" + path.substr(9), L"x", L"x");
                if (user)
                    SetText(HKCU, path, L"x", L"x");
            }
        };
    };
    RunCases({
        {"Vane takes all of Kestra", "DeleteVaneRegistry", {},
         both({kKestra + L"\\Vane", kKestra + L"\\Another\\Deeper"}), 1,
         Exactly({L"TESSEL_CA: SearchVaneRegKey  \n"}), Keys(HKLM, {L"-" + kKestra, L"-" + kKestra32})},
        {"Kestra, 32-bit view only", "DeleteKestraKey", {}, both({kKestra + L"\\Vane\\Deeper"}), 0, Exactly({}),
         Keys(HKLM, {kKestra + L"\\Vane", L"-" + kKestra32})},
        {"Halyard, HKLM only", "DeleteHalyardKEY", {}, both({kOrvel + L"Halyard\\Skins", kOrvel + L"Sorrel"}, true), 0,
         Exactly({}),
         [](Session& session) {
             Keys(HKLM, {L"-" + kOrvel + L"Halyard", L"-" + kOrvel32 + L"Halyard", kOrvel + L"Sorrel"})(session);
             Keys(HKCU, {kOrvel + L"Halyard"})(session);
         }},
        {"Sorrel, HKCU too", "DeleteSorrelRegistry", {},
         both({kOrvel + L"Sorrel\\Cache", kOrvel + L"Halyard"}, true), 1,
         Exactly({L"TESSEL_CA: SearchSorrelRegKey  \n"}),
         [](Session& session) {
             Keys(HKLM, {L"-" + kOrvel + L"Sorrel", L"-" + kOrvel32 + L"Sorrel", kOrvel})(session);
             Keys(HKCU, {L"-" + kOrvel + L"Sorrel", kOrvel + L"Halyard"})(session);
         }},
    });
}

// The branding folder of a settings application installed in the scratch folder.
const std::wstring kBranding = L"C:\\tessel\\scratch\\Halyard\\HalyardBranding\\";

void FillBrandingFolder()
{
    for (const wchar_t* file : {L"Skins\\inside.png", L"Themes\\inside.png", L"OldSkins.ini", L"skins.txt", L"Logo.png",
                                L"Banner.png"})
        harness::MakeFile(kBranding + file);
}

harness::Lines BrandingLeft()
{
    harness::Lines left;
    for (const wchar_t* name : {L"Skins", L"Skins\\inside.png", L"Themes", L"OldSkins.ini", L"skins.txt",
                                L"Logo.png", L"Banner.png"})
        if (harness::Exists(kBranding + name))
            left.push_back(name);
    return left;
}

// The retain list lives as long as the DLL and only grows, so the order of
// these steps matters; a second run in the same process would see "Skins".
TEST_F(RecordComponentKeysTest, DeleteandRetainValuesKeepsWhatTheBrandingKeyNames)
{
    Session session;
    EXPECT_EQ(0u, session.Call("DeleteandRetainValues"));  // no InstallDir: nothing to clear

    // Listed in full, with forward slashes, as QueryKeyNames keeps it.
    SetText(HKLM, L"SOFTWARE\\OrvelBranding", L"Logo", kBranding + L"Logo.png");
    SetText(HKLM, kOrvel + L"Halyard", L"InstallDir", L"C:\\tessel\\scratch");
    FillBrandingFolder();
    EXPECT_EQ(0u, session.Call("DeleteandRetainValues"));
    EXPECT_EQ(harness::Lines{L"Logo.png"}, BrandingLeft());

    // A sub-key "Skins" keeps every entry whose path holds the word, case and
    // all; Logo.png stays listed from the run before.
    harness::DeleteRegTree(HKLM, L"SOFTWARE\\OrvelBranding");
    SetText(HKLM, L"SOFTWARE\\OrvelBranding\\Skins", L"", L"");
    FillBrandingFolder();
    EXPECT_EQ(0u, session.Call("DeleteandRetainValues"));
    EXPECT_EQ((harness::Lines{L"Skins", L"Skins\\inside.png", L"OldSkins.ini", L"Logo.png"}), BrandingLeft());
    EXPECT_EQ(harness::Lines(), session.Log());
}

}  // namespace
