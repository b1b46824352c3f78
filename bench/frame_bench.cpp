// The frame's cost: LaunchedFromFerrule called through the DLL in a real
// session, next to the same work written here as bare installer calls (the
// property read, the record, the message, the close). The two are timed in
// turns of a few calls each, so that a busy machine weighs on both alike and
// the clock's tenth of a microsecond doesn't round the figures.
#include "harness/harness.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// The gate's passing path with nothing but the installer's calls.
UINT __stdcall BareGate(MSIHANDLE session)
{
    wchar_t value[260];
    DWORD count = 260;
    if (MsiGetPropertyW(session, L"LAUNCHED_FROM_FERRULE", value, &count) != ERROR_SUCCESS || value[0] != L'1')
        return ERROR_INSTALL_SOURCE_ABSENT;
    wchar_t line[1025];
    wsprintfW(line, L"TESSEL_CA Launched from Ferrule: %s \n", value);
    MSIHANDLE record = MsiCreateRecord(0);
    MsiRecordSetStringW(record, 0, line);
    MsiProcessMessage(session, INSTALLMESSAGE_INFO, record);
    MsiCloseHandle(record);
    return ERROR_SUCCESS;
}

const int kCallsPerTurn = 20;

// One call's time in microseconds, over a turn of calls.
double Microseconds(harness::ActionFn action, MSIHANDLE session)
{
    LARGE_INTEGER start, end, frequency;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    for (int i = 0; i < kCallsPerTurn; ++i)
        action(session);
    QueryPerformanceCounter(&end);
    return 1e6 * static_cast<double>(end.QuadPart - start.QuadPart) / static_cast<double>(frequency.QuadPart) /
           kCallsPerTurn;
}

double Median(std::vector<double>& times)
{
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    return times[times.size() / 2];
}

}  // namespace

int main()
{
    const int turns = 500;
    harness::Session session({{L"LAUNCHED_FROM_FERRULE", L"1"}});
    // Through a volatile pointer, so the bare version is called as the export is.
    harness::ActionFn volatile bare = BareGate;
    harness::ActionFn gate = harness::Export("LaunchedFromFerrule");
    gate(session.handle());  // the first calls pay for loading
    bare(session.handle());

    std::vector<double> gateTimes, bareTimes;
    for (int i = 0; i < turns; ++i) {
        gateTimes.push_back(Microseconds(gate, session.handle()));
        bareTimes.push_back(Microseconds(bare, session.handle()));
    }
    const double gateTime = Median(gateTimes);
    const double bareTime = Median(bareTimes);
    const std::vector<std::wstring> log = session.Log();
    std::printf("LaunchedFromFerrule through the DLL, median of %d turns of %d calls: %.3f us a call\n", turns,
                kCallsPerTurn, gateTime);
    std::printf("the same as bare installer calls, median of %d turns of %d calls: %.3f us a call\n", turns,
                kCallsPerTurn, bareTime);
    std::printf("ratio: %.2f\n", gateTime / bareTime);
    std::printf("log lines: %zu, the last two alike: %s\n", log.size(),
                log.size() >= 2 && log[log.size() - 1] == log[log.size() - 2] ? "yes" : "no");
    return 0;
}
