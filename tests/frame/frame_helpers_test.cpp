// The frame's own operations, called directly in a real session.
#include "frame/area.h"

#include "frame/frame.h"

#include <gmock/gmock.h>

using harness::Repeat;
using harness::Session;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class FrameTest : public harness::ActionTest {
protected:
    FrameTest() : ActionTest(SuiteKeysArea()) {}
};

TEST_F(FrameTest, LogMessageFormatsOneLineAndAddsNoLineEnd)
{
    Session session;
    LogMessage(session.handle(), L"Tessel_CA first %s, %d", L"value", 42);
    LogMessage(session.handle(), L"TESSEL_CA second\n");
    EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA first value, 42", L"TESSEL_CA second\n"));
    EXPECT_THAT(session.UserMessages(), IsEmpty());
}

TEST_F(FrameTest, LogMessageKeepsLinesUpTo519CharactersAndReplacesLongerOnes)
{
    Session session;
    LogMessage(session.handle(), L"%s", Repeat(L'a', 519).c_str());
    LogMessage(session.handle(), L"%s", Repeat(L'b', 520).c_str());
    LogMessage(session.handle(), L"%s", Repeat(L'c', 2000).c_str());
    EXPECT_THAT(session.Log(), ElementsAre(Repeat(L'a', 519), L"CA buffer overflow\n", L"CA buffer overflow\n"));
}

TEST_F(FrameTest, LogMessageTextIsTheRecordTemplate)
{
    // Field 0 is formatted by the installer, so bracketed property names expand.
    Session session({{L"SOMEPROP", L"expanded"}});
    LogMessage(session.handle(), L"Tessel_CA [SOMEPROP] here");
    EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA expanded here"));
}

TEST_F(FrameTest, LoggingWithoutASessionIsLostQuietly)
{
    Session session;
    LogMessage(0, L"Tessel_CA nobody hears this");
    LogMessage(0xDEAD, L"Tessel_CA nor this");
    LogMessage(session.handle(), L"Tessel_CA after");
    EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA after"));
}

TEST_F(FrameTest, ShowUserMessageReachesTheUserAndReturnsTheirAnswer)
{
    Session session;
    EXPECT_EQ(IDOK, ShowUserMessage(session.handle(), L"Line one.\nLine two.", 0));
    EXPECT_THAT(session.UserMessages(), ElementsAre(L"Line one.\nLine two."));
    EXPECT_THAT(session.Log(), IsEmpty());
}

TEST_F(FrameTest, GetFromMSITableReadsTheRowAndLogsIt)
{
    Session session({}, {{L"Kestra_PID", L"{1234-PID}"}, {L"DriverVersion", L"31.0.1"}});
    g_hSession = session.handle();
    std::wstring value = L"untouched";
    EXPECT_TRUE(GetFromMSITable(kKestraPropertyQuery, L"DriverVersion", value));
    EXPECT_EQ(L"31.0.1", value);
    EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA GetFromMSITable(), Reading Property table\n ",
                                           L"Tessel_CA GetFromMSITable() PackageRead Property Value is 31.0.1 \n"));
}

TEST_F(FrameTest, GetFromMSITableWithoutTheRowFailsSilently)
{
    Session session({}, {{L"DriverVersion", L"31.0.1"}});
    g_hSession = session.handle();
    std::wstring value = L"untouched";
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"Kestra_PID", value));
    EXPECT_EQ(L"untouched", value);
    EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA GetFromMSITable(), Reading Property table\n "));
}

TEST_F(FrameTest, GetFromMSITableAcceptsValuesUpTo1041Characters)
{
    Session session({}, {{L"Long", Repeat(L'x', 1041)}, {L"TooLong", Repeat(L'y', 1042)}});
    g_hSession = session.handle();
    std::wstring value;
    EXPECT_TRUE(GetFromMSITable(kKestraPropertyQuery, L"Long", value));
    EXPECT_EQ(Repeat(L'x', 1041), value);
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"TooLong", value));
    EXPECT_EQ(Repeat(L'x', 1041), value);
    // The long value's own log line doesn't fit a log line.
    EXPECT_THAT(session.Log(), ElementsAre(L"Tessel_CA GetFromMSITable(), Reading Property table\n ",
                                           L"CA buffer overflow\n",
                                           L"Tessel_CA GetFromMSITable(), Reading Property table\n "));
}

