// The frame's own operations, called directly in a real session, and the gate
// and the hand-off actions, called through the DLL.
#include "harness/harness.h"

#include "frame/frame.h"

#include <cstring>
#include <memory>

using namespace harness;

namespace {

// What these tests touch: the install manager's keys. A test can have the DLL refuse to set a property.
class FrameTest : public ActionTest {
protected:
    FrameTest() : ActionTest({{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"}}, {}, {}}) {}
    // An arrange step after which the DLL can't set this property, until the next such step or the test's end.
    std::function<void()> Refuse(const std::wstring& name)
    {
        return [this, name] {
            refused_.reset();
            refused_.reset(new RefusedPropertySets({name}));
        };
    }
    std::unique_ptr<RefusedPropertySets> refused_;
};
using HandOffTest = FrameTest;

// A log line is formatted by the installer, so a bracketed property name expands; no line end is added, and
// one of 520 characters or more is refused. A table value fits in 1041 characters; its own log line doesn't,
// and a failed read leaves the value alone (a value read is logged: see SetFerruleKestraPid). No handle is
// left open.
TEST_F(FrameTest, TheLogTheUserAndThePackagesTableAreReachedInOneSession)
{
    Session session({{L"SOMEPROP", L"expanded"}},
                    {{L"Long", Repeat(L'x', 1041)}, {L"Longer", Repeat(L'y', 1042)}});
    g_hSession = session.handle();
    // Handles are numbered from a counter: the next one after the calls shows whether any were left open.
    const MSIHANDLE before = MsiCreateRecord(0);
    MsiCloseHandle(before);
    LogMessage(session.handle(), L"Tessel_CA %s, %d [SOMEPROP]", L"value", 42);
    LogMessage(session.handle(), L"%s", Repeat(L'a', 519).c_str());
    LogMessage(session.handle(), L"%s", Repeat(L'b', 520).c_str());
    EXPECT_EQ(IDOK, ShowUserMessage(session.handle(), L"Line one.\nLine two.", 0));
    std::wstring value;
    EXPECT_TRUE(GetFromMSITable(kKestraPropertyQuery, L"Long", value));
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"Longer", value));
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"Missing", value));
    EXPECT_EQ(Repeat(L'x', 1041), value);
    const MSIHANDLE after = MsiCreateRecord(0);
    MsiCloseHandle(after);
    EXPECT_EQ(before, after);
    const std::wstring reading = L"Tessel_CA GetFromMSITable(), Reading Property table\n ";
    const std::wstring overflow = L"CA buffer overflow\n";
    EXPECT_EQ((Lines{L"Tessel_CA value, 42 expanded", Repeat(L'a', 519), overflow, reading, overflow, reading,
                     reading}),
              session.Log());
    EXPECT_EQ(Lines{L"Line one.\nLine two."}, session.UserMessages());
}

TEST(StringHelpersDeathTest, BoundedCopyTakes518CharactersAndEndsTheProcessAt519)
{
    wchar_t buffer[kCommandLineChars + 1];
    EXPECT_EQ(Repeat(L'z', 518), BoundedCopy(buffer, kCommandLineChars, Repeat(L'z', 518).c_str(), kCommandLineChars));
    BoundedFormat(buffer, kCommandLineChars, L"%s", L"");  // nothing written is no overrun
    EXPECT_EXIT(BoundedCopy(buffer, kCommandLineChars, Repeat(L'z', 519).c_str(), kCommandLineChars),
                ::testing::ExitedWithCode(static_cast<int>(STATUS_STACK_BUFFER_OVERRUN)), "");
}

const std::wstring kDir = L"C:\\Program Files\\Kestra Technologies\\Suite\\";
const Rows kDirRows = {{L"INSTALLDIR", kDir}};
const std::wstring kSet = L" should be set in CustomActionData \n";

// Checks that each named property holds its value after the action.
std::function<void(Session&)> Holds(const Rows& expected)
{
    return [expected](Session& session) {
        for (const Row& row : expected)
            EXPECT_EQ(row.value, session.Property(row.name)) << row.name;
    };
}

TEST_F(HandOffTest, TheGateLetsThroughOnlyAValueBeginningWith1)
{
    const Lines toUser = {L"This package requires Orvel Installer Setup.\nPlease obtain and install Orvel Installer "
                          L"from https://www.orvel.com/support to continue installing this package.\nThis "
                          L"application will now abort."};
    auto row = [&toUser](const char* name, const std::wstring& value, UINT result, const std::wstring& line) {
        return ActionCase{name, "LaunchedFromFerrule", {{L"LAUNCHED_FROM_FERRULE", value}}, nullptr, result,
                          Exactly({line}),
                          [&toUser, result](Session& s) { EXPECT_EQ(result ? toUser : Lines(), s.UserMessages()); }};
    };
    const std::wstring refused = L"TESSEL_CA Not Launched from Ferrule and unable to get property";
    RunCases({row("1", L"1", 0, L"TESSEL_CA Launched from Ferrule: 1 \n"),
              row("10 and more", L"10 and more", 0, L"TESSEL_CA Launched from Ferrule: 10 and more \n"),
              row("01", L"01", 1612, refused), row("empty", L"", 1612, refused),
              row("unreadable", L"1" + Repeat(L'0', 259), 1612, refused)});
}

