// The package records at uninstall, through the DLL in real sessions: package
// keys and their parents, Add or Remove Programs entries, the install-wide values.
#include "removal/area.h"

#include <gmock/gmock.h>

#include <process.h>

using harness::Repeat;
using harness::Session;
using harness::DwordOf;
using harness::HasValue;
using harness::KeyExists;
using harness::SetDword;
using harness::SetText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const HKEY HKCU = HKEY_CURRENT_USER;

const std::wstring kInstall = L"SOFTWARE\\Kestra Technologies\\Install\\";
const std::wstring kInstall32 = L"SOFTWARE\\Wow6432Node\\Kestra Technologies\\Install\\";
const std::wstring kPackages = kInstall + L"Packages\\";
const std::wstring kPackages32 = kInstall32 + L"Packages\\";
const std::wstring kUninstall = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
const std::wstring kUninstall32 = L"SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
const std::wstring kManager = kInstall + L"Kestra Quillon Install Manager";

const wchar_t kPackageA[] = L"W-10-1A00-000-002-300-001-00-25";
const wchar_t kPackageB[] = L"W-10-1B00-000-002-301-001-00-25";

class RecordCleanupTest : public harness::ActionTest {
protected:
    RecordCleanupTest() : ActionTest(RemovalArea()) {}
};

std::wstring Deleting(const std::wstring& path)
{
    return L"Tessel_CA DeletePackageKey(), Key to delete is " + path + L" \n";
}

std::wstring ShouldBeDeleted(const std::wstring& path)
{
    return L"Tessel_CA DeletePackageKey(), " + path + L" key should be deleted \n";
}

std::wstring Deleted(const std::wstring& path)
{
    return L"Tessel_CA DeleteTesselRegKey(), key deleted successfully " + path + L" \n";
}

std::wstring HasSubKeys(const std::wstring& path)
{
    return L"Tessel_CA DeleteTesselRegKey(), Tessel key has sub keys and is not empty thus it will not be deleted " +
           path + L" \n";
}

const wchar_t kAttempted[] = L"Tessel_CA DeletePackageKey(), SOFTWARE\\Orvel\\ Attempted to delete key \n";
const wchar_t kWillAttempt[] =
    L"Tessel_CA CleanTesselRegKeys(), Ferrule Package key deleted, will now attempt the Tessel (Package) key\n";

// Arranges packages: each a key with its level under the list of the view that its name says.
std::function<void()> Packages(std::vector<std::wstring> keys)
{
    return [keys] {
        for (const std::wstring& key : keys)
            SetDword(HKLM, key, L"iPackageLevel", 1);
    };
}

