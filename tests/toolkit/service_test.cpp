// The service layer against the prefix's real service control manager, with
// test services whose binary path says how they start and stop. Operations
// whose debugger messages matter run in service_probe.exe under a debugger loop.
#include "toolkit/area.h"

#include "toolkit/service.h"

#include <gmock/gmock.h>

#include <thread>

using harness::DebugOutput;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Cleared by the machine-state fixture.
const wchar_t kServiceA[] = L"TesselTestServiceA";
const wchar_t kServiceB[] = L"TesselTestServiceB";
const wchar_t kServiceC[] = L"TesselTestServiceC";

const wchar_t kStarted[] = L"Service started successfully.\n";
const wchar_t kStopped[] = L"Service stopped successfully.\n";
const wchar_t kStopPending[] = L"Service stop pending...\n";
const wchar_t kTimeoutWaitingForStop[] = L"Error: Timeout waiting for service to stop.\n";

class ServiceControlTest : public harness::ActionTest {
protected:
    ServiceControlTest() : ActionTest(ToolkitArea()) {}
};

class ScManager {
public:
    ScManager() : handle_(OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS)) {}
    ~ScManager() { CloseServiceHandle(handle_); }
    operator SC_HANDLE() const { return handle_; }

private:
    SC_HANDLE handle_;
};

// Installs the test service under `name`; `behaviour` goes into its binary path.
void CreateTestService(const wchar_t* name, const std::wstring& behaviour = L"",
                       DWORD startType = SERVICE_DEMAND_START)
{
    ScManager manager;
    std::wstring path = L"\"" + harness::ProgramFolder() + L"test_service.exe\" " + name + L" " + behaviour;
    SC_HANDLE service = CreateServiceW(manager, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, startType,
                                       SERVICE_ERROR_IGNORE, path.c_str(), NULL, NULL, NULL, NULL, NULL);
    ASSERT_TRUE(service != NULL) << "CreateServiceW failed with " << GetLastError();
    CloseServiceHandle(service);
}

// The service's status; a state of 0 when it doesn't exist.
SERVICE_STATUS_PROCESS Status(const wchar_t* name)
{
    SERVICE_STATUS_PROCESS status = {};
    ScManager manager;
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_QUERY_STATUS);
    if (service == NULL)
        return status;
    DWORD needed = 0;
    QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof(status),
                         &needed);
    CloseServiceHandle(service);
    return status;
}

bool Exists(const wchar_t* name)
{
    return Status(name).dwCurrentState != 0;
}

// Polls for `state` for up to `timeoutMs`.
bool WaitForState(const wchar_t* name, DWORD state, DWORD timeoutMs)
{
    const DWORD begin = GetTickCount();
    while (Status(name).dwCurrentState != state) {
        if (GetTickCount() - begin >= timeoutMs)
            return false;
        Sleep(50);
    }
    return true;
}

// Starts and stops behind the layer's back, to set a scene.
void StartDirectly(const wchar_t* name)
{
    ScManager manager;
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_START);
    ASSERT_TRUE(service != NULL);
    EXPECT_TRUE(StartServiceW(service, 0, NULL));
    CloseServiceHandle(service);
    ASSERT_TRUE(WaitForState(name, SERVICE_RUNNING, 10000));
}

void RequestStop(const wchar_t* name)
{
    ScManager manager;
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_STOP);
    ASSERT_TRUE(service != NULL);
    SERVICE_STATUS status = {};
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    CloseServiceHandle(service);
    ASSERT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), Status(name).dwCurrentState);
}

struct ProbeRun {
    DebugOutput output;
    DWORD ms;
};

// One layer operation in service_probe.exe: "start", "stop", "quiet" or "delete".
ProbeRun Probe(const wchar_t* operation, const wchar_t* name, DWORD timeoutMs = 20000)
{
    std::wstring line = L"\"" + harness::ProgramFolder() + L"service_probe.exe\" " + operation + L" " + name;
    ProbeRun run;
    const DWORD begin = GetTickCount();
    run.output = harness::RunUnderDebugger(line, timeoutMs);
    run.ms = GetTickCount() - begin;
    return run;
}

// Installs the test service and starts it behind the layer's back.
void CreateRunningService(const wchar_t* name, const std::wstring& behaviour)
{
    CreateTestService(name, behaviour);
    StartDirectly(name);
}

typedef std::vector<std::wstring> Texts;

// Runs the probe to its end and checks its result and its exact messages.
ProbeRun ExpectProbe(const wchar_t* operation, const wchar_t* name, DWORD result, const Texts& messages)
{
    ProbeRun run = Probe(operation, name);
    EXPECT_TRUE(run.output.finished) << "still running: " << operation;
    EXPECT_EQ(result, run.output.exitCode) << operation;
    EXPECT_EQ(messages, run.output.messages) << operation;
    return run;
}

