// A service for the service tests; its binary path names it and says how it behaves:
//   test_service.exe NAME [start=MS] [stop=MS] [hint=MS] [flat] [refuse]
// Without a name (the only service of its process needs none) it stands in for one whose path has no arguments.
// start, stop: how long it stays pending, its check point rising every 250 ms
// unless flat; hint: the wait hint it gives then; refuse: it takes no stop.
#include <windows.h>

#include <cwchar>

namespace {

// The number after `name` on the command line; 0 without it, 1 for a bare word.
DWORD Option(const wchar_t* name)
{
    const wchar_t* at = wcsstr(GetCommandLineW(), name);
    return at == NULL ? 0 : at[wcslen(name)] == L'=' ? wcstoul(at + wcslen(name) + 1, NULL, 10) : 1;
}

SERVICE_STATUS_HANDLE g_handle;
SERVICE_STATUS g_status = {SERVICE_WIN32_OWN_PROCESS};
HANDLE g_stopAsked = CreateEventW(NULL, TRUE, FALSE, NULL);

// Reports `state`, for `ms` if it is a pending one.
void Report(DWORD state, DWORD ms = 0)
{
    const bool pending = state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
    g_status.dwCurrentState = state;
    g_status.dwControlsAccepted = state == SERVICE_RUNNING && !Option(L" refuse") ? SERVICE_ACCEPT_STOP : 0;
    g_status.dwCheckPoint = pending ? 1 : 0;
    g_status.dwWaitHint = pending ? Option(L" hint") : 0;
    for (DWORD waited = 0; SetServiceStatus(g_handle, &g_status) && waited < ms; waited += 250) {
        Sleep(250);
        g_status.dwCheckPoint += Option(L" flat") ? 0 : 1;
    }
}

DWORD WINAPI OnControl(DWORD control, DWORD, LPVOID, LPVOID)
{
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);  // before the request returns, as a test may look at once
        SetEvent(g_stopAsked);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, LPWSTR* argv)
{
    g_handle = RegisterServiceCtrlHandlerExW(argv[0], OnControl, NULL);
    Report(SERVICE_START_PENDING, Option(L" start"));
    Report(SERVICE_RUNNING);
    WaitForSingleObject(g_stopAsked, INFINITE);
    Report(SERVICE_STOP_PENDING, Option(L" stop"));
    Report(SERVICE_STOPPED);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    SERVICE_TABLE_ENTRYW table[] = {{argv[argc > 1 ? 1 : 0], ServiceMain}, {NULL, NULL}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
