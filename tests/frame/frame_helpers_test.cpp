// The frame's own operations, called directly in a real session.
#include "frame/area.h"

#include "frame/frame.h"

using namespace harness;

namespace {


// Field 0 is formatted by the installer, so a bracketed property name expands. No line end is added.
TEST_F(FrameTest, LogMessageSendsOneTemplateLineOfAtMost519Characters)
{
    harness::Session session({{L"SOMEPROP", L"expanded"}});
    LogMessage(session.handle(), L"Tessel_CA %s, %d [SOMEPROP]", L"value", 42);
    LogMessage(session.handle(), L"%s", Repeat(L'a', 519).c_str());
    LogMessage(session.handle(), L"%s", Repeat(L'b', 520).c_str());
    LogMessage(session.handle(), L"%s", Repeat(L'c', 2000).c_str());
    const MSIHANDLE before = MsiCreateRecord(0);  // the next handle shows whether one was left open
    MsiCloseHandle(before);
    EXPECT_EQ(IDOK, ShowUserMessage(session.handle(), L"Line one.\nLine two.", 0));
    const MSIHANDLE after = MsiCreateRecord(0);
    MsiCloseHandle(after);
    EXPECT_EQ(before, after);
    EXPECT_EQ(
        (Lines{L"Tessel_CA value, 42 expanded", Repeat(L'a', 519), L"CA buffer overflow\n", L"CA buffer overflow\n"}),
        session.Log());
    EXPECT_EQ(Lines{L"Line one.\nLine two."}, session.UserMessages());
}

// A value fits in 1041 characters; its own log line doesn't. A failed read leaves the value alone.
TEST_F(FrameTest, GetFromMSITableReadsOneRowOfThePackagesTable)
{
    harness::Session session(
        {}, {{L"DriverVersion", L"31.0.1"}, {L"Long", Repeat(L'x', 1041)}, {L"Longer", Repeat(L'y', 1042)}});
    g_hSession = session.handle();
    std::wstring value;
    // Handles are numbered from a counter: the next one after the calls shows whether any were left open.
    const MSIHANDLE before = MsiCreateRecord(0);
    MsiCloseHandle(before);
    EXPECT_TRUE(GetFromMSITable(kKestraPropertyQuery, L"DriverVersion", value));
    EXPECT_EQ(L"31.0.1", value);
    EXPECT_TRUE(GetFromMSITable(kKestraPropertyQuery, L"Long", value));
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"Longer", value));
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"Missing", value));
    EXPECT_EQ(Repeat(L'x', 1041), value);
    const MSIHANDLE after = MsiCreateRecord(0);
    MsiCloseHandle(after);
    EXPECT_EQ(before, after);
    const std::wstring reading = L"Tessel_CA GetFromMSITable(), Reading Property table\n ";
    EXPECT_EQ((Lines{reading, L"Tessel_CA GetFromMSITable() PackageRead Property Value is 31.0.1 \n", reading,
                     L"CA buffer overflow\n", reading, reading}),
              session.Log());
}

TEST(StringHelpersDeathTest, BoundedCopyTakes518CharactersAndEndsTheProcessAt519)
{
    wchar_t buffer[kCommandLineChars + 1];
    EXPECT_EQ(buffer, BoundedCopy(buffer, kCommandLineChars, Repeat(L'z', 518).c_str(), kCommandLineChars));
    EXPECT_EQ(Repeat(L'z', 518), buffer);
    EXPECT_EXIT(BoundedCopy(buffer, kCommandLineChars, Repeat(L'z', 519).c_str(), kCommandLineChars),
                ::testing::ExitedWithCode(static_cast<int>(STATUS_STACK_BUFFER_OVERRUN)), "");
}

}  // namespace
