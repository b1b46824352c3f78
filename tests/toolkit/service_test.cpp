// The service layer against the prefix's service manager, with a test service
// whose binary path says how it starts and stops. The operations' debugger
// messages are caught at the program's import; waits that would take seconds
// run on a fake clock.
#include "toolkit/area.h"

#include "toolkit/service.h"

#include <memory>

using namespace harness;

namespace {

const wchar_t kService[] = L"TesselTestService", kTimeout[] = L"Error: Timeout waiting for service to stop.\n",
              kPending[] = L"Service stop pending...\n", kGaveUp[] = L"Service stop timed out.\n";
// Where the service is, and the state each place shows.
enum Scene { kAbsent, kStopped, kDisabled, kRunning, kStopping, kStarting };
const DWORD kStates[] = {0, SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_RUNNING, SERVICE_STOP_PENDING,
                         SERVICE_START_PENDING};

// The polls of a pending stop show as one line: the fake clock tells how many there were.
Lines g_said;
void WINAPI Record(LPCWSTR text)
{
    if (g_said.empty() || g_said.back() != kPending || text != std::wstring(kPending))
        g_said.push_back(text);
}

DWORD State()
{
    return ServiceState(kService);
}

void Arrange(Scene scene, const std::wstring& behaviour)
{
    if (scene == kAbsent)
        return;
    InstallTestService(kService, behaviour, scene >= kRunning);
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service = OpenServiceW(manager, kService, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status;
    if (scene == kDisabled)
        ChangeServiceConfigW(service, SERVICE_NO_CHANGE, SERVICE_DISABLED, SERVICE_NO_CHANGE, NULL, NULL, NULL, NULL,
                             NULL, NULL, NULL);
    if (scene == kStopping)
        ControlService(service, SERVICE_CONTROL_STOP, &status);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

TEST_F(ToolkitTest, ServiceOperationsWaitAndSayWhatHappened)
{
    // Where the service is, how it behaves, the operation ("fake ...": on the fake clock), its result and
    // messages (a bare "clock": any reading), and the state after.
    const struct { Scene before; std::wstring behaviour, operation; bool result; Lines said; Scene after; } rows[] = {
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
        {kRunning, L"refuse", L"stop", 0, {L"Error: ControlService failed.\n"}, kRunning},
        {kStopping, L"stop=2500 hint=1000", L"stop", 1, {kPending, L"Service stopped successfully.\n"}, kStopped},
        // Sleeps of the raw hint, 3000 ms each with the tick read, until over 30 s from entry.
        {kRunning, L"stop=600000 hint=2999", L"fake stop", 0, {kTimeout, L"clock 33001"}, kStopping},
        // Polls of a tenth of the hint within 1 and 10 s (21 and 3 here), until over 30 s from entry.
        {kStopping, L"stop=600000 hint=14990 flat", L"fake stop", 0, {kPending, kGaveUp, L"clock 31501"}, kStopping},
        {kStopping, L"stop=600000 hint=200000 flat", L"fake stop", 0, {kPending, kGaveUp, L"clock 30004"}, kStopping},
        {kRunning, L"stop=600000 hint=2999", L"fake quiet", 0, {L"clock 33001"}, kStopping},
    };
    ImportPatch messages(GetModuleHandleW(NULL), "kernel32.dll", "OutputDebugStringW",
                         reinterpret_cast<void*>(Record));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operation + L" " + row.behaviour);
        ClearArea(kToolkitArea);
        Arrange(row.before, row.behaviour);
        g_said.clear();
        std::unique_ptr<FakeClock> clock(row.operation[0] == L'f' ? new FakeClock(GetModuleHandleW(NULL)) : nullptr);
        EXPECT_EQ(row.result, row.operation.find(L"start") != std::wstring::npos  ? StartServiceAndWait(kService)
                              : row.operation.find(L"stop") != std::wstring::npos ? StopServiceAndWait(kService)
                                                                                  : StopServiceQuietly(kService));
        if (clock)
            g_said.push_back(row.said.back() == L"clock" ? L"clock" : L"clock " + std::to_wstring(clock->Elapsed()));
        EXPECT_EQ(row.said, g_said);
        EXPECT_EQ(kStates[row.after], State());
    }
    // A handle left open would keep the service listed, marked for deletion.
    ClearArea(kToolkitArea);
    Arrange(kStopped, L"");
    DeleteServiceByName(kService);
    EXPECT_EQ(0u, State());
}

}  // namespace
