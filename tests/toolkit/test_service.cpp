// A service for the service layer's tests. Its binary path names it and says
// how it behaves:
//   test_service.exe NAME [start-ms=N] [start-hint=N] [flat] [stop-ms=N] [stop-hint=N] [stop-never]
//                         [refuse-stop]
// start-ms    stays SERVICE_START_PENDING this long before it runs
// start-hint  the wait hint it gives while starting
// flat        its check point does not rise while starting
// stop-ms     stays SERVICE_STOP_PENDING this long after a stop request, check point rising
// stop-hint   the wait hint it gives while stopping
// stop-never  stays SERVICE_STOP_PENDING with a flat check point until it is ended
// refuse-stop accepts no stop request
#include <windows.h>

#include <cwchar>
#include <string>

namespace {

const DWORD kCheckPointStep = 250;

std::wstring g_name;
DWORD g_startMs = 0;
DWORD g_startHint = 0;
bool g_flatStart = false;
DWORD g_stopMs = 0;
DWORD g_stopHint = 0;
bool g_stopNever = false;
bool g_refuseStop = false;

SERVICE_STATUS_HANDLE g_statusHandle = NULL;
HANDLE g_stopRequested = NULL;
DWORD g_checkPoint = 0;

void Report(DWORD state, DWORD waitHint, DWORD accepted)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = accepted;
    status.dwWin32ExitCode = NO_ERROR;
    status.dwCheckPoint = (state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING) ? g_checkPoint : 0;
    status.dwWaitHint = waitHint;
    SetServiceStatus(g_statusHandle, &status);
}

// Stays in a pending state for `ms`, raising the check point unless `flat`.
void StayPending(DWORD state, DWORD ms, DWORD waitHint, bool flat)
{
    DWORD begin = GetTickCount();
    while (GetTickCount() - begin < ms) {
        DWORD left = ms - (GetTickCount() - begin);
        Sleep(left < kCheckPointStep ? left : kCheckPointStep);
        if (!flat) {
            ++g_checkPoint;
            Report(state, waitHint, 0);
        }
    }
}

DWORD WINAPI OnControl(DWORD control, DWORD, LPVOID, LPVOID)
{
    if (control == SERVICE_CONTROL_STOP) {
        g_checkPoint = 1;
        Report(SERVICE_STOP_PENDING, g_stopHint, 0);
        SetEvent(g_stopRequested);
        return NO_ERROR;
    }
    if (control == SERVICE_CONTROL_INTERROGATE)
        return NO_ERROR;
    return ERROR_CALL_NOT_IMPLEMENTED;
}

void WINAPI ServiceMain(DWORD, LPWSTR*)
{
    g_statusHandle = RegisterServiceCtrlHandlerExW(g_name.c_str(), OnControl, NULL);
    if (g_statusHandle == NULL)
        return;
    g_stopRequested = CreateEventW(NULL, TRUE, FALSE, NULL);

    g_checkPoint = 1;
    Report(SERVICE_START_PENDING, g_startHint, 0);
    StayPending(SERVICE_START_PENDING, g_startMs, g_startHint, g_flatStart);
    Report(SERVICE_RUNNING, 0, g_refuseStop ? 0 : SERVICE_ACCEPT_STOP);

    WaitForSingleObject(g_stopRequested, INFINITE);
    if (g_stopNever) {
        for (;;)
            Sleep(INFINITE);
    }
    StayPending(SERVICE_STOP_PENDING, g_stopMs, g_stopHint, false);
    Report(SERVICE_STOPPED, 0, 0);
}

DWORD Number(const wchar_t* text)
{
    return static_cast<DWORD>(wcstoul(text, NULL, 10));
}

bool Option(const wchar_t* argument, const wchar_t* name, DWORD& value)
{
    size_t length = wcslen(name);
    if (wcsncmp(argument, name, length) != 0 || argument[length] != L'=')
        return false;
    value = Number(argument + length + 1);
    return true;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2)
        return 2;
    g_name = argv[1];
    for (int i = 2; i < argc; ++i) {
        const wchar_t* argument = argv[i];
        if (Option(argument, L"start-ms", g_startMs) || Option(argument, L"start-hint", g_startHint) ||
            Option(argument, L"stop-ms", g_stopMs) || Option(argument, L"stop-hint", g_stopHint))
            continue;
        if (wcscmp(argument, L"flat") == 0)
            g_flatStart = true;
        else if (wcscmp(argument, L"stop-never") == 0)
            g_stopNever = true;
        else if (wcscmp(argument, L"refuse-stop") == 0)
            g_refuseStop = true;
        else
            return 2;
    }

    SERVICE_TABLE_ENTRYW table[] = {{&g_name[0], ServiceMain}, {NULL, NULL}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
