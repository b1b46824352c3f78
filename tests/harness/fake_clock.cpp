// A clock of the test's own in place of the system's, so that the library's
// long waits and spins cost no real time.
#include "harness/harness.h"

namespace harness {

namespace {

ULONGLONG g_start = 0;
ULONGLONG g_now = 0;
// Found by name: in a patched program, ::Sleep would be the stand-in itself.
const auto g_realSleep = reinterpret_cast<decltype(&Sleep)>(
    reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "Sleep")));

void WINAPI FakeSleep(DWORD ms)
{
    g_now += ms;
    // Let the other side (a service, a child) run a little meanwhile.
    g_realSleep(0);
}

DWORD WINAPI FakeTickCount()
{
    return static_cast<DWORD>(++g_now);
}

}  // namespace

FakeClock::FakeClock(HMODULE module)
    : sleep_(module, "kernel32.dll", "Sleep", reinterpret_cast<void*>(FakeSleep)),
      tick_(module, "kernel32.dll", "GetTickCount", reinterpret_cast<void*>(FakeTickCount))
{
    g_start = g_now = ::GetTickCount64();
}

FakeClock::~FakeClock() {}

ULONGLONG FakeClock::Elapsed()
{
    return g_now - g_start;
}

}  // namespace harness
