// The OEM media application through the DLL: the registration lines from the
// tools' computed locations, the system's Regsvr32 among them, and its keys and folders.
#include "harness/harness.h"

#include <algorithm>

using namespace harness;

namespace {

const std::wstring kParent = L"C:\\Program Files\\Krelople\\", kFolder = kParent + L"HP Pixel Sharp\\";
const std::wstring kNet = L"C:\\windows\\Microsoft.NET\\", kRegsvr32 = L"C:\\windows\\system32\\regsvr32.exe";
// The machine key; the user key has the same path.
const std::wstring kKey = L"SOFTWARE\\Orvel\\PixelSharp";
// The prefix has no framework folder: the RegAsm stand-ins go with it.
const Area kArea = {{{HKEY_LOCAL_MACHINE, kKey}, {HKEY_CURRENT_USER, kKey}}, {kParent, kNet}, {}};

struct OemMediaTest : ActionTest { OemMediaTest() : ActionTest(kArea) {} };

// The clean-up logs through the session an earlier action stored. The maker's
// folder goes only without a file in it; the value named " " stays, the user key goes.
TEST_F(OemMediaTest, EachActionRunsItsLineOrClearsWhatItOwns)
{
    const std::wstring asm64 = L"Framework64\\v4.0.30319\\RegAsm.exe", asm32 = L"Framework\\v4.0.30319\\RegAsm.exe";
    const std::wstring net = L"\"C:\\windows\\\\Microsoft.NET\\", plugin = kFolder + L"wmpplugin2.dll";
    const std::wstring url = L" \"" + kFolder + L"HPInternetExplorerUrl.dll\"", wmp = L" \"" + plugin + L"\"";
    const struct { const char* action; std::wstring tool, line; UINT result; Lines made, there, gone; int logged = 0;
                   Lines values = {L" ", L"Version"}; HKEY hive = HKEY_LOCAL_MACHINE; } rows[] = {
        {"RegisterWMPPlugin", L"", L"", 0, {plugin}},  // Wine's own regsvr32 starts, and fails on no library
        {"RegisterInternetExplorerUrl64", L"", L"", 1603},
        {"RegisterInternetExplorerUrl64", kNet + asm64, net + asm64 + L"\" /s /codebase" + url, 0},
        {"RegisterInternetExplorerUrl", kNet + asm32, net + asm32 + L"\" /s /codebase" + url, 0},
        {"UnRegisterInternetExplorerUrl64", kNet + asm64, net + asm64 + L"\" /s /u" + url, 0},
        {"UnRegisterInternetExplorerUrl", kNet + asm32, net + asm32 + L"\" /s /u" + url, 0},
        {"RegisterWMPPlugin", kRegsvr32, L"\"C:\\windows\\system32\\Regsvr32.exe\" /s" + wmp, 0},
        {"UnRegisterWMPPlugin", kRegsvr32, L"\"C:\\windows\\system32\\Regsvr32.exe\" /s /u" + wmp, 0},
        {"ClearPixelRegValues", L"", L"", 0, {plugin}, {}, {kParent}, 1, {L" "}},
        {"ClearPixelRegValues", L"", L"", 0, {kParent}, {kParent}, {}, 0, {L" "}},
        {"DeletePixelDirectory", L"", L"", 0, {plugin, kParent + L"o.dll"}, {kParent + L"o.dll"}, {kFolder}, 1},
        {"DeletePixelDirectory", L"", L"", 0, {kParent}, {}, {kParent}},
        {"ClearHKCUPixelRegValues", L"", L"", 0, {}, {}, {}, 0, {}, HKEY_CURRENT_USER}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.action << " row " << (&row - rows));
        ClearArea(kArea);
        Make(row.made)();
        for (const wchar_t* name : {L" ", L"Version"})
            SetText(row.hive, kKey, name, L"1");
        std::unique_ptr<NativePrograms> native(row.tool == kRegsvr32 ? new NativePrograms{L"regsvr32.exe"} : nullptr);
        std::unique_ptr<StandIn> standIn(row.tool.empty() ? nullptr : new StandIn(row.tool));
        Session session;
        session.Call("GetInstallVaneDir");  // stores the session
        EXPECT_EQ(row.result, session.Call(row.action));
        const Lines log = session.Log();
        EXPECT_EQ(row.logged, std::count(log.begin(), log.end(), L"Tessel_CA CleanUninstallerFiles folder deleted\n"));
        Present(row.there, row.gone)(session);
        EXPECT_EQ(row.line, row.tool.empty() ? L"" : RecordedCommandLines(row.tool).at(0));
        EXPECT_EQ(row.values, ValueNamesOf(row.hive, kKey));
    }
}

}  // namespace
