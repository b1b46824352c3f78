// The folder removal actions through the DLL, in real sessions, on real folders
// and registry values of the prefix.
#include "removal/area.h"

using namespace harness;

namespace {

const std::wstring kOrvel = L"C:\\Program Files\\Orvel";
const std::wstring kKestra = L"C:\\Program Files\\Kestra Technologies\\";
const std::wstring kCommonKestra = L"C:\\Program Files\\Common Files\\Kestra Technologies\\";
const std::wstring kFerrule = kOrvel + L"\\Ferrule";
const std::wstring kFilterDrv = kOrvel + L"\\OrvelFilterDrv";
const std::wstring kScratch = kScratchFolder;
const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\";

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
const std::wstring kInstFolder = L"TESSEL_CA Inside GetINSTFolder is, SOFTWARE\\Kestra Technologies\\Install\\ \n";

// The install manager's values, with its folder holding its program, and then `paths` made.
std::function<void()> Suite(Rows values, const Lines& paths)
{
    values.push_back({L"FerruleInstallDir", kFerrule});
    return [=] {
        for (const Row& value : values)
            SetText(HKEY_LOCAL_MACHINE, kInstallKey, value.name, value.value);
        Make(paths)();
        MakeFile(kFerrule + L"\\InstallManagerApp.exe");
    };
}

using FolderRemovalTest = RemovalTest;

// The rows run on Q:, a throw-away drive: without InstallDir, the last delete is handed a lone backslash, the
// current drive's root, which Windows' shell refuses and Wine's would empty.
TEST_F(FolderRemovalTest, DeleteFolderRunsEveryStepAndAnswersWithTheLastDelete)
{
    ASSERT_TRUE(EnterThrowAwayDrive());
    const std::wstring package = kScratch + L"Package\\", kestraSuite = kKestra + L"Suite";
    const std::wstring orvelSuite = kOrvel + L"\\Suite", suiteFolder = orvelSuite + L"\\";
    const std::wstring halyard = kOrvel + L"\\Halyard\\Halyard.exe";
    // No CustomActionData: the empty folder can't go. The install folder under Orvel goes, then the emptied
    // Orvel folder, announced with the install folder's name; the install folder's second delete then fails.
    // The file toolkit's own lines are its tests' business.
    const Lines everyStep = {L"TESSEL_CA DeleteFolder:  \n", L"TESSEL_CA Could not delete INSTALLDIR  \n", T4(kOrvel),
                             T4(kKestra), Deleted(kCommonKestra), L"TESSEL_CA Inside IsFilterDrvFolderExists \n",
                             L"TESSEL_CA Inside IsFilterDrvFolderExists - RegKey Opened\n", Recursive(kFerrule, L""),
                             Recursive(kFerrule, L" Successful"), kInstFolder,
                             L"TESSEL_CA Inside GetINSTFolder2 is, " + orvelSuite + L" \n",
                             L"TESSEL_CA Delete directory - szModifiedInstPath is:, " + suiteFolder + L" \n",
                             L"TESSEL_CA Before Delete directory and szModifiedInstPath, " + suiteFolder + L" \n",
                             Deleted(suiteFolder), T1(suiteFolder), Deleted(kOrvel),
                             L"TESSEL_CA Could not delete directory, " + kKestra + L" \n"};
    const auto ownLines = [everyStep](Session& session) {
        Lines own;
        for (const std::wstring& line : session.Log())
            if (line.compare(0, 26, L"TESSEL_CA DeleteDirectory ") != 0)
                own.push_back(line);
        EXPECT_EQ(everyStep, own);
    };
    RunCases({
        {"install folder under Orvel", "DeleteFolder", {},
         Suite({{L"InstallDir", orvelSuite}}, {kCommonKestra + L"Shared\\common.dll", suiteFolder + L"Config\\"}),
         1603, {}, [&](Session& session) {
             ownLines(session);
             Present({}, {kOrvel})(session);
         }},
        // A missing property reads as empty, and the shell refuses an empty list.
        {"nothing there", "DeleteFolder", {}, nullptr, 1603,
         Includes({L"TESSEL_CA DeleteFolder:  \n", Recursive(L"", L" Failed"), T4(kKestra)}), nullptr},
        {"Orvel holds empty folders", "DeleteFolder", Data(package),
         Make({package + L"Tessel.msi", kOrvel + L"\\Halyard\\Profiles\\", kCommonKestra + L"Shared\\"}), 0,
         Includes({L"TESSEL_CA DeleteFolder: " + package + L" \n", T1(kOrvel)}),
         Present({}, {package, kOrvel, kCommonKestra})},
        {"install folder with files", "DeleteFolder", {},
         Suite({{L"InstallDir", kestraSuite}}, {kestraSuite + L"\\Suite.exe"}), 0,
         Includes({T4(kOrvel), T1(kestraSuite + L"\\"), Deleted(kKestra)}), Present({kKestra}, {kestraSuite})},
        {"no InstallDir", "DeleteFolder", {}, Suite({}, {halyard}), 1603, Includes({kInstFolder, T4(kKestra)}),
         Present({halyard}, {kFerrule})},
        // The install manager's folder was all Orvel held: the drive's root is refused.
        {"no InstallDir, Orvel emptied", "DeleteFolder", {}, Suite({}, {}), 1603,
         Includes({T4(kOrvel), T1(L"\\"), Deleted(kOrvel),
                   L"TESSEL_CA DeleteDirectory \\ Error: Source is a root directory, cannot be moved or renamed. \n",
                   L"TESSEL_CA Could not delete directory, " + kKestra + L" \n"}),
         Present({kThrowAwayFile}, {kOrvel})},
        // On the marker the driver's folder goes; without FerruleInstallDir the next step names it again. The
        // marker stays.
        {"filter driver marker", "DeleteFolder", {},
         [&] {
             SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"InstallDir", kestraSuite);
             SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"RemoveFilterDrv", L"YES");
             Make({kestraSuite + L"\\Suite.exe", kFilterDrv + L"\\OrvelFilter.sys", halyard})();
         },
         1603,
         Includes({L"TESSEL_CA IsFilterDrvFolderExists - Ferrule_Reboot Flag: , YES \n",
                   Recursive(kFilterDrv, L" Successful"), Recursive(kFilterDrv, L" Failed"), T4(kOrvel), T4(kKestra)}),
         [&](Session& session) {
             Present({halyard}, {kFilterDrv})(session);
             EXPECT_EQ(L"YES", TextOf(HKEY_LOCAL_MACHINE, kInstallKey, L"RemoveFilterDrv"));
         }},
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
    const std::wstring temp = L"C:\\ProgramData\\Orvel\\", vane = temp + L"Vane\\cache\\frames.bin";
    Make({vane, temp + L"Sorrel\\state.json"})();
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

    ImportPatch patch(TesselDll(), "kernel32.dll", "GetSystemDirectoryW",
                      reinterpret_cast<void*>(&StandInSystemDirectory));
    auto system = [vane](const wchar_t* folder) {
        return [=] {
            g_systemFolder = folder;
            MakeFile(vane);
        };
    };
    RunCases({
        {"another drive", "DelVaneTempDir", {}, system(L"Q:\\Windows\\system32"), 0,
         Exactly({L"TESSEL_CA Could not delete Vane Temp DIR  \n"}), Present({vane})},
        {"no system folder", "DelSorrelTempDir", {}, system(L""), 1, Exactly({}), Present({vane})},
    });
}

// Wine's recycle bin takes a path that ends in a backslash for done and leaves it where it is, existing or not;
// Windows moves such a folder, or fails ("TESSEL_CA couldn't Del...Dir: ") when there is none. The component
// folders always end in a backslash, so the first row shows Wine's outcome.
TEST_F(FolderRemovalTest, TheComponentFolderActionsClearTheirFoldersAndThenTheEmptiedParents)
{
    const std::wstring suite = kScratch + L"Suite", lumen = suite + L"\\Kestra.Lumen";
    const std::wstring vane = L"TESSEL_CA DelInstallVaneDir: ", sorrel = L"TESSEL_CA DelInstallSorrelDir: ";
    const Lines both = {lumen + L"\\Vane\\Vane.exe", lumen + L"\\Sorrel\\Sorrel.exe"};
    RunCases({
        {"Vane handed on", "DelInstallVaneDir", Data(suite + L"\\"), Make(both), 1,
         Exactly({vane + suite + L"\\ \n", vane + suite + L"\\Kestra.Lumen\\Vane\\ \n"}), Present(both)},
        // No file left: the folder goes whole, reported in the other component's words.
        {"Vane emptied", "DelInstallVaneDir", Data(suite), Make({lumen + L"\\Vane\\", lumen + L"\\Sorrel\\"}), 1,
         Exactly({vane + suite + L" \n", sorrel + suite + L" \n"}), Present({}, {suite})},
        {"Sorrel", "DelInstallSorrelDir", Data(suite),
         Make({lumen + L"\\Reservation Manager\\Reservation.dll", lumen + L"\\Sorrel\\Logs\\"}), 1,
         Exactly({sorrel + suite + L" \n", sorrel + lumen + L"\\Sorrel\\ \n",
                  sorrel + lumen + L"\\Reservation Manager \n", sorrel + lumen + L" \n", sorrel + suite + L" \n"}),
         Present({}, {suite})},
        // Another component's files keep Kestra.Lumen and the install folder.
        {"Sorrel beside Vane", "DelInstallSorrelDir", Data(suite + L"\\"),
         Make({lumen + L"\\Vane\\Vane.exe", lumen + L"\\Sorrel\\Logs\\"}), 1,
         Exactly({sorrel + suite + L"\\ \n", sorrel + lumen + L"\\Sorrel\\ \n",
                  L"TESSEL_CA can not DelInstallSorrelDir: " + lumen + L"\\Reservation Manager \n"}),
         Present({lumen + L"\\Vane\\Vane.exe"})},
    });
}

TEST_F(FolderRemovalTest, DeleteHalyardFolderTakesTheFolderAndAnEmptiedParent)
{
    const std::wstring halyard = kOrvel + L"\\Halyard", vane = kOrvel + L"\\Vane\\Vane.exe";
    auto located = [](DWORD type, const std::wstring& location, const Lines& paths) {
        return [=] {
            SetValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", L"Location", type,
                     location.c_str(), static_cast<DWORD>((location.size() + 1) * sizeof(wchar_t)));
            Make(paths)();
        };
    };
    RefusedProcessStarts refused;  // the settings application is ended first, in every row
    RunCases({
        {"no location", "DeleteHalyardFolder", {}, nullptr, 0, Exactly({}), nullptr},
        // A folder already gone answers with the location's type.
        {"gone, expandable", "DeleteHalyardFolder", {}, located(REG_EXPAND_SZ, halyard, {}), 2, Exactly({}), nullptr},
        {"with its parent", "DeleteHalyardFolder", {}, located(REG_SZ, halyard, {halyard + L"\\Profiles\\user.xml"}), 0,
         {}, Present({}, {kOrvel})},
        // With a trailing backslash the "parent" is the folder itself, gone by then.
        {"trailing backslash", "DeleteHalyardFolder", {}, located(REG_SZ, halyard + L"\\", {halyard + L"\\H.exe"}), 0,
         Exactly({}), Present({kOrvel}, {halyard})},
        {"shared parent", "DeleteHalyardFolder", {}, located(REG_SZ, halyard, {halyard + L"\\H.exe", vane}), 0,
         Exactly({}), Present({vane}, {halyard})},
    });
    EXPECT_EQ(Lines(5, L"\"C:\\windows\\system32\\TaskKill.exe /IM MarlinSettings.exe /F\""),
              RefusedProcessStarts::CommandLines());
}

TEST_F(FolderRemovalTest, RemoveUSBMONAnswers1OnlyWhenItDeletedTheFolder)
{
    const std::wstring detector = kScratch + L"OrvelUSB3DeviceDetector\\";
    const std::wstring said = L"TESSEL_CA RemoveUSBMON Directory: " + detector + L" \n";
    RunCases({
        {"deleted", "RemoveUSBMON", Data(detector), Make({detector + L"Detector.exe"}), 1,
         Includes({said, L"Tessel_CA OrvelUSB3DeviceDetector folder deleted\n"}), Present({}, {detector})},
        {"not there", "RemoveUSBMON", Data(detector), nullptr, 0, Exactly({said}), nullptr},
        // The folder read the other folder actions share.
        {"unreadable", "RemoveUSBMON", Data(L"C:\\" + Repeat(L'u', 300)), nullptr, 0,
         Exactly({L"TESSEL_CA Could not get INSTALLDIR  \n"}), nullptr},
    });
}

}  // namespace
