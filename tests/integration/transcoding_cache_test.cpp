// The transcoding cache actions through the DLL: their lines, recorded by a
// stand-in for the 32-bit interpreter in syswow64.
#include "integration/area.h"

using namespace harness;

// Every result is 0. Wine's overrides are prefix-wide: cmd's is set only under the machine lock.
TEST_F(IntegrationTest, TranscodingCacheActionsRunTheirLinesInThe32BitInterpreter)
{
    const std::wstring cmd = L"C:\\windows\\syswow64\\cmd.exe", head = L"C:\\windows\\syswow64\\Cmd.exe /c ";
    const std::wstring vdb = L"\"%ProgramData%\\Orvel\\VDB\"";
    const std::pair<const char*, std::wstring> rows[] = {
        {"CreateDIR_CA", cmd + L" /c mkdir \"%PROGRAMDATA%\\Orvel\\VDB\""},
        {"SetFolderPermission_CA", head + L"Icacls " + vdb + L" /grant Users:(OI)(CI)M"},
        {"launchVidsync_CA", head + L"start \"Orvel Vidcast device initialization\" /min " +
                                 L"\"%programfiles(x86)%\\Orvel Vidcast\\bin\\vidsync.exe\" vml"},
        {"RemoveFolder_CA", head + L"rd /s /q " + vdb},
        {"RemoveVDB_CA", head + L"del \"%systemroot%\\vdb\\vml_*.vdb\""},
        {"RemoveShortcut_CA",
         head + L"del \"%ProgramData%\\Microsoft\\Windows\\Start Menu\\Programs\\Startup\\VML*.*\""},
    };
    NativePrograms standIn{L"cmd.exe"};
    for (const auto& row : rows) {
        InstallRecorder(cmd);
        EXPECT_EQ(0u, Session().Call(row.first)) << row.first;
        EXPECT_EQ(Lines{row.second}, RecordedCommandLines(cmd)) << row.first;
    }
}
