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

std::wstring g_name;
DWORD g_startMs = 0, g_startHint = 0, g_stopMs = 0, g_stopHint = 0;
bool g_flatStart = false, g_stopNever = false, g_refuseStop = false;
SERVICE_STATUS_HANDLE g_statusHandle = NULL;
HANDLE g_stopRequested = NULL;
DWORD g_checkPoint = 0;

void Report(DWORD state, DWORD waitHint, DWORD accepted)
{
    const bool pending = state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, accepted, NO_ERROR, 0, pending ? g_checkPoint : 0,
                             waitHint};
    SetServiceStatus(g_statusHandle, &status);
}

// Stays in a pending state for `ms`, raising the check point every 250 ms unless `flat`.
void StayPending(DWORD state, DWORD ms, DWORD waitHint, bool flat)
{
    for (DWORD begin = GetTickCount(), now = begin; now - begin < ms; now = GetTickCount()) {
        Sleep(ms - (now - begin) < 250 ? ms - (now - begin) : 250);
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
    }
    return control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_INTERROGATE ? NO_ERROR
                                                                                      : ERROR_CALL_NOT_IMPLEMENTED;
}

void WINAPI ServiceMain(DWORD, LPWSTR*)
{
    g_statusHandle = RegisterServiceCtrlHandlerExW(g_name.c_str(), OnControl, NULL);
    g_stopRequested = CreateEventW(NULL, TRUE, FALSE, NULL);
    g_checkPoint = 1;
    Report(SERVICE_START_PENDING, g_startHint, 0);
    StayPending(SERVICE_START_PENDING, g_startMs, g_startHint, g_flatStart);
    Report(SERVICE_RUNNING, 0, g_refuseStop ? 0 : SERVICE_ACCEPT_STOP);
    WaitForSingleObject(g_stopRequested, INFINITE);
    if (g_stopNever)
        Sleep(INFINITE);
    StayPending(SERVICE_STOP_PENDING, g_stopMs, g_stopHint, false);
    Report(SERVICE_STOPPED, 0, 0);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    g_name = argc > 1 ? argv[1] : L"";
    const struct { const wchar_t* name; DWORD* number; bool* flag; } options[] = {
        {L"start-ms=", &g_startMs, NULL}, {L"start-hint=", &g_startHint, NULL}, {L"stop-ms=", &g_stopMs, NULL},
        {L"stop-hint=", &g_stopHint, NULL}, {L"flat", NULL, &g_flatStart}, {L"stop-never", NULL, &g_stopNever},
        {L"refuse-stop", NULL, &g_refuseStop}};
    for (int i = 2; i < argc; ++i)
        for (const auto& option : options) {
            const size_t length = wcslen(option.name);
            if (option.number != NULL && wcsncmp(argv[i], option.name, length) == 0)
                *option.number = static_cast<DWORD>(wcstoul(argv[i] + length, NULL, 10));
            else if (option.flag != NULL && wcscmp(argv[i], option.name) == 0)
                *option.flag = true;
        }
    SERVICE_TABLE_ENTRYW table[] = {{&g_name[0], ServiceMain}, {NULL, NULL}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
