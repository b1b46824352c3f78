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
using harness::TextOf;
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

TEST_F(RecordCleanupTest, CleanRegistryTakesTheParentsWithTheLastPackage)
{
    // The package in both views; the per-user values beside it.
    SetDword(HKLM, kPackages + kPackageA, L"iPackageLevel", 1);
    SetDword(HKLM, kPackages32 + kPackageA + L"\\Sub", L"iPackageLevel", 1);
    SetText(HKCU, L"SOFTWARE\\Orvel", L"", L"default");
    SetText(HKCU, L"SOFTWARE\\Orvel", L" ", L"one blank");
    SetText(HKCU, L"SOFTWARE\\Orvel", L" Leading", L"x");
    SetText(HKCU, L"SOFTWARE\\Orvel", L"UserSetting", L"x");

    Session session;
    session.SetCustomActionData(kPackageA);
    EXPECT_EQ(0u, session.Call("CleanRegistry"));
    const std::wstring package = kPackages + kPackageA + L"\\";
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA DeleteFerruleRegKey: PID=" + std::wstring(kPackageA) + L"\n",
                            Deleting(package), ShouldBeDeleted(package), kAttempted, kWillAttempt,
                            Deleted(kPackages), Deleted(kInstall)));
    EXPECT_FALSE(KeyExists(HKLM, kInstall));
    EXPECT_FALSE(KeyExists(HKLM, kInstall32));
    EXPECT_TRUE(KeyExists(HKLM, L"SOFTWARE\\Kestra Technologies"));
    EXPECT_TRUE(HasValue(HKCU, L"SOFTWARE\\Orvel", L""));
    EXPECT_TRUE(HasValue(HKCU, L"SOFTWARE\\Orvel", L" "));
    EXPECT_FALSE(HasValue(HKCU, L"SOFTWARE\\Orvel", L" Leading"));
    EXPECT_FALSE(HasValue(HKCU, L"SOFTWARE\\Orvel", L"UserSetting"));
}

TEST_F(RecordCleanupTest, CleanRegistryLeavesParentsThatStillHoldSomething)
{
    // The second package only in the 32-bit view: it counts all the same.
    SetDword(HKLM, kPackages + kPackageA, L"iPackageLevel", 1);
    SetDword(HKLM, kPackages32 + kPackageB, L"iPackageLevel", 1);
    SetText(HKLM, kInstall32, L"InstallWide", L"x");

    Session first;
    first.SetCustomActionData(kPackageA);
    EXPECT_EQ(0u, first.Call("CleanRegistry"));
    std::vector<std::wstring> log = first.Log();
    ASSERT_EQ(6u, log.size());  // no per-user key, so no line for it
    EXPECT_EQ(kWillAttempt, log[3]);
    EXPECT_EQ(HasSubKeys(kPackages), log[4]);
    EXPECT_EQ(HasSubKeys(kInstall), log[5]);
    EXPECT_FALSE(KeyExists(HKLM, kPackages + kPackageA));
    EXPECT_TRUE(KeyExists(HKLM, kPackages32 + kPackageB));

    // The last package goes with the list; the root's one value keeps the root.
    Session last;
    last.SetCustomActionData(kPackageB);
    EXPECT_EQ(0u, last.Call("CleanRegistry"));
    log = last.Log();
    ASSERT_EQ(6u, log.size());
    EXPECT_EQ(Deleted(kPackages), log[4]);
    EXPECT_EQ(L"Tessel_CA DeleteTesselRegKey(), Tessel key is not empty thus it will not be deleted " + kInstall +
                  L" \n",
              log[5]);
    EXPECT_FALSE(KeyExists(HKLM, kPackages32));
    EXPECT_TRUE(KeyExists(HKLM, kInstall32));
}

