// The scheduled-task actions through the DLL: their schtasks lines, recorded
// by a stand-in in the current directory, and once Wine's real schtasks.
#include "integration/area.h"

using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kApp = kScratch + L"App Folder", kSchtasks = kScratch + L"schtasks.exe";
const std::wstring kCopy = TempFolder() + L"StartHalyardBM.xml";
const wchar_t kRunKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
const wchar_t kUserKey[] = L"SOFTWARE\\Orvel\\Halyard";
const std::wstring kTask = L"<Task><Triggers><LogonTrigger><StartBoundary>2020-01-01T00:00:00</StartBoundary>"
                           L"</LogonTrigger></Triggers><Actions><Exec><Command>a.exe</Command></Exec></Actions></Task>";

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

const Lines kBenchmarkLines = {Create(L"StartHalyardBM", kCopy),
                               Change(L"StartHalyardBM", L"halyardcmd.exe", L"benchmark")};

// The recorder as schtasks, both Run values, Location if given, then `more`.
void Given(const std::wstring& location, std::function<void()> more = nullptr)
{
    InstallRecorder(kSchtasks);
    SetCurrentDirectoryW(kScratch.c_str());
    for (const wchar_t* name : {L"StartHalyard", L"StartDVR"})
        SetText(HKEY_LOCAL_MACHINE, kRunKey, name, L"old");
    if (!location.empty())
        SetText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Halyard", L"Location", location);
    if (more)
        more();
}

std::function<void()> Benchmark(std::function<void()> more = nullptr)
{
    return [=] {
        MakeFile(kApp + L"\\StartHalyardBM.xml", Definition(kTask));
        if (more)
            more();
    };
}

// The lines (the change runs detached: awaited), the Run value that went (none but the logon tasks'), the result.
TEST_F(TaskTest, EachActionRunsItsSchtasksLines)
{
    const auto gi = [](const std::wstring& text) {
        return [=] { SetText(HKEY_CURRENT_USER, kUserKey, L"GiBenchmark", text); };
    };
    const auto laze = [](DWORD value) { return [=] { SetDword(HKEY_LOCAL_MACHINE, kUserKey, L"LazeStart", value); }; };
    const std::wstring del = L"schtasks /delete /TN ";
    const struct {
        const char* action;
        std::wstring location;
        std::function<void()> more;
        UINT result;
        Lines lines;
        const wchar_t* runValueGone;
    } rows[] = {
        {"CreateLogonSchTask", kApp, nullptr, 0,
         {Create(L"StartHalyard", kApp + L"\\StartHalyard.xml"),
          Change(L"StartHalyard", L"halyardcmd.exe", L"startwithdelay")},
         L"StartHalyard"},
        // A folder ending in a backslash: one before the definition, two before the program.
        {"CreateDVRLogonSchTask", kApp + L"\\", nullptr, 0,
         {Create(L"StartDVR", kApp + L"\\StartDVR.xml"), Change(L"StartDVR", L"\\CaptureServCmd.exe", L"")},
         L"StartDVR"},
        {"CreateLogonSchTask", L"", nullptr, 1603, {}, L"StartHalyard"},
        {"CreateBenchMarkRunOnceSchTask", kApp, Benchmark(), 0, kBenchmarkLines, L""},
        {"CreateBenchMarkRunOnceSchTask", kApp, Benchmark(gi(L"0")), 0, kBenchmarkLines, L""},
        {"CreateBenchMarkRunOnceSchTask", kApp,
         Benchmark([] { SetDword(HKEY_CURRENT_USER, kUserKey, L"GiBenchmark", 1); }), 0, kBenchmarkLines, L""},
        {"CreateBenchMarkRunOnceSchTask", kApp, Benchmark(gi(L"1")), 0, {}, L""},
        {"CreateBenchMarkRunOnceSchTask", kApp, nullptr, 0, {}, L""},  // no definition
        {"CreateBenchMarkRunOnceSchTask", L"", Benchmark(), 0, {}, L""},  // no Location
        {"RemoveHalyardSchedularTask", L"", nullptr, 1, {del + L"\"StartHalyard\" /F"}, L""},
        {"RemoveDVRSchedularTask", L"", nullptr, 1, {del + L"\"StartDVR\" /F"}, L""},
        {"RemoveBenchMarkRunOnceSchedularTask", L"", nullptr, 1, {del + L"\"StartHalyardBM\" /F"}, L""},
        {"RemoveSchedularTask", L"", nullptr, 1, {del + L"\"Orvel Updater\" /F"}, L""},
        {"DeleteSchedTaskonBranding", L"", laze(1), 0, {del + L"\"StartHalyard\" /F"}, L""},
        {"DeleteSchedTaskonBranding", L"", laze(2), 0, {}, L""},
        // An empty value is read as the number the action starts from: none.
        {"DeleteSchedTaskonBranding", L"",
         [] { SetValue(HKEY_LOCAL_MACHINE, kUserKey, L"LazeStart", REG_BINARY, L"", 0); }, 0, {}, L""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.action << " row " << (&row - rows));
        ClearArea(IntegrationArea());
        Given(row.location, row.more);
        Session session;
        EXPECT_EQ(row.result, session.Call(row.action));
        EXPECT_EQ(row.lines, RecordedCommandLines(kSchtasks, row.lines.size()));
        for (const wchar_t* name : {L"StartHalyard", L"StartDVR"})
            EXPECT_EQ(std::wstring(row.runValueGone) == name, !HasValue(HKEY_LOCAL_MACHINE, kRunKey, name)) << name;
        EXPECT_TRUE(session.Log().empty() && Exists(kCopy) == (row.lines == kBenchmarkLines));
    }
}

// Nothing started: the removals give 0, a logon task its usual 0. A line of 259 characters, its change line
// here, fits the 260 of the buffer; one more ends the action's process, as the runtime's handler does.
TEST_F(TaskTest, SchtasksNotStartedOrALineTooLong)
{
    Given(kApp);
    {
        RefusedProcessStarts refused;
        for (const char* action : {"RemoveHalyardSchedularTask", "RemoveDVRSchedularTask",
                                   "RemoveBenchMarkRunOnceSchedularTask", "RemoveSchedularTask", "CreateLogonSchTask"})
            EXPECT_EQ(0u, Session().Call(action)) << action;
    }
    for (const size_t length : {165, 166}) {
        Given(kScratch + Repeat(L'f', length));
        EXPECT_EQ(length == 165 ? 0 : static_cast<DWORD>(STATUS_STACK_BUFFER_OVERRUN),
                  RunToExit(L"\"" + ProgramFolder() + L"action_host.exe\" CreateLogonSchTask"));
    }
}

}  // namespace
