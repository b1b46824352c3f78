// The harness's own tools, checked before other tests rely on them.
#include "harness/harness.h"

using harness::Lines;
using harness::Session;

namespace {

class HarnessTest : public harness::ActionTest {
protected:
    HarnessTest() : ActionTest({{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"}}, {}, {}}) {}
};

TEST_F(HarnessTest, TheRecorderKeepsEveryCommandLineAndExitsWithTheCodeItIsGiven)
{
    std::wstring tool = std::wstring(harness::kScratchFolder) + L"Fake App\\tool.exe";
    harness::InstallRecorder(tool);
    EXPECT_EQ(Lines(), harness::RecordedCommandLines(tool));
    std::wstring first = L"\"" + tool + L"\" /a \"b c\"  -d";
    std::wstring second = L"\"" + tool + L"\" \x00e9t\x00e9";
    EXPECT_EQ(0u, harness::RunToExit(first));
    SetEnvironmentVariableW(L"RECORDER_EXIT_CODE", L"1603");
    EXPECT_EQ(1603u, harness::RunToExit(second));
    SetEnvironmentVariableW(L"RECORDER_EXIT_CODE", NULL);
    EXPECT_EQ((Lines{first, second}), harness::RecordedCommandLines(tool));
}

// An immediate action and the deferred one it feeds, each in its own session:
// each keeps its own log, whichever was made or ended last.
TEST_F(HarnessTest, EachSessionKeepsItsOwnLog)
{
    Session immediate({{L"INSTALLDIR", L"C:\\Suite\\"}});
    {
        Session deferred({{L"CustomActionData", L"C:\\Nowhere\\"}});
        EXPECT_EQ(0u, immediate.Call("SetInstallDir"));
        EXPECT_EQ(0u, deferred.Call("UpdateCfg"));
        EXPECT_EQ(Lines{L"TESSEL_CA UpdateCfg: C:\\Nowhere\\ \n"}, deferred.Log());
    }
    EXPECT_EQ(1612u, immediate.Call("LaunchedFromFerrule"));
    EXPECT_EQ(4u, immediate.Log().size());
    EXPECT_EQ(L"TESSEL_CA Not Launched from Ferrule and unable to get property", immediate.Log().back());
    EXPECT_EQ(1u, immediate.UserMessages().size());
}

}  // namespace
