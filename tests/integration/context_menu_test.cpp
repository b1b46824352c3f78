// The context-menu actions through the DLL: the handler key, regsvr32's lines
// (recorded by a stand-in in the current directory, or Wine's own regsvr32 on
// a stand-in extension library) and the moves of a library in use.
#include "integration/area.h"

#include <memory>

using namespace std::string_literals;
using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kSuite = kScratch + L"Suite";
const std::wstring kRegsvr32 = kScratch + L"regsvr32.exe";
const wchar_t kClassId[] = L"{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}";
const wchar_t kHandlerKey[] = L"Directory\\Background\\shellex\\ContextMenuHandlers\\Lumen";
const std::wstring kServerKey = L"CLSID\\"s + kClassId + L"\\InprocServer32";
const std::wstring kBrio64Library = kSuite + L"\\Kestra.Lumen\\Core-Static\\kestramenu64.dll";
const std::wstring kHalyardLibrary = kSuite + L"\\Halyard\\Halyard\\kestramenuxx.dll";

const wchar_t kBrio64Start[] = L"Tessel_CA CreateBrioContextMenu64() start";
const wchar_t kBrio64Created[] = L"Tessel_CA CreateBrioContextMenu64() - Successfully created GUID";
const wchar_t kUnregisterStart[] = L"Tessel_CA UnregisterHalyardContextMenu() start";
const wchar_t kUnregistering[] = L"Tessel_CA UnregisterHalyardContextMenu() - GUID is already present unregister it";

std::wstring Register(const std::wstring& library)
{
    return L"regsvr32.exe /s \"" + library + L"\"";
}

std::wstring Unregister(const std::wstring& library)
{
    return L"regsvr32.exe /s /u\"" + library + L"\"";
}

std::wstring TempFolder()
{
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    return folder;
}

const std::wstring kParked = TempFolder() + L"attemp.dll";

void SetHandler(const std::wstring& text)
{
    SetText(HKEY_CLASSES_ROOT, kHandlerKey, L"", text);
}

void SetServer(const std::wstring& library)
{
    SetText(HKEY_CLASSES_ROOT, kServerKey, L"", library);
}

class ContextMenuTest : public IntegrationTest {
protected:
    void SetUp() override
    {
        IntegrationTest::SetUp();
        DeleteFileW(kParked.c_str());
        InstallRecorder(kRegsvr32);
        SetCurrentDirectoryW(kScratch.c_str());
    }
    void TearDown() override
    {
        native_.reset();
        IntegrationTest::TearDown();
        DeleteFileW(kParked.c_str());
    }
    std::unique_ptr<NativePrograms> native_{new NativePrograms{L"regsvr32.exe"}};
};

