// The gate and the hand-off actions, called through the DLL in real sessions.
#include "frame/area.h"

#include <gmock/gmock.h>

using harness::Repeat;
using harness::Rows;
using harness::Session;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const wchar_t kInstallDir[] = L"C:\\Program Files\\Kestra Technologies\\Suite\\";

class HandOffTest : public harness::ActionTest {
protected:
    HandOffTest() : ActionTest(SuiteKeysArea()) {}
};

std::wstring GateMessage()
{
    return L"This package requires Orvel Installer Setup.\nPlease obtain and install Orvel Installer from "
           L"https://www.orvel.com/support to continue installing this package.\nThis application will now abort.";
}

TEST_F(HandOffTest, TheGateLetsThroughValuesBeginningWith1)
{
    for (const wchar_t* value : {L"1", L"10", L"1 and more"}) {
        Session session({{L"LAUNCHED_FROM_FERRULE", value}});
        EXPECT_EQ(0u, session.Call("LaunchedFromFerrule")) << value;
        EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA Launched from Ferrule: " + std::wstring(value) + L" \n"));
        EXPECT_THAT(session.UserMessages(), IsEmpty());
    }
}

TEST_F(HandOffTest, TheGateRefusesEverythingElseWith1612AndAMessage)
{
    for (const wchar_t* value : {L"01", L"yes", L"0", L"", L" 1"}) {
        Rows properties;
        if (*value)
            properties.push_back({L"LAUNCHED_FROM_FERRULE", value});
        Session session(properties, Rows());
        EXPECT_EQ(1612u, session.Call("LaunchedFromFerrule")) << value;
        EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA Not Launched from Ferrule and unable to get property"));
        EXPECT_THAT(session.UserMessages(), ElementsAre(GateMessage()));
    }
}

TEST_F(HandOffTest, TheGateRefusesAValueThatCannotBeRead)
{
    Session session({{L"LAUNCHED_FROM_FERRULE", L"1" + Repeat(L'0', 259)}});
    EXPECT_EQ(1612u, session.Call("LaunchedFromFerrule"));
    EXPECT_THAT(session.Log(), ElementsAre(L"TESSEL_CA Not Launched from Ferrule and unable to get property"));
    EXPECT_THAT(session.UserMessages(), ElementsAre(GateMessage()));
}

TEST_F(HandOffTest, SetInstallDirHandsTheFolderToDeleteFolderAndUpdateCfg)
{
    Session session({{L"INSTALLDIR", kInstallDir}});
    EXPECT_EQ(0u, session.Call("SetInstallDir"));
    EXPECT_EQ(kInstallDir, session.Property(L"DeleteFerruleDir"));
    EXPECT_EQ(kInstallDir, session.Property(L"UpdateCfg"));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA SetInstallDir() start",
                            L"Tessel_CA DeleteFerruleDir SetInstallDir(), " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n",
                            L"Tessel_CA UpdateCfg SetInstallDir(), " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n"));
}

TEST_F(HandOffTest, SetInstallDirFailsWith1603WhenTheFolderCannotBeRead)
{
    Session session({{L"INSTALLDIR", L"C:\\" + Repeat(L'p', 257)}});  // 260 characters
    EXPECT_EQ(1603u, session.Call("SetInstallDir"));
    EXPECT_EQ(L"", session.Property(L"DeleteFerruleDir"));
    EXPECT_EQ(L"", session.Property(L"UpdateCfg"));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA SetInstallDir() start",
                            L"Tessel_CA SetInstallDir() failed to get Pid from Kestra Property table."));
}

TEST_F(HandOffTest, SetInstallDirReads259CharactersAndHandsOnAnEmptyFolder)
{
    std::wstring longest = L"C:\\" + Repeat(L'p', 256);
    Session session({{L"INSTALLDIR", longest}});
    EXPECT_EQ(0u, session.Call("SetInstallDir"));
    EXPECT_EQ(longest, session.Property(L"UpdateCfg"));

    Session empty;
    EXPECT_EQ(0u, empty.Call("SetInstallDir"));
    EXPECT_THAT(empty.Log(), ElementsAre(L"Tessel_CA SetInstallDir() start",
                                         L"Tessel_CA DeleteFerruleDir SetInstallDir(),  should be set in CustomActionData \n",
                                         L"Tessel_CA UpdateCfg SetInstallDir(),  should be set in CustomActionData \n"));
}

struct OneTarget {
    const char* action;
    const wchar_t* target;
    const wchar_t* start;
    const wchar_t* setText;  // the part before the value
    const wchar_t* readFailure;
    UINT success;
    UINT failure;
};