TEST(ServicePollLength, IsATenthOfTheHintWithinOneAndTenSeconds)
{
    EXPECT_EQ(1000u, ServicePollLength(0));
    EXPECT_EQ(1000u, ServicePollLength(10009));
    EXPECT_EQ(1001u, ServicePollLength(10010));
    EXPECT_EQ(2500u, ServicePollLength(25000));
    EXPECT_EQ(10000u, ServicePollLength(100009));
    EXPECT_EQ(10000u, ServicePollLength(100010));
    EXPECT_EQ(10000u, ServicePollLength(0xFFFFFFFFu));
}

TEST_F(ServiceControlTest, StartStartsAStoppedServiceAndLeavesAStartedOneAlone)
{
    CreateTestService(kServiceA);
    ExpectProbe(L"start", kServiceA, 1, {kStarted});
    SERVICE_STATUS_PROCESS running = Status(kServiceA);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), running.dwCurrentState);

    // Running already: true, and no attempt, which would fail and say so.
    ExpectProbe(L"start", kServiceA, 1, {});
    EXPECT_EQ(running.dwProcessId, Status(kServiceA).dwProcessId);

    ExpectProbe(L"start", kServiceC, 0, {});  // not installed

    CreateTestService(kServiceB, L"", SERVICE_DISABLED);
    ExpectProbe(L"start", kServiceB, 0, {L"Unable to start service and Error code is 1058"});
}

TEST_F(ServiceControlTest, StartWaitsWhileTheCheckPointRises)
{
    // Well past the 1 s hint, but the check point keeps rising.
    CreateTestService(kServiceA, L"start-ms=3500 start-hint=1000");
    ProbeRun run = ExpectProbe(L"start", kServiceA, 1, {kStarted});
    EXPECT_GE(run.ms, 3500u);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), Status(kServiceA).dwCurrentState);
}

TEST_F(ServiceControlTest, StartGivesUpOnAFlatCheckPointAfterTheWaitHint)
{
    // A 2.5 s hint polled every second: given up at the third poll.
    CreateTestService(kServiceA, L"start-ms=30000 start-hint=2500 flat");
    ProbeRun run = ExpectProbe(L"start", kServiceA, 0, {L"Warning: Service did not start successfully.\n"});
    EXPECT_GE(run.ms, 2500u);
    EXPECT_LT(run.ms, 5000u);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_START_PENDING), Status(kServiceA).dwCurrentState);
}

TEST_F(ServiceControlTest, StartJudgesAPendingStopOnePassAtATime)
{
    // A hint under the 1 s poll: the first pass without a new check point fails.
    CreateRunningService(kServiceA, L"stop-never stop-hint=500");
    RequestStop(kServiceA);
    ProbeRun run = ExpectProbe(L"start", kServiceA, 0, {kTimeoutWaitingForStop});
    EXPECT_GE(run.ms, 1000u);
    EXPECT_LT(run.ms, 2500u);

    // A hint longer than a pass: the clock restarts each pass, so it waits on
    // without end. The probe is ended after 4 s, still silent.
    CreateRunningService(kServiceB, L"stop-never stop-hint=1500");
    RequestStop(kServiceB);
    run = Probe(L"start", kServiceB, 4000);
    EXPECT_FALSE(run.output.finished);
    EXPECT_THAT(run.output.messages, IsEmpty());

    // A stop that ends within a pass reads as no progress: the stopped
    // service's check point and hint are 0.
    CreateRunningService(kServiceC, L"stop-ms=1500 stop-hint=0");
    RequestStop(kServiceC);
    ExpectProbe(L"start", kServiceC, 0, {kTimeoutWaitingForStop});
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), Status(kServiceC).dwCurrentState);
}

TEST_F(ServiceControlTest, StopStopsAndSaysWhatHappened)
{
    CreateRunningService(kServiceA, L"stop-ms=300");
    ExpectProbe(L"stop", kServiceA, 1, {kStopped});
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), Status(kServiceA).dwCurrentState);

    ExpectProbe(L"stop", kServiceA, 1, {L"Service is already stopped.\n"});
    ExpectProbe(L"stop", kServiceC, 0, {});  // not installed

    CreateRunningService(kServiceB, L"refuse-stop");
    ExpectProbe(L"stop", kServiceB, 0, {L"Error: ControlService failed.\n"});
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), Status(kServiceB).dwCurrentState);
}

TEST_F(ServiceControlTest, StopSleepsTheServicesOwnWaitHintUnbounded)
{
    // Stopped after 0.3 s, but the first look comes after the whole 3 s hint.
    CreateRunningService(kServiceA, L"stop-ms=300 stop-hint=3000");
    ProbeRun run = ExpectProbe(L"stop", kServiceA, 1, {kStopped});
    EXPECT_GE(run.ms, 3000u);

    // A hint of 0 polls without pause: done soon after the service, where a
    // bounded poll would look at 1 s and 2 s.
    CreateRunningService(kServiceB, L"stop-ms=1200 stop-hint=0");
    const DWORD begin = GetTickCount();
    EXPECT_TRUE(StopServiceAndWait(kServiceB));
    DWORD ms = GetTickCount() - begin;
    EXPECT_GE(ms, 1200u);
    EXPECT_LT(ms, 1800u);
}

