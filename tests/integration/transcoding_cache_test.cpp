// The transcoding cache actions through the DLL: each one line of the 32-bit
// interpreter, recorded by a stand-in placed in syswow64 (empty in this 64-bit
// prefix), and once Wine's own interpreter, with ProgramData in the scratch folder.
#include "integration/area.h"

using namespace harness;

namespace {

const std::wstring kScratch = kScratchFolder, kCmd32 = L"C:\\windows\\syswow64\\cmd.exe", kKept = kCmd32 + L".kept";

// Whatever the prefix has as the 32-bit interpreter is set aside and comes back.
class TranscodingCacheTest : public IntegrationTest {
protected:
    void SetUp() override
    {
        IntegrationTest::SetUp();
        MoveFileW(kCmd32.c_str(), kKept.c_str());
    }
    void TearDown() override
    {
        DeleteFileW(kCmd32.c_str());
        DeleteFileW((kCmd32 + L".cmdline").c_str());
        MoveFileW(kKept.c_str(), kCmd32.c_str());
        IntegrationTest::TearDown();
    }
};

// The last line is launchVidsync_CA's on a 32-bit system. A launch refused changes no result.
TEST_F(TranscodingCacheTest, EachActionRunsItsLineInThe32BitInterpreter)
{
    const std::wstring head = L"C:\\windows\\syswow64\\Cmd.exe /c ", data = L"\"%ProgramData%\\Orvel\\VDB\"";
    const std::wstring vidsync = head + L"start \"Orvel Vidcast device initialization\" /min \"%programfiles";
    const std::pair<const char*, std::wstring> rows[] = {
        {"CreateDIR_CA", L"C:\\windows\\syswow64\\cmd.exe /c mkdir \"%PROGRAMDATA%\\Orvel\\VDB\""},
        {"SetFolderPermission_CA", head + L"Icacls " + data + L" /grant Users:(OI)(CI)M"},
        {"launchVidsync_CA", vidsync + L"(x86)%\\Orvel Vidcast\\bin\\vidsync.exe\" vml"},
        {"RemoveFolder_CA", head + L"rd /s /q " + data},
        {"RemoveVDB_CA", head + L"del \"%systemroot%\\vdb\\vml_*.vdb\""},
        {"RemoveShortcut_CA", head + L"del \"%ProgramData%\\Microsoft\\Windows\\Start Menu\\Programs\\Startup\\VML*.*\""},
    };
    NativePrograms cmd{L"cmd.exe"};
    InstallRecorder(kCmd32);
    Lines lines;
    for (const auto& row : rows) {
        EXPECT_EQ(0u, Session().Call(row.first)) << row.first;
        lines.push_back(row.second);
    }
    {
        On32BitSystem x86;
        Session().Call("launchVidsync_CA");
    }
    lines.push_back(vidsync + L"%\\Orvel Vidcast\\bin\\vidsync.exe\" vml");
    EXPECT_EQ(lines, RecordedCommandLines(kCmd32));
    RefusedProcessStarts refused;
    for (const auto& row : rows)
        EXPECT_EQ(0u, Session().Call(row.first)) << row.first;
}

// Wine's interpreter as the 32-bit one: the folder is made (twice, harmlessly), secured (Wine's icacls is a
// dummy) and removed with its file; of the start-up folder only the VML entries go.
TEST_F(TranscodingCacheTest, TheRealInterpreterMakesSecuresAndRemovesTheFolder)
{
    ASSERT_TRUE(CopyFileW(L"C:\\windows\\system32\\cmd.exe", kCmd32.c_str(), TRUE));
    wchar_t programData[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"ProgramData", programData, MAX_PATH);
    SetEnvironmentVariableW(L"ProgramData", kScratch.substr(0, kScratch.size() - 1).c_str());
    SetCurrentDirectoryW(kScratch.c_str());
    const std::wstring vdb = kScratch + L"Orvel\\VDB", startup = kScratch + L"Microsoft\\Windows\\Start Menu\\Programs\\Startup\\";
    MakeFile(startup + L"VML Sync.lnk");
    MakeFile(startup + L"Other.lnk");
    Session session;
    for (const char* action : {"CreateDIR_CA", "CreateDIR_CA", "SetFolderPermission_CA"})
        EXPECT_EQ(0u, session.Call(action));
    EXPECT_TRUE(Exists(vdb));
    MakeFile(vdb + L"\\cache.vdb");
    for (const char* action : {"RemoveFolder_CA", "RemoveShortcut_CA"})
        EXPECT_EQ(0u, session.Call(action));
    SetEnvironmentVariableW(L"ProgramData", programData);
    EXPECT_TRUE(!Exists(vdb) && !Exists(startup + L"VML Sync.lnk") && Exists(startup + L"Other.lnk"));
}

}  // namespace