TEST_F(RecordCleanupTest, CleanRegistryTakesTheParentsWithTheLastPackage)
{
    const std::wstring package = kPackages + kPackageA + L"\\";
    const harness::Rows a = {{L"CustomActionData", kPackageA}};
    harness::ActionCase perUser = {"last package, per-user values", "CleanRegistry", a,
                                   [] {
                                       Packages({kPackages + kPackageA, kPackages32 + kPackageA + L"\\Sub"})();
                                       for (const wchar_t* name : {L"", L" ", L" Leading", L"UserSetting"})
                                           SetText(HKCU, L"SOFTWARE\\Orvel", name, L"x");
                                   },
                                   0,
                                   harness::Exactly({L"Tessel_CA DeleteFerruleRegKey: PID=" + std::wstring(kPackageA) + L"\n",
                                                     Deleting(package), ShouldBeDeleted(package), kAttempted,
                                                     kWillAttempt, Deleted(kPackages), Deleted(kInstall)}),
                                   [](Session& session) {
                                       Keys(HKLM, {L"-" + kInstall, L"-" + kInstall32, L"SOFTWARE\\Kestra Technologies"})(session);
                                       // The default value and the single blank's stay.
                                       EXPECT_EQ((harness::Lines{L"", L" "}), harness::ValueNamesOf(HKCU, L"SOFTWARE\\Orvel"));
                                   }};
    RunCases({
        perUser,
        // A package in the 32-bit view counts all the same; with no per-user key, no line for it.
        {"another package left", "CleanRegistry", a, Packages({kPackages + kPackageA, kPackages32 + kPackageB}), 0,
         harness::Includes({kWillAttempt, HasSubKeys(kPackages), HasSubKeys(kInstall)}),
         Keys(HKLM, {L"-" + kPackages + kPackageA, kPackages32 + kPackageB})},
        // The root's one value keeps the root.
        {"a value left", "CleanRegistry", {{L"CustomActionData", kPackageB}},
         [] {
             Packages({kPackages32 + kPackageB})();
             SetText(HKLM, kInstall32, L"InstallWide", L"x");
         },
         0,
         harness::Includes({Deleted(kPackages), L"Tessel_CA DeleteTesselRegKey(), Tessel key is not empty thus it will "
                                                L"not be deleted " + kInstall + L" \n"}),
         Keys(HKLM, {L"-" + kPackages32, kInstall32})},
        // Too long for the 260-character buffer: nothing is done or said.
        {"unreadable", "CleanRegistry", {{L"CustomActionData", Repeat(L'W', 260)}}, Packages({kPackages + kPackageA}),
         1627, harness::Exactly({}), Keys(HKLM, {kPackages + kPackageA})},
        // Empty data aims at the list itself.
        {"empty", "CleanRegistry", {}, Packages({kPackages + kPackageA, kPackages32 + kPackageB}), 0,
         harness::Includes({L"Tessel_CA DeleteFerruleRegKey: PID=\n", Deleting(kPackages + L"\\"), Deleted(kInstall)}),
         Keys(HKLM, {L"-" + kInstall, L"-" + kInstall32})},
    });
}

TEST_F(RecordCleanupTest, RmLegacyUninstallRemovesTheOlderInstallersEntry)
{
    SetText(HKLM, kUninstall + L"All Kestra Software\\Details", L"DisplayName", L"All Kestra Software");
    SetText(HKLM, kUninstall32 + L"All Kestra Software", L"DisplayName", L"All Kestra Software");
    Session session;
    EXPECT_EQ(0u, session.Call("RmLegacyUninstall"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA RemoveLegacyUninstall cleaned files \n",
                                           L"TESSEL_CA RemoveLegacyUninstall cleaned registry keys \n"));
    EXPECT_FALSE(KeyExists(HKLM, kUninstall + L"All Kestra Software"));
    EXPECT_FALSE(KeyExists(HKLM, kUninstall32 + L"All Kestra Software"));
}

TEST_F(RecordCleanupTest, RemoveFerruleEntryLogsThroughTheHandleAnEarlierActionLeft)
{
    const std::wstring entry = kUninstall + L"Orvel Quillon Install Manager";
    SetText(HKLM, entry + L"\\Sub", L"DisplayName", L"x");
    SetText(HKLM, kUninstall32 + L"Orvel Quillon Install Manager", L"DisplayName", L"x");

    // An action that stored handle 0 last: the lines are lost, the work is done.
    harness::Export("ResetRebootKey")(0);
    Session session;
    EXPECT_EQ(1u, session.Call("RemoveFerruleEntry"));
    EXPECT_THAT(session.Log(), IsEmpty());
    EXPECT_FALSE(KeyExists(HKLM, entry));
    EXPECT_FALSE(KeyExists(HKLM, kUninstall32 + L"Orvel Quillon Install Manager"));

    // After one that stored this session's handle, they show, with both backslashes.
    session.Call("ResetRebootKey");
    EXPECT_EQ(1u, session.Call("RemoveFerruleEntry"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA ResetRebootKey failed", Deleting(entry + L"\\\\"),
                                           ShouldBeDeleted(entry + L"\\\\")));
}

