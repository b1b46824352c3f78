// The managed framework actions through the DLL: the tools' lines, recorded
// by stand-ins in the framework folder and as cmd in the current directory,
// and the proxy's path value.
#include "integration/area.h"

using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kLumen = kScratch + L"Lumen", kInstall = kScratch + L"Install Dir";
const std::wstring kBrio = kLumen + L"\\BrioInstall.exe", kCli = kLumen + L"\\CLI.exe", kCmd = kScratch + L"cmd.exe";
const std::wstring kProxy = L"\\Kestra.Lumen\\Pylon-InstallProxy\\Pylon.InstallProxy.exe";
const std::wstring kWow = L"SOFTWARE\\Wow6432Node", kProxyKey = L"\\Kestra\\Lumen\\Settings\\Pylon\\Install";

class ManagedFrameworkTest : public IntegrationTest {
protected:
    // The framework folder's value under `branch`, the stand-ins, an install folder with a file.
    void Given(const std::wstring& branch = kWow)
    {
        SetText(HKEY_LOCAL_MACHINE, branch + L"\\Kestra\\Lumen\\Packages\\Core-Static", L"Location", kLumen,
                KEY_WOW64_64KEY);
        for (const std::wstring& program : {kBrio, kCli, kCmd})
            InstallRecorder(program);
        MakeFile(kInstall + L"\\f");
        SetCurrentDirectoryW(kScratch.c_str());
    }
    NativePrograms cmd_{L"cmd.exe"};
};

std::wstring ProxyValue(const std::wstring& branch = kWow)
{
    return TextOf(HKEY_LOCAL_MACHINE, branch + kProxyKey, L"Install", KEY_WOW64_64KEY);
}

// One session in turn: the unload logs through the session that an earlier action stored. `effect` is the
// line `program` recorded, or with no program the proxy's value afterwards.
TEST_F(ManagedFrameworkTest, EachActionRunsItsToolOrKeepsTheProxyValue)
{
    Given();
    const std::wstring cli = L"\"" + kCli + L"\" Install ", ngen = L"cmd /c \"" + kBrio + L"\" ngen:";
    const std::wstring notDeleted = L", DNE or is not empty and will not be deleted.\n";
    const wchar_t kDeleting[] = L"TESSEL_CA: DelInstallProxyKey  \n";
    const struct {
        const char* action;
        std::wstring data;
        UINT result;
        std::wstring program, effect;
        Lines log;
    } rows[] = {
        {"LaunchNGEN", L"", 1, kCmd, ngen + L"i -a", {}},
        {"LaunchNGENUninstall", L"", 1, kCmd, ngen + L"u -a", {}},
        {"BrioUnloadGAC", L"", 1, kBrio, L"\"" + kBrio + L"\" gac:u -fa",
         {L"TESSEL_CA ShutDown Brio location " + kLumen + L", doesn't exist.\n"}},
        {"LaunchInstallProxy", kInstall, 1, kCli, cli + kInstall + kProxy,
         {L"TESSEL_CA DeleteFolder: " + kInstall + L" \n", L"TESSEL_CA Directory, " + kInstall + notDeleted}},
        {"LaunchInstallProxy", L"", 1, kCli, cli + kProxy,
         {L"TESSEL_CA DeleteFolder:  \n", L"TESSEL_CA Directory, " + notDeleted}},
        {"SetInstallProxyKey", kInstall, 1, L"", kInstall + kProxy,
         {L"TESSEL_CA SetInstallProxyKey: " + kInstall + L" \n",
          L"TESSEL_CA SetInstallProxyKey failed, " + kInstall + L".\n"}},
        {"DelInstallProxyKey", L"", 1, L"", L"<missing>",
         {kDeleting, L"TESSEL_CA: DelInstallProxyKey successfully  \n"}},
        {"DelInstallProxyKey", L"", 0, L"", L"<missing>", {kDeleting}},
    };
    Session session;
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.action << " row " << (&row - rows));
        MsiSetPropertyW(session.handle(), L"CustomActionData", row.data.c_str());
        const size_t logged = session.Log().size();
        EXPECT_EQ(row.result, session.Call(row.action));
        const Lines log = session.Log();
        EXPECT_EQ(row.log, Lines(log.begin() + logged, log.end()));
        for (const std::wstring& program : {kBrio, kCli, kCmd})
            EXPECT_EQ(program == row.program ? Lines{row.effect} : Lines{}, RecordedCommandLines(program));
        EXPECT_EQ(row.program.empty() ? row.effect : L"<missing>", ProxyValue());
        Given();
    }
}

// No framework, no tool, no process started: 0. A 32-bit system has no Wow6432Node in its paths.
TEST_F(ManagedFrameworkTest, FailuresAndThe32BitPaths)
{
    for (const char* action : {"BrioUnloadGAC", "LaunchNGEN", "LaunchInstallProxy", "SetInstallProxyKey"})
        EXPECT_EQ(0u, Session(Data(kInstall), {}).Call(action)) << action;
    Given();
    DeleteFileW(kBrio.c_str());
    EXPECT_EQ(0u, Session().Call("BrioUnloadGAC"));
    {
        RefusedProcessStarts refused;
        for (const char* action : {"LaunchNGEN", "LaunchInstallProxy"})
            EXPECT_EQ(0u, Session(Data(kInstall), {}).Call(action)) << action;
    }
    ClearArea(IntegrationArea());
    Given(L"SOFTWARE");
    On32BitSystem x86;
    EXPECT_EQ(1u, Session().Call("LaunchNGENUninstall"));
    EXPECT_EQ(1u, Session(Data(kInstall), {}).Call("SetInstallProxyKey"));
    EXPECT_EQ(kInstall + kProxy, ProxyValue(L"SOFTWARE"));
}

}  // namespace