// Each action reads INSTALLDIR and sets each of its targets, trying every one; `results` are for the value
// handed on, INSTALLDIR unreadable, then each target refused in turn.
TEST_F(HandOffTest, EachActionHandsItsValueOnWithItsOwnTextsAndResults)
{
    std::vector<ActionCase> cases;
    auto add = [&](const char* name, const Lines& targets, const std::wstring& infix, const std::wstring& setFailure,
                   const std::wstring& readFailure, const std::vector<UINT>& results) {
        const std::wstring action(name, name + strlen(name));
        Lines handedOn = {L"Tessel_CA " + action + L"() start"};
        Rows all, none;
        for (const std::wstring& target : targets) {
            handedOn.push_back(L"Tessel_CA " + target + infix + L", " + kDir + kSet);
            all.push_back({target, kDir});
            none.push_back({target, L""});
        }
        cases.push_back({"handed on", name, kDirRows, nullptr, results[0], Exactly(handedOn), Holds(all)});
        // 260 characters, one too many.
        cases.push_back({"unreadable", name, {{L"INSTALLDIR", L"C:\\" + Repeat(L'p', 257)}}, nullptr, results[1],
                         Exactly({handedOn[0], L"Tessel_CA " + readFailure}), Holds(none)});
        for (size_t i = 0; i < targets.size(); ++i) {
            Lines log = handedOn;  // a target set is logged: the others' lines show that they were still tried
            log[i + 1] = L"Tessel_CA " + targets[i] + infix + setFailure;
            cases.push_back({"refused " + std::to_string(i), name, kDirRows, Refuse(targets[i]), results[2 + i],
                             Exactly(log), nullptr});
        }
    };
    const std::wstring setPid = L" failed to set Pid in CustomActionData";
    add("GetInstallVaneDir", {L"DeleteInstallVane"}, L"", setPid, L"SetInstallVaneDir() failed.", {0, 1603, 1603});
    add("GetInstallTracewellDir", {L"DeleteInstallTracewell"}, L"", L" failed to be set in CustomActionData",
        L"SetInstallTracewellDir() failed.", {1, 0, 0});
    add("GetInstallSorrelDir", {L"DeleteInstallSorrel"}, L"", setPid, L"SetInstallSorrelDir() failed.", {1, 0, 0});
    add("GetInstallUSBMonDir", {L"DeleteUSBMONDir"}, L"", L" failed to set Installdir in CustomActionData",
        L"SetInstallUSBMONDir() failed.", {1, 0, 0});
    add("SetInstallDir", {L"DeleteFerruleDir", L"UpdateCfg"}, L" SetInstallDir()", setPid,
        L"SetInstallDir() failed to get Pid from Kestra Property table.", {0, 1603, 1603, 1603});
    // Here the second target alone decides the result.
    add("GetInstallProxyDir", {L"LaunchInstallProxyExe", L"SetInstallProxyReg"}, L"", setPid,
        L"SetInstallProxyDir() failed.", {1, 0, 1, 0});
    const std::wstring longest = L"C:\\" + Repeat(L'p', 256);
    cases.push_back({"259 characters", "SetInstallDir", {{L"INSTALLDIR", longest}}, nullptr, 0, {},
                     Holds({{L"UpdateCfg", longest}})});
    cases.push_back({"empty", "SetInstallDir", {}, nullptr, 0,
                     Includes({L"Tessel_CA UpdateCfg SetInstallDir(), " + kSet}), nullptr});
    // The pid comes from the package's private table, not from a public property of that name.
    const char* action = "SetFerruleKestraPid";
    const Rows pid = {{L"Kestra_PID", L"{PID}"}};
    const std::wstring start = L"Tessel_CA SetFerruleKestraPid() start";
    const std::wstring reading = L"Tessel_CA GetFromMSITable(), Reading Property table\n ";
    cases.push_back({"handed on", action, {}, nullptr, 0,
                     Exactly({start, reading, L"Tessel_CA GetFromMSITable() PackageRead Property Value is {PID} \n",
                              L"Tessel_CA SetFerruleKestraPid(), {PID}" + kSet}),
                     Holds({{L"CleanRegistry", L"{PID}"}}), pid});
    const std::wstring noRow = L"Tessel_CA SetFerruleKestraPid() failed to get Pid from Kestra Property table.";
    cases.push_back({"no row", action, pid, nullptr, 1603, Exactly({start, reading, noRow}),
                     Holds({{L"CleanRegistry", L""}})});
    cases.push_back({"refused", action, {}, Refuse(L"CleanRegistry"), 1603,
                     Includes({L"Tessel_CA SetFerruleKestraPid() failed to set Pid in CustomActionData"}), nullptr,
                     pid});
    RunCases(cases);
}

}  // namespace