TEST_F(RecordCleanupTest, CleanRegistryWithEmptyDataAimsAtTheListAndFailsOnUnreadableData)
{
    SetDword(HKLM, kPackages + kPackageA, L"iPackageLevel", 1);
    SetDword(HKLM, kPackages32 + kPackageB, L"iPackageLevel", 1);

    // Too long for the 260-character buffer: nothing is done or logged.
    Session unreadable;
    unreadable.SetCustomActionData(Repeat(L'W', 260));
    EXPECT_EQ(1627u, unreadable.Call("CleanRegistry"));
    EXPECT_THAT(unreadable.Log(), IsEmpty());
    EXPECT_TRUE(KeyExists(HKLM, kPackages + kPackageA));

    Session empty;
    EXPECT_EQ(0u, empty.Call("CleanRegistry"));
    std::vector<std::wstring> log = empty.Log();
    ASSERT_EQ(6u, log.size());
    EXPECT_EQ(L"Tessel_CA DeleteFerruleRegKey: PID=\n", log[0]);
    EXPECT_EQ(Deleting(kPackages + L"\\"), log[1]);
    EXPECT_EQ(Deleted(kInstall), log[5]);
    EXPECT_FALSE(KeyExists(HKLM, kInstall));
    EXPECT_FALSE(KeyExists(HKLM, kInstall32));
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

TEST_F(RecordCleanupTest, RemoveARPEntriesHidesOrdinaryPackagesOnly)
{
    Session session;
    EXPECT_EQ(1u, session.Call("RemoveARPEntries"));  // no package list at all

    // A: an entry only in the 32-bit view. B: level 2. C: no level.
    SetDword(HKLM, kPackages + L"A", L"iPackageLevel", 1);
    SetText(HKLM, kPackages + L"A", L"ProductGUID", TESSEL_TEST_PRODUCT_1);
    SetDword(HKLM, kPackages + L"B", L"iPackageLevel", 2);
    SetText(HKLM, kPackages + L"B", L"ProductGUID", TESSEL_TEST_PRODUCT_2);
    SetText(HKLM, kPackages + L"C", L"ProductGUID", TESSEL_TEST_PRODUCT_2);
    SetText(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_1, L"DisplayName", L"One");
    SetText(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"DisplayName", L"Two");
    EXPECT_EQ(1u, session.Call("RemoveARPEntries"));
    EXPECT_EQ(1u, DwordOf(HKLM, kUninstall32 + TESSEL_TEST_PRODUCT_1, L"SystemComponent"));
    EXPECT_FALSE(HasValue(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"SystemComponent"));
    EXPECT_TRUE(KeyExists(HKLM, kPackages + L"A"));  // flagged, not deleted
    EXPECT_THAT(session.Log(), IsEmpty());
}

TEST_F(RecordCleanupTest, RemoveARPEntriesStopsAtALongNameAfterAFixedPackage)
{
    const std::wstring fixed = L"W-05-000U-000-003-002-001-00-00";
    SetDword(HKLM, kPackages + fixed, L"iPackageLevel", 1);
    SetText(HKLM, kPackages + fixed, L"ProductGUID", TESSEL_TEST_PRODUCT_1);
    SetDword(HKLM, kPackages + kPackageA, L"iPackageLevel", 1);  // after the fixed one, 31 characters
    SetText(HKLM, kPackages + kPackageA, L"ProductGUID", TESSEL_TEST_PRODUCT_2);
    SetText(HKLM, kUninstall + TESSEL_TEST_PRODUCT_1, L"DisplayName", L"One");
    SetText(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"DisplayName", L"Two");

    Session session;
    EXPECT_EQ(1u, session.Call("RemoveARPEntries"));
    EXPECT_FALSE(HasValue(HKLM, kUninstall + TESSEL_TEST_PRODUCT_1, L"SystemComponent"));
    EXPECT_FALSE(HasValue(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"SystemComponent"));

    // Without the fixed package ahead of it, the same package is hidden.
    harness::DeleteRegTree(HKLM, kPackages + fixed);
    EXPECT_EQ(1u, session.Call("RemoveARPEntries"));
    EXPECT_EQ(1u, DwordOf(HKLM, kUninstall + TESSEL_TEST_PRODUCT_2, L"SystemComponent"));
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