// Each action's result, log and regsvr32 lines, and the handler key afterwards.
TEST_F(ContextMenuTest, EachActionWritesTheKeyAndRunsRegsvr32)
{
    const auto suite = [](const Rows& more = {}) {
        Rows rows = {{L"INSTALLDIR", kSuite + L"\\"}};
        rows.insert(rows.end(), more.begin(), more.end());
        return rows;
    };
    const auto other = [] { SetHandler(L"other"); };
    const auto library = [](const std::wstring& path, bool registered) {
        return [=] {
            MakeFile(path);
            if (registered)
                SetServer(path);
        };
    };
    const std::wstring location = kScratch + L"Location";
    const auto atLocation = [=] {
        SetText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", L"Location", location);
        MakeFile(location + L"\\kestramenu64.dll");
    };
    const struct {
        const char* row;
        const char* action;
        Rows properties;
        std::function<void()> arrange;
        UINT result;
        Lines log;
        std::wstring handler;  // the key's default value afterwards
        Lines lines;
    } rows[] = {
        {"Brio 64, library there", "CreateBrioContextMenu64", suite(), library(kBrio64Library, false), 1,
         {kBrio64Start, kBrio64Created}, kClassId, {Register(kBrio64Library)}},
        {"Brio, value present, no library", "CreateBrioContextMenu", suite(), other, 1,
         {L"Tessel_CA CreateBrioContextMenu() start", L"Tessel_CA CreateBrioContextMenu() - GUID is already present"},
         L"other", {}},
        // The Halyard pair overwrites the value, and the 32-bit one logs the 64-bit success.
        {"Halyard, value overwritten", "CreateHalyardContextMenu", {{L"INSTALLDIR", kSuite}},
         [&] { other(); library(kHalyardLibrary, false)(); }, 1,
         {L"Tessel_CA CreateBrioContextMenu() start", kBrio64Created}, kClassId, {Register(kHalyardLibrary)}},
        {"Halyard 64 from Location", "CreateHalyardContextMenu64", {{L"INSTALLDIR", L""}}, atLocation, 1,
         {kBrio64Start, kBrio64Created}, kClassId, {Register(location + L"\\kestramenu64.dll")}},
        {"Halyard 64, no Location", "CreateHalyardContextMenu64", {{L"INSTALLDIR", L""}}, nullptr, 1,
         {kBrio64Start, kBrio64Created}, kClassId, {}},
        {"Brio, no folder", "CreateBrioContextMenu", {{L"INSTALLDIR", L""}}, nullptr, 1,
         {L"Tessel_CA CreateBrioContextMenu() start", L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID"},
         kClassId, {}},
        {"INSTALLDIR too long", "CreateBrioContextMenu64", {{L"INSTALLDIR", Repeat(L'p', 260)}}, nullptr, 0,
         {kBrio64Start}, L"<missing>", {}},
        {"unregister", "UnregisterHalyardContextMenu", {}, library(kHalyardLibrary, true), 1,
         {kUnregisterStart, kUnregistering}, L"<missing>", {Unregister(kHalyardLibrary)}},
        {"unregister, no class key", "UnregisterHalyardContextMenu", {}, nullptr, 0, {kUnregisterStart},
         L"<missing>", {}},
        {"unregister 64, no class key", "UnregisterHalyardContextMenu64", {}, nullptr, 0, {kUnregisterStart},
         L"<missing>", {}},
        {"handler key deleted", "DeleteHalyardShellRegistry", {}, [&] { other(); }, 1,
         {L"TESSEL_CA: HalyardShellRegKey  \n"}, L"<missing>", {}},
        {"no handler key to delete", "DeleteHalyardShellRegistry", {}, nullptr, 1,
         {L"TESSEL_CA: HalyardShellRegKey  \n"}, L"<missing>", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.row);
        ClearArea(IntegrationArea());
        InstallRecorder(kRegsvr32);
        if (row.arrange)
            row.arrange();
        Session session(row.properties, {});
        EXPECT_EQ(row.result, session.Call(row.action));
        EXPECT_EQ(row.log, session.Log());
        EXPECT_EQ(row.handler, TextOf(HKEY_CLASSES_ROOT, kHandlerKey, L""));
        EXPECT_EQ(row.lines, RecordedCommandLines(kRegsvr32));
        EXPECT_EQ(L"", PendingRenames());
    }
}

// A library the shell holds loaded goes to the temporary folder at once and from there at the restart, with
// the older build beside it. A second run finds it gone: no regsvr32, the failed move logged, still 1.
TEST_F(ContextMenuTest, UnregisteringMovesALoadedLibraryAndQueuesItsDelete)
{
    const std::wstring library = kSuite + L"\\kestramenu64.dll";
    MakeFolders(kSuite);
    ASSERT_TRUE(CopyFileW((ProgramFolder() + L"menu_extension.dll").c_str(), library.c_str(), FALSE));
    SetServer(library);
    HMODULE loaded = LoadLibraryW(library.c_str());
    ASSERT_NE(nullptr, loaded);
    for (int run = 0; run < 2; ++run) {
        Session session;
        EXPECT_EQ(1u, session.Call("UnregisterHalyardContextMenu64"));
        Lines log = {kUnregisterStart, kUnregistering};
        if (run == 1)
            log.push_back(L"Tessel_CA MoveFile UnregisterBrioN() - " + library);
        EXPECT_EQ(log, session.Log());
    }
    EXPECT_EQ(Lines{Unregister(library)}, RecordedCommandLines(kRegsvr32));
    EXPECT_TRUE(Exists(kParked) && !Exists(library));
    const std::wstring parked = L"\\??\\" + kParked + L'\0' + L'\0';
    const std::wstring older = L"\\??\\" + kSuite + L"\\kestramenu.dll" + L'\0' + L'\0';
    EXPECT_EQ(parked + older + parked + older + L'\0', PendingRenames());
    FreeLibrary(loaded);
}

// Wine's own regsvr32 calls the library's registration, which writes the class key. The unregister line, with
// no blank before its quote, reaches it as one word that names no library: the class stays.
TEST_F(ContextMenuTest, WinesRegsvr32RegistersTheLibrary)
{
    native_.reset();
    DeleteFileW(kRegsvr32.c_str());
    MakeFolders(kSuite + L"\\Kestra.Lumen\\Core-Static");
    ASSERT_TRUE(CopyFileW((ProgramFolder() + L"menu_extension.dll").c_str(), kBrio64Library.c_str(), FALSE));
    Session session({{L"INSTALLDIR", kSuite}}, {});
    EXPECT_EQ(1u, session.Call("CreateBrioContextMenu64"));
    EXPECT_EQ(kBrio64Library, TextOf(HKEY_CLASSES_ROOT, kServerKey, L""));
    EXPECT_EQ(1u, session.Call("UnregisterHalyardContextMenu"));
    EXPECT_EQ(kBrio64Library, TextOf(HKEY_CLASSES_ROOT, kServerKey, L""));
}

}  // namespace
