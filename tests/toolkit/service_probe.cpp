// Runs one service operation, so that a test can watch its debugger messages
// from outside:  service_probe.exe start|stop|quiet|delete NAME
// The exit code is 1 for true and 0 for false (0 after a delete), 2 for bad use.
#include "toolkit/service.h"

#include <cwchar>

int wmain(int argc, wchar_t** argv)
{
    if (argc != 3)
        return 2;
    const wchar_t* operation = argv[1];
    const wchar_t* name = argv[2];
    if (wcscmp(operation, L"start") == 0)
        return StartServiceAndWait(name) ? 1 : 0;
    if (wcscmp(operation, L"stop") == 0)
        return StopServiceAndWait(name) ? 1 : 0;
    if (wcscmp(operation, L"quiet") == 0)
        return StopServiceQuietly(name) ? 1 : 0;
    if (wcscmp(operation, L"delete") == 0) {
        DeleteServiceByName(name);
        return 0;
    }
    return 2;
}
