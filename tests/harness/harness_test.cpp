// The harness's own tools, checked before other tests rely on them.
#include "harness/harness.h"

#include <gmock/gmock.h>

using harness::ActionTest;
using harness::InstallRecorder;
using harness::RecordedCommandLines;
using harness::RunToExit;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class HarnessTest : public ActionTest {};

TEST_F(HarnessTest, TheRecorderKeepsEveryCommandLineExactly)
{
    std::wstring tool = std::wstring(harness::kScratchFolder) + L"Fake App\\tool.exe";
    InstallRecorder(tool);
    EXPECT_THAT(RecordedCommandLines(tool), IsEmpty());

    std::wstring first = L"\"" + tool + L"\" /a \"b c\"  -d";
    std::wstring second = L"\"" + tool + L"\" \x00e9t\x00e9";
    EXPECT_EQ(0u, RunToExit(first));
    EXPECT_EQ(0u, RunToExit(second));
    EXPECT_THAT(RecordedCommandLines(tool), ElementsAre(first, second));
}

TEST_F(HarnessTest, TheRecorderExitsWithTheCodeItIsGiven)
{
    std::wstring tool = std::wstring(harness::kScratchFolder) + L"tool.exe";
    InstallRecorder(tool);
    SetEnvironmentVariableW(L"RECORDER_EXIT_CODE", L"1603");
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", L"200");
    DWORD start = GetTickCount();
    DWORD exitCode = RunToExit(L"\"" + tool + L"\"");
    DWORD took = GetTickCount() - start;
    SetEnvironmentVariableW(L"RECORDER_EXIT_CODE", NULL);
    SetEnvironmentVariableW(L"RECORDER_DELAY_MS", NULL);
    EXPECT_EQ(1603u, exitCode);
    EXPECT_GE(took, 150u);
}

TEST_F(HarnessTest, TheMachineStateIsClearedBetweenTests)
{
    harness::WriteRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install", L"InstallDir", L"x",
                            KEY_WOW64_32KEY);
    CreateDirectoryW(L"C:\\tessel\\scratch", NULL);
    harness::MachineState::Clear();
    std::wstring value;
    EXPECT_FALSE(harness::ReadRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install",
                                        L"InstallDir", value, KEY_WOW64_32KEY));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(L"C:\\tessel\\scratch"));
}

}  // namespace
