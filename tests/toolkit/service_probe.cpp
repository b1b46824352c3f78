// Runs one service operation, so that a test can watch its debugger messages
// from outside:  service_probe.exe start|stop|quiet|delete NAME [fake]
// "fake" runs the library's Sleep and GetTickCount on the harness's fake clock.
// The exit code is 1 for true and 0 for false (0 after a delete), 2 for bad use.
#include "harness/harness.h"
#include "toolkit/service.h"

#include <memory>

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3 || argc > 4)
        return 2;
    std::unique_ptr<harness::FakeClock> clock(argc == 4 ? new harness::FakeClock(GetModuleHandleW(NULL)) : NULL);
    const std::wstring operation = argv[1];
    if (operation == L"start")
        return StartServiceAndWait(argv[2]) ? 1 : 0;
    if (operation == L"stop")
        return StopServiceAndWait(argv[2]) ? 1 : 0;
    if (operation == L"quiet")
        return StopServiceQuietly(argv[2]) ? 1 : 0;
    if (operation == L"delete")
        DeleteServiceByName(argv[2]);
    return operation == L"delete" ? 0 : 2;
}
