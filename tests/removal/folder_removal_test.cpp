// The folder removal actions through the DLL, in real sessions, on real folders
// and registry values of the prefix.
#include "removal/area.h"

#include "frame/frame.h"
#include "removal/removal.h"

#include <gmock/gmock.h>
#include <shlobj.h>

using harness::Repeat;
using harness::Session;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Matcher;
using ::testing::Not;

namespace {

const std::wstring kOrvel = L"C:\\Program Files\\Orvel";
const std::wstring kKestra = L"C:\\Program Files\\Kestra Technologies\\";
const std::wstring kCommonKestra = L"C:\\Program Files\\Common Files\\Kestra Technologies\\";
const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\";
const std::wstring kScratch = harness::kScratchFolder;

void PutFile(const std::wstring& path)
{
    SHCreateDirectoryExW(NULL, path.substr(0, path.rfind(L'\\')).c_str(), NULL);
    harness::WriteFileBytes(path, "x");
}

void PutFolder(const std::wstring& path)
{
    SHCreateDirectoryExW(NULL, path.c_str(), NULL);
}

bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void SetInstallValue(const wchar_t* name, const std::wstring& value)
{
    harness::SetText(HKEY_LOCAL_MACHINE, kInstallKey, name, value);
}

const std::wstring kFerrule = kOrvel + L"\\Ferrule";

// The install manager's folder with its record, and the suite's install folder.
void InstallSuite(const std::wstring& suite)
{
    SetInstallValue(L"InstallDir", suite);
    SetInstallValue(L"FerruleInstallDir", kFerrule);
    PutFile(kFerrule + L"\\InstallManagerApp.exe");
}

std::wstring T1(const std::wstring& path) { return L"TESSEL_CA Delete directory, " + path + L" \n"; }
std::wstring T4(const std::wstring& path)
{
    return L"TESSEL_CA Directory, " + path + L", DNE or is not empty and will not be deleted.\n";
}

const wchar_t kFilterCheck[] = L"TESSEL_CA Inside IsFilterDrvFolderExists \n";
const wchar_t kFilterKeyOpened[] = L"TESSEL_CA Inside IsFilterDrvFolderExists - RegKey Opened\n";

// The expected log, line by line; the shell's error texts are the system's own.
class Lines {
public:
    Lines& operator<<(const std::wstring& line)
    {
        lines_.push_back(line);
        return *this;
    }
    Lines& operator<<(const Lines& more)
    {
        lines_.insert(lines_.end(), more.lines_.begin(), more.lines_.end());
        return *this;
    }
    // DeleteDirectory's own lines.
    Lines& Deleted(const std::wstring& path)
    {
        return *this << L"TESSEL_CA DeleteDirectory attempting to delete " + path + L" \n"
                     << L"TESSEL_CA DeleteDirectory " + path + L": no errors using SHFileOperation.  \n";
    }
    Lines& NotDeleted(const std::wstring& path)
    {
        *this << L"TESSEL_CA DeleteDirectory attempting to delete " + path + L" \n";
        lines_.push_back(::testing::StartsWith(L"TESSEL_CA DeleteDirectory " + path + L" Error: "));
        return *this;
    }
    // DeleteFolder's blocks: the folder handed on, a delete reported under
    // `shown`, a removeDirRecursive, the read of InstallDir.
    Lines& HandedOn(const std::wstring& folder, bool deleted)
    {
        *this << L"TESSEL_CA DeleteFolder: " + folder + L" \n";
        return deleted ? Deleted(folder) : NotDeleted(folder) << L"TESSEL_CA Could not delete INSTALLDIR  \n";
    }
    Lines& Reported(const std::wstring& path, bool deleted, const std::wstring& shown)
    {
        if (deleted)
            return Deleted(path) << L"TESSEL_CA successfully deleted directory, " + shown + L" \n";
        return NotDeleted(path) << L"TESSEL_CA Could not delete directory, " + shown + L" \n";
    }
    Lines& Recursive(const std::wstring& path, bool removed)
    {
        return *this << L"TESSEL_CA Delete directory - removeDirRecursive, " + path + L" \n"
                     << std::wstring(L"TESSEL_CA Delete directory - removeDirRecursive ") +
                            (removed ? L"Successful" : L"Failed") + L", " + path + L" \n";
    }
    Lines& InstFolder(const std::wstring& installDir)
    {
        return *this << L"TESSEL_CA Inside GetINSTFolder is, SOFTWARE\\Kestra Technologies\\Install\\ \n"
                     << L"TESSEL_CA Inside GetINSTFolder2 is, " + installDir + L" \n"
                     << L"TESSEL_CA Delete directory - szModifiedInstPath is:, " + installDir + L"\\ \n";
    }
    // No CustomActionData, both shared parents kept, the marker looked for.
    Lines& FirstStepsWithInstallKey(bool commonFilesDeleted)
    {
        HandedOn(L"", false) << T4(kOrvel) << T4(kKestra);
        return Reported(kCommonKestra, commonFilesDeleted, kCommonKestra) << kFilterCheck << kFilterKeyOpened;
    }
    const std::vector<Matcher<std::wstring>>& matchers() const { return lines_; }

private:
    std::vector<Matcher<std::wstring>> lines_;
};

class FolderRemovalTest : public harness::ActionTest {
protected:
    FolderRemovalTest() : ActionTest(RemovalArea()) {}
};

// Every DeleteFolder set-up without InstallDir keeps the Orvel folder absent
// or holding a file at the end: otherwise the last delete is handed a lone
// backslash, the current drive's root, which Wine's shell would empty.

TEST_F(FolderRemovalTest, DeleteFolderRunsEveryStepWithoutCustomActionData)
{
    // Nothing on the machine: the Common Files delete fails and decides the result.
    Lines rest;
    rest << T4(kOrvel) << T4(kKestra);
    rest.Reported(kCommonKestra, false, kCommonKestra) << kFilterCheck;
    rest.Recursive(L"", false) << T4(kKestra);

    // A missing property reads as empty, and the shell refuses an empty list.
    Session missing;
    EXPECT_EQ(1603u, missing.Call("DeleteFolder"));
    Lines expected;
    expected.HandedOn(L"", false) << rest;
    EXPECT_THAT(missing.Log(), ElementsAreArray(expected.matchers()));

    Session unreadable;
    unreadable.SetCustomActionData(L"C:\\" + Repeat(L'd', 260));
    EXPECT_EQ(1603u, unreadable.Call("DeleteFolder"));
    Lines failedRead;
    failedRead << L"TESSEL_CA Could not get INSTALLDIR  \n" << rest;
    EXPECT_THAT(unreadable.Log(), ElementsAreArray(failedRead.matchers()));
}

TEST_F(FolderRemovalTest, DeleteFolderTakesAnOrvelFolderOfEmptyFoldersAndKeepsOneWithAFile)
{
    const std::wstring package = kScratch + L"Package\\";
    PutFile(package + L"Tessel.msi");
    PutFolder(kOrvel + L"\\Halyard\\Profiles");
    PutFolder(kCommonKestra + L"Shared");
    Session emptyFolders;
    emptyFolders.SetCustomActionData(package);
    EXPECT_EQ(0u, emptyFolders.Call("DeleteFolder"));
    Lines expected;
    expected.HandedOn(package, true) << T1(kOrvel);
    expected.Reported(kOrvel, true, kOrvel) << T4(kKestra);
    expected.Reported(kCommonKestra, true, kCommonKestra) << kFilterCheck;
    expected.Recursive(L"", false) << T4(kKestra);
    EXPECT_THAT(emptyFolders.Log(), ElementsAreArray(expected.matchers()));
    EXPECT_FALSE(Exists(package));
    EXPECT_FALSE(Exists(kOrvel));
    EXPECT_FALSE(Exists(kCommonKestra));

    // One file keeps the Orvel folder; the last check names the other folder.
    PutFile(kOrvel + L"\\Halyard\\Profiles\\user.xml");
    Session oneFile;
    oneFile.SetCustomActionData(package);
    EXPECT_EQ(1603u, oneFile.Call("DeleteFolder"));
    Lines kept;
    kept.HandedOn(package, false) << T4(kOrvel) << T4(kKestra);
    kept.Reported(kCommonKestra, false, kCommonKestra) << kFilterCheck;
    kept.Recursive(L"", false) << T4(kKestra);
    EXPECT_THAT(oneFile.Log(), ElementsAreArray(kept.matchers()));
    EXPECT_TRUE(Exists(kOrvel + L"\\Halyard\\Profiles\\user.xml"));
}

TEST_F(FolderRemovalTest, DeleteFolderTakesTheInstallFolderThenTheSharedParentAndFailsOnTheGoneFolder)
{
    const std::wstring suite = kOrvel + L"\\Suite";
    InstallSuite(suite);
    PutFolder(suite + L"\\Config");
    PutFile(kCommonKestra + L"Shared\\common.dll");

    Session session;
    EXPECT_EQ(1603u, session.Call("DeleteFolder"));
    Lines expected;
    expected.FirstStepsWithInstallKey(true);
    expected.Recursive(kFerrule, true).InstFolder(suite)
        << L"TESSEL_CA Before Delete directory and szModifiedInstPath, " + suite + L"\\ \n";
    expected.Reported(suite + L"\\", true, suite + L"\\");
    // Now empty, the Orvel folder goes, announced with the install folder's name.
    expected << T1(suite + L"\\");
    expected.Reported(kOrvel, true, kOrvel);
    // The install folder went two steps ago, so its second delete fails.
    expected.Reported(suite + L"\\", false, kKestra);
    EXPECT_THAT(session.Log(), ElementsAreArray(expected.matchers()));
    EXPECT_FALSE(Exists(kOrvel));
}

TEST_F(FolderRemovalTest, DeleteFolderSucceedsWithTheLastDeleteOfAnInstallFolderThatHoldsFiles)
{
    const std::wstring suite = kKestra + L"Suite";
    InstallSuite(suite);
    PutFile(suite + L"\\Suite.exe");

    Session session;
    EXPECT_EQ(0u, session.Call("DeleteFolder"));
    Lines expected;
    expected.FirstStepsWithInstallKey(false);
    // The folder tested holds a file; the message names the Orvel folder.
    expected.Recursive(kFerrule, true).InstFolder(suite) << T4(kOrvel) << T1(suite + L"\\");
    expected.Reported(kOrvel, true, kOrvel).Reported(suite + L"\\", true, kKestra);
    EXPECT_THAT(session.Log(), ElementsAreArray(expected.matchers()));
    EXPECT_FALSE(Exists(suite));
    EXPECT_TRUE(Exists(kKestra));
}

TEST_F(FolderRemovalTest, DeleteFolderWithoutInstallDirSkipsTheInstallFolder)
{
    SetInstallValue(L"FerruleInstallDir", kFerrule);
    PutFile(kFerrule + L"\\InstallManagerApp.exe");
    PutFile(kOrvel + L"\\Halyard\\Halyard.exe");
    // GetINSTFolder opens the key, finds no value and says no more.
    Lines expected;
    expected.FirstStepsWithInstallKey(false).Recursive(kFerrule, true)
        << L"TESSEL_CA Inside GetINSTFolder is, SOFTWARE\\Kestra Technologies\\Install\\ \n" << T4(kKestra);

    Session session;
    EXPECT_EQ(1603u, session.Call("DeleteFolder"));
    EXPECT_THAT(session.Log(), ElementsAreArray(expected.matchers()));
    EXPECT_FALSE(Exists(kFerrule));
    EXPECT_TRUE(Exists(kOrvel + L"\\Halyard\\Halyard.exe"));
}

TEST_F(FolderRemovalTest, DeleteFolderRemovesTheFilterDriverFolderOnTheMarkerAndLeavesTheMarker)
{
    const std::wstring filterDrv = kOrvel + L"\\OrvelFilterDrv";
    const std::wstring suite = kKestra + L"Suite";
    SetInstallValue(L"InstallDir", suite);
    SetInstallValue(L"RemoveFilterDrv", L"YES");
    PutFile(filterDrv + L"\\OrvelFilter.sys");
    PutFile(kOrvel + L"\\Halyard\\Halyard.exe");
    PutFile(suite + L"\\Suite.exe");

    Session session;
    EXPECT_EQ(1603u, session.Call("DeleteFolder"));
    Lines expected;
    expected.FirstStepsWithInstallKey(false) << L"TESSEL_CA IsFilterDrvFolderExists - Ferrule_Reboot Flag: , YES \n";
    // Without FerruleInstallDir the text still holds the driver's folder.
    expected.Recursive(filterDrv, true).Recursive(filterDrv, false).InstFolder(suite) << T4(kOrvel) << T4(kKestra);
    EXPECT_THAT(session.Log(), ElementsAreArray(expected.matchers()));
    EXPECT_FALSE(Exists(filterDrv));
    EXPECT_TRUE(Exists(kOrvel + L"\\Halyard\\Halyard.exe"));
    EXPECT_EQ(L"YES", harness::TextOf(HKEY_LOCAL_MACHINE, kInstallKey, L"RemoveFilterDrv"));

    // Any other text leaves the folder alone.
    PutFile(filterDrv + L"\\OrvelFilter.sys");
    SetInstallValue(L"RemoveFilterDrv", L"yes please");
    Session other;
    EXPECT_EQ(1603u, other.Call("DeleteFolder"));
    EXPECT_THAT(other.Log(), Contains(L"TESSEL_CA IsFilterDrvFolderExists - Ferrule_Reboot Flag: , yes please \n"));
    EXPECT_THAT(other.Log(), Not(Contains(L"TESSEL_CA Delete directory - removeDirRecursive, " + filterDrv + L" \n")));
    EXPECT_TRUE(Exists(filterDrv + L"\\OrvelFilter.sys"));
}

// What the DLL's GetSystemDirectoryW answers while a test patches it in.
const wchar_t* g_systemFolder = L"";

UINT WINAPI StandInSystemDirectory(LPWSTR buffer, UINT size)
{
    if (*g_systemFolder == L'\0')
        return 0;
    lstrcpynW(buffer, g_systemFolder, static_cast<int>(size));
    return static_cast<UINT>(lstrlenW(buffer));
}

TEST_F(FolderRemovalTest, TheTempFolderActionsClearTheirOwnFolderOnTheSystemDrive)
{
    const std::wstring temp = L"C:\\ProgramData\\Orvel\\";
    PutFile(temp + L"Vane\\cache\\frames.bin");
    PutFile(temp + L"Sorrel\\state.json");

    // Recycled, not deleted: Wine's bin lies in the build tree, out of the prefix's sight.
    Session session;
    EXPECT_EQ(1u, session.Call("DelVaneTempDir"));
    EXPECT_FALSE(Exists(temp + L"Vane"));
    EXPECT_TRUE(Exists(temp + L"Sorrel\\state.json"));
    EXPECT_EQ(0u, session.Call("DelVaneTempDir"));
    EXPECT_EQ(1u, session.Call("DelSorrelTempDir"));
    EXPECT_FALSE(Exists(temp + L"Sorrel"));
    EXPECT_EQ(0u, session.Call("DelSorrelTempDir"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA deletes Vane Temp DIR\n",
                                           L"TESSEL_CA Could not delete Vane Temp DIR  \n",
                                           L"TESSEL_CA deletes Sorrel Temp DIR\n",
                                           L"TESSEL_CA Could not delete Sorrel Temp DIR  \n"));
    EXPECT_TRUE(Exists(temp));
}

TEST_F(FolderRemovalTest, TheTempFolderActionsTakeTheDriveFromTheSystemFolder)
{
    const std::wstring vane = L"C:\\ProgramData\\Orvel\\Vane";
    PutFile(vane + L"\\frames.bin");
    harness::ImportPatch patch(harness::TesselDll(), "kernel32.dll", "GetSystemDirectoryW",
                               reinterpret_cast<void*>(&StandInSystemDirectory));

    // A system folder on another drive: the folder on C: is none of the action's business.
    g_systemFolder = L"Q:\\Windows\\system32";
    Session otherDrive;
    EXPECT_EQ(0u, otherDrive.Call("DelVaneTempDir"));
    EXPECT_THAT(otherDrive.Log(), ElementsAre(L"TESSEL_CA Could not delete Vane Temp DIR  \n"));
    EXPECT_TRUE(Exists(vane + L"\\frames.bin"));

    // Without a system folder nothing is touched, and the result is still 1.
    g_systemFolder = L"";
    Session none;
    EXPECT_EQ(1u, none.Call("DelSorrelTempDir"));
    EXPECT_THAT(none.Log(), IsEmpty());

    g_systemFolder = L"c:\\windows\\system32";
    Session lowerCase;
    EXPECT_EQ(1u, lowerCase.Call("DelVaneTempDir"));
    EXPECT_FALSE(Exists(vane));
}

const wchar_t kVaneDeleted[] = L"TESSEL_CA DelInstallVaneDir: ";
const wchar_t kSorrelDeleted[] = L"TESSEL_CA DelInstallSorrelDir: ";

// Wine differs here: its recycle bin takes a path that ends in a backslash for
// done and leaves it where it is, existing or not (the name it would file it
// under is empty). Windows moves such a folder, or fails when there is none.
// The component folders always end in a backslash, so the Vane test shows
// Wine's outcome, and the Sorrel test keeps its own folder free of files.

TEST_F(FolderRemovalTest, DelInstallVaneDirGluesItsFolderToTheOneHandedOn)
{
    const std::wstring suite = kScratch + L"Suite";
    PutFile(suite + L"\\Kestra.Lumen\\Vane\\Vane.exe");
    PutFile(suite + L"\\Kestra.Lumen\\Sorrel\\Sorrel.exe");

    Session handedOn;
    handedOn.SetCustomActionData(suite + L"\\");
    EXPECT_EQ(1u, handedOn.Call("DelInstallVaneDir"));
    EXPECT_THAT(handedOn.Log(), ElementsAre(kVaneDeleted + suite + L"\\ \n",
                                            kVaneDeleted + suite + L"\\Kestra.Lumen\\Vane\\ \n"));
    EXPECT_TRUE(Exists(suite + L"\\Kestra.Lumen\\Vane\\Vane.exe"));  // Wine; Windows recycles it

    // Without the trailing backslash the path runs into the folder's name.
    // Windows logs "TESSEL_CA couldn't DelInstallVaneDir: " with it.
    Session bare;
    bare.SetCustomActionData(suite);
    EXPECT_EQ(1u, bare.Call("DelInstallVaneDir"));
    EXPECT_THAT(bare.Log(), ElementsAre(kVaneDeleted + suite + L" \n",
                                        kVaneDeleted + suite + L"Kestra.Lumen\\Vane\\ \n"));  // Wine
    EXPECT_TRUE(Exists(suite + L"\\Kestra.Lumen\\Sorrel\\Sorrel.exe"));

    // A folder with no file left goes whole, reported in the other component's words.
    DeleteFileW((suite + L"\\Kestra.Lumen\\Vane\\Vane.exe").c_str());
    DeleteFileW((suite + L"\\Kestra.Lumen\\Sorrel\\Sorrel.exe").c_str());
    Session emptied;
    emptied.SetCustomActionData(suite);
    EXPECT_EQ(1u, emptied.Call("DelInstallVaneDir"));
    EXPECT_THAT(emptied.Log(), ElementsAre(kVaneDeleted + suite + L" \n", kSorrelDeleted + suite + L" \n"));
    EXPECT_FALSE(Exists(suite));

    // An unreadable folder leaves the component's part alone, relative to
    // the current folder. Windows fails it with "couldn't DelInstallVaneDir".
    Session unreadable;
    unreadable.SetCustomActionData(Repeat(L'v', 300));
    EXPECT_EQ(1u, unreadable.Call("DelInstallVaneDir"));
    EXPECT_THAT(unreadable.Log(), ElementsAre(L"TESSEL_CA Could not get INSTALLDIR  \n",
                                              L"TESSEL_CA DelInstallVaneDir: Kestra.Lumen\\Vane\\ \n"));  // Wine
}

TEST_F(FolderRemovalTest, DelInstallSorrelDirClearsItsFoldersAndThenTheEmptiedParents)
{
    const std::wstring suite = kScratch + L"Suite";
    const std::wstring lumen = suite + L"\\Kestra.Lumen";
    PutFolder(lumen + L"\\Sorrel\\Logs");
    PutFile(lumen + L"\\Reservation Manager\\Reservation.dll");
    Session session;
    session.SetCustomActionData(suite);
    EXPECT_EQ(1u, session.Call("DelInstallSorrelDir"));
    EXPECT_THAT(session.Log(),
                ElementsAre(kSorrelDeleted + suite + L" \n", kSorrelDeleted + lumen + L"\\Sorrel\\ \n",
                            kSorrelDeleted + lumen + L"\\Reservation Manager \n", kSorrelDeleted + lumen + L" \n",
                            kSorrelDeleted + suite + L" \n"));
    EXPECT_FALSE(Exists(suite));

    // Another component's files keep Kestra.Lumen and the install folder.
    PutFolder(lumen + L"\\Sorrel\\Logs");
    PutFile(lumen + L"\\Vane\\Vane.exe");
    Session shared;
    shared.SetCustomActionData(suite + L"\\");
    EXPECT_EQ(1u, shared.Call("DelInstallSorrelDir"));
    EXPECT_THAT(shared.Log(),
                ElementsAre(kSorrelDeleted + suite + L"\\ \n", kSorrelDeleted + lumen + L"\\Sorrel\\ \n",
                            L"TESSEL_CA can not DelInstallSorrelDir: " + lumen + L"\\Reservation Manager \n"));
    EXPECT_TRUE(Exists(lumen + L"\\Vane\\Vane.exe"));

    // Nothing to clear: Windows logs "TESSEL_CA couldn't DelInstallSorrelDir: "
    // for the component's own folder too.
    Session missing;
    missing.SetCustomActionData(kScratch + L"Gone");
    EXPECT_EQ(1u, missing.Call("DelInstallSorrelDir"));
    EXPECT_THAT(missing.Log(),
                ElementsAre(kSorrelDeleted + kScratch + L"Gone \n",
                            kSorrelDeleted + kScratch + L"Gone\\Kestra.Lumen\\Sorrel\\ \n",  // Wine
                            L"TESSEL_CA can not DelInstallSorrelDir: " + kScratch +
                                L"Gone\\Kestra.Lumen\\Reservation Manager \n"));
}

void SetHalyardLocation(DWORD type, const std::wstring& location)
{
    HKEY key;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", 0,
                                             NULL, 0, KEY_ALL_ACCESS, NULL, &key, NULL));
    RegSetValueExW(key, L"Location", 0, type, reinterpret_cast<const BYTE*>(location.c_str()),
                   static_cast<DWORD>((location.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
}

TEST_F(FolderRemovalTest, DeleteHalyardFolderAnswersWithTheLocationsTypeWhenTheFolderHasGone)
{
    const std::wstring halyard = kOrvel + L"\\Halyard";
    Session noLocation;
    EXPECT_EQ(0u, noLocation.Call("DeleteHalyardFolder"));

    SetHalyardLocation(REG_SZ, halyard);
    Session gone;
    EXPECT_EQ(1u, gone.Call("DeleteHalyardFolder"));
    SetHalyardLocation(REG_EXPAND_SZ, halyard);
    EXPECT_EQ(2u, gone.Call("DeleteHalyardFolder"));
    EXPECT_THAT(gone.Log(), IsEmpty());
}

TEST_F(FolderRemovalTest, DeleteHalyardFolderTakesTheFolderAndItsParentWhenThatIsEmpty)
{
    const std::wstring halyard = kOrvel + L"\\Halyard";
    PutFile(halyard + L"\\Halyard.exe");
    PutFile(halyard + L"\\Profiles\\user.xml");
    SetHalyardLocation(REG_SZ, halyard);
    Session session;
    EXPECT_EQ(0u, session.Call("DeleteHalyardFolder"));
    Lines parent;
    parent.Deleted(kOrvel);
    EXPECT_THAT(session.Log(), ElementsAreArray(parent.matchers()));
    EXPECT_FALSE(Exists(kOrvel));

    // With a trailing backslash the "parent" is the folder itself, gone by then.
    PutFile(halyard + L"\\Halyard.exe");
    SetHalyardLocation(REG_SZ, halyard + L"\\");
    Session trailing;
    EXPECT_EQ(0u, trailing.Call("DeleteHalyardFolder"));
    EXPECT_THAT(trailing.Log(), IsEmpty());
    EXPECT_FALSE(Exists(halyard));
    EXPECT_TRUE(Exists(kOrvel));

    // A parent with something else in it stays.
    PutFile(halyard + L"\\Halyard.exe");
    PutFile(kOrvel + L"\\Vane\\Vane.exe");
    SetHalyardLocation(REG_SZ, halyard);
    Session shared;
    EXPECT_EQ(0u, shared.Call("DeleteHalyardFolder"));
    EXPECT_THAT(shared.Log(), IsEmpty());
    EXPECT_FALSE(Exists(halyard));
    EXPECT_TRUE(Exists(kOrvel + L"\\Vane\\Vane.exe"));
}

TEST_F(FolderRemovalTest, RemoveUSBMONAnswers1OnlyWhenItDeletedTheFolder)
{
    const std::wstring detector = kScratch + L"OrvelUSB3DeviceDetector\\";
    PutFile(detector + L"Detector.exe");
    Session session;
    session.SetCustomActionData(detector);
    EXPECT_EQ(1u, session.Call("RemoveUSBMON"));
    Lines deleted;
    deleted << L"TESSEL_CA RemoveUSBMON Directory: " + detector + L" \n";
    deleted.Deleted(detector) << L"Tessel_CA OrvelUSB3DeviceDetector folder deleted\n";
    EXPECT_THAT(session.Log(), ElementsAreArray(deleted.matchers()));
    EXPECT_FALSE(Exists(detector));

    Session again;
    again.SetCustomActionData(detector);
    EXPECT_EQ(0u, again.Call("RemoveUSBMON"));
    EXPECT_THAT(again.Log(), ElementsAre(L"TESSEL_CA RemoveUSBMON Directory: " + detector + L" \n"));

    Session none;
    EXPECT_EQ(0u, none.Call("RemoveUSBMON"));
    EXPECT_THAT(none.Log(), ElementsAre(L"TESSEL_CA RemoveUSBMON Directory:  \n"));

    Session unreadable;
    unreadable.SetCustomActionData(L"C:\\" + Repeat(L'u', 300));
    EXPECT_EQ(0u, unreadable.Call("RemoveUSBMON"));
    EXPECT_THAT(unreadable.Log(), ElementsAre(L"TESSEL_CA Could not get INSTALLDIR  \n"));
}

// An internal operation, called through the static library with its own session handle.
TEST_F(FolderRemovalTest, CleanUninstallerFilesRemovesTheOldUninstallersFolder)
{
    const std::wstring uninstaller = L"C:\\Program Files (x86)\\Kestra Technologies\\UninstallAll\\";
    Session session;
    g_hSession = session.handle();
    EXPECT_TRUE(CleanUninstallerFiles());
    EXPECT_THAT(session.Log(), IsEmpty());

    PutFile(uninstaller + L"UninstallAll.exe");
    HANDLE held = CreateFileW((uninstaller + L"UninstallAll.exe").c_str(), GENERIC_READ, 0, NULL, OPEN_EXISTING, 0, NULL);
    EXPECT_FALSE(CleanUninstallerFiles());
    CloseHandle(held);
    EXPECT_TRUE(CleanUninstallerFiles());
    g_hSession = 0;
    Lines expected;
    expected.NotDeleted(uninstaller);
    expected.Deleted(uninstaller) << L"Tessel_CA CleanUninstallerFiles folder deleted\n";
    EXPECT_THAT(session.Log(), ElementsAreArray(expected.matchers()));
    EXPECT_FALSE(Exists(uninstaller));
    EXPECT_TRUE(Exists(L"C:\\Program Files (x86)\\Kestra Technologies"));
}

}  // namespace
