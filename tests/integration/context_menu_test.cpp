// The context-menu actions through the DLL: the handler key, regsvr32's lines
// (recorded by a stand-in in the current directory, or Wine's own regsvr32 on
// a stand-in extension library) and the moves of a library in use.
#include "integration/area.h"

using namespace std::string_literals;
using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kSuite = kScratch + L"Suite";
const std::wstring kRegsvr32 = kScratch + L"regsvr32.exe";
const wchar_t kClassId[] = L"{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}";
const wchar_t kHandlerKey[] = L"Directory\\Background\\shellex\\ContextMenuHandlers\\Lumen";
const std::wstring kServerKey = L"CLSID\\"s + kClassId + L"\\InprocServer32";
const std::wstring kBrio64Library = kSuite + L"\\Kestra.Lumen\\Core-Static\\kestramenu64.dll";
const std::wstring kBrioLibrary = kSuite + L"\\Kestra.Lumen\\Core-Static\\kestramenuxx.dll";
const std::wstring kHalyardLibrary = kSuite + L"\\Halyard\\Halyard\\kestramenuxx.dll";
const std::wstring kHalyard64Library = kSuite + L"\\Halyard\\Halyard\\kestramenu64.dll";

const wchar_t kBrio64Start[] = L"Tessel_CA CreateBrioContextMenu64() start";
const wchar_t kBrio64Created[] = L"Tessel_CA CreateBrioContextMenu64() - Successfully created GUID";
const wchar_t kUnregisterStart[] = L"Tessel_CA UnregisterHalyardContextMenu() start";
const wchar_t kUnregistering[] = L"Tessel_CA UnregisterHalyardContextMenu() - GUID is already present unregister it";

// The unregister line has no blank before its quote.
std::wstring Regsvr32(const std::wstring& library, const wchar_t* switches = L"/s ")
{
    return L"regsvr32.exe " + (switches + (L"\"" + library)) + L"\"";
}

const std::wstring kParked = TempFolder() + L"attemp.dll";

using ContextMenuTest = IntegrationTest;

// The recorder as regsvr32, then the handler's value, a library and its class key where given.
std::function<void()> Given(const std::wstring& handler, const std::wstring& library = L"", bool registered = false)
{
    return [=] {
        InstallRecorder(kRegsvr32);
        SetCurrentDirectoryW(kScratch.c_str());
        if (!handler.empty())
            SetText(HKEY_CLASSES_ROOT, kHandlerKey, L"", handler);
        if (!library.empty())
            MakeFile(library);
        if (registered)
            SetText(HKEY_CLASSES_ROOT, kServerKey, L"", library);
    };
}

// The handler's value afterwards and the regsvr32 lines; nothing queued for the restart.
std::function<void(Session&)> Left(const std::wstring& handler, const Lines& lines = {})
{
    return [=](Session&) {
        EXPECT_EQ(handler, TextOf(HKEY_CLASSES_ROOT, kHandlerKey, L""));
        EXPECT_EQ(lines, RecordedCommandLines(kRegsvr32));
        EXPECT_EQ(L"", PendingRenames());
    };
}

