// UpdateCfg and UpdateTesselCfg through the DLL, as deferred actions with
// their CustomActionData, on a real settings file.
#include "config/area.h"

using namespace harness;

namespace {

const std::wstring kSuite = std::wstring(harness::kScratchFolder) + L"Suite\\";
const std::wstring kCfg = kSuite + L"Config\\InstallManager.cfg";  // UpdateCfg's
const std::wstring kTesselCfg = kSuite + L"InstallManager.cfg";    // UpdateTesselCfg's

using UpdateActionsTest = ConfigTest;

// Arranges the file; checks that it then holds `after`.
std::function<void()> File(const std::wstring& path, const std::string& before)
{
    return [path, before] { harness::MakeFile(path, before); };
}
std::function<void(Session&)> Holds(const std::wstring& path, const std::string& after)
{
    return [path, after](Session&) { EXPECT_EQ(after, harness::ReadFileBytes(path)); };
}

// The immediate action hands INSTALLDIR on; the deferred one, in its own session, drops the colour settings.
TEST_F(UpdateActionsTest, SetInstallDirHandsTheFolderToUpdateCfgWhichRemovesTheColourSettings)
{
    harness::MakeFile(kCfg,
                      "# Install manager settings\r\nLanguage=en\r\nUseCustomColor=1\r\nBackgroundColor=#202020\r\n"
                      "[not a section]\r\nFontColor=white\r\nTextColorPast=grey\r\nButtonBrightness=80\r\n"
                      "load_DLM=true\r\n");
    Session immediate({{L"INSTALLDIR", kSuite}});
    EXPECT_EQ(0u, immediate.Call("SetInstallDir"));
    // Called while the immediate session lives: the lines must not stray into it.
    Session deferred({{L"CustomActionData", immediate.Property(L"UpdateCfg")}});
    EXPECT_EQ(0u, deferred.Call("UpdateCfg"));
    // Five deletes, five rewrites: each kept line gains a CR at each.
    EXPECT_EQ("# Install manager settings\r\r\r\r\r\r\nLanguage=en\r\r\r\r\r\r\n[not a section]\r\r\r\r\r\r\n"
              "load_DLM=true\r\r\r\r\r\r\n",
              harness::ReadFileBytes(kCfg));
    // The ten colour settings in their order, "+" for those there to delete.
    harness::Lines log = {L"TESSEL_CA UpdateCfg: " + kSuite + L" \n"};
    for (std::wstring colour :
         {L"+UseCustomColor", L"+BackgroundColor", L"+FontColor", L"-FontDisableColor", L"-ButtonColor",
          L"-ButtonDisableColor", L"+TextColorPast", L"-TextColorPresent", L"-TextColorFuture", L"+ButtonBrightness"})
        log.push_back((colour[0] == L'+' ? L"TESSEL_CA successfully deleted " : L"TESSEL_CA failed to delete ") +
                      colour.substr(1) + L" setting\n");
    log.push_back(L"TESSEL_CA successfully saved with " + kCfg + L" new settings \n");
    EXPECT_EQ(log, deferred.Log());
    EXPECT_EQ(3u, immediate.Log().size());
}

TEST_F(UpdateActionsTest, UpdateCfgFindsTheFileBelowTheFolderOrLeavesItAlone)
{
    const std::string noColours = "Language=en\r\nload_DLM=true\r\n";
    auto data = [](const std::wstring& value) { return harness::Rows{{L"CustomActionData", value}}; };
    RunCases({
        // A separator is put in where missing, and slashes are turned.
        {"slashes", "UpdateCfg", data(L"C:/tessel/scratch/Suite"), File(kCfg, noColours), 0,
         Includes({L"TESSEL_CA failed to delete UseCustomColor setting\n",
                   L"TESSEL_CA successfully saved with " + kCfg + L" new settings \n"}),
         Holds(kCfg, noColours)},
        {"repeated", "UpdateCfg", data(kSuite), File(kCfg, "UseCustomColor=1\nLanguage=en\nUseCustomColor=0\n"), 0,
         Includes({L"TESSEL_CA successfully deleted UseCustomColor setting\n"}), Holds(kCfg, "Language=en\r\n")},
        {"no file", "UpdateCfg", data(kSuite + L"Elsewhere\\"), nullptr, 0,
         Exactly({L"TESSEL_CA UpdateCfg: " + kSuite + L"Elsewhere\\ \n"}), nullptr},
        // An empty file can't be loaded: nothing is removed and nothing said.
        {"empty file", "UpdateCfg", data(kSuite), File(kCfg, ""), 0,
         Exactly({L"TESSEL_CA UpdateCfg: " + kSuite + L" \n"}), Holds(kCfg, "")},
        {"unreadable", "UpdateCfg", data(L"C:\\" + harness::Repeat(L'd', 257)), nullptr, 0,
         Exactly({L"TESSEL_CA Could not get INSTALLDIR in UpdateCfg  \n"}), nullptr},
    });
}

// Three items or more: folder (with its separator), UseCustomColor, and with exactly three, load_DLM.
TEST_F(UpdateActionsTest, UpdateTesselCfgSetsTheSettingsFoldedToLowerCase)
{
    auto data = [](const std::wstring& value) { return harness::Rows{{L"CustomActionData", value}}; };
    const harness::LogCheck started = Exactly({L"TESSEL_CA: UpdateTesselCfg  \n"});
    const std::string colour = "UseCustomColor=x\r\n";
    RunCases({
        {"three", "UpdateTesselCfg", data(kSuite + L";Yes;;NO"),
         File(kTesselCfg, "Language=en\r\nUseCustomColor=true\r\n"), 0,
         Exactly({L"TESSEL_CA: UpdateTesselCfg  \n", L"TESSEL_CA Update config file " + kTesselCfg + L"\n"}),
         Holds(kTesselCfg, "Language=en\r\r\nUseCustomColor=yes\r\nload_DLM=no\r\n")},
        {"two", "UpdateTesselCfg", data(kSuite + L";1"), File(kTesselCfg, colour), 0, started,
         Holds(kTesselCfg, colour)},
        // The same text already there: the file is not rewritten.
        {"four", "UpdateTesselCfg", data(kSuite + L";X;a;b"), File(kTesselCfg, colour), 0, {},
         Holds(kTesselCfg, colour)},
        {"no separator", "UpdateTesselCfg", data(harness::kScratchFolder + std::wstring(L"Suite;a;b")),
         File(kTesselCfg, colour), 0, started, Holds(kTesselCfg, colour)},
        {"unreadable", "UpdateTesselCfg", data(kSuite + L";" + harness::Repeat(L'v', 1000) + L";b"),
         File(kTesselCfg, colour), 0, started, Holds(kTesselCfg, colour)},
    });
}

}  // namespace
