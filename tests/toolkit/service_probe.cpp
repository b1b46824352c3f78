// Runs one service operation in a process of its own, so that a test can end
// a wait that never ends:  service_probe.exe start|stop|quiet|delete NAME [fake]
// The operation's debugger messages are appended to C:\tessel\scratch\probe.messages,
// each followed by a record separator. "fake" runs the library's Sleep and
// GetTickCount on the harness's fake clock. The exit code is 1 for true and 0
// for false (0 after a delete), 2 for bad use.
#include "harness/harness.h"
#include "toolkit/service.h"

#include <memory>

namespace {

void WINAPI Record(LPCWSTR text)
{
    const std::wstring record = std::wstring(text) + L'\x1e';
    HANDLE file = CreateFileW(L"C:\\tessel\\scratch\\probe.messages", FILE_APPEND_DATA, 0, NULL, OPEN_ALWAYS, 0, NULL);
    DWORD written = 0;
    WriteFile(file, record.data(), static_cast<DWORD>(record.size() * sizeof(wchar_t)), &written, NULL);
    CloseHandle(file);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3 || argc > 4)
        return 2;
    harness::ImportPatch messages(GetModuleHandleW(NULL), "kernel32.dll", "OutputDebugStringW",
                                  reinterpret_cast<void*>(Record));
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