const OneTarget kOneTargetFamily[] = {
    {"GetInstallVaneDir", L"DeleteInstallVane", L"Tessel_CA GetInstallVaneDir() start",
     L"Tessel_CA DeleteInstallVane, ", L"Tessel_CA SetInstallVaneDir() failed.", 0, 1603},
    {"GetInstallTracewellDir", L"DeleteInstallTracewell", L"Tessel_CA GetInstallTracewellDir() start",
     L"Tessel_CA DeleteInstallTracewell, ", L"Tessel_CA SetInstallTracewellDir() failed.", 1, 0},
    {"GetInstallSorrelDir", L"DeleteInstallSorrel", L"Tessel_CA GetInstallSorrelDir() start",
     L"Tessel_CA DeleteInstallSorrel, ", L"Tessel_CA SetInstallSorrelDir() failed.", 1, 0},
    {"GetInstallUSBMonDir", L"DeleteUSBMONDir", L"Tessel_CA GetInstallUSBMonDir() start",
     L"Tessel_CA DeleteUSBMONDir, ", L"Tessel_CA SetInstallUSBMONDir() failed.", 1, 0},
};

TEST_F(HandOffTest, TheOneTargetFamilyHandsOnTheFolderWithItsOwnResults)
{
    for (const OneTarget& family : kOneTargetFamily) {
        Session session({{L"INSTALLDIR", kInstallDir}});
        EXPECT_EQ(family.success, session.Call(family.action)) << family.action;
        EXPECT_EQ(kInstallDir, session.Property(family.target)) << family.action;
        EXPECT_THAT(session.Log(),
                    ElementsAre(family.start, std::wstring(family.setText) + kInstallDir +
                                                  L" should be set in CustomActionData \n"));
    }
}

TEST_F(HandOffTest, TheOneTargetFamilyReportsAFailedRead)
{
    for (const OneTarget& family : kOneTargetFamily) {
        Session session({{L"INSTALLDIR", Repeat(L'q', 300)}});
        EXPECT_EQ(family.failure, session.Call(family.action)) << family.action;
        EXPECT_EQ(L"", session.Property(family.target)) << family.action;
        EXPECT_THAT(session.Log(), ElementsAre(family.start, family.readFailure));
    }
}

TEST_F(HandOffTest, GetInstallProxyDirSetsBothTargetsAndReturns1)
{
    Session session({{L"INSTALLDIR", kInstallDir}});
    EXPECT_EQ(1u, session.Call("GetInstallProxyDir"));
    EXPECT_EQ(kInstallDir, session.Property(L"LaunchInstallProxyExe"));
    EXPECT_EQ(kInstallDir, session.Property(L"SetInstallProxyReg"));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA GetInstallProxyDir() start",
                            L"Tessel_CA LaunchInstallProxyExe, " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n",
                            L"Tessel_CA SetInstallProxyReg, " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n"));

    Session unreadable({{L"INSTALLDIR", Repeat(L'q', 260)}});
    EXPECT_EQ(0u, unreadable.Call("GetInstallProxyDir"));
    EXPECT_THAT(unreadable.Log(), ElementsAre(L"Tessel_CA GetInstallProxyDir() start",
                                              L"Tessel_CA SetInstallProxyDir() failed."));
}

TEST_F(HandOffTest, SetFerruleKestraPidHandsThePackagesPidToCleanRegistry)
{
    Session session({}, {{L"Kestra_PID", L"{6E1B2C3D-0000-4A5B-9C8D-1234567890AB}"}});
    EXPECT_EQ(0u, session.Call("SetFerruleKestraPid"));
    EXPECT_EQ(L"{6E1B2C3D-0000-4A5B-9C8D-1234567890AB}", session.Property(L"CleanRegistry"));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA SetFerruleKestraPid() start",
                            L"Tessel_CA GetFromMSITable(), Reading Property table\n ",
                            L"Tessel_CA GetFromMSITable() PackageRead Property Value is "
                            L"{6E1B2C3D-0000-4A5B-9C8D-1234567890AB} \n",
                            L"Tessel_CA SetFerruleKestraPid(), {6E1B2C3D-0000-4A5B-9C8D-1234567890AB} should be "
                            L"set in CustomActionData \n"));
}

TEST_F(HandOffTest, SetFerruleKestraPidWithoutTheRowFailsWith1603)
{
    // A public property of that name is not what the action reads.
    Session session({{L"Kestra_PID", L"public"}}, {{L"DriverVersion", L"31.0"}});
    EXPECT_EQ(1603u, session.Call("SetFerruleKestraPid"));
    EXPECT_EQ(L"", session.Property(L"CleanRegistry"));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA SetFerruleKestraPid() start",
                            L"Tessel_CA GetFromMSITable(), Reading Property table\n ",
                            L"Tessel_CA SetFerruleKestraPid() failed to get Pid from Kestra Property table."));
}

}  // namespace

