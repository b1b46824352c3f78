// UpdateCfg and UpdateTesselCfg through the DLL, as deferred actions with
// their CustomActionData, on a real settings file.
#include "config/area.h"

#include <gmock/gmock.h>
#include <shlobj.h>

using harness::Session;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

const wchar_t kSuite[] = L"C:\\tessel\\scratch\\Suite\\";

class UpdateActionsTest : public harness::ActionTest {
protected:
    UpdateActionsTest() : ActionTest(SuiteKeysArea()) {}

protected:
    void SetUp() override
    {
        ActionTest::SetUp();
        SHCreateDirectoryExW(NULL, L"C:\\tessel\\scratch\\Suite\\Config", NULL);
    }

    static std::wstring CfgPath() { return std::wstring(kSuite) + L"Config\\InstallManager.cfg"; }

    // The ten lines about the colour settings, each deleted or not.
    static std::vector<std::wstring> ColourLines(const std::vector<bool>& deleted)
    {
        const wchar_t* names[] = {L"UseCustomColor",   L"BackgroundColor",  L"FontColor",
                                  L"FontDisableColor", L"ButtonColor",      L"ButtonDisableColor",
                                  L"TextColorPast",    L"TextColorPresent", L"TextColorFuture",
                                  L"ButtonBrightness"};
        std::vector<std::wstring> lines;
        for (size_t i = 0; i < 10; ++i)
            lines.push_back(std::wstring(deleted[i] ? L"TESSEL_CA successfully deleted " : L"TESSEL_CA failed to delete ") +
                            names[i] + L" setting\n");
        return lines;
    }
};

TEST_F(UpdateActionsTest, UpdateCfgRemovesTheColourSettingsAndKeepsTheRest)
{
    harness::WriteFileBytes(CfgPath(),
             "# Install manager settings\r\nLanguage=en\r\nUseCustomColor=1\r\nBackgroundColor=#202020\r\n"
             "[not a section]\r\nFontColor=white\r\nTextColorPast=grey\r\nButtonBrightness=80\r\nload_DLM=true\r\n");
    Session session;
    session.SetCustomActionData(kSuite);
    EXPECT_EQ(0u, session.Call("UpdateCfg"));
    EXPECT_EQ("# Install manager settings\r\r\r\r\r\r\nLanguage=en\r\r\r\r\r\r\n[not a section]\r\r\r\r\r\r\n"
              "load_DLM=true\r\r\r\r\r\r\n",
              harness::ReadFileBytes(CfgPath()));

    std::vector<std::wstring> expected = {L"TESSEL_CA UpdateCfg: " + std::wstring(kSuite) + L" \n"};
    for (const std::wstring& line : ColourLines({true, true, true, false, false, false, true, false, false, true}))
        expected.push_back(line);
    expected.push_back(L"TESSEL_CA successfully saved with " + CfgPath() + L" new settings \n");
    EXPECT_THAT(session.Log(), ElementsAreArray(expected));
}

TEST_F(UpdateActionsTest, UpdateCfgPutsInTheSeparatorAndLeavesAFileWithoutColoursAlone)
{
    const std::string untouched = "Language=en\r\nload_DLM=true\r\n";
    harness::WriteFileBytes(CfgPath(), untouched);
    Session session;
    session.SetCustomActionData(L"C:/tessel/scratch/Suite");
    EXPECT_EQ(0u, session.Call("UpdateCfg"));
    EXPECT_EQ(untouched, harness::ReadFileBytes(CfgPath()));
    std::vector<std::wstring> log = session.Log();
    ASSERT_EQ(12u, log.size());
    EXPECT_EQ(ColourLines(std::vector<bool>(10, false)), std::vector<std::wstring>(log.begin() + 1, log.end() - 1));
    EXPECT_EQ(L"TESSEL_CA successfully saved with " + CfgPath() + L" new settings \n", log.back());
}

