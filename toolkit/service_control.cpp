// Service control over the service control manager. The waits and their
// quirks (a start's clock that restarts each pass, a stop that sleeps the
// service's raw wait hint) are part of how the package behaves: keep them.
#include "toolkit/service.h"

#include <cwchar>

namespace {

const DWORD kPollShortest = 1000;
const DWORD kPollLongest = 10000;
const DWORD kStopDeadline = 30000;

// The rights a stop asks for: stop, query, and the dependents' list that it never walks.
const DWORD kStopRights = SERVICE_STOP | SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS;

const wchar_t kTimeoutWaitingForStop[] = L"Error: Timeout waiting for service to stop.\n";

// Closes a manager or service handle on every way out.
class ScHandle {
public:
    explicit ScHandle(SC_HANDLE handle) : handle_(handle) {}
    ~ScHandle()
    {
        if (handle_ != NULL)
            CloseServiceHandle(handle_);
    }
    ScHandle(const ScHandle&) = delete;
    ScHandle& operator=(const ScHandle&) = delete;

    operator SC_HANDLE() const { return handle_; }

private:
    SC_HANDLE handle_;
};

// Where an operation's messages go: the debugger, or nowhere for the quiet stop.
class Messages {
public:
    explicit Messages(bool talkative) : talkative_(talkative) {}
    void Say(const wchar_t* text) const
    {
        if (talkative_)
            OutputDebugStringW(text);
    }

private:
    bool talkative_;
};

// A service opened through a manager of its own; both handles close with it.
// A service that can't be opened is not worth a message.
class OpenedService {
public:
    OpenedService(const wchar_t* name, DWORD rights, const Messages& messages)
        : manager_(OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS)),
          service_(manager_ != NULL ? OpenServiceW(manager_, name, rights) : NULL)
    {
        if (manager_ == NULL)
            messages.Say(L"Error: Failed to open SCM.\n");
    }

    bool IsOpen() const { return service_ != NULL; }
    operator SC_HANDLE() const { return service_; }

private:
    ScHandle manager_;
    ScHandle service_;
};

bool QueryStatus(SC_HANDLE service, SERVICE_STATUS_PROCESS& status, const Messages& messages)
{
    DWORD needed = 0;
    if (QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof(status),
                             &needed))
        return true;
    messages.Say(L"Error: QueryServiceStatusEx failed.\n");
    return false;
}

bool DeadlinePassed(DWORD entry)
{
    return GetTickCount() - entry > kStopDeadline;
}

bool Stopped(const Messages& messages)
{
    messages.Say(L"Service stopped successfully.\n");
    return true;
}

bool StopAndWait(const wchar_t* name, const Messages& messages)
{
    const DWORD entry = GetTickCount();

    OpenedService service(name, kStopRights, messages);
    if (!service.IsOpen())
        return false;
    SERVICE_STATUS_PROCESS status = {};
    if (!QueryStatus(service, status, messages))
        return false;
    if (status.dwCurrentState == SERVICE_STOPPED) {
        messages.Say(L"Service is already stopped.\n");
        return true;
    }

    // Someone else's stop is under way: wait for it rather than ask again.
    while (status.dwCurrentState == SERVICE_STOP_PENDING) {
        messages.Say(L"Service stop pending...\n");
        Sleep(ServicePollLength(status.dwWaitHint));
        if (!QueryStatus(service, status, messages))
            return false;
        if (status.dwCurrentState == SERVICE_STOPPED)
            return Stopped(messages);
        if (DeadlinePassed(entry)) {
            messages.Say(L"Service stop timed out.\n");
            return false;
        }
    }

    // SERVICE_STATUS is the head of SERVICE_STATUS_PROCESS.
    if (!ControlService(service, SERVICE_CONTROL_STOP, reinterpret_cast<LPSERVICE_STATUS>(&status))) {
        messages.Say(L"Error: ControlService failed.\n");
        return false;
    }
    // The service's own hint, unbounded: a hint of 0 polls without pause.
    while (status.dwCurrentState != SERVICE_STOPPED) {
        Sleep(status.dwWaitHint);
        if (!QueryStatus(service, status, messages))
            return false;
        if (status.dwCurrentState == SERVICE_STOPPED)
            break;
        if (DeadlinePassed(entry)) {
            messages.Say(kTimeoutWaitingForStop);
            return false;
        }
    }
    return Stopped(messages);
}

}  // namespace

DWORD ServicePollLength(DWORD waitHint)
{
    DWORD poll = waitHint / 10;
    if (poll < kPollShortest)
        return kPollShortest;
    if (poll > kPollLongest)
        return kPollLongest;
    return poll;
}

bool StartServiceAndWait(const wchar_t* name)
{
    const Messages messages(true);
    OpenedService service(name, SERVICE_ALL_ACCESS, messages);
    if (!service.IsOpen())
        return false;
    SERVICE_STATUS_PROCESS status = {};
    if (!QueryStatus(service, status, messages))
        return false;
    // Running, starting or paused: started enough.
    if (status.dwCurrentState != SERVICE_STOPPED && status.dwCurrentState != SERVICE_STOP_PENDING)
        return true;

    // Let a stop under way finish. The clock restarts with every pass, so a
    // pass is judged on its own against the latest wait hint.
    while (status.dwCurrentState == SERVICE_STOP_PENDING) {
        DWORD passStart = GetTickCount();
        DWORD checkPoint = status.dwCheckPoint;
        Sleep(ServicePollLength(status.dwWaitHint));
        if (!QueryStatus(service, status, messages))
            return false;
        if (status.dwCheckPoint <= checkPoint && GetTickCount() - passStart > status.dwWaitHint) {
            messages.Say(kTimeoutWaitingForStop);
            return false;
        }
    }

    if (!StartServiceW(service, 0, NULL)) {
        wchar_t message[64];
        swprintf(message, sizeof(message) / sizeof(message[0]), L"Unable to start service and Error code is %d",
                 static_cast<int>(GetLastError()));
        messages.Say(message);
        return false;
    }
    if (!QueryStatus(service, status, messages))
        return false;

    // Waited for as long as the check point keeps rising; a flat one gets
    // the wait hint, counted from the last rise.
    DWORD noted = GetTickCount();
    DWORD checkPoint = status.dwCheckPoint;
    while (status.dwCurrentState == SERVICE_START_PENDING) {
        Sleep(ServicePollLength(status.dwWaitHint));
        if (!QueryStatus(service, status, messages))
            break;
        if (status.dwCheckPoint > checkPoint) {
            noted = GetTickCount();
            checkPoint = status.dwCheckPoint;
        } else if (GetTickCount() - noted > status.dwWaitHint) {
            break;
        }
    }

    if (status.dwCurrentState == SERVICE_RUNNING) {
        messages.Say(L"Service started successfully.\n");
        return true;
    }
    messages.Say(L"Warning: Service did not start successfully.\n");
    return false;
}

bool StopServiceAndWait(std::wstring name)
{
    return StopAndWait(name.c_str(), Messages(true));
}

bool StopServiceQuietly(const wchar_t* name)
{
    return StopAndWait(name, Messages(false));
}

void DeleteServiceByName(const wchar_t* name)
{
    OpenedService service(name, DELETE, Messages(false));
    if (service.IsOpen())
        DeleteService(service);
}
