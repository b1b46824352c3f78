// Cost of one export call inside a real session: LaunchedFromFerrule called
// many times through the DLL, next to an empty function called the same way.
#include "harness/harness.h"

#include <algorithm>
#include <cstdio>

namespace {

UINT __stdcall EmptyAction(MSIHANDLE)
{
    return 0;
}

// Median time of one call, in microseconds.
double MedianCallMicroseconds(harness::ActionFn action, MSIHANDLE session, int calls)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    std::vector<double> times;
    times.reserve(calls);
    for (int i = 0; i < calls; ++i) {
        LARGE_INTEGER start, end;
        QueryPerformanceCounter(&start);
        action(session);
        QueryPerformanceCounter(&end);
        times.push_back(1e6 * static_cast<double>(end.QuadPart - start.QuadPart) / frequency.QuadPart);
    }
    std::nth_element(times.begin(), times.begin() + calls / 2, times.end());
    return times[calls / 2];
}

}  // namespace

int main()
{
    const int calls = 5000;
    harness::Session session({{L"LAUNCHED_FROM_FERRULE", L"1"}});
    // Through a volatile pointer, so the empty call is made as the real one is.
    harness::ActionFn volatile empty = EmptyAction;
    harness::ActionFn gate = harness::Export("LaunchedFromFerrule");
    gate(session.handle());  // the first call pays for loading

    double gateTime = MedianCallMicroseconds(gate, session.handle(), calls);
    double emptyTime = MedianCallMicroseconds(empty, session.handle(), calls);
    std::printf("export call LaunchedFromFerrule, median of %d: %.2f us\n", calls, gateTime);
    std::printf("empty function through the same path, median of %d: %.3f us\n", calls, emptyTime);
    std::printf("log lines captured: %zu\n", session.Log().size());
    return 0;
}