TEST_F(UpdateActionsTest, UpdateCfgRemovesEveryLineOfARepeatedSetting)
{
    harness::WriteFileBytes(CfgPath(), "UseCustomColor=1\nLanguage=en\nUseCustomColor=0\n");
    Session session;
    session.SetCustomActionData(kSuite);
    EXPECT_EQ(0u, session.Call("UpdateCfg"));
    EXPECT_EQ("Language=en\r\n", harness::ReadFileBytes(CfgPath()));
    EXPECT_EQ(L"TESSEL_CA successfully deleted UseCustomColor setting\n", session.Log()[1]);
}

TEST_F(UpdateActionsTest, UpdateCfgDoesNothingWithoutAFileOrAFolder)
{
    Session missing;
    missing.SetCustomActionData(L"C:\\tessel\\scratch\\Elsewhere\\");
    EXPECT_EQ(0u, missing.Call("UpdateCfg"));
    EXPECT_THAT(missing.Log(), ElementsAre(L"TESSEL_CA UpdateCfg: C:\\tessel\\scratch\\Elsewhere\\ \n"));

    Session tooLong;
    tooLong.SetCustomActionData(L"C:\\" + harness::Repeat(L'd', 257));
    EXPECT_EQ(0u, tooLong.Call("UpdateCfg"));
    EXPECT_THAT(tooLong.Log(), ElementsAre(L"TESSEL_CA Could not get INSTALLDIR in UpdateCfg  \n"));

    // An empty file can't be loaded: nothing is removed and nothing said.
    harness::WriteFileBytes(CfgPath(), "");
    Session empty;
    empty.SetCustomActionData(kSuite);
    EXPECT_EQ(0u, empty.Call("UpdateCfg"));
    EXPECT_EQ(1u, empty.Log().size());
}

TEST_F(UpdateActionsTest, UpdateTesselCfgSetsTheTwoSettingsFoldedToLowerCase)
{
    harness::WriteFileBytes(std::wstring(kSuite) + L"InstallManager.cfg", "Language=en\r\nUseCustomColor=true\r\n");
    Session session;
    session.SetCustomActionData(std::wstring(kSuite) + L";Yes;;NO");
    EXPECT_EQ(0u, session.Call("UpdateTesselCfg"));
    EXPECT_EQ("Language=en\r\r\nUseCustomColor=yes\r\nload_DLM=no\r\n",
              harness::ReadFileBytes(std::wstring(kSuite) + L"InstallManager.cfg"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA: UpdateTesselCfg  \n",
                                           L"TESSEL_CA Update config file " + std::wstring(kSuite) +
                                               L"InstallManager.cfg\n"));
}

TEST_F(UpdateActionsTest, UpdateTesselCfgNeedsThreeItemsAndSetsTheSecondAloneWithFour)
{
    const std::wstring cfg = std::wstring(kSuite) + L"InstallManager.cfg";
    harness::WriteFileBytes(cfg, "UseCustomColor=x\r\n");

    Session two;
    two.SetCustomActionData(std::wstring(kSuite) + L";1");
    EXPECT_EQ(0u, two.Call("UpdateTesselCfg"));
    EXPECT_THAT(two.Log(), ElementsAre(L"TESSEL_CA: UpdateTesselCfg  \n"));

    // Same text already there: the file is not rewritten.
    Session same;
    same.SetCustomActionData(std::wstring(kSuite) + L";X;a;b");
    EXPECT_EQ(0u, same.Call("UpdateTesselCfg"));
    EXPECT_EQ("UseCustomColor=x\r\n", harness::ReadFileBytes(cfg));

    // A directory without its separator names another file, which isn't there.
    Session glued;
    glued.SetCustomActionData(L"C:\\tessel\\scratch\\Suite;a;b");
    EXPECT_EQ(0u, glued.Call("UpdateTesselCfg"));
    EXPECT_EQ(1u, glued.Log().size());

    Session tooLong;
    tooLong.SetCustomActionData(std::wstring(kSuite) + L";" + harness::Repeat(L'v', 1000) + L";b");
    EXPECT_EQ(0u, tooLong.Call("UpdateTesselCfg"));
    EXPECT_EQ(1u, tooLong.Log().size());
}

}  // namespace
