// The service-backed components through the DLL: the quick-resume program's
// switches, and the relay and local mode services, registered for real as the
// service tests' program.
#include "integration/area.h"

using namespace harness;

namespace {

using ServiceComponentsTest = IntegrationTest;
const std::wstring kVane = std::wstring(kScratchFolder) + L"Vane\\";
const std::wstring kProgram = kVane + L"Kestra.Lumen\\Vane\\VaneSleepService.exe";
const wchar_t kInstall[] = L"SOFTWARE\\Kestra Technologies\\Install\\";
const wchar_t kRelay[] = L"Orvel Signal Relay", kLocalMode[] = L"OrvelDynamicLocalModeService";

// The folder as a 64-bit system records it, the program there or not.
std::function<void()> Vane(bool program)
{
    return [=] {
        SetText(HKEY_LOCAL_MACHINE, std::wstring(kInstall) + L"Vane64", L"InstallDir", kVane, KEY_WOW64_32KEY);
        program ? InstallRecorder(kProgram) : MakeFolders(kVane + L"Kestra.Lumen\\Vane");
    };
}

// The program's run, and the install manager's marker in each view.
std::function<void(Session&)> Ran(const Lines& lines, const std::wstring& marker)
{
    return [=](Session&) {
        EXPECT_EQ(lines, RecordedCommandLines(kProgram, lines.size()));
        for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY})
            EXPECT_EQ(marker, TextOf(HKEY_LOCAL_MACHINE, kInstall, L"NeedFeatureManagerSC", view));
    };
}

std::function<void(Session&)> States(DWORD relay, DWORD localMode)
{
    return [=](Session&) {
        EXPECT_EQ(relay, ServiceState(kRelay));
        EXPECT_EQ(localMode, ServiceState(kLocalMode));
    };
}

TEST_F(ServiceComponentsTest, EachActionRunsItsProgramOrItsService)
{
    const std::wstring none = L"<missing>", start = L"\"" + kProgram + L"\" -i", stop = L"\"" + kProgram + L"\" -u";
    const auto installed = [](bool running) {
        return [=] {
            InstallTestService(kRelay, L"", running);
            InstallTestService(kLocalMode, L"", running);
        };
    };
    const LogCheck quiet = Exactly({});
    RunCases({
        {"start", "StartVaneService", {}, Vane(true), 1, quiet, Ran({start}, L"Yes")},
        {"start, no program", "StartVaneService", {}, Vane(false), 0, quiet, Ran({}, none)},
        {"start, no folder recorded", "StartVaneService", {}, nullptr, 0, quiet, Ran({}, none)},
        {"stop", "StopVaneService", {}, Vane(true), 0, quiet, Ran({stop}, none)},
        {"stop, no folder", "StopVaneService", {}, [] { Vane(true)(); DeleteFileW(kProgram.c_str()); }, 0, quiet,
         Ran({}, none)},
        {"relay started", "StartRelayService", {}, installed(false), 0, quiet,
         States(SERVICE_RUNNING, SERVICE_STOPPED)},
        {"no relay", "StartRelayService", {}, nullptr, 0, quiet, States(0, 0)},
        {"local mode started", "LaunchDynamicLocalModeService", {}, installed(false), 0, quiet,
         States(SERVICE_STOPPED, SERVICE_RUNNING)},
        {"no local mode", "LaunchDynamicLocalModeService", {}, nullptr, 1603, quiet, States(0, 0)},
        // Wine's own adapter is no maker's: the relay goes.
        {"relay removed", "StopandDeleteRelay", {}, installed(true), 0, quiet, States(0, SERVICE_RUNNING)},
    });
}

// A program that can't be started leaves no marker; a relay stays while an adapter's description names the
// maker, in any case, and when it won't stop in 30 s; another maker's adapter doesn't keep it.
TEST_F(ServiceComponentsTest, NoMarkerWithoutTheProgramNoDeleteWithoutTheStop)
{
    for (const wchar_t* description : {L"Graphics by ORVEL", L"Other Graphics"}) {
        DisplayAdapter adapter(L"", L"", description);
        InstallTestService(kRelay, L"", true);
        EXPECT_EQ(0u, Session().Call("StopandDeleteRelay"));
        EXPECT_EQ(description[0] == L'G' ? SERVICE_RUNNING : 0u, ServiceState(kRelay)) << description;
        ClearArea(IntegrationArea());
    }
    Vane(true)();
    {
        RefusedProcessStarts refused;
        EXPECT_EQ(0u, Session().Call("StartVaneService"));
    }
    EXPECT_EQ(L"<missing>", TextOf(HKEY_LOCAL_MACHINE, kInstall, L"NeedFeatureManagerSC"));
    InstallTestService(kRelay, L"stop=600000 hint=2999", true);
    FakeClock clock;
    EXPECT_EQ(0u, Session().Call("StopandDeleteRelay"));
    EXPECT_GE(FakeClock::Elapsed(), 30000u);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), ServiceState(kRelay));
}

}  // namespace
