// The settings store on real files: what it loads, and exactly what its saves
// leave in the file.
#include "config/area.h"

#include "config/config_store.h"
#include "framework/error_handler.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;

namespace {

class ConfigStoreTest : public harness::ActionTest {
protected:
    ConfigStoreTest() : ActionTest(SuiteKeysArea()) {}

protected:
    void SetUp() override
    {
        ActionTest::SetUp();
        CreateDirectoryW(harness::kScratchFolder, NULL);
        path_ = std::wstring(harness::kScratchFolder) + L"InstallManager.cfg";
    }

    void Write(const std::string& bytes) const { harness::WriteFileBytes(path_, bytes); }
    std::string Read() const { return harness::ReadFileBytes(path_); }

    std::wstring Get(Config& config, const std::wstring& name)
    {
        std::wstring value = L"<absent>";
        std::wstring found;
        if (config.GetString(name, found, L""))
            value = found;
        return value;
    }

    std::wstring path_;
};

TEST_F(ConfigStoreTest, LoadsNameValueLinesAsTheFrameworkAlwaysHas)
{
    Write("a=b=c\r\n=x\r\n#hidden=1\r\n[Section]\r\nv=1\rwith\r\n\r\nrep=1\r\nrep=2\r\nspaced = yes \r\n");
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"b=c", Get(config, L"a"));
    EXPECT_EQ(L"x", Get(config, L""));
    EXPECT_EQ(L"<absent>", Get(config, L"#hidden"));
    EXPECT_EQ(L"1with", Get(config, L"v"));
    EXPECT_EQ(L"2", Get(config, L"rep"));
    EXPECT_EQ(L" yes ", Get(config, L"spaced "));

    // The patchers' reader is the loose one.
    std::wstring found;
    EXPECT_EQ(1u, config.ReadFileValue(L"#hidden", found, path_));
    EXPECT_EQ(L"1", found);
    EXPECT_EQ(1u, config.ReadFileValue(L"rep", found, path_));
    EXPECT_EQ(9u, config.ReadFileValue(L"[Section]\r", found, path_));
    EXPECT_EQ(L"[Section]", found);
    EXPECT_EQ(0u, config.ReadFileValue(L"missing", found, path_));
}

TEST_F(ConfigStoreTest, LineEndsAndEncodingsReadAsTheyAlwaysHave)
{
    Config config;
    Write("a=1\nb=2\n");
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"2", Get(config, L"b"));

    // A file with only CR line ends is one line.
    Write("a=1\rb=2\r");
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"1b=2", Get(config, L"a"));
    EXPECT_EQ(L"<absent>", Get(config, L"b"));

    // UTF-16 with its mark.
    Write(std::string("\xFF\xFE" "k\0=\0v\0\r\0\n\0", 12));
    EXPECT_EQ(3, DetectEncoding(path_));
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"v", Get(config, L"k"));

    // Without it the narrow reader stops at the first zero byte.
    Write(std::string("k\0=\0v\0", 6));
    EXPECT_EQ(0, DetectEncoding(path_));
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"<absent>", Get(config, L"k"));

    // The UTF-8 mark is never recognised: it becomes part of the first name.
    Write("\xEF\xBB\xBFkey=v\r\n");
    EXPECT_EQ(0, DetectEncoding(path_));
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"v", Get(config, L"\x00EF\x00BB\x00BFkey"));

    // The two "UTF-32" tests want bytes no UTF-32 mark has.
    Write(std::string("\xFE\xEF\0\0k\0=\0v\0", 10));
    EXPECT_EQ(6, DetectEncoding(path_));
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"v", Get(config, L"k"));
    Write(std::string("\0\0\xFF\xFEk\0=\0v\0", 10));
    EXPECT_EQ(7, DetectEncoding(path_));
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"v", Get(config, L"k"));
    // A big-endian mark is skipped, but the text is not swapped.
    Write(std::string("\xFE\xFF\0k\0=\0v", 8));
    EXPECT_EQ(4, DetectEncoding(path_));
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"<absent>", Get(config, L"k"));
    std::wstring line;
    EXPECT_EQ(3u, config.ReadFileValue(L"\x6B00\x3D00\x7600", line, path_));
}

TEST_F(ConfigStoreTest, AnEmptyFileLoadsNothingAndTakesEverySettingAtTheSave)
{
    Write("");
    Config config;
    config.SetString(L"kept", L"1", 0);
    EXPECT_FALSE(config.LoadFile(path_));
    EXPECT_FALSE(config.Exists(L"kept", false));
    config.SetString(L"b", L"2", 0);
    config.SetString(L"a", L"1", 0);
    EXPECT_TRUE(config.SaveFile(path_));
    EXPECT_EQ("a=1\r\nb=2\r\n", Read());
}

