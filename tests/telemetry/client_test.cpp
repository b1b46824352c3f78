// The telemetry client's life through the DLL, on the prefix's real services:
// the test service stands in for the launcher and for a GaugeL that won't stop.
#include "harness/harness.h"

using namespace harness;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE, HKCR = HKEY_CLASSES_ROOT;
const std::wstring kClient = L"C:\\Program Files\\Orvel\\Gauge Client", kData = L"C:\\ProgramData\\Orvel\\Gauge\\",
                   kClient32 = L"C:\\Program Files (x86)\\Orvel\\Gauge Client", kParked = TempFolder() + L"Gaugetemp",
                   kMoveFailed = L"Tessel_CA Failed to MoveFile UnInstallGauge() - ";
const wchar_t kGauge[] = L"SOFTWARE\\Orvel\\Gauge", kEmber[] = L"Software\\Ember",
              kLauncher[] = L"SYSTEM\\CurrentControlSet\\Services\\EmberLauncher",
              kPerfOS[] = L"SYSTEM\\CurrentControlSet\\Services\\PerfOS";

struct ClientTest : ActionTest {
    ClientTest() : ActionTest({{{HKLM, kEmber}, {HKLM, kGauge}, {HKCR, kGauge}, {HKLM, kPerfOS}},
                               {kClient, kClient32, kData, kParked, TempFolder() + L"Gaugex86"},
                               {L"EmberLauncher", L"GaugeL"}}) {}
};

// The action's own lines, in a session of its own that an action before it stored (with two lines).
Lines LinesOf(const char* action)
{
    Session session;
    session.Call("GetInstallVaneDir");
    EXPECT_EQ(0u, session.Call(action)) << action;
    const Lines log = session.Log();
    return Lines(log.begin() + 2, log.end());
}

DWORD WINAPI NoTempPath(DWORD, LPWSTR) { return 0; }
int WINAPI FolderInUse(LPSHFILEOPSTRUCTW) { return ERROR_SHARING_VIOLATION; }

// Two installs, each with a GaugeL that won't stop in time (Wine's StartService returns once it runs); the
// first removal with a file of the client folder held open, the second with no temporary folder and neither
// service. Wine can't show the launcher's delayed start (it refuses it with 124) nor the data folder's rights
// (it stores none), and the task killer's lines name no program (their quotes hold the switches too), so
// nothing is killed, here or on Windows.
TEST_F(ClientTest, InstallsKeepTheIdentityAndRemovalsTakeTheRest)
{
    std::wstring identity;
    for (int install = 0; install < 2; ++install) {
        SCOPED_TRACE(install);
        InstallTestService(L"GaugeL", L"stop=600000 hint=2999", true);
        {
            FakeClock clock;
            RefusedProcessStarts refused;
            EXPECT_EQ(Lines(), LinesOf("PreInstallGauge"));
            // Both clients' programs, the updater again once its service has gone, the launcher last.
            Lines kills;
            for (const wchar_t* image : {L"OrvelGaugeM", L"OrvelGaugeDU", L"OrvelGaugeUF", L"OrvelGaugeUF", L"EmberMaster",
                                         L"EmberUF", L"EmberDU", L"EmberAC", L"EmberUC", L"EmberLauncher"})
                kills.push_back(L"\"C:\\windows\\system32\\TaskKill.exe /IM " + std::wstring(image) + L".exe /F\"");
            EXPECT_EQ(kills, RefusedProcessStarts::CommandLines());
            EXPECT_TRUE(clock.Elapsed() > 30000 && ServiceState(L"EmberLauncher") == 0 && !Exists(kClient));
        }
        ClearArea({{}, {}, {L"GaugeL"}});

        Make({kData, kClient + L"\\"})();
        CreateKey(HKLM, kPerfOS + std::wstring(L"\\Performance"));  // as every Windows has it
        CopyFileW((ProgramFolder() + L"test_service.exe").c_str(), (kClient + L"\\EmberLauncher.exe").c_str(), FALSE);
        EXPECT_EQ(Lines(3 - install, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID"),
                  LinesOf("PostInstallGauge"));
        identity = install == 0 ? TextOf(HKLM, kEmber, L"GUID") : identity;
        EXPECT_TRUE(identity == TextOf(HKLM, kEmber, L"GUID") && identity.size() == 36) << identity;
        EXPECT_EQ((Lines{L"Yes", L"0", L"\"" + kClient + L"\\EmberLauncher.exe\"", L"Orvel Ember Program Launcher"}),
                  (Lines{TextOf(HKCR, kGauge, L"DCSEnabled"),
                         TextOf(HKLM, kPerfOS + std::wstring(L"\\Performance"),
                                L"Disable Performance Counters"),
                         TextOf(HKLM, kLauncher, L"ImagePath"), TextOf(HKLM, kLauncher, L"DisplayName")}));
        EXPECT_EQ((std::vector<DWORD>{0x110, 2, 1, SERVICE_RUNNING, 0}),
                  (std::vector<DWORD>{DwordOf(HKLM, kLauncher, L"Type"), DwordOf(HKLM, kLauncher, L"Start"),
                                      DwordOf(HKLM, kLauncher, L"ErrorControl"), ServiceState(L"EmberLauncher"),
                                      Session().Call("AfterInstallGauge")}));
    }

    // Held open, a file stays for the restart, and the folder is parked for it. Wine's shell would move the
    // folder to its recycle bin all the same; Windows' keeps it, as the patch does.
    CreateKey(HKLM, kGauge);  // as the package's tables make it
    MakeFile(kClient + L"\\GaugeSL.dll");
    HANDLE held = CreateFileW((kClient + L"\\GaugeSL.dll").c_str(), GENERIC_READ, 0, NULL, OPEN_EXISTING, 0, NULL);
    ImportPatch inUse(TesselDll(), "shell32.dll", "SHFileOperationW", reinterpret_cast<void*>(&FolderInUse));
    EXPECT_EQ(Lines{kMoveFailed + kClient32}, LinesOf("UnInstallGauge"));
    CloseHandle(held);
    EXPECT_TRUE(ServiceState(L"EmberLauncher") == 0 && !Exists(kClient) && !KeyExists(HKLM, kGauge) &&
                Exists(kParked + L"\\GaugeSL.dll") && TextOf(HKLM, kEmber, L"GUID") == identity);
    EXPECT_NE(std::wstring::npos, PendingRenames().find(L"\\??\\" + kParked + L'\0'));

    ImportPatch noTemp(TesselDll(), "kernel32.dll", "GetTempPathW", reinterpret_cast<void*>(&NoTempPath));
    EXPECT_EQ((Lines{kMoveFailed + kClient, kMoveFailed, kMoveFailed + kClient32, kMoveFailed}),
              LinesOf("UnInstallGauge"));
}

}  // namespace
