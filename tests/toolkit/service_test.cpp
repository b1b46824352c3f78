// The service layer against the prefix's service control manager. The test
// service's binary path says how it starts and stops (test_service.cpp). Each
// operation runs in service_probe.exe, which records its debugger messages;
// "+fake" runs it on a fake clock, so the 30-second deadline costs no real time.
#include "toolkit/area.h"

#include "toolkit/service.h"

using harness::Lines;

namespace {

const wchar_t kName[] = L"TesselTestServiceA";
const std::wstring kStopped = L"Service stopped successfully.\n";
const std::wstring kPending = L"Service stop pending...\n";
const std::wstring kTimeout = L"Error: Timeout waiting for service to stop.\n";

class ServiceControlTest : public harness::ActionTest {
protected:
    ServiceControlTest() : ActionTest(ToolkitArea()) {}
};

// Runs `body` on a service of `name` opened with `rights`.
template <typename Body>
void WithService(const wchar_t* name, DWORD rights, Body body)
{
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service = OpenServiceW(manager, name, rights);
    if (service != NULL)
        body(service);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

// The service's status; a state of 0 when it isn't installed.
SERVICE_STATUS_PROCESS Status()
{
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    WithService(kName, SERVICE_QUERY_STATUS, [&](SC_HANDLE service) {
        QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof(status),
                             &needed);
    });
    return status;
}

enum Scene { kNotInstalled, kDisabled, kInstalled, kRunning, kStopping };

// Sets the scene behind the layer's back.
void Arrange(Scene scene, const std::wstring& behaviour)
{
    if (scene == kNotInstalled)
        return;
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    const std::wstring path = L"\"" + harness::ProgramFolder() + L"test_service.exe\" " + kName + L" " + behaviour;
    CloseServiceHandle(CreateServiceW(manager, kName, kName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                      scene == kDisabled ? SERVICE_DISABLED : SERVICE_DEMAND_START,
                                      SERVICE_ERROR_IGNORE, path.c_str(), NULL, NULL, NULL, NULL, NULL));
    CloseServiceHandle(manager);
    SERVICE_STATUS ignored = {};
    if (scene >= kRunning)
        WithService(kName, SERVICE_START, [](SC_HANDLE service) { StartServiceW(service, 0, NULL); });
    for (int poll = 0; scene >= kRunning && Status().dwCurrentState != SERVICE_RUNNING && poll < 200; ++poll)
        Sleep(50);
    if (scene == kStopping)
        WithService(kName, SERVICE_STOP, [&](SC_HANDLE service) { ControlService(service, SERVICE_CONTROL_STOP, &ignored); });
}

// One operation in the probe: its result (1 or 0, STILL_ACTIVE when ended after `timeoutMs`), its
// messages, and how long it took.
struct ProbeRun {
    DWORD result;
    Lines messages;
    DWORD ms;
};
ProbeRun Probe(const std::wstring& operation, DWORD timeoutMs = 20000)
{
    const std::wstring fake = operation.find(L"+fake") != std::wstring::npos ? L" fake" : L"";
    const std::wstring line = L"\"" + harness::ProgramFolder() + L"service_probe.exe\" " +
                              operation.substr(0, operation.find(L'+')) + L" " + kName + fake;
    const std::wstring file = std::wstring(harness::kScratchFolder) + L"probe.messages";
    harness::MakeFolders(harness::kScratchFolder);
    DeleteFileW(file.c_str());
    const DWORD begin = GetTickCount();
    ProbeRun run = {harness::RunToExit(line, timeoutMs), {}, 0};
    run.ms = GetTickCount() - begin;
    const std::string bytes = harness::ReadFileBytes(file);
    const std::wstring text = bytes == "<missing>" ? L"" : std::wstring(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
    for (size_t start = 0, end; (end = text.find(L'\x1e', start)) != std::wstring::npos; start = end + 1)
        run.messages.push_back(text.substr(start, end - start));
    return run;
}

TEST(ServicePollLength, IsATenthOfTheHintWithinOneAndTenSeconds)
{
    for (DWORD hint : {0u, 10009u, 10010u, 25000u, 100009u, 100010u, 0xFFFFFFFFu})
        EXPECT_EQ(hint < 10010 ? 1000u : hint < 100010 ? hint / 10 : 10000u, ServicePollLength(hint)) << hint;
}

// Where a waiting operation has one real-time row, its minimum duration is given.
TEST_F(ServiceControlTest, EachOperationWaitsAndSaysWhatHappened)
{
    const struct {
        const char* row;
        Scene scene;
        const wchar_t* behaviour;
        const wchar_t* operation;
        DWORD result;
        Lines messages;
        DWORD stateAfter;
        DWORD atLeastMs;
    } cases[] = {
        {"start", kInstalled, L"start-ms=3500 start-hint=1000", L"start", 1, {L"Service started successfully.\n"},
         SERVICE_RUNNING, 3500},
        {"start when running", kRunning, L"", L"start", 1, {}, SERVICE_RUNNING, 0},
        {"start of none", kNotInstalled, L"", L"start", 0, {}, 0, 0},
        {"start disabled", kDisabled, L"", L"start", 0, {L"Unable to start service and Error code is 1058"},
         SERVICE_STOPPED, 0},
        {"start, flat check point", kInstalled, L"start-ms=30000 start-hint=2500 flat", L"start+fake", 0,
         {L"Warning: Service did not start successfully.\n"}, SERVICE_START_PENDING, 0},
        {"start, stop under way, short hint", kStopping, L"stop-never stop-hint=500", L"start+fake", 0, {kTimeout},
         SERVICE_STOP_PENDING, 0},
        // Stopped within the pass: a stopped service's check point and hint are 0, which reads as no progress.
        {"start, stop ends in the pass", kStopping, L"stop-ms=1500 stop-hint=0", L"start", 0, {kTimeout},
         SERVICE_STOPPED, 1000},
        // The service stops after 0.3 s; the first look comes after its whole hint.
        {"stop", kRunning, L"stop-ms=300 stop-hint=3000", L"stop", 1, {kStopped}, SERVICE_STOPPED, 3000},
        {"stop when stopped", kInstalled, L"", L"stop", 1, {L"Service is already stopped.\n"}, SERVICE_STOPPED, 0},
        {"stop of none", kNotInstalled, L"", L"stop", 0, {}, 0, 0},
        {"stop refused", kRunning, L"refuse-stop", L"stop", 0, {L"Error: ControlService failed.\n"},
         SERVICE_RUNNING, 0},
        {"stop past the deadline", kRunning, L"stop-never stop-hint=1000", L"stop+fake", 0, {kTimeout},
         SERVICE_STOP_PENDING, 0},
        // A stop under way is waited for, one line per 1 s poll; 30 polls reach the deadline.
        {"stop under way, never done", kStopping, L"stop-never", L"stop+fake", 0,
         [] { Lines lines(30, kPending); lines.push_back(L"Service stop timed out.\n"); return lines; }(),
         SERVICE_STOP_PENDING, 0},
        {"quiet stop", kRunning, L"stop-ms=300", L"quiet", 1, {}, SERVICE_STOPPED, 300},
        {"quiet stop refused", kRunning, L"refuse-stop", L"quiet", 0, {}, SERVICE_RUNNING, 0},
        {"quiet stop past the deadline", kStopping, L"stop-never", L"quiet+fake", 0, {}, SERVICE_STOP_PENDING, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.row);
        harness::ClearArea(ToolkitArea());
        Arrange(row.scene, row.behaviour);
        const DWORD pid = Status().dwProcessId;
        ProbeRun run = Probe(row.operation);
        EXPECT_EQ(row.result, run.result);
        EXPECT_EQ(row.messages, run.messages);
        EXPECT_EQ(row.stateAfter, Status().dwCurrentState);
        EXPECT_GE(run.ms, row.atLeastMs);
        if (row.scene == kRunning && std::wstring(row.operation) == L"start")
            EXPECT_EQ(pid, Status().dwProcessId);  // left alone
    }
}

// A stop found under way whose hint outlasts each pass restarts the pass's clock: it waits without end, silent.
TEST_F(ServiceControlTest, AStartWaitsOnAStopWhoseHintOutlastsEachPass)
{
    Arrange(kStopping, L"stop-never stop-hint=1500");
    ProbeRun run = Probe(L"start+fake", 3000);
    EXPECT_EQ(DWORD(STILL_ACTIVE), run.result);
    EXPECT_EQ(Lines(), run.messages);
}

TEST_F(ServiceControlTest, ARealStopUnderWayIsWaitedForAndADeleteIsSilent)
{
    Arrange(kStopping, L"stop-ms=2500 stop-hint=1000");
    Lines messages = Probe(L"stop").messages;
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ(kStopped, messages.back());
    messages.pop_back();
    EXPECT_EQ(Lines(messages.size(), kPending), messages);

    EXPECT_EQ(0u, Probe(L"delete").result);
    EXPECT_EQ(0u, Status().dwCurrentState);
    // A running service is only marked; it goes when it stops.
    Arrange(kRunning, L"stop-ms=300");
    DeleteServiceByName(kName);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), Status().dwCurrentState);
    EXPECT_TRUE(StopServiceQuietly(kName));
    for (int poll = 0; Status().dwCurrentState != 0 && poll < 100; ++poll)
        Sleep(50);
    EXPECT_EQ(0u, Status().dwCurrentState);
}

}  // namespace
