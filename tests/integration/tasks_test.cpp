// The scheduled-task actions through the DLL: their schtasks lines, recorded
// by a stand-in in the current directory, and once Wine's real schtasks.
#include "integration/area.h"


using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kApp = kScratch + L"App Folder";
const std::wstring kSchtasks = kScratch + L"schtasks.exe";
const wchar_t kInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\Halyard";
const wchar_t kRunKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
const wchar_t kUserKey[] = L"SOFTWARE\\Orvel\\Halyard";
// Where Wine's task scheduler keeps a task.
const std::wstring kStoredTask = L"C:\\windows\\system32\\tasks\\StartHalyard";

// No white space between tags, for Wine's XmlLite. Wine's task scheduler wants the schema's
// namespace, which Wine's XmlLite can't copy: the benchmark's definition goes without.
const std::string kNamespace = " xmlns=\"http://schemas.microsoft.com/windows/2004/02/mit/task\"";
const std::string kDefinition =
    "<?xml version=\"1.0\" encoding=\"UTF-16\"?><Task version=\"1.2\"><Triggers><LogonTrigger>"
    "<StartBoundary>2020-01-01T00:00:00</StartBoundary><Enabled>true</Enabled></LogonTrigger></Triggers>"
    "<Actions Context=\"Author\"><Exec><Command>C:\\windows\\notepad.exe</Command></Exec></Actions></Task>";

void PlaceDefinition(const std::wstring& path, bool withNamespace = false)
{
    std::string text = kDefinition;
    if (withNamespace)
        text.insert(text.find(">", text.find("<Task")), kNamespace);
    std::wstring wide(text.begin(), text.end());
    std::string bytes("\xFF\xFE", 2);
    bytes.append(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
    MakeFile(path, bytes);
}

class TaskTest : public IntegrationTest {
protected:
    void TearDown() override
    {
        for (const wchar_t* name : {L"StartHalyard", L"StartDVR"})
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kRunKey, name);
        IntegrationTest::TearDown();
    }
};

std::wstring Create(const std::wstring& task, const std::wstring& definition)
{
    return L"schtasks /Create /TN \"" + task + L"\" /XML \"" + definition + L"\"";
}

std::wstring Change(const std::wstring& task, const std::wstring& program, const std::wstring& argument)
{
    return L"schtasks /change /TN \"" + task + L"\" /TR \"\\\"" + kApp + L"\\" + program + L"\\\" " + argument + L"\"";
}

std::wstring Delete(const std::wstring& task)
{
    return L"schtasks /delete /TN \"" + task + L"\" /F";
}

void SetLocation(const std::wstring& folder)
{
    SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"Location", folder);
}

// The recorder as schtasks, both Run values, then Location and the benchmark's definition where given.
std::function<void()> Given(const std::wstring& location = L"", std::function<void()> more = nullptr)
{
    return [=] {
        InstallRecorder(kSchtasks);
        SetCurrentDirectoryW(kScratch.c_str());
        for (const wchar_t* name : {L"StartHalyard", L"StartDVR"})
            SetText(HKEY_LOCAL_MACHINE, kRunKey, name, L"old");
        if (!location.empty())
            SetLocation(location);
        if (more)
            more();
    };
}

// The lines recorded (the change runs detached: awaited), and which Run value went.
std::function<void(Session&)> Ran(const Lines& lines, const std::wstring& runValueGone = L"")
{
    return [=](Session&) {
        EXPECT_EQ(lines, RecordedCommandLines(kSchtasks, lines.size()));
        for (const wchar_t* name : {L"StartHalyard", L"StartDVR"})
            EXPECT_EQ(runValueGone == name, !HasValue(HKEY_LOCAL_MACHINE, kRunKey, name)) << name;
    };
}