TEST_F(ConfigStoreTest, SavePatchesTheFileKeyByKeyAndKeepsWhatItDoesNotKnow)
{
    Write("# comment\r\n[Unknown]\r\na=1\r\nb=2\r\nc=3\r\n");
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    config.SetString(L"b", L"20", 0);
    EXPECT_TRUE(config.Remove(L"c", false));
    config.SetString(L"d", L"4", 0);
    EXPECT_TRUE(config.SaveFile(path_));
    // The delete and the change each rewrote the file, and each rewrite gives
    // the lines it kept one CR more.
    EXPECT_EQ("# comment\r\r\r\n[Unknown]\r\r\r\na=1\r\r\r\nb=20\r\nd=4\r\n", Read());

    Config reloaded;
    ASSERT_TRUE(reloaded.LoadFile(path_));
    EXPECT_EQ(L"1", Get(reloaded, L"a"));
    EXPECT_EQ(L"20", Get(reloaded, L"b"));
    // An unchanged store saves without touching the file.
    std::string before = Read();
    EXPECT_TRUE(reloaded.SaveFile(path_));
    EXPECT_EQ(before, Read());
}

TEST_F(ConfigStoreTest, RepeatedNamesAreReadLastButPatchedFirstAndDeletedAll)
{
    Write("a=1\na=2\nb=x\n");
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_EQ(L"2", Get(config, L"a"));
    config.SetString(L"a", L"3", 0);
    EXPECT_TRUE(config.SaveFile(path_));
    EXPECT_EQ("a=3\r\na=2\r\nb=x\r\n", Read());

    EXPECT_TRUE(config.DeleteFileValue(L"a", path_));
    EXPECT_EQ("b=x\r\r\n", Read());
    EXPECT_FALSE(config.DeleteFileValue(L"a", path_));
    EXPECT_FALSE(config.WriteFileValue(L"a", L"9", path_));
    EXPECT_EQ("b=x\r\r\n", Read());
}

TEST_F(ConfigStoreTest, AnEmptyValueCountsAsAbsentAtEverySave)
{
    Write("e=\r\n");
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    EXPECT_TRUE(config.SaveFile(path_));
    EXPECT_TRUE(config.SaveFile(path_));
    EXPECT_EQ("e=\r\ne=\r\ne=\r\n", Read());
}

TEST_F(ConfigStoreTest, SavesIntoReadOnlyFilesAndMissingFolders)
{
    Write("a=1\r\n");
    SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_READONLY);
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    config.SetString(L"a", L"2", 0);
    EXPECT_TRUE(config.SaveFile(path_));
    EXPECT_EQ("a=2\r\n", Read());

    // A folder that isn't there passes the test of its writability; nothing
    // can be written and the save still answers true.
    std::wstring nowhere = std::wstring(harness::kScratchFolder) + L"missing\\InstallManager.cfg";
    EXPECT_TRUE(config.SaveFile(nowhere));
    EXPECT_EQ("<missing>", harness::ReadFileBytes(nowhere));
}

// A store whose in-place update always fails, and one whose reader throws.
class RefusingConfig : public Config {
public:
    bool WriteFileValue(const std::wstring&, const std::wstring&, const std::wstring&) override { return false; }
};

class ThrowingConfig : public Config {
public:
    size_t ReadFileValue(const std::wstring&, std::wstring&, const std::wstring&) override
    {
        throw std::bad_alloc();
    }
};

TEST_F(ConfigStoreTest, FailedSettingsAreReportedOnceAndTheSaveGoesOn)
{
    Write("a=1\r\nb=1\r\n");
    RefusingConfig refusing;
    ASSERT_TRUE(refusing.LoadFile(path_));
    refusing.SetString(L"a", L"2", 0);
    refusing.SetString(L"b", L"2", 0);
    refusing.SetString(L"c", L"3", 0);
    ErrorHandler::GetInstance()->SetLastErrorCodeEx(0, false);
    EXPECT_TRUE(refusing.SaveFile(path_));
    EXPECT_EQ(165, ErrorHandler::GetInstance()->GetLastErrorCode());
    EXPECT_EQ("a=1\r\nb=1\r\nc=3\r\n", Read());

    ThrowingConfig throwing;
    throwing.SetString(L"x", L"1", 0);
    EXPECT_TRUE(throwing.SaveFile(path_));
    EXPECT_EQ(1607, ErrorHandler::GetInstance()->GetLastErrorCode());
}

TEST_F(ConfigStoreTest, GettersConvertAndRecordTheirDefaults)
{
    Write("n=-42x\r\nu=42\r\nt=true\r\nT=True\r\nword=abc\r\n");
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    long number = 0;
    EXPECT_TRUE(config.GetLong(L"n", number, 7));
    EXPECT_EQ(-42, number);
    int integer = 0;
    EXPECT_TRUE(config.GetInt(L"word", integer, 7));
    EXPECT_EQ(0, integer);
    unsigned int unsignedNumber = 0;
    EXPECT_TRUE(config.GetUInt(L"u", unsignedNumber, 7));
    EXPECT_EQ(42u, unsignedNumber);
    bool flag = false;
    EXPECT_TRUE(config.GetBool(L"t", flag, false));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(config.GetBool(L"T", flag, true));
    EXPECT_FALSE(flag);

    unsigned long big = 0;
    EXPECT_FALSE(config.GetULong(L"absent", big, 4000000000UL));
    EXPECT_EQ(4000000000UL, big);
    EXPECT_FALSE(config.GetBool(L"absentFlag", flag, true));
    std::wstring text;
    EXPECT_FALSE(config.GetString(L"absentText", text, L""));
    EXPECT_EQ(L"4000000000", Get(config, L"absent"));
    EXPECT_EQ(L"true", Get(config, L"absentFlag"));
    EXPECT_FALSE(config.Exists(L"absentText", false));

    // An empty name is refused by the setters but found when a file had it.
    config.SetString(L"", L"x", 0);
    EXPECT_FALSE(config.Exists(L"", false));
    // Setting an empty text removes the setting.
    config.SetString(L"word", L"", 0);
    EXPECT_FALSE(config.Exists(L"word", false));
}

