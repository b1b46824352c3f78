// The service layer against the prefix's service manager, with a test service
// whose binary path says how it starts and stops. Each operation runs in
// service_probe.exe, which records its debugger messages; waits that would
// take seconds run there on a fake clock.
#include "toolkit/area.h"

#include "toolkit/service.h"

using namespace harness;

namespace {

const wchar_t kService[] = L"TesselTestService", kTimeout[] = L"Error: Timeout waiting for service to stop.\n",
              kPending[] = L"Service stop pending...\n", kGaveUp[] = L"Service stop timed out.\n";
// Where the service is, and the state each place shows.
enum Scene { kAbsent, kStopped, kDisabled, kRunning, kStopping, kStarting };
const DWORD kStates[] = {0, SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_RUNNING, SERVICE_STOP_PENDING,
                         SERVICE_START_PENDING};

// The service's state; 0 when there is none.
DWORD State()
{
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, kService, SERVICE_QUERY_STATUS);
    SERVICE_STATUS status = {};
    QueryServiceStatus(service, &status);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return status.dwCurrentState;
}

void Arrange(Scene scene, const std::wstring& behaviour)
{
    if (scene == kAbsent)
        return;
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    const std::wstring path = L"\"" + ProgramFolder() + L"test_service.exe\" " + kService + L" " + behaviour;
    SC_HANDLE service = CreateServiceW(manager, kService, kService, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                       scene == kDisabled ? SERVICE_DISABLED : SERVICE_DEMAND_START,
                                       SERVICE_ERROR_IGNORE, path.c_str(), NULL, NULL, NULL, NULL, NULL);
    if (scene >= kRunning)
        StartServiceW(service, 0, NULL);
    for (int i = 0; i < 200 && scene >= kRunning && State() != SERVICE_RUNNING; ++i)
        Sleep(50);
    SERVICE_STATUS status;
    if (scene == kStopping)
        ControlService(service, SERVICE_CONTROL_STOP, &status);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

TEST_F(ToolkitTest, ServiceOperationsWaitAndSayWhatHappened)
{
    const auto afterPolls = [](size_t polls, Lines then) {
        then.insert(then.begin(), polls, kPending);
        return then;
    };
    // Where the service is, how it behaves, the operation ("fake ...": on the fake clock), its result and
    // messages (a bare "clock": any reading; `underWay`: after some "stop pending" lines), and the state after.
    const struct {
        Scene before;
        const wchar_t *behaviour, *operation;
        DWORD result;
        Lines said;
        Scene after;
        bool underWay;
    } rows[] = {
        {kStopped, L"start=2500 hint=1000", L"start", 1, {L"Service started successfully.\n"}, kRunning},  // rising
        {kRunning, L"", L"start", 1, {}, kRunning},
        {kAbsent, L"", L"start", 0, {}, kAbsent},
        {kDisabled, L"", L"start", 0, {L"Unable to start service and Error code is 1058"}, kStopped},
        {kStopped, L"start=600000 hint=2002 flat", L"fake start", 0,
         {L"Warning: Service did not start successfully.\n", L"clock 3004"}, kStarting},
        // A pending stop is judged a pass at a time; the stopped service's check point and hint are 0.
        {kStopping, L"stop=600000 hint=500 flat", L"fake start", 0, {kTimeout, L"clock 1002"}, kStopping},
        {kStopping, L"stop=1500 hint=1500", L"fake start", 0, {kTimeout, L"clock"}, kStopped},
        {kRunning, L"", L"stop", 1, {L"Service stopped successfully.\n"}, kStopped},
        {kStopped, L"", L"stop", 1, {L"Service is already stopped.\n"}, kStopped},
        {kAbsent, L"", L"stop", 0, {}, kAbsent},
        {kRunning, L"refuse", L"stop", 0, {L"Error: ControlService failed.\n"}, kRunning},
        {kStopping, L"stop=2500 hint=1000", L"stop", 1, {L"Service stopped successfully.\n"}, kStopped, true},
        // Sleeps of the raw hint, 3000 ms each with the tick read, until over 30 s from entry.
        {kRunning, L"stop=600000 hint=2999", L"fake stop", 0, {kTimeout, L"clock 33001"}, kStopping},
        // One line for each poll, a tenth of the hint within 1 and 10 s, until over 30 s from entry.
        {kStopping, L"stop=600000 hint=14990 flat", L"fake stop", 0, afterPolls(21, {kGaveUp, L"clock 31501"}),
         kStopping},
        {kStopping, L"stop=600000 hint=200000 flat", L"fake stop", 0, afterPolls(3, {kGaveUp, L"clock 30004"}),
         kStopping},
        {kRunning, L"stop=600000 hint=2999", L"fake quiet", 0, {L"clock 33001"}, kStopping},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::wstring(row.operation) + L" " + row.behaviour);
        ClearArea(ToolkitArea());
        Arrange(row.before, row.behaviour);
        const std::wstring probe = L"\"" + ProgramFolder() + L"service_probe.exe\" ";
        EXPECT_EQ(row.result, RunToExit(probe + row.operation + L" " + kService, 20000));
        const std::string recorded = ReadFileBytes(std::wstring(kScratchFolder) + L"probe.messages");
        Lines said;
        for (size_t start = 0, end; (end = recorded.find('\x1e', start)) != std::string::npos; start = end + 1)
            said.push_back(std::wstring(recorded.begin() + start, recorded.begin() + end));
        if (!said.empty() && !row.said.empty() && row.said.back() == L"clock")
            said.back().resize(5);
        size_t pending = 0;
        while (row.underWay && pending + 1 < said.size() && said[pending] == kPending)
            ++pending;
        EXPECT_EQ(row.underWay, pending > 0);
        EXPECT_EQ(row.said, Lines(said.begin() + pending, said.end()));
        EXPECT_EQ(kStates[row.after], State());
    }
}

// In this process, where a handle left open would keep the service listed, marked for deletion.
TEST_F(ToolkitTest, DeleteServiceByNameRemovesTheService)
{
    Arrange(kStopped, L"");
    DeleteServiceByName(kService);
    EXPECT_EQ(0u, State());
}

}  // namespace
