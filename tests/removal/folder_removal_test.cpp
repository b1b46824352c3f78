// The folder removal actions through the DLL, in real sessions, on real folders
// and registry values of the prefix.
#include "removal/area.h"

#include "frame/frame.h"
#include "removal/removal.h"

#include <gmock/gmock.h>

using namespace harness;

namespace {

const std::wstring kOrvel = L"C:\\Program Files\\Orvel";
const std::wstring kKestra = L"C:\\Program Files\\Kestra Technologies\\";
const std::wstring kCommonKestra = L"C:\\Program Files\\Common Files\\Kestra Technologies\\";
const std::wstring kFerrule = kOrvel + L"\\Ferrule";
const std::wstring kFilterDrv = kOrvel + L"\\OrvelFilterDrv";
const std::wstring kScratch = harness::kScratchFolder;
const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\";

void SetInstallValue(const wchar_t* name, const std::wstring& value)
{
    harness::SetText(HKEY_LOCAL_MACHINE, kInstallKey, name, value);
}

std::wstring T1(const std::wstring& path) { return L"TESSEL_CA Delete directory, " + path + L" \n"; }
std::wstring T4(const std::wstring& path)
{
    return L"TESSEL_CA Directory, " + path + L", DNE or is not empty and will not be deleted.\n";
}
std::wstring Deleted(const std::wstring& path) { return L"TESSEL_CA successfully deleted directory, " + path + L" \n"; }
std::wstring Recursive(const std::wstring& path, const wchar_t* outcome)
{
    return L"TESSEL_CA Delete directory - removeDirRecursive" + std::wstring(outcome) + L", " + path + L" \n";
}
const std::wstring kCouldNotGet = L"TESSEL_CA Could not get INSTALLDIR  \n";
const std::wstring kInstFolder = L"TESSEL_CA Inside GetINSTFolder is, SOFTWARE\\Kestra Technologies\\Install\\ \n";

// Checks which paths are there and which are gone after the action, and then `more`.
std::function<void(Session&)> After(Lines there, Lines gone, std::function<void(Session&)> more = nullptr)
{
    return [=](Session& session) {
        for (const std::wstring& path : there)
            EXPECT_TRUE(Exists(path)) << "gone: " << ::testing::PrintToString(path);
        for (const std::wstring& path : gone)
            EXPECT_FALSE(Exists(path)) << "there: " << ::testing::PrintToString(path);
        if (more)
            more(session);
    };
}

// The action's own lines: the file toolkit's are its tests' business.
Lines OwnLines(const Session& session)
{
    Lines own;
    for (const std::wstring& line : session.Log())
        if (line.compare(0, 26, L"TESSEL_CA DeleteDirectory ") != 0)
            own.push_back(line);
    return own;
}

using FolderRemovalTest = RemovalTest;

// Every DeleteFolder row without InstallDir keeps the Orvel folder absent or holding a file at the end:
// otherwise the last delete is handed a lone backslash, the current drive's root, which Wine's shell would empty.
TEST_F(FolderRemovalTest, DeleteFolderRunsEveryStepAndAnswersWithTheLastDelete)
{
    const std::wstring package = kScratch + L"Package\\";
    const std::wstring orvelSuite = kOrvel + L"\\Suite", suiteFolder = orvelSuite + L"\\";
    const std::wstring kestraSuite = kKestra + L"Suite";
    // No CustomActionData: the empty folder can't go. The install folder under Orvel goes, then the emptied
    // Orvel folder, announced with the install folder's name; the install folder's second delete then fails.
    const Lines everyStep = {L"TESSEL_CA DeleteFolder:  \n", L"TESSEL_CA Could not delete INSTALLDIR  \n", T4(kOrvel),
                             T4(kKestra), Deleted(kCommonKestra), L"TESSEL_CA Inside IsFilterDrvFolderExists \n",
                             L"TESSEL_CA Inside IsFilterDrvFolderExists - RegKey Opened\n", Recursive(kFerrule, L""),
                             Recursive(kFerrule, L" Successful"), kInstFolder,
                             L"TESSEL_CA Inside GetINSTFolder2 is, " + orvelSuite + L" \n",
                             L"TESSEL_CA Delete directory - szModifiedInstPath is:, " + suiteFolder + L" \n",
                             L"TESSEL_CA Before Delete directory and szModifiedInstPath, " + suiteFolder + L" \n",
                             Deleted(suiteFolder), T1(suiteFolder), Deleted(kOrvel),
                             L"TESSEL_CA Could not delete directory, " + kKestra + L" \n"};
    auto suite = [](const std::wstring& installDir, const std::wstring& file) {
        return [=] {
            if (!installDir.empty())
                SetInstallValue(L"InstallDir", installDir);
            SetInstallValue(L"FerruleInstallDir", kFerrule);
            MakeFile(kFerrule + L"\\InstallManagerApp.exe");
            MakeFile(file);
        };
    };
    const harness::Rows handedOn = {{L"CustomActionData", package}};
    RunCases({
        {"install folder under Orvel", "DeleteFolder", {},
         [&] {
             suite(orvelSuite, kCommonKestra + L"Shared\\common.dll")();
             MakeFolders(orvelSuite + L"\\Config");
         },
         1603, {}, After({}, {kOrvel}, [&](Session& session) { EXPECT_EQ(everyStep, OwnLines(session)); })},
        // A missing property reads as empty, and the shell refuses an empty list.
        {"nothing there", "DeleteFolder", {}, nullptr, 1603,
         Includes({L"TESSEL_CA DeleteFolder:  \n", Recursive(L"", L" Failed"), T4(kKestra)}), nullptr},
        {"unreadable data", "DeleteFolder", {{L"CustomActionData", L"C:\\" + Repeat(L'd', 260)}}, nullptr, 1603,
         Includes({kCouldNotGet, T4(kOrvel)}), nullptr},
        {"Orvel holds empty folders", "DeleteFolder", handedOn,
         [&] {
             MakeFile(package + L"Tessel.msi");
             MakeFolders(kOrvel + L"\\Halyard\\Profiles");
             MakeFolders(kCommonKestra + L"Shared");
         },
         0, Includes({L"TESSEL_CA DeleteFolder: " + package + L" \n", T1(kOrvel)}),
         After({}, {package, kOrvel, kCommonKestra})},
        {"install folder with files", "DeleteFolder", {}, suite(kestraSuite, kestraSuite + L"\\Suite.exe"), 0,
         Includes({T4(kOrvel), T1(kestraSuite + L"\\"), Deleted(kKestra)}), After({kKestra}, {kestraSuite})},
        {"no InstallDir", "DeleteFolder", {}, suite(L"", kOrvel + L"\\Halyard\\Halyard.exe"), 1603,
         Includes({kInstFolder, T4(kKestra)}), After({kOrvel + L"\\Halyard\\Halyard.exe"}, {kFerrule})},
        // On the marker the driver's folder goes; without FerruleInstallDir the next step names it again. The
        // marker stays.
        {"filter driver marker", "DeleteFolder", {},
         [&] {
             SetInstallValue(L"InstallDir", kestraSuite);
             MakeFile(kestraSuite + L"\\Suite.exe");
             SetInstallValue(L"RemoveFilterDrv", L"YES");
             MakeFile(kFilterDrv + L"\\OrvelFilter.sys");
             MakeFile(kOrvel + L"\\Halyard\\Halyard.exe");
         },
         1603,
         Includes({L"TESSEL_CA IsFilterDrvFolderExists - Ferrule_Reboot Flag: , YES \n",
                   Recursive(kFilterDrv, L" Successful"), Recursive(kFilterDrv, L" Failed"), T4(kOrvel), T4(kKestra)}),
         After({kOrvel + L"\\Halyard\\Halyard.exe"}, {kFilterDrv}, [&](Session&) {
             EXPECT_EQ(L"YES", harness::TextOf(HKEY_LOCAL_MACHINE, kInstallKey, L"RemoveFilterDrv"));
         })},
    });
}

// What the DLL's GetSystemDirectoryW answers while a row patches it in; empty: it fails.
const wchar_t* g_systemFolder = L"";

UINT WINAPI StandInSystemDirectory(LPWSTR buffer, UINT size)
{
    lstrcpynW(buffer, g_systemFolder, static_cast<int>(size));
    return static_cast<UINT>(lstrlenW(buffer));
}

// They recycle rather than delete: Wine's bin lies in the build tree, out of the prefix's sight.
TEST_F(FolderRemovalTest, TheTempFolderActionsClearTheirFolderOnTheSystemDrive)
{
    const std::wstring temp = L"C:\\ProgramData\\Orvel\\";
    MakeFile(temp + L"Vane\\cache\\frames.bin");
    MakeFile(temp + L"Sorrel\\state.json");
    Session session;
    EXPECT_EQ(1u, session.Call("DelVaneTempDir"));
    EXPECT_TRUE(!Exists(temp + L"Vane") && Exists(temp + L"Sorrel\\state.json"));
    EXPECT_EQ(0u, session.Call("DelVaneTempDir"));
    EXPECT_EQ(1u, session.Call("DelSorrelTempDir"));
    EXPECT_EQ(0u, session.Call("DelSorrelTempDir"));
    EXPECT_EQ((Lines{L"TESSEL_CA deletes Vane Temp DIR\n", L"TESSEL_CA Could not delete Vane Temp DIR  \n",
                     L"TESSEL_CA deletes Sorrel Temp DIR\n", L"TESSEL_CA Could not delete Sorrel Temp DIR  \n"}),
              session.Log());
    EXPECT_TRUE(!Exists(temp + L"Sorrel") && Exists(temp));

    harness::ImportPatch patch(harness::TesselDll(), "kernel32.dll", "GetSystemDirectoryW",
                               reinterpret_cast<void*>(&StandInSystemDirectory));
    auto system = [](const wchar_t* folder) {
        return [folder] {
            g_systemFolder = folder;
            MakeFile(L"C:\\ProgramData\\Orvel\\Vane\\frames.bin");
        };
    };
    const std::wstring vane = temp + L"Vane\\frames.bin";
    RunCases({
        {"another drive", "DelVaneTempDir", {}, system(L"Q:\\Windows\\system32"), 0,
         Exactly({L"TESSEL_CA Could not delete Vane Temp DIR  \n"}), After({vane}, {})},
        {"no system folder", "DelSorrelTempDir", {}, system(L""), 1, Exactly({}), After({vane}, {})},
        {"lower case", "DelVaneTempDir", {}, system(L"c:\\windows\\system32"), 1, {}, After({}, {vane})},
    });
}

// Wine's recycle bin takes a path that ends in a backslash for done and leaves it where it is, existing or not;
// Windows moves such a folder, or fails ("TESSEL_CA couldn't Del...Dir: ") when there is none. The component
// folders always end in a backslash, so some rows show Wine's outcome.
TEST_F(FolderRemovalTest, TheComponentFolderActionsClearTheirFoldersAndThenTheEmptiedParents)
{
    const std::wstring suite = kScratch + L"Suite", lumen = suite + L"\\Kestra.Lumen";
    const std::wstring vane = L"TESSEL_CA DelInstallVaneDir: ", sorrel = L"TESSEL_CA DelInstallSorrelDir: ";
    auto files = [](Lines paths, Lines folders = {}) {
        return [=] {
            for (const std::wstring& path : paths)
                MakeFile(path);
            for (const std::wstring& folder : folders)
                MakeFolders(folder);
        };
    };
    auto data = [](const std::wstring& folder) { return harness::Rows{{L"CustomActionData", folder}}; };
    const Lines both = {lumen + L"\\Vane\\Vane.exe", lumen + L"\\Sorrel\\Sorrel.exe"};
    RunCases({
        {"Vane handed on", "DelInstallVaneDir", data(suite + L"\\"), files(both), 1,
         Exactly({vane + suite + L"\\ \n", vane + suite + L"\\Kestra.Lumen\\Vane\\ \n"}), After(both, {})},  // Wine
        {"Vane without the backslash", "DelInstallVaneDir", data(suite), files(both), 1,
         Exactly({vane + suite + L" \n", vane + suite + L"Kestra.Lumen\\Vane\\ \n"}), After(both, {})},  // Wine
        // No file left: the folder goes whole, reported in the other component's words.
        {"Vane emptied", "DelInstallVaneDir", data(suite), files({}, {lumen + L"\\Vane", lumen + L"\\Sorrel"}), 1,
         Exactly({vane + suite + L" \n", sorrel + suite + L" \n"}), After({}, {suite})},
        {"Vane unreadable", "DelInstallVaneDir", data(Repeat(L'v', 300)), nullptr, 1,
         Exactly({kCouldNotGet, vane + L"Kestra.Lumen\\Vane\\ \n"}), nullptr},  // Wine
        {"Sorrel", "DelInstallSorrelDir", data(suite),
         files({lumen + L"\\Reservation Manager\\Reservation.dll"}, {lumen + L"\\Sorrel\\Logs"}),
         1,
         Exactly({sorrel + suite + L" \n", sorrel + lumen + L"\\Sorrel\\ \n",
                  sorrel + lumen + L"\\Reservation Manager \n",
                  sorrel + lumen + L" \n", sorrel + suite + L" \n"}),
         After({}, {suite})},
        // Another component's files keep Kestra.Lumen and the install folder.
        {"Sorrel beside Vane", "DelInstallSorrelDir", data(suite + L"\\"),
         files({lumen + L"\\Vane\\Vane.exe"}, {lumen + L"\\Sorrel\\Logs"}),
         1,
         Exactly({sorrel + suite + L"\\ \n", sorrel + lumen + L"\\Sorrel\\ \n",
                  L"TESSEL_CA can not DelInstallSorrelDir: " + lumen + L"\\Reservation Manager \n"}),
         After({lumen + L"\\Vane\\Vane.exe"}, {})},
    });
}

void SetHalyardLocation(DWORD type, const std::wstring& location)
{
    harness::SetValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", L"Location", type,
                      location.c_str(), static_cast<DWORD>((location.size() + 1) * sizeof(wchar_t)));
}

