// The analytics consent keys through the DLL: which states each action moves
// the consent value between, and the capture feature counted once.
#include "harness/harness.h"

using namespace harness;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const wchar_t kAnalytics[] = L"SOFTWARE\\Orvel\\OrvelAnalytics";
const wchar_t kTracked[] = L"SOFTWARE\\OrvelDVR";

class ConsentTest : public ActionTest {
protected:
    ConsentTest()
        : ActionTest({{{HKLM, L"SOFTWARE\\Orvel"}, {HKLM, kTracked}, {HKLM, L"SOFTWARE\\Kestra Technologies"}}, {}, {}})
    {
    }
};

std::function<void()> Consent(const std::wstring& text)
{
    return [=] { SetText(HKLM, kAnalytics, L"AnalyticsAccepted", text); };
}

std::function<void(Session&)> ConsentIs(const std::wstring& text)
{
    return [=](Session&) {
        DWORD bytes = 0;  // the text and its terminator, no more
        RegGetValueW(HKLM, kAnalytics, L"AnalyticsAccepted", RRF_RT_ANY | RRF_NOEXPAND, NULL, NULL, &bytes);
        EXPECT_EQ(text + L"|" + std::to_wstring((text.size() + 1) * 2),
                  TextOf(HKLM, kAnalytics, L"AnalyticsAccepted") + L"|" + std::to_wstring(bytes));
    };
}

std::function<void()> Capture(DWORD enabled)
{
    return [=] { SetDword(HKLM, L"SOFTWARE\\Kestra Technologies\\Install", L"OrvelDVR_Enabled", enabled); };
}

std::function<void(Session&)> Tracked(DWORD value)
{
    return [=](Session&) { EXPECT_EQ(value, DwordOf(HKLM, kTracked, L"OrvelDVR_Tracked")); };
}

TEST_F(ConsentTest, EachActionMovesTheConsentOrTheCount)
{
    const auto disable = [](const std::wstring& value) { return Rows{{L"DISABLEANALYTICS", value}}; };
    const LogCheck none = Exactly({});
    RunCases({
        {"enable, no key: made", "EnableAnalyticsKey", {}, nullptr, 0, none, ConsentIs(L"true")},
        {"enable over false", "EnableAnalyticsKey", {}, Consent(L"false"), 0, none, ConsentIs(L"true")},
        {"disable, yes and more", "DisabelAnalyticsKey", disable(L"yEs please"), Consent(L"true"), 0, none,
         ConsentIs(L"false")},
        {"disable, no", "DisabelAnalyticsKey", disable(L"NO"), Consent(L"true"), 0, none, ConsentIs(L"true")},
        {"disable, blank first", "DisabelAnalyticsKey", disable(L" YES"), Consent(L"true"), 0, none,
         ConsentIs(L"true")},
        {"disable, unset", "DisabelAnalyticsKey", {}, Consent(L"true"), 0, none, ConsentIs(L"true")},
        {"disable, no key", "DisabelAnalyticsKey", disable(L"YES"), nullptr, 0, none,
         [](Session&) { EXPECT_FALSE(KeyExists(HKLM, kAnalytics)); }},
        {"counted", "TrackDVRAnalytics", {}, Capture(1), 0, none, Tracked(1)},
        {"feature off", "TrackDVRAnalytics", {}, Capture(0), 0, none, Tracked(kMissingDword)},
        {"feature unknown", "TrackDVRAnalytics", {}, nullptr, 0, none, Tracked(kMissingDword)},
        {"counted before", "TrackDVRAnalytics", {}, [] { Capture(1)(); CreateKey(HKLM, kTracked); }, 0, none,
         Tracked(kMissingDword)},
    });
}

// The delete logs through the session an earlier action stored; a key with sub-keys stays.
TEST_F(ConsentTest, DeleteAnalyticsKeyLogsWhatBecameOfTheKey)
{
    const struct { const char* row; std::function<void()> arrange; const wchar_t* line; bool stays; } rows[] = {
        {"deleted", Consent(L"true"), L"Gauge Key deleted", false},
        {"with a sub-key", [] { CreateKey(HKLM, std::wstring(kAnalytics) + L"\\Sub"); }, L"Gauge Key not deleted",
         true},
        {"no key", nullptr, L"Could not access Gauge Key", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.row);
        ClearArea({{{HKLM, L"SOFTWARE\\Orvel"}}, {}, {}});
        if (row.arrange)
            row.arrange();
        Session session;
        session.Call("GetInstallVaneDir");  // stores the session
        EXPECT_EQ(0u, session.Call("DeleteAnalyticsKey"));
        EXPECT_EQ(row.line, session.Log().back());
        EXPECT_EQ(row.stays, KeyExists(HKLM, kAnalytics));
    }
}

}  // namespace
