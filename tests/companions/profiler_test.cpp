// The profiler's actions through the DLL: older entries in the uninstall root,
// the version that asks for a restart, the drivers and the help tool's lines.
#include "companions/companions.h"
#include "harness/harness.h"

using namespace harness;

namespace {

const std::wstring kUninstall = L"SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\",
                   kKey = L"SOFTWARE\\Wow6432Node\\Orvel\\Tracewell\\", kServices = L"SYSTEM\\CurrentControlSet\\services\\",
                   kDrivers = L"C:\\windows\\system32\\drivers\\", kFolder = std::wstring(kScratchFolder) + L"Tracewell\\",
                   kUninstaller = std::wstring(kScratchFolder) + L"Old\\uninst.exe",
                   kHelpTool = L"C:\\Program Files\\Microsoft Help Viewer\\v1.0\\HelpLibManager.exe";
// The version this package knows, a name with another word first, two older ones.
const Lines kEntries = {TESSEL_TEST_PRODUCT_1, L"TesselTracewellOther", TESSEL_TEST_PRODUCT_2, L"TesselTracewellOld"};
const Lines kDriverFiles = {kDrivers + L"twkern.sys", kDrivers + L"twkern.cat", kDrivers + L"twsamp.sys",
                            kDrivers + L"twsamp.cat", kDrivers + L"twaux.sys"};
const Lines kServiceNames = {L"TWKERN", L"TWSAMP", L"TWAUX", L"TWOTHER"};

Area ProfilerArea()
{
    Area area{{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel"}}, kDriverFiles, {}};
    area.folders.push_back(L"C:\\Program Files\\Microsoft Help Viewer");
    for (size_t i = 0; i < 4; ++i)
        area.keys.insert(area.keys.end(), {{HKEY_LOCAL_MACHINE, kUninstall + kEntries[i]},
                                           {HKEY_LOCAL_MACHINE, kServices + kServiceNames[i]}});
    return area;
}

struct ProfilerTest : ActionTest { ProfilerTest() : ActionTest(ProfilerArea()) {} };

// The first `count` entries, the product code if `known`, the install folder with a profiler of `build`.
std::function<void()> OldProfiler(const std::wstring& build, bool known = true, size_t count = 4, bool uninstallers = true)
{
    return [=] {
        const wchar_t* names[] = {L"Tracewell Performance Analyzer 3.1", L"Old Tracewell Performance Analyzer",
                                  L"Tracewell Performance Analyzer 2.5", L"Tracewell Performance Analyzer"};
        for (size_t i = 0; i < count; ++i) {
            SetText(HKEY_LOCAL_MACHINE, kUninstall + kEntries[i], L"DisplayName", names[i]);
            if (uninstallers || i < 2)
                SetText(HKEY_LOCAL_MACHINE, kUninstall + kEntries[i], L"UninstallString", L"\"" + kUninstaller + L"\" /x");
        }
        if (known)
            SetText(HKEY_LOCAL_MACHINE, kKey + L"Install", L"ProductCode", kEntries[0]);
        SetText(HKEY_LOCAL_MACHINE, kKey + L"Key", L"Installdir", kFolder);
        Make({kFolder + L"API\\api.h", kFolder + L"keep.txt", kFolder + L"bin\\"})();
        InstallRecorder(kUninstaller);
        const std::wstring program = ProgramFolder() + L"profiler_" + (build.empty() ? L"none" : build) + L".exe";
        ASSERT_TRUE(CopyFileW(program.c_str(), (kFolder + L"bin\\Tracewell.exe").c_str(), FALSE));
    };
}

// The entries left, and what the uninstaller was given.
std::function<void(Session&)> Left(const Lines& entries, const Lines& uninstallerLines = {})
{
    return [=](Session&) {
        Lines left;
        for (const std::wstring& entry : kEntries)
            if (KeyExists(HKEY_LOCAL_MACHINE, kUninstall + entry))
                left.push_back(entry);
        EXPECT_EQ(entries, left);
        EXPECT_EQ(uninstallerLines, RecordedCommandLines(kUninstaller));
    };
}

TEST_F(ProfilerTest, OlderVersionsAreFoundRemovedAndRestartedFor)
{
    const Lines none, all = kEntries, kept = {kEntries[0], kEntries[1]};
    const auto reboot = [](const wchar_t* is) { return [=](Session& s) { EXPECT_EQ(is, s.Property(L"REBOOT")); }; };
    RunCases({
        {"both older entries go", "RemoveTracewellEntrance", {}, OldProfiler(L"2999"), 1, Exactly(none), Left(kept)},
        {"no product code", "RemoveTracewellEntrance", {}, OldProfiler(L"2999", false), 1, Exactly(none),
         Left({kEntries[1]})},
        {"nothing older", "RemoveTracewellEntrance", {}, OldProfiler(L"2999", true, 2), 0, Exactly(none), Left(kept)},
        {"removed silently", "RemoveTracewellFromWise", {}, OldProfiler(L"2999"), 1, Exactly(none),
         [=](Session& s) {
             Left(all, {L"\"" + kUninstaller + L"\" /x /qn /norestart"})(s);
             Present({kFolder + L"keep.txt"}, {kFolder + L"bin", kFolder + L"API"})(s);
         }},
        {"no uninstaller", "RemoveTracewellFromWise", {}, OldProfiler(L"2999", true, 4, false), 0, Exactly(none),
         Present({kFolder + L"bin\\Tracewell.exe", kFolder + L"API\\api.h"})},
        {"2.9.9.9 is old", "SetTracewellRebootFlag", {}, OldProfiler(L"2999"), 1, Exactly(none), reboot(L"Force")},
        {"3.0.0.0 is not", "SetTracewellRebootFlag", {}, OldProfiler(L"3000"), 0, Exactly(none), reboot(L"")},
        {"3.0.0.1 is not", "SetTracewellRebootFlag", {}, OldProfiler(L"3001"), 0, Exactly(none), reboot(L"")},
        {"no version", "SetTracewellRebootFlag", {}, OldProfiler(L""), 0, Exactly(none), reboot(L"")},
    });
    // Text in, then the four fields and the precision.
    const Lines masks[] = {{L"1.2", L"1 2 0 0 1"},       {L"1.2.3", L"1 2 3 0 2"}, {L"1..2.3.4", L"1 2 3 4 3"},
                           {L"*", L"* * * * 4"},         {L"1", L"x x x x 0"},     {L"1.a.3.4", L"x x x x 0"},
                           {L"1.2.3.4.5", L"x x x x 0"}, {L"1.2.-3", L"x x x x 0"}};
    for (const Lines& row : masks) {
        const VersionMask m = ParseVersionMask(row[0]);
        EXPECT_EQ(row[1], m.major + L" " + m.minor + L" " + m.build + L" " + m.revision + L" " +
                              std::to_wstring(m.precision)) << row[0];
    }
}

TEST_F(ProfilerTest, DriversFoldersAndHelp)
{
    ASSERT_TRUE(EnterThrowAwayDrive());  // where an unread folder's "bin" would be looked for
    const auto folder = [](const std::wstring& file) {
        return [=] { SetText(HKEY_LOCAL_MACHINE, kKey + L"Key", L"InstallDir", kFolder); MakeFile(file); };
    };
    const auto helpLine = [](const std::wstring& switches) {
        return [=](Session&) { EXPECT_EQ(Lines{L"\"" + kHelpTool + L"\"" + switches}, RecordedCommandLines(kHelpTool)); };
    };
    // Wine's recycle bin takes a path ending in a backslash as deleted, whatever is there.
    const std::wstring bare = kFolder.substr(0, kFolder.size() - 1), clear = L"TESSEL_CA ClearTracewellDir: " + bare + L" \n";
    RunCases({
        {"no driver files", "UnLoadOldDriver", {}, nullptr, 1, Exactly({}), nullptr},
        {"driver files, one read-only", "UnLoadOldDriver", {},
         [] { Make(kDriverFiles)(); SetFileAttributesW(kDriverFiles[0].c_str(), FILE_ATTRIBUTE_READONLY); }, 1,
         Exactly({}), Present({}, kDriverFiles)},
        {"drivers copied", "CopyTracewellDrivers64", {}, folder(kFolder + L"bin\\Drivers64\\twaux.sys"), 1,
         Exactly({}), Present({kDrivers + L"twaux.sys"})},
        {"no driver folder", "CopyTracewellDrivers64", {}, folder(kFolder + L"bin\\x.dll"), 0, Exactly({}), nullptr},
        {"service keys", "RemoveTracewellDriverSettings", {},
         [] { for (const std::wstring& service : kServiceNames) CreateKey(HKEY_LOCAL_MACHINE, kServices + service); },
         1, Exactly({L"TESSEL_CA: SearchTracewellDriverRegKey  \n"}), [](Session&) {
             for (const std::wstring& service : kServiceNames)
                 EXPECT_EQ(service == L"TWOTHER", KeyExists(HKEY_LOCAL_MACHINE, kServices + service)) << service;
         }},
        {"folder cleared", "ClearTracewellDir", {{L"INSTALLDIR", bare}}, Make({kFolder + L"bin\\a.dll"}), 1,
         Exactly({L"Tessel_CA GetInstallTracewellDir() start", clear, clear}), Present({}, {kFolder})},
        {"no such folder", "ClearTracewellDir", {{L"INSTALLDIR", bare}}, nullptr, 0,
         Exactly({L"Tessel_CA GetInstallTracewellDir() start", clear, L"TESSEL_CA can not ClearTracewellDir: " + bare + L" \n"}),
         nullptr},
        {"program folders go", "RemoveTracewellDDir", Data(kFolder),
         Make({kFolder + L"bin\\a.dll", kFolder + L"API\\a.h", kFolder + L"keep.txt"}), 1,
         Exactly({L"TESSEL_CA DelInstallTracewellDir: " + kFolder + L" \n"}),
         Present({kFolder + L"keep.txt"}, {kFolder + L"bin", kFolder + L"API"})},
        {"unread folder", "RemoveTracewellDDir", Data(Repeat(L'p', 260)), nullptr, 1,
         Exactly({L"TESSEL_CA Could not get INSTALLDIR  \n"}), Present({kThrowAwayFile})},
        {"help registered", "InstallHelp64", {}, [=] { folder(kFolder + L"a.txt")(); InstallRecorder(kHelpTool); }, 1, Exactly({}),
         helpLine(L" /product VS /version 100 /locale en-us /sourceMedia \"" + kFolder + L"help\\helpcontentsetup.msha\"")},
        {"help removed", "RemoveHelp64", {}, [] { InstallRecorder(kHelpTool); }, 1, Exactly({}),
         helpLine(L" /product VS /version 100 /locale en-us /uninstall /vendor \"Orvel Corporation\" /mediaBookList "
                  L"\"Orvel Tracewell\" /productName \"Orvel Tracewell Performance Analyzer\" /silent")},
        {"no help tool", "RemoveHelp64", {}, nullptr, 0, Exactly({}), nullptr},
    });
}

}  // namespace