TEST_F(ServiceControlTest, StopWaitsForAStopUnderWay)
{
    CreateRunningService(kServiceA, L"stop-ms=2500 stop-hint=1000");
    RequestStop(kServiceA);
    ProbeRun run = Probe(L"stop", kServiceA);
    EXPECT_EQ(1u, run.output.exitCode);
    // One line per 1 s poll, then the outcome.
    Texts messages = run.output.messages;
    ASSERT_GE(messages.size(), 3u);
    EXPECT_LE(messages.size(), 5u);
    EXPECT_EQ(kStopped, messages.back());
    messages.pop_back();
    EXPECT_THAT(messages, Each(std::wstring(kStopPending)));
}

TEST_F(ServiceControlTest, StopQuietlyGivesTheResultsWithoutAWord)
{
    CreateRunningService(kServiceA, L"stop-ms=300");
    ExpectProbe(L"quiet", kServiceA, 1, {});
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), Status(kServiceA).dwCurrentState);
    ExpectProbe(L"quiet", kServiceA, 1, {});  // already stopped
    ExpectProbe(L"quiet", kServiceC, 0, {});  // not installed

    CreateRunningService(kServiceB, L"refuse-stop");
    ExpectProbe(L"quiet", kServiceB, 0, {});
}

// The one slow case: three stops that each meet the deadline, run side by side.
TEST_F(ServiceControlTest, StopsGiveUpThirtySecondsAfterEntry)
{
    CreateRunningService(kServiceA, L"stop-ms=33000 stop-hint=1000");
    CreateRunningService(kServiceB, L"stop-never");
    CreateRunningService(kServiceC, L"stop-never stop-hint=1000");
    RequestStop(kServiceB);

    ProbeRun pendingRun = {};
    std::thread pending([&pendingRun] { pendingRun = Probe(L"stop", kServiceB, 45000); });
    bool quietResult = true;
    DWORD quietMs = 0;
    std::thread quiet([&quietResult, &quietMs] {
        const DWORD begin = GetTickCount();
        quietResult = StopServiceQuietly(kServiceC);
        quietMs = GetTickCount() - begin;
    });
    ProbeRun slowRun = Probe(L"stop", kServiceA, 45000);
    SERVICE_STATUS_PROCESS afterTimeout = Status(kServiceA);
    pending.join();
    quiet.join();

    // Asked to stop, it takes 33 s: the stop gives up and the service goes on stopping.
    EXPECT_EQ(0u, slowRun.output.exitCode);
    EXPECT_THAT(slowRun.output.messages, ElementsAre(kTimeoutWaitingForStop));
    EXPECT_GE(slowRun.ms, 30000u);
    EXPECT_LT(slowRun.ms, 33000u);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), afterTimeout.dwCurrentState);
    Sleep(600);
    EXPECT_GT(Status(kServiceA).dwCheckPoint, afterTimeout.dwCheckPoint);

    // Found stopping and never done: one line per 1 s poll, then the time-out.
    Texts messages = pendingRun.output.messages;
    EXPECT_EQ(0u, pendingRun.output.exitCode);
    EXPECT_GE(pendingRun.ms, 30000u);
    EXPECT_LT(pendingRun.ms, 33000u);
    ASSERT_GE(messages.size(), 25u);
    EXPECT_LE(messages.size(), 32u);
    EXPECT_EQ(L"Service stop timed out.\n", messages.back());
    messages.pop_back();
    EXPECT_THAT(messages, Each(std::wstring(kStopPending)));

    EXPECT_FALSE(quietResult);
    EXPECT_GE(quietMs, 30000u);
    EXPECT_LT(quietMs, 33000u);
}

TEST_F(ServiceControlTest, DeleteRemovesTheServiceSilently)
{
    CreateTestService(kServiceA);
    ExpectProbe(L"delete", kServiceA, 0, {});
    EXPECT_FALSE(Exists(kServiceA));
    ExpectProbe(L"delete", kServiceA, 0, {});  // gone already: nothing to say

    // A running service is only marked; it goes when it stops.
    CreateRunningService(kServiceB, L"stop-ms=300");
    DeleteServiceByName(kServiceB);
    EXPECT_TRUE(Exists(kServiceB));
    EXPECT_TRUE(StopServiceQuietly(kServiceB));
    const DWORD begin = GetTickCount();
    while (Exists(kServiceB) && GetTickCount() - begin < 5000)
        Sleep(50);
    EXPECT_FALSE(Exists(kServiceB));
}

}  // namespace
