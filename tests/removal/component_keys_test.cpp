// The components' keys, the branding folder and the install manager's reboot
// flag, in real sessions on the prefix's registry and files.
#include "removal/area.h"
#include "removal/removal.h"

#include <gmock/gmock.h>

using harness::Session;
using harness::DwordOf;
using harness::HasValue;
using harness::KeyExists;
using harness::SetDword;
using harness::SetText;
using harness::TextOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const HKEY HKCU = HKEY_CURRENT_USER;

class RecordComponentKeysTest : public harness::ActionTest {
protected:
    RecordComponentKeysTest() : ActionTest(RemovalArea()) {}
};

const std::wstring kKestra = L"SOFTWARE\\Kestra";
const std::wstring kKestra32 = L"SOFTWARE\\Wow6432Node\\Kestra";
const std::wstring kOrvel = L"SOFTWARE\\Orvel\\";
const std::wstring kOrvel32 = L"SOFTWARE\\Wow6432Node\\Orvel\\";

TEST_F(RecordComponentKeysTest, DeleteVaneRegistryTakesAllOfKestraWithIt)
{
    for (const std::wstring& root : {kKestra, kKestra32}) {
        SetText(HKLM, root + L"\\Vane", L"InstallDir", L"C:\\Vane");
        SetText(HKLM, root + L"\\Another\\Deeper", L"Setting", L"x");
        SetText(HKLM, root, L"Shared", L"x");
    }
    Session session;
    EXPECT_EQ(1u, session.Call("DeleteVaneRegistry"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA: SearchVaneRegKey  \n"));
    EXPECT_FALSE(KeyExists(HKLM, kKestra));
    EXPECT_FALSE(KeyExists(HKLM, kKestra32));
}

TEST_F(RecordComponentKeysTest, DeleteKestraKeyClearsThe32BitViewOnlyAndMayRunTwice)
{
    SetText(HKLM, kKestra32 + L"\\Vane\\Deeper", L"Setting", L"x");
    SetText(HKLM, kKestra, L"Native", L"x");
    Session session;
    EXPECT_EQ(0u, session.Call("DeleteKestraKey"));
    EXPECT_FALSE(KeyExists(HKLM, kKestra32));
    EXPECT_EQ(L"x", TextOf(HKLM, kKestra, L"Native"));
    EXPECT_EQ(0u, session.Call("DeleteKestraKey"));
    EXPECT_THAT(session.Log(), IsEmpty());
}

TEST_F(RecordComponentKeysTest, HalyardAndSorrelKeysGoOneByOne)
{
    for (const std::wstring& root : {kOrvel, kOrvel32}) {
        SetText(HKLM, root + L"Halyard\\Skins", L"InstallDir", L"C:\\Halyard");
        SetText(HKLM, root + L"Sorrel\\Cache", L"Path", L"C:\\Sorrel");
    }
    SetText(HKCU, kOrvel + L"Sorrel", L"Recent", L"x");
    SetText(HKCU, kOrvel + L"Halyard", L"Recent", L"x");

    Session session;
    EXPECT_EQ(0u, session.Call("DeleteHalyardKEY"));
    EXPECT_THAT(session.Log(), IsEmpty());
    EXPECT_FALSE(KeyExists(HKLM, kOrvel + L"Halyard"));
    EXPECT_FALSE(KeyExists(HKLM, kOrvel32 + L"Halyard"));
    EXPECT_TRUE(KeyExists(HKLM, kOrvel + L"Sorrel"));
    EXPECT_TRUE(KeyExists(HKCU, kOrvel + L"Halyard"));  // HKLM only

    EXPECT_EQ(1u, session.Call("DeleteSorrelRegistry"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA: SearchSorrelRegKey  \n"));
    EXPECT_FALSE(KeyExists(HKLM, kOrvel + L"Sorrel"));
    EXPECT_FALSE(KeyExists(HKLM, kOrvel32 + L"Sorrel"));
    EXPECT_FALSE(KeyExists(HKCU, kOrvel + L"Sorrel"));
    EXPECT_TRUE(KeyExists(HKCU, kOrvel + L"Halyard"));
    EXPECT_TRUE(KeyExists(HKLM, kOrvel));
}

// The branding folder of a settings application installed in the scratch folder.
const std::wstring kBranding = L"C:\\tessel\\scratch\\Halyard\\HalyardBranding\\";

void FillBrandingFolder()
{
    for (const wchar_t* folder : {L"C:\\tessel\\scratch", L"C:\\tessel\\scratch\\Halyard", kBranding.c_str()})
        CreateDirectoryW(folder, NULL);
    for (const wchar_t* folder : {L"Skins", L"Themes"}) {
        CreateDirectoryW((kBranding + folder).c_str(), NULL);
        harness::WriteFileBytes(kBranding + folder + L"\\inside.png", "png");
    }
    for (const wchar_t* file : {L"OldSkins.ini", L"skins.txt", L"Logo.png", L"Banner.png"})
        harness::WriteFileBytes(kBranding + file, "x");
}

std::vector<std::wstring> BrandingLeft()
{
    std::vector<std::wstring> left;
    for (const wchar_t* name : {L"Skins", L"Skins\\inside.png", L"Themes", L"OldSkins.ini", L"skins.txt",
                                L"Logo.png", L"Banner.png"})
        if (GetFileAttributesW((kBranding + name).c_str()) != INVALID_FILE_ATTRIBUTES)
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
    EXPECT_THAT(BrandingLeft(), ElementsAre(L"Logo.png"));

    // A sub-key "Skins" keeps every entry whose path holds the word, case and
    // all; Logo.png stays listed from the run before.
    harness::DeleteRegTree(HKLM, L"SOFTWARE\\OrvelBranding");
    SetText(HKLM, L"SOFTWARE\\OrvelBranding\\Skins", L"", L"");
    FillBrandingFolder();
    EXPECT_EQ(0u, session.Call("DeleteandRetainValues"));
    EXPECT_THAT(BrandingLeft(), ElementsAre(L"Skins", L"Skins\\inside.png", L"OldSkins.ini", L"Logo.png"));
    EXPECT_THAT(session.Log(), IsEmpty());
}

class RecordRebootFlagTest : public harness::ActionTest {
protected:
    RecordRebootFlagTest() : ActionTest(RemovalArea()) {}
};

const std::wstring kManager = L"SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager";
const std::wstring kManager32 =
    L"SOFTWARE\\Wow6432Node\\Kestra Technologies\\Install\\Kestra Quillon Install Manager";

TEST_F(RecordRebootFlagTest, ResetRebootKeyWritesNoInBothViewsAndSaysItFailed)
{
    SetText(HKLM, kManager, L"Ferrule_Reboot", L"Yes");
    Session session;
    EXPECT_EQ(0u, session.Call("ResetRebootKey"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA ResetRebootKey failed"));
    EXPECT_EQ(L"No", TextOf(HKLM, kManager, L"Ferrule_Reboot"));
    EXPECT_EQ(L"No", TextOf(HKLM, kManager32, L"Ferrule_Reboot"));
}

// An internal step of the hand-over, reached through the static library.
TEST_F(RecordRebootFlagTest, ApplyFerruleRebootFlagSetsRebootForYesInAnyCase)
{
    // The key is read in the native view only.
    SetText(HKLM, kManager32, L"Ferrule_Reboot", L"Yes");
    Session only32;
    EXPECT_EQ(0u, ApplyFerruleRebootFlag(only32.handle()));
    EXPECT_EQ(L"", only32.Property(L"REBOOT"));

    for (const wchar_t* flag : {L"No", L"Yes ", L"YeS", L"yes"}) {
        SetText(HKLM, kManager, L"Ferrule_Reboot", flag);
        const bool yes = _wcsicmp(flag, L"yes") == 0;
        Session session;
        EXPECT_EQ(yes ? 1u : 0u, ApplyFerruleRebootFlag(session.handle())) << flag;
        EXPECT_EQ(yes ? L"F" : L"", session.Property(L"REBOOT")) << flag;
    }
}

}  // namespace