// Hidden as a system component: a package of level 1 whose entry is found in either view.
TEST_F(RecordCleanupTest, RemoveARPEntriesHidesOrdinaryPackagesOnly)
{
    const std::wstring fixed = L"W-05-000U-000-003-002-001-00-00";
    auto packages = [](std::vector<std::pair<std::wstring, DWORD>> levels) {
        return [levels] {
            const wchar_t* products[] = {TESSEL_TEST_PRODUCT_1, TESSEL_TEST_PRODUCT_2};
            for (size_t i = 0; i < levels.size(); ++i) {
                if (levels[i].second != 0)
                    SetDword(HKLM, kPackages + levels[i].first, L"iPackageLevel", levels[i].second);
                SetText(HKLM, kPackages + levels[i].first, L"ProductGUID", products[i % 2]);
            }
            SetText(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_1, L"DisplayName", L"One");
            SetText(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"DisplayName", L"Two");
        };
    };
    auto hidden = [](bool one, bool two) {
        return [=](Session&) {
            EXPECT_EQ(one ? 1u : harness::kMissingDword, DwordOf(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_1, L"SystemComponent"));
            EXPECT_EQ(two ? 1u : harness::kMissingDword, DwordOf(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"SystemComponent"));
        };
    };
    RunCases({
        {"no package list", "RemoveARPEntries", {}, nullptr, 1, harness::Exactly({}), nullptr},
        {"an empty package list", "RemoveARPEntries", {}, [] { harness::CreateKey(HKLM, kPackages); }, 1,
         harness::Exactly({}), nullptr},
        // Level 2 and no level are left alone; the package's own key stays.
        {"levels", "RemoveARPEntries", {}, packages({{L"A", 1}, {L"B", 2}, {L"C", 0}}), 1, harness::Exactly({}),
         [hidden](Session& session) {
             hidden(true, false)(session);
             EXPECT_TRUE(KeyExists(HKLM, kPackages + L"A"));
         }},
        {"a long name after a fixed package stops the walk", "RemoveARPEntries", {}, packages({{fixed, 1}, {kPackageA, 1}}),
         1, {}, hidden(false, false)},
        {"the same name alone", "RemoveARPEntries", {}, packages({{L"A", 0}, {kPackageA, 1}}), 1, {}, hidden(false, true)},
    });
}

// The install manager as installed from C:\tessel\scratch\InstallManager.
const wchar_t kSettingsFile[] = L"C:\\tessel\\scratch\\InstallManager\\Config\\InstallManager.cfg";

void InstallManagerWithSettings(const std::string& settings)
{
    CreateDirectoryW(L"C:\\tessel\\scratch", NULL);
    CreateDirectoryW(L"C:\\tessel\\scratch\\InstallManager", NULL);
    CreateDirectoryW(L"C:\\tessel\\scratch\\InstallManager\\Config", NULL);
    harness::WriteFileBytes(kSettingsFile, settings);
    SetText(HKLM, kManager, L"OriginalDB", L"C:\\tessel\\scratch\\InstallManager\\Packages\\Suite\\Suite.msi");
}

TEST_F(RecordCleanupTest, DisableRepairForFerruleWritesNoRepairWhenTheSettingsSayExactlyYes)
{
    SetText(HKLM, kUninstall + TESSEL_TEST_PRODUCT_1, L"DisplayName", L"One");
    SetText(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_2, L"DisplayName", L"Two");
    {
        Session noSettings;
        noSettings.SetCustomActionData(TESSEL_TEST_PRODUCT_1);
        EXPECT_EQ(0u, noSettings.Call("DisableRepairForFerrule"));
    }
    for (const char* settings : {"NoRepair=No\r\n", "NoRepair=Yes \r\n", "noRepair=Yes\r\n"}) {
        InstallManagerWithSettings(std::string("Language=en\r\n") + settings);
        Session session;
        session.SetCustomActionData(TESSEL_TEST_PRODUCT_1);
        EXPECT_EQ(0u, session.Call("DisableRepairForFerrule")) << settings;
        EXPECT_THAT(session.Log(), IsEmpty()) << settings;
        EXPECT_FALSE(HasValue(HKLM, kUninstall + TESSEL_TEST_PRODUCT_1, L"NoRepair")) << settings;
    }

    // Success is 1, also for an entry in the 32-bit view only; a product code
    // that can't be read gives 0, after the start line all the same.
    InstallManagerWithSettings("Language=en\r\nNoRepair=Yes\r\nMode=1\r\n");
    const struct {
        std::wstring data;
        UINT result;
    } runs[] = {{TESSEL_TEST_PRODUCT_1, 1}, {TESSEL_TEST_PRODUCT_2, 1}, {Repeat(L'{', 260), 0}};
    for (const auto& run : runs) {
        Session session;
        session.SetCustomActionData(run.data);
        EXPECT_EQ(run.result, session.Call("DisableRepairForFerrule"));
        EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA DisableRepairForFerrule() start"));
    }
    EXPECT_EQ(1u, DwordOf(HKLM, kUninstall + TESSEL_TEST_PRODUCT_1, L"NoRepair"));
    EXPECT_EQ(1u, DwordOf(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_2, L"NoRepair"));
}