TEST_F(FrameTest, GetFromMSITableWithoutADatabaseFails)
{
    g_hSession = 0;
    std::wstring value = L"untouched";
    EXPECT_FALSE(GetFromMSITable(kKestraPropertyQuery, L"Kestra_PID", value));
    EXPECT_EQ(L"untouched", value);
}

TEST_F(FrameTest, GetFromMSITableLeavesNoHandleOpen)
{
    Session session({}, {{L"Kestra_PID", L"pid"}});
    g_hSession = session.handle();
    std::wstring value;
    // Handles are numbered from a counter: one more handle after the calls
    // shows whether any were left behind.
    MSIHANDLE before = MsiCreateRecord(0);
    MsiCloseHandle(before);
    GetFromMSITable(kKestraPropertyQuery, L"Kestra_PID", value);
    GetFromMSITable(kKestraPropertyQuery, L"Missing", value);
    MSIHANDLE after = MsiCreateRecord(0);
    MsiCloseHandle(after);
    EXPECT_EQ(before, after);
}

TEST(StringHelpers, CompareNoCaseFoldsCaseAndOrdersPrefixesFirst)
{
    EXPECT_EQ(0, CompareNoCase(L"Kestra Technologies", L"kESTRA tECHNOLOGIES"));
    EXPECT_EQ(0, CompareNoCase(L"", L""));
    EXPECT_LT(CompareNoCase(L"Install", L"installDir"), 0);
    EXPECT_GT(CompareNoCase(L"InstallDir", L"install"), 0);
    EXPECT_LT(CompareNoCase(L"abc", L"ABD"), 0);
    EXPECT_GT(CompareNoCase(L"b", L"A"), 0);
    // Folded, '_' (0x5F) sorts after letters' upper case but before lower case.
    EXPECT_LT(CompareNoCase(L"A_", L"aa"), 0);
}

TEST(StringHelpers, FindNoCaseGivesTheFirstPositionOrMinusOne)
{
    EXPECT_EQ(0, FindNoCase(L"1", L"1"));
    EXPECT_EQ(0, FindNoCase(L"10", L"1"));
    EXPECT_EQ(1, FindNoCase(L"01", L"1"));
    EXPECT_EQ(-1, FindNoCase(L"", L"1"));
    EXPECT_EQ(-1, FindNoCase(L"yes", L"1"));
    EXPECT_EQ(0, FindNoCase(L"anything", L""));
    EXPECT_EQ(0, FindNoCase(L"", L""));
    EXPECT_EQ(6, FindNoCase(L"C:\\Program Files\\KESTRA", L"gram files\\kes"));
}

TEST(StringHelpers, ToLowerInPlaceFoldsEveryCharacter)
{
    std::wstring text = L"Kestra\\INSTALL Dir 1";
    ToLowerInPlace(text);
    EXPECT_EQ(L"kestra\\install dir 1", text);
}

TEST(StringHelpers, PathSeparatorForJoinsWithOneBackslash)
{
    EXPECT_EQ(L"", PathSeparatorFor(L"C:\\Kestra\\"));
    EXPECT_EQ(L"", PathSeparatorFor(L"C:/Kestra/"));
    EXPECT_EQ(L"\\", PathSeparatorFor(L"C:\\Kestra"));
    EXPECT_EQ(L"\\", PathSeparatorFor(L"x"));
    EXPECT_EQ(L"\\", PathSeparatorFor(L"C:\\Kestra\\\""));
}

TEST(StringHelpers, BoundedCopyCopiesCommandLinesBelow519Characters)
{
    wchar_t buffer[kCommandLineChars + 1];
    std::wstring line = L"\"C:\\Windows\\system32\\cmd.exe\" /c rd /s /q x";
    EXPECT_EQ(buffer, BoundedCopy(buffer, kCommandLineChars, line.c_str(), kCommandLineChars));
    EXPECT_EQ(line, buffer);

    std::wstring longest = Repeat(L'z', 518);
    BoundedCopy(buffer, kCommandLineChars, longest.c_str(), kCommandLineChars);
    EXPECT_EQ(longest, buffer);
}

TEST(StringHelpersDeathTest, BoundedCopyEndsTheProcessOnA519CharacterSource)
{
    wchar_t buffer[kCommandLineChars + 1];
    std::wstring tooLong = Repeat(L'z', 519);
    EXPECT_EXIT(BoundedCopy(buffer, kCommandLineChars, tooLong.c_str(), kCommandLineChars),
                ::testing::ExitedWithCode(static_cast<int>(STATUS_STACK_BUFFER_OVERRUN)), "");
}

}  // namespace
