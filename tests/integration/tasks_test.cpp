// The scheduled-task actions through the DLL: their schtasks lines, recorded
// by a stand-in in the current directory, and once Wine's real schtasks.
#include "integration/area.h"

#include <ctime>
#include <memory>

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

std::wstring TempFolder()
{
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    return folder;
}

class TaskTest : public IntegrationTest {
protected:
    void SetUp() override
    {
        IntegrationTest::SetUp();
        InstallRecorder(kSchtasks);
        SetCurrentDirectoryW(kScratch.c_str());
    }
    void TearDown() override
    {
        native_.reset();
        for (const wchar_t* name : {L"StartHalyard", L"StartDVR"})
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kRunKey, name);
        for (const std::wstring& file : {TempFolder() + L"StartHalyardBM.xml", kStoredTask})
            DeleteFileW(file.c_str());
        IntegrationTest::TearDown();
    }
    std::unique_ptr<NativePrograms> native_{new NativePrograms{L"schtasks.exe"}};
};

std::wstring Create(const std::wstring& task, const std::wstring& definition)
{
    return L"schtasks /Create /TN \"" + task + L"\" /XML \"" + definition + L"\"";
}

std::wstring Change(const std::wstring& task, const std::wstring& program, const std::wstring& argument)
{
    return L"schtasks /change /TN \"" + task + L"\" /TR \"\\\"" + program + L"\\\" " + argument + L"\"";
}

std::wstring Delete(const std::wstring& task)
{
    return L"schtasks /delete /TN \"" + task + L"\" /F";
}

std::function<void()> Location(const std::wstring& folder)
{
    return [folder] { SetText(HKEY_LOCAL_MACHINE, kInstallKey, L"Location", folder); };
}

// Each action's lines and result. The change runs detached, so its line is awaited.
TEST_F(TaskTest, EachActionRunsItsSchtasksLines)
{
    const std::wstring bm = kApp + L"\\StartHalyardBM.xml", copy = TempFolder() + L"StartHalyardBM.xml";
    const auto benchmark = [&](std::function<void()> giBenchmark) {
        return [=] {
            Location(kApp)();
            PlaceDefinition(bm);
            giBenchmark();
        };
    };
    const auto gi = [](const std::wstring& text) {
        return [=] { SetText(HKEY_CURRENT_USER, kUserKey, L"GiBenchmark", text); };
    };
    const Lines benchmarkLines = {Create(L"StartHalyardBM", copy),
                                  Change(L"StartHalyardBM", kApp + L"\\halyardcmd.exe", L"benchmark")};
    const struct {
        const char* row;
        const char* action;
        std::function<void()> arrange;
        UINT result;
        Lines lines;
    } rows[] = {
        {"logon task", "CreateLogonSchTask", Location(kApp), 0,
         {Create(L"StartHalyard", kApp + L"\\StartHalyard.xml"),
          Change(L"StartHalyard", kApp + L"\\halyardcmd.exe", L"startwithdelay")}},
        // One backslash before the definition, two before the program; the empty argument leaves "\" ".
        {"capture task, folder with a backslash", "CreateDVRLogonSchTask", Location(kApp + L"\\"), 0,
         {Create(L"StartDVR", kApp + L"\\StartDVR.xml"), Change(L"StartDVR", kApp + L"\\\\CaptureServCmd.exe", L"")}},
        {"logon task without Location", "CreateLogonSchTask", nullptr, 1603, {}},
        {"capture task without Location", "CreateDVRLogonSchTask", nullptr, 1603, {}},
        {"benchmark copy registered", "CreateBenchMarkRunOnceSchTask", benchmark([] {}), 0, benchmarkLines},
        {"benchmark \"0\"", "CreateBenchMarkRunOnceSchTask", benchmark(gi(L"0")), 0, benchmarkLines},
        {"benchmark \"11\"", "CreateBenchMarkRunOnceSchTask", benchmark(gi(L"11")), 0, benchmarkLines},
        {"benchmark as a number", "CreateBenchMarkRunOnceSchTask",
         benchmark([] { SetDword(HKEY_CURRENT_USER, kUserKey, L"GiBenchmark", 1); }), 0, benchmarkLines},
        {"benchmark run already", "CreateBenchMarkRunOnceSchTask", benchmark(gi(L"1")), 0, {}},
        {"benchmark without definition", "CreateBenchMarkRunOnceSchTask", Location(kApp), 0, {}},
        {"benchmark without Location", "CreateBenchMarkRunOnceSchTask", nullptr, 0, {}},
        {"remove logon task", "RemoveHalyardSchedularTask", nullptr, 1, {Delete(L"StartHalyard")}},
        {"remove capture task", "RemoveDVRSchedularTask", nullptr, 1, {Delete(L"StartDVR")}},
        {"remove benchmark task", "RemoveBenchMarkRunOnceSchedularTask", nullptr, 1, {Delete(L"StartHalyardBM")}},
        {"remove updater task", "RemoveSchedularTask", nullptr, 1, {Delete(L"Orvel Updater")}},
        {"branding, lazy start", "DeleteSchedTaskonBranding",
         [] { SetDword(HKEY_LOCAL_MACHINE, kUserKey, L"LazeStart", 1); }, 0, {Delete(L"StartHalyard")}},
        {"branding, LazeStart 2", "DeleteSchedTaskonBranding",
         [] { SetDword(HKEY_LOCAL_MACHINE, kUserKey, L"LazeStart", 2); }, 0, {}},
        {"branding, no LazeStart", "DeleteSchedTaskonBranding", nullptr, 0, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.row);
        ClearArea(IntegrationArea());
        InstallRecorder(kSchtasks);
        SetText(HKEY_LOCAL_MACHINE, kRunKey, L"StartHalyard", L"old");
        SetText(HKEY_LOCAL_MACHINE, kRunKey, L"StartDVR", L"old");
        if (row.arrange)
            row.arrange();
        Session session;
        EXPECT_EQ(row.result, session.Call(row.action));
        EXPECT_EQ(row.lines, RecordedCommandLines(kSchtasks, row.lines.size()));
        // The logon tasks replace their Run values, even when they fail.
        EXPECT_EQ(row.action == std::string("CreateLogonSchTask"), !HasValue(HKEY_LOCAL_MACHINE, kRunKey, L"StartHalyard"));
        EXPECT_EQ(row.action == std::string("CreateDVRLogonSchTask"), !HasValue(HKEY_LOCAL_MACHINE, kRunKey, L"StartDVR"));
        EXPECT_EQ(Lines(), session.Log());
    }
}