TEST_F(ContextMenuTest, EachActionWritesTheKeyAndRunsRegsvr32)
{
    const Rows suite = {{L"INSTALLDIR", kSuite + L"\\"}}, none = {{L"INSTALLDIR", L""}};
    const std::wstring location = kScratch + L"Location", atLocation = location + L"\\kestramenu64.dll";
    const wchar_t kBrioStart[] = L"Tessel_CA CreateBrioContextMenu() start";
    RunCases({
        {"Brio 64", "CreateBrioContextMenu64", suite, Given(L"", kBrio64Library), 1,
         Exactly({kBrio64Start, kBrio64Created}), Left(kClassId, {Regsvr32(kBrio64Library)})},
        // Any value counts as present for the Brio pair; the Halyard pair overwrites it and its 32-bit
        // action logs the 64-bit success.
        {"Brio, value present", "CreateBrioContextMenu", suite, Given(L"other", kBrioLibrary), 1,
         Exactly({kBrioStart, L"Tessel_CA CreateBrioContextMenu() - GUID is already present"}),
         Left(L"other", {Regsvr32(kBrioLibrary)})},
        {"Halyard, value overwritten", "CreateHalyardContextMenu", {{L"INSTALLDIR", kSuite}},
         Given(L"other", kHalyardLibrary), 1, Exactly({kBrioStart, kBrio64Created}),
         Left(kClassId, {Regsvr32(kHalyardLibrary)})},
        {"Halyard 64", "CreateHalyardContextMenu64", {{L"INSTALLDIR", kSuite}}, Given(L"", kHalyard64Library), 1,
         Exactly({kBrio64Start, kBrio64Created}), Left(kClassId, {Regsvr32(kHalyard64Library)})},
        {"Halyard 64 from Location", "CreateHalyardContextMenu64", none,
         [=] {
             Given(L"", atLocation)();
             SetText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", L"Location", location);
         },
         1, Exactly({kBrio64Start, kBrio64Created}), Left(kClassId, {Regsvr32(atLocation)})},
        {"Halyard 64, no Location", "CreateHalyardContextMenu64", none, Given(L""), 1,
         Exactly({kBrio64Start, kBrio64Created}), Left(kClassId)},
        {"Brio, no folder", "CreateBrioContextMenu", none, Given(L""), 1,
         Exactly({kBrioStart, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID"}), Left(kClassId)},
        {"INSTALLDIR too long", "CreateBrioContextMenu64", {{L"INSTALLDIR", Repeat(L'p', 260)}}, Given(L""), 0,
         Exactly({kBrio64Start}), Left(L"<missing>")},
        {"unregister", "UnregisterHalyardContextMenu", {}, Given(L"", kHalyardLibrary, true), 1,
         Exactly({kUnregisterStart, kUnregistering}), Left(L"<missing>", {Regsvr32(kHalyardLibrary, L"/s /u")})},
        {"unregister, no class", "UnregisterHalyardContextMenu", {}, Given(L""), 0, Exactly({kUnregisterStart}),
         Left(L"<missing>")},
        {"unregister 64, no class", "UnregisterHalyardContextMenu64", {}, Given(L""), 0,
         Exactly({kUnregisterStart}), Left(L"<missing>")},
        {"handler deleted", "DeleteHalyardShellRegistry", {}, Given(L"other"), 1,
         Exactly({L"TESSEL_CA: HalyardShellRegKey  \n"}), Left(L"<missing>")},
    });
}

LSTATUS WINAPI RefuseSet(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD)
{
    return ERROR_ACCESS_DENIED;
}

// A handler value that can't be written: 0, and nothing said after the start.
TEST_F(ContextMenuTest, AHandlerValueRefusedGives0)
{
    ImportPatch refused(TesselDll(), "advapi32.dll", "RegSetValueExW", reinterpret_cast<void*>(&RefuseSet));
    Given(L"")();
    Session session({{L"INSTALLDIR", L""}}, {});
    EXPECT_EQ(0u, session.Call("CreateHalyardContextMenu64"));
    EXPECT_EQ(Lines{kBrio64Start}, session.Log());
}

// A library the shell holds loaded goes to the temporary folder at once and from there at the restart, with
// the older build beside it. A second run finds it gone: no regsvr32, the failed move logged, still 1.
TEST_F(ContextMenuTest, UnregisteringMovesALoadedLibraryAndQueuesItsDelete)
{
    const std::wstring library = kSuite + L"\\kestramenu64.dll";
    Given(L"", library, true)();
    ASSERT_TRUE(CopyFileW((ProgramFolder() + L"menu_extension.dll").c_str(), library.c_str(), FALSE));
    HMODULE loaded = LoadLibraryW(library.c_str());
    for (int run = 0; run < 2; ++run) {
        Session session;
        EXPECT_EQ(1u, session.Call("UnregisterHalyardContextMenu64"));
        Lines log = {kUnregisterStart, kUnregistering};
        if (run == 1)
            log.push_back(L"Tessel_CA MoveFile UnregisterBrioN() - " + library);
        EXPECT_EQ(log, session.Log());
    }
    FreeLibrary(loaded);
    EXPECT_EQ(Lines{Regsvr32(library, L"/s /u")}, RecordedCommandLines(kRegsvr32));
    EXPECT_TRUE(Exists(kParked) && !Exists(library));
    const std::wstring queued =
        L"\\??\\" + kParked + L'\0' + L'\0' + L"\\??\\" + kSuite + L"\\kestramenu.dll" + L'\0' + L'\0';
    EXPECT_EQ(queued + queued + L'\0', PendingRenames());
}

}  // namespace