TEST_F(ConfigStoreTest, ListsAreNumberedSettingsInTextOrder)
{
    Config config;
    StringList items;
    for (int i = 1; i <= 10; ++i)
        items.push_back(L"item" + std::to_wstring(i));
    items.push_back(L"");
    config.SetList(L"a", items, 0);
    config.SetString(L"a", L"plain", 0);
    config.SetString(L"ab.1", L"other", 0);
    StringList out;
    EXPECT_TRUE(config.GetList(L"a", out));
    EXPECT_THAT(out, ElementsAre(L"plain", L"item1", L"item10", L"", L"item2", L"item3", L"item4", L"item5",
                                 L"item6", L"item7", L"item8", L"item9"));
    EXPECT_TRUE(config.Exists(L"a", true));
    EXPECT_TRUE(config.Remove(L"a", true));
    EXPECT_FALSE(config.Exists(L"a", true));
    EXPECT_FALSE(config.Remove(L"a", true));
    EXPECT_TRUE(config.Exists(L"a", false));
}

TEST_F(ConfigStoreTest, MergeTakesTheFilesValuesAndKeepsTheRest)
{
    Config config;
    EXPECT_FALSE(config.MergeFile(path_));
    Write("a=new\r\nb=same\r\n");
    config.SetString(L"a", L"old", 0);
    config.SetString(L"b", L"same", 0);
    config.SetString(L"mine", L"1", 0);
    EXPECT_TRUE(config.MergeFile(path_));
    EXPECT_EQ(L"new", Get(config, L"a"));
    EXPECT_EQ(L"1", Get(config, L"mine"));
}

class RecordingObserver : public IConfigObserver {
public:
    void OnSettingChanged(const std::wstring& name, ULONG64 context, bool isList) override
    {
        changes.push_back(name + L"/" + std::to_wstring(context) + (isList ? L"/list" : L""));
    }
    std::vector<std::wstring> changes;
};

TEST_F(ConfigStoreTest, SettersTellTheObservers)
{
    Config config;
    RecordingObserver observer;
    config.AddObserver(&observer);
    config.SetInt(L"i", 5, 7);
    config.SetList(L"l", StringList{L"x"}, 0);
    config.RemoveObserver(&observer);
    config.SetBool(L"b", true, 0);
    EXPECT_THAT(observer.changes, ElementsAre(L"i/7", L"l/0/list"));
}

TEST(ConfigText, TokenizeAndReplaceAll)
{
    StringList items;
    Tokenize(L";;dir\\;Yes;;NO;", L";", items);
    EXPECT_THAT(items, ElementsAre(L"dir\\", L"Yes", L"NO"));
    std::wstring text = L"a/b/c";
    ReplaceAll(text, L"/", L"\\");
    EXPECT_EQ(L"a\\b\\c", text);
    ReplaceAll(text, L"", L"x");
    ReplaceAll(text, NULL, L"x");
    ReplaceAll(text, L"a", L"a");
    EXPECT_EQ(L"a\\b\\c", text);
}

TEST_F(ConfigStoreTest, TwoProcessesSavingAtOnceLoseNoSetting)
{
    Write("shared=1\r\n");
    const int count = 40;
    PROCESS_INFORMATION writers[2] = {};
    const wchar_t* prefixes[2] = {L"first", L"second"};
    for (int i = 0; i < 2; ++i) {
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        std::wstring line = L"\"" + harness::ProgramFolder() + L"config_writer.exe\" \"" + path_ + L"\" " +
                            prefixes[i] + L" " + std::to_wstring(count);
        ASSERT_TRUE(CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, 0, NULL, NULL, &startup, &writers[i]));
    }
    for (PROCESS_INFORMATION& writer : writers) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(writer.hProcess, 90000));
        DWORD exitCode = 1;
        GetExitCodeProcess(writer.hProcess, &exitCode);
        EXPECT_EQ(0u, exitCode);
        TerminateProcess(writer.hProcess, 1);
        CloseHandle(writer.hProcess);
        CloseHandle(writer.hThread);
    }
    Config config;
    ASSERT_TRUE(config.LoadFile(path_));
    for (const wchar_t* prefix : prefixes)
        for (int i = 1; i <= count; ++i)
            EXPECT_EQ(L"value" + std::to_wstring(i), Get(config, prefix + std::to_wstring(i))) << prefix << i;
}

}  // namespace
