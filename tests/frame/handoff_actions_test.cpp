// The gate and the hand-off actions, called through the DLL in real sessions.
#include "frame/area.h"

#include <cstring>
#include <memory>

using namespace harness;

namespace {

const std::wstring kDir = L"C:\\Program Files\\Kestra Technologies\\Suite\\";
const Rows kDirRows = {{L"INSTALLDIR", kDir}};
const Rows kUnreadable = {{L"INSTALLDIR", L"C:\\" + Repeat(L'p', 257)}};  // 260 characters, one too many
const std::wstring kSet = L" should be set in CustomActionData \n";

// Checks that each named property holds its value after the action.
std::function<void(Session&)> Holds(const Rows& expected)
{
    return [expected](Session& session) {
        for (const harness::Row& row : expected)
            EXPECT_EQ(row.value, session.Property(row.name)) << row.name;
    };
}

class HandOffTest : public FrameTest {
protected:
    // An arrange step after which the DLL can't set this property, until the next such step or the test's end.
    std::function<void()> Refuse(const std::wstring& name)
    {
        return [this, name] {
            refused_.reset();
            refused_.reset(new harness::RefusedPropertySets({name}));
        };
    }
    std::unique_ptr<harness::RefusedPropertySets> refused_;
};

TEST_F(HandOffTest, TheGateLetsThroughOnlyAValueBeginningWith1)
{
    const Lines toUser = {
        L"This package requires Orvel Installer Setup.\nPlease obtain and install Orvel Installer from "
        L"https://www.orvel.com/support to continue installing this package.\nThis application will "
        L"now abort."};
    auto row = [&toUser](const char* name, const std::wstring& value, UINT result, const std::wstring& line) {
        return ActionCase{name, "LaunchedFromFerrule", {{L"LAUNCHED_FROM_FERRULE", value}}, nullptr, result,
                          Exactly({line}),
                          [&toUser, result](Session& s) { EXPECT_EQ(result ? toUser : Lines(), s.UserMessages()); }};
    };
    const std::wstring refused = L"TESSEL_CA Not Launched from Ferrule and unable to get property";
    RunCases({row("1", L"1", 0, L"TESSEL_CA Launched from Ferrule: 1 \n"),
              row("10 and more", L"10 and more", 0, L"TESSEL_CA Launched from Ferrule: 10 and more \n"),
              row("01", L"01", 1612, refused), row("yes", L"yes", 1612, refused),
              row("unreadable", L"1" + Repeat(L'0', 259), 1612, refused)});
}

TEST_F(HandOffTest, EachActionHandsItsValueOnWithItsOwnTextsAndResults)
{
    std::vector<ActionCase> cases;
    auto start = [](const char* action) {
        return L"Tessel_CA " + std::wstring(action, action + strlen(action)) + L"() start";
    };
    // Four actions with one target each.
    auto one = [&](const char* action, const std::wstring& target, const std::wstring& readFailure,
                   const std::wstring& setFailure, UINT success, UINT failure) {
        cases.push_back({"handed on", action, kDirRows, nullptr, success,
                         Exactly({start(action), L"Tessel_CA " + target + L", " + kDir + kSet}),
                         Holds({{target, kDir}})});
        cases.push_back({"unreadable", action, kUnreadable, nullptr, failure,
                         Exactly({start(action), L"Tessel_CA " + readFailure}), Holds({{target, L""}})});
        cases.push_back({"refused", action, kDirRows, Refuse(target), failure,
                         Exactly({start(action), L"Tessel_CA " + target + setFailure}), nullptr});
    };
    one("GetInstallVaneDir", L"DeleteInstallVane", L"SetInstallVaneDir() failed.",
        L" failed to set Pid in CustomActionData", 0, 1603);
    one("GetInstallTracewellDir", L"DeleteInstallTracewell", L"SetInstallTracewellDir() failed.",
        L" failed to be set in CustomActionData", 1, 0);
    one("GetInstallSorrelDir", L"DeleteInstallSorrel", L"SetInstallSorrelDir() failed.",
        L" failed to set Pid in CustomActionData", 1, 0);
    one("GetInstallUSBMonDir", L"DeleteUSBMONDir", L"SetInstallUSBMONDir() failed.",
        L" failed to set Installdir in CustomActionData", 1, 0);
    // Two actions with two targets: both are always tried. `results`: handed on, unreadable, either refused.
    auto two = [&](const char* action, const std::wstring& first, const std::wstring& second, const std::wstring& infix,
                   const std::wstring& readFailure, std::vector<UINT> results) {
        const std::wstring set1 = L"Tessel_CA " + first + infix + L", " + kDir + kSet;
        const std::wstring set2 = L"Tessel_CA " + second + infix + L", " + kDir + kSet;
        const std::wstring refused = infix + L" failed to set Pid in CustomActionData";
        cases.push_back({"handed on", action, kDirRows, nullptr, results[0], Exactly({start(action), set1, set2}),
                         Holds({{first, kDir}, {second, kDir}})});
        cases.push_back({"unreadable", action, kUnreadable, nullptr, results[1],
                         Exactly({start(action), L"Tessel_CA " + readFailure}), Holds({{first, L""}, {second, L""}})});
        cases.push_back({"first refused", action, kDirRows, Refuse(first), results[2],
                         Exactly({start(action), L"Tessel_CA " + first + refused, set2}), Holds({{second, kDir}})});
        cases.push_back({"second refused", action, kDirRows, Refuse(second), results[3],
                         Exactly({start(action), set1, L"Tessel_CA " + second + refused}), Holds({{first, kDir}})});
    };
    two("SetInstallDir", L"DeleteFerruleDir", L"UpdateCfg", L" SetInstallDir()",
        L"SetInstallDir() failed to get Pid from Kestra Property table.", {0, 1603, 1603, 1603});
    // Here the second target alone decides the result.
    two("GetInstallProxyDir", L"LaunchInstallProxyExe", L"SetInstallProxyReg", L"", L"SetInstallProxyDir() failed.",
        {1, 0, 1, 0});
    const std::wstring longest = L"C:\\" + Repeat(L'p', 256);
    cases.push_back({"259 characters", "SetInstallDir", {{L"INSTALLDIR", longest}}, nullptr, 0, {},
                     Holds({{L"UpdateCfg", longest}})});
    cases.push_back({"empty", "SetInstallDir", {}, nullptr, 0,
                     harness::Includes({L"Tessel_CA UpdateCfg SetInstallDir(), " + kSet}), nullptr});
    // The pid comes from the package's private table, not from a public property of that name.
    const std::wstring pid = L"{6E1B2C3D-0000-4A5B-9C8D-1234567890AB}";
    const std::wstring pidStart = L"Tessel_CA SetFerruleKestraPid() start";
    const std::wstring reading = L"Tessel_CA GetFromMSITable(), Reading Property table\n ";
    const char* action = "SetFerruleKestraPid";
    cases.push_back({"handed on", action, {}, nullptr, 0,
                     harness::Includes({pidStart, reading, L"Tessel_CA SetFerruleKestraPid(), " + pid + kSet}),
                     Holds({{L"CleanRegistry", pid}}), {{L"Kestra_PID", pid}}});
    cases.push_back({"no row", action, {{L"Kestra_PID", L"public"}}, nullptr, 1603,
                     Exactly({pidStart, reading,
                              L"Tessel_CA SetFerruleKestraPid() failed to get Pid from Kestra Property table."}),
                     Holds({{L"CleanRegistry", L""}}), {{L"DriverVersion", L"31.0"}}});
    cases.push_back({"refused", action, {}, Refuse(L"CleanRegistry"), 1603,
                     harness::Includes({L"Tessel_CA SetFerruleKestraPid() failed to set Pid in CustomActionData"}),
                     nullptr, {{L"Kestra_PID", pid}}});
    RunCases(cases);
}

}  // namespace
