// The package records at uninstall, through the DLL in real sessions: package
// keys and their parents, Add or Remove Programs entries, the install-wide values.
#include "removal/area.h"

using namespace harness;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const std::wstring kInstall = L"SOFTWARE\\Kestra Technologies\\Install\\";
const std::wstring kInstall32 = L"SOFTWARE\\Wow6432Node\\Kestra Technologies\\Install\\";
const std::wstring kPackages = kInstall + L"Packages\\", kPackages32 = kInstall32 + L"Packages\\";
const std::wstring kUninstall = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
const std::wstring kUninstall32 = L"SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
const std::wstring kManager = kInstall + L"Kestra Quillon Install Manager";
const std::wstring kEntry1 = kUninstall + TESSEL_TEST_PRODUCT_1, kEntry2 = kUninstall32 + TESSEL_TEST_PRODUCT_2;
const wchar_t kPackageA[] = L"W-10-1A00-000-002-300-001-00-25";
const wchar_t kPackageB[] = L"W-10-1B00-000-002-301-001-00-25";

using RecordCleanupTest = RemovalTest;

std::wstring Deleting(const std::wstring& path)
{
    return L"Tessel_CA DeletePackageKey(), Key to delete is " + path + L" \n";
}
std::wstring ShouldGo(const std::wstring& path)
{
    return L"Tessel_CA DeletePackageKey(), " + path + L" key should be deleted \n";
}
std::wstring Deleted(const std::wstring& path)
{
    return L"Tessel_CA DeleteTesselRegKey(), key deleted successfully " + path + L" \n";
}
std::wstring Kept(const wchar_t* why, const std::wstring& path)
{
    return L"Tessel_CA DeleteTesselRegKey(), Tessel key " + std::wstring(why) + L" thus it will not be deleted " +
           path + L" \n";
}

// Package keys, each with its level, in the view its path names; then the install-wide value, if any.
std::function<void()> Packages(std::vector<std::wstring> keys, const std::wstring& valueIn = L"")
{
    return [=] {
        for (const std::wstring& key : keys)
            SetDword(HKLM, key, L"iPackageLevel", 1);
        if (!valueIn.empty())
            SetText(HKLM, valueIn, L"InstallWide", L"x");
    };
}