// The registered copy starts tomorrow; the shipped definition is left as it was.
TEST_F(TaskTest, TheBenchmarkTaskRegistersARewrittenCopy)
{
    Location(kApp)();
    PlaceDefinition(kApp + L"\\StartHalyardBM.xml");
    Session session;
    EXPECT_EQ(0u, session.Call("CreateBenchMarkRunOnceSchTask"));
    EXPECT_EQ(2u, RecordedCommandLines(kSchtasks, 2).size());
    const std::string copy = ReadFileBytes(TempFolder() + L"StartHalyardBM.xml");
    const std::wstring text(reinterpret_cast<const wchar_t*>(copy.data()), copy.size() / sizeof(wchar_t));
    const size_t start = text.find(L"<StartBoundary>");
    ASSERT_NE(std::wstring::npos, start) << copy.size() << " bytes copied";
    const time_t tomorrow = time(NULL) + 86400;
    wchar_t date[16];
    wcsftime(date, 16, L"%Y-%m-%dT", localtime(&tomorrow));
    EXPECT_EQ(date, text.substr(start + 15, 11));
    EXPECT_EQ(kDefinition.size() * 2 + 2, ReadFileBytes(kApp + L"\\StartHalyardBM.xml").size());
}

// Nothing started: the removals give 0, the others their usual results.
TEST_F(TaskTest, WithoutSchtasksTheRemovalsGiveZero)
{
    Location(kApp)();
    RefusedProcessStarts refused;
    for (const char* action : {"RemoveHalyardSchedularTask", "RemoveDVRSchedularTask",
                               "RemoveBenchMarkRunOnceSchedularTask", "RemoveSchedularTask", "CreateLogonSchTask"}) {
        Session session;
        EXPECT_EQ(0u, session.Call(action)) << action;
    }
}

// A line that doesn't fit the 260 characters ends the action's process, as the runtime's handler does.
TEST_F(TaskTest, ALineTooLongEndsTheProcess)
{
    Location(kScratch + Repeat(L'f', 200))();
    EXPECT_EQ(static_cast<DWORD>(STATUS_STACK_BUFFER_OVERRUN),
              RunToExit(L"\"" + ProgramFolder() + L"action_host.exe\" CreateLogonSchTask"));
    EXPECT_EQ(Lines(), RecordedCommandLines(kSchtasks));
}

// Wine's own schtasks registers the task from the definition and deletes it again.
TEST_F(TaskTest, WinesSchtasksCreatesAndDeletesTheTask)
{
    DeleteFileW(kSchtasks.c_str());
    native_.reset();
    Location(kApp)();
    PlaceDefinition(kApp + L"\\StartHalyard.xml", true);
    Session session;
    EXPECT_EQ(0u, session.Call("CreateLogonSchTask"));
    EXPECT_TRUE(Exists(kStoredTask));
    EXPECT_EQ(1u, session.Call("RemoveHalyardSchedularTask"));
    EXPECT_FALSE(Exists(kStoredTask));
}

}  // namespace
