// The display-mode actions through the DLL: the packed mode and its log, the
// fixed mode set after the wait, the assessment queued for the next start.
#include "integration/area.h"

#include <memory>

using namespace harness;

namespace {

using DisplayModeTest = IntegrationTest;

// The count one read leaves is the next read's room: "1280" leaves 4, too few for "1024" and its
// terminator; the installer then fills what fits.
TEST_F(DisplayModeTest, SetDisplayModePacksWhatEachReadLeaves)
{
    const auto got = [](const std::wstring& name, const std::wstring& value) {
        return L"TESSEL_CA " + name + L": " + value + L" \n";
    };
    const auto missed = [](const std::wstring& name, const std::wstring& fallback) {
        return L"TESSEL_CA Could not get " + name + L". Default to " + fallback + L"  \n";
    };
    const auto packed = [](const std::wstring& text) {
        return [=](Session& s) { EXPECT_EQ(text, s.Property(L"DisplayModeChange")); };
    };
    const std::wstring start = L"Tessel_CA SetDisplayMode() start", set = L" should be set in CustomActionData \n";
    RunCases({
        {"none", "SetDisplayMode", {}, nullptr, 0,
         Exactly({start, got(L"DisplayWidth", L""), missed(L"DisplayHeight", L"768"), missed(L"DisplayBpp", L"32"),
                  missed(L"DisplayFreq", L"60"), L"Tessel_CA SetDisplayMode(), ;;;;" + set}),
         packed(L";;;;")},
        {"all four", "SetDisplayMode",
         {{L"DisplayWidth", L"1280"}, {L"DisplayHeight", L"1024"}, {L"DisplayBpp", L"32"}, {L"DisplayFreq", L"60"}},
         nullptr, 0,
         Exactly({start, got(L"DisplayWidth", L"1280"), missed(L"DisplayHeight", L"768"), got(L"DisplayBpp", L"32"),
                  missed(L"DisplayFreq", L"60"), L"Tessel_CA SetDisplayMode(), 1280;102;32;6;" + set}),
         packed(L"1280;102;32;6;")},
    });
    RefusedPropertySets refused{L"DisplayModeChange"};
    Session session;
    EXPECT_EQ(1603u, session.Call("SetDisplayMode"));
    EXPECT_EQ(L"Tessel_CA SetDisplayMode() failed to set DisplayModeChange in CustomActionData", session.Log().back());
}

BOOL WINAPI NoSettings(LPCWSTR, DWORD, DEVMODEW*)
{
    return FALSE;
}

// Once on the real clock, with Wine's display: 20 seconds, then the fixed mode, which Wine's display
// driver refuses or takes. Then on the test's clock, with no settings to read.
TEST_F(DisplayModeTest, DisplayModeChangeWaitsThenSetsTheFixedMode)
{
    const std::wstring again = L"TESSEL_CA: DisplayModeChange  \n";
    Session session(Data(L"1280;1024;16;75;"), {});
    const ULONGLONG start = GetTickCount64();
    const UINT result = session.Call("DisplayModeChange");
    EXPECT_GE(GetTickCount64() - start, 19900u);
    DEVMODEW mode = {};
    mode.dmSize = sizeof(mode);
    ASSERT_TRUE(EnumDisplaySettingsW(NULL, ENUM_CURRENT_SETTINGS, &mode));
    const bool changed = mode.dmPelsWidth == 1024 && mode.dmPelsHeight == 768;
    EXPECT_EQ(changed ? 0u : 1603u, result);
    EXPECT_EQ((Lines{again, again,
                     changed ? L"TESSEL_CA: DisplayModeChange completed.\n"
                             : L"TESSEL_CA: DisplayModeChange failed to change display settings.\n"}),
              session.Log());

    FakeClock clock;
    ImportPatch none(TesselDll(), "user32.dll", "EnumDisplaySettingsW", reinterpret_cast<void*>(&NoSettings));
    Session failing;
    EXPECT_EQ(1603u, failing.Call("DisplayModeChange"));
    EXPECT_EQ(20000u, FakeClock::Elapsed());
    EXPECT_EQ(L"TESSEL_CA: DisplayModeChange failed enumeration of display settings.\n", failing.Log().back());
}

// On a 64-bit system the command goes into the 64-bit view alone.
TEST_F(DisplayModeTest, EnableAeroQueuesTheAssessmentInThe64BitView)
{
    const wchar_t runOnce[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
    Session session;
    EXPECT_EQ(1u, session.Call("EnableAero"));
    EXPECT_EQ((Lines{L"TESSEL_CA: EnableAero  \n", L"TESSEL_CA: OS is Vista x64.  Setting 64-bit regkey.\n",
                     L"TESSEL_CA: EnableAero HKLM 64 run once key set.\n"}),
              session.Log());
    EXPECT_EQ(L"winsat formal -xml log.xml", TextOf(HKEY_LOCAL_MACHINE, runOnce, L"EnableAero", KEY_WOW64_64KEY));
    EXPECT_FALSE(HasValue(HKEY_LOCAL_MACHINE, runOnce, L"EnableAero", KEY_WOW64_32KEY));
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, runOnce, L"EnableAero");
}

}  // namespace