TEST_F(RecordCleanupTest, CleanRegistryTakesTheParentsWithTheLastPackage)
{
    const std::wstring package = kPackages + kPackageA + L"\\", subKeys = L"has sub keys and is not empty";
    const wchar_t willAttempt[] =
        L"Tessel_CA CleanTesselRegKeys(), Ferrule Package key deleted, will now attempt the Tessel (Package) key\n";
    const auto userValues = Packages({kPackages + kPackageA, kPackages32 + kPackageA + L"\\Sub"});
    RunCases({
        // The per-user key keeps only its default value and the single blank's.
        {"last package, per-user values", "CleanRegistry", Data(kPackageA),
         [&] {
             userValues();
             for (const wchar_t* name : {L"", L" ", L" Leading", L"UserSetting"})
                 SetText(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", name, L"x");
         },
         0,
         Exactly({L"Tessel_CA DeleteFerruleRegKey: PID=" + std::wstring(kPackageA) + L"\n", Deleting(package),
                  ShouldGo(package), L"Tessel_CA DeletePackageKey(), SOFTWARE\\Orvel\\ Attempted to delete key \n",
                  willAttempt, Deleted(kPackages), Deleted(kInstall)}),
         [](Session& session) {
             Keys(HKLM, {L"-" + kInstall, L"-" + kInstall32, L"SOFTWARE\\Kestra Technologies"})(session);
             EXPECT_EQ((Lines{L"", L" "}), ValueNamesOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"));
         }},
        // A package in the 32-bit view counts all the same; with no per-user key, no line for it.
        {"another package left", "CleanRegistry", Data(kPackageA),
         Packages({kPackages + kPackageA, kPackages32 + kPackageB}), 0,
         Includes({willAttempt, Kept(subKeys.c_str(), kPackages), Kept(subKeys.c_str(), kInstall)}),
         Keys(HKLM, {L"-" + kPackages + kPackageA, kPackages32 + kPackageB})},
        {"a value left", "CleanRegistry", Data(kPackageB), Packages({kPackages32 + kPackageB}, kInstall32), 0,
         Includes({Deleted(kPackages), Kept(L"is not empty", kInstall)}), Keys(HKLM, {L"-" + kPackages32, kInstall32})},
        // Too long for the 260-character buffer: nothing is done or said.
        {"unreadable", "CleanRegistry", Data(Repeat(L'W', 260)), Packages({kPackages + kPackageA}), 1627, Exactly({}),
         Keys(HKLM, {kPackages + kPackageA})},
        // Empty data aims at the list itself.
        {"empty", "CleanRegistry", {}, Packages({kPackages + kPackageA, kPackages32 + kPackageB}), 0,
         Includes({L"Tessel_CA DeleteFerruleRegKey: PID=\n", Deleting(kPackages + L"\\"), Deleted(kInstall)}),
         Keys(HKLM, {L"-" + kInstall, L"-" + kInstall32})},
    });
}

// Both entries go in both views, and the older uninstaller's folder too. RemoveFerruleEntry logs through the
// handle an earlier action left, with both backslashes: after one that stored handle 0, its lines are lost.
TEST_F(RecordCleanupTest, TheUninstallEntriesOfTheOlderInstallerAndOfTheInstallManagerGo)
{
    const std::wstring legacy = L"All Kestra Software", manager = L"Orvel Quillon Install Manager";
    const std::wstring uninstaller = L"C:\\Program Files (x86)\\Kestra Technologies\\UninstallAll\\";
    for (const std::wstring& name : {legacy, manager}) {
        SetText(HKLM, kUninstall + name + L"\\Sub", L"DisplayName", name);
        SetText(HKLM, kUninstall32 + name, L"DisplayName", name);
    }
    MakeFile(uninstaller + L"UninstallAll.exe");
    Session legacySession;
    EXPECT_EQ(0u, legacySession.Call("RmLegacyUninstall"));
    const Lines legacyLog = legacySession.Log();
    EXPECT_EQ((Lines{L"Tessel_CA CleanUninstallerFiles folder deleted\n",
                     L"TESSEL_CA RemoveLegacyUninstall cleaned files \n",
                     L"TESSEL_CA RemoveLegacyUninstall cleaned registry keys \n"}),
              Lines(legacyLog.end() - 3, legacyLog.end()));
    Export("ResetRebootKey")(0);
    EXPECT_EQ(1u, legacySession.Call("RemoveFerruleEntry"));
    EXPECT_EQ(legacyLog, legacySession.Log());
    for (const std::wstring& name : {legacy, manager})
        Keys(HKLM, {L"-" + kUninstall + name, L"-" + kUninstall32 + name})(legacySession);
    EXPECT_FALSE(Exists(uninstaller));
    // ResetRebootKey writes "No" in both views and says it failed all the same.
    SetText(HKLM, kManager, L"Ferrule_Reboot", L"Yes");
    Session session;
    EXPECT_EQ(0u, session.Call("ResetRebootKey"));
    EXPECT_EQ(1u, session.Call("RemoveFerruleEntry"));
    const std::wstring doubled = kUninstall + manager + L"\\\\";
    EXPECT_EQ((Lines{L"TESSEL_CA ResetRebootKey failed", Deleting(doubled), ShouldGo(doubled)}), session.Log());
    EXPECT_TRUE(TextOf(HKLM, kManager, L"Ferrule_Reboot") == L"No" &&
                TextOf(HKLM, L"SOFTWARE\\Wow6432Node\\" + kManager.substr(9), L"Ferrule_Reboot") == L"No");
}

// Hidden as a system component: a package of level 1 whose entry is found in either view.
TEST_F(RecordCleanupTest, RemoveARPEntriesHidesOrdinaryPackagesOnly)
{
    auto packages = [](std::vector<std::pair<std::wstring, DWORD>> levels) {
        return [levels] {
            for (size_t i = 0; i < levels.size(); ++i) {
                if (levels[i].second != 0)
                    SetDword(HKLM, kPackages + levels[i].first, L"iPackageLevel", levels[i].second);
                const wchar_t* product = i % 2 ? TESSEL_TEST_PRODUCT_2 : TESSEL_TEST_PRODUCT_1;
                SetText(HKLM, kPackages + levels[i].first, L"ProductGUID", product);
            }
            SetText(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_1, L"DisplayName", L"One");
            SetText(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"DisplayName", L"Two");
        };
    };
    auto hidden = [](DWORD one, DWORD two) {
        return [=](Session&) {
            EXPECT_EQ(one, DwordOf(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_1, L"SystemComponent"));
            EXPECT_EQ(two, DwordOf(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"SystemComponent"));
        };
    };
    const DWORD no = kMissingDword;
    RunCases({
        {"no package list", "RemoveARPEntries", {}, nullptr, 1, Exactly({}), nullptr},
        {"an empty package list", "RemoveARPEntries", {}, [] { CreateKey(HKLM, kPackages); }, 1, {}, nullptr},
        // Level 2 and no level are left alone.
        {"levels", "RemoveARPEntries", {}, packages({{L"A", 1}, {L"B", 2}, {L"C", 0}}), 1, Exactly({}), hidden(1, no)},
        {"a long name after a fixed package stops the walk", "RemoveARPEntries", {},
         packages({{L"W-05-000U-000-003-002-001-00-00", 1}, {kPackageA, 1}}), 1, {}, hidden(no, no)},
        {"the same name alone", "RemoveARPEntries", {}, packages({{L"A", 0}, {kPackageA, 1}}), 1, {}, hidden(no, 1)},
    });
}

// NoRepair is written only when the install manager's settings hold the line "NoRepair=Yes". Success is 1,
// also for an entry in the 32-bit view only.
TEST_F(RecordCleanupTest, DisableRepairForFerruleWritesNoRepairWhenTheSettingsSayExactlyYes)
{
    auto settings = [](const std::string& line) {
        return [=] {
            SetText(HKLM, kEntry1, L"DisplayName", L"One");
            SetText(HKLM, kEntry2, L"DisplayName", L"Two");
            const std::wstring manager = L"C:\\tessel\\scratch\\InstallManager\\";
            MakeFile(manager + L"Config\\InstallManager.cfg", "Language=en\r\n" + line + "\r\n");
            SetText(HKLM, kManager, L"OriginalDB", manager + L"Packages\\Suite\\Suite.msi");
        };
    };
    auto noRepair = [](DWORD one, DWORD two) {
        return [=](Session&) {
            EXPECT_EQ(one, DwordOf(HKLM, kEntry1, L"NoRepair"));
            EXPECT_EQ(two, DwordOf(HKLM, kEntry2, L"NoRepair"));
        };
    };
    const DWORD no = kMissingDword;
    const LogCheck started = Exactly({L"Tessel_CA DisableRepairForFerrule() start"});
    RunCases({
        {"no", "DisableRepairForFerrule", Data(TESSEL_TEST_PRODUCT_1), settings("NoRepair=No"), 0, Exactly({}),
         noRepair(no, no)},
        {"yes", "DisableRepairForFerrule", Data(TESSEL_TEST_PRODUCT_1), settings("NoRepair=Yes"), 1, started,
         noRepair(1, no)},
        {"yes, 32-bit entry", "DisableRepairForFerrule", Data(TESSEL_TEST_PRODUCT_2), settings("NoRepair=Yes"), 1,
         started, noRepair(no, 1)},
        {"an empty OriginalDB", "DisableRepairForFerrule", {}, [] { SetText(HKLM, kManager, L"OriginalDB", L""); }, 0,
         Exactly({}), nullptr},
    });
}

TEST_F(RecordCleanupTest, ClearInstallRegValuesEmptiesTheRootInBothViews)
{
    for (const std::wstring& root : {kInstall, kInstall32}) {
        for (const wchar_t* name : {L"", L" ", L"InstallPath"})
            SetText(HKLM, root, name, L"x");
        SetDword(HKLM, root + L"Packages\\" + kPackageA, L"iPackageLevel", 1);
    }
    Session session;
    EXPECT_EQ(1u, session.Call("ClearInstallRegValues"));
    EXPECT_EQ(Lines(), session.Log());
    for (const std::wstring& root : {kInstall, kInstall32}) {
        EXPECT_EQ((Lines{L"", L" "}), ValueNamesOf(HKLM, root)) << root;
        EXPECT_TRUE(HasValue(HKLM, root + L"Packages\\" + kPackageA, L"iPackageLevel")) << root;
    }
}

}  // namespace