// In a child process, the state is the parent's: the child neither takes the
// machine lock (the parent holds it) nor clears anything.
class RecordCleanupDeathTest : public harness::ActionTest {
protected:
    RecordCleanupDeathTest() : ActionTest(RemovalArea()) {}

protected:
    static bool InChild() { return wcsstr(GetCommandLineW(), L"--gtest_internal_run_death_test") != NULL; }
    void SetUp() override
    {
        if (!InChild())
            ActionTest::SetUp();
    }
    void TearDown() override
    {
        if (!InChild())
            ActionTest::TearDown();
    }
};

// On a thread of its own, as in the installer's host, where no test frame
// would catch what escapes the action.
unsigned __stdcall DisableRepairOnItsOwnThread(void*)
{
    Session session;
    session.SetCustomActionData(TESSEL_TEST_PRODUCT_1);
    return session.Call("DisableRepairForFerrule");
}

void RunDisableRepairOnItsOwnThread()
{
    HANDLE thread =
        reinterpret_cast<HANDLE>(_beginthreadex(NULL, 0, DisableRepairOnItsOwnThread, NULL, 0, NULL));
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

TEST_F(RecordCleanupDeathTest, DisableRepairForFerruleLetsOutOfRangeEscapeWithoutPackagesInOriginalDB)
{
    SetText(HKLM, kManager, L"OriginalDB", L"C:\\tessel\\scratch\\InstallManager\\Suite.msi");
    EXPECT_EXIT(RunDisableRepairOnItsOwnThread(), [](int code) { return code != 0; }, "out_of_range");

    // An empty OriginalDB is no path at all, and no exception.
    SetText(HKLM, kManager, L"OriginalDB", L"");
    Session session;
    EXPECT_EQ(0u, session.Call("DisableRepairForFerrule"));
}

TEST_F(RecordCleanupTest, ClearInstallRegValuesEmptiesTheRootInBothViews)
{
    for (const std::wstring& root : {kInstall, kInstall32}) {
        SetText(HKLM, root, L"", L"default");
        SetText(HKLM, root, L" ", L"one blank");
        SetText(HKLM, root, L"InstallPath", L"C:\\Suite");
        SetDword(HKLM, root, L"Level", 3);
        SetDword(HKLM, root + L"Packages\\" + kPackageA, L"iPackageLevel", 1);
    }
    Session session;
    EXPECT_EQ(1u, session.Call("ClearInstallRegValues"));
    EXPECT_THAT(session.Log(), IsEmpty());
    for (const std::wstring& root : {kInstall, kInstall32}) {
        EXPECT_TRUE(HasValue(HKLM, root, L"")) << root;
        EXPECT_TRUE(HasValue(HKLM, root, L" ")) << root;
        EXPECT_FALSE(HasValue(HKLM, root, L"InstallPath")) << root;
        EXPECT_FALSE(HasValue(HKLM, root, L"Level")) << root;
        EXPECT_EQ(1u, DwordOf(HKLM, root + L"Packages\\" + kPackageA, L"iPackageLevel")) << root;
    }
}

}  // namespace