TEST_F(TaskTest, EachActionRunsItsSchtasksLines)
{
    const auto definition = [] { PlaceDefinition(kApp + L"\\StartHalyardBM.xml"); };
    const auto benchmark = [&](const std::wstring& text) {
        return Given(kApp, [=] {
            definition();
            SetText(HKEY_CURRENT_USER, kUserKey, L"GiBenchmark", text);
        });
    };
    const auto laze = [](DWORD value) { return Given(L"", [=] { SetDword(HKEY_LOCAL_MACHINE, kUserKey, L"LazeStart", value); }); };
    // The copy in the temporary folder is what gets registered.
    const Lines bm = {Create(L"StartHalyardBM", TempFolder() + L"StartHalyardBM.xml"),
                      Change(L"StartHalyardBM", L"halyardcmd.exe", L"benchmark")};
    const auto registeredCopy = [&](Session& s) {
        Ran(bm)(s);
        EXPECT_TRUE(Exists(TempFolder() + L"StartHalyardBM.xml"));
    };
    RunCases({
        {"logon", "CreateLogonSchTask", {}, Given(kApp), 0, Exactly({}),
         Ran({Create(L"StartHalyard", kApp + L"\\StartHalyard.xml"),
              Change(L"StartHalyard", L"halyardcmd.exe", L"startwithdelay")}, L"StartHalyard")},
        // A folder ending in a backslash: one before the definition, two before the program.
        {"capture", "CreateDVRLogonSchTask", {}, Given(kApp + L"\\"), 0, Exactly({}),
         Ran({Create(L"StartDVR", kApp + L"\\StartDVR.xml"), Change(L"StartDVR", L"\\CaptureServCmd.exe", L"")},
             L"StartDVR")},
        {"logon, no Location", "CreateLogonSchTask", {}, Given(), 1603, Exactly({}), Ran({}, L"StartHalyard")},
        {"capture, no Location", "CreateDVRLogonSchTask", {}, Given(), 1603, Exactly({}), Ran({}, L"StartDVR")},
        {"benchmark", "CreateBenchMarkRunOnceSchTask", {}, Given(kApp, definition), 0, Exactly({}), registeredCopy},
        {"benchmark \"0\"", "CreateBenchMarkRunOnceSchTask", {}, benchmark(L"0"), 0, Exactly({}), Ran(bm)},
        {"benchmark \"11\"", "CreateBenchMarkRunOnceSchTask", {}, benchmark(L"11"), 0, Exactly({}), Ran(bm)},
        {"benchmark as a number", "CreateBenchMarkRunOnceSchTask", {},
         Given(kApp, [&] { definition(); SetDword(HKEY_CURRENT_USER, kUserKey, L"GiBenchmark", 1); }), 0,
         Exactly({}), Ran(bm)},
        {"benchmark run already", "CreateBenchMarkRunOnceSchTask", {}, benchmark(L"1"), 0, Exactly({}), Ran({})},
        {"benchmark, no definition", "CreateBenchMarkRunOnceSchTask", {}, Given(kApp), 0, Exactly({}), Ran({})},
        {"benchmark, no Location", "CreateBenchMarkRunOnceSchTask", {}, Given(), 0, Exactly({}), Ran({})},
        {"remove logon", "RemoveHalyardSchedularTask", {}, Given(), 1, Exactly({}), Ran({Delete(L"StartHalyard")})},
        {"remove capture", "RemoveDVRSchedularTask", {}, Given(), 1, Exactly({}), Ran({Delete(L"StartDVR")})},
        {"remove benchmark", "RemoveBenchMarkRunOnceSchedularTask", {}, Given(), 1, Exactly({}),
         Ran({Delete(L"StartHalyardBM")})},
        {"remove updater", "RemoveSchedularTask", {}, Given(), 1, Exactly({}), Ran({Delete(L"Orvel Updater")})},
        {"lazy start", "DeleteSchedTaskonBranding", {}, laze(1), 0, Exactly({}), Ran({Delete(L"StartHalyard")})},
        {"LazeStart 2", "DeleteSchedTaskonBranding", {}, laze(2), 0, Exactly({}), Ran({})},
        {"no LazeStart", "DeleteSchedTaskonBranding", {}, Given(), 0, Exactly({}), Ran({})},
    });
}

// Nothing started: the removals give 0, a logon task its usual 0. A line over 260 characters ends the
// action's process, as the runtime's handler does.
TEST_F(TaskTest, SchtasksNotStartedOrItsLineTooLong)
{
    Given(kApp)();
    {
        RefusedProcessStarts refused;
        for (const char* action : {"RemoveHalyardSchedularTask", "RemoveDVRSchedularTask",
                                   "RemoveBenchMarkRunOnceSchedularTask", "RemoveSchedularTask", "CreateLogonSchTask"})
            EXPECT_EQ(0u, Session().Call(action)) << action;
    }
    SetLocation(kScratch + Repeat(L'f', 200));
    EXPECT_EQ(static_cast<DWORD>(STATUS_STACK_BUFFER_OVERRUN),
              RunToExit(L"\"" + ProgramFolder() + L"action_host.exe\" CreateLogonSchTask"));
}

DWORD WINAPI NoTempPath(DWORD, LPWSTR)
{
    return 0;
}

// Without a temporary folder the copy fails on its empty path, and the create runs with that path.
TEST_F(TaskTest, WithoutATemporaryFolderTheBenchmarkRegistersAnEmptyPath)
{
    Given(kApp, [] { PlaceDefinition(kApp + L"\\StartHalyardBM.xml"); })();
    ImportPatch noTemp(TesselDll(), "kernel32.dll", "GetTempPathW", reinterpret_cast<void*>(&NoTempPath));
    EXPECT_EQ(0u, Session().Call("CreateBenchMarkRunOnceSchTask"));
    EXPECT_EQ((Lines{Create(L"StartHalyardBM", L""), Change(L"StartHalyardBM", L"halyardcmd.exe", L"benchmark")}),
              RecordedCommandLines(kSchtasks, 2));
}

// Wine's own schtasks registers the task from the definition and deletes it again.
TEST_F(TaskTest, WinesSchtasksCreatesAndDeletesTheTask)
{
    native_.reset();
    Given(kApp)();
    DeleteFileW(kSchtasks.c_str());
    PlaceDefinition(kApp + L"\\StartHalyard.xml", true);
    Session session;
    EXPECT_EQ(0u, session.Call("CreateLogonSchTask"));
    EXPECT_TRUE(Exists(kStoredTask));
    EXPECT_EQ(1u, session.Call("RemoveHalyardSchedularTask"));
    EXPECT_FALSE(Exists(kStoredTask));
}

}  // namespace