TEST_F(FolderRemovalTest, DeleteHalyardFolderTakesTheFolderAndAnEmptiedParent)
{
    const std::wstring halyard = kOrvel + L"\\Halyard";
    auto located = [&](DWORD type, const std::wstring& location, Lines files) {
        return [=] {
            SetHalyardLocation(type, location);
            for (const std::wstring& file : files)
                MakeFile(file);
        };
    };
    RunCases({
        {"no location", "DeleteHalyardFolder", {}, nullptr, 0, Exactly({}), nullptr},
        // A folder already gone answers with the location's type.
        {"gone, text", "DeleteHalyardFolder", {}, located(REG_SZ, halyard, {}), 1, Exactly({}), nullptr},
        {"gone, expandable", "DeleteHalyardFolder", {}, located(REG_EXPAND_SZ, halyard, {}), 2, Exactly({}), nullptr},
        {"with its parent", "DeleteHalyardFolder", {}, located(REG_SZ, halyard, {halyard + L"\\Profiles\\user.xml"}), 0,
         {}, After({}, {kOrvel})},
        // With a trailing backslash the "parent" is the folder itself, gone by then.
        {"trailing backslash", "DeleteHalyardFolder", {},
         located(REG_SZ, halyard + L"\\", {halyard + L"\\Halyard.exe"}), 0,
         Exactly({}), After({kOrvel}, {halyard})},
        {"shared parent", "DeleteHalyardFolder", {},
         located(REG_SZ, halyard, {halyard + L"\\Halyard.exe", kOrvel + L"\\Vane\\Vane.exe"}),
         0, Exactly({}), After({kOrvel + L"\\Vane\\Vane.exe"}, {halyard})},
    });
}

TEST_F(FolderRemovalTest, RemoveUSBMONAnswers1OnlyWhenItDeletedTheFolder)
{
    const std::wstring detector = kScratch + L"OrvelUSB3DeviceDetector\\";
    const std::wstring said = L"TESSEL_CA RemoveUSBMON Directory: " + detector + L" \n";
    RunCases({
        {"deleted", "RemoveUSBMON", {{L"CustomActionData", detector}}, [&] { MakeFile(detector + L"Detector.exe"); }, 1,
         Includes({said, L"Tessel_CA OrvelUSB3DeviceDetector folder deleted\n"}), After({}, {detector})},
        {"not there", "RemoveUSBMON", {{L"CustomActionData", detector}}, nullptr, 0, Exactly({said}), nullptr},
        {"no data", "RemoveUSBMON", {}, nullptr, 0, Exactly({L"TESSEL_CA RemoveUSBMON Directory:  \n"}), nullptr},
        {"unreadable", "RemoveUSBMON", {{L"CustomActionData", L"C:\\" + Repeat(L'u', 300)}}, nullptr, 0,
         Exactly({kCouldNotGet}), nullptr},
    });
}

}  // namespace
