// Runs one service operation for the tests:  service_probe.exe [fake] start|stop|quiet|delete NAME
// Its debugger messages go to C:\tessel\scratch\probe.messages, each ended by a record
// separator; with "fake" its waits run on the harness's fake clock, whose reading in
// milliseconds is the last message: "clock N". Exits with 1 for true, else 0.
#include "harness/harness.h"
#include "toolkit/service.h"

#include <memory>

namespace {

std::string g_said;

void WINAPI Record(LPCWSTR text)
{
    const std::wstring message = text;
    g_said += std::string(message.begin(), message.end()) + '\x1e';
    harness::WriteFileBytes(std::wstring(harness::kScratchFolder) + L"probe.messages", g_said);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    harness::MakeFolders(harness::kScratchFolder);
    harness::ImportPatch messages(GetModuleHandleW(NULL), "kernel32.dll", "OutputDebugStringW",
                                  reinterpret_cast<void*>(Record));
    std::unique_ptr<harness::FakeClock> clock(argc == 4 ? new harness::FakeClock(GetModuleHandleW(NULL)) : nullptr);
    const std::wstring operation = argv[argc - 2];
    const wchar_t* name = argv[argc - 1];
    if (operation == L"delete")
        DeleteServiceByName(name);
    const bool result = operation == L"start"  ? StartServiceAndWait(name)
                        : operation == L"stop" ? StopServiceAndWait(name)
                                               : operation == L"quiet" && StopServiceQuietly(name);
    if (clock)
        Record((L"clock " + std::to_wstring(harness::FakeClock::Elapsed())).c_str());
    return result ? 1 : 0;
}
