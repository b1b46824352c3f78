// The managed framework actions through the DLL: the tools' lines, recorded
// by stand-ins in the framework folder and as cmd in the current directory,
// and the proxy's path value.
#include "integration/area.h"

using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kLumen = kScratch + L"Lumen", kInstall = kScratch + L"Install Dir";
const std::wstring kBrio = kLumen + L"\\BrioInstall.exe", kCli = kLumen + L"\\CLI.exe", kCmd = kScratch + L"cmd.exe";
const std::wstring kProxy = L"\\Kestra.Lumen\\Pylon-InstallProxy\\Pylon.InstallProxy.exe";
const std::wstring kKeys = L"SOFTWARE\\Wow6432Node\\Kestra\\Lumen\\", kProxyKey = kKeys + L"Settings\\Pylon\\Install";

// The framework folder's value, a decoy in the 64-bit branch that the actions must not read, and the stand-ins.
void Given()
{
    SetText(HKEY_LOCAL_MACHINE, kKeys + L"Packages\\Core-Static", L"Location", kLumen);
    SetText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra\\Lumen\\Packages\\Core-Static", L"Location", L"x", KEY_WOW64_64KEY);
    for (const std::wstring& program : {kBrio, kCli, kCmd})
        InstallRecorder(program);
    SetCurrentDirectoryW(kScratch.c_str());
}

std::function<void(Session&)> Ran(const std::wstring& program, const std::wstring& line)
{
    return [=](Session&) { EXPECT_EQ(Lines{line}, RecordedCommandLines(program)); };
}

using ManagedFrameworkTest = IntegrationTest;

// The unload logs through a stale session here: unchecked. The install folder doesn't exist. A tool that can't
// be started gives 0. Wine's overrides are prefix-wide: cmd's is set only under the machine lock.
TEST_F(ManagedFrameworkTest, EachActionRunsItsToolOrKeepsTheProxyValue)
{
    NativePrograms cmd{L"cmd.exe"};
    const std::wstring cli = L"\"" + kCli + L"\" Install ", ngen = L"cmd /c \"" + kBrio + L"\" ngen:";
    const std::wstring set = L"TESSEL_CA SetInstallProxyKey", del = L"TESSEL_CA: DelInstallProxyKey ";
    RunCases({
        {"ngen", "LaunchNGEN", {}, Given, 1, Exactly({}), Ran(kCmd, ngen + L"i -a")},
        {"ngen uninstall", "LaunchNGENUninstall", {}, Given, 1, Exactly({}), Ran(kCmd, ngen + L"u -a")},
        {"unload", "BrioUnloadGAC", {}, Given, 1, {}, Ran(kBrio, L"\"" + kBrio + L"\" gac:u -fa")},
        {"unload, no tool", "BrioUnloadGAC", {}, [] { Given(); DeleteFileW(kBrio.c_str()); }, 0, {}, nullptr},
        {"proxy in two words", "LaunchInstallProxy", Data(kInstall), Given, 1,
         Exactly({L"TESSEL_CA DeleteFolder: " + kInstall + L" \n",
                  L"TESSEL_CA Directory, " + kInstall + L", DNE or is not empty and will not be deleted.\n"}),
         Ran(kCli, cli + kInstall + kProxy)},
        {"proxy, no folder", "LaunchInstallProxy", Data(L""), Given, 1, {}, Ran(kCli, cli + kProxy)},
        {"value", "SetInstallProxyKey", Data(kInstall), Given, 1,
         Exactly({set + L": " + kInstall + L" \n", set + L" failed, " + kInstall + L".\n"}),
         [](Session&) { EXPECT_EQ(kInstall + kProxy, TextOf(HKEY_LOCAL_MACHINE, kProxyKey, L"Install")); }},
        {"value, no framework", "SetInstallProxyKey", Data(kInstall), nullptr, 0, Exactly({}), nullptr},
        {"deleted", "DelInstallProxyKey", {}, [] { SetText(HKEY_LOCAL_MACHINE, kProxyKey, L"Install", L"p"); }, 1,
         Exactly({del + L" \n", del + L"successfully  \n"}), nullptr},
        {"nothing to delete", "DelInstallProxyKey", {}, nullptr, 0, Exactly({del + L" \n"}), nullptr},
    });
}

}  // namespace
