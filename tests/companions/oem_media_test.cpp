// The OEM media application through the DLL: the registration lines from the
// tools' computed locations, the system's Regsvr32 among them, and its keys and folders.
#include "harness/harness.h"

#include <algorithm>
#include <memory>

using namespace harness;

namespace {

const std::wstring kParent = L"C:\\Program Files\\Krelople\\", kFolder = kParent + L"HP Pixel Sharp\\";
const std::wstring kNet = L"C:\\windows\\Microsoft.NET\\", kRegsvr32 = L"C:\\windows\\system32\\regsvr32.exe";
const std::wstring kMachineKey = L"SOFTWARE\\Orvel\\PixelSharp", kUserKey = L"Software\\Orvel\\PixelSharp";
// The prefix has no framework folder: the RegAsm stand-ins go with it.
const Area kArea = {{{HKEY_LOCAL_MACHINE, kMachineKey}, {HKEY_CURRENT_USER, kUserKey}}, {kParent, kNet}, {}};

class OemMediaTest : public ActionTest {
protected:
    OemMediaTest() : ActionTest(kArea) {}
};

// The clean-up logs through the session an earlier action stored. The maker's
// folder goes only without a file in it; the value named " " stays.
TEST_F(OemMediaTest, EachActionRunsItsLineOrClearsWhatItOwns)
{
    const std::wstring asm64 = L"Framework64\\v4.0.30319\\RegAsm.exe", asm32 = L"Framework\\v4.0.30319\\RegAsm.exe";
    const std::wstring doubled = L"\"C:\\windows\\\\Microsoft.NET\\", other = kParent + L"Other\\other.dll";
    const std::wstring plugin = kFolder + L"wmpplugin2.dll", player = L" \"" + plugin + L"\"";
    const std::wstring browser = L" \"" + kFolder + L"HPInternetExplorerUrl.dll\"";
    const std::wstring regsvr32 = L"\"C:\\windows\\system32\\Regsvr32.exe\" /s";
    const struct { const char* action; std::wstring tool, line; UINT result; Lines made, there, gone;
                   Lines values = {L" ", L"Version"}; int logged = 0; bool userKeyStays = true; } rows[] = {
        {"RegisterWMPPlugin", L"", L"", 0, {plugin}},  // Wine's own regsvr32 starts, and fails on no library
        {"RegisterInternetExplorerUrl64", L"", L"", 1603},
        {"RegisterInternetExplorerUrl64", kNet + asm64, doubled + asm64 + L"\" /s /codebase" + browser, 0},
        {"RegisterInternetExplorerUrl", kNet + asm32, doubled + asm32 + L"\" /s /codebase" + browser, 0},
        {"UnRegisterInternetExplorerUrl64", kNet + asm64, doubled + asm64 + L"\" /s /u" + browser, 0},
        {"UnRegisterInternetExplorerUrl", kNet + asm32, doubled + asm32 + L"\" /s /u" + browser, 0},
        {"RegisterWMPPlugin", kRegsvr32, regsvr32 + player, 0},
        {"UnRegisterWMPPlugin", kRegsvr32, regsvr32 + L" /u" + player, 0},
        {"ClearPixelRegValues", L"", L"", 0, {plugin, other}, {other}, {kFolder}, {L" "}, 1},
        {"ClearPixelRegValues", L"", L"", 0, {kParent}, {kParent}, {}, {L" "}},
        {"DeletePixelDirectory", L"", L"", 0, {plugin}, {}, {kParent}, {L" ", L"Version"}, 1},
        {"DeletePixelDirectory", L"", L"", 0, {kParent}, {}, {kParent}},
        {"DeletePixelDirectory", L"", L"", 0, {other}, {other}},
        {"ClearHKCUPixelRegValues", L"", L"", 0, {}, {}, {}, {L" ", L"Version"}, 0, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.action << " row " << (&row - rows));
        ClearArea(kArea);
        Make(row.made)();
        for (const wchar_t* name : {L" ", L"Version"})
            SetText(HKEY_LOCAL_MACHINE, kMachineKey, name, L"1");
        SetText(HKEY_CURRENT_USER, kUserKey + L"\\Sub", L"", L"");
        std::unique_ptr<NativePrograms> native(row.tool == kRegsvr32 ? new NativePrograms{L"regsvr32.exe"} : nullptr);
        std::unique_ptr<StandIn> standIn(row.tool == kRegsvr32 ? new StandIn(kRegsvr32) : nullptr);
        if (!row.tool.empty())
            InstallRecorder(row.tool);
        Session session;
        session.Call("GetInstallVaneDir");  // stores the session
        EXPECT_EQ(row.result, session.Call(row.action));
        const Lines log = session.Log();
        EXPECT_EQ(row.logged, std::count(log.begin(), log.end(), L"Tessel_CA CleanUninstallerFiles folder deleted\n"));
        Present(row.there, row.gone)(session);
        EXPECT_EQ(row.line, row.tool.empty() ? L"" : RecordedCommandLines(row.tool).at(0));
        EXPECT_EQ(row.values, ValueNamesOf(HKEY_LOCAL_MACHINE, kMachineKey));
        EXPECT_EQ(row.userKeyStays, KeyExists(HKEY_CURRENT_USER, kUserKey));
    }
}

}  // namespace