namespace {

using harness::RefusedPropertySets;

TEST_F(HandOffTest, SetInstallDirStillSetsUpdateCfgWhenDeleteFerruleDirFails)
{
    Session session({{L"INSTALLDIR", kInstallDir}});
    {
        RefusedPropertySets refused({L"DeleteFerruleDir"});
        EXPECT_EQ(1603u, session.Call("SetInstallDir"));
    }
    EXPECT_EQ(L"", session.Property(L"DeleteFerruleDir"));
    EXPECT_EQ(kInstallDir, session.Property(L"UpdateCfg"));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"Tessel_CA SetInstallDir() start",
                            L"Tessel_CA DeleteFerruleDir SetInstallDir() failed to set Pid in CustomActionData",
                            L"Tessel_CA UpdateCfg SetInstallDir(), " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n"));

    Session second({{L"INSTALLDIR", kInstallDir}});
    RefusedPropertySets refusedBoth({L"DeleteFerruleDir", L"UpdateCfg"});
    EXPECT_EQ(1603u, second.Call("SetInstallDir"));
    EXPECT_THAT(second.Log(),
                ElementsAre(L"Tessel_CA SetInstallDir() start",
                            L"Tessel_CA DeleteFerruleDir SetInstallDir() failed to set Pid in CustomActionData",
                            L"Tessel_CA UpdateCfg SetInstallDir() failed to set Pid in CustomActionData"));
}

TEST_F(HandOffTest, GetInstallProxyDirsResultFollowsTheSecondTargetAlone)
{
    Session first({{L"INSTALLDIR", kInstallDir}});
    {
        RefusedPropertySets refused({L"LaunchInstallProxyExe"});
        EXPECT_EQ(1u, first.Call("GetInstallProxyDir"));
    }
    EXPECT_EQ(kInstallDir, first.Property(L"SetInstallProxyReg"));
    EXPECT_THAT(first.Log(),
                ElementsAre(L"Tessel_CA GetInstallProxyDir() start",
                            L"Tessel_CA LaunchInstallProxyExe failed to set Pid in CustomActionData",
                            L"Tessel_CA SetInstallProxyReg, " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n"));

    Session second({{L"INSTALLDIR", kInstallDir}});
    RefusedPropertySets refused({L"SetInstallProxyReg"});
    EXPECT_EQ(0u, second.Call("GetInstallProxyDir"));
    EXPECT_EQ(kInstallDir, second.Property(L"LaunchInstallProxyExe"));
    EXPECT_THAT(second.Log(),
                ElementsAre(L"Tessel_CA GetInstallProxyDir() start",
                            L"Tessel_CA LaunchInstallProxyExe, " + std::wstring(kInstallDir) +
                                L" should be set in CustomActionData \n",
                            L"Tessel_CA SetInstallProxyReg failed to set Pid in CustomActionData"));
}

TEST_F(HandOffTest, TheOneTargetFamilyReportsAFailedSet)
{
    const wchar_t* setFailures[] = {
        L"Tessel_CA DeleteInstallVane failed to set Pid in CustomActionData",
        L"Tessel_CA DeleteInstallTracewell failed to be set in CustomActionData",
        L"Tessel_CA DeleteInstallSorrel failed to set Pid in CustomActionData",
        L"Tessel_CA DeleteUSBMONDir failed to set Installdir in CustomActionData",
    };
    for (size_t i = 0; i < 4; ++i) {
        const OneTarget& family = kOneTargetFamily[i];
        Session session({{L"INSTALLDIR", kInstallDir}});
        RefusedPropertySets refused({family.target});
        EXPECT_EQ(family.failure, session.Call(family.action)) << family.action;
        EXPECT_THAT(session.Log(), ElementsAre(family.start, setFailures[i]));
    }
}

TEST_F(HandOffTest, SetFerruleKestraPidFailsWith1603WhenCleanRegistryCannotBeSet)
{
    Session session({}, {{L"Kestra_PID", L"pid"}});
    RefusedPropertySets refused({L"CleanRegistry"});
    EXPECT_EQ(1603u, session.Call("SetFerruleKestraPid"));
    EXPECT_EQ(L"Tessel_CA SetFerruleKestraPid() failed to set Pid in CustomActionData", session.Log().back());
    EXPECT_EQ(4u, session.Log().size());
}

}  // namespace
